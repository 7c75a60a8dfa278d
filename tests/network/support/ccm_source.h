// Another MEP of an association, as far as its CCMs go.
#ifndef CFM_TESTS_NETWORK_SUPPORT_CCM_SOURCE_H
#define CFM_TESTS_NETWORK_SUPPORT_CCM_SOURCE_H

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

#include "element.h"
#include "pdu/ccm.h"
#include "wire.h"

namespace cfm_test {

/// Sends a CCM at once, and one in each interval from then on, in a thread of its own.
class CcmSource {
 public:
  /// Of that MEP of the end point's association. The wire outlives it.
  CcmSource(const Wire& wire, const EndPoint& end_point, std::uint16_t mep_id);
  ~CcmSource() { Stop(); }
  CcmSource(const CcmSource&) = delete;
  CcmSource& operator=(const CcmSource&) = delete;

  /// From the next CCM on. The pace stays.
  void Change(const std::function<void(cfm::pdu::Ccm&)>& change);
  /// When the last CCM was handed to the port, at the latest. No more follow.
  WallTime Stop();

 private:
  void Run();

  const Wire& wire_;
  const cfm::pdu::EthernetHeader header_;
  const std::chrono::nanoseconds interval_;
  std::mutex mutex_;
  std::condition_variable stopped_;
  bool stop_ = false;  // guarded by mutex_, as what follows
  cfm::pdu::Ccm ccm_;
  WallTime last_;
  std::thread thread_;
};

}  // namespace cfm_test

#endif
