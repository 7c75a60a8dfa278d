/* Logical interface ids of an element's ports, and their conversion to the kernel's interface indexes and names.
 *
 * By default a logical id is the kernel's interface index. A map file gives ports other numbers: it is named by the
 * environment variable LIMID_MAP, and is read anew when it changes. Each line holds a logical id (1 to 4294967295) and
 * an interface name; '#' begins a comment. Interfaces that the file does not name keep their index as logical id, but
 * an id that the file gives to one port never means another.
 *
 * All three return 0 or a negative errno, and leave their output zero or empty on failure:
 *   -EINVAL  a null output, or a buffer of length 0
 *   -ENODEV  no such interface, or no such logical id
 *   -ERANGE  the name does not fit into the buffer
 *   -EBADMSG the map file exists but is malformed; nothing is guessed then
 *   others   as the kernel's interface table or the map file's read reports
 * Any thread. */
#ifndef LIMID_LIMID_H
#define LIMID_LIMID_H

#include <stddef.h> /* NOLINT(modernize-deprecated-headers): also C */
#include <stdint.h> /* NOLINT(modernize-deprecated-headers): also C */

#if defined(__GNUC__)
#define LIMID_API __attribute__((visibility("default")))
#else
#define LIMID_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The kernel's interface index of a logical id. */
LIMID_API int limid_to_ifindex(uint32_t limid, uint32_t* ifindex);

/* The logical id of a kernel interface index. */
LIMID_API int limid_from_ifindex(uint32_t ifindex, uint32_t* limid);

/* The interface name of a logical id, NUL-terminated; length counts the octets of name, 16 (IF_NAMESIZE) always do. */
LIMID_API int limid_to_intfname(uint32_t limid, char* name, size_t length);

#ifdef __cplusplus
}
#endif

#endif
