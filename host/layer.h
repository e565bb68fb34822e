/* What the files of the host layer offer each other. Plain C11 on the public headers; one layer a process. */
#ifndef BRIDGE_HOST_LAYER_H
#define BRIDGE_HOST_LAYER_H

#include <bridge/client.h>
#include <bridge/counters.h>
#include <bridge/host.h>
#include <bridge/services.h>
#include <bridge/sets.h>

#include <qv_thread.h>

#include <stdbool.h>
#include <string.h>

struct layer {
    struct bridge_host_config config; /* every member set */
    struct bridge_host_statistics statistics;
    struct event_set registered; /* for the one handler of the layer */
    uint32_t event_number;       /* of the last event, or other occasion at which requests are looked at */
    struct bri_counters before;  /* the library's at the start */
    enum bridge_host_role role;  /* as on_role was told */
    bool started;                /* bridge_host_start to the end of bridge_host_stop */
    bool stopping;               /* bridge_host_stop was called */
    bool connected;              /* as on_connection was told */
    int64_t lost_at;             /* microseconds, in an outage: when it was seen; 0: none */
    bool heard;                  /* an event of the server has come since the start */
};
extern struct layer bri_host;

/* Any callback may end this. */
static inline bool bri_host_runs(void) {
    return bri_host.started && !bri_host.stopping;
}

/* The tick's period in ticks: how many of them make at least so many milliseconds. */
static inline uint32_t bri_host_ticks(uint32_t ms) {
    return (ms + bri_host.config.tick_ms - 1) / bri_host.config.tick_ms;
}

/* Microseconds of a clock that nobody sets. */
int64_t bri_host_now_us(void);

static inline void bri_host_append(struct bri_list *list, struct bri_list *link) {
    *link = (struct bri_list){.next = list, .prev = list->prev};
    link->prev->next = link;
    list->prev = link;
}

static inline void bri_host_unlink(struct bri_list *link) {
    link->prev->next = link->next;
    link->next->prev = link->prev;
}

/* Adds a one-shot timer to the layer's loop; false when the loop refuses it. */
bool bri_host_after(qv_thread_func job, void *arg, uint64_t usec, const char *name);
void bri_host_cancel_job(qv_thread_func job, void *arg);

/* life.c: takes the tick up again when the loop has refused it. */
void bri_host_keep_tick(void);

/* events.c */
int bri_host_on_event(uint32_t type, void *data, uint16_t len);
int bri_host_register(const struct event_set *events); /* those that are not registered yet */
int bri_host_take_rows(const struct bridge_host_config *config);
void bri_host_drop_rows(void);
bool bri_host_has_row_of(uint32_t submod);

/* status.c: what the tick and the connect callback see of the connection; the event by which the role is tried, looks
 * at it, and notes that an event has come; the library's counters as they are now. */
enum { BRI_HOST_PROBE = BRI_SUBMOD_CLNT_MNG << 7 | 127 };
void bri_host_on_connect(void);
void bri_host_watch_connection(void);
bool bri_host_is_probe(uint32_t type, const void *data);
void bri_host_watch_role(void);
void bri_host_note_master(uint32_t type);
struct bri_counters bri_host_counters(void);
uint64_t bri_host_missed(void); /* events of the server that no handler was called for, because of role or start */

/* resync.c */
void bri_host_resync_start(struct event_set *events);                          /* adds the markers to the events */
void bri_host_resync_before(uint32_t type, const void *record, uint16_t size); /* the handlers of an event */
void bri_host_resync_after(uint32_t type);
void bri_host_resync_cut(void);                  /* everything that runs; nothing is in step any more */
void bri_host_resync_connected(bool introduced); /* the server is still to say that its data begins */
void bri_host_resync_master(void);               /* a slave has become it */
void bri_host_resync_tick(void);

/* sweep.c: what is known of VLANs, ports and addresses. */
int bri_host_sweep_start(struct event_set *events);
void bri_host_sweep_end(void);
bool bri_host_sweeps(uint32_t submod);
bool bri_host_sweep_whole(uint32_t submod); /* all that were told are known */
void bri_host_sweep_note(uint32_t type, const void *record, uint16_t size);
void bri_host_sweep_begin(uint32_t submod);                    /* nothing is told yet */
void bri_host_sweep_finish(uint32_t submod, const bool *open); /* reports what was not told again, and forgets it, as
                                                                * long as a callback has not cut it */

/* request.c, walk.c */
void bri_host_requests_event(uint32_t event_number, uint32_t type, const void *record, uint16_t size);
void bri_host_requests_tick(void);
uint32_t bri_host_requests_end(enum bridge_host_result result); /* how many there were */
void bri_host_walks_end(int result);

#endif
