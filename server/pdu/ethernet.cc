#include "pdu/ethernet.h"

#include <algorithm>

#include "pdu/header.h"
#include "pdu/reader.h"
#include "pdu/writer.h"

namespace cfm::pdu {
namespace {

constexpr unsigned kPriorityShift = 13;
constexpr std::uint16_t kDropEligible = 0x1000;
constexpr std::uint16_t kVidMask = 0x0fff;
constexpr std::size_t kTypeOffset = 12;

constexpr MacAddress kGroupBase = {0x01, 0x80, 0xc2, 0x00, 0x00, 0x30};
constexpr std::uint8_t kClass2 = 0x08;

bool IsTpid(std::uint16_t value) {
  return value == kTpidCustomer || value == kTpidService;
}

}  // namespace

std::uint16_t ToTci(const Tag& tag) {
  return static_cast<std::uint16_t>(tag.priority << kPriorityShift | (tag.drop_eligible ? kDropEligible : 0) |
                                    (tag.vid & kVidMask));
}

Tag FromTci(std::uint16_t tci) {
  return {.priority = static_cast<std::uint8_t>(tci >> kPriorityShift),
          .drop_eligible = (tci & kDropEligible) != 0,
          .vid = static_cast<std::uint16_t>(tci & kVidMask)};
}

Decoded<EthernetFrame> DecodeEthernet(Octets frame, const std::optional<StrippedTag>& stripped) {
  Reader reader(frame);
  EthernetFrame decoded;
  decoded.header.destination = reader.mac();
  decoded.header.source = reader.mac();

  std::optional<StrippedTag> outer = stripped;
  std::optional<StrippedTag> inner;
  std::uint16_t type = reader.u16();
  while (IsTpid(type)) {
    if (inner) return Error{Problem::kTags, kTypeOffset};
    (outer ? inner : outer) = StrippedTag{.tpid = type, .tci = reader.u16()};
    type = reader.u16();
  }
  if (!reader.ok()) return Error{Problem::kTooShort, reader.offset()};
  if (type != kEtherTypeCfm) return Error{Problem::kEtherType, reader.offset() - sizeof type};

  if (outer && outer->tpid != (inner ? kTpidService : kTpidCustomer)) return Error{Problem::kTags, kTypeOffset};
  if (inner && inner->tpid != kTpidCustomer) return Error{Problem::kTags, kTypeOffset};
  if (outer) decoded.header.outer = FromTci(outer->tci);
  if (inner) decoded.header.inner = FromTci(inner->tci);
  decoded.pdu = reader.octets(reader.remaining());
  return decoded;
}

std::size_t EncodeEthernet(const EthernetHeader& header, std::span<std::uint8_t> buffer) {
  Writer writer(buffer);
  writer.mac(header.destination);
  writer.mac(header.source);
  if (header.outer) {
    writer.u16(header.inner ? kTpidService : kTpidCustomer);
    writer.u16(ToTci(*header.outer));
    if (header.inner) {
      writer.u16(kTpidCustomer);
      writer.u16(ToTci(*header.inner));
    }
  }
  writer.u16(kEtherTypeCfm);
  return writer.size();
}

MacAddress ToAddress(const GroupAddress& group) {
  MacAddress address = kGroupBase;
  address.back() |=
      static_cast<std::uint8_t>((group.group_class == GroupClass::k2 ? kClass2 : 0) | (group.level & kHighestLevel));
  return address;
}

std::optional<GroupAddress> ToGroupAddress(const MacAddress& address) {
  const GroupAddress group{.group_class = (address.back() & kClass2) != 0 ? GroupClass::k2 : GroupClass::k1,
                           .level = static_cast<std::uint8_t>(address.back() & kHighestLevel)};
  if (ToAddress(group) != address) return std::nullopt;
  return group;
}

}  // namespace cfm::pdu
