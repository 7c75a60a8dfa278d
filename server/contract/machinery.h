// What the contract's requests set in motion.
#ifndef CFM_SERVER_CONTRACT_MACHINERY_H
#define CFM_SERVER_CONTRACT_MACHINERY_H

#include <optional>

#include "client_server.pb.h"
#include "contract/cache.h"
#include "protocol/test_error.h"

namespace cfm::contract {

/// None of these may call back into the server.
class Machinery {
 public:
  /// What a request has made of the cache, which may be nothing. Removed objects are announced by the machinery, when
  /// they have ended.
  virtual void ConfigurationChanged(const Change& change) = 0;

  /// Every local and remote MEP is to be announced, at the latest after a moment; requests that come in between share
  /// the answer.
  virtual void AnnounceStatus() = 0;
  virtual client_server::OpReplyAllStats Statistics() const = 0;
  /// A field that is absent leaves that part of the scope open.
  virtual void ClearStatistics(const client_server::OpStatsClear& scope) = 0;

  /// None: it has begun, and announces its progress.
  virtual std::optional<protocol::TestError> Start(const client_server::OpLinktraceTriggerMsg& trigger) = 0;
  virtual std::optional<protocol::TestError> Start(const client_server::OpLoopbackTriggerMsg& trigger) = 0;
  virtual std::optional<protocol::TestError> Start(const client_server::OpDelayMeasurementTriggerMsg& trigger) = 0;

 protected:
  ~Machinery() = default;
};

}  // namespace cfm::contract

#endif
