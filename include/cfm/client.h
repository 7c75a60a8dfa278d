// The client of the CFM manager: the one class that an application uses. This header includes all the others.
#ifndef CFM_CLIENT_H
#define CFM_CLIENT_H

#include "cfm/delay_measurement.h"
#include "cfm/hierarchy.h"
#include "cfm/identities.h"
#include "cfm/linktrace.h"
#include "cfm/loopback.h"
#include "cfm/mac.h"
#include "cfm/probe.h"
#include "cfm/statistics.h"
#include "cfm/status.h"
#include "cfm/visibility.h"
#include "vorbus/vorbus.h"

namespace cfm {

class ClientImpl;

/// Drives the server process "cfm-mgr" over the middleware.
///
/// Configuration: the application hands over everything it wants, and the client sends the server the difference to
/// what it holds. While the server is away the configuration is kept, and applied after the next synchronisation.
/// Give the configuration before the first dispatch of the token: a client that synchronises while its desired
/// configuration is still empty removes everything from the server.
///
/// Threads: none of its own and no lock. Call it on the thread that dispatches the token, or serialise the two.
///
/// Handlers: registered by pointer, never owned or deleted; a second registration replaces the first, null unregisters.
/// They run inside the dispatch of the token, on its thread, and may call the client back (trigger, UpdateConfig,
/// registration), but must not destroy it. Unregister a handler before it dies.
///
/// Errors: no operation returns or throws one. What cannot be sent is not repeated; refusals and results arrive through
/// the handlers.
///
/// The order of the virtual operations is part of the binary interface.
class CFM_API Client {
 public:
  /// Attaches to the middleware. The token must outlive the client. A null token ends the process with status 1.
  Client(vorbus_t* token);  // NOLINT(google-explicit-constructor): published so
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  virtual void RegisterStatusHandler(ReceivedStatusHandlerIntf* handler);
  virtual void RegisterStatisticsHandler(ReceivedStatisticsHandlerIntf* handler);
  virtual void RegisterLinktraceHandler(ReceivedLinktraceHandlerIntf* handler);
  virtual void RegisterLoopbackHandler(ReceivedLoopbackHandlerIntf* handler);
  virtual void RegisterDelayMeasurementHandler(ReceivedDelayMeasurementHandlerIntf* handler);

  /// Detaches from the middleware; the server keeps its configuration.
  virtual ~Client();

  /// Makes `desired` the whole wanted configuration of domains, associations and end points (copied).
  virtual void UpdateConfig(const hierarchy& desired);
  /// Makes `desired` the whole wanted configuration of probes (copied).
  virtual void UpdateConfigProbe(const probe& desired);

  /// Asks for the counters of every MEP; the reply goes to the statistics handler. Without a server nothing happens.
  virtual void RequestStatistics() const;
  /// Clears counters: of one MEP, one association, one domain or everything. `md` and `ma` are NUL-terminated or null;
  /// a null or zero argument leaves that part of the scope open.
  virtual void ClearStatistics(const char* md, const char* ma, unsigned short mep) const;

  /// Each starts one test at once; nothing is queued while the server is away.
  virtual void LinktraceTrigger(const linktrace_trigger& trigger);
  virtual void LoopbackTrigger(const loopback_trigger& trigger);
  virtual void DelayMeasurementTrigger(const delay_measurement_trigger& trigger);

 private:
  ClientImpl* impl_;
};

}  // namespace cfm

#endif
