// What a decoder hands out: the record, or what is wrong with the octets and where.
#ifndef CFM_SERVER_PDU_DECODED_H
#define CFM_SERVER_PDU_DECODED_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <variant>

namespace cfm::pdu {

/// Octets that belong to somebody else. Those in a decoded record lie in the frame that it was decoded from, and are
/// good for as long as it is.
using Octets = std::span<const std::uint8_t>;

enum class Problem : std::uint8_t {
  kTooShort,        ///< the frame ends before its fixed fields, or before the place where its first TLV should be
  kOpcode,          ///< not the opcode of this decoder
  kFirstTlvOffset,  ///< the first TLV would lie inside of the fixed fields
  kTlvOverrun,      ///< a TLV runs past the end of the frame
  kTlvTooShort,     ///< a TLV ends before the fields of its type do
  kValue,           ///< a fixed field holds a value that has no meaning
  kTags,            ///< VLAN tags in a form that is not in use here
  kEtherType,       ///< not a CFM frame
};

/// One value past the last: the size of a table with an entry for each problem.
inline constexpr std::size_t kProblemCount = static_cast<std::size_t>(Problem::kEtherType) + 1;

/// A few words for log lines and counters ("TLV runs past the frame").
const char* ToText(Problem problem);

struct Error {
  Problem problem;
  /// Where the field in question begins, counted from the first octet that the decoder was given.
  std::size_t offset;

  bool operator==(const Error&) const = default;
};

template <typename Record>
class [[nodiscard]] Decoded {
 public:
  // Implicit: decoders return either one.
  Decoded(Record record) : content_(std::move(record)) {}
  Decoded(Error error) : content_(error) {}

  explicit operator bool() const { return std::holds_alternative<Record>(content_); }

  /// Only with a record inside.
  const Record& operator*() const { return *std::get_if<Record>(&content_); }
  const Record* operator->() const { return std::get_if<Record>(&content_); }

  /// Only without one.
  const Error& error() const { return *std::get_if<Error>(&content_); }

 private:
  std::variant<Record, Error> content_;
};

}  // namespace cfm::pdu

#endif
