// Events on their way to every client.
#ifndef CFM_SERVER_CONTRACT_ANNOUNCER_H
#define CFM_SERVER_CONTRACT_ANNOUNCER_H

#include <google/protobuf/message.h>

#include "vorbus/vorbus.h"

namespace cfm::contract {

class Announcer {
 public:
  /// Events arrive in the order in which they were announced. The event's identity outlives the program.
  virtual void Announce(const vorbus_event_t* event, const google::protobuf::Message& message) = 0;

 protected:
  ~Announcer() = default;
};

}  // namespace cfm::contract

#endif
