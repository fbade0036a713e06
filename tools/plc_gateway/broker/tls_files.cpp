// Gives OpenSSL certificates and keys from memory: it would wait for the writer of a pipe.
#include "tools/plc_gateway/broker/tls_files.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <memory>

namespace plc_gateway {
namespace {

void free_entries(STACK_OF(X509_INFO) * entries) { sk_X509_INFO_pop_free(entries, X509_INFO_free); }

template <typename T, auto kFree>
struct FreeWith {
  void operator()(T* object) const { kFree(object); }
};
using Bio = std::unique_ptr<BIO, FreeWith<BIO, BIO_free>>;
using Entries = std::unique_ptr<STACK_OF(X509_INFO), FreeWith<STACK_OF(X509_INFO), free_entries>>;
using Certificate = std::unique_ptr<X509, FreeWith<X509, X509_free>>;
using Key = std::unique_ptr<EVP_PKEY, FreeWith<EVP_PKEY, EVP_PKEY_free>>;

// `pem` outlives it.
Bio bio_of(const std::string& pem) { return Bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()))); }

// Nobody is there to type the word that an encrypted key asks for.
int no_passphrase(char*, int, int, void*) { return 0; }

// Whether the last block was read, and not a broken one found behind it.
bool is_at_end() {
  const unsigned long error = ERR_peek_last_error();
  if (ERR_GET_LIB(error) != ERR_LIB_PEM || ERR_GET_REASON(error) != PEM_R_NO_START_LINE) return false;
  ERR_clear_error();
  return true;
}

}  // namespace

bool use_authorities(SSL_CTX* context, const std::string& pem) {
  const Bio bio = bio_of(pem);
  if (!bio) return false;
  const Entries entries(PEM_X509_INFO_read_bio(bio.get(), nullptr, no_passphrase, nullptr));
  if (!entries) return false;
  X509_STORE* store = SSL_CTX_get_cert_store(context);
  bool has_any = false;
  for (int i = 0; i < sk_X509_INFO_num(entries.get()); ++i) {
    const X509_INFO* entry = sk_X509_INFO_value(entries.get(), i);
    if (entry->x509 != nullptr && X509_STORE_add_cert(store, entry->x509) != 1) return false;
    if (entry->crl != nullptr && X509_STORE_add_crl(store, entry->crl) != 1) return false;
    has_any = has_any || entry->x509 != nullptr || entry->crl != nullptr;
  }
  if (!has_any) ERR_raise(ERR_LIB_X509, X509_R_NO_CERTIFICATE_OR_CRL_FOUND);
  return has_any;
}

bool use_certificates(SSL_CTX* context, const std::string& pem) {
  const Bio bio = bio_of(pem);
  if (!bio) return false;
  const Certificate own(PEM_read_bio_X509_AUX(bio.get(), nullptr, no_passphrase, nullptr));
  if (!own || SSL_CTX_use_certificate(context, own.get()) != 1) return false;
  while (Certificate above{PEM_read_bio_X509(bio.get(), nullptr, no_passphrase, nullptr)}) {
    if (SSL_CTX_add0_chain_cert(context, above.get()) != 1) return false;
    above.release();  // NOLINT(bugprone-unused-return-value): the context has it
  }
  return is_at_end();
}

bool use_key(SSL_CTX* context, const std::string& pem) {
  const Bio bio = bio_of(pem);
  if (!bio) return false;
  const Key key(PEM_read_bio_PrivateKey(bio.get(), nullptr, no_passphrase, nullptr));
  return key && SSL_CTX_use_PrivateKey(context, key.get()) == 1;
}

}  // namespace plc_gateway
