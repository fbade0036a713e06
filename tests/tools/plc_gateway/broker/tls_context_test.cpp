// What a connection's TLS takes from its files.
#include "tools/plc_gateway/broker/tls_context.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/temp_dir.h"
#include "tests/tools/plc_gateway/support/identity.h"

namespace gateway_test {
namespace {

using plc_gateway::BrokerOptions;
using plc_gateway::TlsContext;
using plc_test::Identity;
using plc_test::make_identity;

class TlsContextTest : public testing::Test {
 protected:
  TlsContextTest() {
    options.host = "127.0.0.1";
    options.tls = true;
    options.key_file = folder.write("own.key", own.key);
  }

  // With this text as the own certificate's file.
  std::string problem_with_certificate(const std::string& text) {
    options.cert_file = folder.write("own.crt", text);
    return TlsContext(options).problem();
  }

  const plc_test::TempDir folder;
  const Identity own = make_identity();
  BrokerOptions options;
};

TEST_F(TlsContextTest, CertificatesBehindTheOwnOne_AreShownToo) {
  const std::string above = make_identity().certificate;
  options.cert_file = folder.write("own.crt", "for people\n" + own.certificate + above + above);
  const TlsContext context(options);
  EXPECT_EQ(context.problem(), "");
  EXPECT_NE(SSL_CTX_get0_certificate(context.get()), nullptr);
  STACK_OF(X509)* chain = nullptr;
  SSL_CTX_get0_chain_certs(context.get(), &chain);
  EXPECT_EQ(sk_X509_num(chain), 2);
}

TEST_F(TlsContextTest, BrokenCertificateBehindTheOwnOne_IsRefused) {
  const std::string broken = own.certificate.substr(0, own.certificate.size() / 2) + "\n-----END CERTIFICATE-----\n";
  for (const std::string& text : {own.certificate + broken, broken, own.key}) {
    EXPECT_THAT(problem_with_certificate(text),
                testing::AllOf(
                    testing::StartsWith("cert_file '" + folder.file("own.crt") + "' cannot be read as a certificate ("),
                    testing::EndsWith("): name a file that has the whole certificate in PEM form")));
  }
  EXPECT_EQ(problem_with_certificate(own.certificate), "");
}

TEST_F(TlsContextTest, EveryAuthorityOfItsFile_IsTrusted) {
  options.ca_file = folder.write("ca.crt", own.certificate + own.key + make_identity().certificate);
  options.key_file.clear();
  const TlsContext context(options);
  EXPECT_EQ(context.problem(), "");
  EXPECT_EQ(sk_X509_OBJECT_num(X509_STORE_get0_objects(SSL_CTX_get_cert_store(context.get()))), 2);
}

TEST_F(TlsContextTest, AuthoritiesWithoutACertificate_AreRefused) {
  options.ca_file = folder.write("ca.crt", own.key);
  EXPECT_EQ(TlsContext(options).problem(),
            "ca_file '" + options.ca_file +
                "' cannot be read as certificates (no certificate or crl found): name a file that has whole "
                "certificates in PEM form and nothing broken");
}

TEST_F(TlsContextTest, FileThatIsTooLong_IsRefused) {
  options.ca_file = folder.write("ca.crt", std::string((1U << 20U) + 1, '\n'));
  const TlsContext context(options);
  EXPECT_EQ(context.problem(), "ca_file: cannot read " + options.ca_file +
                                   ": it has more than 1048576 bytes; correct the path, or let the gateway's user "
                                   "read it");
  EXPECT_EQ(context.problem_key(), "ca_file");
}

TEST_F(TlsContextTest, KeyWithAPassphrase_IsRefusedWithoutAQuestion) {
  const std::string locked = plc_test::pem_of([](BIO* bio) {
    const plc_test::OpensslKey key(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    const unsigned char word[] = "word";
    PEM_write_bio_PrivateKey(bio, key.get(), EVP_aes_128_cbc(), word, 4, nullptr, nullptr);
  });
  options.cert_file = folder.write("own.crt", own.certificate);
  options.key_file = folder.write("locked.key", locked);
  EXPECT_EQ(TlsContext(options).problem_key(), "key_file");
}

}  // namespace
}  // namespace gateway_test
