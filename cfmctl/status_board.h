// What is known of every MEP of the configuration, and what is wrong with it. No I/O.
#ifndef CFMCTL_STATUS_BOARD_H
#define CFMCTL_STATUS_BOARD_H

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "cfm/status.h"
#include "model.h"

namespace cfmctl {

/// A remote MEP as one local MEP sees it.
struct RemoteMep {
  std::optional<cfm::st_remote_mep_status> status;  ///< nothing: not reported
  bool expected = false;                            ///< the MEP list names it; otherwise it was learned
};

struct LocalMep {
  std::optional<cfm::st_local_mep_status> status;
  bool enabled = true;  ///< by the configuration; of one that is not nothing is expected
  std::map<std::uint16_t, RemoteMep> remotes;
};

/// What is wrong with it, in words; empty when all is well.
std::vector<std::string> ProblemsOf(const LocalMep& mep);
std::vector<std::string> ProblemsOf(const RemoteMep& mep);

class StatusBoard {
 public:
  using Key = std::tuple<std::string, std::string, std::uint16_t>;  ///< MD name, MA name, MEP id

  /// Expects every end point of the model, and at each the others of its association's MEP list.
  explicit StatusBoard(const Model& model);

  // What the server reports. Each returns whether anything is different now; end points that the model does not have
  // belong to somebody else and are passed over, and so are the remote ones of a disabled end point, which sees none.
  bool Update(const std::string& md, const std::string& ma, std::uint16_t mep_id,
              const cfm::st_local_mep_status& status);
  bool Update(const std::string& md, const std::string& ma, std::uint16_t local_mep_id, std::uint16_t remote_mep_id,
              const cfm::st_remote_mep_status& status);
  bool RemoveLocal(const std::string& md, const std::string& ma, std::uint16_t mep_id);
  bool RemoveRemote(const std::string& md, const std::string& ma, std::uint16_t local_mep_id,
                    std::uint16_t remote_mep_id);

  /// The server went away: nothing that it said counts any more.
  void Forget();

  /// Everything expected has been reported.
  bool complete() const { return unreported_ == 0; }
  /// Every MEP is reported and has no problem.
  bool well() const;

  const std::map<Key, LocalMep>& meps() const { return meps_; }

 private:
  LocalMep* Find(const std::string& md, const std::string& ma, std::uint16_t mep_id);

  std::map<Key, LocalMep> meps_;
  std::size_t unreported_ = 0;
};

}  // namespace cfmctl

#endif
