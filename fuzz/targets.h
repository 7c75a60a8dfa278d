// What the fuzzers run: each target takes any octets, and aborts when something does not hold.
#ifndef CFM_FUZZ_TARGETS_H
#define CFM_FUZZ_TARGETS_H

#include <span>

#include "pdu/decoded.h"

namespace cfm::fuzz {

struct Target {
  const char* name;
  void (*run)(pdu::Octets input);
};

std::span<const Target> Targets();

/// One group of targets per source; the table in targets.cc names them.
void FuzzEthernet(pdu::Octets input);
void FuzzHeader(pdu::Octets input);
void FuzzCcm(pdu::Octets input);
void FuzzLbm(pdu::Octets input);
void FuzzLbr(pdu::Octets input);
void FuzzLtm(pdu::Octets input);
void FuzzLtr(pdu::Octets input);
void FuzzAis(pdu::Octets input);
void FuzzDmm(pdu::Octets input);
void FuzzDmr(pdu::Octets input);
void Fuzz1dm(pdu::Octets input);
void FuzzMaid(pdu::Octets input);
void FuzzRecords(pdu::Octets input);

}  // namespace cfm::fuzz

#endif
