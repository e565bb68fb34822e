/* vlan_keeper VLAN: a host daemon that keeps a VLAN in existence. It asks for it as soon as it is synchronised with the
 * server, and again whenever VLANs are deleted. */
#include <bridge/bridge.h>

#include <qv_thread.h>

#include <stdio.h>
#include <stdlib.h>

static uint16_t vid;

static void keep(void) {
    if (vl_exist(vid, 0) != 0)
        return;
    printf("VLAN %u is missing\n", vid);
    vl_clnt_create_vlan_entry(vid);
}

static int on_event(uint32_t type, void *data, uint16_t len) {
    (void)data;
    (void)len;
    printf("event %s\n", bri_msg_type_name(type));
    keep();
    return 0;
}

int main(int argc, char **argv) {
    struct event_set events = {{0}};
    struct qv_thread_master *loop = qv_thread_master_create();
    const long number = argc == 2 ? strtol(argv[1], NULL, 10) : 0;
    if (number < 1 || number > 4094 || loop == NULL) {
        fprintf(stderr, "usage: vlan_keeper VLAN\n");
        return 2;
    }
    vid = (uint16_t)number;
    setvbuf(stdout, NULL, _IOLBF, 0);
    bri_event_set_add(&events, BRIDGE_EVENT_SYNC_DATA_END);
    bri_event_set_add(&events, VLAN_EVENT_DESTROY_INDEX);
    bri_event_set_add(&events, VLAN_EVENT_DESTROY_RANGE);
    if (bridge_agent_init("vlan_keeper", loop) != 0 || bridge_client_reg_event(&events, on_event) != 0)
        return 1;
    return qv_thread_master_run(loop) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
