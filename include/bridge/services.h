/* Client services: error texts, business callbacks, origin data, local MAC addresses, memory figures.
 *
 * Nothing is sent to the server but where it is said.
 *
 * @code
 * #include <bridge/events.h>
 *
 * // What changed while there was no connection is told now.
 * static int on_data_end(uint32_t type, void *data, uint16_t len) {
 *     (void)data, (void)len;
 *     if (type == BRIDGE_EVENT_BKUP_DATA_END)
 *         bridge_client_request_oridata();
 *     return 0;
 * }
 * @endcode
 */
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

/* A decision of the host; a negative result is a failure. What the arguments are depends on the slot. */
typedef int (*bri_business_callback)(void *arg1, void *arg2);

/* Text of a library error code (enum bri_error); never null. A code without a text, positive ones included, gives
 * "unknown errno". Any thread. */
BRI_API const char *bri_strerror(int code);

/* Put `fn` into slot `type` (0..6) in the place of what was there. Another type, a null function, and a call before
 * initialisation change nothing but write a debug line. Loop thread; sends nothing. */
BRI_API void bridge_agent_set_business_callback(uint32_t type, bri_business_callback fn);

/* Call the function of slot `type` with both arguments, which are passed on as they are. 0, or -1 when the function
 * gave a negative result, the slot is empty, the type is above 6, or before initialisation. Loop thread. */
BRI_API int bridge_agent_call_business_callback(uint32_t type, void *arg1, void *arg2);

/* Let `fn` decide on switch-port changes: slot 4. It gets the request's payload and a struct bri_swport_prejudge_reply
 * with is_allow 1 and the rest 0, which it fills. What the payload holds is between the server and the host, and so is
 * how long it is: at least 4 bytes, for a shorter one is answered with RESEARCH_EVENT_FAILED unasked. It may be
 * unaligned (copy what you read) and is gone when `fn` returns. RESEARCH_EVENT_SWPORT_PREJUDGE joins the registered
 * types; the server learns of it with the next full registration, so call this before the first connect. A null
 * function changes nothing. Loop thread; sends nothing. */
BRI_API void bri_clnt_reg_swport_prejudge_callback(bri_business_callback fn);

/* Let `fn` count the origin MAC addresses: slot 6. It gets null and a pointer to a uint32_t, 0, for the number. A null
 * function changes nothing. Loop thread; sends nothing. */
BRI_API void bri_clnt_reg_ss_origin_mac_callback(bri_business_callback fn);

/* Run slot 4 on a request's payload and answer the server at once, past the batch: RESEARCH_EVENT_SWPORT_PREJUDGE with
 * the filled reply, or RESEARCH_EVENT_FAILED without a payload when the callback failed or there is none. Nothing
 * happens before initialisation or with a null request. Loop thread; may block as bridge_client_send_message_ontime. */
BRI_API void bri_clnt_call_swport_prejudge_callback(void *request);

/* Run slot 6 and answer the server at once, past the batch: RESEARCH_EVENT_SS_ORIGIN_MAC with the uint32_t number, or
 * RESEARCH_EVENT_FAILED. Loop thread. */
BRI_API void bri_clnt_call_ss_origin_mac_callback(void);

/* Ask for all origin data, as after a restart of the host: the handlers see every submodule's data between its begin
 * and end event, and the server is asked for the MAC addresses. Done within the call when the backup data has ended and
 * this process is master; otherwise kept until the backup data or a switch-over ends. Ask on every connection: what
 * changed while there was none is not told (docs/timeline.md). Loop thread. A handler of the events that this raises
 * may ask again, and is then called again within its own call; what is asked for inside 8 replays is discarded with a
 * debug line. */
BRI_API void bridge_client_request_oridata(void);

/* Ask for the origin data of one submodule: the handlers see the data of VLAN (3) and layer-2 topology (5); the server
 * is asked for any other. A kept request is one bit of 32, the submodule modulo 32: 20, 52 and so on then mean all
 * origin data, as bridge_client_request_oridata; those that give 21 to 31 are forgotten. Loop thread. */
BRI_API void bridge_client_request_submod_oridata(uint32_t submod);

/* Replay all origin data now, whatever was requested: events 133, 385, the VLAN data, 386, a
 * BRIDGE_EVENT_ORI_DATA_REQUEST for submodule 2 to the server, 641, the topology data, 642 and 134. Sets `data_synced`.
 * Nothing happens before initialisation. Loop thread. */
BRI_API void bridge_client_notify_all_oridata(void);

/* Replay one submodule now: 385, the VLAN data and 386 for 3; 641, the topology data and 642 for 5; for any other
 * number BRIDGE_EVENT_ORI_DATA_REQUEST with that number (a uint32_t) is sent. Loop thread. */
BRI_API void bridge_client_notify_submod_oridata(uint32_t submod);

/* Set (flag not 0) or clear the bit of a submodule, modulo 32, in the process's data-state word. Loop thread. */
BRI_API void bridge_submod_set_data_state(uint32_t submod, uint32_t flag);

/* Keep a copy of the client name, at most 19 characters, for the log lines about origin data; null changes nothing.
 * bridge_agent_init calls it. Sends nothing. */
BRI_API void bridge_dspch_client_init(const char *name);

/* The device's own MAC address into 6 bytes: from the device file, else the system's, else the kernel's; twice the
 * number of the virtual switch device (VSDID) is added to the last byte of the first and the last. Found once, it is
 * kept. 1, or 0 with `mac` untouched when no file has it or `mac` is null. Loop thread; needs no initialisation. */
BRI_API int bridge_client_get_local_mac(uint8_t *mac);

/* The MAC address of the routed interfaces into 6 bytes: from its own file, or, when that has none or the local one,
 * the local address with 1 added to the last byte. Found once, it is kept. Results as of
 * bridge_client_get_local_mac. Loop thread; needs no initialisation. */
BRI_API int bridge_client_get_svi_mac(uint8_t *mac);

/* bridge_client_get_local_mac with the results of the MAC family: 0, or -1 when there is none or `mac` is null.
 * Loop thread. */
BRI_API int bridge_maddr_get_local(uint8_t *mac);

/* The system's memory figures, each from the first line of /proc/meminfo that has it; the record is cleared first. 0;
 * -1 when MemTotal, MemFree, Active, Inactive, Mapped or Slab is missing or 0 (the others are filled); -2 when the file
 * cannot be opened; -22 when `info` is null. Any thread; needs no initialisation. */
BRI_API int bridge_get_sys_mem_info(struct bri_sys_mem_info *info);

BRI_END_DECLS

#endif
