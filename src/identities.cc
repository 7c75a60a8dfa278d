// The identity records behind cfm/identities.h. They lie in read-only data; one exported pointer each stands for them.
#include "cfm/identities.h"

namespace {

constexpr vorbus_proc_t kProcess = {"cfm-mgr"};

constexpr vorbus_sigblock_t kInternalBlock = {0x4362};
constexpr vorbus_sigblock_t kClientToServerBlock = {0x4363};
constexpr vorbus_sigblock_t kServerToClientBlock = {0x4364};
constexpr vorbus_evgroup_t kServerEventGroup = {0x43464D4D};  // "CFMM"

}  // namespace

const vorbus_proc_t* CFM_MGR_PROCESS = &kProcess;

const vorbus_sigblock_t* CFM_MGR_SIGBLOCK = &kInternalBlock;
const vorbus_sigblock_t* CFM_MGR_C2S_SIGBLOCK = &kClientToServerBlock;
const vorbus_sigblock_t* CFM_MGR_S2C_SIGBLOCK = &kServerToClientBlock;
const vorbus_evgroup_t* CFM_MGR_SRV_EVENTGROUP = &kServerEventGroup;

// Defines the record of one identity and the exported pointer to it.
// NOLINTBEGIN(bugprone-macro-parentheses): a declarator takes none
#define CFM_IDENTITY(type, name, container, number)   \
  namespace {                                         \
  constexpr type k_##name = {&(container), (number)}; \
  }                                                   \
  const type* name = &k_##name
// NOLINTEND(bugprone-macro-parentheses)

CFM_IDENTITY(vorbus_sig_t, CFM_MGR_SIG_TICK_SCHED, kInternalBlock, 1);

CFM_IDENTITY(vorbus_sig_t, CFM_MGR_C2S_SIG_MD_CREATE, kClientToServerBlock, 1);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_C2S_SIG_MD_UPDATE, kClientToServerBlock, 2);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_C2S_SIG_MD_DELETE, kClientToServerBlock, 3);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_C2S_SIG_MA_CREATE, kClientToServerBlock, 4);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_C2S_SIG_MA_UPDATE, kClientToServerBlock, 5);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_C2S_SIG_MA_DELETE, kClientToServerBlock, 6);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_C2S_SIG_MEP_CREATE, kClientToServerBlock, 7);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_C2S_SIG_MEP_UPDATE, kClientToServerBlock, 8);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_C2S_SIG_MEP_DELETE, kClientToServerBlock, 9);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_C2S_SIG_CACHE_GET, kClientToServerBlock, 10);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_C2S_SIG_STATS_GET, kClientToServerBlock, 11);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_C2S_SIG_STATS_CLEAR, kClientToServerBlock, 12);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_C2S_SIG_STATUS_GET_ALL, kClientToServerBlock, 13);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_C2S_SIG_LT_TRIGGER, kClientToServerBlock, 14);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_C2S_SIG_LB_TRIGGER, kClientToServerBlock, 15);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_C2S_SIG_DM_TRIGGER, kClientToServerBlock, 16);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_C2S_SIG_DM_PROBE_CREATE, kClientToServerBlock, 17);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_C2S_SIG_DM_PROBE_DELETE, kClientToServerBlock, 18);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_C2S_SIG_DM_SESSION_CREATE, kClientToServerBlock, 19);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_C2S_SIG_DM_SESSION_DELETE, kClientToServerBlock, 20);

CFM_IDENTITY(vorbus_sig_t, CFM_MGR_S2C_SIG_CACHE_REPLY, kServerToClientBlock, 1);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_S2C_SIG_STATS_REPLY, kServerToClientBlock, 2);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_S2C_SIG_LT_TRIGGER_ERROR, kServerToClientBlock, 3);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR, kServerToClientBlock, 4);
CFM_IDENTITY(vorbus_sig_t, CFM_MGR_S2C_SIG_DM_TRIGGER_ERROR, kServerToClientBlock, 5);

CFM_IDENTITY(vorbus_event_t, CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP, kServerEventGroup, 1);
CFM_IDENTITY(vorbus_event_t, CFM_MGR_SRV_EVENT_STATUS_REMOTE_MEP, kServerEventGroup, 2);
CFM_IDENTITY(vorbus_event_t, CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP, kServerEventGroup, 3);
CFM_IDENTITY(vorbus_event_t, CFM_MGR_SRV_EVENT_REMOVED_REMOTE_MEP, kServerEventGroup, 4);
CFM_IDENTITY(vorbus_event_t, CFM_MGR_SRV_EVENT_LINKTRACE_STARTED, kServerEventGroup, 5);
CFM_IDENTITY(vorbus_event_t, CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX, kServerEventGroup, 6);
CFM_IDENTITY(vorbus_event_t, CFM_MGR_SRV_EVENT_LINKTRACE_ENDED, kServerEventGroup, 7);
CFM_IDENTITY(vorbus_event_t, CFM_MGR_SRV_EVENT_LOOPBACK_STARTED, kServerEventGroup, 8);
CFM_IDENTITY(vorbus_event_t, CFM_MGR_SRV_EVENT_LOOPBACK_REPLY_RX, kServerEventGroup, 9);
CFM_IDENTITY(vorbus_event_t, CFM_MGR_SRV_EVENT_LOOPBACK_ENDED, kServerEventGroup, 10);
CFM_IDENTITY(vorbus_event_t, CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_STARTED, kServerEventGroup, 11);
CFM_IDENTITY(vorbus_event_t, CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_REPLY_RX, kServerEventGroup, 12);
CFM_IDENTITY(vorbus_event_t, CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_ENDED, kServerEventGroup, 13);
CFM_IDENTITY(vorbus_event_t, CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_SESSION_ENDED, kServerEventGroup, 14);
