// Whether a request was meant for this page.
#include "tools/plc_sim/page/visitor_check.h"

#include <algorithm>
#include <cctype>

namespace plc_sim {
namespace {

constexpr uint16_t kHttpPort = 80;  // the one that browsers leave out

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
  return text;
}

// A link from another page may lead to this one; what it is made of it asks for itself.
bool is_asked_by_another(const WebRequest& request) {
  if (request.origin && *request.origin != "http://" + request.host.value_or("")) return true;
  const bool is_inside = request.path == "/state" || request.path == "/command";
  return is_inside && request.fetch_site && *request.fetch_site != "same-origin" && *request.fetch_site != "none";
}

bool is_own_host(const WebRequest& request, const ServedAt& served_at) {
  const std::string asked = lower(request.host.value_or(""));
  const auto is_asked = [&](const std::string& name) {
    return asked == name + ":" + std::to_string(served_at.port) || (served_at.port == kHttpPort && asked == name);
  };
  return is_asked("localhost") || is_asked("127.0.0.1") || is_asked("[::1]") || is_asked(served_at.host) ||
         is_asked(request.reached_at);
}

}  // namespace

std::optional<WebAnswer> refuse_foreign(const WebRequest& request, const ServedAt& served_at) {
  const std::string advice =
      "; open http://" + request.reached_at + ":" + std::to_string(served_at.port) + "/ instead\n";
  if (!is_own_host(request, served_at)) {
    return plain_answer(kHttpForbidden, "plc-sim: the page is not served under the host name of this request" + advice);
  }
  if (is_asked_by_another(request)) {
    return plain_answer(kHttpForbidden, "plc-sim: pages from elsewhere cannot use this one" + advice);
  }
  return std::nullopt;
}

}  // namespace plc_sim
