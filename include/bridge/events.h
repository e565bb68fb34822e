/* Message framing, event types and their names.
 *
 * Both directions of the server socket carry batches:
 *
 *     | msg_len | msg_cnt | type | len | len bytes | type | len | len bytes | ...
 *     '-- batch header ---'----- message 1 --------'----- message 2 --------'
 *
 * msg_len counts everything behind the batch header. A receiver takes messages while fewer than msg_cnt are taken and
 * the offset is below msg_len. A batch without messages is valid.
 *
 * An event type is submodule << 7 | index, indexes from 1. A client can register for the types 0..4095.
 *
 * @code
 * int is_of_vlans(uint32_t type) {
 *     return type >> 7 == BRI_SUBMOD_VLAN;
 * }
 * @endcode
 */
#ifndef BRIDGE_EVENTS_H
#define BRIDGE_EVENTS_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

/* Limits of a batch, both directions, in bytes. */
#define BRI_BATCH_BUFFER_SIZE 10256u /* batch header and messages */
#define BRI_BATCH_MSG_MAX     10248u /* all messages of a batch, their headers included */
#define BRI_PAYLOAD_MAX       10240u /* one message's payload */

/* Header of one message; `len` payload bytes follow it directly. Messages in a batch are not aligned. */
struct bri_msg_hdr {
    uint32_t type; /* 0: event type, submodule << 7 | index */
    uint32_t len;  /* 4: payload bytes behind this header */
};
BRI_SIZE(bri_msg_hdr, 8);
BRI_AT(bri_msg_hdr, type, 0);
BRI_AT(bri_msg_hdr, len, 4);

/* Header of one batch; `msg_cnt` messages follow it back to back. */
struct bri_batch_hdr {
    uint32_t msg_len; /* 0: bytes of all messages, each counted as 8 + its len */
    uint32_t msg_cnt; /* 4: number of messages */
};
BRI_SIZE(bri_batch_hdr, 8);
BRI_AT(bri_batch_hdr, msg_len, 0);
BRI_AT(bri_batch_hdr, msg_cnt, 4);

/* Payload of BRIDGE_EVENT_REG_MSG: interest in events, registered or withdrawn. */
struct bri_reg_msg {
    struct event_set event_set; /*   0: the types added or withdrawn; the whole set on a full registration */
    uint8_t op;                 /* 512: 1 register, 0 withdraw */
    uint8_t reserved1[3];       /* 513: zero */
    uint32_t pid;               /* 516: client process on a full registration, else 0 */
    char name[20];              /* 520: client name, NUL-terminated, on a full registration, else empty */
    uint8_t fresh;              /* 540: 1 on the first full registration since start or reset, else 0 */
    uint8_t reserved2[3];       /* 541: zero */
};
BRI_SIZE(bri_reg_msg, 544);
BRI_AT(bri_reg_msg, event_set, 0);
BRI_AT(bri_reg_msg, op, 512);
BRI_AT(bri_reg_msg, reserved1, 513);
BRI_AT(bri_reg_msg, pid, 516);
BRI_AT(bri_reg_msg, name, 520);
BRI_AT(bri_reg_msg, fresh, 540);
BRI_AT(bri_reg_msg, reserved2, 541);

/* Submodules: the upper part of an event type. */
enum bri_submod {
    BRI_SUBMOD_CLNT_MNG = 1,
    BRI_SUBMOD_MAC = 2,
    BRI_SUBMOD_VLAN = 3,
    BRI_SUBMOD_MVLAN = 4,
    BRI_SUBMOD_L2TOP = 5,
    BRI_SUBMOD_QINQ = 6,
    BRI_SUBMOD_VLAN_MAP = 7,
    BRI_SUBMOD_VLAN_GROUP = 8,
    BRI_SUBMOD_PORTMAP = 9,
    BRI_SUBMOD_PROTVLAN = 10,
    BRI_SUBMOD_PRIVLAN = 11,
    BRI_SUBMOD_SVLAN = 12,
    BRI_SUBMOD_RSPAN = 13,
    BRI_SUBMOD_GVRP = 14,
    BRI_SUBMOD_EF = 15,
    BRI_SUBMOD_L2_IPAM = 16,
    BRI_SUBMOD_DEBUG = 17,
    BRI_SUBMOD_RESEARCH = 18,
    BRI_SUBMOD_BCFG = 19
};

/* Event types. One number names the request from a client and the event that the server then sends. The spelling of
 * the names is part of the interface, unusual ones included. */
enum bri_event {
    /* client management */
    BRIDGE_EVENT_REG_MSG = 129,
    BRIDGE_EVENT_ORI_DATA_OVER = 130,
    BRIDGE_EVENT_BKUP_DATA_BEGIN = 131,
    BRIDGE_EVENT_BKUP_DATA_END = 132,
    BRIDGE_EVENT_SYNC_DATA_BEGIN = 133,
    BRIDGE_EVENT_SYNC_DATA_END = 134,
    BRIDGE_EVENT_ORI_DATA_REQUEST = 135,
    BRIDGE_EVEVT_SERVER_STAT = 136,
    BRIDGE_EVENT_KERNEL_DATA_REQ = 137,
    BRIDGE_EVENT_SWITCHOVER_BEGIN = 138,
    BRIDGE_EVENT_SWITCHOVER_END = 139,
    BRIDGE_EVEVT_MS_ROLE_STAT = 140,
    BRIDGE_EVEVT_CLI_FLUSH_OVER = 141,
    BRIDGE_EVEVT_MS_BATCH_SYNC_OVER = 142,
    BRIDGE_EVEVT_EF_BATCH_PROC_OVER = 143,
    BRIDGE_EVEVT_MS_NTF_BKUP_OVER = 144,

    /* MAC addresses */
    MAC_EVENT_SYNC_DATA_BEGIN = 257,
    MAC_EVENT_SYNC_DATA_END = 258,
    MAC_EVENT_SYNC_ADDR = 259,
    MAC_EVENT_SYNC_NONDYN = 260,
    MAC_EVENT_NOTIFY_ADDR = 261,
    MAC_EVENT_NOTIFY_NONDYN = 262,
    MAC_EVENT_SET_AGETIME = 263,
    MAC_EVENT_SET_AGETIME_RANGE = 264,
    MAC_EVENT_DYN_FLUSH = 265,
    MAC_EVENT_DYN_MOVE = 266,
    MAC_EVENT_DEL_DYN_ON_VLANMAP = 267,
    MAC_EVENT_DEL_DYN_ON_INTF_VLANMAP = 268,
    MAC_EVENT_INTF_LEARN = 269,
    MAC_EVENT_GLOBAL_LEARN = 270,
    MAC_EVENT_SET_AVAILABLE_MAC = 271,
    MAC_EVENT_ROLLBACK_ADDR = 272,
    MAC_EVENT_BYPASS_ADDR = 273,
    MAC_EVENT_SS_NOTIFY_ADDR = 274,
    MAC_EVENT_DYN_CHECK_BEGIN = 275,
    MAC_EVENT_DYN_CHECK_END = 276,
    MAC_EVENT_NONDYN_CHECK_BEGIN = 277,
    MAC_EVENT_NONDYN_CHECK_END = 278,
    MAC_EVENT_MIB_GET_FIRST = 279,
    MAC_EVENT_MIB_GET_NEXT = 280,
    MAC_EVENT_QUERY_MAC_SHOW = 281,
    MAC_EVENT_QUERY_MAC_COUNT = 282,
    MAC_EVENT_QUERY_TYPES_COUNT = 283,
    MAC_EVENT_SERVER_FIND_FIRST = 284,
    MAC_EVENT_SERVER_FIND_NEXT = 285,
    MAC_EVENT_CLIENT_FIND_FIRST = 286,
    MAC_EVENT_CLIENT_FIND_NEXT = 287,
    MAC_EVENT_EXCEED_ADDR_CAPA = 288,
    MAC_EVENT_NONDYN_SYNC_REQUEST = 289,
    MAC_EVENT_ADDR_SYNC_REQUEST = 290,
    MAC_EVENT_SET_ROOT_BRIDGE_MODE = 291, /* no printable name of its own */
    MAC_EVENT_BACKUP_REQ = 300,

    /* VLAN */
    VLAN_EVENT_SYNC_DATA_BEGIN = 385,
    VLAN_EVENT_SYNC_DATA_END = 386,
    VLAN_EVENT_CREATE_INDEX = 387,
    VLAN_EVENT_DESTROY_INDEX = 388,
    VLAN_EVENT_CREATE_RANGE = 389,
    VLAN_EVENT_DESTROY_RANGE = 390,
    VLAN_EVENT_DESTROY_ROLLBACK = 391,
    VLAN_EVENT_RENAME = 392,
    VLAN_EVENT_MODIFY_VLAN_MODE = 393,
    VLAN_EVENT_MODE_RANGE = 394,
    VLAN_EVENT_DEFAULT_RANGE = 395,
    VLAN_EVENT_CREATE_PREJ = 396,
    VLAN_EVENT_CREATE_RANGE_PREJ = 397,
    VLAN_EVENT_CREATE_INTF = 398,
    VLAN_EVENT_DESTROY_INTF = 399,
    VLAN_EVENT_DEFAULT_INTF = 400,
    VLAN_EVENT_INTF_STATE = 401, /* a record of unknown layout, passed on as it is */
    VLAN_EVENT_ADD_INTF = 402,
    VLAN_EVENT_RANGE_ADD_INTF = 403,
    VLAN_EVENT_DEL_INTF = 404,
    VLAN_EVENT_RANGE_DEL_INTF = 405,
    VLAN_EVENT_MODIFY_TAG = 406,
    VLAN_EVENT_MODIFY_INTF_MODE = 407,
    VLAN_EVENT_INTF_NO_MODE = 408,
    VLAN_EVENT_MODIFY_INTF_PVID = 409,
    VLAN_EVENT_MODIFY_INTF_ALLOWVL = 410,
    VLAN_EVENT_SVI_CREATE_DESTROY = 411,
    VLAN_EVENT_SVI_MODIFY_UP_NUM = 412,
    VLAN_EVENT_SET_ADD_DYN_INTF = 413,
    VLAN_EVENT_SET_DEL_DYN_INTF = 414,
    VLAN_EVENT_DYN_MEM_ADD_RANG = 415,
    VLAN_EVENT_DYN_MEM_DEL_RANG = 416,
    VLAN_EVENT_SP_ADD_ALLOW_VLAN = 417,
    VLAN_EVENT_SP_RMV_ALLOW_VLAN = 418,
    VLAN_EVENT_SET_VSWPT_NUM = 419,
    VLAN_EVENT_SP_RMV_SUB_IF_VLAN = 421,

    /* MAC-based VLAN; no printable names but in the lines of this client */
    MVLAN_EVENT_SYNC_DATA_BEGIN = 513,
    MVLAN_EVENT_SYNC_DATA_END = 514,
    MVLAN_EVENT_NOTIFY_ENTRY = 515,
    MVLAN_EVENT_ERROR = 517,

    /* layer-2 topology; no printable names */
    L2TOP_EVENT_SYNC_DATA_BEGIN = 641,
    L2TOP_EVENT_SYNC_DATA_END = 642,
    L2TOP_EVENT_INSTANCE_CONFIG = 643,
    L2TOP_EVENT_PORT_STATUS = 644,
    L2TOP_EVENT_PROTO_CONFIG = 645,

    /* VLAN groups; no printable names but in the lines of this client */
    VG_EVENT_POLICY_ENTRY = 1025,
    VG_EVENT_MEM_VLAN = 1026,
    VG_EVENT_DEFAULT_VLAN = 1027,
    VG_EVENT_VLAN_MODE = 1028,
    VG_EVENT_DHCP_VLAN_STATUS = 1029,
    VG_EVENT_MAC_VLAN_CHANGE = 1030,
    VG_EVENT_GET_VLAN_BY_VGID = 1031,
    VG_EVENT_SYNC_DATA_BEGIN = 1033,
    VG_EVENT_SYNC_DATA_END = 1034,

    /* port map */
    BRI_EVT_CFG_PORTMAP = 1153,
    BRI_EVT_PORTMAP_SYNC_BEGIN = 1154,
    BRI_EVT_PORTMAP_SYNC_END = 1155,

    /* super VLAN */
    VLAN_EVENT_SUPER_CREATE = 1539,
    VLAN_EVENT_SUPER_DELETE = 1540,
    VLAN_EVENT_SUPER_CREATE_RANGE = 1541,
    VLAN_EVENT_SUPER_DELETE_RANGE = 1542,
    VLAN_EVENT_SUPER_RANG_DEL_SUB = 1543,
    VLAN_EVENT_SUPER_ADD_RANGE_SUB = 1544,
    VLAN_EVENT_SUPER_DEL_RANGE_SUB = 1545,
    VLAN_EVENT_ARPROXY = 1546,
    VLAN_EVENT_SUB_IP = 1547,

    /* remote port mirroring VLAN */
    RSPAN_EVENT_VLAN_CREATE = 1667,
    RSPAN_EVENT_VLAN_DELETE = 1668,
    RSPAN_EVENT_CREATE_RANGE = 1669,
    RSPAN_EVENT_DELETE_RANGE = 1670,

    /* layer-2 IP address management */
    L2_IPAM_EVENT_SYNC_DATA_BEGIN = 2049,
    L2_IPAM_EVENT_SYNC_DATA_END = 2050,
    L2_IPAM_ADD_VLANLST = 2051,
    L2_IPAM_DEL_VLANLST = 2052,
    L2_IPAM_EVT_GLOBAL_CFG = 2053,

    /* debug: switches and prints of a client process; no printable names */
    DEBUG_EVENT_VLAN = 2177,
    DEBUG_EVENT_MAC = 2179,
    DEBUG_EVENT_MSG = 2180,
    DEBUG_EVENT_QINQ = 2184,
    DEBUG_EVENT_VMAP = 2185,
    DEBUG_EVENT_MSG_DELAY = 2196,
    DEBUG_EVENT_PVLAN = 2197,
    DEBUG_EVENT_SHOW_FLAGS = 2199,
    DEBUG_EVENT_SHOW_VLAN = 2201,
    DEBUG_EVENT_SHOW_MAC_STATISTIC = 2202,
    DEBUG_EVENT_SHOW_CACHE = 2203,
    DEBUG_EVENT_SHOW_SWPORT = 2204,
    DEBUG_EVENT_SHOW_DELAY = 2205,

    /* research: questions of the server to one client; no printable names */
    RESEARCH_EVENT_FAILED = 2305,
    RESEARCH_EVENT_SWPORT_PREJUDGE = 2309,
    RESEARCH_EVENT_SS_ORIGIN_MAC = 2311
};

/* Printable name of an event type, for log lines; a constant text, never null. It is the identifier above, where that
 * has one; any other type gives its group's fallback text (all of QinQ and VLAN mapping do), or "BRIDGE_UNKNOWN_TYPE".
 * Any thread; sends nothing. */
BRI_API const char *bri_msg_type_name(uint32_t type);

/* Printable name of a submodule number, its identifier above; "ERROR_BRI_SUBMOD" for one without a text, MAC-based VLAN
 * and VLAN groups among them. Any thread; sends nothing. */
BRI_API const char *bri_submod_name(uint32_t submod);

BRI_END_DECLS

#endif
