// Parts of a report that is one page: it needs no other file and asks no network for anything.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace plc_base {

// What is given as content is HTML: text from outside goes through shown_html before.
std::string html_element(const char* name, const std::string& content);

// With a heading of the second degree.
std::string html_section(const std::string& title, const std::string& content);

// A name with its value, for a list of such (dl).
std::string html_fact(const char* name, const std::string& value);

// A table whose cells are HTML; numbers stand on the right from this column on.
class HtmlTable {
 public:
  HtmlTable(const std::string& title, const std::vector<const char*>& heads, size_t numbers_from);

  void add(const std::vector<std::string>& cells);

  // `all` is how many there were; those that are not in the table are counted below it.
  std::string finish(uint64_t all) const;
  std::string finish() const { return finish(rows_); }

  // Longer tables are for programs, which have the other forms of a report.
  static constexpr size_t kMostRows = 1000;

 private:
  size_t numbers_from_;
  size_t rows_ = 0;
  std::string text_;
};

// The whole page. Its style is that of all reports and what stands in `style`.
std::string html_page(const std::string& title, std::string_view style, const std::string& body);

}  // namespace plc_base
