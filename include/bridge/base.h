/* Shared types and helpers of the bridge client library.
 *
 * Conventions that hold for every header under bridge/:
 *
 *  1. Every integer in a message, on the kernel channel and in shared memory is in the host's byte order: all
 *     parties run on one machine.
 *  2. A record that crosses a process boundary shows the byte offset of every field in its comment column, and its
 *     layout is asserted right below it.
 *  3. Results: 0 on success and -1 or another negative number on failure; predicates give 1 or 0; look-ups give a
 *     pointer or null. A function that deviates says so.
 *  4. Unless a function says otherwise it is called from the thread that runs the host's event loop.
 *  5. Nothing here prints, aborts or exits inside the host process; start-up failures alone are written to standard
 *     output.
 *  6. Names are the interface, letter for letter, unusual spellings included.
 */
#ifndef BRIDGE_BASE_H
#define BRIDGE_BASE_H

#include <stddef.h>
#include <stdint.h>

/* What C and C++ say differently: how names are linked, and what the compiler is to assert. */
#ifdef __cplusplus
#define BRI_BEGIN_DECLS                    extern "C" {
#define BRI_END_DECLS                      }
#define BRI_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define BRI_BEGIN_DECLS
#define BRI_END_DECLS
#define BRI_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif

/* Marks what the shared library exports; everything else stays hidden. */
#define BRI_API __attribute__((visibility("default")))

/* Layout assertions: BRI_SIZE once per record, BRI_AT once per field. */
#define BRI_SIZE(type, size) BRI_STATIC_ASSERT(sizeof(struct type) == (size), #type " must be " #size " bytes")
#define BRI_AT(type, field, offset)                                                                                    \
    BRI_STATIC_ASSERT(offsetof(struct type, field) == (offset), #type "." #field " must be at " #offset)

BRI_BEGIN_DECLS

/* A set of event types 0..4095: type t is bit t & 31 of word t >> 5. Carried on the wire as it stands. */
struct event_set {
    uint32_t words[128]; /* 0 */
};
BRI_SIZE(event_set, 512);

/* A set of VLAN ids, same layout; the usable ids are 1..4094. Lives in shared memory, requests and events. */
struct vlanset {
    uint32_t words[128]; /* 0 */
};
BRI_SIZE(vlanset, 512);

/* Links of a circular doubly linked list. An empty head points at itself; nodes are appended at the tail. */
struct bri_list {
    struct bri_list *next; /* the head, behind the last node */
    struct bri_list *prev; /* the head, before the first node */
};

struct bri_clnt_ctx;
struct bri_mac_entry;
struct bri_mac_msg;
struct bri_msg_hdr;
struct bri_shm_handle;
struct bri_sem_lock;
struct qv_thread_master;
struct spcb;
struct vle;
struct vl_evt_vlanset_rec;

BRI_END_DECLS

#endif
