// The file that results go to, which notices when they do not get there, and ends at a whole line then.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

namespace plc_host {

class ResultFile {
 public:
  // Takes the descriptor over. Throws HostError when it is no open one. From now on a file that may not grow any more
  // is an error like a full disk, and no signal.
  explicit ResultFile(int descriptor);
  ~ResultFile();
  ResultFile(const ResultFile&) = delete;
  ResultFile& operator=(const ResultFile&) = delete;

  FILE* stream() const { return stream_; }
  int descriptor() const { return descriptor_; }

  // True while everything that was printed has reached the file. After the first failure nothing more is written.
  bool flush();
  // Whoever read the results, from a pipe, has gone.
  bool has_lost_reader() const { return error_ == EPIPE; }

  // Something is missing in the file.
  bool has_failed() const { return error_ != 0 && !has_lost_reader(); }

  // What a command that ends with this code returns: the code itself, also when the reader of a pipe has gone, or
  // kExitOutput behind a message when something is missing in the file.
  int finish(int code);

 private:
  static ssize_t write_some(void* file, const char* data, size_t size);
  bool write_all(const char* data, size_t size);
  size_t write_piece(const char* data, size_t size);
  size_t room_after_stop(size_t size) const;
  void note_written(const char* data, size_t size);
  void take_back_cut_line();

  int descriptor_;
  FILE* stream_ = nullptr;
  int error_ = 0;  // errno of the write that failed first
  size_t written_ = 0;
  size_t behind_line_end_ = 0;  // bytes of a line whose end is not written yet
  std::vector<char> buffer_;
};

}  // namespace plc_host
