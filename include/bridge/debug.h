/* Run-time debugging of a client process and delayed message processing. */
#ifndef BRIDGE_DEBUG_H
#define BRIDGE_DEBUG_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

/* Index into g_bri_clnt_dbg. Bytes 20..23 hold the message-delay interval. */
enum bri_debug_flag {
    BRI_DBG_VLAN = 1,    /* VLAN client, shared tables and IPC */
    BRI_DBG_MAC = 2,     /* MAC client, with the MAC filter */
    BRI_DBG_QINQ = 3,    /* QinQ */
    BRI_DBG_VMAP = 4,    /* VLAN mapping */
    BRI_DBG_MSG = 7,     /* client messaging, kernel channel, VLAN groups */
    BRI_DBG_DELAY = 20,  /* 32-bit word: seconds that messages are held back, 0 for none */
    BRI_DBG_PVLAN = 25,  /* private VLAN */
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

BRI_API extern uint8_t g_bri_clnt_dbg[28];
BRI_API extern struct bri_mac_filter g_bglib_mac_filter;
BRI_API extern struct bri_list g_bri_msg_delay_list;
BRI_API extern uint32_t g_bri_msg_delay_num;

BRI_API void bri_clnt_debug_init(struct bri_clnt_ctx *client);

BRI_API void bri_clnt_debug_name_parse(const char *name);

BRI_API void bri_clnt_debug_all(void);

BRI_API void bri_clnt_on_debug_msg(const struct bri_msg_hdr *msg);

BRI_API int bri_clnt_match_mac_dbg_filter(const struct bri_mac_entry *entry);

BRI_API int bri_clnt_msg_delay_process(const struct bri_msg_hdr *msg);

BRI_END_DECLS

#endif
