/* Client context, initialisation, server socket, message dispatch and event handlers. */
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

typedef void (*bri_clnt_cb)(void);

/* Node of conn_cbs and oridata_cbs; never removed. */
struct bri_clnt_cb_node {
    struct bri_list link;
    bri_clnt_cb fn;
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

BRI_API int bridge_agent_init(const char *name, struct qv_thread_master *master);

BRI_API int bridge_client_thread_event(int kind);

BRI_API void bridge_agent_set_connect_callback(bri_clnt_cb fn);

BRI_API void bridge_agent_set_oridata_callback(bri_clnt_cb fn);

BRI_API int bridge_client_socket_create(struct bri_clnt_ctx *ctx);

BRI_API int bridge_client_socket_connect(struct bri_clnt_ctx *ctx);

BRI_API void bridge_client_connect_reset(void);

BRI_API int bridge_readn(int fd, void *buf, uint32_t n);

BRI_API int bridge_writen(int fd, const void *buf, uint32_t n);

BRI_API int bridge_writen_dontwait(int fd, const void *buf, uint32_t n, uint32_t *written);

BRI_API int bridge_client_send_message(const void *data, uint32_t len, uint32_t type);

BRI_API int bridge_client_send_message_ontime(const void *data, uint32_t len, uint32_t type);

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
