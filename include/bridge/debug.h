/* Run-time debugging of a client process and delayed message processing.
 *
 * Without another word an operation belongs to the loop's thread and sends nothing.
 *
 * @code
 * // A daemon's option -v: its connections, batches and messages.
 * void be_verbose(void) {
 *     g_bri_clnt_dbg[BRI_DBG_MSG] = 1;
 * }
 * @endcode
 */
#ifndef BRIDGE_DEBUG_H
#define BRIDGE_DEBUG_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

/* Index into g_bri_clnt_dbg. Bytes 20..23 hold the message-delay interval. */
enum bri_debug_flag {
    BRI_DBG_VLAN = 1,   /* VLAN client, shared tables and IPC */
    BRI_DBG_MAC = 2,    /* MAC client, with the MAC filter */
    BRI_DBG_QINQ = 3,   /* QinQ */
    BRI_DBG_VMAP = 4,   /* VLAN mapping */
    BRI_DBG_MSG = 7,    /* client messaging, kernel channel, VLAN groups */
    BRI_DBG_DELAY = 20, /* 32-bit word: seconds that messages are held back, 0 for none */
    BRI_DBG_PVLAN = 25, /* private VLAN */
    BRI_DBG_FLAGS = 28
};

/* Which MAC entries the MAC client logs. */
struct bri_mac_filter {
    uint8_t enable;       /*  0: becomes flag BRI_DBG_MAC */
    uint8_t reserved1;    /*  1: reserved */
    uint16_t vid;         /*  2: 0: any */
    uint8_t reserved2[6]; /*  4: reserved */
    uint8_t mac[6];       /* 10: all zero: any */
    uint8_t reserved3[4]; /* 16: reserved */
    uint32_t ifx;         /* 20: 0: any */
};
BRI_SIZE(bri_mac_filter, 24);
BRI_AT(bri_mac_filter, enable, 0);
BRI_AT(bri_mac_filter, reserved1, 1);
BRI_AT(bri_mac_filter, vid, 2);
BRI_AT(bri_mac_filter, reserved2, 4);
BRI_AT(bri_mac_filter, mac, 10);
BRI_AT(bri_mac_filter, reserved3, 16);
BRI_AT(bri_mac_filter, ifx, 20);

/* One byte per flag (enum bri_debug_flag), not 0 for on. Read by every thread that logs, without a lock. */
BRI_API extern uint8_t g_bri_clnt_dbg[28];

/* Which MAC entries are logged while BRI_DBG_MAC is on; all zero: every one. DEBUG_EVENT_MAC writes it field by field
 * on the loop's thread, and every thread that logs reads it so, without a lock: a line that is written meanwhile may go
 * by some fields of the old filter and some of the new. */
BRI_API extern struct bri_mac_filter g_bglib_mac_filter;

/* The messages held back, oldest first, and how many they are. Owned by the library; not to be changed. */
BRI_API extern struct bri_list g_bri_msg_delay_list;
BRI_API extern uint32_t g_bri_msg_delay_num;

/* Start debugging anew for a client record, which must stay: every flag and the delay are off, messages that were held
 * back are dropped, then the marker file is looked for. A null client changes nothing. bridge_agent_init calls it. Loop
 * thread; sends nothing. */
BRI_API void bri_clnt_debug_init(struct bri_clnt_ctx *client);

/* Switch everything on when the file "/data/bridge_client_" followed by the name exists (63 characters of path at
 * most). A null name changes nothing. Sends nothing. */
BRI_API void bri_clnt_debug_name_parse(const char *name);

/* Set the flags 0, 1, 2, 3, 4, 7, 11, 13, 15, 16, 17, 24 and 25; the delay stays as it is. Any thread; sends nothing.
 */
BRI_API void bri_clnt_debug_all(void);

/* Obey one debug message of the server (DEBUG_EVENT_*): a header and `len` payload bytes behind it, at any alignment.
 * Flags, the MAC filter and the delay change, or the process prints its state. Other codes are ignored, a payload
 * shorter than its code's is dropped with a line; a null message, or one before bri_clnt_debug_init, does nothing. A
 * delay above 0 adds the timer job "msg-delay-timer" to the client's loop, beside one that runs; 0 or below delivers
 * what was held back within the call. Loop thread; sends nothing. */
BRI_API void bri_clnt_on_debug_msg(const struct bri_msg_hdr *msg);

/* 1 when a MAC entry agrees with every field that is set in g_bglib_mac_filter, also for null; else 0. Any thread. */
BRI_API int bri_clnt_match_mac_dbg_filter(const struct bri_mac_entry *entry);

/* Hold a message of the server back, as a copy, while a delay is set: 1 when it was taken, 0 when the caller must
 * dispatch it now (no delay, a debug message, no memory, null, or a length above 10248). What is held back is
 * dispatched in the order of arrival by the delay timer, when the delay is switched off, or within the call that makes
 * 256 of them. Loop thread. */
BRI_API int bri_clnt_msg_delay_process(const struct bri_msg_hdr *msg);

BRI_END_DECLS

#endif
