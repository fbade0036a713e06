// Controllers and plans: what programs call, on top of tags, plans and a driver of one's own.
#include <algorithm>
#include <optional>

#include "base/network_address.h"
#include "client/client_error.h"
#include "client/controller/input_value.h"
#include "client/controller/link.h"
#include "client/controller/mistake.h"
#include "client/controller/profiled_options.h"
#include "client/controller/tag_areas.h"
#include "client/controller/turn.h"
#include "client/controller/value_access.h"
#include "client/driver/failure.h"
#include "client/driver/private_driver.h"
#include "client/plan/read_plan.h"
#include "client/plan/tag_transfer.h"
#include "client/plc_client.h"
#include "client/tags/name_pattern.h"
#include "client/tags/same_file.h"
#include "client/values/value_type.h"
#include "profile/profile_use.h"

namespace plc_client {
namespace {

constexpr uint32_t kLongestDelayMs = 1000;    // the driver pauses no longer
constexpr uint32_t kLongestTimeoutS = 86400;  // a day; far below where a wait overflows

uint32_t resolve_address(const std::string& address) {
  if (address.empty()) throw Error("the controller's address is empty: give one like 192.168.0.10");
  const plc_base::NumberProblem wrong = plc_base::number_problem(address);
  if (!wrong.text.empty()) {
    refuse<Error>("the controller's address '" + address + "': " + wrong.text +
                  (wrong.has_remedy ? "" : "; give one like 192.168.0.10"));
  }
  const plc_base::FoundHost found = plc_base::find_host(address);
  if (found.problem.empty()) return found.address;
  refuse<Error>("'" + address + "' is not an address, and the system knows no host of that name: " + found.problem +
                "; give an IPv4 address or a name, without a port");
}

core::Target target_of(const Options& options) {
  if (options.port == 0) throw Error("port 0 is none: give one from 1 to 65535");
  if (options.reply_timeout_s == 0 || options.reply_timeout_s > kLongestTimeoutS) {
    throw Error("a reply time-out is from 1 to 86400 s");
  }
  if (options.delay_ms > kLongestDelayMs) throw Error("a delay is at most 1000 ms");
  return {resolve_address(options.address), options.port, options.area, options.reply_timeout_s, options.delay_ms, ""};
}

std::unique_ptr<core::PrivateDriver> load_driver(const std::string& choice) {
  try {
    return std::make_unique<core::PrivateDriver>(choice);
  } catch (const core::ClientError& error) {
    const bool is_path = choice.find('/') != std::string::npos || choice == "guarded" || choice == "contract";
    refuse<Error>(error.what() + std::string(is_path ? "" : "; a driver is guarded, contract, or a library's path"));
  }
}

std::string seconds_text(std::chrono::milliseconds time) {
  const auto tenths = (time.count() + 99) / 100;
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " s";
}

bool has_lost(const core::Failure& failure) {
  return failure.connection_lost || failure.quality == core::Quality::kNoConnection;
}

// A connection that ended is no reason to wait: the next use connects again, and waits when that fails.
bool has_not_connected(const core::Failure& failure) {
  return failure.connection_lost && failure.code == PLC_NO_CONNECT;
}

// Where the driver breaks its word, nothing that it has stored can be trusted.
template <typename Call>
auto with_public_errors(const Call& call) -> decltype(call()) {
  try {
    return call();
  } catch (const core::ClientError& error) {
    refuse<Error>(error.what());
  }
}

}  // namespace

struct Plan::Body {
  core::ReadPlan plan;
  std::vector<Reading> readings;
  const void* owner = nullptr;
};

Plan::Plan(std::unique_ptr<Body> body) : body_(std::move(body)) {}
Plan::Plan(Plan&&) noexcept = default;
Plan& Plan::operator=(Plan&&) noexcept = default;
Plan::~Plan() = default;
const std::vector<Reading>& Plan::readings() const { return body().readings; }
size_t Plan::exchanges() const { return core::exchange_count(body().plan); }

Plan::Body& Plan::body() const {
  if (!body_) throw Error("the plan was moved away: use the one that it was moved to");
  return *body_;
}

struct Controller::Body {
  explicit Body(const ProfiledOptions& given)
      : options(given.options),
        target(target_of(options)),
        driver(load_driver(options.driver)),
        tags(collecting(options), target.ip_address, *driver),
        link(options, target),
        build(driver->library().build),
        driver_remark(given.word),
        program_names(given.program_names) {
    const bool is_guarded = driver->library().is_guarded;
    target.most_names = plc_profile::names_at_a_time(given.profile, is_guarded);
    if (const std::string word = plc_profile::loaded_contract_word(given.profile); !is_guarded && !word.empty()) {
      driver_remark = options.profile + ": " + word;
    }
    const auto absent = plc_profile::absent_names(given.profile, is_guarded);
    for (const auto& area : tags.areas()) {
      core::leave_absent(area->list, absent);
      const std::vector<std::string> declared = core::program_names(area->list);
      program_names.declared.insert(program_names.declared.end(), declared.begin(), declared.end());
    }
    if (!driver_remark.empty()) log(driver_remark);
    pass_on_lines();
  }

  // The driver's lines go to the log from the first tag file on.
  const Options& collecting(const Options& from) const {
    driver->collect_lines();
    return from;
  }
  void pass_on_lines() {
    for (const std::string& line : driver->take_lines()) log(line);
  }
  void log(const std::string& line) const {
    if (options.log) options.log(line);
  }

  core::RequestRules rules() const { return {driver->library().is_guarded, target.most_names}; }
  core::DriverSession& open();
  void close();
  void leave();
  core::ReadPlan plan_for(const std::vector<FoundVariable>& variables) const;
  void fill_readings(const core::ReadPlan& plan, std::vector<Reading>& readings) const;
  void run(core::ReadPlan& plan);
  bool has_pause(core::Failure& failure) const;
  void make_write(const core::PreparedWrite& write, uint16_t area, Verify verify, WriteResult& result);
  void verify_write(const core::PreparedWrite& write, uint16_t area, WriteResult& result);
  std::vector<WriteResult> write_all(const std::vector<FoundVariable>& variables,
                                     const std::vector<core::PreparedWrite>& writes, Verify verify);

  Turns turns;
  Options options;
  core::Target target;
  std::unique_ptr<core::PrivateDriver> driver;
  TagAreas tags;
  Link link;
  std::string build;
  std::string driver_remark;
  core::ProgramNames program_names;
  std::unique_ptr<core::DriverSession> session;
  core::Failure last_failure;
};

core::DriverSession& Controller::Body::open() {
  if (session) return *session;
  driver->collect_lines();
  auto opened = std::make_unique<core::DriverSession>(
      driver->library(), [this] { return driver->take_lines(); }, target,
      [this](const std::string& line) { log(line); });
  opened->know_programs(program_names);
  for (const auto& area : tags.areas()) {
    const std::optional<uint32_t> code = core::load_same_file(
        area->path, area->bytes, [&] { return driver->load_tags(target.ip_address, area->area, area->path.c_str()); });
    std::string words;
    for (const std::string& line : driver->take_lines()) {
      log(line);
      words += "; the driver says: " + line;
    }
    if (code == PLC_OK) continue;
    driver->release(&opened->connection());
    if (code) refuse<Error>("the driver can no longer load the tag file " + area->path + words);
    refuse<Error>(
        "the tag file " + area->path +
        " has changed since it was loaded: make a new Controller, or restart the program, which loads it again");
  }
  opened->add_observer([this](const core::CallResult& call) {
    link.note(call);
    link.note_connected(session && session->is_connected());
  });
  session = std::move(opened);
  return *session;
}

void Controller::Body::close() {
  if (!session) return;
  driver->release(&session->connection());
  session.reset();
  link.note_connected(false);
}

// The connection is the other process's: only the descriptor is closed. Another thread may have had its turn when the
// process was forked, and has left the driver half-way.
void Controller::Body::leave() {
  if (!turns.in_use.try_lock()) return;
  if (session) driver->release(&session->connection());
  session.reset();
  turns.in_use.unlock();
}

bool Controller::Body::has_pause(core::Failure& failure) const {
  const std::chrono::milliseconds left = link.pause_left();
  if (left.count() == 0) return false;
  failure.reason = last_failure.reason + "; the next attempt is in " + seconds_text(left);
  failure.advice = last_failure.advice;
  return true;
}

void Controller::Body::run(core::ReadPlan& plan) {
  core::Failure pause;
  if (has_pause(pause)) {
    pause.reason = core::not_read(pause.reason).reason;
    return core::leave_unread(plan, pause);
  }
  core::DriverSession& opened = open();
  link.note_exchanges(core::run_plan(opened, plan));
  bool is_unreachable = false;
  for (const core::PlannedVariable& variable : plan.variables) {
    if (!variable.has_failed || !has_not_connected(variable.failure)) continue;
    last_failure = variable.failure;
    is_unreachable = true;
  }
  link.end_use(opened.is_connected(), is_unreachable);
}

core::ReadPlan Controller::Body::plan_for(const std::vector<FoundVariable>& variables) const {
  core::ReadPlan plan;
  plan.rules = rules();
  plan.variables.reserve(variables.size());
  for (const FoundVariable& found : variables) {
    core::PlannedVariable variable;
    variable.reference = found.reference;
    variable.area = found.area;
    const std::string limit = core::known_limit(found.reference.tag->entry);
    variable.impossible = !limit.empty() ? "the driver transfers no 8-bit values" : found.impossible;
    plan.variables.push_back(std::move(variable));
  }
  core::plan_steps(plan);
  return plan;
}

void Controller::Body::fill_readings(const core::ReadPlan& plan, std::vector<Reading>& readings) const {
  for (size_t i = 0; i < plan.variables.size(); ++i) {
    const core::PlannedVariable& variable = plan.variables[i];
    Reading& reading = readings[i];
    reading.time = variable.time;
    if (variable.has_failed) {
      reading.quality = Quality::kBad;
      reading.error = problem_of(variable.failure);
      ValueAccess::clear(reading.value);
      continue;
    }
    reading.quality = plan.rules.is_guarded ? Quality::kGood : Quality::kUnguarded;
    reading.error.reason = Reason::kNone;
    reading.error.text.clear();
    reading.error.advice.clear();
    ValueAccess::set(reading.value, kind_of(variable.reference.tag->entry), variable.value);
  }
}

namespace {

std::vector<Reading> unread_list(const core::ReadPlan& plan) {
  std::vector<Reading> readings;
  readings.reserve(plan.variables.size());
  for (const core::PlannedVariable& variable : plan.variables) {
    Reading reading;
    reading.name = variable.reference.text;
    reading.type = core::declared_type(variable.reference.tag->entry);
    reading.error = {Reason::kNotTried, "not read yet", ""};
    ValueAccess::declare(reading.value, variable.reference.tag->entry, variable.reference.extents);
    readings.push_back(std::move(reading));
  }
  return readings;
}

std::vector<FoundVariable> find_all(const TagAreas& tags, const std::vector<std::string>& names) {
  std::vector<FoundVariable> found;
  found.reserve(names.size());
  for (const std::string& name : names) found.push_back(tags.find(name));
  return found;
}

core::PreparedWrite prepare(const FoundVariable& variable, const Input& value, const core::RequestRules& rules) {
  if (!variable.impossible.empty()) refuse<Error>(variable.reference.text + ": " + variable.impossible);
  core::TagValue bits = value_of(variable.reference, value);
  try {
    return core::prepare_write(variable.reference, std::move(bits), rules);
  } catch (const core::PlanError& error) {
    refuse<Error>(variable.reference.text + ": " + error.what());
  }
}

WriteResult untried(const FoundVariable& variable) {
  WriteResult result;
  result.name = variable.reference.text;
  result.type = core::declared_type(variable.reference.tag->entry);
  return result;
}

// Of a write that is read back.
struct VerifyWords {
  const char* done;
  const char* question;  // when another value came back
};

constexpr VerifyWords kGuardedWords = {"written", "Does a program in the controller write the variable too?"};
// The contract build returns 0 for a refusal too.
constexpr VerifyWords kContractWords = {
    "sent", "Was the write refused? The contract build does not tell: try the guarded build."};

}  // namespace

// A write that was cut short may have left a part: what came before it was acknowledged.
void Controller::Body::make_write(const core::PreparedWrite& write, uint16_t area, Verify verify, WriteResult& result) {
  session->set_area(area);
  const auto answered = [this] { return session->figures().calls - session->figures().failures; };
  const uint64_t before = answered();
  const core::TagResult written = core::write_tag(*session, write);
  link.note_exchanges(core::write_exchanges(write, static_cast<size_t>(answered() - before)));
  result.time = written.reading.time();
  // A write that was not sent may have connected.
  link.note_connected(session->is_connected());
  if (!written.ok()) {
    const core::Failure& failure = written.reading.failure();
    result.error = problem_of(failure);
    const bool is_open = core::leaves_write_open(failure) || failure.has_begun;
    result.outcome = is_open ? Outcome::kUnknown : Outcome::kNotDone;
    if (has_lost(failure)) last_failure = failure;
    // What came after it is told of other variables, too.
    if (has_lost(failure) && !failure.cause.empty()) last_failure.reason = failure.cause;
    return;
  }
  result.outcome = Outcome::kDone;
  if (verify == Verify::kReadBack) verify_write(write, area, result);
}

void Controller::Body::verify_write(const core::PreparedWrite& write, uint16_t area, WriteResult& result) {
  const VerifyWords& words = session->is_guarded() ? kGuardedWords : kContractWords;
  core::ReadPlan plan = plan_for({{write.reference, area, {}}});
  link.note_exchanges(core::run_plan(*session, plan));
  const core::PlannedVariable& back = plan.variables.front();
  result.time = back.time;
  if (back.has_failed) {
    result.outcome = Outcome::kUnknown;
    result.error = problem_of(back.failure);
    result.error.text = words.done + (", but not read back: " + result.error.text);
    if (has_lost(back.failure)) last_failure = back.failure;
    return;
  }
  const TagEntry& entry = write.reference.tag->entry;
  result.verified = core::same_value(entry, write.value, back.value);
  if (result.verified) return;
  result.outcome = Outcome::kUnknown;
  result.error = {Reason::kDifferent,
                  std::string(words.done) + " " + core::format_value(entry, write.value, write.reference.extents) +
                      ", but read back " + core::format_value(entry, back.value, write.reference.extents),
                  words.question};
}

std::vector<WriteResult> Controller::Body::write_all(const std::vector<FoundVariable>& variables,
                                                     const std::vector<core::PreparedWrite>& writes, Verify verify) {
  std::vector<WriteResult> results;
  core::Failure left_out;
  bool is_over = has_pause(left_out);
  if (!is_over) open();
  bool is_unreachable = false;
  for (size_t i = 0; i < writes.size(); ++i) {
    WriteResult result = untried(variables[i]);
    if (is_over) {
      result.error = {Reason::kNotTried, core::not_written(left_out.reason).reason, left_out.advice};
      result.time = std::chrono::system_clock::now();
    } else {
      make_write(writes[i], variables[i].area, verify, result);
      is_over = !session->is_connected() && !result.ok();
      left_out = last_failure;
      is_unreachable = is_over && has_not_connected(last_failure);
    }
    results.push_back(std::move(result));
  }
  if (session) link.end_use(session->is_connected(), is_unreachable);
  return results;
}

Controller::Controller(const Options& options) : body_(std::make_unique<Body>(with_profile(options))) {}

Controller::~Controller() { body_->turns.is_copy() ? body_->leave() : body_->close(); }

void Controller::connect() {
  const Turn turn(body_->turns);
  core::DriverSession& session = with_public_errors([&]() -> core::DriverSession& { return body_->open(); });
  body_->link.end_pause();
  const core::CallResult call = session.connect(body_->driver->connect);
  if (call.ok()) {
    body_->link.end_use(true, false);
    return;
  }
  body_->last_failure = core::explain_failure(call, body_->target);
  body_->link.end_use(false, true);
  const core::Failure& failure = body_->last_failure;
  refuse<ConnectionFailed>(failure.reason + (failure.advice.empty() ? "" : ". " + failure.advice));
}

void Controller::close() {
  if (body_->turns.is_copy()) return body_->leave();
  const Turn turn(body_->turns);
  body_->close();
}

State Controller::state() const {
  const Turn turn(body_->turns);
  return body_->link.state();
}

Plan Controller::plan(const std::vector<std::string>& names) const {
  const Turn turn(body_->turns);
  auto made = std::make_unique<Plan::Body>();
  made->plan = body_->plan_for(find_all(body_->tags, names));
  made->readings = unread_list(made->plan);
  made->owner = body_.get();
  return Plan(std::move(made));
}

const std::vector<Reading>& Controller::read(Plan& plan) {
  const Turn turn(body_->turns);
  Plan::Body& planned = plan.body();
  if (planned.owner != body_.get()) throw Error("the plan belongs to another controller");
  with_public_errors([&] { body_->run(planned.plan); });
  body_->fill_readings(planned.plan, planned.readings);
  return planned.readings;
}

std::vector<Reading> Controller::read(const std::vector<std::string>& names) {
  Plan made = plan(names);
  read(made);
  return std::move(made.body_->readings);
}

std::vector<Reading> Controller::read(std::initializer_list<std::string_view> names) {
  return read(std::vector<std::string>(names.begin(), names.end()));
}

Reading Controller::read(std::string_view name) {
  std::vector<Reading> readings = read(std::vector<std::string>{std::string(name)});
  return std::move(readings.front());
}

WriteResult Controller::write(std::string_view name, const Input& value, Verify verify) {
  std::vector<WriteResult> results = write({{std::string(name), value}}, verify);
  return std::move(results.front());
}

std::vector<WriteResult> Controller::write(const std::vector<std::pair<std::string, Input>>& values, Verify verify) {
  const Turn turn(body_->turns);
  std::vector<FoundVariable> variables;
  std::vector<core::PreparedWrite> writes;
  for (const auto& [name, value] : values) {
    variables.push_back(body_->tags.find(name));
    writes.push_back(prepare(variables.back(), value, body_->rules()));
  }
  return with_public_errors([&] { return body_->write_all(variables, writes, verify); });
}

const std::vector<Declaration>& Controller::tags() const {
  const Turn turn(body_->turns);
  return body_->tags.declarations();
}

const Declaration& Controller::tag(std::string_view name) const {
  const Turn turn(body_->turns);
  return body_->tags.declaration(name);
}

std::vector<std::string> Controller::match(const std::string& pattern) const {
  std::vector<std::string> names;
  for (const Declaration& declaration : tags()) {
    if (core::fits_pattern(pattern, declaration.name)) names.push_back(declaration.name);
  }
  return names;
}

const std::string& Controller::driver_build() const { return body_->build; }
const std::string& Controller::driver_remark() const { return body_->driver_remark; }

}  // namespace plc_client
