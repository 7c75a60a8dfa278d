// What the reconciliations have to send, stated without walking trees: a tree is a table of rows, each rule is a
// question about one row, and the order is a sort key. The library's code knows nothing of this, and this nothing of
// it.
#ifndef TESTS_UNIT_CLIENT_RECONCILIATION_MODEL_H
#define TESTS_UNIT_CLIENT_RECONCILIATION_MODEL_H

#include "expected_requests.h"

namespace model {

using Mds = cfm::ClientImpl::MdMap;
using Probes = cfm::ClientImpl::ProbeMap;

/// The requests that take a server from one hierarchy to the other.
recording::Journal Hierarchy(const Mds& applied, const Mds& desired);

/// Likewise for probes and sessions.
recording::Journal ProbeSet(const Probes& applied, const Probes& desired);

/// The requests that create a whole hierarchy on a server that lost it.
recording::Journal Recreation(const Mds& applied);

/// How often, in one pair of hierarchies, an association counts as known only because an end point names it.
int PhantomAssociations(const Mds& applied, const Mds& desired);

}  // namespace model

#endif
