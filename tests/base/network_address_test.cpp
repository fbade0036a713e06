// Tests of addresses as people write them.
#include "base/network_address.h"

#include <gtest/gtest.h>

namespace {

using plc_base::find_host;
using plc_base::number_problem;
using plc_base::split_address;

TEST(SplitAddress, HostAndPort_AreTakenApart) {
  EXPECT_EQ(split_address("plc1.local:8501")->at.host, "plc1.local");
  EXPECT_EQ(split_address("plc1.local:8501")->at.port, 8501);
  EXPECT_FALSE(split_address("192.168.0.10")->at.port.has_value());
  EXPECT_EQ(split_address("[::1]:0")->at.host, "::1");
  EXPECT_TRUE(split_address("[::1]:0")->has_brackets);
  EXPECT_EQ(split_address("[::1]:0")->at.port, 0);
}

TEST(SplitAddress, PortThatIsNone_IsTold) {
  for (const char* text : {"plc1:", "plc1:65536", "plc1:-1", "plc1:http", "[::1]:x", "plc1:80 ", "http://plc1"}) {
    ASSERT_TRUE(split_address(text).has_value()) << text;
    EXPECT_TRUE(split_address(text)->is_bad_port) << text;
  }
}

TEST(SplitAddress, WhatIsNoHost_IsNone) {
  for (const char* text : {"", ":8500", "a b", "[::1", "[plc1]", "[::1]8500", "\xC3\xA4"}) {
    EXPECT_FALSE(split_address(text).has_value()) << text;
  }
  EXPECT_FALSE(split_address(std::string(254, 'a')).has_value());
}

// The system would read each up to there.
TEST(SplitAddress, ZeroByteInAnAddress_MakesItNone) {
  EXPECT_FALSE(split_address(std::string("[::1\0/]", 8)).has_value());
  EXPECT_FALSE(split_address(std::string("127.0.0.1\0x", 11)).has_value());
  EXPECT_FALSE(plc_base::is_ipv4_address(std::string("127.0.0.1\0x", 11)));
  EXPECT_FALSE(plc_base::is_ipv6_address(std::string("::1\0", 4)));
}

TEST(FindHost, AddressIsItself) {
  EXPECT_EQ(find_host("192.168.0.10").address, 0xC0A8000AU);
  EXPECT_EQ(find_host("192.168.0.10").problem, "");
  EXPECT_EQ(find_host("localhost").address, 0x7F000001U);
}

TEST(FindHost, NameThatNobodyHas_HasTheSystemsReason) {
  EXPECT_NE(find_host("no-such-host.invalid").problem, "");
  EXPECT_NE(find_host("").problem, "");
  EXPECT_EQ(find_host(std::string("127.0.0.1\0x", 11)).problem, "Name or service not known");
  EXPECT_EQ(find_host(std::string("localhost\0x", 11)).problem, "Name or service not known");
}

// The system would make 127.0.0.0 of the first one.
TEST(FindHost, ShortenedAddress_IsNone) {
  for (const char* text : {"127.0.0", "10.1", "8500", "0x7F000001", "plc.0X7f", "1.2.3.256", "1.2.3.4.5"}) {
    EXPECT_EQ(find_host(text).problem, "an IPv4 address has four numbers up to 255") << text;
    EXPECT_EQ(find_host(text).address, 0U) << text;
  }
  EXPECT_EQ(find_host("010.000.000.001").problem, "write it without leading zeros: 10.0.0.1");
}

TEST(NumberProblem, NamesAndAddresses_HaveNone) {
  for (const char* text : {"192.168.0.10", "plc1", "plc.local", "plc1.", "", "10.0.0.1a"}) {
    EXPECT_EQ(number_problem(text).text, "") << text;
  }
  EXPECT_EQ(number_problem("0.0.0.0").text, "no machine has this address");
  EXPECT_EQ(find_host("0.0.0.0").problem, "") << "to listen on";
  EXPECT_FALSE(number_problem("10.1").has_remedy);
  EXPECT_TRUE(number_problem("010.0.0.1").has_remedy);
}

}  // namespace
