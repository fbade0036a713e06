// The journal's table of names: which variable an alias stands for, as it was written and in no other way.
#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <utility>

#include "base/utf8.h"
#include "tools/plc_gateway/journal/row_store.h"
#include "tools/plc_gateway/journal/sum.h"

namespace plc_gateway {
namespace {

std::string shape_text(const std::vector<size_t>& shape) {
  std::string text;
  for (const size_t length : shape) text += std::to_string(length) + ' ';
  return text;
}

std::vector<size_t> shape_from(const std::string& text) {
  std::istringstream in(text);
  std::vector<size_t> shape;
  for (size_t length = 0; in >> length;) shape.push_back(length);
  return shape;
}

// Of all that the row says: a name in the place of another one publishes values under the wrong variable.
uint32_t sum_of_name(const StoredName& name) {
  Sum sum;
  sum.add(name.alias);
  sum.add_text(name.variable.name);
  sum.add(static_cast<uint64_t>(name.variable.type));
  sum.add_text(name.variable.declared_type);
  sum.add_text(shape_text(name.variable.shape));
  sum.add(name.last_row ? 1 : 0);
  sum.add(name.last_row.value_or(0));
  return sum.value();
}

}  // namespace

std::vector<StoredName> RowStore::names() {
  const Statement select =
      database_.prepare("SELECT alias, name, type, declared, shape, last_row, sum FROM names ORDER BY alias");
  Query query(select);
  std::vector<StoredName> names;
  std::set<std::pair<std::string, DataType>> known;
  int code = query.step();
  for (; code == SQLITE_ROW; code = query.step()) {
    StoredName& name = names.emplace_back();
    name.alias = query.number(0);
    name.variable.name = query.bytes(1);
    name.variable.type = static_cast<DataType>(query.number(2));
    name.variable.declared_type = query.bytes(3);
    name.variable.shape = shape_from(std::string(query.bytes(4)));
    if (!query.is_nothing(5)) name.last_row = query.number(5);
    // Aliases are given one after the other and never taken back.
    const bool is_whole = name.alias == names.size() && query.number(6) == sum_of_name(name) &&
                          plc_base::is_utf8(name.variable.name) &&
                          known.emplace(name.variable.name, name.variable.type).second;
    if (!is_whole) database_.throw_damaged("the name of alias " + std::to_string(names.size()) + " is damaged");
  }
  const Answer done = database_.answer(code);
  if (done != Answer::kDone) database_.throw_for(done, "cannot be read");
  if (names.size() != life_.names) {
    database_.throw_damaged("it holds " + std::to_string(names.size()) + " of " + std::to_string(life_.names) +
                            " names of variables");
  }
  return names;
}

Answer RowStore::write_names(const std::vector<StoredName>& names) {
  const Statement write = database_.prepare("INSERT OR REPLACE INTO names VALUES(?, ?, ?, ?, ?, ?, ?)");
  uint64_t bytes = 0;
  for (const StoredName& name : names) {
    bytes += name.variable.name.size() + name.variable.declared_type.size() + kNameBytes;
  }
  return change(bytes / kPartBytes * 2 + kSparePages, [&](JournalLife& life) {
    for (const StoredName& name : names) {
      const std::string shape = shape_text(name.variable.shape);
      Query query(write);
      query.with(name.alias).with_text(name.variable.name).with(static_cast<uint64_t>(name.variable.type));
      query.with_text(name.variable.declared_type).with_text(shape);
      if (name.last_row) {
        query.with(*name.last_row);
      } else {
        query.with_nothing();
      }
      const Answer done = database_.run(query.with(sum_of_name(name)));
      if (done != Answer::kDone) return done;
      life.names = std::max(life.names, name.alias);
    }
    return Answer::kDone;
  });
}

}  // namespace plc_gateway
