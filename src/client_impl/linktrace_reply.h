// From a linktrace reply's message to the entry that handlers get.
#ifndef CFM_SRC_CLIENT_IMPL_LINKTRACE_REPLY_H
#define CFM_SRC_CLIENT_IMPL_LINKTRACE_REPLY_H

#include <memory>

#include "cfm/linktrace.h"
#include "client_server.pb.h"

namespace cfm {

std::shared_ptr<LinktraceReplyEntry> LinktraceReplyFrom(const client_server::LinktraceReply& reply);

}  // namespace cfm

#endif
