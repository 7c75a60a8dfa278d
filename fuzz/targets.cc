#include "targets.h"

#include <array>

namespace cfm::fuzz {

std::span<const Target> Targets() {
  static constexpr std::array kTargets = {
      Target{"ethernet", FuzzEthernet}, Target{"header", FuzzHeader}, Target{"ccm", FuzzCcm}, Target{"lbm", FuzzLbm},
      Target{"lbr", FuzzLbr},           Target{"ltm", FuzzLtm},       Target{"ltr", FuzzLtr}, Target{"ais", FuzzAis},
      Target{"dmm", FuzzDmm},           Target{"dmr", FuzzDmr},       Target{"1dm", Fuzz1dm}, Target{"maid", FuzzMaid},
      Target{"records", FuzzRecords},
  };
  return kTargets;
}

}  // namespace cfm::fuzz
