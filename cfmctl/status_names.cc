#include "status_names.h"

#include <fmt/format.h>

#include <array>

namespace cfmctl {
namespace {

constexpr std::array kDefects = {CodeName{0, "none"},       CodeName{1, "rdi"},       CodeName{2, "mac-status"},
                                 CodeName{3, "remote-ccm"}, CodeName{4, "error-ccm"}, CodeName{5, "xcon-ccm"}};
constexpr std::array kRemoteMepStates = {CodeName{1, "idle"}, CodeName{2, "start"}, CodeName{3, "failed"},
                                         CodeName{kRemoteMepOk, "ok"}};
constexpr std::array kPortStatuses = {CodeName{0, "none"}, CodeName{kPortBlocked, "blocked"}, CodeName{2, "up"}};
constexpr std::array kInterfaceStatuses = {
    CodeName{0, "none"},    CodeName{kInterfaceUp, "up"}, CodeName{2, "down"},        CodeName{3, "testing"},
    CodeName{4, "unknown"}, CodeName{5, "dormant"},       CodeName{6, "not-present"}, CodeName{7, "lower-layer-down"}};
constexpr std::array kRelayActions = {CodeName{kRelayHit, "hit"}, CodeName{2, "fdb"}, CodeName{3, "mpdb"}};
constexpr std::array kReplyPortActions = {CodeName{1, "ok"}, CodeName{2, "down"}, CodeName{3, "blocked"},
                                          CodeName{4, "vid"}};

}  // namespace

const CodeNames kDefectNames = kDefects;
const CodeNames kRemoteMepStateNames = kRemoteMepStates;
const CodeNames kPortStatusNames = kPortStatuses;
const CodeNames kInterfaceStatusNames = kInterfaceStatuses;
const CodeNames kRelayActionNames = kRelayActions;
const CodeNames kReplyPortActionNames = kReplyPortActions;

std::string RefusalText(std::uint32_t error_code) {
  switch (error_code) {
    case 1:
      return "no such MEP: the server does not hold this end point; 'cfmctl show' prints what it holds";
    case 2:
      return "the MEP is not operational: it is disabled, or its port or a part of its configuration cannot be used; "
             "the server's log has the reason";
    case 3:
      return "the target is unknown: the MEP has never heard of it, so its address is not known; see 'cfmctl status'";
    case 4:
      return "a parameter is not one that the server accepts, such as more data than the port's MTU holds";
    case 5:
      return "too many tests: another one runs from this MEP; try again when it has ended";
    default:
      return fmt::format("the server gives reason {}, which this version does not know", error_code);
  }
}

}  // namespace cfmctl
