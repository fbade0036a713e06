// A request of the page as it comes in: its head, then its body piece by piece, then the answer.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "tools/plc_sim/page/visitor_check.h"
#include "tools/plc_sim/page/web_request.h"

namespace plc_sim {

constexpr size_t kMaxCommandBytes = 16384;
// A longer body is read and dropped up to here, so that a visitor who is still sending sees the answer.
constexpr size_t kMaxDroppedBytes = 1048576;

// The value of a header by its name; nothing for one that did not come.
using Headers = std::function<std::optional<std::string>(const char* name)>;

// One argument more. A query stays in one piece: names may hold what elsewhere stands between arguments.
void add_argument(std::string& query, std::string_view key, std::optional<std::string_view> value);

class Visit {
 public:
  // `request` has what does not stand in headers.
  Visit(WebRequest request, const Headers& headers);

  // The answer that needs no body to be known: one that is too long by its own word.
  std::optional<WebAnswer> answer_to_head() const;
  // False when nobody reads on.
  bool take(std::string_view piece);
  WebAnswer answer(const ServedAt& served_at, const std::function<WebAnswer(const WebRequest&)>& page) const;

 private:
  WebRequest request_;
  size_t announced_ = 0;   // bytes of the body by its head; 0 where that has no number
  size_t body_bytes_ = 0;  // that came, kept or not
};

}  // namespace plc_sim
