// What a run would say of its broker is said of the configuration already.
#include "tools/plc_gateway/service/checked_config.h"

#include <sys/stat.h>

#include <filesystem>

#include "tests/tools/plc_gateway/config/config_fixture.h"
#include "tests/tools/plc_gateway/support/identity.h"
#include "tests/tools/plc_gateway/tag_line.h"

namespace plc_gateway_test {
namespace {

using plc_gateway::Finding;
using plc_gateway::load_checked_config;
using plc_test::Identity;
using plc_test::make_identity;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

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

TEST_F(CheckedConfigTest, PasswordThatNoConnectionCanHave_IsAnError) {
  const std::string keys = "username = \"u\"\npassword_file = \"secret\"\n";
  const auto refused = [](const std::string& why) {
    return "error: password_file: " + why +
           "; write the password alone (printf '%s\\n' PASSWORD > FILE), of at most 65535 bytes";
  };
  const std::string path = write_secret("secret", std::string("se\0cret\n", 8));
  EXPECT_THAT(said_of_broker("127.0.0.1", keys),
              ElementsAre(refused("'" + path + "' holds a zero byte, which no password can")));
  write_secret("secret", std::string(65536, 'x'));
  EXPECT_THAT(said_of_broker("127.0.0.1", keys),
              ElementsAre(refused("cannot read " + path + ": it has more than 65535 bytes")));
  write_secret("secret", std::string(65535, 'x'));
  EXPECT_THAT(said_of_broker("127.0.0.1", keys), IsEmpty());
  write_secret("secret", "");
  EXPECT_THAT(said_of_broker("127.0.0.1", keys),
              ElementsAre("error: " + path + " is empty: write into it what it is for"));
}

// A pipe that nobody writes would be waited for.
TEST_F(CheckedConfigTest, PipesInThePlaceOfTlsFiles_AreRefusedAtOnce) {
  const std::string pipe = folder_.file("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  std::filesystem::create_symlink("pipe", folder_.file("link"));
  const auto refused = [](const std::string& path) {
    return "error: cannot read " + path +
           ": it is not a regular file; correct the path, or let the gateway's user read it";
  };
  const std::string link = folder_.file("link");
  EXPECT_THAT(said_of_broker("127.0.0.1", "ca_file = \"" + pipe + "\"\n"), ElementsAre(refused(pipe)));
  EXPECT_THAT(said_of_broker("127.0.0.1", "ca_file = \"link\"\n"), ElementsAre(refused(link)));
  EXPECT_THAT(said_of_broker("127.0.0.1", "cert_file = \"pipe\"\nkey_file = \"link\"\n"),
              ElementsAre(refused(pipe), refused(link)));
  folder_.write("own.crt", make_identity().certificate);
  EXPECT_THAT(said_of_broker("127.0.0.1", "cert_file = \"own.crt\"\nkey_file = \"pipe\"\n"),
              ElementsAre(refused(pipe)));
}

TEST_F(CheckedConfigTest, JournalFilesThatARunWouldRefuse_AreErrorsAndNothingIsMade) {
  const std::string journal = folder_.file("journal");
  EXPECT_THAT(said_of_broker("127.0.0.1"), IsEmpty());
  EXPECT_TRUE(std::filesystem::is_empty(journal));
  for (const char* name : {"journal.sqlite", "journal.sqlite-wal", "journal.sqlite-journal"}) {
    const std::string file = journal + "/" + name;
    std::filesystem::create_symlink(folder_.file("elsewhere"), file);
    EXPECT_THAT(said_of_broker("127.0.0.1"),
                ElementsAre("error: " + file + ": it is a symbolic link; remove it, or name another folder"));
    EXPECT_FALSE(std::filesystem::exists(folder_.file("elsewhere")));
    std::filesystem::remove(file);
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    EXPECT_THAT(said_of_broker("127.0.0.1"),
                ElementsAre("error: " + file + ": it is not a regular file; remove it, or name another folder"));
    std::filesystem::remove(file);
    folder_.write("journal/" + std::string(name), "");
    EXPECT_THAT(said_of_broker("127.0.0.1"), IsEmpty());
    std::filesystem::remove(file);
  }
}

TEST_F(CheckedConfigTest, DeviceBirthLongerThanBrokersMayTake_IsANoteWithItsLength) {
  folder_.write("tags/PLCC0A8000A_0.csv", plc_gateway_test::tag_line("Table", "LINT", "[0..1999]") +
                                              plc_gateway_test::tag_line("Text", "STRING", "[0..9]", "200"));
  Sections sections;
  sections.broker = "[broker]\nurl = \"mqtts://127.0.0.1\"\n";
  sections.poll = "[[poll]]\nevery_ms = 500\nnames = [\"Table\", \"Text\"]\n";
  load(sections);
  EXPECT_THAT(load_checked_config(folder_.file("gateway.toml")).findings, IsEmpty());
  std::string tags;
  for (int i = 10; i < 28; ++i) {
    tags += plc_gateway_test::tag_line("Table" + std::to_string(i), "LINT", "[0..1999]");
  }
  folder_.write("tags/PLCC0A8000A_0.csv", tags);
  sections.poll = "[[poll]]\nevery_ms = 500\nnames = [\"Table*\"]\n";
  load(sections);
  const std::vector<Finding> findings = load_checked_config(folder_.file("gateway.toml")).findings;
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_FALSE(findings[0].is_error);
  EXPECT_EQ(findings[0].line, 0U);
  EXPECT_EQ(
      findings[0].text,
      "DBIRTH can have up to 289312 bytes, and a broker that takes less may drop it without a word: let the broker "
      "take messages of 289312 bytes: see message_size_limit and max_packet_size in mosquitto's configuration");
}

TEST_F(CheckedConfigTest, BrokerThatNobodyKnows_IsANote) {
  const std::string host(64, 'a');  // longer than a part of a name can be: nobody is asked for it
  EXPECT_THAT(said_of_broker(host), ElementsAre(AllOf(StartsWith("note: "), HasSubstr("'" + host + "'"),
                                                      EndsWith("; it is tried again while the gateway runs"))));
}

}  // namespace
}  // namespace plc_gateway_test
