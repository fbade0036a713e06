// Takes the headers that the page knows, and no more of a body than a command has.
#include "tools/plc_sim/page/visit.h"

#include <charconv>

namespace plc_sim {
namespace {

constexpr const char* kOwnHeader = "X-Plc-Sim";

// Nothing for no number, as with a body that comes in pieces of unknown number.
size_t announced_bytes(const std::string& text) {
  size_t bytes = 0;
  std::from_chars(text.data(), text.data() + text.size(), bytes);
  return bytes;
}

WebAnswer too_large() {
  return plain_answer(kHttpTooLarge, "plc-sim: a command has at most " + std::to_string(kMaxCommandBytes) + " bytes\n");
}

}  // namespace

void add_argument(std::string& query, std::string_view key, std::optional<std::string_view> value) {
  if (!query.empty()) query += '&';
  query += key;
  if (value) query.append("=").append(*value);
}

Visit::Visit(WebRequest request, const Headers& headers) : request_(std::move(request)) {
  request_.host = headers("Host");
  request_.origin = headers("Origin");
  request_.fetch_site = headers("Sec-Fetch-Site");
  request_.has_own_header = headers(kOwnHeader).has_value();
  announced_ = announced_bytes(headers("Content-Length").value_or(""));
}

std::optional<WebAnswer> Visit::answer_to_head() const {
  return announced_ > kMaxDroppedBytes ? std::optional<WebAnswer>(too_large()) : std::nullopt;
}

bool Visit::take(std::string_view piece) {
  body_bytes_ += piece.size();
  if (body_bytes_ <= kMaxCommandBytes) request_.body += piece;
  return body_bytes_ <= kMaxDroppedBytes;
}

WebAnswer Visit::answer(const ServedAt& served_at, const std::function<WebAnswer(const WebRequest&)>& page) const {
  if (const auto refusal = refuse_foreign(request_, served_at)) return *refusal;
  return body_bytes_ > kMaxCommandBytes ? too_large() : page(request_);
}

}  // namespace plc_sim
