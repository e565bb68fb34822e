/* Client context, initialisation, server socket, message dispatch and event handlers.
 *
 * What may hold the loop: connecting never; a batch whose bytes do not come, 2 seconds for each wait and 10 from its
 * first byte to its last; bridge_client_send_message_ontime on the loop's thread, as said there; any send or
 * registration while another thread is in bridge_client_send_message_ontime, as long as that; the kernel channel as
 * said in netlink.h. Which events come when, and what state they leave: docs/timeline.md.
 *
 * @code
 * #include <bridge/sets.h>
 * #include <bridge/vlan_client.h>
 *
 * #include <stdio.h>
 * #include <string.h>
 *
 * static int on_event(uint32_t type, void *data, uint16_t len) {
 *     struct vl_evt_vlan_rec vlan;
 *     if (type != VLAN_EVENT_CREATE_INDEX || len < sizeof vlan)
 *         return 0;
 *     memcpy(&vlan, data, sizeof vlan); // it may lie anywhere
 *     printf("VLAN %d is there\n", vlan.vid);
 *     return 0;
 * }
 *
 * int start(struct qv_thread_master *loop) {
 *     struct event_set events = {{0}};
 *     bri_event_set_add(&events, VLAN_EVENT_CREATE_INDEX);
 *     if (bridge_agent_init("my_daemon", loop) != 0)
 *         return -1;
 *     return bridge_client_reg_event(&events, on_event);
 * }
 * @endcode
 */
#ifndef BRIDGE_CLIENT_H
#define BRIDGE_CLIENT_H

#include <bridge/base.h>
#include <bridge/events.h>

BRI_BEGIN_DECLS

/* The one client context of a process. Allocated by bridge_agent_init, never freed afterwards. */
struct bri_clnt_ctx {
    uint32_t pid;                    /* process id at initialisation */
    int32_t sock;                    /* server socket; 0 or less means none */
    uint32_t cache_cnt;              /* byte runs waiting in `cache` */
    uint32_t cache_max;              /* limit of cache_cnt */
    uint32_t cache_drop;             /* runs refused because the cache was full */
    uint8_t connected;               /* 1 after a successful connect, 0 after a reset */
    uint8_t nl_ready;                /* 1 once the kernel channel of this client is up */
    uint8_t fresh;                   /* 1 at start and after a reset until the next full registration */
    uint8_t conn_done;               /* 1 once the connect callbacks ran and the registration went out */
    uint8_t data_synced;             /* 1 once the server's data synchronisation ended; never cleared */
    char name[20];                   /* client name, NUL-terminated */
    struct qv_thread_master *master; /* the host's event loop */
    struct event_set event_set;      /* union of the handlers' event types */
    struct bri_list handlers;        /* event handlers, in registration order */
    struct bri_list conn_cbs;        /* connect callbacks */
    struct bri_list oridata_cbs;     /* origin-data callbacks */
    struct bri_list cache;           /* byte runs waiting to be written */
};
/* Read by hosts in place, with pointers of either size. */
BRI_AT(bri_clnt_ctx, pid, 0);
BRI_AT(bri_clnt_ctx, sock, 4);
BRI_AT(bri_clnt_ctx, cache_cnt, 8);
BRI_AT(bri_clnt_ctx, cache_max, 12);
BRI_AT(bri_clnt_ctx, cache_drop, 16);
BRI_AT(bri_clnt_ctx, connected, 20);
BRI_AT(bri_clnt_ctx, nl_ready, 21);
BRI_AT(bri_clnt_ctx, fresh, 22);
BRI_AT(bri_clnt_ctx, conn_done, 23);
BRI_AT(bri_clnt_ctx, data_synced, 24);
BRI_AT(bri_clnt_ctx, name, 25);
BRI_AT(bri_clnt_ctx, master, 48);
BRI_AT(bri_clnt_ctx, event_set, 48 + sizeof(void *));
BRI_AT(bri_clnt_ctx, handlers, 560 + sizeof(void *));
BRI_AT(bri_clnt_ctx, conn_cbs, 560 + 3 * sizeof(void *));
BRI_AT(bri_clnt_ctx, oridata_cbs, 560 + 5 * sizeof(void *));
BRI_AT(bri_clnt_ctx, cache, 560 + 7 * sizeof(void *));

/* A callback of the host, on the loop's thread. */
typedef void (*bri_clnt_cb)(void);

/* Node of conn_cbs and oridata_cbs; never removed. A null function is skipped. */
struct bri_clnt_cb_node {
    struct bri_list link; /* in the order of setting */
    bri_clnt_cb fn;       /* called in this order */
};

/* What bridge_client_thread_event adds. */
enum bri_clnt_thread_evt {
    BRI_CLNT_EVT_CONNECT = 0,   /* connect at once */
    BRI_CLNT_EVT_READ = 1,      /* read when the server socket is readable */
    BRI_CLNT_EVT_RECONNECT = 2, /* connect after 1 second */
    BRI_CLNT_EVT_MSG_TIMER = 3  /* flush the send batch after 50 ms */
};

/* Null before bridge_agent_init succeeded. */
BRI_API extern struct bri_clnt_ctx *g_bridge_client;

/* Receive batch buffer of BRI_BATCH_BUFFER_SIZE bytes; null before bridge_agent_init succeeded. */
BRI_API extern uint8_t *g_bglib_recvbuf;

/* Start the library in this process: once, from the thread that runs the host's event loop, before any other thread
 * uses the library. `name` is the client's name for the server and the log, cut to 19 characters; null for
 * "Bridge-client-" and the process id. `master` is the host's event loop. 0, or -1 with a line on standard output when
 * `master` is null, the library is started already, or the socket or the context cannot be had; silently -1
 * without memory for a batch buffer. Every call, also one that is refused, first sets role and synchronisation back:
 * master, no data seen, no origin data asked for, no switch-over. After a failure it may be called again. Sends nothing
 * yet: it adds the first connect job and the flush timer to the loop, so handlers and callbacks that are set before the
 * loop runs are part of the first registration. There is no de-initialisation. */
BRI_API int bridge_agent_init(const char *name, struct qv_thread_master *master);

/* Add one of the client's jobs (enum bri_clnt_thread_evt) to the host's loop. Every job runs once; the flush timer and
 * the read job add themselves again. 0, also for an unknown kind, which adds nothing; -1 before initialisation or when
 * the loop refuses the job, which is then asked for again by the flush timer, and the flush timer by the library's next
 * job. A host needs RECONNECT alone: a second READ beside the pending one finds no batch, holds the loop for 10 seconds
 * and loses the connection; a second MSG_TIMER runs beside the first for good. Loop thread; sends nothing. */
BRI_API int bridge_client_thread_event(int kind);

/* Let `fn` be called on every new connection, in the order of setting, before the registration goes out; the same
 * function set twice is called twice. What it sends reaches the server before the registration. Nothing happens before
 * initialisation or when `fn` is null. Loop thread; sends nothing. */
BRI_API void bridge_agent_set_connect_callback(bri_clnt_cb fn);

/* Let `fn` be called whenever the server asks for this client's origin data, in the order of setting; it sends the
 * data. Nothing happens before initialisation or when `fn` is null. Loop thread; sends nothing. */
BRI_API void bridge_agent_set_oridata_callback(bri_clnt_cb fn);

/* Create the server socket of a context: close-on-exec, never descriptor 0, 10 seconds to send and 2 to receive. A
 * socket that the context has is closed first, as by bridge_client_connect_reset. The descriptor, or -1 when `ctx` is
 * null or the system has none. Loop thread; the connect job does this by itself. */
BRI_API int bridge_client_socket_create(struct bri_clnt_ctx *ctx);

/* Connect the context's socket to the server at TMPDIR/bridge/.server_socket (63 characters, a longer path is cut),
 * after making the directory and opening the socket there to all (mode 0777; whatever else stands at the path is left
 * alone, and no link is followed for it). 0, also when connected already; -1 when `ctx` is null or has no socket,
 * TMPDIR is unset, or the server does not take the connection at once, as with a full queue. Never waits. Loop thread;
 * the connect job does this by itself. */
BRI_API int bridge_client_socket_connect(struct bri_clnt_ctx *ctx);

/* Drop the connection: cancels the read job and closes the socket. What was batched or cached waits for the next
 * connection, where a run that was cut begins anew. Inside a handler or a connect callback the rest of the batch
 * is dropped, and the reconnect follows by itself behind the library's job. A host that resets from a job of its own
 * adds the reconnect: bridge_client_thread_event(BRI_CLNT_EVT_RECONNECT). Loop thread; a sender that is blocked in a
 * write returns at once. */
BRI_API void bridge_client_connect_reset(void);

/* Read n bytes, retrying a failed read (EAGAIN, EINPROGRESS, EINTR) at once. The bytes read, fewer than n only at the
 * end of the stream; negative on any other error, on the fifth failed read of the call, when `buf` is null, or when n
 * is above INT_MAX. Any descriptor, any thread. */
BRI_API int bridge_readn(int fd, void *buf, uint32_t n);

/* Write n bytes, blocking, retrying as bridge_readn does; a write of 0 bytes is a failed one. n, or the 0 or negative
 * result of the write that gave up; negative when `buf` is null or n is above INT_MAX. A peer that has gone raises no
 * signal on a socket. Any descriptor, any thread; on the server socket it bypasses the order of messages. */
BRI_API int bridge_writen(int fd, const void *buf, uint32_t n);

/* Send n bytes to a socket in one attempt that does not block. 0 when all went out (also for n = 0), 5 on a socket
 * error, 6 when it would block or took a part: the magnitudes of BRI_ERR_SOCKET and BRI_ERR_WOULD_BLOCK. `written` (may
 * be null) gets the bytes that went out. Any thread. */
BRI_API int bridge_writen_dontwait(int fd, const void *buf, uint32_t n, uint32_t *written);

/* Queue a message for the server: `len` payload bytes (0..10240) of an event type. Null `data` sends zeros. It leaves
 * with the batch when the batch is full (10248 bytes), by the 50 ms timer, or at once when it is client management,
 * layer-2 topology, MAC_EVENT_DYN_FLUSH or MVLAN_EVENT_NOTIFY_ENTRY. Never blocks on the socket: what that does not
 * take is cached up to `cache_max` runs, then dropped and counted; of a batch that is partly out the rest is kept
 * beyond the limit. 0 when queued, which is no promise: a hard error of the socket loses the whole batch. -1 while not
 * connected or when `len` is too large. Any thread, also from inside handlers. */
BRI_API int bridge_client_send_message(const void *data, uint32_t len, uint32_t type);

/* Write a message to the server now, as a batch of its own, before whatever is batched or cached; only a run that is
 * half written is completed first. Same arguments as bridge_client_send_message. Blocks while the socket takes nothing:
 * five send time-outs of 10 seconds at most for each of the two, during which every other sender waits, the flush timer
 * not. 0 when all of it was written, else -1: without a socket, with `len` above 10240, without memory, when the
 * writing failed, or, on another thread than the loop's, until the registration of a new connection is out. A message
 * that was half written when it failed is still completed: -1 does not say that the server never gets it. Any thread,
 * also from inside handlers and connect callbacks. */
BRI_API int bridge_client_send_message_ontime(const void *data, uint32_t len, uint32_t type);

/* Read one batch from `fd` into the receive buffer, whole, and point `out` at it; it stays until the next call. 0, or
 * -1 before initialisation, when `out` is null, when the stream ends or fails inside the batch, or when the batch
 * announces more than 10248 bytes; the caller then resets the connection. Loop thread; the read job does this by
 * itself. */
BRI_API int bridge_client_read_msg(int fd, struct bri_batch_hdr **out);

/* An event handler of the host. `type` is the event type as it came; `data` is its payload and `len` the payload's
 * length in bytes, cut to 16 bits. The payload may be unaligned and is gone when the handler returns; the events of
 * client management and the markers around replayed data come with (null, 0). The result is ignored. A handler may
 * register and withdraw handlers, send, and reset the connection. */
typedef int (*bri_event_handler)(uint32_t type, void *data, uint16_t len);

/* Route one message of the server: a header and `len` payload bytes behind it, at any alignment. Management messages
 * change this process's role and synchronisation state and reach the handlers; the other submodules' messages go to
 * their subsystems. A message that nobody takes, or that is shorter than what is read of it, is logged and dropped; a
 * null message is ignored. Loop thread. Sends BRIDGE_EVENT_ORI_DATA_OVER behind the origin-data callbacks, origin-data
 * requests at the end of the backup data or of a switch-over, and answers to research messages. */
BRI_API void bridge_client_msg_dspch(struct bri_msg_hdr *msg);

/* Let `handler` be called for the types of `set`, in addition to those it is called for already. Handlers are called in
 * the order of their first registration. While connected, the set is announced to the server at once (the result of
 * that is not reported); otherwise the registration that follows the next connect carries it. 0, or -1 before
 * initialisation, when an argument is null, or when memory is short. Loop thread. */
BRI_API int bridge_client_reg_event(const struct event_set *set, bri_event_handler handler);

/* End the interest of `handler` in the types of `set`. On return `set` holds those of them that no other handler wants:
 * what this process has withdrawn, and what, while connected, the server was told. 0, or -1 before initialisation or
 * when an argument is null. Loop thread; effective at once, also within a walk over the handlers. */
BRI_API int bridge_client_unreg_event(struct event_set *set, bri_event_handler handler);

/* Call every handler that is registered for `type`, with `data` and the low 16 bits of `len`. Nothing is called before
 * initialisation, while this process is slave, for a type outside 0..4095 (of its low 16 bits) or registered by none,
 * and, for any submodule but client management, before the backup data has ended. Loop thread; sends nothing itself. */
BRI_API void bridge_call_event_handlers(uint32_t type, void *data, uint32_t len);

/* Take over the role from the payload of BRIDGE_EVEVT_SERVER_STAT: byte 0 is 0 for master, else slave. A null payload
 * is ignored. Loop thread; sends nothing. */
BRI_API void bri_clnt_on_serv_stat_msg(const void *payload);

BRI_END_DECLS

#endif
