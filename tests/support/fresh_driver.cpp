// Takes back what fresh_driver.h names; a variable that driver_state.h gains is set here, and nowhere else.
#include "tests/support/fresh_driver.h"

#include <sys/select.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "plc_driver/driver_state.h"
#include "plc_driver/tags/tag_file.h"
#include "plc_driver/tags/tag_table.h"

namespace plc_test {

void free_driver_tables() {
  TagLinks* const head = &plc::g_plc_tags.links;
  for (TagLinks* links = head->next; links != nullptr && links != head;) {
    void* const node = reinterpret_cast<char*>(links) - offsetof(TagTable, links);
    auto* const table = static_cast<TagTable*>(node);
    links = links->next;
    plc::free_tag_arrays(table->entries, table->indexed_groups);
    std::free(table->name);
    std::free(table);
  }
  init_tag(&plc::g_plc_tags);
}

void close_stored_sockets() {
  for (int descriptor = 0; descriptor < FD_SETSIZE; ++descriptor) {
    if (FD_ISSET(descriptor, &plc::stored_sockets)) {
      close(descriptor);
      FD_CLR(descriptor, &plc::stored_sockets);
    }
  }
}

void reset_driver_state() {
  free_driver_tables();
  plc::init = 0;
  plc::ip_addr = 0;
  plc::port = 0;
  plc::sid = 0;
  plc::tcp_settings = nullptr;
  std::memset(plc::EmptyBuff, 0, sizeof plc::EmptyBuff);
  FD_ZERO(&plc::stored_sockets);
  std::memset(plc::LocalInfo, 0, plc::directory_capacity * sizeof plc::LocalInfo[0]);
  plc::localNum = 0;
  std::memset(plc::groupID_table, 0, sizeof plc::groupID_table);
  std::memset(plc::StringInfo, 0, sizeof plc::StringInfo);
  plc::string_id = 0;
  std::memset(plc::OMRON_TEMP, 0, sizeof plc::OMRON_TEMP);
  std::memset(plc::INIT_TAG, 0, sizeof plc::INIT_TAG);
  plc::batch_slots = 0;
  plc::reg_init_num = 0;
  plc::reg_interact_num = 0;
  plc::line_sink = nullptr;
  plc::line_context = nullptr;
}

}  // namespace plc_test
