/* Layer-2 topology: spanning-tree instances, port forwarding states, bridge protocols.
 *
 * @code
 * // A state of the port in instance 0 alone; its meaning is the protocol's.
 * int tell_state(uint32_t ifx, uint32_t state) {
 *     const struct l2top_port_instance_req request = {
 *         .ifx = ifx, .state = state, .instances = {1u << 0}};
 *     return bridge_set_port_instance_status(&request);
 * }
 * @endcode
 */
#ifndef BRIDGE_L2_TOPOLOGY_H
#define BRIDGE_L2_TOPOLOGY_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

#define BRI_L2TOP_BATCH_MAX    64u    /* records in one status batch */
#define BRI_L2TOP_INSTANCE_ALL 0x3FFu /* instance number that means every instance */

/* Port status record, element of L2TOP_EVENT_PORT_STATUS. A forwarding state is a number of the topology protocol that
 * runs; this library gives it no meaning and carries it unchanged. The shared table has 16 bits for it. */
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

/* Payload of L2TOP_EVENT_PORT_STATUS, to the server and from it. 4 + 20 x count bytes of it are sent, except where one
 * record stands for every instance: then always all 1284, zero behind the last record. Go by `count`. */
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

/* Keeps at most 19 characters of the client's name for the log lines; null changes nothing. Called by
 * bridge_agent_init; sends nothing. */
BRI_API void l2top_clnt_init(const char *name);

/* Requests to the server. They leave at once, nothing waits for an answer. Any thread. */

/* Tells the server the states of ports. At most 64 records; only `count` of them are read and 4 + 20 x count bytes
 * sent. When the first record's instance is BRI_L2TOP_INSTANCE_ALL every record is sent once for each instance 0..64,
 * in batches of 1284 bytes, the last of them too. 0, or -1 when the batch is null or too long, memory is short or a
 * send failed; the records behind a failed send are dropped. L2TOP_EVENT_PORT_STATUS. */
BRI_API int bridge_set_port_fwd_status(const struct l2top_port_status_batch *batch);

/* Tells the server one state of a port for each instance in the request's set. 0, also when nothing was to be sent or
 * a send failed; -1 when the request is null or memory is short. L2TOP_EVENT_PORT_STATUS. */
BRI_API int bridge_set_port_instance_status(const struct l2top_port_instance_req *request);

/* Tells the server the instance of every VLAN: 4096 numbers, indexed by VLAN id. 0 queued, -1 not, or `table` is null.
 * L2TOP_EVENT_INSTANCE_CONFIG. */
BRI_API int bridge_set_instance_configtable(const uint16_t *table);

/* Starts a bridge protocol (0..13; any of the low 8 bits of `enable` set) or stops it: claims or releases it in the
 * shared registry and tells the server. 0 when it is so, also when it was already and nothing was sent; the number of
 * the conflicting protocol, which is positive, when one is in the way; -1 when the protocol is unknown, there is no
 * registry, or the server could not be told (the registry is then as before). L2TOP_EVENT_PROTO_CONFIG. Processes that
 * may race for a claim serialise among themselves. */
BRI_API int bridge_config_bri_protocol(uint32_t proto, uint32_t enable);

/* Sets the protocols that keep `proto` from starting. Results as of bridge_proto_set_prejudge, which it calls. Sends
 * nothing. */
BRI_API int bridge_set_bri_proto_prejudge(uint32_t proto, uint32_t mask);

/* Reads of the shared tables. Nothing is sent. Any thread. */

/* Forwarding state of a port (1..63) in an instance (0..64). 0 and the state, else -1. */
BRI_API int bridge_get_port_instance_status(uint32_t ifx, uint16_t instance, uint32_t *state);

/* Forwarding state of a port (1..63) for a VLAN (1..4094). 0 and the state, else -1. */
BRI_API int bridge_get_port_fwd_status(uint32_t ifx, uint16_t vid, uint32_t *state);

/* The VLANs 1..4094 whose instance is in a set of instances, 3 words as in struct l2top_port_instance_req. 0 and the
 * VLANs, or -1 when an argument is null or the table is not mapped. */
BRI_API int bridge_get_vlan_from_instance(const uint32_t *instances, struct vlanset *vlans);

/* Not supported any more: only logs so, and gives 0. */
BRI_API int bridge_set_port_errdisable(void);

/* Events. On the loop's thread; everything goes to the host's handlers. */

/* Takes one message of the submodule, header and payload whole in memory. 0, or -1 when it is null. Called by the
 * dispatcher. */
BRI_API int bri_clnt_on_l2topo_msg(struct bri_msg_hdr *msg);

/* Replays the topology from the shared tables: one event for each running protocol, the instance table, then the
 * states of all ports in the instances of the VLANs that exist, in batches of 64 records at most. Routed ports are left
 * out. The re-search runs for every VLAN (see bridge/vlan_client.h), and replays lie at most 8 deep inside each other,
 * as said there; while one tells its port states, those of a replay inside it are left out. */
BRI_API void l2top_clnt_notify_origin_data(void);

/* Replays the bridge protocols alone: one L2TOP_EVENT_PROTO_CONFIG for each running protocol 1..13. */
BRI_API void bri_clnt_notify_proto_status(void);

/* Steps of a replay, of use only while one runs: append a record to its batch, which is delivered when it is full
 * (1284 bytes), and deliver what is left (4 + 20 x count bytes). */
BRI_API void swport_clnt_judge_notify_port_status(const struct l2top_port_status *record);
BRI_API void swport_clnt_notify_port_status_flush(void);

BRI_END_DECLS

#endif
