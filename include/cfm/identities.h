/* The middleware identities of the CFM manager: its process, signal blocks, signals, event group and events.
 * Names, ids and numbers are a wire contract between clients and server and never change. Load the pointer and hand it
 * to the middleware; nothing writes these variables after load. Usable from C and C++. */
#ifndef CFM_IDENTITIES_H
#define CFM_IDENTITIES_H

#include "cfm/visibility.h"
#include "vorbus/vorbus.h"

#ifdef __cplusplus
extern "C" {
#endif

extern CFM_API const vorbus_proc_t* CFM_MGR_PROCESS; /* "cfm-mgr" */

extern CFM_API const vorbus_sigblock_t* CFM_MGR_SIGBLOCK;      /* the server's internal signals */
extern CFM_API const vorbus_sigblock_t* CFM_MGR_C2S_SIGBLOCK;  /* a client to the server */
extern CFM_API const vorbus_sigblock_t* CFM_MGR_S2C_SIGBLOCK;  /* the server to one client */
extern CFM_API const vorbus_evgroup_t* CFM_MGR_SRV_EVENTGROUP; /* the server to every subscriber */

extern CFM_API const vorbus_sig_t* CFM_MGR_SIG_TICK_SCHED; /* never on the wire */

extern CFM_API const vorbus_sig_t* CFM_MGR_C2S_SIG_MD_CREATE;
extern CFM_API const vorbus_sig_t* CFM_MGR_C2S_SIG_MD_UPDATE;
extern CFM_API const vorbus_sig_t* CFM_MGR_C2S_SIG_MD_DELETE;
extern CFM_API const vorbus_sig_t* CFM_MGR_C2S_SIG_MA_CREATE;
extern CFM_API const vorbus_sig_t* CFM_MGR_C2S_SIG_MA_UPDATE;
extern CFM_API const vorbus_sig_t* CFM_MGR_C2S_SIG_MA_DELETE;
extern CFM_API const vorbus_sig_t* CFM_MGR_C2S_SIG_MEP_CREATE;
extern CFM_API const vorbus_sig_t* CFM_MGR_C2S_SIG_MEP_UPDATE;
extern CFM_API const vorbus_sig_t* CFM_MGR_C2S_SIG_MEP_DELETE;
extern CFM_API const vorbus_sig_t* CFM_MGR_C2S_SIG_CACHE_GET;
extern CFM_API const vorbus_sig_t* CFM_MGR_C2S_SIG_STATS_GET;
extern CFM_API const vorbus_sig_t* CFM_MGR_C2S_SIG_STATS_CLEAR;
extern CFM_API const vorbus_sig_t* CFM_MGR_C2S_SIG_STATUS_GET_ALL;
extern CFM_API const vorbus_sig_t* CFM_MGR_C2S_SIG_LT_TRIGGER;
extern CFM_API const vorbus_sig_t* CFM_MGR_C2S_SIG_LB_TRIGGER;
extern CFM_API const vorbus_sig_t* CFM_MGR_C2S_SIG_DM_TRIGGER;
extern CFM_API const vorbus_sig_t* CFM_MGR_C2S_SIG_DM_PROBE_CREATE;
extern CFM_API const vorbus_sig_t* CFM_MGR_C2S_SIG_DM_PROBE_DELETE;
extern CFM_API const vorbus_sig_t* CFM_MGR_C2S_SIG_DM_SESSION_CREATE;
extern CFM_API const vorbus_sig_t* CFM_MGR_C2S_SIG_DM_SESSION_DELETE;

extern CFM_API const vorbus_sig_t* CFM_MGR_S2C_SIG_CACHE_REPLY;
extern CFM_API const vorbus_sig_t* CFM_MGR_S2C_SIG_STATS_REPLY;
extern CFM_API const vorbus_sig_t* CFM_MGR_S2C_SIG_LT_TRIGGER_ERROR;
extern CFM_API const vorbus_sig_t* CFM_MGR_S2C_SIG_LB_TRIGGER_ERROR;
extern CFM_API const vorbus_sig_t* CFM_MGR_S2C_SIG_DM_TRIGGER_ERROR;

extern CFM_API const vorbus_event_t* CFM_MGR_SRV_EVENT_STATUS_LOCAL_MEP;
extern CFM_API const vorbus_event_t* CFM_MGR_SRV_EVENT_STATUS_REMOTE_MEP;
extern CFM_API const vorbus_event_t* CFM_MGR_SRV_EVENT_REMOVED_LOCAL_MEP;
extern CFM_API const vorbus_event_t* CFM_MGR_SRV_EVENT_REMOVED_REMOTE_MEP;
extern CFM_API const vorbus_event_t* CFM_MGR_SRV_EVENT_LINKTRACE_STARTED;
extern CFM_API const vorbus_event_t* CFM_MGR_SRV_EVENT_LINKTRACE_REPLY_RX;
extern CFM_API const vorbus_event_t* CFM_MGR_SRV_EVENT_LINKTRACE_ENDED;
extern CFM_API const vorbus_event_t* CFM_MGR_SRV_EVENT_LOOPBACK_STARTED;
extern CFM_API const vorbus_event_t* CFM_MGR_SRV_EVENT_LOOPBACK_REPLY_RX;
extern CFM_API const vorbus_event_t* CFM_MGR_SRV_EVENT_LOOPBACK_ENDED;
extern CFM_API const vorbus_event_t* CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_STARTED;
extern CFM_API const vorbus_event_t* CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_REPLY_RX;
extern CFM_API const vorbus_event_t* CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_ENDED;
extern CFM_API const vorbus_event_t* CFM_MGR_SRV_EVENT_DELAY_MEASUREMENT_SESSION_ENDED;

#ifdef __cplusplus
}
#endif

#endif
