// The contract between the server and its clients, by name: every signal and event with the message that it carries.
#ifndef CFM_TESTS_INTEGRATION_PEER_CONTRACT_H
#define CFM_TESTS_INTEGRATION_PEER_CONTRACT_H

#include <google/protobuf/message.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "vorbus/vorbus.h"

namespace cfm_test {

// A signal, named without its prefix CFM_MGR_C2S_SIG_ or CFM_MGR_S2C_SIG_. No prototype: it carries no payload.
struct SignalEntry {
  std::string_view name;
  const vorbus_sig_t* signal;
  const google::protobuf::Message* prototype;
};

// An event, named without its prefix CFM_MGR_SRV_EVENT_.
struct EventEntry {
  std::string_view name;
  const vorbus_event_t* event;
  const google::protobuf::Message* prototype;
};

const std::vector<SignalEntry>& ClientSignals();
const std::vector<SignalEntry>& ServerSignals();
const std::vector<EventEntry>& ServerEvents();

// A payload of that prototype as one line of protobuf text format; one that does not parse as "malformed" and its
// octets in hexadecimal.
std::string PayloadText(const google::protobuf::Message* prototype, const void* data, std::size_t size);

std::string Hex(std::string_view octets);
// False: not pairs of hexadecimal digits (blanks between the pairs are allowed).
bool FromHex(std::string_view text, std::string& octets);

}  // namespace cfm_test

#endif
