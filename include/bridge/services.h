/* Client services: error texts, business callbacks, origin data, local MAC addresses, memory figures. */
#ifndef BRIDGE_SERVICES_H
#define BRIDGE_SERVICES_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

/* Library error codes, as bri_strerror takes them. */
enum bri_error {
    BRI_OK = 0,
    BRI_ERR_NULL = -1,
    BRI_ERR_INVALID = -2,
    BRI_ERR_NOT_PERMITTED = -3,
    BRI_ERR_NO_MEMORY = -4,
    BRI_ERR_SOCKET = -5,
    BRI_ERR_WOULD_BLOCK = -6,
    BRI_ERR_NO_VLAN = -7,
    BRI_ERR_VLAN_MODE = -8,
    BRI_ERR_NO_INTERFACE = -9,
    BRI_ERR_ROUTE_PORT = -10,
    BRI_ERR_PORT_MODE = -11,
    BRI_ERR_UNKNOWN = -12
};

/* Business-callback slots 0..6; the others have no user in this library. */
enum bri_business_type { BRI_BUSINESS_SWPORT_PREJUDGE = 4, BRI_BUSINESS_SS_ORIGIN_MAC = 6, BRI_BUSINESS_TYPES = 7 };

/* Payload of RESEARCH_EVENT_SWPORT_PREJUDGE sent to the server. */
struct bri_swport_prejudge_reply {
    uint32_t is_allow; /* 0: preset to 1 before the callback */
    uint8_t data[128]; /* 4: filled by the callback */
};
BRI_SIZE(bri_swport_prejudge_reply, 132);
BRI_AT(bri_swport_prejudge_reply, is_allow, 0);
BRI_AT(bri_swport_prejudge_reply, data, 4);

/* System memory figures in kB. */
struct bri_sys_mem_info {
    uint64_t reserved1[3]; /*   0: zero */
    uint64_t mem_total;    /*  24: MemTotal */
    uint64_t mem_free;     /*  32: MemFree */
    uint64_t buffers;      /*  40: Buffers */
    uint64_t cached;       /*  48: Cached */
    uint64_t active;       /*  56: Active */
    uint64_t inactive;     /*  64: Inactive */
    uint64_t reserved2[2]; /*  72: zero */
    uint64_t mapped;       /*  88: Mapped */
    uint64_t slab;         /*  96: Slab */
    uint64_t reserved3[2]; /* 104: zero */
    uint64_t zero;         /* 120: always 0 */
    uint64_t unaccounted;  /* 128: MemTotal - MemFree - Active - Inactive - Mapped - Slab, not below 0 */
};
BRI_SIZE(bri_sys_mem_info, 136);
BRI_AT(bri_sys_mem_info, reserved1, 0);
BRI_AT(bri_sys_mem_info, mem_total, 24);
BRI_AT(bri_sys_mem_info, mem_free, 32);
BRI_AT(bri_sys_mem_info, buffers, 40);
BRI_AT(bri_sys_mem_info, cached, 48);
BRI_AT(bri_sys_mem_info, active, 56);
BRI_AT(bri_sys_mem_info, inactive, 64);
BRI_AT(bri_sys_mem_info, reserved2, 72);
BRI_AT(bri_sys_mem_info, mapped, 88);
BRI_AT(bri_sys_mem_info, slab, 96);
BRI_AT(bri_sys_mem_info, reserved3, 104);
BRI_AT(bri_sys_mem_info, zero, 120);
BRI_AT(bri_sys_mem_info, unaccounted, 128);

typedef int (*bri_business_callback)(void *arg1, void *arg2);

BRI_API const char *bri_strerror(int code);

BRI_API void bridge_agent_set_business_callback(uint32_t type, bri_business_callback fn);

BRI_API int bridge_agent_call_business_callback(uint32_t type, void *arg1, void *arg2);

BRI_API void bri_clnt_reg_swport_prejudge_callback(bri_business_callback fn);

BRI_API void bri_clnt_reg_ss_origin_mac_callback(bri_business_callback fn);

BRI_API void bri_clnt_call_swport_prejudge_callback(void *request);

BRI_API void bri_clnt_call_ss_origin_mac_callback(void);

BRI_API void bridge_client_request_oridata(void);

BRI_API void bridge_client_request_submod_oridata(uint32_t submod);

BRI_API void bridge_client_notify_all_oridata(void);

BRI_API void bridge_client_notify_submod_oridata(uint32_t submod);

BRI_API void bridge_submod_set_data_state(uint32_t submod, uint32_t flag);

BRI_API void bridge_dspch_client_init(const char *name);

BRI_API int bridge_client_get_local_mac(uint8_t *mac);

BRI_API int bridge_client_get_svi_mac(uint8_t *mac);

BRI_API int bridge_maddr_get_local(uint8_t *mac);

BRI_API int bridge_get_sys_mem_info(struct bri_sys_mem_info *info);

BRI_END_DECLS

#endif
