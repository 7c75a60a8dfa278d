// Whatever octets arrive: every callback does with them exactly what the message says that the parser makes of them,
// and nothing else happens. Meant to run under the sanitizers too.
//
// Random parts start from a seed that is printed; CFM_SEED=<number> repeats a run.
#include <gmock/gmock.h>
#include <google/protobuf/message.h>
#include <google/protobuf/stubs/logging.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <limits>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "client_server.pb.h"
#include "expected_events.h"
#include "noting_handlers.h"

namespace {

using recording::Journal;
using recording::Kind;
namespace pb = client_server;

enum class WithoutHandler { kSilent, kLogs };
enum class Unparseable { kDelivered, kFatal };

struct Callback {
  std::string name;
  std::function<int(recording::Middleware&, const std::string&)> deliver;
  const google::protobuf::Message* prototype;
  std::function<Journal(const std::string&)> expected;  // none for the cache reply, which is not only delivered
  WithoutHandler without_handler;
  Unparseable unparseable;
};

void PrintTo(const Callback& callback, std::ostream* out) {
  *out << callback.name;
}

template <typename Message, typename Identity>
Callback Make(const char* name, const Identity* identity, WithoutHandler without_handler = WithoutHandler::kLogs,
              Unparseable unparseable = Unparseable::kDelivered) {
  Callback callback = {name,
                       [identity](recording::Middleware& middleware, const std::string& octets) {
                         return middleware.Deliver(identity, octets);
                       },
                       &Message::default_instance(),
                       nullptr,
                       without_handler,
                       unparseable};
  if constexpr (!std::is_same_v<Message, pb::OpCacheSync>) {
    callback.expected = [](const std::string& octets) {
      Message message;
      static_cast<void>(message.ParseFromString(octets));
      return recording::Expected(message);
    };
  }
  return callback;
}

const std::vector<Callback>& Callbacks() {
  static const std::vector<Callback> callbacks = {
      Make<pb::OpCacheSync>("ReqCacheReply", CFM_MGR_S2C_SIG_CACHE_REPLY),
      Make<pb::OpReplyAllStats>("ReqStatsReply", CFM_MGR_S2C_SIG_STATS_REPLY, WithoutHandler::kSilent),
      Make<pb::OpLinktraceTriggerError>("HandleLinktraceTriggerError", CFM_MGR_S2C_SIG_LT_TRIGGER_ERROR),
      Make<pb::OpLoopbackTriggerError>("HandleLoopbackTriggerError", CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR),
      Make<pb::OpDelayMeasurementTriggerError>("HandleDelayMeasurementTriggerError", CFM_MGR_S2C_SIG_DM_TRIGGER_ERROR),
      Make<pb::StatusLocalMaintenanceEndpoint>("HandleStatusLocalMep", CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP,
                                               WithoutHandler::kSilent),
      Make<pb::StatusRemoteMaintenanceEndpoint>("HandleStatusRemoteMep", CFM_MGR_SRV_EVENT_STATUS_REMOTE_MEP,
                                                WithoutHandler::kSilent),
      Make<pb::RemovedLocalMaintenanceEndpoint>("HandleRemovedLocalMep", CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP,
                                                WithoutHandler::kSilent),
      Make<pb::RemovedRemoteMaintenanceEndpoint>("HandleRemovedRemoteMep", CFM_MGR_SRV_EVENT_REMOVED_REMOTE_MEP,
                                                 WithoutHandler::kSilent),
      Make<pb::OpLinktraceStarted>("HandleMepLinktraceStarted", CFM_MGR_SRV_EVENT_LINKTRACE_STARTED,
                                   WithoutHandler::kLogs, Unparseable::kFatal),
      Make<pb::OpLinktraceReplyRx>("HandleMepLinktraceReplyRx", CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX,
                                   WithoutHandler::kLogs, Unparseable::kFatal),
      Make<pb::OpLinktraceEnded>("HandleMepLinktraceEnded", CFM_MGR_SRV_EVENT_LINKTRACE_ENDED, WithoutHandler::kLogs,
                                 Unparseable::kFatal),
      Make<pb::OpLoopbackStarted>("HandleLoopbackStarted", CFM_MGR_SRV_EVENT_LOOPBACK_STARTED),
      Make<pb::OpLoopbackReplyRx>("HandleLoopbackReplyRx", CFM_MGR_SRV_EVENT_LOOPBACK_REPLY_RX),
      Make<pb::OpLoopbackEnded>("HandleLoopbackEnded", CFM_MGR_SRV_EVENT_LOOPBACK_ENDED),
      Make<pb::OpDelayMeasurementStarted>("HandleDelayMeasurementStarted", CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_STARTED),
      Make<pb::OpDelayMeasurementReplyRx>("HandleDelayMeasurementReplyRx",
                                          CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_REPLY_RX),
      Make<pb::OpDelayMeasurementEnded>("HandleDelayMeasurementEnded", CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_ENDED),
      Make<pb::OpDelayMeasurementSessionEnded>("HandleDelayMeasurementSessionEnded",
                                               CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_SESSION_ENDED,
                                               WithoutHandler::kSilent),
  };
  return callbacks;
}

// ---- Payloads ----

class Generator {
 public:
  explicit Generator(std::uint64_t seed) : engine_(seed) {}

  std::size_t Below(std::size_t limit) { return std::uniform_int_distribution<std::size_t>(0, limit - 1)(engine_); }
  bool OneIn(std::size_t n) { return Below(n) == 0; }
  char Octet() { return static_cast<char>(Below(256)); }

  std::string Octets(std::size_t length) {
    std::string octets(length, '\0');
    std::generate(octets.begin(), octets.end(), [this] { return Octet(); });
    return octets;
  }

  std::uint64_t Number() {
    constexpr std::array<std::uint64_t, 14> kEdges = {
        0,     1,          127,        128,        255,         256,        65535,
        65536, 0x7fffffff, 0x80000000, 0xffffffff, 0x100000000, 1ULL << 63, std::numeric_limits<std::uint64_t>::max()};
    return OneIn(3) ? engine_() : kEdges[Below(kEdges.size())];
  }

  // Every field present with that chance in percent, each value drawn from the edges of its range or at random.
  void Fill(google::protobuf::Message& message, std::size_t percent) {
    using google::protobuf::FieldDescriptor;
    const google::protobuf::Descriptor& type = *message.GetDescriptor();
    const google::protobuf::Reflection& reflection = *message.GetReflection();
    for (int i = 0; i < type.field_count(); ++i) {
      const FieldDescriptor* field = type.field(i);
      if (field->is_repeated()) {
        FillRepeated(message, *field, percent);
        continue;
      }
      if (Below(100) >= percent) {
        continue;
      }
      switch (field->cpp_type()) {
        case FieldDescriptor::CPPTYPE_UINT32:
          reflection.SetUInt32(&message, field, static_cast<std::uint32_t>(Number()));
          break;
        case FieldDescriptor::CPPTYPE_UINT64:
          reflection.SetUInt64(&message, field, Number());
          break;
        case FieldDescriptor::CPPTYPE_BOOL:
          reflection.SetBool(&message, field, OneIn(2));
          break;
        case FieldDescriptor::CPPTYPE_DOUBLE:
          reflection.SetDouble(&message, field, static_cast<double>(Number()) / 3);
          break;
        case FieldDescriptor::CPPTYPE_STRING:
          reflection.SetString(&message, field, OneIn(2) ? Octets(6) : Octets(Below(40)));
          break;
        case FieldDescriptor::CPPTYPE_MESSAGE:
          Fill(*reflection.MutableMessage(&message, field), percent);
          break;
        default:
          ADD_FAILURE() << "no values are drawn for " << field->full_name();
      }
    }
  }

  // The message with some octets changed, inserted, removed or cut off at the end.
  std::string Bent(std::string octets) {
    for (std::size_t changes = 1 + Below(4); changes > 0; --changes) {
      const std::size_t at = Below(octets.size() + 1);
      switch (Below(4)) {
        case 0:
          octets.insert(at, 1, Octet());
          break;
        case 1:
          octets.erase(at, 1 + Below(3));
          break;
        case 2:
          octets.resize(at);
          break;
        default:
          if (at < octets.size()) {
            octets[at] = Octet();
          }
      }
    }
    return octets;
  }

 private:
  void FillRepeated(google::protobuf::Message& message, const google::protobuf::FieldDescriptor& field,
                    std::size_t percent) {
    const google::protobuf::Reflection& reflection = *message.GetReflection();
    const std::size_t count = 1 + Below(3);
    for (std::size_t i = 0; i < count; ++i) {
      if (field.cpp_type() == google::protobuf::FieldDescriptor::CPPTYPE_MESSAGE) {
        Fill(*reflection.AddMessage(&message, &field), percent);
      } else {
        reflection.AddUInt32(&message, &field, static_cast<std::uint32_t>(Number()));
      }
    }
  }

  std::mt19937_64 engine_;
};

std::uint64_t Seed() {
  static const std::uint64_t seed = [] {
    const char* given = std::getenv("CFM_SEED");
    const std::uint64_t chosen = given != nullptr ? std::strtoull(given, nullptr, 0) : std::random_device()();
    std::cout << "CFM_SEED=" << chosen << std::endl;
    return chosen;
  }();
  return seed;
}

// ---- The tests ----

class ACallback : public testing::TestWithParam<Callback> {
 protected:
  ACallback() {
    google::protobuf::SetLogHandler(nullptr);  // debug builds complain about names that are not UTF-8
    scene.RegisterAll();
    scene.middleware.Find(7);
    scene.middleware.Take();
  }

  bool Parses(const std::string& octets) const {
    const std::unique_ptr<google::protobuf::Message> message(GetParam().prototype->New());
    return message->ParseFromString(octets);
  }

  std::string Full() { return Drawn(100); }

  std::string Drawn(std::size_t percent) {
    const std::unique_ptr<google::protobuf::Message> message(GetParam().prototype->New());
    generator.Fill(*message, percent);
    return message->SerializeAsString();
  }

  // Delivers what may be delivered without ending the process and compares everything that happens.
  void Feed(const std::string& octets) {
    if (GetParam().unparseable == Unparseable::kFatal && !Parses(octets)) {
      ++withheld;
      return;
    }
    ++fed;
    scene.middleware.Take();
    ASSERT_EQ(GetParam().deliver(scene.middleware, octets), 1);
    const Journal journal = scene.middleware.Take();
    if (!GetParam().expected) {
      EXPECT_TRUE(recording::Only(journal, {Kind::kFault, Kind::kBacktrace}).empty());
      return;
    }
    Journal expected = GetParam().expected(octets);
    if (!handlers_registered) {
      expected = GetParam().without_handler == WithoutHandler::kSilent
                     ? Journal()
                     : recording::Only(expected, {Kind::kLog, Kind::kLevelQuery});
    }
    EXPECT_TRUE(Same(journal, expected)) << recording::Quoted(octets);
  }

  void ExpectTheClientToWork() {
    scene.middleware.Take();
    scene.client.RequestStatistics();
    EXPECT_EQ(recording::Only(scene.middleware.Take(), {Kind::kSend}),
              (Journal{recording::Sent(CFM_MGR_C2S_SIG_STATS_GET, 7)}));
  }

  recording::ClientUnderTest scene;
  Generator generator{Seed()};
  bool handlers_registered = true;
  int fed = 0;
  int withheld = 0;
};

INSTANTIATE_TEST_SUITE_P(, ACallback, testing::ValuesIn(Callbacks()),
                         [](const testing::TestParamInfo<Callback>& instance) { return instance.param.name; });

constexpr int kRounds = 1000;

TEST_P(ACallback, TakesAnEmptyPayload) {
  ASSERT_TRUE(Parses(""));
  Feed("");
  EXPECT_EQ(fed, 1);
  ExpectTheClientToWork();
}

TEST_P(ACallback, TakesEveryPrefixOfAFullMessage) {
  const std::string full = Full();
  for (std::size_t length = 0; length <= full.size(); ++length) {
    Feed(full.substr(0, length));
  }
  EXPECT_EQ(static_cast<std::size_t>(fed) + static_cast<std::size_t>(withheld), full.size() + 1);
  EXPECT_GE(fed, 2);  // nothing, and all
  ExpectTheClientToWork();
}

TEST_P(ACallback, TakesRandomMessages) {
  for (int round = 0; round < kRounds; ++round) {
    Feed(Drawn(generator.Below(101)));
  }
  EXPECT_EQ(fed, kRounds);
  ExpectTheClientToWork();
}

TEST_P(ACallback, TakesBentMessages) {
  for (int round = 0; round < kRounds; ++round) {
    Feed(generator.Bent(Drawn(80)));
  }
  EXPECT_GT(fed, 0);
  ExpectTheClientToWork();
}

TEST_P(ACallback, TakesRandomOctets) {
  for (int round = 0; round < kRounds; ++round) {
    Feed(generator.Octets(generator.Below(1 + generator.Below(64))));
  }
  EXPECT_GT(fed, 0);
  ExpectTheClientToWork();
}

TEST_P(ACallback, TakesAllOfItWithNoHandlerRegistered) {
  scene.UnregisterAll();
  handlers_registered = false;
  for (int round = 0; round < kRounds; ++round) {
    Feed(round % 2 == 0 ? Drawn(80) : generator.Bent(Drawn(80)));
  }
  EXPECT_GT(fed, 0);
  ExpectTheClientToWork();
}

using ALinktraceEventDeathTest = ACallback;

INSTANTIATE_TEST_SUITE_P(, ALinktraceEventDeathTest, testing::ValuesIn([] {
                           std::vector<Callback> fatal;
                           std::copy_if(
                               Callbacks().begin(), Callbacks().end(), std::back_inserter(fatal),
                               [](const Callback& callback) { return callback.unparseable == Unparseable::kFatal; });
                           return fatal;
                         }()),
                         [](const testing::TestParamInfo<Callback>& instance) { return instance.param.name; });

TEST_P(ALinktraceEventDeathTest, ThatDoesNotParseEndsTheProcess) {
  const std::string text = "Can't deserialize " + GetParam().prototype->GetDescriptor()->name() + " message";
  const std::string journal = recording::Middleware::Dump(
      {recording::Backtraced(), recording::Faulted(1, GetParam().name, "client_impl", text)});
  int died = 0;
  for (int attempt = 0; attempt < 1000 && died < 9; ++attempt) {
    std::string octets;
    switch (died % 3) {
      case 0:
        octets = Full();
        octets.resize(generator.Below(octets.size()));
        break;
      case 1:
        octets = generator.Bent(Drawn(80));
        break;
      default:
        octets = generator.Octets(1 + generator.Below(64));
    }
    if (Parses(octets)) {
      continue;
    }
    EXPECT_EXIT(
        {
          recording::Middleware::DumpAtExit();
          scene.middleware.Take();
          GetParam().deliver(scene.middleware, octets);
        },
        testing::ExitedWithCode(1), testing::HasSubstr(journal))
        << recording::Quoted(octets);
    ++died;
  }
  EXPECT_EQ(died, 9);
}

}  // namespace
