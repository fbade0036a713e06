// Reads password_file.
#include "tools/plc_gateway/broker/password.h"

#include "base/files.h"
#include "base/text.h"

namespace plc_gateway {
namespace {

constexpr size_t kMostPasswordBytes = 65535;  // of MQTT

}  // namespace

std::string read_password(const std::string& path, std::string* password) {
  const plc_base::FileText file = plc_base::read_file(path, kMostPasswordBytes);
  if (!file.problem.empty()) return "password_file: " + file.problem;
  *password = file.text;
  if (!password->empty() && password->back() == '\n') password->pop_back();
  if (!password->empty() && password->back() == '\r') password->pop_back();
  if (password->find('\0') != std::string::npos) {
    return "password_file: " + plc_base::quoted(path) + " holds a zero byte, which no password can";
  }
  return {};
}

}  // namespace plc_gateway
