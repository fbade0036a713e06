// The little of HTTP that a page for one person needs: one request per connection, answered and closed.
#pragma once

#include <optional>
#include <string>

namespace plc_sim {

struct HttpRequest {
  std::string method;
  std::string path;             // without the query
  std::string query;            // behind the '?', decoded
  bool has_own_header = false;  // the header that only the page's own script sends
  std::string body;
};

struct HttpAnswer {
  int status = 200;
  std::string type = "text/plain; charset=utf-8";
  std::string body;
};

constexpr size_t kMaxHttpRequestBytes = 16384;

// Empty while the request is not complete yet. A broken request has no method.
std::optional<HttpRequest> parse_http_request(const std::string& received);

std::string format_http_answer(const HttpAnswer& answer);

}  // namespace plc_sim
