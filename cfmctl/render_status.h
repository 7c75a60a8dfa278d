// The status board and its parts as text for people and as JSON for programs; docs/cfmctl.md describes the latter.
#ifndef CFMCTL_RENDER_STATUS_H
#define CFMCTL_RENDER_STATUS_H

#include <ostream>
#include <string>

#include "json.h"
#include "status_board.h"
#include "style.h"

namespace cfmctl {

/// Every MEP on a line, the remote ones under the local one that sees them, and a summary.
void RenderStatus(const StatusBoard& board, const Style& style, std::ostream& out);

/// One MEP on one line, as in the table but with its name.
std::string LocalMepLine(const StatusBoard::Key& key, const LocalMep& mep, const Style& style);
std::string RemoteMepLine(const StatusBoard::Key& key, std::uint16_t remote_mep_id, const RemoteMep& mep,
                          const Style& style);

Json StatusJson(const StatusBoard& board);
Json LocalMepJson(const StatusBoard::Key& key, const LocalMep& mep);
Json RemoteMepJson(std::uint16_t remote_mep_id, const RemoteMep& mep);

}  // namespace cfmctl

#endif
