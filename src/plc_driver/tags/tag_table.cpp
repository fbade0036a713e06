// The list of loaded tag files.
#include "plc_driver/tags/tag_table.h"

#include <cstdlib>
#include <cstring>

#include "plc_driver/diagnostics.h"
#include "plc_driver/tags/tag_file.h"
#include "plc_driver/text/bounded_text.h"

namespace {

// The node that holds this link pair.
TagTable* node_of(TagLinks* links) {
  void* node = reinterpret_cast<char*>(links) - offsetof(TagTable, links);
  return static_cast<TagTable*>(node);
}

}  // namespace

namespace plc {

int write_file_name(uint32_t ip_address, uint16_t area, char* out) {
  BoundedText<kFileNameBytes> name;
  name.append("PLC");
  name.append_hex(ip_address);
  name.append("_");
  name.append_decimal(area);
  name.append(".csv");
  memcpy(out, name.bytes, name.length + 1);
  return static_cast<int>(name.length);
}

}  // namespace plc

extern "C" {

void init_tag(TagTable* head) {
  head->links.next = &head->links;
  head->links.prev = &head->links;
}

int add_tagtable(TagTable* head, const char* name, TagEntry* entries, IndexedTagEntry* groups, const uint32_t* counts) {
  auto* node = static_cast<TagTable*>(calloc(1, sizeof(TagTable)));
  if (node == nullptr) {
    plc::print_text("malloc plc_tag failed");
    return -1;
  }
  const size_t name_bytes = strlen(name) + 1;
  node->name = static_cast<char*>(malloc(name_bytes));
  if (node->name == nullptr) {
    plc::print_text("malloc name failed");
    free(node);
    return -2;
  }
  memcpy(node->name, name, name_bytes);
  node->entries = entries;
  node->indexed_groups = groups;
  node->tag_count = counts[0];
  node->max_indexed_id = counts[1];
  node->links.next = head->links.next;
  node->links.prev = &head->links;
  head->links.next->prev = &node->links;
  head->links.next = &node->links;
  return 1;
}

TagTable* get_tagtable(TagTable* head, const char* name) {
  for (TagLinks* links = head->links.next; links != &head->links; links = links->next) {
    TagTable* node = node_of(links);
    if (strcmp(node->name, name) == 0) return node;
  }
  return nullptr;
}

int get_csv_name(const CommSettings* settings, const RegRequest* request, char* out) {
  return plc::write_file_name(settings->ip_address, request->area, out);
}

int get_csv_name_batch(const CommSettings* settings, const BatchReadRequest* elements, char* out) {
  return plc::write_file_name(settings->ip_address, elements->area, out);
}
}

namespace plc {

void free_tables(TagTable* head) {
  for (TagLinks* links = head->links.next; links != nullptr && links != &head->links;) {
    TagTable* node = node_of(links);
    links = links->next;
    free_tag_arrays(node->entries, node->indexed_groups);
    free(node->name);
    free(node);
  }
  init_tag(head);
}

}  // namespace plc
