// Any octets: a decoder refuses them with an offset inside of them, or hands out a record that, encoded and decoded
// again, is the same.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "pdu/ais.h"
#include "pdu/ccm.h"
#include "pdu/delay.h"
#include "pdu/ethernet.h"
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

/// Encoders write no more than was in the frame but for an End TLV, and the octet by which a Sender ID says that it has
/// no management address.
std::size_t RoomFor(Octets input) {
  return input.size() + 2;
}

template <typename Record>
bool IsRefused(const pdu::Decoded<Record>& decoded, Octets input) {
  if (decoded) return false;
  Require(decoded.error().offset <= input.size());
  Require(std::strcmp(pdu::ToText(decoded.error().problem), "unknown problem") != 0);
  return true;
}

template <typename Decode, typename Encode>
void CheckDecoder(Octets input, Decode decode, Encode encode) {
  const auto first = decode(input);
  if (IsRefused(first, input)) return;
  std::vector<std::uint8_t> buffer(RoomFor(input));
  const std::size_t size = encode(*first, buffer);
  Require(size > 0);
  const auto second = decode(Octets(buffer).first(size));
  Require(static_cast<bool>(second));
  Require(Same(*first, *second));
}

}  // namespace

void FuzzEthernet(Octets input) {
  const auto first = pdu::DecodeEthernet(input);
  if (!IsRefused(first, input)) {
    std::array<std::uint8_t, pdu::kLongestEthernetHeader> buffer{};
    const std::size_t size = pdu::EncodeEthernet(first->header, buffer);
    Require(size + first->pdu.size() == input.size());
    Require(Same(Octets(buffer).first(size), input.first(size)));
  }
  if (input.size() < 4) return;
  const pdu::StrippedTag stripped{.tpid = static_cast<std::uint16_t>(input[0] << 8 | input[1]),
                                  .tci = static_cast<std::uint16_t>(input[2] << 8 | input[3])};
  const auto tagged = pdu::DecodeEthernet(input.subspan(4), stripped);
  if (IsRefused(tagged, input.subspan(4))) return;
  Require(tagged->header.outer == pdu::FromTci(stripped.tci));
  Require(pdu::ToTci(*tagged->header.outer) == stripped.tci);
}

void FuzzHeader(Octets input) {
  const auto header = pdu::DecodeHeader(input);
  if (IsRefused(header, input)) return;
  std::array<std::uint8_t, pdu::kHeaderSize> buffer{};
  pdu::Writer writer(buffer);
  pdu::WriteHeader(writer, *header);
  Require(Same(Octets(buffer), input.first(pdu::kHeaderSize)));
}

void FuzzCcm(Octets input) {
  const auto first = pdu::DecodeCcm(input);
  if (IsRefused(first, input)) return;
  const std::string text = pdu::ToText(first->maid);
  Require(std::ranges::all_of(text, [](unsigned char character) { return character >= 32 && character <= 126; }));
  std::array<std::uint8_t, pdu::kLongestCcm> buffer{};
  const std::size_t size = pdu::EncodeCcm(*first, buffer);
  Require(size >= pdu::kShortestCcm);
  const auto second = pdu::DecodeCcm(Octets(buffer).first(size));
  Require(static_cast<bool>(second));
  // A long Sender ID is left out.
  pdu::Ccm expected = *first;
  if (!second->sender_id) expected.sender_id.reset();
  Require(Same(expected, *second));
}

void FuzzLbm(Octets input) {
  CheckDecoder(input, pdu::DecodeLbm, pdu::EncodeLbm);
  const auto request = pdu::DecodeLbm(input);
  if (!request) return;
  std::vector<std::uint8_t> reply(input.size());
  Require(pdu::MakeLbr(input, std::span(reply).first(reply.size() - 1)) == 0);
  Require(pdu::MakeLbr(input, reply) == input.size());
  const auto decoded = pdu::DecodeLbr(reply);
  Require(static_cast<bool>(decoded));
  Require(Same(*request, *decoded));
}

void FuzzLbr(Octets input) {
  const auto reply = pdu::DecodeLbr(input);
  if (IsRefused(reply, input)) return;
  std::vector<std::uint8_t> request(input.begin(), input.end());
  request[1] = static_cast<std::uint8_t>(pdu::Opcode::kLbm);
  Require(Same(*reply, *pdu::DecodeLbm(request)));
}

void FuzzLtm(Octets input) {
  CheckDecoder(input, pdu::DecodeLtm, pdu::EncodeLtm);
}

void FuzzLtr(Octets input) {
  CheckDecoder(input, pdu::DecodeLtr, pdu::EncodeLtr);
}

void FuzzAis(Octets input) {
  CheckDecoder(input, pdu::DecodeAis, pdu::EncodeAis);
}

void FuzzDmm(Octets input) {
  constexpr pdu::TimeStamp kStamp{.seconds = 0x01020304, .nanoseconds = 0x05060708};
  CheckDecoder(input, pdu::DecodeDmm, pdu::EncodeDmm);
  const auto request = pdu::DecodeDmm(input);
  if (!request) return;
  std::vector<std::uint8_t> reply(input.size());
  Require(pdu::MakeDmr(input, kStamp, std::span(reply).first(reply.size() - 1)) == 0);
  Require(pdu::MakeDmr(input, kStamp, reply) == input.size());
  pdu::SetSentB(reply, kStamp);
  const auto decoded = pdu::DecodeDmr(reply);
  Require(static_cast<bool>(decoded));
  pdu::TwoWayDelay expected = *request;
  expected.received_f = kStamp;
  expected.sent_b = kStamp;
  Require(Same(expected, *decoded));
}

void FuzzDmr(Octets input) {
  const auto reply = pdu::DecodeDmr(input);
  if (IsRefused(reply, input)) return;
  std::vector<std::uint8_t> request(input.begin(), input.end());
  request[1] = static_cast<std::uint8_t>(pdu::Opcode::kDmm);
  Require(Same(*reply, *pdu::DecodeDmm(request)));
}

void Fuzz1dm(Octets input) {
  CheckDecoder(input, pdu::Decode1dm, pdu::Encode1dm);
}

}  // namespace cfm::fuzz
