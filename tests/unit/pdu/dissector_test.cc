// Every kind of frame that is sent, read by somebody else's program.
#include "dissector.h"

#include <gtest/gtest.h>

#include "pdu/ais.h"
#include "pdu/ccm.h"
#include "pdu/delay.h"
#include "pdu/ethernet.h"
#include "pdu/header.h"
#include "pdu/linktrace.h"
#include "pdu/loopback.h"

namespace cfm::pdu {
namespace {

constexpr MacAddress kOwn = {2, 0, 0, 0, 0, 1};
constexpr MacAddress kPeer = {2, 0, 0, 0, 0, 2};
constexpr MacAddress kThird = {2, 0, 0, 0, 0, 3};
constexpr const char* kOwnText = "02:00:00:00:00:01";
constexpr const char* kPeerText = "02:00:00:00:00:02";
constexpr const char* kThirdText = "02:00:00:00:00:03";

Fields Joined(Fields fields, const Fields& more) {
  fields.insert(more.begin(), more.end());
  return fields;
}

/// Frames with what is to be read in them.
class FramesOnTheWire : public testing::Test {
 protected:
  template <typename Record>
  void Add(const EthernetHeader& header, std::size_t (*encode)(const Record&, std::span<std::uint8_t>),
           const Record& record, const Fields& expected) {
    AddOctets(header, Hex(Encoded(encode, record)), expected);
  }

  void AddOctets(const EthernetHeader& header, const Buffer& pdu, const Fields& expected) {
    Buffer frame(kLongestEthernetHeader);
    const std::size_t size = EncodeEthernet(header, frame);
    frame.resize(size);
    frame.insert(frame.end(), pdu.begin(), pdu.end());
    frames_.push_back(frame);
    expected_.push_back(expected);
  }

  /// From our own address.
  static EthernetHeader To(const MacAddress& destination) {
    return {.destination = destination, .source = kOwn, .outer = {}, .inner = {}};
  }
  static EthernetHeader ToClass1(std::uint8_t level) {
    return To(ToAddress({.group_class = GroupClass::k1, .level = level}));
  }

  /// What every untagged frame shows.
  static Fields Common(const std::string& destination, const char* level, const char* opcode, const char* flags,
                       const char* first_tlv_offset) {
    return {{"eth.dst", destination}, {"eth.src", kOwnText},
            {"eth.type", "0x8902"},   {"cfm.md.level", level},
            {"cfm.version", "0"},     {"cfm.opcode", opcode},
            {"cfm.flags", flags},     {"cfm.first.tlv.offset", first_tlv_offset}};
  }

  void AddCcms();
  void AddMaids();
  void AddLoopbacks();
  void AddLinktraces();
  void AddAis();
  void AddDelayMeasurements();

  std::vector<Buffer> frames_;
  std::vector<Fields> expected_;
};

Fields CcmFields(const char* level, const char* flags, const char* rdi, const char* interval) {
  return {{"eth.dst", std::string("01:80:c2:00:00:3") + level},
          {"eth.src", kOwnText},
          {"eth.type", "0x8902"},
          {"cfm.md.level", level},
          {"cfm.version", "0"},
          {"cfm.opcode", "1"},
          {"cfm.flags", flags},
          {"cfm.flags.rdi", rdi},
          {"cfm.flags.ccm.reserved", "0"},
          {"cfm.flags.interval", interval},
          {"cfm.first.tlv.offset", "70"},
          {"cfm.itu.txfcf", "00000000"},
          {"cfm.itu.rxfcb", "00000000"},
          {"cfm.itu.txfcb", "00000000"},
          {"cfm.itu.reserved", "00000000"}};
}

Fields SharedMaidFields() {
  return {{"cfm.maid.md.name.format", "4"}, {"cfm.maid.md.name.length", "4"}, {"cfm.maid.md.name.string", "west"},
          {"cfm.maid.ma.name.format", "2"}, {"cfm.maid.ma.name.length", "9"}, {"cfm.maid.ma.name.string", "service 5"}};
}

void FramesOnTheWire::AddCcms() {
  Ccm ccm;
  ccm.maid = std::get<Maid>(EncodeMaid({4, "west", 2, "service 5"}));
  // Each level with the interval of the same number.
  for (std::uint8_t level = 0; level <= kHighestLevel; ++level) {
    ccm.level = level;
    ccm.interval = level;
    ccm.sequence_number = level * 1000U;
    ccm.mep_id = static_cast<std::uint16_t>(level + 1);
    const std::string digit = std::to_string(level);
    Add(ToClass1(level), EncodeCcm, ccm,
        Joined(Joined(CcmFields(digit.c_str(), ("0x0" + digit).c_str(), "0", digit.c_str()), SharedMaidFields()),
               {{"cfm.ccm.seq.num", std::to_string(level * 1000)},
                {"cfm.ccm.ma.ep.id", std::to_string(level + 1)},
                {"cfm.tlv.type", "0"}}));
  }

  const Buffer chassis = Hex("0a0b0c0d0e0f");
  const Buffer domain = Hex("2b06010201640101");
  const Buffer address = Hex("c000020100a1");
  ccm.level = 5;
  ccm.rdi = true;
  ccm.interval = 3;
  ccm.sequence_number = 0xfffffffe;
  ccm.mep_id = 8191;
  const Fields full = Joined(Joined(CcmFields("5", "0x83", "1", "3"), SharedMaidFields()),
                             {{"cfm.ccm.seq.num", "4294967294"}, {"cfm.ccm.ma.ep.id", "8191"}});

  // Each permission of the Sender ID, and each status.
  ccm.sender_id = SenderId{.chassis_subtype = kChassisMacAddress,
                           .chassis_id = chassis,
                           .management_domain = domain,
                           .management_address = address};
  const Fields chassis_fields = {
      {"cfm.tlv.chassis.id.length", "6"}, {"cfm.tlv.chassis.id.subtype", "4"}, {"cfm.tlv.chassis.id", "0a0b0c0d0e0f"}};
  const Fields address_fields = {{"cfm.tlv.ma.domain.length", "8"},
                                 {"cfm.tlv.ma.domain", "2b06010201640101"},
                                 {"cfm.tlv.management.addr.length", "6"},
                                 {"cfm.tlv.management.addr", "c000020100a1"}};
  Add(ToClass1(5), EncodeCcm, ccm,
      Joined(Joined(full, Joined(chassis_fields, address_fields)),
             {{"cfm.tlv.type", "1;0"}, {"cfm.tlv.length", "24"}}));
  ccm.sender_id->chassis_id = {};
  Add(ToClass1(5), EncodeCcm, ccm,
      Joined(Joined(full, address_fields),
             {{"cfm.tlv.chassis.id.length", "0"}, {"cfm.tlv.type", "1;0"}, {"cfm.tlv.length", "17"}}));
  ccm.sender_id->chassis_id = chassis;
  ccm.sender_id->management_domain = {};
  for (std::uint8_t status = 1; status <= 7; ++status) {
    ccm.interface_status = static_cast<InterfaceStatus>(status);
    ccm.port_status = status % 2 == 0 ? PortStatus::kUp : PortStatus::kBlocked;
    Add(ToClass1(5), EncodeCcm, ccm,
        Joined(Joined(full, chassis_fields), {{"cfm.tlv.ma.domain.length", "0"},
                                              {"cfm.tlv.port.status.value", status % 2 == 0 ? "2" : "1"},
                                              {"cfm.tlv.port.interface.value", std::to_string(status)},
                                              {"cfm.tlv.type", "1;2;4;0"},
                                              {"cfm.tlv.length", "9;1;1"}}));
  }
}

void FramesOnTheWire::AddMaids() {
  const std::vector<std::pair<MaidNames, Fields>> maids = {
      {{1, "unsent", 1, "100"},
       {{"cfm.maid.md.name.format", "1"},
        {"cfm.maid.ma.name.format", "1"},
        {"cfm.maid.ma.name.length", "2"},
        {"cfm.maid.ma.name.hex", "0064"}}},
      {{2, "example.net", 3, "65535"},
       {{"cfm.maid.md.name.format", "2"},
        {"cfm.maid.md.name.length", "11"},
        {"cfm.maid.md.name.string", "example.net"},
        {"cfm.maid.ma.name.format", "3"},
        {"cfm.maid.ma.name.length", "2"},
        {"cfm.maid.ma.name.hex", "ffff"}}},
      {{3, "00:11:22:33:44:55:7", 4, "00a0b1:00000001"},
       {{"cfm.maid.md.name.format", "3"},
        {"cfm.maid.md.name.length", "8"},
        {"cfm.maid.md.name.mac", "00:11:22:33:44:55"},
        {"cfm.maid.md.name.mac.id", "0007"},
        {"cfm.maid.ma.name.format", "4"},
        {"cfm.maid.ma.name.length", "7"},
        {"cfm.maid.ma.name.hex", "00a0b100000001"}}},
      {{1, "unsent", 32, "ABCDEF1234567"},
       {{"cfm.maid.md.name.format", "1"},
        {"cfm.maid.ma.name.format", "32"},
        {"cfm.maid.ma.name.length", "13"},
        {"cfm.maid.ma.name.string", "ABCDEF1234567"}}},
  };
  Ccm ccm;
  ccm.level = 1;
  ccm.interval = 4;
  ccm.sequence_number = 7;
  ccm.mep_id = 2;
  for (const auto& [names, fields] : maids) {
    ccm.maid = std::get<Maid>(EncodeMaid(names));
    Add(ToClass1(1), EncodeCcm, ccm,
        Joined(Joined(CcmFields("1", "0x04", "0", "4"), fields),
               {{"cfm.ccm.seq.num", "7"}, {"cfm.ccm.ma.ep.id", "2"}, {"cfm.tlv.type", "0"}}));
  }
}

void FramesOnTheWire::AddLoopbacks() {
  const Buffer chassis = Hex("77657374");
  const Buffer data = Hex("a0a1a2a3a4");
  Loopback lbm;
  lbm.level = 3;
  lbm.transaction_id = 0x01020304;
  lbm.sender_id =
      SenderId{.chassis_subtype = 7, .chassis_id = chassis, .management_domain = {}, .management_address = {}};
  lbm.data = data;
  const auto fields = [](const char* opcode) {
    return Joined(Common(kPeerText, "3", opcode, "0x00", "4"), {{"cfm.lb.transaction.id", "16909060"},
                                                                {"cfm.tlv.type", "1;3;0"},
                                                                {"cfm.tlv.length", "7;5"},
                                                                {"cfm.tlv.chassis.id.length", "4"},
                                                                {"cfm.tlv.chassis.id.subtype", "7"},
                                                                {"cfm.tlv.chassis.id", "77657374"},
                                                                {"cfm.tlv.ma.domain.length", "0"},
                                                                {"cfm.tlv.data.value", "a0a1a2a3a4"}});
  };
  Add(To(kPeer), EncodeLbm, lbm, fields("3"));
  const Buffer message = Hex(Encoded(EncodeLbm, lbm));
  Buffer reply(message.size());
  ASSERT_EQ(MakeLbr(message, reply), reply.size());
  AddOctets(To(kPeer), reply, fields("2"));
}

void FramesOnTheWire::AddLinktraces() {
  const Buffer port = Hex("65746830");
  Ltm ltm;
  ltm.level = 7;
  ltm.use_fdb_only = true;
  ltm.transaction_id = 42;
  ltm.ttl = 64;
  ltm.original_address = kOwn;
  ltm.target_address = kPeer;
  ltm.egress_identifier = EgressIdentifier{.unique_id = 1, .address = kOwn};
  Add(To(ToAddress({.group_class = GroupClass::k2, .level = 7})), EncodeLtm, ltm,
      Joined(Common("01:80:c2:00:00:3f", "7", "5", "0x80", "17"), {{"cfm.flags.usefdbonly", "1"},
                                                                   {"cfm.flags.ltm.reserved", "0"},
                                                                   {"cfm.lt.transaction.id", "42"},
                                                                   {"cfm.lt.ttl", "64"},
                                                                   {"cfm.ltm.orig.addr", kOwnText},
                                                                   {"cfm.ltm.targ.addr", kPeerText},
                                                                   {"cfm.tlv.type", "7;0"},
                                                                   {"cfm.tlv.length", "8"},
                                                                   {"cfm.tlv.ltm.egress.id.ui", "0001"},
                                                                   {"cfm.tlv.ltm.egress.id.mac", kOwnText}}));

  Ltr ltr;
  ltr.level = 7;
  ltr.use_fdb_only = true;
  ltr.terminal_mep = true;
  ltr.transaction_id = 42;
  ltr.ttl = 63;
  const Fields shared = {{"cfm.flags.usefdbonly", "1"},
                         {"cfm.flags.ltr.reserved", "0"},
                         {"cfm.lt.transaction.id", "42"},
                         {"cfm.lt.ttl", "63"}};
  for (std::uint8_t relay_action = 1; relay_action <= 3; ++relay_action) {
    ltr.relay_action = static_cast<RelayAction>(relay_action);
    Add(To(kPeer), EncodeLtr, ltr,
        Joined(Joined(Common(kPeerText, "7", "4", "0xa0", "6"), shared),
               {{"cfm.flags.fwdyes", "0"},
                {"cfm.flags.ltr.terminalmep", "1"},
                {"cfm.ltr.relay.action", std::to_string(relay_action)},
                {"cfm.tlv.type", "0"}}));
  }

  ltr.terminal_mep = false;
  ltr.forwarded = true;
  ltr.egress_identifiers =
      LtrEgressIdentifiers{.last = {.unique_id = 1, .address = kOwn}, .next = {.unique_id = 2, .address = kThird}};
  for (std::uint8_t action = 1; action <= 4; ++action) {
    const auto other = static_cast<std::uint8_t>(5 - action);
    ltr.ingress = ReplyPort{.action = static_cast<ReplyAction>(action),
                            .address = kPeer,
                            .port_subtype = kPortInterfaceName,
                            .port_id = port};
    ltr.egress =
        ReplyPort{.action = static_cast<ReplyAction>(other), .address = kThird, .port_subtype = 0, .port_id = {}};
    Add(To(kPeer), EncodeLtr, ltr,
        Joined(Joined(Common(kPeerText, "7", "4", "0xc0", "6"), shared),
               {{"cfm.flags.fwdyes", "1"},
                {"cfm.flags.ltr.terminalmep", "0"},
                {"cfm.ltr.relay.action", "3"},
                {"cfm.tlv.type", "8;5;6;0"},
                {"cfm.tlv.length", "16;13;7"},
                {"cfm.tlv.ltr.egress.last.id.ui", "0001"},
                {"cfm.tlv.ltr.egress.last.id.mac", kOwnText},
                {"cfm.tlv.ltr.egress.next.id.ui", "0002"},
                {"cfm.tlv.ltr.egress.next.id.mac", kThirdText},
                {"cfm.tlv.reply.ingress.action", std::to_string(action)},
                {"cfm.tlv.reply.ingress.mac.address", kPeerText},
                {"cfm.tlv.reply.ing.egr.portid.length", "4"},
                {"cfm.tlv.reply.ing.egr.portid.subtype", "5"},
                {"cfm.tlv.reply.ing.egr.portid", "65746830"},
                {"cfm.tlv.reply.egress.action", std::to_string(other)},
                {"cfm.tlv.reply.egress.mac.address", kThirdText}}));
  }
}

/// In all tag forms.
void FramesOnTheWire::AddAis() {
  const Fields second = {{"cfm.flags.ais_lck_Reserved", "0"}, {"cfm.flags.ais_lck_Period", "4"}, {"cfm.tlv.type", "0"}};
  const Fields minute = {{"cfm.flags.ais_lck_Reserved", "0"}, {"cfm.flags.ais_lck_Period", "6"}, {"cfm.tlv.type", "0"}};
  const std::string destination = "01:80:c2:00:00:32";
  Ais ais{.level = 2, .version = 0, .period = AisPeriod::k1s};
  EthernetHeader header = ToClass1(2);
  Add(header, EncodeAis, ais, Joined(Common(destination, "2", "33", "0x04", "0"), second));

  header.outer = Tag{.priority = 7, .drop_eligible = false, .vid = 100};
  Fields expected = Joined(Joined(Common(destination, "2", "33", "0x04", "0"), second),
                           {{"vlan.priority", "7"}, {"vlan.dei", "0"}, {"vlan.id", "100"}, {"vlan.etype", "0x8902"}});
  expected["eth.type"] = "0x8100";
  Add(header, EncodeAis, ais, expected);

  header.inner = Tag{.priority = 5, .drop_eligible = true, .vid = 4094};
  ais.period = AisPeriod::k1min;
  expected = Joined(Joined(Common(destination, "2", "33", "0x06", "0"), minute), {{"ieee8021ad.priority", "7"},
                                                                                  {"ieee8021ad.dei", "0"},
                                                                                  {"ieee8021ad.id", "100"},
                                                                                  {"vlan.priority", "5"},
                                                                                  {"vlan.dei", "1"},
                                                                                  {"vlan.id", "4094"},
                                                                                  {"vlan.etype", "0x8902"}});
  expected["eth.type"] = "0x88a8";
  Add(header, EncodeAis, ais, expected);
}

void FramesOnTheWire::AddDelayMeasurements() {
  constexpr TimeStamp when_sent{.seconds = 0x5f5e1000, .nanoseconds = 0x075bcd15};
  constexpr TimeStamp when_received{.seconds = 0x5f5e1001, .nanoseconds = 0x10};
  constexpr TimeStamp when_answered{.seconds = 0x5f5e1001, .nanoseconds = 0x20};
  const Buffer data = Hex("010203");
  TwoWayDelay dmm;
  dmm.level = 4;
  dmm.sent_f = when_sent;
  dmm.data = data;
  const auto fields = [](const char* opcode, const char* received_f, const char* sent_b) {
    return Joined(Common(kPeerText, "4", opcode, "0x00", "32"), {{"cfm.odm.dmm.dmr.txtimestampf", "5f5e1000075bcd15"},
                                                                 {"cfm.odm.dmm.dmr.rxtimestampf", received_f},
                                                                 {"cfm.dmm.dmr.txtimestampb", sent_b},
                                                                 {"cfm.dmm.dmr.rxtimestampb", "0000000000000000"},
                                                                 {"cfm.tlv.type", "3;0"},
                                                                 {"cfm.tlv.length", "3"},
                                                                 {"cfm.tlv.data.value", "010203"}});
  };
  Add(To(kPeer), EncodeDmm, dmm, fields("47", "0000000000000000", "0000000000000000"));
  const Buffer message = Hex(Encoded(EncodeDmm, dmm));
  Buffer reply(message.size());
  ASSERT_EQ(MakeDmr(message, when_received, reply), reply.size());
  SetSentB(reply, when_answered);
  AddOctets(To(kPeer), reply, fields("46", "5f5e100100000010", "5f5e100100000020"));

  OneWayDelay one_way;
  one_way.level = 1;
  one_way.proactive = true;
  one_way.sent_f = when_sent;
  Add(To(kPeer), Encode1dm, one_way,
      Joined(Common(kPeerText, "1", "45", "0x01", "16"), {{"cfm.odm.dmm.dmr.txtimestampf", "5f5e1000075bcd15"},
                                                          {"cfm.odm.dmm.dmr.rxtimestampf", "0000000000000000"},
                                                          {"cfm.tlv.type", "0"}}));
}

TEST_F(FramesOnTheWire, AreReadFieldByFieldByAnIndependentDissector) {
  AddCcms();
  AddMaids();
  AddLoopbacks();
  AddLinktraces();
  AddAis();
  AddDelayMeasurements();
  const auto dissected = Dissect(frames_);
  if (!dissected) GTEST_SKIP() << "there is no tshark on this machine";
  ASSERT_EQ(dissected->size(), frames_.size());
  for (std::size_t i = 0; i < frames_.size(); ++i) {
    EXPECT_EQ(dissected->at(i), expected_[i]) << ToHex(frames_[i]);
  }
}

// Else a dissector that complains of nothing would make the test above pass for a frame that is cut.
TEST_F(FramesOnTheWire, AreComplainedAboutWhenTheyAreCut) {
  Buffer pdu = Hex(Encoded(EncodeAis, Ais{}));
  pdu.resize(2);
  AddOctets(ToClass1(0), pdu, {});
  const auto dissected = Dissect(frames_);
  if (!dissected) GTEST_SKIP() << "there is no tshark on this machine";
  ASSERT_EQ(dissected->size(), 1U);
  EXPECT_TRUE(dissected->front().contains("_ws.malformed"));
}

}  // namespace
}  // namespace cfm::pdu
