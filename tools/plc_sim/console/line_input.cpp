// Standard input as lines.
#include "tools/plc_sim/console/line_input.h"

#include <algorithm>
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
      is_stream_ = uv_pipe_init(loop_, &stream_.pipe, 0) == 0 && uv_pipe_open(&stream_.pipe, kStandardInput) == 0;
      break;
    case UV_TTY:
      is_stream_ = uv_tty_init(loop_, &stream_.tty, kStandardInput, 0) == 0;
      break;
    case UV_TCP:
      is_stream_ = uv_tcp_init(loop_, &stream_.tcp) == 0 && uv_tcp_open(&stream_.tcp, kStandardInput) == 0;
      break;
    case UV_FILE:
      read_file_piece();
      return;
    default:
      break;
  }
  if (!is_stream_) {
    end();
    return;
  }
  auto* stream = as<uv_stream_t>(&stream_);
  stream->data = this;
  uv_read_start(stream, on_allocate, on_stream);
}

void LineInput::stop() {
  is_stopped_ = true;
  if (is_stream_) {
    is_stream_ = false;
    uv_close(as<uv_handle_t>(&stream_), nullptr);
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

void LineInput::read_file_piece() {
  uv_buf_t buffer = uv_buf_init(buffer_.data(), static_cast<unsigned>(buffer_.size()));
  file_request_.data = this;
  constexpr int64_t kFromWhereItStands = -1;
  if (uv_fs_read(loop_, &file_request_, kStandardInput, &buffer, 1, kFromWhereItStands, on_file) != 0) end();
}

void LineInput::on_file(uv_fs_t* request) {
  auto* self = as<LineInput>(request->data);
  const ssize_t count = request->result;
  uv_fs_req_cleanup(request);
  if (self->is_stopped_) return;
  if (count <= 0) {
    self->end();
    return;
  }
  self->take(self->buffer_.data(), static_cast<size_t>(count));
  if (!self->is_stopped_) self->read_file_piece();
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
