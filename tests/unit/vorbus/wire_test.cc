#include "wire.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace bus {

// Names the kinds in the messages of failed comparisons.
void PrintTo(const Header& header, std::ostream* stream) {
  *stream << "kind " << static_cast<int>(header.kind) << " to " << header.to << " id " << header.id << " number "
          << header.number;
}

namespace {

using Octets = std::vector<std::byte>;

Octets Encoded(const Header& header, std::size_t payload = 0) {
  Octets message(kHeaderSize + payload);
  EncodeHeader(message.data(), header);
  return message;
}

Octets Golden(std::initializer_list<int> octets) {
  Octets message;
  for (const int octet : octets) {
    message.push_back(static_cast<std::byte>(octet));
  }
  return message;
}

TEST(AHeader, LiesOnTheWireInNetworkOrder) {
  // clang-format off
  EXPECT_EQ(Encoded({Kind::kSignal, 0x01020304, 0x05060708, 0x090a0b0c}),
            Golden({0x76, 1, 3, 0,  1, 2, 3, 4,  5, 6, 7, 8,  9, 10, 11, 12}));
  // clang-format on
}

TEST(AHeader, KeepsItsKindsNumbers) {
  EXPECT_EQ(static_cast<int>(Kind::kHello), 1);
  EXPECT_EQ(static_cast<int>(Kind::kReady), 2);
  EXPECT_EQ(static_cast<int>(Kind::kSignal), 3);
  EXPECT_EQ(static_cast<int>(Kind::kEvent), 4);
  EXPECT_EQ(static_cast<int>(Kind::kTaken), 5);
}

TEST(AHeader, ComesBackAsItWas) {
  for (const std::uint32_t value : {0U, 1U, 0x7fU, 0x80U, 0xffU, 0x100U, 0xffffU, 0x10000U, 0x7fffffffU, 0xffffffffU}) {
    for (const Kind kind : {Kind::kReady, Kind::kSignal, Kind::kEvent, Kind::kTaken}) {
      const Header header{kind, value, ~value, value ^ 0x55555555U};
      EXPECT_EQ(DecodeHeader(Encoded(header)), header);
    }
  }
}

TEST(AMessage, IsRefusedWhenItsHeaderIsCut) {
  const Octets whole = Encoded({Kind::kSignal, 1, 2, 3});
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_EQ(DecodeHeader(std::span(whole).first(size)), std::nullopt) << size;
  }
}

TEST(AMessage, IsRefusedWhenAFixedOctetDiffers) {
  for (const std::size_t place : {0U, 1U, 3U}) {
    for (int value = 0; value < 256; ++value) {
      Octets message = Encoded({Kind::kSignal, 1, 2, 3});
      const bool is_right = message[place] == static_cast<std::byte>(value);
      message[place] = static_cast<std::byte>(value);
      EXPECT_EQ(DecodeHeader(message).has_value(), is_right) << place << ' ' << value;
    }
  }
}

TEST(AMessage, IsRefusedWhenItsKindIsUnknown) {
  for (int kind = 0; kind < 256; ++kind) {
    Octets message = Encoded({Kind::kSignal, 1, 0, 0});
    message[2] = static_cast<std::byte>(kind);
    EXPECT_EQ(DecodeHeader(message).has_value(), kind >= 1 && kind <= 5) << kind;
  }
}

TEST(AMessage, IsRefusedWhenItsKindHasNoPayload) {
  for (const Kind kind : {Kind::kReady, Kind::kTaken}) {
    EXPECT_TRUE(DecodeHeader(Encoded({kind, 1, 2, 3}, 0)));
    EXPECT_FALSE(DecodeHeader(Encoded({kind, 1, 2, 3}, 1)));
  }
}

TEST(AHello, HasAsManyEventsAsItSays) {
  for (const std::uint32_t count : {0U, 1U, 2U, 100U, 65536U}) {
    const std::size_t size = HelloEventsSize(count);
    EXPECT_TRUE(DecodeHeader(Encoded({Kind::kHello, 0, 1, count}, size))) << count;
    EXPECT_FALSE(DecodeHeader(Encoded({Kind::kHello, 0, 1, count}, size + 1))) << count;
    EXPECT_FALSE(DecodeHeader(Encoded({Kind::kHello, 0, 1, count + 1}, size))) << count;
    if (size > 0) {
      EXPECT_FALSE(DecodeHeader(Encoded({Kind::kHello, 0, 1, count}, size - 1))) << count;
    }
  }
}

TEST(AHello, HasABoundedNumberOfEvents) {
  EXPECT_FALSE(DecodeHeader(Encoded({Kind::kHello, 0, 1, 65537}, HelloEventsSize(65537))));
  // A count whose size would wrap around in 32 bits.
  EXPECT_FALSE(DecodeHeader(Encoded({Kind::kHello, 0, 1, 0x20000000}, 0)));
  EXPECT_FALSE(DecodeHeader(Encoded({Kind::kHello, 0, 1, 0xffffffff}, HelloEventsSize(1))));
}

TEST(AHello, CarriesItsEventsAsGroupAndNumber) {
  const std::vector<std::uint64_t> events{Identity(0x01020304, 5), Identity(6, 0xfffefdfc)};
  Octets message = Encoded({Kind::kHello, 0, 7, 2}, HelloEventsSize(2));
  EncodeHelloEvents(message.data() + kHeaderSize, events);
  // clang-format off
  EXPECT_EQ(message, Golden({0x76, 1, 1, 0,  0, 0, 0, 0,  0, 0, 0, 7,  0, 0, 0, 2,
                             1, 2, 3, 4,  0, 0, 0, 5,
                             0, 0, 0, 6,  0xff, 0xfe, 0xfd, 0xfc}));
  // clang-format on
  EXPECT_EQ(DecodeHelloEvents(message), events);
}

TEST(AMessage, OfRandomOctetsIsNeverReadBeyondItsEnd) {
  std::mt19937 random(20261120);  // the sanitizers watch
  std::uniform_int_distribution<int> octet(0, 255);
  int decoded = 0;
  for (int round = 0; round < 100000; ++round) {
    const std::size_t size = std::uniform_int_distribution<std::size_t>(0, 64)(random);
    const auto message = std::make_unique<std::byte[]>(size);
    for (std::size_t place = 0; place < size; ++place) {
      message[place] = static_cast<std::byte>(octet(random));
    }
    // Half of them get far enough to be looked into.
    if (size >= 4 && round % 2 == 0) {
      message[0] = std::byte{kWireMagic};
      message[1] = std::byte{kWireVersion};
      message[2] = static_cast<std::byte>(round % 14 / 2);
      message[3] = std::byte{0};
    }
    if (size >= kHeaderSize && round % 4 == 0) {
      PutU32(&message[12], static_cast<std::uint32_t>(octet(random) % 8));
    }
    const std::span<const std::byte> octets(message.get(), size);
    const auto header = DecodeHeader(octets);
    decoded += header ? 1 : 0;
    if (header && header->kind == Kind::kHello) {
      EXPECT_EQ(DecodeHelloEvents(octets).size(), header->number);
    }
  }
  EXPECT_GT(decoded, 1000);
}

}  // namespace
}  // namespace bus
