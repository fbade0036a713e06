// The controller without its network: takes a request frame, gives the reply, and keeps the values.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "tools/plc_sim/controller/manner.h"
#include "tools/plc_sim/controller/session.h"
#include "tools/plc_sim/variables/variables.h"
#include "wire/findings.h"
#include "wire/request.h"

namespace plc_sim {

struct Answer {
  RequestKind kind = RequestKind::kUnknown;
  Bytes reply;
  Findings findings;
  Manner manner;
};

// What a host asked for: told to whoever keeps the record.
struct Asked {
  enum class What { kResolved, kRefused, kRead, kWritten } what;
  std::string name;        // as it travels, behind its program
  const Element* element;  // null when refused
};

class Controller {
 public:
  explicit Controller(VariableStore& store) : store_(store) {}

  void set_observer(std::function<void(const Asked&)> observer) { observer_ = std::move(observer); }

  // These variables are there and refused.
  void withhold(std::function<bool(const Variable&)> is_withheld) { is_withheld_ = std::move(is_withheld); }

  // The names of these are known, and a request for one of their values is refused.
  void withhold_values(std::function<bool(const Variable&)> is_withheld) {
    is_value_withheld_ = std::move(is_withheld);
  }

  Answer handle(Session& session, const Bytes& frame);

 private:
  Bytes serve_resolve(Session& session, const Request& request, const Bytes& frame, Findings& findings);
  Bytes serve_read(Session& session, const Request& request, const Bytes& frame, Findings& findings);
  uint16_t serve_write(Session& session, const Request& request, Findings& findings);
  uint16_t serve_masked_write(Session& session, const Request& request, Findings& findings);
  uint16_t serve_bit(Session& session, const Request& request, Findings& findings);

  static void refuse(Session& session, const Request& request);
  ResolvedName resolve_name(const NameBlock& block, const std::u16string& units, Findings& findings);
  void append_value(Bytes& body, const Element& element, uint8_t size) const;
  void write_text(const Element& element, const Bytes& values);
  void write_run(const Session& session, const Bytes& values);
  void refuse_values(const Session& session, const Request& request, Findings& findings) const;
  void tell(Asked::What what, const ResolvedName& name);

  VariableStore& store_;
  std::function<void(const Asked&)> observer_;
  std::function<bool(const Variable&)> is_withheld_;
  std::function<bool(const Variable&)> is_value_withheld_;
};

}  // namespace plc_sim
