// Standard input as lines, whatever it is: a pipe, a terminal or a file.
#pragma once

#include <uv.h>

#include <array>
#include <functional>
#include <string>

namespace plc_sim {

constexpr size_t kMostLineBytes = 65536;

class LineInput {
 public:
  // A line that is longer than kMostLineBytes is given as its beginning, one byte longer than that.
  LineInput(uv_loop_t* loop, std::function<void(const std::string&)> on_line, std::function<void()> on_end);
  LineInput(const LineInput&) = delete;
  LineInput& operator=(const LineInput&) = delete;

  void start();
  void stop();

 private:
  static void on_allocate(uv_handle_t* handle, size_t size, uv_buf_t* buffer);
  static void on_stream(uv_stream_t* stream, ssize_t count, const uv_buf_t* buffer);
  void start_file();
  void read_file_piece();
  void take(const char* bytes, size_t count);
  void give_line();
  void end();

  union Source {
    uv_pipe_t pipe;
    uv_tty_t tty;
    uv_tcp_t tcp;
    uv_idle_t file;
    uv_poll_t device;
  };

  uv_loop_t* loop_;
  std::function<void(const std::string&)> on_line_;
  std::function<void()> on_end_;
  Source source_{};
  bool has_source_ = false;
  bool is_stopped_ = false;
  std::string pending_;
  std::array<char, 4096> buffer_{};
};

}  // namespace plc_sim
