// The entry of one linktrace reply: how it is read from its message, and its text.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <locale>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "client_server.pb.h"
#include "expected_events.h"
#include "noting_handlers.h"

namespace {

namespace pb = client_server;
using cfm::LinktraceReplyEntry;

constexpr cfm::st_mac kMulticast = {{0x01, 0x80, 0xc2, 0x00, 0x00, 0x3d}};
constexpr cfm::st_mac kFirst = {{0x00, 0x11, 0x22, 0x33, 0x44, 0x55}};
constexpr cfm::st_mac kSecond = {{0x00, 0xaa, 0xbb, 0xcc, 0xdd, 0xee}};
constexpr cfm::st_mac kThird = {{0xf0, 0xf1, 0xf2, 0xf3, 0xf4, 0xf5}};

std::uint16_t Raw(std::uint8_t first, std::uint8_t second) {
  const std::uint8_t octets[2] = {first, second};
  std::uint16_t value = 0;
  std::memcpy(&value, octets, sizeof(value));
  return value;
}

// ---- MAC addresses ----

TEST(AMac, RendersInLowerCaseHexadecimal) {
  EXPECT_EQ((cfm::st_mac{{0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F}}.to_string()), "0a:0b:0c:0d:0e:0f");
  EXPECT_EQ((cfm::st_mac{{0x00, 0x80, 0xff, 0x7f, 0x01, 0x10}}.to_string()), "00:80:ff:7f:01:10");
  EXPECT_EQ(cfm::st_mac{}.to_string(), "00:00:00:00:00:00");
}

// ---- The text ----

// The entry of the example without internal VLAN and reply parts.
void FillPlain(LinktraceReplyEntry& entry) {
  entry.destination_mac = kFirst;
  entry.source_mac = kSecond;
  entry.vlan = 100;
  entry.priority = 3;
  entry.level = 5;
  entry.terminal_mep = true;
  entry.use_fdb_only = true;
  entry.transaction_id = 7;
  entry.ttl = 62;
  entry.relay_action = 1;
  entry.egress_id = std::make_unique<cfm::LtrEgressIdEntry>();
  entry.egress_id->next_mac = kSecond;
}

std::unique_ptr<cfm::LtrReplyPortEntry> Port(std::uint8_t action, const cfm::st_mac& mac, bool port_id_present,
                                             std::uint8_t subtype, const std::string& port_id) {
  auto port = std::make_unique<cfm::LtrReplyPortEntry>();
  port->action = action;
  port->mac = mac;
  port->port_id_present = port_id_present;
  port->port_id_subtype = subtype;
  port->port_id = port_id;
  return port;
}

void FillEverything(LinktraceReplyEntry& entry) {
  entry.destination_mac = kMulticast;
  entry.source_mac = kSecond;
  entry.vlan = 65535;
  entry.priority = 255;
  entry.internal_vlan = 4094;
  entry.internal_priority = 65;  // "A", were it written as a character
  entry.level = 200;
  entry.forwarded = true;
  entry.transaction_id = 4294967295U;
  entry.ttl = 48;
  entry.relay_action = 2147483648U;
  entry.egress_id = std::make_unique<cfm::LtrEgressIdEntry>();
  entry.egress_id->last_mac = kFirst;
  entry.egress_id->last_unique_id = 0x1234;
  entry.egress_id->next_mac = kThird;
  entry.egress_id->next_unique_id = 0x5678;
  entry.reply_ingress = Port(66, kFirst, true, 67,
                             std::string("eth\0"
                                         "0",
                                         5));
  entry.reply_egress = Port(68, kSecond, false, 69, "never shown");
}

TEST(ALinktraceReplyEntry, WithoutOptionalPartsShowsOnOneLineThroughNextAndStopsThere) {
  LinktraceReplyEntry entry{};
  FillPlain(entry);
  EXPECT_EQ(LinktraceReplyEntry::Show(entry, 0),
            "Transaction ID: 7; Destination MAC: 00:11:22:33:44:55; Source MAC: 00:aa:bb:cc:dd:ee; VLAN: 100; "
            "Priority: 3; Level: 5; Flags: Terminal MEP: true, Forwarded: false, Use FDB only: true; TTL: 62; "
            "Relay action:1; LTR Egress ID: Last: 00:00:00:00:00:00, Next: 00:aa:bb:cc:dd:ee; ");
}

TEST(ALinktraceReplyEntry, WithEverythingShowsOnOneLine) {
  LinktraceReplyEntry entry{};
  FillEverything(entry);
  EXPECT_EQ(LinktraceReplyEntry::Show(entry, 0),
            "Transaction ID: 4294967295; Destination MAC: 01:80:c2:00:00:3d; Source MAC: 00:aa:bb:cc:dd:ee; "
            "VLAN: 65535; Priority: 255; Internal VLAN: 4094; Internal Priority: 65; Level: 200; "
            "Flags: Terminal MEP: false, Forwarded: true, Use FDB only: false; TTL: 48; Relay action:-2147483648; "
            "LTR Egress ID: Last: 00:11:22:33:44:55, Next: f0:f1:f2:f3:f4:f5; "
            "Reply Ingress: Ingress action: 66, Ingress MAC: 00:11:22:33:44:55, Port ID: Subtype 67, Length 5; "
            "Reply Egress: Egress action: 68, Egress MAC: 00:aa:bb:cc:dd:ee, Port ID: Not present; ");
}

TEST(ALinktraceReplyEntry, WithIndent2ShowsOneItemPerLineAndGroupsIndentedByTwoBlanks) {
  LinktraceReplyEntry entry{};
  FillEverything(entry);
  EXPECT_EQ(LinktraceReplyEntry::Show(entry, 2),
            "Transaction ID: 4294967295\n"
            "Destination MAC: 01:80:c2:00:00:3d\n"
            "Source MAC: 00:aa:bb:cc:dd:ee\n"
            "VLAN: 65535\n"
            "Priority: 255\n"
            "Internal VLAN: 4094\n"
            "Internal Priority: 65\n"
            "Level: 200\n"
            "Flags:\n"
            "  Terminal MEP: false\n"
            "  Forwarded: true\n"
            "  Use FDB only: false\n"
            "TTL: 48\n"
            "Relay action:-2147483648\n"
            "LTR Egress ID:\n"
            "  Last: 00:11:22:33:44:55\n"
            "  Next: f0:f1:f2:f3:f4:f5\n"
            "Reply Ingress:\n"
            "  Ingress action: 66\n"
            "  Ingress MAC: 00:11:22:33:44:55\n"
            "  Port ID: Subtype 67, Length 5\n"
            "Reply Egress:\n"
            "  Egress action: 68\n"
            "  Egress MAC: 00:aa:bb:cc:dd:ee\n"
            "  Port ID: Not present\n");
}

TEST(ALinktraceReplyEntry, WithIndent1ShowsGroupsIndentedByOneBlank) {
  LinktraceReplyEntry entry{};
  FillPlain(entry);
  EXPECT_EQ(LinktraceReplyEntry::Show(entry, 1),
            "Transaction ID: 7\nDestination MAC: 00:11:22:33:44:55\nSource MAC: 00:aa:bb:cc:dd:ee\nVLAN: 100\n"
            "Priority: 3\nLevel: 5\nFlags:\n Terminal MEP: true\n Forwarded: false\n Use FDB only: true\nTTL: 62\n"
            "Relay action:1\nLTR Egress ID:\n Last: 00:00:00:00:00:00\n Next: 00:aa:bb:cc:dd:ee\n");
}

TEST(ALinktraceReplyEntry, WithInternalVlan0ShowsNeitherInternalLineAlsoWhenTheInternalPriorityIsNot0) {
  LinktraceReplyEntry entry{};
  FillPlain(entry);
  const std::string plain = LinktraceReplyEntry::Show(entry, 0);
  entry.internal_priority = 7;
  EXPECT_EQ(LinktraceReplyEntry::Show(entry, 0), plain);
}

TEST(ALinktraceReplyEntry, ShowsAPresentPortIdWithAnEmptyValueAndAnAbsentOne) {
  LinktraceReplyEntry entry{};
  FillPlain(entry);
  const std::string plain = LinktraceReplyEntry::Show(entry, 0);
  entry.reply_ingress = Port(1, kFirst, true, 5, "");
  entry.reply_egress = Port(2, kSecond, false, 5, "");
  EXPECT_EQ(LinktraceReplyEntry::Show(entry, 0),
            plain +
                "Reply Ingress: Ingress action: 1, Ingress MAC: 00:11:22:33:44:55, Port ID: Subtype 5, Length 0; "
                "Reply Egress: Egress action: 2, Egress MAC: 00:aa:bb:cc:dd:ee, Port ID: Not present; ");
}

TEST(ALinktraceReplyEntry, ShowsRelayActionsAsSignedNumbers) {
  for (const auto& [value, text] : std::vector<std::pair<std::uint32_t, std::string>>{
           {0, "0"}, {2147483647U, "2147483647"}, {2147483648U, "-2147483648"}, {4294967295U, "-1"}}) {
    LinktraceReplyEntry entry{};
    FillPlain(entry);
    entry.relay_action = value;
    EXPECT_NE(LinktraceReplyEntry::Show(entry, 0).find("; Relay action:" + text + "; LTR Egress ID: "),
              std::string::npos)
        << value;
  }
}

TEST(ALinktraceReplyEntry, ShowsEachFlagByItself) {
  const std::vector<std::pair<bool LinktraceReplyEntry::*, std::string>> flags = {
      {&LinktraceReplyEntry::terminal_mep, "Terminal MEP: true, Forwarded: false, Use FDB only: false"},
      {&LinktraceReplyEntry::forwarded, "Terminal MEP: false, Forwarded: true, Use FDB only: false"},
      {&LinktraceReplyEntry::use_fdb_only, "Terminal MEP: false, Forwarded: false, Use FDB only: true"}};
  for (const auto& [flag, text] : flags) {
    LinktraceReplyEntry entry{};
    entry.egress_id = std::make_unique<cfm::LtrEgressIdEntry>();
    entry.*flag = true;
    EXPECT_NE(LinktraceReplyEntry::Show(entry, 0).find("; Flags: " + text + "; TTL: "), std::string::npos) << text;
  }
}

// A locale as an application may set it for itself.
class Grouping : public std::numpunct<char> {
 protected:
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
  std::string do_truename() const override { return "ja"; }
  std::string do_falsename() const override { return "nein"; }
};

TEST(ALinktraceReplyEntry, ShowsTheSameInEveryLocale) {
  LinktraceReplyEntry entry{};
  FillEverything(entry);
  const std::string expected = LinktraceReplyEntry::Show(entry, 0);
  const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Grouping));
  const std::string shown = LinktraceReplyEntry::Show(entry, 0);
  std::locale::global(before);
  EXPECT_EQ(shown, expected);
}

// The same text, composed from items and groups.
class Composer {
 public:
  explicit Composer(unsigned int indent) : indent_(indent) {}

  void Item(const std::string& text) { text_ += text + (indent_ == 0 ? "; " : "\n"); }

  void Group(const std::string& label, const std::vector<std::string>& items) {
    std::string joined;
    for (const std::string& item : items) {
      if (!joined.empty()) {
        joined += indent_ == 0 ? ", " : "\n";
      }
      joined += std::string(indent_, ' ') + item;
    }
    Item(label + (indent_ == 0 ? " " : "\n") + joined);
  }

  const std::string& text() const { return text_; }

 private:
  unsigned int indent_;
  std::string text_;
};

TEST(ALinktraceReplyEntry, ShowsEveryCombinationOfOptionalPartsAtEveryIndent) {
  int compared = 0;
  for (const unsigned int indent : {0U, 1U, 2U, 7U}) {
    for (unsigned int parts = 0; parts < 32; ++parts) {
      const bool internal = (parts & 1U) != 0;
      const bool ingress = (parts & 2U) != 0;
      const bool egress = (parts & 4U) != 0;
      const bool ingress_port_id = (parts & 8U) != 0;
      const bool egress_port_id = (parts & 16U) != 0;
      LinktraceReplyEntry entry{};
      FillPlain(entry);
      Composer composer(indent);
      composer.Item("Transaction ID: 7");
      composer.Item("Destination MAC: 00:11:22:33:44:55");
      composer.Item("Source MAC: 00:aa:bb:cc:dd:ee");
      composer.Item("VLAN: 100");
      composer.Item("Priority: 3");
      if (internal) {
        entry.internal_vlan = 1;
        entry.internal_priority = 0;
        composer.Item("Internal VLAN: 1");
        composer.Item("Internal Priority: 0");
      }
      composer.Item("Level: 5");
      composer.Group("Flags:", {"Terminal MEP: true", "Forwarded: false", "Use FDB only: true"});
      composer.Item("TTL: 62");
      composer.Item("Relay action:1");
      composer.Group("LTR Egress ID:", {"Last: 00:00:00:00:00:00", "Next: 00:aa:bb:cc:dd:ee"});
      if (ingress) {
        entry.reply_ingress = Port(1, kThird, ingress_port_id, 3, "ab");
        composer.Group("Reply Ingress:", {"Ingress action: 1", "Ingress MAC: f0:f1:f2:f3:f4:f5",
                                          ingress_port_id ? "Port ID: Subtype 3, Length 2" : "Port ID: Not present"});
      }
      if (egress) {
        entry.reply_egress = Port(4, kFirst, egress_port_id, 255, std::string(300, 'x'));
        composer.Group("Reply Egress:", {"Egress action: 4", "Egress MAC: 00:11:22:33:44:55",
                                         egress_port_id ? "Port ID: Subtype 255, Length 300" : "Port ID: Not present"});
      }
      EXPECT_EQ(LinktraceReplyEntry::Show(entry, indent), composer.text()) << indent << ' ' << parts;
      ++compared;
    }
  }
  EXPECT_EQ(compared, 128);
}

// ---- Reading it from its message ----

// What a handler sees of a reply, and the text that the library logs for it.
class AReplyMessage : public testing::Test, protected recording::ClientUnderTest {
 protected:
  AReplyMessage() { client.RegisterLinktraceHandler(&linktrace); }

  std::string Delivered(const pb::LinktraceReply& reply) {
    pb::OpLinktraceReplyRx message;
    *message.mutable_reply() = reply;
    const recording::Journal journal = After(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX, message);
    if (journal.size() != 3) {
      return "not one level query, one line and one call";
    }
    line = journal[1].text;
    return journal[2].text;
  }

  static std::string Expected(const LinktraceReplyEntry& entry) {
    return recording::Called("linktrace.OnLinktraceReply", "", "", 0, entry).text;
  }

  std::string line;
};

std::string Octets(const cfm::st_mac& mac) {
  return {reinterpret_cast<const char*>(mac.octets), sizeof(mac.octets)};
}

TEST_F(AReplyMessage, IsReadFieldByField) {
  pb::LinktraceReply reply;
  reply.set_destination_mac(Octets(kMulticast));
  reply.set_source_mac(Octets(kSecond));
  reply.mutable_flags()->set_terminal_mep(true);
  reply.mutable_flags()->set_forwarded(false);
  reply.mutable_flags()->set_use_fdb_only(true);
  reply.mutable_egress_id()->mutable_last()->set_mac(Octets(kFirst));
  reply.mutable_egress_id()->mutable_last()->set_unique_id("\x12\x34");
  reply.mutable_egress_id()->mutable_next()->set_mac(Octets(kThird));
  reply.mutable_egress_id()->mutable_next()->set_unique_id("\xfe\xdc");
  reply.mutable_reply_ingress()->set_mac(Octets(kFirst));
  reply.mutable_reply_ingress()->set_action(1);
  reply.mutable_reply_ingress()->mutable_port_id()->set_present(true);
  reply.mutable_reply_ingress()->mutable_port_id()->set_subtype(5);
  reply.mutable_reply_ingress()->mutable_port_id()->set_value(std::string("\0raw\xff", 5));
  reply.mutable_reply_egress()->set_mac(Octets(kSecond));
  reply.mutable_reply_egress()->set_action(2);
  reply.mutable_reply_egress()->mutable_port_id()->set_present(false);
  reply.mutable_reply_egress()->mutable_port_id()->set_subtype(7);
  reply.mutable_reply_egress()->mutable_port_id()->set_value("kept");
  reply.set_transaction_id(4294967295U);
  reply.set_vlan(100);
  reply.set_priority(3);
  reply.set_level(5);
  reply.set_ttl(62);
  reply.set_relay_action(4294967294U);
  reply.set_internal_vlan(200);
  reply.set_internal_priority(6);

  LinktraceReplyEntry entry{};
  entry.destination_mac = kMulticast;
  entry.source_mac = kSecond;
  entry.vlan = 100;
  entry.priority = 3;
  entry.internal_vlan = 200;
  entry.internal_priority = 6;
  entry.level = 5;
  entry.terminal_mep = true;
  entry.use_fdb_only = true;
  entry.transaction_id = 4294967295U;
  entry.ttl = 62;
  entry.relay_action = 4294967294U;
  entry.egress_id = std::make_unique<cfm::LtrEgressIdEntry>();
  entry.egress_id->last_mac = kFirst;
  entry.egress_id->last_unique_id = Raw(0x12, 0x34);
  entry.egress_id->next_mac = kThird;
  entry.egress_id->next_unique_id = Raw(0xfe, 0xdc);
  entry.reply_ingress = Port(1, kFirst, true, 5, std::string("\0raw\xff", 5));
  entry.reply_egress = Port(2, kSecond, false, 7, "kept");
  EXPECT_EQ(Delivered(reply), Expected(entry));
  EXPECT_NE(line.find("LMEP 0: " + LinktraceReplyEntry::Show(entry, 0)), std::string::npos) << line;
}

TEST_F(AReplyMessage, ThatIsAbsentReadsAsZerosWithAnEgressIdAndNoReplyParts) {
  LinktraceReplyEntry entry{};
  entry.egress_id = std::make_unique<cfm::LtrEgressIdEntry>();
  const recording::Journal journal = After(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX, pb::OpLinktraceReplyRx());
  ASSERT_EQ(journal.size(), 3U);
  EXPECT_EQ(journal[2].text, Expected(entry));
}

TEST_F(AReplyMessage, HasItsReplyPartsOnlyWhenTheyArePresentAlsoWhenEmpty) {
  for (const bool ingress : {false, true}) {
    for (const bool egress : {false, true}) {
      pb::LinktraceReply reply;
      LinktraceReplyEntry entry{};
      entry.egress_id = std::make_unique<cfm::LtrEgressIdEntry>();
      if (ingress) {
        reply.mutable_reply_ingress();
        entry.reply_ingress = std::make_unique<cfm::LtrReplyPortEntry>();
      }
      if (egress) {
        reply.mutable_reply_egress();
        entry.reply_egress = std::make_unique<cfm::LtrReplyPortEntry>();
      }
      EXPECT_EQ(Delivered(reply), Expected(entry)) << ingress << egress;
      EXPECT_EQ(line.find("Reply Ingress:") != std::string::npos, ingress) << line;
      EXPECT_EQ(line.find("Reply Egress:") != std::string::npos, egress) << line;
    }
  }
}

TEST_F(AReplyMessage, WithoutAnInternalVlanHasNoInternalPriorityEither) {
  pb::LinktraceReply reply;
  reply.set_internal_priority(6);
  LinktraceReplyEntry entry{};
  entry.egress_id = std::make_unique<cfm::LtrEgressIdEntry>();
  EXPECT_EQ(Delivered(reply), Expected(entry));
}

TEST_F(AReplyMessage, WithAPresentInternalVlanOf0KeepsTheInternalPriorityAndRendersNeither) {
  pb::LinktraceReply reply;
  reply.set_internal_vlan(0);
  reply.set_internal_priority(6);
  LinktraceReplyEntry entry{};
  entry.internal_priority = 6;
  entry.egress_id = std::make_unique<cfm::LtrEgressIdEntry>();
  EXPECT_EQ(Delivered(reply), Expected(entry));
  EXPECT_EQ(line.find("Internal"), std::string::npos) << line;
}

TEST_F(AReplyMessage, KeepsUniqueIdsInMemoryOrder) {
  pb::LinktraceReply reply;
  reply.mutable_egress_id()->mutable_last()->set_unique_id("\x12\x34");
  const std::string delivered = Delivered(reply);
  LinktraceReplyEntry entry{};
  entry.egress_id = std::make_unique<cfm::LtrEgressIdEntry>();
  entry.egress_id->last_unique_id = Raw(0x12, 0x34);
  EXPECT_EQ(delivered, Expected(entry));
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  EXPECT_EQ(entry.egress_id->last_unique_id, 13330);
#endif
}

TEST_F(AReplyMessage, IsCutToTheWidthsOfTheEntry) {
  pb::LinktraceReply reply;
  reply.set_vlan(0xabcd0102U);
  reply.set_priority(0xfffff103U);
  reply.set_level(0x104);
  reply.set_ttl(0x1ff);
  reply.set_internal_vlan(0x10005);
  reply.set_internal_priority(0x106);
  reply.mutable_reply_ingress()->set_action(0x107);
  reply.mutable_reply_ingress()->mutable_port_id()->set_subtype(0x108);
  LinktraceReplyEntry entry{};
  entry.vlan = 0x0102;
  entry.priority = 3;
  entry.level = 4;
  entry.ttl = 255;
  entry.internal_vlan = 5;
  entry.internal_priority = 6;
  entry.egress_id = std::make_unique<cfm::LtrEgressIdEntry>();
  entry.reply_ingress = Port(7, {}, false, 8, "");
  EXPECT_EQ(Delivered(reply), Expected(entry));
}

TEST_F(AReplyMessage, WithFieldsOfAnyLengthIsCopiedAsFarAsTheyGoAndIsZeroBeyond) {
  const std::string octets = "\x11\x22\x33\x44\x55\x66\x77\x88 and more than a short string holds";
  const std::vector<std::function<void(pb::LinktraceReply&, const std::string&)>> fields = {
      [](pb::LinktraceReply& reply, const std::string& value) { reply.set_destination_mac(value); },
      [](pb::LinktraceReply& reply, const std::string& value) { reply.set_source_mac(value); },
      [](pb::LinktraceReply& reply, const std::string& value) {
        reply.mutable_egress_id()->mutable_last()->set_mac(value);
      },
      [](pb::LinktraceReply& reply, const std::string& value) {
        reply.mutable_egress_id()->mutable_next()->set_mac(value);
      },
      [](pb::LinktraceReply& reply, const std::string& value) {
        reply.mutable_egress_id()->mutable_last()->set_unique_id(value);
      },
      [](pb::LinktraceReply& reply, const std::string& value) {
        reply.mutable_egress_id()->mutable_next()->set_unique_id(value);
      },
      [](pb::LinktraceReply& reply, const std::string& value) { reply.mutable_reply_ingress()->set_mac(value); },
      [](pb::LinktraceReply& reply, const std::string& value) { reply.mutable_reply_egress()->set_mac(value); },
  };
  RegisterAll();
  for (std::size_t field = 0; field < fields.size(); ++field) {
    pb::OpLinktraceReplyRx whole;
    fields[field](*whole.mutable_reply(), octets);
    for (std::size_t length = 0; length <= octets.size(); ++length) {
      pb::OpLinktraceReplyRx message;
      fields[field](*message.mutable_reply(), octets.substr(0, length));
      EXPECT_TRUE(Same(After(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX, message), recording::Expected(message)))
          << field << ' ' << length;
      EXPECT_TRUE(
          Same(AfterOverwriting(whole, CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX, message), recording::Expected(message)))
          << field << ' ' << length;
    }
  }
}

TEST_F(AReplyMessage, WithAUniqueIdOfOneOctetIsZeroInTheOther) {
  pb::LinktraceReply reply;
  reply.mutable_egress_id()->mutable_next()->set_unique_id("\x12");
  LinktraceReplyEntry entry{};
  entry.egress_id = std::make_unique<cfm::LtrEgressIdEntry>();
  entry.egress_id->next_unique_id = Raw(0x12, 0);
  EXPECT_EQ(Delivered(reply), Expected(entry));
}

// A handler that looks at the entry itself.
class LookingHandler final : public cfm::ReceivedLinktraceHandlerIntf {
 public:
  void OnLinktraceStarted(const std::string& /*md_name*/, const std::string& /*ma_name*/, std::uint16_t /*mep_id*/,
                          std::uint32_t /*transaction_id*/, cfm::st_mac /*target_mac*/, std::uint16_t /*target_mep_id*/,
                          bool /*has_optional_value*/, std::uint32_t /*optional_value*/) override {}
  void OnLinktraceEnded(const std::string& /*md_name*/, const std::string& /*ma_name*/, std::uint16_t /*mep_id*/,
                        std::uint32_t /*transaction_id*/) override {}
  void OnLinktraceReply(const std::string& /*md_name*/, const std::string& /*ma_name*/, std::uint16_t /*mep_id*/,
                        const LinktraceReplyEntry& reply) override {
    shown = LinktraceReplyEntry::Show(reply, 3);
    last_unique_id = reply.egress_id->last_unique_id;
  }
  void OnLinktraceTriggerError(const cfm::linktrace_trigger& /*trigger*/) override {}

  std::string shown;
  std::uint16_t last_unique_id = 0;
};

TEST_F(AReplyMessage, MayBeRenderedByAHandlerDuringItsCallAlsoWhenLoggingIsOff) {
  LookingHandler looking;
  client.RegisterLinktraceHandler(&looking);
  middleware.level_enabled = [](int) { return false; };
  pb::OpLinktraceReplyRx message;
  message.mutable_reply()->mutable_egress_id()->mutable_last()->set_unique_id("\x12\x34");
  message.mutable_reply()->set_ttl(62);
  EXPECT_EQ(middleware.Deliver(CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX, message), 1);
  client.RegisterLinktraceHandler(nullptr);
  std::uint8_t first = 0;
  std::memcpy(&first, &looking.last_unique_id, 1);
  EXPECT_EQ(first, 0x12);
  EXPECT_NE(looking.shown.find("\nTTL: 62\nRelay action:0\nLTR Egress ID:\n   Last: 00:00:00:00:00:00\n"),
            std::string::npos)
      << looking.shown;
}

}  // namespace
