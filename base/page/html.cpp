// Puts parts of a page together.
#include "base/page/html.h"

#include <algorithm>

#include "base/page/page_style.h"

namespace plc_base {

std::string html_element(const char* name, const std::string& content) {
  return std::string("<") + name + ">" + content + "</" + name + ">";
}

std::string html_section(const std::string& title, const std::string& content) {
  return "<section><h2>" + title + "</h2>\n" + content + "</section>\n";
}

std::string html_fact(const char* name, const std::string& value) {
  return html_element("div", html_element("dt", name) + html_element("dd", value));
}

namespace {

// For a style that shows the head of its column beside each cell: "--head1:&quot;rule&quot;".
std::string heads_style(const std::vector<const char*>& heads) {
  std::string style;
  for (size_t i = 0; i < heads.size(); ++i) {
    style += (i == 0 ? "--head" : ";--head") + std::to_string(i + 1) + ":&quot;" + heads[i] + "&quot;";
  }
  return style;
}

}  // namespace

HtmlTable::HtmlTable(const std::string& title, const std::vector<const char*>& heads, size_t numbers_from)
    : numbers_from_(numbers_from),
      text_("<div class=\"wide\" tabindex=\"0\" role=\"region\" aria-label=\"" + title + "\" style=\"" +
            heads_style(heads) + "\"><table><thead><tr>") {
  for (size_t i = 0; i < heads.size(); ++i) {
    text_ += i >= numbers_from_ ? "<th scope=\"col\" class=\"number\">" : "<th scope=\"col\">";
    text_ += heads[i];
    text_ += "</th>";
  }
  text_ += "</tr></thead><tbody>\n";
}

void HtmlTable::add(const std::vector<std::string>& cells) {
  if (++rows_ > kMostRows) return;
  text_ += "<tr>";
  for (size_t i = 0; i < cells.size(); ++i) {
    text_ += i >= numbers_from_ ? "<td class=\"number\">" : "<td>";
    text_ += cells[i];
    text_ += "</td>";
  }
  text_ += "</tr>\n";
}

std::string HtmlTable::finish(uint64_t all) const {
  const uint64_t shown = std::min<uint64_t>(rows_, kMostRows);
  return text_ + "</tbody></table></div>\n" +
         (all > shown ? html_element("p", "and " + std::to_string(all - shown) + " more") : "");
}

std::string html_page(const std::string& title, std::string_view style, const std::string& body) {
  std::string page =
      "<!doctype html>\n<html lang=\"en\">\n<meta charset=\"utf-8\">\n"
      "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'unsafe-inline'\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
      "<meta name=\"color-scheme\" content=\"light dark\">\n<title>";
  page += title + "</title>\n<style>\n";
  page.append(kPageStyle).append(style);
  return page + "</style>\n" + body + "</html>\n";
}

}  // namespace plc_base
