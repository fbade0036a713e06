// Whether a request was meant for this page, or comes from a page of somebody else through the visitor's browser.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/plc_sim/page/web_request.h"

namespace plc_sim {

// The address of --web, with the port that is listened on.
struct ServedAt {
  std::string host;
  uint16_t port = 0;
};

// A name that somebody lets point to this machine is none of the page's, and neither is any other page an origin of its
// requests. The answer to such a request; nothing for the page's own visitors.
std::optional<WebAnswer> refuse_foreign(const WebRequest& request, const ServedAt& served_at);

}  // namespace plc_sim
