// The settings of TLS for one connection to the broker, and why a certificate was not taken.
#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>

#include "tools/plc_gateway/broker/broker_options.h"

namespace plc_gateway {

class TlsContext {
 public:
  // Reads the files that the options name. `options` outlive it.
  explicit TlsContext(const BrokerOptions& options);
  TlsContext(const TlsContext&) = delete;
  TlsContext& operator=(const TlsContext&) = delete;

  // Why it cannot be used; empty when it can.
  const std::string& problem() const { return problem_; }
  // The key of the configuration whose file is the reason; empty when none is.
  const std::string& problem_key() const { return problem_key_; }
  SSL_CTX* get() const { return context_.get(); }
  // OpenSSL's number of what is wrong with the broker's certificate; 0 when nothing is, or it did not come.
  long certificate_error() const { return certificate_error_; }
  // What the broker said before it ended the handshake; empty when it said nothing.
  const std::string& alert() const { return alert_; }

 private:
  static int on_verify(int is_good, X509_STORE_CTX* store);
  static void on_info(const SSL* ssl, int where, int value);
  void load_files();
  void load(const char* key, const std::string& path, bool (*use)(SSL_CTX*, const std::string&), const char* what,
            const char* to_do);
  void expect_name();

  struct Free {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
  };
  const BrokerOptions& options_;
  std::unique_ptr<SSL_CTX, Free> context_;
  std::string problem_;
  std::string problem_key_;
  long certificate_error_ = 0;
  std::string alert_;
};

}  // namespace plc_gateway
