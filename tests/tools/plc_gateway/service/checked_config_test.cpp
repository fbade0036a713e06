// What a run would say of its broker is said of the configuration already.
#include "tools/plc_gateway/service/checked_config.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <memory>

#include "tests/tools/plc_gateway/config/config_fixture.h"

namespace plc_gateway_test {
namespace {

using plc_gateway::Finding;
using plc_gateway::load_checked_config;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

template <typename T, void (*kFree)(T*)>
struct Free {
  void operator()(T* object) const { kFree(object); }
};
using Key = std::unique_ptr<EVP_PKEY, Free<EVP_PKEY, EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Free<X509, X509_free>>;

template <typename Write>
std::string pem(const Write& write) {
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

Identity make_identity() {
  const Key key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
  const Certificate certificate(X509_new());
  X509_set_version(certificate.get(), 2);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600);
  X509_set_pubkey(certificate.get(), key.get());
  X509_sign(certificate.get(), key.get(), EVP_sha256());
  return {pem([&](BIO* bio) { PEM_write_bio_PrivateKey(bio, key.get(), nullptr, nullptr, 0, nullptr, nullptr); }),
          pem([&](BIO* bio) { PEM_write_bio_X509(bio, certificate.get()); })};
}

class CheckedConfigTest : public ConfigTest {
 protected:
  // Of a [broker] with this host and these keys, which begin in its third line.
  std::vector<std::string> said_of_broker(const std::string& host, const std::string& keys = {}) {
    Sections sections;
    sections.broker = "[broker]\nurl = \"mqtts://" + host + "\"\n" + keys;
    sections.last = std::exchange(sections.broker, {});
    load(sections);
    std::vector<std::string> lines;
    for (const Finding& finding : load_checked_config(folder_.file("gateway.toml")).findings) {
      lines.push_back((finding.is_error ? "error: " : "note: ") + finding.text);
    }
    return lines;
  }

  std::string write_secret(const std::string& name, const std::string& text) {
    const std::string path = folder_.write(name, text);
    EXPECT_EQ(chmod(path.c_str(), 0600), 0);
    return path;
  }
};

TEST_F(CheckedConfigTest, KeyOfAnotherCertificate_IsAnError) {
  const Identity one = make_identity();
  folder_.write("one.crt", one.certificate);
  write_secret("one.key", one.key);
  const std::string other = write_secret("other.key", make_identity().key);
  EXPECT_THAT(said_of_broker("127.0.0.1", "cert_file = \"one.crt\"\nkey_file = \"one.key\"\n"), IsEmpty());
  EXPECT_THAT(said_of_broker("127.0.0.1", "cert_file = \"one.crt\"\nkey_file = \"other.key\"\n"),
              ElementsAre("error: key_file '" + other +
                          "' does not hold the key of cert_file (key values mismatch): name the key for which the "
                          "certificate was made"));
}

TEST_F(CheckedConfigTest, BrokenPem_IsAnError) {
  const std::string whole = make_identity().certificate;
  const std::string broken = whole.substr(0, whole.size() / 2) + "\n-----END CERTIFICATE-----\n";
  const std::string authority = folder_.write("ca.crt", whole + broken);
  EXPECT_THAT(
      said_of_broker("127.0.0.1", "ca_file = \"ca.crt\"\n"),
      ElementsAre(AllOf(StartsWith("error: ca_file '" + authority + "' cannot be read as certificates ("),
                        EndsWith("): name a file that has whole certificates in PEM form and nothing broken"))));
  const std::string own = folder_.write("own.crt", broken);
  write_secret("own.key", make_identity().key);
  EXPECT_THAT(said_of_broker("127.0.0.1", "cert_file = \"own.crt\"\nkey_file = \"own.key\"\n"),
              ElementsAre(AllOf(StartsWith("error: cert_file '" + own + "' cannot be read as a certificate ("),
                                EndsWith("): name a file that has the whole certificate in PEM form"))));
}

TEST_F(CheckedConfigTest, FileThatWasToldToBeWrong_IsToldOnce) {
  EXPECT_THAT(said_of_broker("127.0.0.1", "ca_file = \"none\"\n"),
              ElementsAre("error: cannot read " + folder_.file("none") +
                          ": No such file or directory; correct the path, or let the gateway's user read it"));
}

TEST_F(CheckedConfigTest, BrokerThatNobodyKnows_IsANote) {
  const std::string host(64, 'a');  // longer than a part of a name can be: nobody is asked for it
  EXPECT_THAT(said_of_broker(host), ElementsAre(AllOf(StartsWith("note: "), HasSubstr("'" + host + "'"),
                                                      EndsWith("; it is tried again while the gateway runs"))));
}

}  // namespace
}  // namespace plc_gateway_test
