// Standing delay-measurement probes with their sessions (two-way delay, ITU-T G.8013/Y.1731 clause 8.2). The
// application fills one cfm::probe and hands it whole to cfm::Client::UpdateConfigProbe.
//
// All records are plain values; a value-initialised one is all zero and empty. The library validates no range.
#ifndef CFM_PROBE_H
#define CFM_PROBE_H

#include <cstdint>
#include <map>
#include <string>

namespace cfm {

/// One session of a probe: a number of measurement messages of one size and priority.
struct session_cfg {
  std::uint16_t count;     ///< messages per run
  std::uint16_t interval;  ///< milliseconds between messages
  std::uint16_t size;      ///< octets of the data TLV
  std::uint8_t pcp;        ///< IEEE 802.1Q priority code point, 0 to 7
};

/// One probe: measures between a local and a remote MEP of one association.
struct probe_cfg {
  std::uint16_t probe_id;  ///< equals the probe's key in probe::probes; compared, never sent
  std::uint16_t interval;  ///< seconds from one run of the sessions to the next
  std::string md_name;
  std::string ma_name;
  std::uint16_t local_mep_id;
  std::uint16_t remote_mep_id;
  std::map<std::uint16_t, session_cfg> sessions;  ///< by session id
};

/// The whole probe configuration: every probe by its id.
struct probe {
  std::map<std::uint16_t, probe_cfg> probes;
};

}  // namespace cfm

#endif
