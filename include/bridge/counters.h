/* What the library has counted since the process started: connections, traffic, events by their fate, look-ups.
 *
 * @code
 * // What a handler has missed although the server told it.
 * uint64_t missed(void) {
 *     struct bri_counters now;
 *     bridge_client_get_counters(&now, sizeof now);
 *     return now.dropped_slave + now.dropped_before_data + now.dropped_stale;
 * }
 * @endcode
 */
#ifndef BRIDGE_COUNTERS_H
#define BRIDGE_COUNTERS_H

#include <bridge/base.h>

#include <stddef.h>

BRI_BEGIN_DECLS

/* Every figure only grows while the process lives, also over bridge_agent_init. New figures are added at the end. */
struct bri_counters {
    /* The server's connection. */
    uint64_t connections;     /*   0: made */
    uint64_t connect_failed;  /*   8: attempts that the server's socket refused, or that found none */
    uint64_t reset_by_peer;   /*  16: lost because the server closed it */
    uint64_t reset_bad_frame; /*  24: lost because a batch announced more than a batch may hold */
    uint64_t reset_timeout;   /*  32: lost because a batch was not whole in time */
    uint64_t reset_error;     /*  40: lost for another error of the socket */
    uint64_t reset_asked;     /*  48: reset by the host (bridge_client_connect_reset) */

    /* Traffic: batches that were read or written whole. A batch counts when its last byte has gone. */
    uint64_t batches_in;   /*  56 */
    uint64_t messages_in;  /*  64: that lay whole inside their batch */
    uint64_t bytes_in;     /*  72: with the batch headers */
    uint64_t batches_out;  /*  80 */
    uint64_t messages_out; /*  88 */
    uint64_t bytes_out;    /*  96: with the batch headers */

    /* Events, by what became of them. One message may carry several (a MAC notification), or none. */
    uint64_t events_handed_on;       /* 104: to the handlers that want them, be it none */
    uint64_t dropped_slave;          /* 112: the process is slave; no debug line tells of these */
    uint64_t dropped_not_registered; /* 120: no handler has registered for the type */
    uint64_t dropped_before_data;    /* 128: the server's backup data had not ended */
    uint64_t dropped_stale;          /* 136: of a VLAN whose version is not the one the event speaks of */
    uint64_t dropped_short;          /* 144: shorter than its record, or cut by the end of its batch */
    uint64_t dropped_unknown;        /* 152: of a submodule or type that nobody here acts on */

    /* Messages of this process. */
    uint64_t messages_refused; /* 160: a send that gave -1 */
    uint64_t runs_cached;      /* 168: batches that had to wait for the socket */
    uint64_t runs_dropped;     /* 176: batches that found the cache full, or no memory */
    uint64_t cache_most;       /* 184: the most runs that waited at one time */

    /* Delayed processing (the debug switch). */
    uint64_t messages_delayed;  /* 192 */
    uint64_t messages_released; /* 200 */

    /* Look-ups in the kernel. */
    uint64_t lookups_done;      /* 208: answered */
    uint64_t lookups_failed;    /* 216: no channel, no family, refused or not understood */
    uint64_t lookups_timed_out; /* 224 */
    uint64_t lookup_longest;    /* 232: microseconds from the request until the answer or the failure */

    /* The host's loop. */
    uint64_t jobs_refused; /* 240: jobs that the loop did not take; each is asked for again */
};
BRI_SIZE(bri_counters, 248);
BRI_AT(bri_counters, connections, 0);
BRI_AT(bri_counters, batches_in, 56);
BRI_AT(bri_counters, events_handed_on, 104);
BRI_AT(bri_counters, dropped_unknown, 152);
BRI_AT(bri_counters, messages_refused, 160);
BRI_AT(bri_counters, messages_delayed, 192);
BRI_AT(bri_counters, lookups_done, 208);
BRI_AT(bri_counters, jobs_refused, 240);

/* Copy the counters into the `size` bytes at `out`, where `size` is the sizeof(struct bri_counters) that the caller was
 * compiled with. A caller that knows more figures than the library finds zeros in them, one that knows fewer gets those
 * it knows. The number of bytes that both know; 0 when `out` is null or `size` is 0. Before initialisation the figures
 * are zero. Loop thread; sends nothing, locks nothing, writes no line. */
BRI_API size_t bridge_client_get_counters(struct bri_counters *out, size_t size);

BRI_END_DECLS

#endif
