#include "ccm_source.h"

#include <chrono>

#include "protocol/time.h"

namespace cfm_test {

CcmSource::CcmSource(const Wire& wire, const EndPoint& end_point, std::uint16_t mep_id)
    : wire_(wire),
      header_(GroupHeader(end_point, wire.address())),
      interval_(cfm::protocol::IntervalOf(static_cast<std::uint8_t>(end_point.interval)).value()),
      ccm_(CcmOf(end_point, mep_id)),
      thread_([this] { Run(); }) {}

void CcmSource::Change(const std::function<void(cfm::pdu::Ccm&)>& change) {
  const std::lock_guard lock(mutex_);
  change(ccm_);
}

WallTime CcmSource::Stop() {
  {
    const std::lock_guard lock(mutex_);
    stop_ = true;
  }
  stopped_.notify_one();
  if (thread_.joinable()) thread_.join();
  return last_;
}

void CcmSource::Run() {
  auto next = std::chrono::steady_clock::now();
  std::unique_lock lock(mutex_);
  do {
    ++ccm_.sequence_number;
    wire_.Send(header_, PduOf(ccm_));
    last_ = std::chrono::system_clock::now();
    next += interval_;
  } while (!stopped_.wait_until(lock, next, [this] { return stop_; }));
}

}  // namespace cfm_test
