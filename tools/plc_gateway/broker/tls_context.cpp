// TLS for a connection, with OpenSSL.
//
// The connection goes to an address, for names are resolved before. So the name that the certificate has to be for, and
// that the broker is told, is set here.
#include "tools/plc_gateway/broker/tls_context.h"

#include <arpa/inet.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/x509v3.h>

#include "base/files.h"
#include "base/text.h"
#include "tools/plc_gateway/broker/tls_files.h"
#include "tools/plc_gateway/model/named_file.h"

namespace plc_gateway {
namespace {

bool is_address(const std::string& host) {
  unsigned char bytes[sizeof(in6_addr)];
  return inet_pton(AF_INET, host.c_str(), bytes) == 1 || inet_pton(AF_INET6, host.c_str(), bytes) == 1;
}

std::string openssl_reason() {
  const char* reason = ERR_reason_error_string(ERR_peek_last_error());
  ERR_clear_error();
  return reason != nullptr ? reason : "no reason given";
}

TlsContext* owner_of(const SSL* ssl) { return static_cast<TlsContext*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl))); }

}  // namespace

TlsContext::TlsContext(const BrokerOptions& options) : options_(options), context_(SSL_CTX_new(TLS_client_method())) {
  if (!context_) {
    problem_ = "no TLS: " + openssl_reason();
    return;
  }
  SSL_CTX* context = context_.get();
  SSL_CTX_set_app_data(context, this);
  SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
  SSL_CTX_set_mode(context, SSL_MODE_RELEASE_BUFFERS | SSL_MODE_AUTO_RETRY);
  SSL_CTX_set_verify(context, SSL_VERIFY_PEER, on_verify);
  SSL_CTX_set_info_callback(context, on_info);
  expect_name();
  load_files();
}

void TlsContext::expect_name() {
  X509_VERIFY_PARAM* expected = SSL_CTX_get0_param(context_.get());
  if (is_address(options_.host)) {
    X509_VERIFY_PARAM_set1_ip_asc(expected, options_.host.c_str());
  } else {
    X509_VERIFY_PARAM_set1_host(expected, options_.host.c_str(), options_.host.size());
  }
}

void TlsContext::load_files() {
  const BrokerOptions& files = options_;
  ERR_clear_error();
  if (files.ca_file.empty()) {
    SSL_CTX_set_default_verify_paths(context_.get());
  } else {
    load("ca_file", files.ca_file, use_authorities, "cannot be read as certificates",
         "name a file that has whole certificates in PEM form and nothing broken");
  }
  load("cert_file", files.cert_file, use_certificates, "cannot be read as a certificate",
       "name a file that has the whole certificate in PEM form");
  load("key_file", files.key_file, use_key, "does not hold the key of cert_file",
       "name the key for which the certificate was made");
}

void TlsContext::load(const char* key, const std::string& path, bool (*use)(SSL_CTX*, const std::string&),
                      const char* what, const char* to_do) {
  if (path.empty() || !problem_.empty()) return;
  plc_base::FileText file = plc_base::read_file(path, kMostNamedFileBytes);
  if (!file.problem.empty()) {
    problem_ = std::string(key) + ": " + file.problem + "; correct the path, or let the gateway's user read it";
  } else if (!use(context_.get(), file.text)) {
    problem_ = std::string(key) + " " + plc_base::quoted(path) + " " + what + " (" + openssl_reason() + "): " + to_do;
  }
  if (!problem_.empty()) problem_key_ = key;
  OPENSSL_cleanse(file.text.data(), file.text.size());
}

int TlsContext::on_verify(int is_good, X509_STORE_CTX* store) {
  const auto* ssl = static_cast<const SSL*>(X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
  if (is_good != 1) owner_of(ssl)->certificate_error_ = X509_STORE_CTX_get_error(store);
  return is_good;
}

// The first message of a handshake says which name is meant: brokers behind one address are told apart by it.
void TlsContext::on_info(const SSL* ssl, int where, int value) {
  TlsContext* owner = owner_of(ssl);
  const std::string& host = owner->options_.host;
  if ((where & SSL_CB_HANDSHAKE_START) != 0 && !is_address(host)) {
    SSL_ctrl(const_cast<SSL*>(ssl), SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name,
             const_cast<char*>(host.c_str()));
  }
  const int alert = value & 0xFF;
  if ((where & SSL_CB_READ_ALERT) != SSL_CB_READ_ALERT || alert == SSL_AD_CLOSE_NOTIFY) return;
  // OpenSSL 3.0 has no text for it.
  constexpr int kCertificateRequired = 116;
  owner->alert_ = alert == kCertificateRequired ? "certificate required" : SSL_alert_desc_string_long(value);
}

}  // namespace plc_gateway
