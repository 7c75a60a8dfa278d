/* vorbus: inter-process middleware of a network element. Processes find each other by name, send signals to one process
 * and broadcast events to those who registered for them.
 *
 * Conventions
 *  1. A token (vorbus_t) is one attachment of a process. Everything on one token happens on one thread at a time; two
 *     tokens are independent. No call but vorbus_dispatch runs a callback.
 *  2. Callbacks may call anything on their token but vorbus_close, vorbus_dispatch. Data handed to a callback lives
 * only during the call; an empty payload is a null pointer with size 0.
 *  3. Calls that can fail return 0 (or a count) or a negative errno, or a null handle with errno set.
 *  4. Handles are released by passing their address, which is set to null; a null handle is accepted and ignored.
 *     What a callback releases is not called again, not even for what has already arrived.
 *  5. A link between two processes delivers every message once and in order, or is reported lost: to the subscriber by
 *     its lost callback, to the other side by -ESRCH from the next send. */
#ifndef VORBUS_VORBUS_H
#define VORBUS_VORBUS_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define VORBUS_API __attribute__((visibility("default")))
#else
#define VORBUS_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

struct zlog_category_s; /* zlog_category_t of <zlog.h> */

typedef struct vorbus vorbus_t;
typedef uint32_t vorbus_pid_t; /* one run of one process; never 0, never reused at once */

/* Identities. Two are the same when their contents are; the records must outlive their use. */
typedef struct {
  char name[255]; /* NUL-padded; letters, digits, '-', '_' and '.', not beginning with '.' */
} vorbus_proc_t;
typedef struct {
  uint32_t id;
} vorbus_sigblock_t;
typedef struct {
  const vorbus_sigblock_t* block;
  unsigned int number;
} vorbus_sig_t;
typedef struct {
  uint32_t id;
} vorbus_evgroup_t;
typedef struct {
  const vorbus_evgroup_t* group;
  unsigned int number;
} vorbus_event_t;

typedef struct {
  char text[256];
  unsigned char detail[94];
} vorbus_fault_t; /* 350 octets */

typedef struct vorbus_subscription vorbus_subscription_t;
typedef struct vorbus_registration vorbus_registration_t;
typedef struct vorbus_eventreg vorbus_eventreg_t;

typedef void (*vorbus_found_fn)(vorbus_t* token, const vorbus_pid_t* pid, void* user);
typedef void (*vorbus_lost_fn)(vorbus_t* token, void* user);
typedef void (*vorbus_sig_fn)(vorbus_t* token, void* user, const vorbus_pid_t* sender, void* data, size_t size);
typedef void (*vorbus_event_fn)(vorbus_t* token, void* user, void* data, size_t size);

/* ---- Attaching ---- */

typedef struct {
  const char* process;   /* name under which others can subscribe to this process; null: none */
  const char* directory; /* socket directory; null: $VORBUS_DIR, else /run/vorbus. Made (mode 2770) when missing */
  unsigned int send_timeout_ms; /* how long a send waits for a peer that does not take its messages; 0: 10000 */
} vorbus_options_t;

/* Attaches; options may be null. On success *token is the new token. -EADDRINUSE: another live process has that name.
 * -ENAMETOOLONG: directory and name do not fit a socket address. -EINVAL: the name is not a valid one. Others as the
 * system reports for the directory. *token is null on failure. */
VORBUS_API int vorbus_open(const vorbus_options_t* options, vorbus_t** token);

/* Detaches: what was sent is flushed (for one second at most), links end, handles that were not released die with it.
 * Sets *token to null. */
VORBUS_API void vorbus_close(vorbus_t** token);

/* The pid of this run of this process. */
VORBUS_API vorbus_pid_t vorbus_self(const vorbus_t* token);

/* A descriptor to poll for reading (level-triggered) in the caller's event loop; owned by the token. It becomes
 * readable whenever vorbus_dispatch has something to do. */
VORBUS_API int vorbus_fd(const vorbus_t* token);

/* Runs the callbacks for what has arrived, without waiting, and returns their number or a negative errno. One call may
 * leave some of it for the next (vorbus_fd stays readable then), so that a flood does not starve the caller's loop. */
VORBUS_API int vorbus_dispatch(vorbus_t* token);

/* ---- Presence ---- */

/* Follows the process of that name: found once for each of its runs, lost once for each found. The process may start
 * later; waiting costs nothing. Null with errno on failure. */
VORBUS_API vorbus_subscription_t* vorbus_proc_subscribe(vorbus_t* token, const vorbus_proc_t* process,
                                                        vorbus_found_fn found, vorbus_lost_fn lost, void* user);

/* Ends it; no lost is reported. The link goes with the last subscription to that process. */
VORBUS_API void vorbus_proc_unsubscribe(vorbus_subscription_t** subscription);

/* ---- Signals: to one process ---- */

/* Sends to a process that was found, or from which a signal came. Waits at most the send timeout for a slow peer; a
 * peer that takes nothing for that long loses its link. -ESRCH: no link to such a pid (0 included). -EMSGSIZE: larger
 * than 256 MiB. -ETIMEDOUT: the link was given up. */
VORBUS_API int vorbus_sig_send(vorbus_t* token, const vorbus_pid_t* to, const vorbus_sig_t* signal, const void* data,
                               size_t size);

/* Calls the handler for each signal of that identity. Several registrations of one identity are called in order. Null
 * with errno on failure. */
VORBUS_API vorbus_registration_t* vorbus_sig_register_sized(vorbus_t* token, const vorbus_sig_t* signal,
                                                            vorbus_sig_fn handler, void* user);
VORBUS_API void vorbus_sig_deregister(vorbus_registration_t** registration);

/* ---- Events: to every process that registered ---- */

/* Broadcasts to every linked process that registered for the event. Returns the number of processes it went to or a
 * negative errno; a receiver that does not take its messages loses its link, as with vorbus_sig_send. */
VORBUS_API int vorbus_event_publish(vorbus_t* token, const vorbus_event_t* event, const void* data, size_t size);

/* 1 when vorbus_event_publish would go through at once; 0 when some receiver is behind and it would wait. For those who
 * would rather come back later. A negative errno on failure. */
VORBUS_API int vorbus_event_ready(vorbus_t* token, const vorbus_event_t* event);

/* Calls the handler for each event of that identity, from any process subscribed to. The registrations that exist when
 * a process is found are known to it before found is reported. Null with errno on failure. */
VORBUS_API vorbus_eventreg_t* vorbus_event_register_sized(vorbus_t* token, const vorbus_event_t* event,
                                                          vorbus_event_fn handler, void* user);
VORBUS_API void vorbus_event_deregister(vorbus_eventreg_t** registration);

/* ---- Logging and faults ---- */

/* The zlog category of that name; null on failure. The first call of a process sets zlog up: from the file that
 * $VORBUS_LOG_CONF names, else to write level WARN and above to standard error. */
VORBUS_API struct zlog_category_s* vorbus_trace_init(vorbus_t* token, const char* category);

/* Writes the calling thread's stack to standard error. */
VORBUS_API void vorbus_print_backtrace(void);

/* Reports a fault (one line on standard error: severity, function, file, line and text). The caller decides whether it
 * goes on. */
VORBUS_API void vorbus_gen_fault(int severity, const char* function, const char* file, int line,
                                 const vorbus_fault_t* fault);

#ifdef __cplusplus
}
#endif

#endif
