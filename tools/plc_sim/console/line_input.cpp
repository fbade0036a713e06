// Standard input as lines.
#include "tools/plc_sim/console/line_input.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

namespace plc_sim {
namespace {

constexpr uv_file kStandardInput = 0;

template <typename Handle>
Handle* as(void* handle) {
  return static_cast<Handle*>(handle);
}

}  // namespace

LineInput::LineInput(uv_loop_t* loop, std::function<void(const std::string&)> on_line, std::function<void()> on_end)
    : loop_(loop), on_line_(std::move(on_line)), on_end_(std::move(on_end)) {}

void LineInput::start() {
  switch (uv_guess_handle(kStandardInput)) {
    case UV_NAMED_PIPE:
      has_source_ = uv_pipe_init(loop_, &source_.pipe, 0) == 0 && uv_pipe_open(&source_.pipe, kStandardInput) == 0;
      break;
    case UV_TTY:
      has_source_ = uv_tty_init(loop_, &source_.tty, kStandardInput, 0) == 0;
      break;
    case UV_TCP:
      has_source_ = uv_tcp_init(loop_, &source_.tcp) == 0 && uv_tcp_open(&source_.tcp, kStandardInput) == 0;
      break;
    case UV_FILE:
      start_file();
      return;
    default:
      break;
  }
  if (!has_source_) {
    end();
    return;
  }
  auto* stream = as<uv_stream_t>(&source_);
  stream->data = this;
  uv_read_start(stream, on_allocate, on_stream);
}

void LineInput::stop() {
  is_stopped_ = true;
  if (has_source_) {
    has_source_ = false;
    uv_close(as<uv_handle_t>(&source_), nullptr);
  }
}

void LineInput::on_allocate(uv_handle_t* handle, size_t, uv_buf_t* buffer) {
  auto* self = as<LineInput>(handle->data);
  *buffer = uv_buf_init(self->buffer_.data(), static_cast<unsigned>(self->buffer_.size()));
}

void LineInput::on_stream(uv_stream_t* stream, ssize_t count, const uv_buf_t* buffer) {
  auto* self = as<LineInput>(stream->data);
  if (count < 0) {
    self->end();
  } else {
    self->take(buffer->base, static_cast<size_t>(count));
  }
}

// A piece in each turn of the loop. libuv's own way to read a file takes threads, and ends the process without a word
// where none can be had.
void LineInput::start_file() {
  has_source_ = true;
  // Refused for files, and for devices that never wait.
  if (uv_poll_init(loop_, &source_.device, kStandardInput) == 0) {
    source_.device.data = this;
    const auto on_ready = [](uv_poll_t* device, int, int) { as<LineInput>(device->data)->read_file_piece(); };
    uv_poll_start(&source_.device, UV_READABLE, on_ready);
    return;
  }
  uv_idle_init(loop_, &source_.file);
  source_.file.data = this;
  uv_idle_start(&source_.file, [](uv_idle_t* file) { as<LineInput>(file->data)->read_file_piece(); });
}

void LineInput::read_file_piece() {
  const ssize_t count = read(kStandardInput, buffer_.data(), buffer_.size());
  if (count < 0 && (errno == EINTR || errno == EAGAIN)) return;
  if (count <= 0) {
    end();
    return;
  }
  take(buffer_.data(), static_cast<size_t>(count));
}

void LineInput::take(const char* bytes, size_t count) {
  std::string_view rest(bytes, count);
  while (!rest.empty() && !is_stopped_) {
    const size_t end = rest.find('\n');
    const size_t room = kMostLineBytes + 1 - pending_.size();
    pending_.append(rest.substr(0, std::min(end, room)));
    if (end == std::string_view::npos) return;
    rest.remove_prefix(end + 1);
    give_line();
  }
}

void LineInput::give_line() {
  const std::string line = std::move(pending_);
  pending_.clear();
  on_line_(line);
}

void LineInput::end() {
  if (!pending_.empty()) give_line();
  on_end_();
}

}  // namespace plc_sim
