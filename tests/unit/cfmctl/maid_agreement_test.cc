// cfmctl and the server each have the rules of names, because neither knows the other. Here they are held against each
// other: a file is right exactly when the server can make identifiers of its names, and both make the same.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <variant>
#include <vector>

#include "config_parser.h"
#include "fixed_ports.h"
#include "maid.h"
#include "names.h"
#include "pdu/maid.h"

namespace cfmctl {
namespace {

using namespace std::string_literals;

/// Names that some format takes, and names that are nearly such.
std::vector<std::string> Names() {
  std::vector<std::string> names = {"a",
                                    " ~",
                                    "two words",
                                    "example.net",
                                    "net-1.example_x.org",
                                    "we/st",
                                    "a\x1f",
                                    "a\x7f",
                                    "a\tb",
                                    "a\nb",
                                    "a\0b"s,
                                    "caf\xc3\xa9",
                                    "\"quoted\\\"",
                                    "0",
                                    "1",
                                    "007",
                                    "100",
                                    "4094",
                                    "4095",
                                    "65535",
                                    "65536",
                                    "65636",
                                    "4294967296",
                                    "4294967396",
                                    "18446744073709551616",
                                    "-1",
                                    "+1",
                                    " 1",
                                    "1 ",
                                    "0x10",
                                    "1.0",
                                    "1e2",
                                    "00:11:22:33:44:55:7",
                                    "aA:bB:cC:dD:eE:fF:65535",
                                    "00:11:22:33:44:55",
                                    "00:11:22:33:44:55:",
                                    "00:11:22:33:44:55:65536",
                                    "00:11:22:33:44:55:-1",
                                    "00:11:22:33:44:55:+1",
                                    "00:11:22:33:44:55: 1",
                                    "00:11:22:33:44:55:7x",
                                    "00:11:22:33:44:55 7",
                                    "00-11-22-33-44-55:7",
                                    "0:11:22:33:44:55:77",
                                    "00:11:22:33:44:5g:7",
                                    "0x:11:22:33:44:55:7",
                                    "+1:11:22:33:44:55:7",
                                    " 1:11:22:33:44:55:7",
                                    "00a0b1:00000001",
                                    "FFFFFF:ffffffff",
                                    "00a0b1",
                                    "00a0b1:0000001",
                                    "00a0b1:000000011",
                                    "00a0b1-00000001",
                                    "00a0bg:00000001",
                                    "00a0b1:0000000g",
                                    "-0a0b1:00000001",
                                    "0x00b1:00000001",
                                    "00a0b1:+0000001",
                                    "ABCDEF1234567",
                                    "ABC123",
                                    "ABCDEF12345678"};
  for (const std::size_t length : {36U, 37U, 42U, 43U, 44U, 45U, 46U, 300U}) names.emplace_back(length, 'n');
  return names;
}

/// In double quotes, where YAML has an escape for what it does not take as it is.
std::string Quoted(const std::string& name) {
  std::string text = "\"";
  for (const char octet : name) {
    const auto value = static_cast<unsigned char>(octet);
    const bool plain = value >= 0x80 || (value >= 32 && value < 127 && octet != '"' && octet != '\\');
    text += plain ? std::string(1, octet) : fmt::format("\\x{:02x}", value);
  }
  return text + '"';
}

void ExpectAgreement(std::uint32_t md_format, const std::string& md_name, std::uint32_t ma_format,
                     const std::string& ma_name) {
  SCOPED_TRACE(fmt::format("{} {}, {} {}", md_format, Quoted(md_name), ma_format, Quoted(ma_name)));
  const ParsedConfig file =
      ParseConfig(fmt::format("domains:\n  {}:\n    level: 3\n    name-format: {}\n    associations:\n"
                              "      {}:\n        name-format: {}\n        end-points: {{1: {{port: eth0}}}}\n",
                              Quoted(md_name), NameOf(kMdFormatNames, md_format), Quoted(ma_name),
                              NameOf(kMaFormatNames, ma_format)),
                  FixedPorts());
  const auto server = cfm::pdu::EncodeMaid({md_format, md_name, ma_format, ma_name});
  const bool taken = std::holds_alternative<cfm::pdu::Maid>(server);
  ASSERT_EQ(file.errors.empty(), taken) << (taken ? FormatError("file", file.errors.front())
                                                  : std::get<std::string>(server));
  if (!taken) return;
  std::string maid = EncodeMaid(md_format, EncodeMdName(md_format, md_name).octets, ma_format,
                                EncodeMaName(ma_format, ma_name).octets);
  maid.resize(cfm::pdu::kMaidSize);
  const auto& octets = std::get<cfm::pdu::Maid>(server).octets;
  EXPECT_TRUE(std::equal(maid.begin(), maid.end(), octets.begin(), octets.end(),
                         [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; }));
}

TEST(CfmctlAndTheServer, AgreeOnTheNamesOfDomains) {
  // A domain whose name is not sent needs one all the same in a file.
  for (const std::uint32_t format : {kMdFormatDns, kMdFormatMac, kMdFormatString}) {
    for (const std::string& name : Names()) ExpectAgreement(format, name, kMaFormatString, "a");
  }
}

TEST(CfmctlAndTheServer, AgreeOnTheNamesOfAssociations) {
  for (const std::uint32_t format : {kMaFormatVid, kMaFormatString, kMaFormatUint16, kMaFormatVpnId, kMaFormatIcc}) {
    for (const std::string& name : Names()) {
      ExpectAgreement(kMdFormatNone, "unsent", format, name);
      ExpectAgreement(kMdFormatMac, "00:11:22:33:44:55:7", format, name);
      ExpectAgreement(kMdFormatString, std::string(42, 'd'), format, name);
    }
  }
}

}  // namespace
}  // namespace cfmctl
