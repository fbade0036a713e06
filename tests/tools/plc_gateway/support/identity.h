// A key and its certificate, made for one test.
#pragma once

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

namespace plc_test {

template <typename T, void (*kFree)(T*)>
struct FreeOpenssl {
  void operator()(T* object) const { kFree(object); }
};
using OpensslKey = std::unique_ptr<EVP_PKEY, FreeOpenssl<EVP_PKEY, EVP_PKEY_free>>;
using OpensslCertificate = std::unique_ptr<X509, FreeOpenssl<X509, X509_free>>;

template <typename Write>
std::string pem_of(const Write& write) {
  BIO* bio = BIO_new(BIO_s_mem());
  write(bio);
  char* text = nullptr;
  const long size = BIO_get_mem_data(bio, &text);
  const std::string copy(text, static_cast<size_t>(size));
  BIO_free(bio);
  return copy;
}

struct Identity {
  std::string key;
  std::string certificate;  // signed by the key itself
};

inline Identity make_identity() {
  const OpensslKey key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
  const OpensslCertificate certificate(X509_new());
  X509_set_version(certificate.get(), 2);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600);
  X509_set_pubkey(certificate.get(), key.get());
  X509_sign(certificate.get(), key.get(), EVP_sha256());
  return {pem_of([&](BIO* bio) { PEM_write_bio_PrivateKey(bio, key.get(), nullptr, nullptr, 0, nullptr, nullptr); }),
          pem_of([&](BIO* bio) { PEM_write_bio_X509(bio, certificate.get()); })};
}

}  // namespace plc_test
