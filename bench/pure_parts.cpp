// pure_parts: Google Benchmark of what the driver does without the wire: forming requests, taking values out of
// replies, loading tag files.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cstring>
#include <iostream>

#include "bench/operations.h"
#include "bench/tag_lines.h"
#include "plc_driver/protocol/frames/frame_writer.h"
#include "plc_driver/protocol/frames/reply_view.h"
#include "plc_driver/protocol/frames/value_order.h"
#include "plc_driver/protocol/handles/resolve_request.h"
#include "plc_driver/protocol/handles/value_request.h"
#include "plc_driver/tags/element_name.h"
#include "plc_driver/tags/tag_file.h"

namespace {

constexpr const char* kAsciiName = "Motor_Table";
constexpr const char* kJapaneseName = "\xE9\x80\x9F\xE5\xBA\xA6\xE8\xA8\xAD\xE5\xAE\x9A";

TagEntry make_entry(const char* name, uint32_t shape) {
  TagEntry entry{};
  std::strcpy(entry.name, name);
  entry.bit_width = 16;
  entry.shape = shape;
  entry.is_global = 1;
  entry.dim1_high = 99;
  entry.dim2_high = 99;
  entry.dim3_high = 9;
  return entry;
}

// A resolve request of as many elements as the benchmark's argument says.
void build_resolve(benchmark::State& state, const char* name, uint32_t shape) {
  const TagEntry entry = make_entry(name, shape);
  const uint32_t count = static_cast<uint32_t>(state.range(0));
  uint8_t bytes[4096];
  for (auto _ : state) {
    plc::FrameWriter request(bytes, sizeof bytes);
    plc::begin_resolve(&request, {true, 0}, count);
    const plc::NameEncoder encoder(entry.name);
    for (uint32_t element = 0; element < count; ++element) {
      plc::Subscripts subscripts;
      plc::form_read_subscripts(entry, element, &subscripts);
      encoder.append(subscripts, &request);
    }
    benchmark::DoNotOptimize(request.length);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK_CAPTURE(build_resolve, scalar, kAsciiName, PLC_SCALAR)->Arg(1);
BENCHMARK_CAPTURE(build_resolve, scalar_japanese, kJapaneseName, PLC_SCALAR)->Arg(1);
BENCHMARK_CAPTURE(build_resolve, array, kAsciiName, PLC_ARRAY1)->Arg(1)->Arg(10)->Arg(100);
BENCHMARK_CAPTURE(build_resolve, array_japanese, kJapaneseName, PLC_ARRAY1)->Arg(100);
BENCHMARK_CAPTURE(build_resolve, two_dimensions, kAsciiName, PLC_ARRAY2)->Arg(100);
BENCHMARK_CAPTURE(build_resolve, three_dimensions, kAsciiName, PLC_ARRAY3)->Arg(100);

// A value request from a resolve reply of as many names.
void build_value_request(benchmark::State& state) {
  const uint32_t count = static_cast<uint32_t>(state.range(0));
  static plc::ReplyBuffer reply;
  uint8_t bytes[4096];
  for (auto _ : state) {
    plc::FrameWriter request(bytes, sizeof bytes);
    plc::begin_value_request(&request, count);
    plc::NameCursor name(reply);
    for (uint32_t element = 0; element < count; ++element, name.advance()) {
      plc::append_reference(&request, plc::handle_at(name), 1);
    }
    benchmark::DoNotOptimize(request.length);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(build_value_request)->Arg(1)->Arg(100);

void decode_units(benchmark::State& state) {
  const uint32_t count = static_cast<uint32_t>(state.range(0));
  static plc::ReplyBuffer reply;
  uint8_t values[4096];
  for (auto _ : state) {
    plc::copy_units_to_host(reply, plc::kValueOffset, count, values);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(decode_units)->Arg(1)->Arg(100);

void load_tag_file(benchmark::State& state) {
  const bench::TagFile file(static_cast<uint32_t>(state.range(0)));
  static uint32_t group_ids[2048];
  for (auto _ : state) {
    TagEntry* entries = nullptr;
    IndexedTagEntry* groups = nullptr;
    if (build_tagtable(&entries, &groups, file.path(), group_ids) == nullptr) {
      state.SkipWithError("the file does not load");
      break;
    }
    plc::free_tag_arrays(entries, groups);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(file.bytes()));
}
BENCHMARK(load_tag_file)->Arg(100)->Arg(10000)->Arg(100000)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argument_count, char** arguments) {
  std::FILE* const output = bench::take_standard_output();
  benchmark::Initialize(&argument_count, arguments);
  if (benchmark::ReportUnrecognizedArguments(argument_count, arguments)) return 2;
  // The reporter takes a C++ stream; standard output now belongs to the driver's dropped lines.
  dup2(fileno(output), STDERR_FILENO);
  benchmark::ConsoleReporter reporter(benchmark::ConsoleReporter::OO_Tabular);
  reporter.SetOutputStream(&std::cerr);
  reporter.SetErrorStream(&std::cerr);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  return 0;
}
