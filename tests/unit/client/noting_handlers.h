// The five handlers, each call written to the middleware's journal by its name alone.
#ifndef TESTS_UNIT_CLIENT_NOTING_HANDLERS_H
#define TESTS_UNIT_CLIENT_NOTING_HANDLERS_H

#include <cstdint>
#include <string>

#include "cfm/client.h"
#include "recording_middleware.h"

class NotingHandlers final : public cfm::ReceivedStatusHandlerIntf,
                             public cfm::ReceivedStatisticsHandlerIntf,
                             public cfm::ReceivedLinktraceHandlerIntf,
                             public cfm::ReceivedLoopbackHandlerIntf,
                             public cfm::ReceivedDelayMeasurementHandlerIntf {
 public:
  NotingHandlers(recording::Middleware* middleware, std::string name)
      : middleware_(middleware), name_(std::move(name)) {}

  using Text = std::string;

  void OnLocalMepStatus(const Text& /*md*/, const Text& /*ma*/, std::uint16_t /*mep_id*/,
                        const cfm::st_local_mep_status& /*status*/) override {
    Note("OnLocalMepStatus");
  }
  void OnRemoteMepStatus(const Text& /*md*/, const Text& /*ma*/, std::uint16_t /*local*/, std::uint16_t /*remote*/,
                         const cfm::st_remote_mep_status& /*status*/) override {
    Note("OnRemoteMepStatus");
  }
  void OnLocalMepRemoved(const Text& /*md*/, const Text& /*ma*/, std::uint16_t /*mep_id*/) override {
    Note("OnLocalMepRemoved");
  }
  void OnRemoteMepRemoved(const Text& /*md*/, const Text& /*ma*/, std::uint16_t /*local*/,
                          std::uint16_t /*remote*/) override {
    Note("OnRemoteMepRemoved");
  }
  // Shared by the status and the linktrace interface.
  void OnLinktraceStarted(const Text& /*md*/, const Text& /*ma*/, std::uint16_t /*mep_id*/, std::uint32_t /*id*/,
                          cfm::st_mac /*target*/, std::uint16_t /*target_mep_id*/, bool /*has_optional_value*/,
                          std::uint32_t /*optional_value*/) override {
    Note("OnLinktraceStarted");
  }
  void OnLinktraceEnded(const Text& /*md*/, const Text& /*ma*/, std::uint16_t /*mep_id*/,
                        std::uint32_t /*id*/) override {
    Note("OnLinktraceEnded");
  }
  void OnLinktraceReply(const Text& /*md*/, const Text& /*ma*/, std::uint16_t /*mep_id*/,
                        const cfm::LinktraceReplyEntry& /*reply*/) override {
    Note("OnLinktraceReply");
  }
  void OnDelayMeasurementSessionEnded(const cfm::delay_measurement_session_report& /*report*/) override {
    Note("OnDelayMeasurementSessionEnded");
  }
  void OnServerFound() override { Note("OnServerFound"); }

  void OnLocalMepStatistics(const Text& /*md*/, const Text& /*ma*/, std::uint16_t /*mep_id*/,
                            const cfm::st_local_mep_stats& /*stats*/) override {
    Note("OnLocalMepStatistics");
  }
  void OnRemoteMepStatistics(const Text& /*md*/, const Text& /*ma*/, std::uint16_t /*local*/, std::uint16_t /*remote*/,
                             const cfm::st_remote_mep_stats& /*stats*/) override {
    Note("OnRemoteMepStatistics");
  }
  void OnStatisticsEnd() override { Note("OnStatisticsEnd"); }

  void OnLinktraceTriggerError(const cfm::linktrace_trigger& /*trigger*/) override { Note("OnLinktraceTriggerError"); }

  void OnLoopbackTriggerError(std::uint32_t /*trigger_id*/, std::uint32_t /*error_code*/, const Text& /*md*/,
                              const Text& /*ma*/, std::uint16_t /*mep_id*/, std::uint16_t /*target*/) override {
    Note("OnLoopbackTriggerError");
  }
  void OnLoopbackStarted(std::uint32_t /*trigger_id*/, const cfm::st_mac& /*target*/) override {
    Note("OnLoopbackStarted");
  }
  void OnLoopbackReply(std::uint32_t /*trigger_id*/, std::uint32_t /*transaction_id*/,
                       const cfm::st_mac& /*source*/) override {
    Note("OnLoopbackReply");
  }
  void OnLoopbackEnded(std::uint32_t /*trigger_id*/, std::uint64_t /*expected*/, std::uint64_t /*in_order*/,
                       std::uint64_t /*out_of_order*/, std::uint64_t /*wrong_payload*/) override {
    Note("OnLoopbackEnded");
  }

  void OnDelayMeasurementTriggerError(std::uint32_t /*trigger_id*/, std::uint32_t /*error_code*/, const Text& /*md*/,
                                      const Text& /*ma*/, std::uint16_t /*mep_id*/, std::uint16_t /*target*/) override {
    Note("OnDelayMeasurementTriggerError");
  }
  void OnDelayMeasurementStarted(std::uint32_t /*trigger_id*/, const cfm::st_mac& /*target*/) override {
    Note("OnDelayMeasurementStarted");
  }
  void OnDelayMeasurementReply(std::uint32_t /*trigger_id*/, const cfm::st_mac& /*source*/) override {
    Note("OnDelayMeasurementReply");
  }
  void OnDelayMeasurementEnded(std::uint32_t /*trigger_id*/, std::uint64_t /*rx_count*/, std::uint64_t /*tx_count*/,
                               double /*r1*/, double /*r2*/, double /*r3*/, double /*r4*/, double /*r5*/, double /*r6*/,
                               std::uint64_t /*r7*/) override {
    Note("OnDelayMeasurementEnded");
  }

  void Note(const char* operation) { middleware_->Note(name_ + " " + operation); }

 private:
  recording::Middleware* middleware_;
  std::string name_;
};

#endif
