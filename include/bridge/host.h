/* The host layer, libbridge_host: what every daemon on the client library has to get right, written once.
 *
 * @code
 * #include <bridge/bridge.h>
 *
 * static void on_vlan(const void *record, uint16_t size, void *context) {
 *     // whole and aligned
 *     const struct vl_evt_vlan_rec *vlan = (const struct vl_evt_vlan_rec *)record;
 *     (void)vlan, (void)size, (void)context;
 * }
 *
 * static const struct bridge_host_handler handlers[] = {
 *     {VLAN_EVENT_CREATE_INDEX, sizeof(struct vl_evt_vlan_rec), on_vlan, NULL},
 * };
 *
 * int start(struct qv_thread_master *loop) {
 *     const struct bridge_host_config config = {
 *         .size = sizeof config,
 *         .flags = BRIDGE_HOST_SWEEP_VLANS,
 *         .name = "my_daemon",
 *         .master = loop,
 *         .handlers = handlers,
 *         .handler_count = 1,
 *     };
 *     return bridge_host_start(&config);
 * }
 * @endcode
 *
 * Link libbridge_host and libbridge_client. The layer uses the library's public headers alone; whatever it does not
 * cover is called beside it as ever. One host a process, since the library is one a process.
 *
 *  1. Everything here belongs to the thread that runs the host's event loop, and every callback runs on it.
 *  2. Results: 0, or a negative enum bri_error (bridge/services.h; bri_strerror has the texts). Nothing is printed,
 *     nothing aborts. A null pointer where one is needed gives BRI_ERR_NULL, a call before bridge_host_start or behind
 *     bridge_host_stop BRI_ERR_NOT_PERMITTED.
 *  3. Memory is taken by bridge_host_start alone. Requests and walks are records of the caller's; they must stay where
 *     they are until they have ended or were cancelled.
 *  4. Callbacks may call anything of this header, of the library and of the loop, unless they say otherwise.
 *  5. The layer asks the server for origin data by itself. Apart from that it sends what the requests and walks of the
 *     caller send, and registrations.
 *  6. Times are in milliseconds of the loop's timers. One timer of the layer, the tick, runs on the loop all the time.
 */
#ifndef BRIDGE_HOST_H
#define BRIDGE_HOST_H

#include <bridge/base.h>
#include <bridge/mac_client.h>

BRI_BEGIN_DECLS

/* Role ------------------------------------------------------------------------------------------------------------ */

/* What the server has made of this process. A slave is told no events. */
enum bridge_host_role {
    BRIDGE_HOST_ROLE_UNKNOWN = 0, /* the server has not said anything yet */
    BRIDGE_HOST_ROLE_SLAVE = 1,
    BRIDGE_HOST_ROLE_MASTER = 2
};

/* The role as it is at this moment; a lost connection does not change it. UNKNOWN also before bridge_host_start. A
 * change that this call is the first to see is told to on_role by the next tick. */
BRI_API enum bridge_host_role bridge_host_role(void);

/* Events ---------------------------------------------------------------------------------------------------------- */

/* Gets one event. `record` is aligned to 4 bytes, as the records of the public headers need it, and gone when the
 * handler returns; it is null when `size` is 0, and holds `size` bytes, at least as many as the table asks for. */
typedef void (*bridge_host_event_fn)(const void *record, uint16_t size, void *context);

/* A row of the table of events. An event may have several rows, which are called in their order. */
struct bridge_host_handler {
    uint32_t event;               /* enum bri_event, 1..4095 */
    uint16_t least;               /* bytes of record that the handler reads; a shorter one is dropped and counted */
    bridge_host_event_fn handler; /* not null */
    void *context;                /* passed to the handler; null: the configuration's */
};

/* Resynchronisation -----------------------------------------------------------------------------------------------
 *
 * What changes while there is no connection, while this process is slave, and between the begin and end of the server's
 * backup data is not told by anyone. So the layer asks for the origin data whenever such a time is over: at
 * BRIDGE_EVENT_BKUP_DATA_END of every connection, behind a switch-over, when a slave has become master in any other
 * way, and when the server is connected but does not come to the end of its backup data within answer_ms.
 *
 * The followed submodules are those of which the table has an event or that are swept: MAC, VLAN, MAC-based VLAN,
 * layer-2 topology, VLAN groups. For each of them, once a time that it is asked for:
 *
 *     on_resync_begin(submodule)
 *     the items: the handlers of the submodule's events, as for any other event
 *     on_vanished(...) for everything that was known and is not among the items; see SWEEP below
 *     on_resync_end(submodule, complete)
 *
 *  - Each begin is followed by exactly one end of the same submodule, and no second begin comes before it, whatever
 *    markers the server or the library send: empty ones, two of the same kind, none. The markers themselves can have
 *    rows in the table like any event, but need none.
 *  - An empty pair is a begin and an end marker without an event of the submodule in between that nobody of this layer
 *    has asked for, as all those that the library raises when the server ends its synchronisation
 *    (BRIDGE_EVENT_SYNC_DATA_BEGIN up to _END). Nothing is told of it. The answer to a question of the layer's is told
 *    also when it is empty: there is nothing then, and everything known vanishes. Items between markers that the layer
 *    did not ask for (the daemon asked by itself) are told as above.
 *  - `complete` 1: the items were all there is, and a mirror that has followed items and vanished ones is in step.
 *    `complete` 0: it was cut, nothing was swept, and what is missing comes with a later one. That is so when the
 *    connection is lost, the process becomes slave or the backup data begins anew in the middle, when the shared tables
 *    cannot be mapped (which is tried again every time), when the server has not answered three times (it is asked
 *    every 8 answer_ms then), and for the addresses ever since there were more of them than mac_capacity.
 *  - Questions that overlap are one: it ends with the last answer, and only what is in that is there.
 *  - VLAN and layer-2 topology run from begin to end within one call and are read out of the shared tables. Of
 *    attributes they tell only what differs from the usual: a mirror takes every VLAN for static, with the name of its
 *    number and without a routed interface, until told otherwise behind VLAN_EVENT_CREATE_RANGE with origin_data 1. Of
 *    a routed port nothing is told.
 *  - The other submodules are told by the server behind the request. Events that come in between are events.
 *  - In step at on_resync_end means: equal to the tables at that moment. The announcements of changes that the tables
 *    already held then may still follow; they are applied like any other.
 *  - A change to slave and back between two ticks is not told to on_role. When an event was dropped in it, the next
 *    tick asks for the data again, and bridge_host_in_step knows at once.
 *
 * SWEEP: the layer keeps the ids of the VLANs, ports and addresses that were told and not taken back, and reports those
 * that a complete resynchronisation did not tell again. VLANs: VLAN_EVENT_CREATE_INDEX, _CREATE_RANGE, _DESTROY_INDEX,
 * _DESTROY_RANGE. Ports: VLAN_EVENT_CREATE_INTF, _DESTROY_INTF and mode routed in VLAN_EVENT_MODIFY_INTF_MODE.
 * Addresses, by address and broadcast domain: MAC_EVENT_NOTIFY_ADDR and _NOTIFY_NONDYN, deletions with wildcards
 * included. It registers these events by itself. */

/* What the layer can tell to have vanished. */
enum bridge_host_kind { BRIDGE_HOST_VLAN = 1, BRIDGE_HOST_PORT = 2, BRIDGE_HOST_ADDRESS = 3 };

/* Something that a resynchronisation did not tell again. */
struct bridge_host_vanished {
    enum bridge_host_kind kind;   /* what it was */
    uint16_t vid;                 /* the VLAN; of an address its broadcast domain */
    uint32_t ifx;                 /* the port; of an address the port where it was */
    struct bri_mac_entry address; /* the address as it was last told; zero for other kinds */
};

/* Asks for the origin data of every followed submodule again. 0: the data comes or has come within the call; inside a
 * callback of a resynchronisation it comes behind it. BRI_ERR_WOULD_BLOCK: it comes later, when the server's data is
 * there and this process is master. */
BRI_API int bridge_host_resync(void);

/* 1 when the last resynchronisation of the followed submodule was complete and nothing is known to have been missed
 * since: connected, master, not between begin and end of the backup data. Else 0. */
BRI_API int bridge_host_in_step(uint32_t submod);

/* Configuration --------------------------------------------------------------------------------------------------- */

/* What the layer does beside its duty; all of them are off in a configuration of zeros. */
enum bridge_host_flag {
    BRIDGE_HOST_REFUSE_AS_SLAVE = 1, /* bridge_host_may_send and all that asks it refuses while slave */
    BRIDGE_HOST_SWEEP_VLANS = 2,
    BRIDGE_HOST_SWEEP_PORTS = 4
};

/* Zero is a good value for every member that is not said to be needed. New members come at the end; `size` tells which
 * of them the caller knows, and the others are zero. */
struct bridge_host_config {
    uint32_t size;                              /* sizeof(struct bridge_host_config); needed */
    uint32_t flags;                             /* enum bridge_host_flag */
    const char *name;                           /* as for bridge_agent_init */
    struct qv_thread_master *master;            /* the host's loop; needed unless the library has been started */
    const struct bridge_host_handler *handlers; /* copied */
    uint32_t handler_count;                     /* at most 250 */
    uint32_t mac_capacity;                      /* addresses that the sweep can hold, 24 bytes each; 0: no sweep */
    uint32_t tick_ms;                           /* 10..1000; 0: 200. The layer looks at role and connection so often */
    uint32_t answer_ms;                         /* the server has so long to answer before it is asked again; 0: 5000 */
    uint32_t stop_ms;                           /* bridge_host_stop waits so long; 0: 2000 */
    void *context;                              /* passed to all of these: */

    /* The connection stands (1, before the registration goes out) or is lost (0, seen by the tick, at
     * the latest when the next one stands). Requests can be sent from 1 on. */
    void (*on_connection)(int up, void *context);
    /* The role has changed, also without a switch-over. Behind a switch-over it is MASTER at its begin; the data is
     * complete with the resynchronisations that follow its end. */
    void (*on_role)(enum bridge_host_role role, void *context);
    void (*on_resync_begin)(uint32_t submod, void *context);                     /* enum bri_submod */
    void (*on_vanished)(const struct bridge_host_vanished *what, void *context); /* between begin and end */
    void (*on_resync_end)(uint32_t submod, int complete, void *context);         /* as said above */
};

/* Starts the layer and, unless that has been done, the library (bridge_agent_init). Registers the events of the table
 * and its own. Sends nothing yet. BRI_ERR_INVALID: a size, flag, time or event out of its range, a row without handler,
 * or a loop that is not the library's. BRI_ERR_NOT_PERMITTED: started already. BRI_ERR_NO_MEMORY, also when the loop
 * refuses the tick. BRI_ERR_UNKNOWN: the library could not be started, as printed by it. After a failure it may be
 * called again. */
BRI_API int bridge_host_start(const struct bridge_host_config *config);

/* Stop ------------------------------------------------------------------------------------------------------------ */

/* What bridge_host_stop leaves behind. */
struct bridge_host_left {
    int32_t result;    /* BRI_OK: all that the library accepted is in the server's socket. BRI_ERR_WOULD_BLOCK: the
                        * server did not take it in time. BRI_ERR_SOCKET: there is no connection; besides `runs` the
                        * batch may hold what was accepted since the last flush */
    uint32_t runs;     /* byte runs that wait in the library's cache */
    uint32_t dropped;  /* byte runs that the library has dropped since bridge_host_start because its cache was full */
    uint32_t unread;   /* bytes that are in the socket and not read by the server yet; they outlive this process */
    uint32_t requests; /* requests that were ended as BRIDGE_HOST_STOPPED */
};

/* Ends the layer: withdraws the registrations of its events, by which everything that the library has accepted is
 * flushed at once, and waits until that is in the socket, stop_ms at most and also for a connection. Then the
 * outstanding requests and walks are ended, and `on_stopped` is called with the context of the configuration; the usual
 * thing to do there is to stop the loop. All of that is done by jobs of the loop, but a resynchronisation that runs is
 * cut within this call, and from then on there are no events, ticks and new requests. The library itself has no end;
 * bridge_host_start may follow, also in `on_stopped`. BRI_ERR_NO_MEMORY: the loop refuses the job; the layer has ended
 * within the call then, without waiting and without `on_stopped`. */
BRI_API int bridge_host_stop(void (*on_stopped)(const struct bridge_host_left *left, void *context));

/* Requests with an end -------------------------------------------------------------------------------------------- */

/* How a request ended. */
enum bridge_host_result {
    BRIDGE_HOST_DONE = 0,
    BRIDGE_HOST_TIMED_OUT = 1,
    BRIDGE_HOST_LOST = 2,   /* the connection; whether the server carried the request out is open */
    BRIDGE_HOST_STOPPED = 3 /* bridge_host_stop */
};

/* A request, what shows that it is done, and until when that must be. */
struct bridge_host_pending {
    int (*send)(void *context); /* sends it with any call of the library; not 0: it could not. Null: nothing is sent */
    /* Asked for every event of `events`, with its record as a handler gets it, and at each tick with event 0, null and
     * 0, to look at a table. Not 0: done. An event that was being handled when the request was made does not count. */
    int (*done_when)(uint32_t event, const void *record, uint16_t size, void *context);
    const uint32_t *events; /* the events that may end it, with a 0 behind them; null: none. Read while outstanding */
    uint32_t timeout_ms;    /* 1 or more */
    /* Once, from the loop, never within bridge_host_request. The record is the caller's again and may be used anew.
     * Null: nobody wants to know. */
    void (*on_done)(struct bridge_host_pending *request, enum bridge_host_result result, void *context);
    void *context; /* passed to all three */

    /* The layer's. Zero before the first use. */
    struct bri_list link; /* among the outstanding */
    uint32_t since;       /* number of the last event before it */
    uint32_t state;       /* 0: not outstanding */
};

/* Sends the request and watches for its end; any number at once. An event that is in no row is registered for it, and
 * stays so until the layer ends. Not 0, and on_done is not called: BRI_ERR_SOCKET not connected;
 * BRI_ERR_NOT_PERMITTED slave and BRIDGE_HOST_REFUSE_AS_SLAVE, or not started; BRI_ERR_INVALID the request is
 * outstanding, has no time or an event out of range; BRI_ERR_NO_MEMORY the loop refuses the timer; what `send` gave. */
BRI_API int bridge_host_request(struct bridge_host_pending *request);

/* Ends a request without on_done. Nothing happens to one that is not outstanding, nor to null. */
BRI_API void bridge_host_cancel(struct bridge_host_pending *request);

/* Whether a request can be sent now: 0, BRI_ERR_SOCKET when not connected, BRI_ERR_NOT_PERMITTED when slave and
 * BRIDGE_HOST_REFUSE_AS_SLAVE is set. */
BRI_API int bridge_host_may_send(void);

/* Kernel's address table ------------------------------------------------------------------------------------------
 *
 * A walk over the addresses that the kernel's bridge module holds, as the look-ups of bridge/mac_client.h give them,
 * which does not hold the loop: on a socket of its own, in slices, and waiting for a slow kernel without waiting. What
 * changes meanwhile may be seen or not. */

/* A walk: what it goes over, whom it calls, and where it stands. */
struct bridge_host_walk {
    uint32_t ifx;       /* only this port's, or 0: all, rising by address */
    uint32_t slice_us;  /* so long it may hold the loop at a time, plus one entry; 0: 1000 */
    uint32_t answer_ms; /* so long the kernel may take for one answer; 0: 10000 */
    int (*on_entry)(const struct bri_mac_entry *entry, void *context); /* needed; not 0: enough */
    /* Once, from the loop, never within bridge_host_walk_start: 0 at the end of the table or when it was enough;
     * BRI_ERR_SOCKET the kernel has no bridge module or reported an error; BRI_ERR_WOULD_BLOCK it did not answer in
     * time; BRI_ERR_NO_MEMORY the loop refused a job; BRI_ERR_UNKNOWN it answered with what cannot be;
     * BRI_ERR_NOT_PERMITTED bridge_host_stop. The record is the caller's again. Null: nobody wants to know. */
    void (*on_end)(struct bridge_host_walk *walk, int result, void *context);
    void *context; /* passed to both */

    /* The layer's. Zero before the first use. */
    struct bri_list link;         /* among those that run */
    struct bri_mac_entry current; /* the last entry */
    int32_t fd;                   /* its socket */
    uint16_t family;              /* the bridge module's number */
    uint16_t state;               /* 0: it does not run */
};

/* Begins a walk; any number at once. BRI_ERR_SOCKET: no socket to the kernel; BRI_ERR_INVALID: it runs already;
 * BRI_ERR_NO_MEMORY: the loop refuses a job. on_end is called only after 0. */
BRI_API int bridge_host_walk_start(struct bridge_host_walk *walk);

/* Ends a walk without on_end. Nothing happens to one that does not run, nor to null. */
BRI_API void bridge_host_walk_cancel(struct bridge_host_walk *walk);

/* Ports ----------------------------------------------------------------------------------------------------------- */

/* A port for a function that cannot share it. The machine has two tables of such functions, and a claim may concern one
 * of them or both: the flags of bridge/port_exclusion.h and the attributes of swport_set_attr_exclude. */
struct bridge_host_claim {
    uint32_t ifx;            /* 1..63 */
    uint32_t flags;          /* own bits, enum bri_exclusion_id; 0: not this table */
    uint32_t flag_conflicts; /* bits that must not be set */
    uint32_t attrs;          /* own bits; 0: not this table */
    uint32_t attr_conflicts; /* bits that must not be set; only those of 0x1fc0 are looked at */
};

/* Why a claim was refused. */
enum bridge_host_refusal_reason {
    BRIDGE_HOST_CLAIM_FREE = 0,    /* it was not */
    BRIDGE_HOST_CLAIM_HELD = 1,    /* by the functions in flags or attrs */
    BRIDGE_HOST_CLAIM_NO_PORT = 2, /* there is no such port */
    BRIDGE_HOST_CLAIM_NO_TABLE = 3 /* the table cannot be had */
};

/* Who is in the way of a claim. */
struct bridge_host_refusal {
    enum bridge_host_refusal_reason reason; /* FREE when it was not refused */
    uint32_t flags;                         /* the bits of flag_conflicts that are set */
    uint32_t attrs;                         /* the bits of attr_conflicts that are set */
    char text[160]; /* for people, never empty after a refusal: "port 3 is held: BRI_DOT1X BRI_SECURE" */
};

/* Claims a port in both tables or in none. What is set already and claimed again stays set, also when the other table
 * refuses. 0; BRI_ERR_NOT_PERMITTED held; BRI_ERR_NO_INTERFACE no such port; BRI_ERR_NO_MEMORY no table;
 * BRI_ERR_INVALID a claim without a bit of its own. `why` (may be null) is always filled. Needs the library started,
 * not the layer. */
BRI_API int bridge_host_claim_port(const struct bridge_host_claim *claim, struct bridge_host_refusal *why);

/* Takes the bits of `flags` and `attrs` back, also those that are not set and of a port that has gone. 0;
 * BRI_ERR_NO_MEMORY when a table cannot be had; BRI_ERR_INVALID flags of a port that their table has no place for. */
BRI_API int bridge_host_release_port(const struct bridge_host_claim *claim);

/* Asks the server to drop, or no longer to drop, all frames of an address in a broadcast domain: an entry of type
 * FILTER. `mac` is 6 bytes. 0 queued; BRI_ERR_INVALID a group address or domain 0 or above 4094; what
 * bridge_host_may_send gives. MAC_EVENT_NOTIFY_ADDR tells when it is so. */
BRI_API int bridge_host_filter_add(const uint8_t *mac, uint16_t bcast_id);
BRI_API int bridge_host_filter_del(const uint8_t *mac, uint16_t bcast_id);

/* Statistics ------------------------------------------------------------------------------------------------------ */

/* Since bridge_host_start. Why the library lost connections and dropped messages: bridge/counters.h, where the layer's
 * look at the role is one event a tick, handed on or dropped. New members come at the end, as in the configuration. */
struct bridge_host_statistics {
    uint32_t size;               /* sizeof(struct bridge_host_statistics), set by the caller */
    uint32_t connections;        /* that stood */
    uint32_t outages;            /* connections that were lost */
    uint32_t outage_longest_ms;  /* wall time from the tick that saw the loss to the next connection, */
    uint64_t outage_total_ms;    /* the one that lasts included */
    uint64_t events;             /* that came for rows of the table; each once, however many rows it has */
    uint32_t dropped_short;      /* rows not called: the record was shorter than `least` */
    uint32_t dropped_long;       /* rows not called: above 10240 bytes at an unaligned address */
    uint32_t dropped_missed;     /* events that the library gave nobody: slave, or before the end of the backup data */
    uint32_t dropped_stale;      /* events of a VLAN that the library knew to be out of date */
    uint32_t role_changes;       /* told to on_role */
    uint32_t resyncs_complete;   /* on_resync_end with 1, */
    uint32_t resyncs_cut;        /* and with 0 */
    uint32_t vanished;           /* told to on_vanished */
    uint32_t addresses_left_out; /* addresses for which mac_capacity had no room */
    uint32_t requests;           /* accepted by bridge_host_request, */
    uint32_t requests_refused;   /* and not */
    uint32_t requests_done;      /* how the accepted ones ended */
    uint32_t requests_timed_out; /* by their deadline */
    uint32_t requests_lost;      /* with the connection */
    uint32_t requests_cancelled; /* bridge_host_cancel and bridge_host_stop */
    uint32_t walks;              /* begun */
    uint32_t runs_dropped;       /* by the library, because its cache was full */
};

/* Fills out->size bytes; what it does not know is set to zero. 0, or BRI_ERR_INVALID for a size below 4. */
BRI_API int bridge_host_get_statistics(struct bridge_host_statistics *out);

/* How often an event came for rows of the table; 0 for one that is in none. */
BRI_API uint32_t bridge_host_event_count(uint32_t event);

BRI_END_DECLS

#endif
