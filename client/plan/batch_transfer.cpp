// Fills the records of planned batches, makes the calls, and puts the values together again.
#include "client/plan/batch_transfer.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <optional>

#include "client/driver/failure.h"
#include "client/plan/batch_plan.h"
#include "client/plan/program_check.h"

namespace plc_client::core {
namespace {

constexpr size_t kTextBytesPerSlot = 2;

std::vector<BatchReadRequest> make_requests(const Batch& batch, uint16_t area) {
  std::vector<BatchReadRequest> requests;
  for (const BatchSlot& slot : batch) {
    BatchReadRequest request{};
    request.area = area;
    request.reg_type = request_reg_type(slot.register_id);
    request.address = request_address(slot.register_id, slot.element);
    request.count = slot.count;
    requests.push_back(request);
  }
  return requests;
}

// A variable on its way from slots to a value.
struct Assembly {
  TagValue value;
  bool has_text_ended = false;  // its zero byte has been seen
  bool is_spoilt = false;       // a batch with one of its slots failed, and the connection stayed
  std::optional<Failure> failure;
  WallTime time{};
};

void take_text(uint32_t reference, const TagEntry& entry, Assembly& assembly) {
  if (reference == 0) {
    assembly.is_spoilt = true;  // there was no memory to keep the text where 32 bits reach it
    return;
  }
  if (assembly.has_text_ended) return;
  // The field has 32 bits on every build: the driver keeps the text where they reach it.
  const auto* text = reinterpret_cast<const char*>(static_cast<uintptr_t>(reference));
  const auto declared = static_cast<size_t>(std::max(entry.string_length, 1));
  const size_t room = std::min(kTextBytesPerSlot, declared - std::min(declared, assembly.value.text.size()));
  const size_t length = strnlen(text, room);
  assembly.value.text.append(text, length);
  assembly.has_text_ended = length < kTextBytesPerSlot;
}

void take_value(const BatchSlot& slot, uint32_t value, const TagEntry& entry, Assembly& assembly) {
  std::vector<uint64_t>& elements = assembly.value.elements;
  switch (slot.part) {
    case SlotPart::kElement:
    case SlotPart::kLowHalf:
      elements.push_back(value);
      break;
    case SlotPart::kHighHalf:
      elements.back() |= uint64_t{value} << 32;
      break;
    case SlotPart::kText:
      take_text(value, entry, assembly);
      break;
  }
}

class BatchReader {
 public:
  BatchReader(DriverSession& session, std::vector<TagResult>& results, const std::function<bool()>& stop)
      : session_(session), results_(results), stop_(stop) {}

  BatchFigures read_all();

 private:
  using Numbers = std::vector<size_t>;  // positions in results

  bool is_for_batches(size_t number);
  void read_group(const Numbers& numbers);
  void read_batch(const Batch& batch, std::map<size_t, Assembly>& assemblies);
  void read_again(const Numbers& numbers);
  void read_singly(size_t number);
  std::optional<Failure> hindrance() const;

  DriverSession& session_;
  std::vector<TagResult>& results_;
  const std::function<bool()>& stop_;
  std::vector<TagReference> references_;
  Patience patience_;
  BatchFigures figures_;
};

// Why the next call is not made.
std::optional<Failure> BatchReader::hindrance() const {
  if (stop_()) return not_read(kInterruptedWord);
  if (patience_.is_over()) return end_of(patience_, session_.target());
  return std::nullopt;
}

void BatchReader::read_singly(size_t number) {
  if (const std::optional<Failure> left_out = hindrance()) {
    results_[number].reading = {*left_out, std::chrono::system_clock::now()};
    return;
  }
  ++figures_.single_reads;
  results_[number] = read_tag(session_, references_[number]);
  patience_.take(results_[number].reading);
}

void BatchReader::read_batch(const Batch& batch, std::map<size_t, Assembly>& assemblies) {
  std::optional<Failure> failure = hindrance();
  bool is_spoilt = false;  // each of its variables may be read by itself
  CallResult call;
  call.time = std::chrono::system_clock::now();
  std::vector<BatchReadRequest> requests;
  if (!failure) {
    requests = make_requests(batch, session_.target().area);
    ++figures_.batches;
    figures_.slots += batch.size();
    call = session_.read_batch(requests);
    const Tag& first = *references_[batch.front().reference].tag;  // the others are of its scope
    failure = call.ok() ? program_hindrance(session_, first, kRuleOfBatches)
                        : std::optional<Failure>(explain_failure(call, session_.target()));
    if (call.ok() && failure && failure->lacks_program) session_.count_of_others(1);
    is_spoilt = failure && !failure->connection_lost &&
                (!call.ok() || !program_hindrance(session_, first, ProgramRule::kBeginning));
    patience_.take(failure ? Reading(*failure, call.time) : Reading(TagValue(), session_.quality_of_success(), {}));
  }
  for (size_t i = 0; i < batch.size(); ++i) {
    Assembly& assembly = assemblies[batch[i].reference];
    assembly.time = call.time;
    if (!failure) {
      take_value(batch[i], requests[i].value, references_[batch[i].reference].tag->entry, assembly);
    } else if (is_spoilt) {
      assembly.is_spoilt = true;
    } else if (!assembly.failure) {
      assembly.failure = failure;
    }
  }
}

void BatchReader::read_group(const Numbers& numbers) {
  std::map<size_t, Assembly> assemblies;
  for (const Batch& batch : plan_batches(references_, numbers, session_.rules())) read_batch(batch, assemblies);
  Numbers spoilt;
  for (const auto& [number, assembly] : assemblies) {
    if (assembly.failure) {
      results_[number].reading = {*assembly.failure, assembly.time};
    } else if (assembly.is_spoilt) {
      spoilt.push_back(number);
    } else {
      results_[number].reading = {assembly.value, session_.quality_of_success(), assembly.time};
    }
  }
  read_again(spoilt);
}

void BatchReader::read_again(const Numbers& numbers) {
  if (numbers.empty()) return;
  if (numbers.size() == 1) return read_singly(numbers.front());
  const auto middle = numbers.begin() + static_cast<std::ptrdiff_t>(numbers.size() / 2);
  for (const Numbers& half : {Numbers(numbers.begin(), middle), Numbers(middle, numbers.end())}) {
    if (half.size() == 1) {
      read_singly(half.front());
    } else {
      read_group(half);
    }
  }
}

// Whether the batch read delivers the variable. One whose elements have no offset says so.
bool BatchReader::is_for_batches(size_t number) {
  const TagReference& reference = references_[number];
  if (why_not_batched(reference, session_.is_guarded())) return false;
  try {
    plan_batches(references_, {number}, session_.rules());
    return true;
  } catch (const PlanError&) {
    return false;  // the single read says what is wrong, or can
  }
}

BatchFigures BatchReader::read_all() {
  Numbers batched;
  Numbers single;
  for (size_t i = 0; i < results_.size(); ++i) {
    references_.push_back(results_[i].reference);
    if (results_[i].is_found()) (is_for_batches(i) ? batched : single).push_back(i);
  }
  if (!batched.empty()) read_group(batched);
  for (const size_t number : single) read_singly(number);
  return figures_;
}

}  // namespace

BatchFigures read_tags_batched(DriverSession& session, std::vector<TagResult>& results,
                               const std::function<bool()>& stop) {
  return BatchReader(session, results, stop).read_all();
}

}  // namespace plc_client::core
