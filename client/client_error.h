// Failures that end what a client does: nothing can be read or written any more.
#pragma once

#include <stdexcept>
#include <string>

namespace plc_client::core {

// Says what happened, without whom it happened to: that is for whoever shows it.
class ClientError : public std::runtime_error {
 public:
  enum class Kind {
    kLibrary,  // the driver library cannot be loaded, lacks an entry point, or does what it must not
    kTagFile,  // the tag file cannot be read or the driver rejects it
    kOutput,   // the process lacks what the driver needs: standard output to print to, a folder, a descriptor
  };

  ClientError(Kind kind, const std::string& message) : std::runtime_error(message), kind_(kind) {}
  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

}  // namespace plc_client::core
