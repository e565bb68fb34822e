/* Layer-2 topology: spanning-tree instances, port forwarding states, bridge protocols. */
#ifndef BRIDGE_L2_TOPOLOGY_H
#define BRIDGE_L2_TOPOLOGY_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

#define BRI_L2TOP_BATCH_MAX 64u         /* records in one status batch */
#define BRI_L2TOP_INSTANCE_ALL 0x3FFu   /* instance number that means every instance */

/* Port status record, element of L2TOP_EVENT_PORT_STATUS. */
struct l2top_port_status {
    uint32_t ifx;         /*  0: port */
    uint16_t instance;    /*  4: 0..64, or 0x3FF for every instance */
    uint8_t reserved1[2]; /*  6: zero */
    uint32_t state;       /*  8: forwarding state */
    uint32_t param;       /* 12: the caller's */
    uint8_t flag;         /* 16: the caller's */
    uint8_t reserved2[3]; /* 17: zero */
};
BRI_SIZE(l2top_port_status, 20);
BRI_AT(l2top_port_status, ifx, 0);
BRI_AT(l2top_port_status, instance, 4);
BRI_AT(l2top_port_status, reserved1, 6);
BRI_AT(l2top_port_status, state, 8);
BRI_AT(l2top_port_status, param, 12);
BRI_AT(l2top_port_status, flag, 16);
BRI_AT(l2top_port_status, reserved2, 17);

/* Payload of L2TOP_EVENT_PORT_STATUS; 4 + 20 x count bytes of it are sent. */
struct l2top_port_status_batch {
    uint16_t count;                                        /* 0: records that follow, at most 64 */
    uint8_t reserved[2];                                   /* 2: zero */
    struct l2top_port_status records[BRI_L2TOP_BATCH_MAX]; /* 4: the records */
};
BRI_SIZE(l2top_port_status_batch, 1284);
BRI_AT(l2top_port_status_batch, count, 0);
BRI_AT(l2top_port_status_batch, reserved, 2);
BRI_AT(l2top_port_status_batch, records, 4);

/* One state of a port for a set of instances. */
struct l2top_port_instance_req {
    uint8_t flag;          /*  0: copied into every record */
    uint8_t reserved[3];   /*  1: not read */
    uint32_t ifx;          /*  4: port */
    uint32_t state;        /*  8: forwarding state */
    uint32_t param;        /* 12: copied into every record */
    uint32_t instances[3]; /* 16: bit n & 31 of word n >> 5: instance n */
};
BRI_SIZE(l2top_port_instance_req, 28);
BRI_AT(l2top_port_instance_req, flag, 0);
BRI_AT(l2top_port_instance_req, reserved, 1);
BRI_AT(l2top_port_instance_req, ifx, 4);
BRI_AT(l2top_port_instance_req, state, 8);
BRI_AT(l2top_port_instance_req, param, 12);
BRI_AT(l2top_port_instance_req, instances, 16);

/* Payload of L2TOP_EVENT_PROTO_CONFIG. */
struct l2top_proto_config {
    uint32_t protocol;   /* 0: enum bri_protocol */
    uint8_t enable;      /* 4: 1 the protocol runs, 0 it stops */
    uint8_t reserved[3]; /* 5: zero */
};
BRI_SIZE(l2top_proto_config, 8);
BRI_AT(l2top_proto_config, protocol, 0);
BRI_AT(l2top_proto_config, enable, 4);
BRI_AT(l2top_proto_config, reserved, 5);

BRI_API void l2top_clnt_init(const char *name);

BRI_API int bridge_set_port_fwd_status(const struct l2top_port_status_batch *batch);

BRI_API int bridge_set_port_instance_status(const struct l2top_port_instance_req *request);

BRI_API int bridge_set_instance_configtable(const uint16_t *table);

BRI_API int bridge_config_bri_protocol(uint32_t proto, uint32_t enable);

BRI_API int bridge_set_bri_proto_prejudge(uint32_t proto, uint32_t mask);

BRI_API int bridge_get_port_instance_status(uint32_t ifx, uint16_t instance, uint32_t *state);

BRI_API int bridge_get_port_fwd_status(uint32_t ifx, uint16_t vid, uint32_t *state);

BRI_API int bridge_get_vlan_from_instance(const uint32_t *instances, struct vlanset *vlans);

BRI_API int bridge_set_port_errdisable(void);

BRI_API int bri_clnt_on_l2topo_msg(struct bri_msg_hdr *msg);

BRI_API void l2top_clnt_notify_origin_data(void);

BRI_API void bri_clnt_notify_proto_status(void);

BRI_API void swport_clnt_judge_notify_port_status(const struct l2top_port_status *record);

BRI_API void swport_clnt_notify_port_status_flush(void);

BRI_END_DECLS

#endif
