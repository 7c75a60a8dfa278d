// The five handler interfaces, implemented so that every call goes to the recording middleware's journal with all its
// arguments, in order with what the library logs and sends.
//
//   StatusNotes status(middleware);
//   client.RegisterStatusHandler(&status);
//   ...
//   EXPECT_TRUE(Same(middleware.Take(), {Called("status.OnLocalMepRemoved", "MD", "MA", 7)}));
#ifndef TESTS_UNIT_EVENTS_NOTING_HANDLERS_H
#define TESTS_UNIT_EVENTS_NOTING_HANDLERS_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "cfm/client.h"
#include "recording_middleware.h"

namespace recording {

// Each record as text, all its members in declaration order.
std::string RecordText(const cfm::st_mac& mac);
std::string RecordText(const cfm::st_local_mep_status& status);
std::string RecordText(const cfm::st_remote_mep_status& status);
std::string RecordText(const cfm::delay_measurement_session_report& report);
std::string RecordText(const cfm::st_local_mep_stats& stats);
std::string RecordText(const cfm::st_remote_mep_stats& stats);
std::string RecordText(const cfm::linktrace_trigger& trigger);
std::string RecordText(const cfm::LtrEgressIdEntry& id);
std::string RecordText(const cfm::LtrReplyPortEntry& port);
std::string RecordText(const cfm::LinktraceReplyEntry& entry);

std::string Quoted(std::string_view octets);  // what is not printable as \xNN
std::string Exact(double value);

template <typename T>
std::string Text(const T& value) {
  if constexpr (std::is_same_v<T, bool>) {
    return value ? "true" : "false";
  } else if constexpr (std::is_integral_v<T>) {
    return std::to_string(value);
  } else if constexpr (std::is_floating_point_v<T>) {
    return Exact(value);
  } else if constexpr (std::is_convertible_v<T, std::string_view>) {
    return Quoted(value);
  } else {
    return RecordText(value);
  }
}

/// "a, b, c"
template <typename... Values>
std::string Listed(const Values&... values) {
  std::string text;
  [[maybe_unused]] const char* separator = "";
  ((text += std::exchange(separator, ", "), text += Text(values)), ...);
  return text;
}

/// A call of an operation, named "<handler>.<operation>", with all its arguments.
template <typename... Arguments>
Entry Called(std::string_view operation, const Arguments&... arguments) {
  return Noted(std::string(operation) + "(" + Listed(arguments...) + ")");
}

class NotingHandler {
 public:
  NotingHandler(const NotingHandler&) = delete;
  NotingHandler& operator=(const NotingHandler&) = delete;

  const std::string& name() const { return name_; }

  /// Has the next call of that operation do this, once, after it was noted. The action may destroy the handler.
  void Once(std::string_view operation, std::function<void()> action) {
    operation_ = operation;
    action_ = std::move(action);
  }

 protected:
  NotingHandler(Middleware& middleware, std::string_view name) : middleware_(middleware), name_(name) {}
  ~NotingHandler() = default;

  template <typename... Arguments>
  void Note(std::string_view operation, const Arguments&... arguments) {
    middleware_.Add(Called(name_ + "." + std::string(operation), arguments...));
    if (action_ && operation == operation_) {
      const std::function<void()> action = std::exchange(action_, nullptr);
      action();
    }
  }

 private:
  Middleware& middleware_;
  std::string name_;
  std::string operation_;
  std::function<void()> action_;
};

class StatusNotes final : public cfm::ReceivedStatusHandlerIntf, public NotingHandler {
 public:
  explicit StatusNotes(Middleware& middleware, std::string_view name = "status") : NotingHandler(middleware, name) {}

  void OnLocalMepStatus(const std::string& md, const std::string& ma, std::uint16_t mep_id,
                        const cfm::st_local_mep_status& status) override {
    Note("OnLocalMepStatus", md, ma, mep_id, status);
  }
  void OnRemoteMepStatus(const std::string& md, const std::string& ma, std::uint16_t local_mep_id,
                         std::uint16_t remote_mep_id, const cfm::st_remote_mep_status& status) override {
    Note("OnRemoteMepStatus", md, ma, local_mep_id, remote_mep_id, status);
  }
  void OnLocalMepRemoved(const std::string& md, const std::string& ma, std::uint16_t mep_id) override {
    Note("OnLocalMepRemoved", md, ma, mep_id);
  }
  void OnRemoteMepRemoved(const std::string& md, const std::string& ma, std::uint16_t local_mep_id,
                          std::uint16_t remote_mep_id) override {
    Note("OnRemoteMepRemoved", md, ma, local_mep_id, remote_mep_id);
  }
  void OnLinktraceStarted(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id,
                          std::uint32_t transaction_id, cfm::st_mac target_mac, std::uint16_t target_mep_id,
                          bool has_optional_value, std::uint32_t optional_value) override {
    Note("OnLinktraceStarted", md_name, ma_name, mep_id, transaction_id, target_mac, target_mep_id, has_optional_value,
         optional_value);
  }
  void OnLinktraceEnded(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id,
                        std::uint32_t transaction_id) override {
    Note("OnLinktraceEnded", md_name, ma_name, mep_id, transaction_id);
  }
  void OnLinktraceReply(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id,
                        const cfm::LinktraceReplyEntry& reply) override {
    Note("OnLinktraceReply", md_name, ma_name, mep_id, reply);
  }
  void OnDelayMeasurementSessionEnded(const cfm::delay_measurement_session_report& report) override {
    Note("OnDelayMeasurementSessionEnded", report);
  }
  void OnServerFound() override { Note("OnServerFound"); }
};

class StatisticsNotes final : public cfm::ReceivedStatisticsHandlerIntf, public NotingHandler {
 public:
  explicit StatisticsNotes(Middleware& middleware, std::string_view name = "statistics")
      : NotingHandler(middleware, name) {}

  void OnLocalMepStatistics(const std::string& md, const std::string& ma, std::uint16_t mep_id,
                            const cfm::st_local_mep_stats& stats) override {
    Note("OnLocalMepStatistics", md, ma, mep_id, stats);
  }
  void OnRemoteMepStatistics(const std::string& md, const std::string& ma, std::uint16_t local_mep_id,
                             std::uint16_t remote_mep_id, const cfm::st_remote_mep_stats& stats) override {
    Note("OnRemoteMepStatistics", md, ma, local_mep_id, remote_mep_id, stats);
  }
  void OnStatisticsEnd() override { Note("OnStatisticsEnd"); }
};

class LinktraceNotes final : public cfm::ReceivedLinktraceHandlerIntf, public NotingHandler {
 public:
  explicit LinktraceNotes(Middleware& middleware, std::string_view name = "linktrace")
      : NotingHandler(middleware, name) {}

  void OnLinktraceStarted(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id,
                          std::uint32_t transaction_id, cfm::st_mac target_mac, std::uint16_t target_mep_id,
                          bool has_optional_value, std::uint32_t optional_value) override {
    Note("OnLinktraceStarted", md_name, ma_name, mep_id, transaction_id, target_mac, target_mep_id, has_optional_value,
         optional_value);
  }
  void OnLinktraceEnded(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id,
                        std::uint32_t transaction_id) override {
    Note("OnLinktraceEnded", md_name, ma_name, mep_id, transaction_id);
  }
  void OnLinktraceReply(const std::string& md_name, const std::string& ma_name, std::uint16_t mep_id,
                        const cfm::LinktraceReplyEntry& reply) override {
    Note("OnLinktraceReply", md_name, ma_name, mep_id, reply);
  }
  void OnLinktraceTriggerError(const cfm::linktrace_trigger& trigger) override {
    Note("OnLinktraceTriggerError", trigger);
  }
};

class LoopbackNotes final : public cfm::ReceivedLoopbackHandlerIntf, public NotingHandler {
 public:
  explicit LoopbackNotes(Middleware& middleware, std::string_view name = "loopback")
      : NotingHandler(middleware, name) {}

  void OnLoopbackTriggerError(std::uint32_t trigger_id, std::uint32_t error_code, const std::string& md_name,
                              const std::string& ma_name, std::uint16_t mep_id, std::uint16_t target_mep_id) override {
    Note("OnLoopbackTriggerError", trigger_id, error_code, md_name, ma_name, mep_id, target_mep_id);
  }
  void OnLoopbackStarted(std::uint32_t trigger_id, const cfm::st_mac& target_mac) override {
    Note("OnLoopbackStarted", trigger_id, target_mac);
  }
  void OnLoopbackReply(std::uint32_t trigger_id, std::uint32_t transaction_id, const cfm::st_mac& source_mac) override {
    Note("OnLoopbackReply", trigger_id, transaction_id, source_mac);
  }
  void OnLoopbackEnded(std::uint32_t trigger_id, std::uint64_t expected, std::uint64_t in_order,
                       std::uint64_t out_of_order, std::uint64_t wrong_payload) override {
    Note("OnLoopbackEnded", trigger_id, expected, in_order, out_of_order, wrong_payload);
  }
};

class DelayMeasurementNotes final : public cfm::ReceivedDelayMeasurementHandlerIntf, public NotingHandler {
 public:
  explicit DelayMeasurementNotes(Middleware& middleware, std::string_view name = "delay")
      : NotingHandler(middleware, name) {}

  void OnDelayMeasurementTriggerError(std::uint32_t trigger_id, std::uint32_t error_code, const std::string& md_name,
                                      const std::string& ma_name, std::uint16_t mep_id,
                                      std::uint16_t target_mep_id) override {
    Note("OnDelayMeasurementTriggerError", trigger_id, error_code, md_name, ma_name, mep_id, target_mep_id);
  }
  void OnDelayMeasurementStarted(std::uint32_t trigger_id, const cfm::st_mac& target_mac) override {
    Note("OnDelayMeasurementStarted", trigger_id, target_mac);
  }
  void OnDelayMeasurementReply(std::uint32_t trigger_id, const cfm::st_mac& source_mac) override {
    Note("OnDelayMeasurementReply", trigger_id, source_mac);
  }
  void OnDelayMeasurementEnded(std::uint32_t trigger_id, std::uint64_t rx_count, std::uint64_t tx_count,
                               double dm_result_1, double dm_result_2, double dm_result_3, double dm_result_4,
                               double dm_result_5, double dm_result_6, std::uint64_t dm_result_7) override {
    Note("OnDelayMeasurementEnded", trigger_id, rx_count, tx_count, dm_result_1, dm_result_2, dm_result_3, dm_result_4,
         dm_result_5, dm_result_6, dm_result_7);
  }
};

/// A client with no handler on a middleware of its own, and one handler of each kind to register with it.
struct ClientUnderTest {
  ClientUnderTest() { middleware.Take(); }

  void RegisterAll() {
    client.RegisterStatusHandler(&status);
    client.RegisterStatisticsHandler(&statistics);
    client.RegisterLinktraceHandler(&linktrace);
    client.RegisterLoopbackHandler(&loopback);
    client.RegisterDelayMeasurementHandler(&delay);
  }

  void UnregisterAll() {
    client.RegisterStatusHandler(nullptr);
    client.RegisterStatisticsHandler(nullptr);
    client.RegisterLinktraceHandler(nullptr);
    client.RegisterLoopbackHandler(nullptr);
    client.RegisterDelayMeasurementHandler(nullptr);
  }

  /// Delivers one signal or event to its one callback and returns what came of it.
  template <typename Identity, typename Payload>
  Journal After(const Identity* identity, const Payload& payload) {
    middleware.Take();
    EXPECT_EQ(middleware.Deliver(identity, payload), 1);
    return middleware.Take();
  }

  /// Delivers a message behind an earlier value of its fields, which the parser drops but whose octets may still lie in
  /// memory behind a shorter later one.
  template <typename Identity, typename Message>
  Journal AfterOverwriting(const Message& earlier, const Identity* identity, const Message& message) {
    return After(identity, earlier.SerializeAsString() + message.SerializeAsString());
  }

  Middleware middleware;
  StatusNotes status{middleware};
  StatisticsNotes statistics{middleware};
  LinktraceNotes linktrace{middleware};
  LoopbackNotes loopback{middleware};
  DelayMeasurementNotes delay{middleware};
  cfm::Client client{middleware.token()};
};

}  // namespace recording

#endif
