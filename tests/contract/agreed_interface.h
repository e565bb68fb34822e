/* The exported C interface as agreed with the host processes: the prototypes of everything they link against.
 *
 * The public headers must declare exactly this: a translation unit that includes every public header and then this
 * file compiles, as C11 and as C++20. Records are named by tag only; the public headers define their fields. A change
 * here is a change of the interface.
 */
#ifndef BRIDGE_INTERFACE_CONTRACT_H
#define BRIDGE_INTERFACE_CONTRACT_H

#include <stddef.h>
#include <stdint.h>
#include <sys/time.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------- platform: thread-event library (libqv-thread)
 * Opaque handles. A job is one-shot; its function gets the argument it was added with and its result is ignored.
 * Every add returns the job, or null when the library refuses it. */
struct qv_thread_master;
struct qv_thread;
typedef int (*qv_thread_func)(void *arg);
struct qv_thread *qv_thread_add_event_withname(struct qv_thread_master *master, qv_thread_func func, void *arg, const char *name);
struct qv_thread *qv_thread_add_read_withname(struct qv_thread_master *master, qv_thread_func func, void *arg, int fd, const char *name);
struct qv_thread *qv_thread_add_timer_withname(struct qv_thread_master *master, qv_thread_func func, void *arg, long seconds, const char *name);
struct qv_thread *qv_thread_add_timer_timeval_withname(struct qv_thread_master *master, qv_thread_func func, void *arg, const struct timeval *after, const char *name);
void qv_thread_cancel_by_arg_func(struct qv_thread_master *master, void *arg, qv_thread_func func);

/* ---------------------------------------------------------------- platform: syslog library (libqv_syslog) */
void printk_syslog_ext(int level, const char *module, const char *tag, int output, const char *format, ...);

/* ---------------------------------------------------------------- records */
struct event_set;              /* 512 bytes */
struct vlanset;                /* 512 bytes */
struct bri_msg_hdr;
struct bri_batch_hdr;
struct bri_reg_msg;
struct bri_list;               /* { struct bri_list *next, *prev; } circular, self-pointing head */
struct bri_clnt_ctx;
struct bri_sys_mem_info;       /* 17 u64 */
struct bri_sem_lock;
struct bri_shm_hdr;
struct bri_shm_handle;
struct spcb;                   /* 1960 bytes */
struct vle;                    /* 80 bytes */
struct vl_mng;                 /* type of g_vl_mng */
struct bri_mac_filter;         /* 24 bytes */
struct vl_evt_vlan_rec;
struct vl_evt_vlanset_rec;
struct vl_vlanset_reply;       /* 516 bytes */
struct vlan_group_entry;       /* 520 bytes */
struct vlan_group_manager;     /* type of vlan_group_mng */
struct l2top_port_status;      /* 20 bytes */
struct l2top_port_status_batch;/* 1284 bytes */
struct l2top_port_instance_req;/* 28 bytes */
struct l2top_proto_config;     /* 8 bytes */
struct bri_mac_entry;
struct bri_mac_msg;
struct mvlan_entry;
struct mvlan_msg;

/* ---------------------------------------------------------------- exported globals */
extern struct bri_clnt_ctx *g_bridge_client;
extern uint8_t *g_bglib_recvbuf;
extern uint8_t g_bri_clnt_dbg[28];
extern struct vl_mng g_vl_mng;
extern struct vlan_group_manager vlan_group_mng;
extern uint16_t g_vlan_private_version[4095];
extern struct bri_mac_filter g_bglib_mac_filter;
extern struct bri_list g_bri_msg_delay_list;
extern uint32_t g_bri_msg_delay_num;
extern char g_bglib_client_name_mac[20];

/* ---------------------------------------------------------------- message format and event codes */
const char *bri_msg_type_name(uint32_t type);
const char *bri_submod_name(uint32_t submod);

/* ---------------------------------------------------------------- client context and initialisation */
typedef void (*bri_clnt_cb)(void);
int bridge_agent_init(const char *name, struct qv_thread_master *master);
int bridge_client_thread_event(int kind);
void bridge_agent_set_connect_callback(bri_clnt_cb fn);
void bridge_agent_set_oridata_callback(bri_clnt_cb fn);

/* ---------------------------------------------------------------- server socket transport */
int bridge_client_socket_create(struct bri_clnt_ctx *ctx);
int bridge_client_socket_connect(struct bri_clnt_ctx *ctx);
void bridge_client_connect_reset(void);
int bridge_readn(int fd, void *buf, uint32_t n);
int bridge_writen(int fd, const void *buf, uint32_t n);
int bridge_writen_dontwait(int fd, const void *buf, uint32_t n, uint32_t *written);
int bridge_client_send_message(const void *data, uint32_t len, uint32_t type);
int bridge_client_send_message_ontime(const void *data, uint32_t len, uint32_t type);
int bridge_client_read_msg(int fd, struct bri_batch_hdr **out);

/* ---------------------------------------------------------------- message dispatch and event handlers */
typedef int (*bri_event_handler)(uint32_t type, void *data, uint16_t len);
void bridge_client_msg_dspch(struct bri_msg_hdr *msg);
int bridge_client_reg_event(const struct event_set *set, bri_event_handler handler);
int bridge_client_unreg_event(struct event_set *set, bri_event_handler handler);
void bridge_call_event_handlers(uint32_t type, void *data, uint32_t len);
void bri_clnt_on_serv_stat_msg(const void *payload);

/* ---------------------------------------------------------------- client services */
typedef int (*bri_business_callback)(void *arg1, void *arg2);
const char *bri_strerror(int code);
void bridge_agent_set_business_callback(uint32_t type, bri_business_callback fn);
int bridge_agent_call_business_callback(uint32_t type, void *arg1, void *arg2);
void bri_clnt_reg_swport_prejudge_callback(bri_business_callback fn);
void bri_clnt_reg_ss_origin_mac_callback(bri_business_callback fn);
void bri_clnt_call_swport_prejudge_callback(void *request);
void bri_clnt_call_ss_origin_mac_callback(void);
void bridge_client_request_oridata(void);
void bridge_client_request_submod_oridata(uint32_t submod);
void bridge_client_notify_all_oridata(void);
void bridge_client_notify_submod_oridata(uint32_t submod);
void bridge_submod_set_data_state(uint32_t submod, uint32_t flag);
void bridge_dspch_client_init(const char *name);
int bridge_client_get_local_mac(uint8_t *mac);
int bridge_client_get_svi_mac(uint8_t *mac);
int bridge_maddr_get_local(uint8_t *mac);
int bridge_get_sys_mem_info(struct bri_sys_mem_info *info);

/* ---------------------------------------------------------------- port exclusion flags */
int bridge_set_excflag(uint32_t ifx, uint32_t id, uint32_t mask, uint32_t *conflict);
int bridge_unset_excflag(uint32_t ifx, uint32_t id);
int bridge_coxmng_get_status(uint32_t ifx, char *buf, uint32_t size);

/* ---------------------------------------------------------------- IPC primitives */
struct bri_sem_lock *bridge_lock_create(int32_t key);
struct bri_sem_lock *bridge_lock_get(int32_t key);
void bridge_rd_lock(struct bri_sem_lock *lock);
void bridge_wr_lock(struct bri_sem_lock *lock);
void bridge_unlock(struct bri_sem_lock *lock);
int bridge_plock_creat(const char *name);
int bridge_close_plock(const char *name);
int bridge_get_plock_value(const char *name, int *value);
int bridge_psem_up(const char *name);
int bridge_psem_down(const char *name);
struct bri_shm_handle *bridge_shm_create(const char *name, int32_t key, size_t size);
struct bri_shm_handle *bridge_shm_attach(int32_t key);
struct bri_shm_handle *bridge_shm_attach_rdonly(int32_t key);
void bridge_shm_dettach(struct bri_shm_handle *handle);
void bridge_shm_destroy(struct bri_shm_hdr *hdr);
void bridge_shm_show(const struct bri_shm_handle *handle);

/* ---------------------------------------------------------------- switch-port database */
int bridge_portdb_init(void);
void bridge_portdb_deinit(void);
void swport_rdown(void);
void swport_wdown(void);
void swport_up(void);
int swport_check_ifindex_valid(int32_t ifx);
struct spcb *swport_get_raw_spcb(int32_t ifx);
struct spcb *swport_get_spcb(int32_t ifx);
struct spcb *vl_ifindex_to_swport(int32_t ifx);
int swport_check_exist(int32_t ifx);
int swport_get_spcb_copy(int32_t ifx, struct spcb *dst);
uint32_t swport_get_version(int32_t ifx);
int swport_get_port_mode(int32_t ifx, uint32_t *mode);
int swport_get_port_default_mode(int32_t ifx, uint32_t *mode);
uint16_t swport_get_port_default_vid(int32_t ifx);
struct vlanset *swport_get_tag_vlan(int32_t ifx);
int swport_is_allow_vlan(int32_t ifx, uint16_t vid);
int swport_get_total_port_num(void);
const char *swport_vlan_mode_name(uint32_t mode);
int swport_get_vlan_tag_rule(int32_t ifx, uint16_t vid);
int swport_tag_vlan_add(int32_t ifx, uint16_t vid);
int swport_tag_vlan_del(int32_t ifx, uint16_t vid);
void swport_tag_vlan_merge_map(int32_t ifx, const struct vlanset *map);
void swport_tag_vlan_rmv_map(int32_t ifx, struct vlanset *map);
void swport_reset_tag_vlan(int32_t ifx);
int swport_set_attr_exclude(int32_t ifx, uint32_t bits, uint32_t set, uint32_t conflict_mask, uint32_t *conflicts);
uint16_t *swport_get_stp_instance_table(void);
void swport_set_instance_table(const uint16_t *src);
uint16_t swport_get_stp_instance(uint16_t vid);
void swport_inc_total_num(void);
void swport_dec_total_num(void);
int swport_get_shm_head(uint32_t *key, uint32_t *shmid, uint32_t *size, char *name);
void swport_show_status(void);

/* ---------------------------------------------------------------- VLAN database */
int vl_vlandb_init(void);
void vl_vlandb_deinit(void);
void vl_rdown(void);
void vl_wdown(void);
void vl_up(void);
int vl_check_vlanid_valid(int32_t vid);
void vl_get_vlan_range(uint32_t *min, uint32_t *max);
void vl_set_vlan_range(uint32_t min, uint32_t max);
int vl_check_vlan_capacity(void);
void vl_increase_vlan_number(void);
void vl_decrease_vlan_number(void);
int32_t vl_get_vlan_number(void);
int32_t vl_get_total_del_times(void);
void vl_increase_svi_number(void);
void vl_decrease_svi_number(void);
struct vle *vl_get_raw_vlan_entry(uint16_t vid);
struct vle *vl_get_vlan_entry(uint16_t vid);
void vl_get_vle_from_vid(uint16_t vid, struct vle **out);
int vl_get_vlan_copy(uint16_t vid, struct vle *dst);
int vl_exist(uint16_t vid, uint32_t mode);
int vl_exist_imp(uint16_t vid, uint32_t mode);
int vl_vlanset_exist(uint32_t mode, const struct vlanset *set, struct vlanset *missing);
uint16_t vl_get_vlan_latest_version(uint16_t vid);
int vl_get_vlan_mode(uint16_t vid, uint32_t *mode); /* 1 and the mode, else 0 */
int vl_get_vlan_name(uint16_t vid, char *dst);      /* 1 and the name (dst holds 36 bytes), else 0 */
uint32_t vl_get_svi_ifx(uint16_t vid);
uint16_t vl_get_manage_vid(uint16_t vid);
uint32_t vl_get_vlan_up_mem(uint16_t vid);
uint16_t vl_get_vlan_ref(uint16_t vid);
int vl_is_created_by_cli(uint16_t vid);
uint8_t vl_get_vswpt_num(uint16_t vid);
uint16_t vl_get_vid_from_svifx(uint32_t ifx);
int vl_is_subvlan(uint16_t vid);
int vl_is_supervlan(uint16_t vid);
int vl_is_vlan_member(uint16_t vid, int32_t ifx);
int vl_is_vlan_static_member(uint16_t vid, int32_t ifx);
int vl_is_vlan_have_port(uint16_t vid);
int vl_get_vlan_port_count(uint16_t vid);
int vl_get_vlan_port_bmap(uint16_t vid, uint32_t out[2]);
int vl_is_vlanset_not_empty(const struct vlanset *set);
void vl_add_static_member(int32_t ifx, uint16_t vid);
void vl_del_static_member(int32_t ifx, uint16_t vid);
int vl_is_vlan_dynamic_member(uint16_t vid, int32_t ifx);
void vl_add_dynamic_member(int32_t ifx, uint16_t vid);
void vl_del_dynamic_member(int32_t ifx, uint16_t vid);
int vl_set_iprange(uint16_t vid, uint32_t low, uint32_t high);
int vl_get_subvlan_iprange(uint16_t vid, uint32_t *low, uint32_t *high);
int vl_svlan_is_subvid_ip(uint16_t vid, uint32_t ip);
int vl_svlan_search_ip(uint16_t vid, uint32_t ip);
void vl_initial_vlan_entry(uint16_t vid, uint32_t mode);
void vl_clear_vlan_entry(uint16_t vid);
void vl_set_vlan_mode(uint16_t vid, uint32_t mode);
void vl_set_vlan_mode_batch(const struct vlanset *set, uint32_t mode);
int vl_set_svi(uint16_t vid, uint32_t ifx);
uint32_t vl_increase_vlan_ref(uint16_t vid);
uint32_t vl_decrease_vlan_ref(uint16_t vid);
int vl_set_created_by_cli(uint16_t vid);
int vl_clear_created_by_cli(uint16_t vid);
void vl_range_set_created_by_cli(const struct vlanset *set);
int vl_set_vswpt_num(uint16_t vid, uint8_t n);
int vldb_get_shm_head(uint32_t *key, uint32_t *shmid, uint32_t *size, char *name);
void vl_vlandb_show_status(void);

/* ---------------------------------------------------------------- bridge-protocol state registry */
void bp_rdown(void);
void bp_wdown(void);
void bp_up(void);
const char *bridge_proto_get_name(uint32_t proto);
int bridge_proto_state_set(uint32_t proto, uint32_t *conflict);
void bridge_proto_state_unset(uint32_t proto);
int bridge_proto_state_get(uint32_t proto);
uint32_t bridge_proto_get_state_all(void);
int bridge_proto_set_prejudge(uint32_t proto, uint32_t mask);
void bridge_proto_state_show(void);

/* ---------------------------------------------------------------- kernel netlink channel */
int bridge_lib_nlclient_init(struct bri_clnt_ctx *client);
void bridge_lib_nlclient_deinit(struct bri_clnt_ctx *client);
int bridge_lib_send_netlink(const uint8_t *data, uint32_t len, int32_t type);
void *bridge_lib_query_netlink(const void *data, uint32_t len, int32_t type);
void *bridge_lib_feedback_netlink(int fd, int32_t family_id);
void bridge_lib_nlmsg_dispch(void *payload);

/* ---------------------------------------------------------------- client debugging and delayed processing */
void bri_clnt_debug_init(struct bri_clnt_ctx *client);
void bri_clnt_debug_name_parse(const char *name);
void bri_clnt_debug_all(void);
void bri_clnt_on_debug_msg(const struct bri_msg_hdr *msg);
int bri_clnt_match_mac_dbg_filter(const struct bri_mac_entry *entry);
int bri_clnt_msg_delay_process(const struct bri_msg_hdr *msg);

/* ---------------------------------------------------------------- VLAN event handling and version checks */
typedef void (*vl_swport_walk_fn)(struct spcb *port, void *arg);
char *vl_clnt_manage_init(struct bri_clnt_ctx *client);
int vl_clnt_on_server_msg(struct bri_msg_hdr *msg);
void vl_clnt_notify_origin_data(void);
uint16_t vl_get_vlan_private_version(uint16_t vid);
int vl_version_check_on_create_notify(uint16_t vid, uint16_t version);
int vl_version_check_on_destroy_notify(uint16_t vid, uint16_t version);
int vl_version_check_on_range_create_notify(struct vl_evt_vlanset_rec *rec);
int vl_version_check_on_range_destroy_notify(struct vl_evt_vlanset_rec *rec);
void vl_version_check_on_reserch(uint16_t vid);
void vl_version_update(uint16_t vid, uint16_t version);
void vl_clnt_get_vle_from_vid(uint16_t vid, struct vle **out);
void vl_clnt_swport_walk_throught(vl_swport_walk_fn callback, void *arg);

/* ---------------------------------------------------------------- VLAN queries and member walks */
typedef int (*vl_member_fn)(int32_t ifx, void *arg);
int vl_clnt_exist(uint16_t vid, uint32_t flag);
int vl_clnt_get_vlan_mode(uint16_t vid, uint32_t *mode);
struct spcb *vl_clnt_ifindex_to_spcb(int32_t ifx);
int vl_clnt_check_ifindex_valid(int32_t ifx);
int vl_clnt_is_allowvlan_mem(uint16_t vid, int32_t ifx);
int vl_clnt_if_is_dyn_member(int32_t ifx, uint16_t vid);
uint16_t vl_clnt_get_manage_vid(uint16_t vid);
int vl_clnt_is_supervlan(uint16_t vid);
int vl_clnt_is_subvlan(uint16_t vid);
uint32_t vl_clnt_get_svifx_from_vid(uint16_t vid);
uint16_t vl_clnt_get_vid_from_svifx(uint32_t ifx);
int vl_clnt_get_vlan_port_cnt(uint16_t vid, uint32_t *count);
int vl_clnt_get_port_default_vid(int32_t ifx, uint16_t *vid);
int vl_clnt_get_portmode_by_index(int32_t ifx, uint32_t *mode);
int vl_clnt_get_member_info(uint16_t vid, int32_t ifx, uint32_t *tag);
int vl_clnt_get_enable_vlans(int32_t ifx, struct vlanset *set);
int vl_clnt_get_vlan_name(uint16_t vid, char *buf, int32_t size);
void vl_clnt_member_walk_through(uint16_t vid, vl_member_fn action, void *action_arg, vl_member_fn rollback, void *rollback_arg);

/* ---------------------------------------------------------------- VLAN list text */
int vl_clnt_check_vlan_set(const char *text, char *errbuf, uint32_t errlen);
int vl_clnt_vlist_str_to_map(const char *text, struct vlanset *set, char *errbuf, uint32_t errlen);
void vl_clnt_trim_str(char *text);
void vl_clnt_exchange_int(int32_t *a, int32_t *b);
void vl_clnt_show_vlanlist(const struct vlanset *set, uint32_t width);
int vl_clnt_vlist_vlan_line_format(char *buf, const struct vlanset *set, int start_vid, int max_items);
void vl_clnt_show_vlan(void);
void vl_clnt_show_swport(void);

/* ---------------------------------------------------------------- VLAN requests, replies and rollback */
int vl_clnt_create_vlan_entry(uint16_t vid);
int vl_clnt_delete_vlan_entry(uint16_t vid);
void bridge_client_vlan_reply(const uint32_t *result);
void bridge_client_vlanset_reply(const struct vl_vlanset_reply *reply);
void bridge_client_vlan_rollback(uint16_t vid);
void bridge_client_vlanset_rollback(const struct vlanset *set);
void vl_clnt_set_native_vlan(int32_t ifx, uint16_t vid);
int vl_clnt_add_dyn_member(int32_t ifx, uint16_t vid);
int vl_clnt_del_dyn_member(int32_t ifx, uint16_t vid);
int vl_clnt_dyn_member_add_rang(int32_t ifx, const struct vlanset *set);
int vl_clnt_dyn_member_del_rang(int32_t ifx, const struct vlanset *set);
int vl_clnt_swport_add_allow_vlanset(int32_t ifx, const struct vlanset *set);
int vl_clnt_swport_rmv_allow_vlanset(int32_t ifx, const struct vlanset *set);
int vl_clnt_swport_rmv_sub_if_vlanset(int32_t ifx, const struct vlanset *set);
void vl_clnt_notify_set_vswpt_num(const uint8_t *first, const uint8_t *second);
int vl_clnt_set_trill_vswpt_num(const uint8_t *first, const uint8_t *second);
int vl_clnt_set_bri_dyn_member(uint32_t type, int32_t ifx, uint16_t vid);
int vl_clnt_set_bri_dyn_member_rang(uint32_t type, int32_t ifx, const struct vlanset *set);

/* ---------------------------------------------------------------- VLAN groups */
int vlan_group_shm_init(void);
void bridge_vlan_group_lib_dispose_msg(struct bri_msg_hdr *msg);
void vlan_group_wr_lock(void);
void vlan_group_read_lock(void);
void vlan_group_unlock(void);
struct vlan_group_entry *vlan_group_base_entry(void);
struct vlan_group_entry *vlan_group_get_entry(uint8_t id);
int vlan_group_check_exist(uint8_t id);
int vg_clnt_check_exist(uint8_t id);
int vlan_group_creat_entry(uint8_t id);
void vlan_group_free_entry(uint8_t id);
int vlan_group_set_default_vlan(uint8_t id, uint16_t vid);
int vlan_group_get_default_vlan(uint8_t id, uint16_t *vid);
int vlan_group_set_vlan_assign_mode(uint8_t id, uint8_t mode);
int vlan_group_get_vlan_assign_mode(uint8_t id, uint8_t *mode);
int vlan_group_get_member_vlan_cnt(uint8_t id, uint8_t *count);
int vlan_group_set_member_vlan(uint8_t id, const struct vlanset *new_set, struct vlanset *added, struct vlanset *removed, uint8_t *added_count, uint8_t *removed_count);
int vlan_group_get_entry_copy(uint8_t id, struct vlan_group_entry *dst);
int vlan_group_check_vlan_is_member_vlan(uint8_t id, uint16_t vid);
int vlan_group_get_member_vlan_bitmap(uint8_t id, struct vlanset *out);
int vg_clnt_get_vlan_list(uint8_t id, struct vlanset *out);
uint16_t vg_clnt_get_default_vid(uint8_t id);
uint8_t vg_clnt_get_assign_mode(uint8_t id);
int vg_clnt_is_member_of_any_group(uint16_t vid, uint8_t *id);
int vg_clnt_change_array_to_bitmap(const uint16_t *vids, uint8_t count, struct vlanset *set);

/* ---------------------------------------------------------------- layer-2 topology client */
void l2top_clnt_init(const char *name);
int bridge_set_port_fwd_status(const struct l2top_port_status_batch *batch);
int bridge_set_port_instance_status(const struct l2top_port_instance_req *request);
int bridge_set_instance_configtable(const uint16_t *table);
int bridge_config_bri_protocol(uint32_t proto, uint32_t enable);
int bridge_set_bri_proto_prejudge(uint32_t proto, uint32_t mask);
int bridge_get_port_instance_status(uint32_t ifx, uint16_t instance, uint32_t *state);
int bridge_get_port_fwd_status(uint32_t ifx, uint16_t vid, uint32_t *state);
int bridge_get_vlan_from_instance(const uint32_t *instances, struct vlanset *vlans);
int bridge_set_port_errdisable(void);
int bri_clnt_on_l2topo_msg(struct bri_msg_hdr *msg);
void l2top_clnt_notify_origin_data(void);
void bri_clnt_notify_proto_status(void);
void swport_clnt_judge_notify_port_status(const struct l2top_port_status *record);
void swport_clnt_notify_port_status_flush(void);

/* ---------------------------------------------------------------- MAC address client requests */
char *mac_client_init(struct bri_clnt_ctx *client);
int bridge_maddr_add_static(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);
int bridge_maddr_add_secu(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);
int bridge_maddr_add_trust(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);
int bridge_maddr_add_other(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);
int bridge_maddr_del_static(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);
int bridge_maddr_del_dyn(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);
int bridge_maddr_force_del_dyn(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);
int bridge_maddr_del_secu(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);
int bridge_maddr_del_trust(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);
int bridge_maddr_del_other(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);
int bridge_maddr_rollback(uint32_t type, const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);
int bridge_maddr_bypass(uint32_t type, const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);
int bridge_maddr_del_dyn_on_vlanmap(const struct vlanset *vlanmap, uint32_t ifx, uint8_t force_flush);
int bridge_maddr_set_intf_learn(uint32_t ifx, uint32_t learn);
int bridge_maddr_set_dyn_life_range(uint32_t min, uint32_t max, uint32_t step);
int bridge_maddr_set_available_mac(uint32_t static_num, uint32_t filter_num, uint32_t total_num);
int bridge_maddr_nondyn_check_begin(uint32_t type);
int bridge_maddr_nondyn_check_end(uint32_t type);
int bridge_maddr_set_root_bridge_mode(uint8_t enable);
int bridge_maddr_dynmac_check_begin(void);
int bridge_maddr_dynmac_check_end(void);
int bridge_maddr_notify(const struct bri_mac_msg *records, uint32_t count);
int bridge_maddr_find_first_on_mac(struct bri_mac_entry *entry);
int bridge_maddr_find_first_on_ifx(struct bri_mac_entry *entry);
int bridge_maddr_find_next_on_mac(const struct bri_mac_entry *cur, struct bri_mac_entry *out);
int bridge_maddr_find_next_on_ifx(const struct bri_mac_entry *cur, struct bri_mac_entry *out);
int bridge_maddr_find_static_on_ifx(uint32_t ifx);
int bridge_maddr_find_single(const uint8_t *mac, uint32_t bcast_id, struct bri_mac_entry *out);
int bridge_maddr_get_available_total(uint32_t *total);

/* ---------------------------------------------------------------- MAC client server messages and statistics */
void mac_client_on_server_msg(struct bri_msg_hdr *msg);
uint32_t mac_client_get_available_total(void);
void mac_client_set_available_total(uint32_t total);
void mac_client_show_statistic(void);

/* ---------------------------------------------------------------- MAC-based VLAN client */
void mvlan_clnt_add_dyn_entry(const uint8_t *mac, uint16_t vlan);
void mvlan_clnt_add_dyn_entry_dot1x(const uint8_t *mac, uint16_t vlan, uint32_t ifx);
void mvlan_clnt_del_dyn_entry(const uint8_t *mac);
int mvlan_clnt_get_dyn_entry(const uint8_t *mac, uint16_t *vlan);
void mvlan_clnt_send_error_result(const struct mvlan_entry *entry);
void bridge_mvlan_lib_dispose_msg(struct bri_msg_hdr *msg);

#ifdef __cplusplus
}
#endif
#endif
