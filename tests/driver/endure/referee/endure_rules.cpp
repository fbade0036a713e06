// The rules that no fault excuses.
#include "tests/driver/endure/referee/endure_rules.h"

#include <algorithm>

namespace plc_endure {

const char* name_of(Rule rule) {
  switch (rule) {
    case Rule::kReadWrong:
      return "a read returned 0 with a value that was not there";
    case Rule::kWriteMissing:
      return "a write returned 0 and was not carried out";
    case Rule::kWriteAstray:
      return "a write reached something else";
    case Rule::kWriteTwice:
      return "a write was carried out twice";
    case Rule::kWriteDenied:
      return "a write that was said not to be was carried out";
    case Rule::kHarm:
      return "other harm";
    case Rule::kFailedWithoutFault:
      return "a call that had to succeed failed";
  }
  return "";
}

Target* WriteCall::take(uint32_t cell, uint16_t mask, uint16_t value) {
  const auto by_cell = [](const Target& target, uint32_t wanted) { return target.cell < wanted; };
  auto target = std::lower_bound(targets.begin(), targets.end(), cell, by_cell);
  for (; target != targets.end() && target->cell == cell; ++target) {
    if ((target->mask & mask) == target->mask && (value & target->mask) == target->value &&
        (rewrites_word || target->mask == mask)) {
      target->is_done = target->is_done || !is_over;
      ++target->times;
      return &*target;
    }
  }
  return nullptr;
}

std::shared_ptr<const void> Rules::meaning_now() const {
  auto meaning = std::make_shared<Meaning>();
  meaning->call = call_;
  if (call_->rewrites_word) {
    for (uint32_t moment = 0; moment < memory_.moments(); ++moment) {
      const uint16_t word = memory_.word_at(moment, call_->targets.front().cell);
      meaning->seen_ones = static_cast<uint16_t>(meaning->seen_ones | word);
      meaning->seen_zeros = static_cast<uint16_t>(meaning->seen_zeros | ~word);
    }
  }
  return meaning;
}

void Rules::carried_out(const Meaning& meaning, uint32_t cell, uint16_t mask, uint16_t value) {
  WriteCall& call = *meaning.call;
  ++carried_out_;
  late_writes_ += call.is_over ? 1U : 0U;
  const std::string where = "call " + std::to_string(call.number) + ", cell " + std::to_string(cell);
  const Target* target = call.take(cell, mask, value);
  if (target == nullptr) {
    count(Rule::kWriteAstray, where + ": given " + std::to_string(value) + ", mask " + std::to_string(mask) +
                                  (call.targets.empty() ? ", by a call that reads" : ""));
    return;
  }
  if (target->times > 1) count(Rule::kWriteTwice, where + ": given " + std::to_string(value));
  if (target->is_denied) count(Rule::kWriteDenied, where + ": given " + std::to_string(value) + " later");
  if (!call.rewrites_word) return;
  const auto others = static_cast<uint16_t>(mask & ~call.targets.front().mask);
  const auto allowed = static_cast<uint16_t>((value & meaning.seen_ones) | (~value & meaning.seen_zeros));
  if ((others & ~allowed) != 0) {
    count(Rule::kWriteAstray, where + ": given " + std::to_string(value) + ", other bits " +
                                  std::to_string(others & ~allowed) + " have values that they did not have");
  }
}

void Rules::end_write() {
  const auto is_missing = [](const Target& target) { return !target.is_done; };
  const auto missing = std::find_if(call_->targets.begin(), call_->targets.end(), is_missing);
  if (missing != call_->targets.end()) {
    count(Rule::kWriteMissing, "call " + std::to_string(call_->number) + ", cell " + std::to_string(missing->cell) +
                                   ": not given " + std::to_string(missing->value) + ", mask " +
                                   std::to_string(missing->mask));
  }
}

void Rules::end_call() { call_->is_over = true; }

void Rules::count(Rule rule, const std::string& text) {
  ++counts_[static_cast<size_t>(rule)];
  if (first_.empty()) first_ = std::string(name_of(rule)) + ": " + text;
}

unsigned long Rules::total() const {
  unsigned long total = 0;
  for (const unsigned long count : counts_) total += count;
  return total;
}

}  // namespace plc_endure
