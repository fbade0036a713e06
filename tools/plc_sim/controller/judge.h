// The strict judge: whether a request makes sense on its connection. It reports and repairs nothing.
#pragma once

#include "tools/plc_sim/controller/session.h"
#include "wire/findings.h"
#include "wire/request.h"

namespace plc_sim {

// Order of requests and their sequence numbers; keeps the session's expectation up to date.
void judge_order(Session& session, const Request& request, Findings& findings);

// Each returns whether the request may be carried out.
bool judge_read(const Session& session, const Request& request, Findings& findings);
bool judge_write(const Session& session, const Request& request, Findings& findings);
bool judge_masked_write(const Session& session, const Request& request, Findings& findings);
bool judge_bit(const Session& session, const Request& request, Findings& findings);

}  // namespace plc_sim
