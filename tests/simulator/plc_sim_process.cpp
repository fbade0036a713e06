// A plc-sim as a process of its own.
#include "plc_sim_process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "sim_support.h"

extern char** environ;

namespace plc_sim::test {
namespace {

struct Pipe {
  int read_end;
  int write_end;
};

Pipe make_pipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe");
  }
  return {ends[0], ends[1]};
}

sockaddr_in local_address(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

}  // namespace

PlcSimProcess::PlcSimProcess(const std::vector<std::string>& arguments) {
  const Pipe in = make_pipe();
  const Pipe out = make_pipe();
  const Pipe err = make_pipe();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in.read_end, 0);
  posix_spawn_file_actions_adddup2(&actions, out.write_end, 1);
  posix_spawn_file_actions_adddup2(&actions, err.write_end, 2);
  std::vector<std::string> words{PLC_SIM_PROGRAM};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);
  if (posix_spawn(&pid_, PLC_SIM_PROGRAM, &actions, nullptr, argv.data(), environ) != 0) {
    throw std::runtime_error("cannot start " PLC_SIM_PROGRAM);
  }
  posix_spawn_file_actions_destroy(&actions);
  close(in.read_end);
  close(out.write_end);
  close(err.write_end);
  input_ = in.write_end;
  output_ = out.read_end;
  errors_ = err.read_end;
}

PlcSimProcess::~PlcSimProcess() {
  if (pid_ > 0) {
    finish();
  }
  close(output_);
  close(errors_);
}

std::string PlcSimProcess::read_line() {
  for (;;) {
    const size_t end = unread_.find('\n');
    if (end != std::string::npos) {
      const std::string line = unread_.substr(0, end);
      unread_.erase(0, end + 1);
      return line;
    }
    std::array<char, 4096> buffer{};
    const ssize_t count = read(output_, buffer.data(), buffer.size());
    if (count <= 0) {
      return {};
    }
    unread_.append(buffer.data(), static_cast<size_t>(count));
  }
}

uint16_t PlcSimProcess::port_in(const std::string& line) {
  const size_t colon = line.rfind(':');
  return colon == std::string::npos ? uint16_t{0} : static_cast<uint16_t>(std::strtoul(&line[colon + 1], nullptr, 10));
}

std::string PlcSimProcess::command(const std::string& line) {
  const std::string text = line + "\n";
  if (write(input_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    return "cannot write";
  }
  std::string answer;
  for (;;) {
    const std::string next = read_line();
    if (next.empty() || next == "ok") {
      return answer;
    }
    answer += next + "\n";
    if (next.rfind("error: ", 0) == 0) {
      return answer;
    }
  }
}

void PlcSimProcess::close_input() {
  if (input_ >= 0) {
    close(input_);
    input_ = -1;
  }
}

int PlcSimProcess::finish() {
  close_input();
  std::array<char, 4096> buffer{};
  for (ssize_t count = 1; count > 0;) {
    count = read(errors_, buffer.data(), buffer.size());
    error_text_.append(buffer.data(), count > 0 ? static_cast<size_t>(count) : 0);
  }
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

std::string PlcSimProcess::errors() { return error_text_; }

HostSocket::HostSocket(uint16_t port) {
  descriptor_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const timeval wait{5, 0};
  setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
  const sockaddr_in address = local_address(port);
  if (connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    close(descriptor_);
    descriptor_ = -1;
  }
}

HostSocket::~HostSocket() {
  if (descriptor_ >= 0) {
    close(descriptor_);
  }
}

void HostSocket::send(const Bytes& bytes) const { ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL); }

Bytes HostSocket::receive() const {
  Bytes bytes(8192);
  const ssize_t count = recv(descriptor_, bytes.data(), bytes.size(), 0);
  bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
  return bytes;
}

Bytes HostSocket::exchange(std::string_view frame) const {
  send(hex(frame));
  return receive();
}

bool connects_within(uint16_t port, int milliseconds) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const sockaddr_in address = local_address(port);
  bool is_done = connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  if (!is_done) {
    pollfd ready{descriptor, POLLOUT, 0};
    is_done = poll(&ready, 1, milliseconds) == 1 && (ready.revents & POLLERR) == 0;
  }
  close(descriptor);
  return is_done;
}

TemporaryFile::TemporaryFile(const std::string& content) {
  std::string name = "/tmp/plc_sim_test_XXXXXX";
  const int descriptor = mkstemp(name.data());
  if (descriptor < 0) {
    throw std::runtime_error("no temporary file");
  }
  close(descriptor);
  path_ = name;
  std::ofstream(path_, std::ios::binary) << content;
}

TemporaryFile::~TemporaryFile() { unlink(path_.c_str()); }

}  // namespace plc_sim::test
