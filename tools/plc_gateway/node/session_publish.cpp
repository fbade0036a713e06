// What is published: births, live changes, history, and the fences behind them.
#include <algorithm>
#include <utility>

#include "base/text.h"
#include "tools/plc_gateway/node/birth_bytes.h"
#include "tools/plc_gateway/node/session.h"

namespace plc_gateway {
namespace {

// What may be on its way without an acknowledged fence behind it: a broker that stands still costs no more memory.
constexpr size_t kMostUnfencedBytes = 512 * 1024;
constexpr size_t kMostUnfencedMessages = 1000;
constexpr size_t kMostMessageBytes = 48 * 1024;
constexpr size_t kValuesAtOnce = 200;  // of the journal, in memory: texts among them are long
constexpr double kHistoryPerMs = 20;   // values: 20,000 a second
constexpr double kHistoryBurst = 2000;
constexpr size_t kMostResults = 1000;  // of commands, that wait

// Of the node's own metrics, above those of all variables: the journal counts from 1.
constexpr uint64_t kNodeAliases = 1ULL << 32;
constexpr uint64_t kCommandNameAlias = kNodeAliases;
constexpr uint64_t kCommandResultAlias = kNodeAliases + 1;
constexpr uint64_t kCommandReasonAlias = kNodeAliases + 2;
constexpr uint64_t kCommandTimeAlias = kNodeAliases + 3;
constexpr uint64_t kBdSeqAlias = kNodeAliases + 4;
constexpr uint64_t kVersionAlias = kNodeAliases + 5;
constexpr uint64_t kDroppedAlias = kNodeAliases + 6;
constexpr uint64_t kCommandValueAlias = kNodeAliases + 7;
constexpr uint64_t kCommandSentAlias = kNodeAliases + 8;
constexpr uint64_t kNoAlias = 0;

}  // namespace

const Variable& Session::variable(uint32_t index) const {
  return index < variables_.size() ? variables_[index] : journal_.retired()[index - variables_.size()];
}

// Half of it is for history, which never stands in the way of what is live.
bool Session::window_open(bool historical) const {
  const size_t share = historical ? 2 : 1;
  return unfenced_bytes_ + sent_bytes_ + writer_.bytes() < kMostUnfencedBytes / share &&
         unfenced_messages_ + sent_messages_ < kMostUnfencedMessages / share;
}

// No data of the node between its birth and that of a device that is there: not before it was looked for.
bool Session::node_data_allowed() const { return device_born_ || device_.away(); }

bool Session::send(const std::string& topic, std::string payload, int qos) {
  const size_t bytes = topic.size() + payload.size();
  const size_t whole = message_bytes(topic, payload.size(), qos);
  const std::optional<size_t> most = broker_.most_message_bytes();
  if (most && whole > *most) {
    leave("the broker takes messages of at most " + plc_base::plural(*most, "byte") + ", " + message_name(topic) +
              " has " + std::to_string(whole) + ": raise its max_packet_size",
          true);
    return false;
  }
  if (!broker_.publish({topic, std::move(payload), qos, false})) {
    leave("the broker's connection takes no message", true);
    return false;
  }
  last_message_bytes_ = whole;
  ++counters_.messages;
  sent_bytes_ += bytes;
  ++sent_messages_;
  return true;
}

// The number is given here and nowhere else: it counts what went out.
bool Session::send_metrics(const std::string& topic) {
  if (!send(topic, writer_.finish(clock_.wall_ms(), seq_), 0)) return false;
  seq_ = (seq_ + 1) % 256;
  return true;
}

// Rows that were published, with all messages since the last call.
void Session::account(Range rows, size_t values) {
  unfenced_.push_back({rows, values, sent_bytes_, sent_messages_});
  unfenced_bytes_ += sent_bytes_;
  unfenced_messages_ += sent_messages_;
  sent_bytes_ = sent_messages_ = 0;
  counters_.unfenced_values += values;
}

// ---------------------------------------------------------------------------------------------------- births

bool Session::births() {
  rebirth_wanted_ = false;
  device_born_ = false;
  birth_ms_ = clock_.steady_ms();
  if (!node_birth()) return false;
  account();
  counters_.node_birth_bytes = last_message_bytes_;
  ++counters_.births;
  counters_.births_out = true;
  return !device_.alive() || device_birth();
}

void Session::write_node_metrics(bool birth, bool command, bool dropped) {
  const Ms now = clock_.wall_ms();
  const auto write = [&](const char* name, uint64_t alias, DataType type, bool has_value, uint64_t number,
                         const std::string& text, Ms time) {
    NodeMetric metric;
    metric.name = name;
    metric.alias = alias;
    metric.type = type;
    metric.has_value = has_value;
    metric.number = number;
    metric.text = text;
    metric.time = time;
    birth ? writer_.birth(metric) : writer_.data(metric);
  };
  if (command) {
    const bool known = last_command_.has_value();
    const CommandResult last = known ? *last_command_ : CommandResult{{}, {}, {}, now};
    const auto sent = static_cast<uint64_t>(last.sent.value_or(0));
    write("Last Command/Name", kCommandNameAlias, DataType::kString, known, 0, last.name, last.time);
    write("Last Command/Value", kCommandValueAlias, DataType::kString, last.value.has_value(), 0,
          last.value.value_or(std::string()), last.time);
    write("Last Command/Command Time", kCommandSentAlias, DataType::kDateTime, last.sent.has_value(), sent, {},
          last.time);
    write("Last Command/Result", kCommandResultAlias, DataType::kString, known, 0, last.result, last.time);
    write("Last Command/Reason", kCommandReasonAlias, DataType::kString, known, 0, last.reason, last.time);
    write("Last Command/Time", kCommandTimeAlias, DataType::kDateTime, known, static_cast<uint64_t>(last.time), {},
          last.time);
  }
  if (birth) {
    write("bdSeq", kBdSeqAlias, DataType::kInt64, true, bd_seq_, {}, now);
    write("Node Control/Rebirth", kNoAlias, DataType::kBoolean, true, 0, {}, now);
    write("Gateway/Version", kVersionAlias, DataType::kString, true, 0, options_.version, now);
  }
  if (dropped) {
    told_dropped_ = journal_.counters().dropped;
    write("Journal/Dropped Values", kDroppedAlias, DataType::kUInt64, true, told_dropped_, {}, now);
  }
}

bool Session::node_birth() {
  seq_ = 0;
  write_node_metrics(true, true, true);
  return send_metrics(options_.topics.node_birth);
}

// Holds every variable, in the order of the times of their values, and those of which only history is left.
bool Session::device_birth() {
  const Ms now = clock_.wall_ms();
  std::vector<const Sample*> samples;
  samples.reserve(variables_.size());
  for (uint32_t i = 0; i < variables_.size(); ++i) samples.push_back(device_.current(i));
  std::stable_sort(samples.begin(), samples.end(), [](const Sample* a, const Sample* b) { return a->time < b->time; });
  names_.clear();
  for (const Sample* sample : samples) {
    const uint32_t index = sample->variable;
    const uint64_t alias = journal_.alias(index);
    writer_.birth(variables_[index], alias, sample, now);
    names_[alias] = variables_[index].name;
    birth_rows_[index] = device_.current_row(index);
    told_bad_[index] = sample->good ? 0 : 1;
  }
  for (size_t i = 0; i < journal_.retired().size(); ++i) {
    const uint64_t alias = journal_.alias(static_cast<uint32_t>(variables_.size() + i));
    writer_.birth(journal_.retired()[i], alias, nullptr, now);
  }
  const uint64_t carried = row_of_birth();
  leave_to_history(carried);
  if (!send_metrics(options_.topics.device_birth)) return false;
  device_.born();
  device_born_ = true;
  counters_.device_birth_bytes = last_message_bytes_;
  ++counters_.device_births;
  account({carried, carried}, 0);
  if (options_.json_topic.empty()) return true;
  std::vector<Sample> copies;
  copies.reserve(samples.size());
  for (const Sample* sample : samples) copies.push_back(*sample);
  if (!publish_json(copies, false)) return false;
  account();
  return true;
}

// The last row, when the birth says all that stands in it: nothing of it is left for history, however soon the end
// comes.
uint64_t Session::row_of_birth() const {
  const uint64_t last = journal_.last_id();
  const bool is_all = std::all_of(birth_rows_.begin(), birth_rows_.end(), [last](uint64_t row) { return row == last; });
  return is_all && live_next_ <= last ? last : 0;
}

// Rows that were not published live before a birth are older than it; `carried`, the last one, needs no more.
void Session::leave_to_history(uint64_t carried) {
  const uint64_t last = journal_.last_id();
  const uint64_t older = carried == 0 ? last : carried - 1;
  if (live_next_ <= older) history_.push_back({live_next_, older});
  live_next_ = std::max(live_next_, last + 1);
}

bool Session::tell_node(bool command, bool dropped) {
  write_node_metrics(false, command, dropped);
  if (!send_metrics(options_.topics.node_data)) return false;
  account();
  return true;
}

// Where too many wait, one more stands for all the others.
void Session::tell(const CommandResult& result) {
  if (results_.size() < kMostResults) {
    unpublished_ = 0;
    results_.push_back(result);
    return;
  }
  if (unpublished_++ == 0) results_.emplace_back();
  results_.back() = {{},
                     "unpublished",
                     "the results of " + plc_base::plural(unpublished_, "more command") + " are not published: " +
                         std::to_string(kMostResults) + " were waiting; the log has them, and the metrics count them",
                     result.time};
}

// Half of the window is for live values, as it is beside history.
void Session::publish_results() {
  while (link_ == Link::kOnline && !results_.empty() && window_open(true) && node_data_allowed()) {
    last_command_ = std::move(results_.front());
    results_.pop_front();
    if (results_.empty()) unpublished_ = 0;
    if (!tell_node(true, false)) return;
  }
}

// ---------------------------------------------------------------------------------------------------- data

void Session::publish_live() {
  while (link_ == Link::kOnline && window_open()) {
    if (!device_born_ && (!device_.alive() || !device_birth())) return;
    if (live_next_ > journal_.last_id()) return;
    const std::vector<JournalRow> rows = journal_.read(live_next_, kValuesAtOnce);
    if (rows.empty()) {
      if (!journal_.read_failed()) live_next_ = journal_.last_id() + 1;
      return;
    }
    if (!publish_live_rows(rows)) return;
  }
}

// Up to a death of the device, or as far as the window is open.
bool Session::publish_live_rows(const std::vector<JournalRow>& rows) {
  for (const JournalRow& row : rows) {
    if (!publish_row(row)) return false;
    live_next_ = row.id + 1;
    if (!device_born_ || !window_open()) break;
  }
  return true;
}

bool Session::publish_row(const JournalRow& row) {
  if (row.kind == JournalRow::Kind::kLost) {
    device_born_ = false;
    if (!send_metrics(options_.topics.device_death)) return false;
  }
  const std::optional<size_t> values = write_row(row, false);
  if (!values || (writer_.metrics() > 0 && !send_metrics(options_.topics.device_data))) return false;
  counters_.values_live += *values;
  account({row.id, row.id}, *values);
  return true;
}

// What the row says of each variable, in the order of the times.
std::vector<Sample> Session::samples_of(const JournalRow& row, bool historical) const {
  std::vector<Sample> samples;
  if (row.kind == JournalRow::Kind::kLost) {
    // Of variables that are polled no more too: a host of history must not take their last values for lasting ones.
    samples.resize(variables_.size() + (historical ? journal_.retired().size() : 0));
    for (uint32_t i = 0; i < samples.size(); ++i) {
      samples[i].variable = i;
      samples[i].time = row.time;
      samples[i].reason = device_.loss_of(row.id);
    }
    return samples;
  }
  samples.reserve(row.changes.size());
  for (const Sample& sample : row.changes) {
    const bool carried = sample.variable < variables_.size() && birth_rows_[sample.variable] == row.id;
    if (!carried) samples.push_back(sample);
  }
  std::stable_sort(samples.begin(), samples.end(), [](const Sample& a, const Sample& b) { return a.time < b.time; });
  return samples;
}

// How many values of the row were written or published; nothing when the connection took no more.
std::optional<size_t> Session::write_row(const JournalRow& row, bool historical) {
  // Live the death of the device says it; history, and the form without births, say it of each variable.
  const bool is_death = row.kind == JournalRow::Kind::kLost && !historical;
  if (is_death && options_.json_topic.empty()) return 0;
  const std::vector<Sample> samples = samples_of(row, historical);
  if (!is_death && !write_samples(samples, historical)) return std::nullopt;
  if (!options_.json_topic.empty() && !publish_json(samples, historical)) return std::nullopt;
  return is_death ? 0 : samples.size();
}

bool Session::write_samples(const std::vector<Sample>& samples, bool historical) {
  for (const Sample& sample : samples) {
    bool tell_quality = false;
    if (!historical) {
      tell_quality = sample.good && told_bad_[sample.variable] != 0;
      told_bad_[sample.variable] = sample.good ? 0 : 1;
    }
    writer_.data(variable(sample.variable), journal_.alias(sample.variable), sample, historical, tell_quality);
    if (writer_.bytes() >= kMostMessageBytes && !send_metrics(options_.topics.device_data)) return false;
  }
  return true;
}

bool Session::publish_json(const std::vector<Sample>& samples, bool historical) {
  constexpr std::string_view kPlace = "{name}";
  for (const Sample& sample : samples) {
    const Variable& named = variable(sample.variable);
    // Names of today were looked at with the configuration. A former one may be of a time without this form.
    if (sample.variable >= variables_.size() && !name_in_topic_problem(named.name).empty()) continue;
    std::string topic = options_.json_topic;
    topic.replace(topic.find(kPlace), kPlace.size(), named.name);
    if (!send(topic, json_of(named, sample, historical), 1)) return false;
  }
  return true;
}

void Session::publish_history(Ms now) {
  history_budget_ = std::min(kHistoryBurst, history_budget_ + kHistoryPerMs * static_cast<double>(now - budget_ms_));
  budget_ms_ = now;
  while (link_ == Link::kOnline && device_born_ && !history_.empty() && window_open(true) && history_budget_ >= 1) {
    Range& range = history_.front();
    const std::vector<JournalRow> rows =
        journal_.read(range.first, std::min(kValuesAtOnce, static_cast<size_t>(history_budget_)));
    if (rows.empty() && journal_.read_failed()) return;
    // Its rows are published, or went for want of room.
    if (rows.empty() || rows.front().id > range.last) {
      history_.pop_front();
      continue;
    }
    if (!publish_old_rows(rows, range)) return;
    if (range.first > range.last) history_.pop_front();
  }
}

// The rows of the range, many in a message; the range is left without them.
bool Session::publish_old_rows(const std::vector<JournalRow>& rows, Range& range) {
  const uint64_t first = rows.front().id;
  size_t values = 0;
  for (const JournalRow& row : rows) {
    if (row.id > range.last || !window_open(true)) break;
    const std::optional<size_t> written = write_row(row, true);
    if (!written) return false;
    values += *written;
    range.first = row.id + 1;
  }
  if (writer_.metrics() > 0 && !send_metrics(options_.topics.device_data)) return false;
  history_budget_ -= static_cast<double>(values);
  counters_.values_historical += values;
  account({first, range.first - 1}, values);
  return true;
}

// ---------------------------------------------------------------------------------------------------- fences

void Session::fence(Ms now) {
  if (fence_ || unfenced_.empty()) return;
  if (now - fence_ms_ < kFenceMs && window_open() && !stopping_) return;
  const std::optional<int> id =
      broker_.publish({options_.topics.fence, "{\"fence\":" + std::to_string(++fence_number_) + "}", 1, false});
  if (!id) {
    leave("the broker's connection takes no message", true);
    return;
  }
  ++counters_.messages;
  ++counters_.fences_sent;
  fence_ = id;
  fenced_ = unfenced_.size();
  fence_ms_ = now;
}

// Everything before the fence is at the broker.
void Session::on_acknowledged(int id) {
  if (!fence_ || *fence_ != id) return;
  fence_.reset();
  was_acknowledged_ = true;
  ++counters_.fences_acknowledged;
  std::vector<Range> ranges;
  for (; fenced_ > 0; --fenced_) {
    const Published first = unfenced_.front();
    unfenced_.pop_front();
    unfenced_bytes_ -= first.bytes;
    unfenced_messages_ -= first.messages;
    counters_.unfenced_values -= first.values;
    if (first.rows.first == 0) continue;
    if (!ranges.empty() && ranges.back().last + 1 == first.rows.first) {
      ranges.back().last = first.rows.last;
    } else {
      ranges.push_back(first.rows);
    }
  }
  for (const Range& range : ranges) journal_.remove(range.first, range.last);
}

}  // namespace plc_gateway
