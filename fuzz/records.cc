// Any record: what an encoder writes, the decoder reads back. The input is what the fields are drawn from.
#include <algorithm>
#include <array>
#include <vector>

#include "pdu/ais.h"
#include "pdu/ccm.h"
#include "pdu/delay.h"
#include "pdu/header.h"
#include "pdu/linktrace.h"
#include "pdu/loopback.h"
#include "pdu/maid.h"
#include "require.h"
#include "same.h"
#include "targets.h"

namespace cfm::fuzz {
namespace {

using pdu::Octets;

constexpr std::size_t kRoom = 4096;

/// Values from the input, zeros when it is used up.
class Draw {
 public:
  explicit Draw(Octets input) : input_(input) {}

  std::uint8_t u8() {
    if (input_.empty()) return 0;
    const std::uint8_t value = input_.front();
    input_ = input_.subspan(1);
    return value;
  }
  std::uint8_t below(unsigned bound) { return static_cast<std::uint8_t>(u8() % bound); }
  bool flag() { return below(2) == 1; }
  std::uint16_t u16() { return static_cast<std::uint16_t>(u8() << 8 | u8()); }
  std::uint32_t u32() { return static_cast<std::uint32_t>(u16()) << 16 | u16(); }
  pdu::MacAddress mac() {
    pdu::MacAddress address{};
    std::ranges::generate(address, [this] { return u8(); });
    return address;
  }
  Octets octets(std::size_t count) {
    const Octets drawn = input_.first(std::min(count, input_.size()));
    input_ = input_.subspan(drawn.size());
    return drawn;
  }
  Octets some_octets() { return octets(u8()); }

 private:
  Octets input_;
};

std::optional<pdu::SenderId> DrawSenderId(Draw& draw) {
  if (!draw.flag()) return std::nullopt;
  pdu::SenderId sender_id;
  sender_id.chassis_id = draw.some_octets();
  if (!sender_id.chassis_id.empty()) sender_id.chassis_subtype = draw.u8();
  sender_id.management_domain = draw.some_octets();
  if (!sender_id.management_domain.empty()) sender_id.management_address = draw.some_octets();
  return sender_id;
}

/// Octets of the TLV, type and length included.
std::size_t SizeOf(const std::optional<pdu::SenderId>& sender_id) {
  if (!sender_id) return 0;
  const auto with_length = [](Octets octets, std::size_t more) { return octets.empty() ? 0 : octets.size() + more; };
  return 3 + 1 + with_length(sender_id->chassis_id, 1) + 1 + with_length(sender_id->management_domain, 1) +
         sender_id->management_address.size();
}

pdu::EgressIdentifier DrawEgressIdentifier(Draw& draw) {
  pdu::EgressIdentifier identifier;
  identifier.unique_id = draw.u16();
  identifier.address = draw.mac();
  return identifier;
}

std::optional<pdu::ReplyPort> DrawReplyPort(Draw& draw) {
  if (!draw.flag()) return std::nullopt;
  pdu::ReplyPort port;
  port.action = static_cast<pdu::ReplyAction>(1 + draw.below(4));
  port.address = draw.mac();
  port.port_id = draw.some_octets();
  if (!port.port_id.empty()) port.port_subtype = draw.u8();
  return port;
}

pdu::TimeStamp DrawStamp(Draw& draw) {
  pdu::TimeStamp stamp;
  stamp.seconds = draw.u32();
  stamp.nanoseconds = draw.u32();
  return stamp;
}

template <typename Record>
Record WithLevel(Draw& draw) {
  Record record;
  record.level = draw.below(8);
  record.version = draw.below(32);
  return record;
}

/// Into a buffer of exactly the needed size, so that a write beyond it is seen; one octet less must be refused.
template <typename Record, typename Encode, typename Decode>
void CheckRoundTrip(const Record& record, Encode encode, Decode decode) {
  std::vector<std::uint8_t> buffer(kRoom);
  const std::size_t size = encode(record, buffer);
  Require(size > 0);
  std::vector<std::uint8_t> exact(size);
  Require(encode(record, exact) == size);
  const auto decoded = decode(Octets(exact));
  Require(static_cast<bool>(decoded));
  Require(Same(record, *decoded));
  std::vector<std::uint8_t> short_by_one(size - 1);
  Require(encode(record, short_by_one) == 0);
}

void CheckCcm(Draw& draw) {
  auto ccm = WithLevel<pdu::Ccm>(draw);
  ccm.rdi = draw.flag();
  ccm.interval = draw.below(8);
  ccm.sequence_number = draw.u32();
  ccm.mep_id = draw.u16() & 0x1fff;
  std::ranges::generate(ccm.maid.octets, [&draw] { return draw.u8(); });
  ccm.port_status = static_cast<pdu::PortStatus>(draw.below(3));
  ccm.interface_status = static_cast<pdu::InterfaceStatus>(draw.below(8));
  CheckRoundTrip(ccm, pdu::EncodeCcm, pdu::DecodeCcm);

  ccm.sender_id = DrawSenderId(draw);
  const std::size_t size = pdu::kShortestCcm + (ccm.port_status == pdu::PortStatus::kNone ? 0 : 4) +
                           (ccm.interface_status == pdu::InterfaceStatus::kNone ? 0 : 4);
  const std::size_t size_with_sender_id = size + SizeOf(ccm.sender_id);
  const bool fits = size_with_sender_id <= pdu::kLongestCcm;
  std::array<std::uint8_t, kRoom> buffer{};
  Require(pdu::EncodeCcm(ccm, buffer) == (fits ? size_with_sender_id : size));
  const auto decoded = pdu::DecodeCcm(Octets(buffer).first(fits ? size_with_sender_id : size));
  Require(static_cast<bool>(decoded));
  if (!fits) ccm.sender_id.reset();
  Require(Same(ccm, *decoded));
}

void CheckLbm(Draw& draw) {
  auto lbm = WithLevel<pdu::Loopback>(draw);
  lbm.transaction_id = draw.u32();
  lbm.sender_id = DrawSenderId(draw);
  lbm.data = draw.some_octets();
  CheckRoundTrip(lbm, pdu::EncodeLbm, pdu::DecodeLbm);
}

void CheckLtm(Draw& draw) {
  auto ltm = WithLevel<pdu::Ltm>(draw);
  ltm.use_fdb_only = draw.flag();
  ltm.transaction_id = draw.u32();
  ltm.ttl = draw.u8();
  ltm.original_address = draw.mac();
  ltm.target_address = draw.mac();
  if (draw.flag()) ltm.egress_identifier = DrawEgressIdentifier(draw);
  ltm.sender_id = DrawSenderId(draw);
  CheckRoundTrip(ltm, pdu::EncodeLtm, pdu::DecodeLtm);
}

void CheckLtr(Draw& draw) {
  auto ltr = WithLevel<pdu::Ltr>(draw);
  ltr.use_fdb_only = draw.flag();
  ltr.forwarded = draw.flag();
  ltr.terminal_mep = draw.flag();
  ltr.transaction_id = draw.u32();
  ltr.ttl = draw.u8();
  ltr.relay_action = static_cast<pdu::RelayAction>(1 + draw.below(3));
  if (draw.flag()) {
    const pdu::EgressIdentifier last = DrawEgressIdentifier(draw);
    ltr.egress_identifiers = {.last = last, .next = DrawEgressIdentifier(draw)};
  }
  ltr.ingress = DrawReplyPort(draw);
  ltr.egress = DrawReplyPort(draw);
  ltr.sender_id = DrawSenderId(draw);
  CheckRoundTrip(ltr, pdu::EncodeLtr, pdu::DecodeLtr);
}

void CheckAis(Draw& draw) {
  auto ais = WithLevel<pdu::Ais>(draw);
  ais.period = draw.flag() ? pdu::AisPeriod::k1s : pdu::AisPeriod::k1min;
  CheckRoundTrip(ais, pdu::EncodeAis, pdu::DecodeAis);
}

void CheckDmm(Draw& draw) {
  auto dmm = WithLevel<pdu::TwoWayDelay>(draw);
  dmm.proactive = draw.flag();
  dmm.sent_f = DrawStamp(draw);
  dmm.received_f = DrawStamp(draw);
  dmm.sent_b = DrawStamp(draw);
  dmm.received_b = DrawStamp(draw);
  dmm.data = draw.some_octets();
  CheckRoundTrip(dmm, pdu::EncodeDmm, pdu::DecodeDmm);
}

void Check1dm(Draw& draw) {
  auto message = WithLevel<pdu::OneWayDelay>(draw);
  message.proactive = draw.flag();
  message.sent_f = DrawStamp(draw);
  message.received_f = DrawStamp(draw);
  message.data = draw.some_octets();
  CheckRoundTrip(message, pdu::Encode1dm, pdu::Decode1dm);
}

}  // namespace

void FuzzRecords(Octets input) {
  constexpr std::array kChecks = {CheckCcm, CheckLbm, CheckLtm, CheckLtr, CheckAis, CheckDmm, Check1dm};
  Draw draw(input);
  kChecks.at(draw.below(kChecks.size()))(draw);
}

/// Two formats, the length of the first name, both names.
void FuzzMaid(Octets input) {
  Draw draw(input);
  const std::uint32_t md_format = draw.below(6);
  const std::uint32_t ma_format = draw.below(34);
  const Octets md_octets = draw.some_octets();
  const Octets ma_octets = draw.octets(input.size());
  const std::string md_name(md_octets.begin(), md_octets.end());
  const std::string ma_name(ma_octets.begin(), ma_octets.end());
  const auto encoded = pdu::EncodeMaid({md_format, md_name, ma_format, ma_name});
  if (const auto* reason = std::get_if<std::string>(&encoded)) {
    Require(!reason->empty());
    return;
  }
  const auto& maid = std::get<pdu::Maid>(encoded);
  Require(maid.octets[0] == md_format);
  const std::string text = pdu::ToText(maid);
  Require(std::ranges::all_of(text, [](unsigned char character) { return character >= 32 && character <= 126; }));
}

}  // namespace cfm::fuzz
