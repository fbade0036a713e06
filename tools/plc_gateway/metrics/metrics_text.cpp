// Counters as families of metrics; how they are written is the work of prometheus-cpp.
#include "tools/plc_gateway/metrics/metrics_text.h"

#include <prometheus/text_serializer.h>

#include <utility>

namespace plc_gateway {
namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

using Labels = std::vector<ClientMetric::Label>;

double seconds(Ms time) { return static_cast<double>(time) / 1000; }

class Families {
 public:
  void counter(const std::string& name, const std::string& help, uint64_t value) {
    begin("plc_gateway_" + name + "_total", help, MetricType::Counter);
    add({}, static_cast<double>(value));
  }
  void gauge(const std::string& name, const std::string& help, double value) {
    begin("plc_gateway_" + name, help, MetricType::Gauge);
    add({}, value);
  }
  // One that has a value for each of several labels: add() follows.
  void begin_counters(const std::string& name, const std::string& help) {
    begin("plc_gateway_" + name + "_total", help, MetricType::Counter);
  }
  void begin_gauges(const std::string& name, const std::string& help) {
    begin("plc_gateway_" + name, help, MetricType::Gauge);
  }
  void add(Labels labels, double value) {
    ClientMetric metric;
    metric.label = std::move(labels);
    (families_.back().type == MetricType::Counter ? metric.counter.value : metric.gauge.value) = value;
    families_.back().metric.push_back(std::move(metric));
  }
  std::string text() const { return prometheus::TextSerializer().Serialize(families_); }

 private:
  void begin(const std::string& name, const std::string& help, MetricType type) {
    families_.push_back({name, help, type, {}});
  }

  std::vector<MetricFamily> families_;
};

void add_program(Families& out, const MetricsView& view) {
  out.begin_gauges("info", "Always 1; what the gateway is in its labels.");
  out.add({{"version", view.version}, {"group", view.group}, {"edge_node", view.edge_node}, {"device", view.device}},
          1);
  out.gauge("start_time_seconds", "When the gateway started, since 1970.", seconds(view.started));
  out.gauge("variables", "Variables that are polled.", static_cast<double>(view.variables));
  out.counter("reloads", "Times that the configuration was read again and taken.", view.reloads);
  out.counter("reloads_refused", "Times that it was read again and had mistakes.", view.reloads_refused);
}

void add_controller(Families& out, const Counters& counters) {
  out.gauge("controller_up", "1 while the controller answers.", counters.controller_alive ? 1 : 0);
  out.counter("controller_losses", "Times that the controller stopped answering.", counters.controller_losses);
  out.counter("reads", "Calls of the driver that read.", counters.reads);
  out.counter("values_read", "Values that were read.", counters.values_read);
  out.counter("values_bad", "Variables without a value when they were read.", counters.values_bad);
  out.begin_counters("read_failures", "Variables without a value and lost controllers, by the reason.");
  for (size_t i = 1; i < plc_client::kReasons; ++i) {
    const char* word = plc_client::reason_word(static_cast<plc_client::Reason>(i));
    out.add({{"reason", word}}, static_cast<double>(counters.failures[i]));
  }
}

Labels group_labels(const MetricsView& view, size_t group) {
  const Ms period = group < view.periods.size() ? view.periods[group] : 0;
  return {{"poll", std::to_string(group)}, {"every_ms", std::to_string(period)}};
}

void add_polls(Families& out, const MetricsView& view) {
  const std::vector<GroupCounters>& groups = view.counters->groups;
  const auto each = [&](const auto& value) {
    for (size_t i = 0; i < groups.size(); ++i) out.add(group_labels(view, i), value(groups[i]));
  };
  out.begin_counters("polls", "Polls that were done, by their group.");
  each([](const GroupCounters& group) { return static_cast<double>(group.polls); });
  out.begin_counters("polls_skipped", "Polls whose turn came while the last one was not done.");
  each([](const GroupCounters& group) { return static_cast<double>(group.skipped); });
  out.begin_counters("polls_failed", "Polls during which the controller was lost.");
  each([](const GroupCounters& group) { return static_cast<double>(group.failed); });
  out.begin_gauges("poll_seconds", "How long the last poll took.");
  each([](const GroupCounters& group) { return seconds(group.last_ms); });
  out.begin_gauges("poll_longest_seconds", "How long the longest poll took.");
  each([](const GroupCounters& group) { return seconds(group.longest_ms); });
}

void add_broker(Families& out, const MetricsView& view) {
  const Counters& counters = *view.counters;
  out.gauge("broker_up", "1 while the broker is connected.", counters.broker_connected ? 1 : 0);
  out.gauge("births_out", "1 while values may be published.", counters.births_out ? 1 : 0);
  out.counter("broker_connects", "Connections that came about.", counters.broker_connects);
  out.counter("broker_losses", "Connections that were lost.", counters.broker_losses);
  out.counter("broker_refused", "Connections that failed to come about.", counters.broker_refused);
  out.gauge("bd_seq", "The number of the last connection, 0 to 255.", static_cast<double>(counters.last_bd_seq));
  out.counter("messages", "Messages that were published.", counters.messages);
  out.counter("births", "Births of the node.", counters.births);
  out.counter("rebirths", "Those of them that a host asked for.", counters.rebirths);
  out.begin_counters("values_published", "Values that were published, as they came or as history.");
  out.add({{"kind", "live"}}, static_cast<double>(counters.values_live));
  out.add({{"kind", "historical"}}, static_cast<double>(counters.values_historical));
  out.gauge("values_unconfirmed", "Values that were published and are not known to be at the broker.",
            static_cast<double>(counters.unfenced_values));
  out.counter("fences_sent", "Fences behind published values.", counters.fences_sent);
  out.counter("fences_acknowledged", "Fences that the broker acknowledged.", counters.fences_acknowledged);
  out.counter("fences_overdue", "Connections that were given up because none was acknowledged in time.",
              counters.fences_overdue);
  out.counter("messages_too_long", "Messages from the broker that were dropped for their length.",
              view.messages_too_long);
  out.begin_counters("commands", "Commands by what became of them; the words of refusals say why.");
  for (const auto& [result, count] : counters.commands) out.add({{"result", result}}, static_cast<double>(count));
}

void add_journal(Families& out, const MetricsView& view) {
  const JournalCounters& journal = view.journal;
  out.gauge("journal_rows", "Polls with changes that are not known to be at the broker.",
            static_cast<double>(journal.rows));
  out.gauge("journal_values", "Values in them.", static_cast<double>(journal.values));
  out.gauge("journal_bytes", "Bytes of the journal on the disk.", static_cast<double>(journal.bytes));
  out.gauge("journal_oldest_age_seconds", "Age of the oldest of them; 0 when there is none.",
            journal.oldest == 0 ? 0 : seconds(view.now - journal.oldest));
  out.counter("journal_dropped_values", "Values that went unpublished for want of room, in the journal's whole life.",
              journal.dropped);
  out.gauge("journal_rows_in_memory", "Those that the disk refused, and that an end of the gateway would lose.",
            static_cast<double>(journal.in_memory));
  out.counter("journal_failures", "Times that the disk refused.", journal.failures);
  out.gauge("journal_damaged", "1 when the journal was found damaged and a new one begun.",
            static_cast<double>(journal.lost_damage));
  out.gauge("journal_unreadable_changes", "Changes behind a damaged one in the journal's log, at the start.",
            static_cast<double>(journal.unreadable_changes));
  out.gauge("journal_removed", "1 while the journal's files are not in their folder, for somebody removed them.",
            static_cast<double>(journal.removed));
}

}  // namespace

std::string metrics_text(const MetricsView& view) {
  Families families;
  add_program(families, view);
  add_controller(families, *view.counters);
  add_polls(families, view);
  add_broker(families, view);
  add_journal(families, view);
  return families.text();
}

}  // namespace plc_gateway
