/* faulty [FAULT]: a daemon that makes port 3 a member of every new VLAN, has a say in which are created, and has an
 * address of its own on port 5. It does all that well, but for the one thing that the fault tells. */
#include "examples/host.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum { PORT = 3, ADDRESS_PORT = 5, ADDRESS_VLAN = 10, LATE_MS = 4000, LOOK_MS = 200 };

static const uint8_t address[6] = {0x02, 0, 0, 0, 0, 0x77};
static const char *fault = "";
static unsigned burst;
static uint16_t eager_vid;

static bool has(const char *name) {
    return strcmp(fault, name) == 0;
}

static void join(uint16_t vid) {
    if (vl_is_vlan_member(vid, PORT) == 0)
        vl_clnt_add_dyn_member(PORT, vid);
}

static void add_address(void) {
    bridge_maddr_add_static(address, ADDRESS_VLAN, ADDRESS_PORT);
}

/* Job: the answer to a question about one VLAN. */
static int answer(void *arg) {
    const uint32_t accepted = 0;
    (void)arg;
    bridge_client_vlan_reply(&accepted);
    return 0;
}

static void on_question(void) {
    if (has("no-answer"))
        return;
    if (has("late-answer")) {
        host_after_ms(LATE_MS, answer, "faulty-answer");
        return;
    }
    answer(NULL);
    if (has("second-answer"))
        answer(NULL);
}

/* Job, behind the one that hands over what came together. */
static int end_burst(void *arg) {
    (void)arg;
    burst = 0;
    return 0;
}

static void on_created(uint16_t vid) {
    if (has("hangs"))
        pause();
    join(vid);
}

/* Those of the replay at the start come together for everybody. */
static void count_announcement(void) {
    if (g_bridge_client->data_synced == 0)
        return;
    if (++burst == 1)
        qv_thread_add_event_withname(host_loop, end_burst, NULL, "faulty-burst");
    else if (has("dies-of-bursts"))
        abort();
}

/* Job: whether the server is there. */
static int look(void *arg) {
    static bool met;
    const bool lost = met && g_bridge_client->connected == 0;
    (void)arg;
    met = met || g_bridge_client->conn_done != 0;
    if (lost && has("dies"))
        abort();
    if (met && has("forgets-the-server"))
        setenv("TMPDIR", "/nonexistent", 1);
    if (has("eager"))
        vl_clnt_add_dyn_member(PORT, ++eager_vid);
    host_after_ms(lost && has("spins") ? 0 : LOOK_MS, look, "faulty-look");
    return 0;
}

static void on_single(uint32_t type, const struct vl_evt_vlan_rec *vlan) {
    if (type == VLAN_EVENT_CREATE_PREJ)
        on_question();
    else {
        count_announcement();
        on_created(vlan->vid);
    }
}

static void on_set(const struct vl_evt_vlanset_rec *record) {
    const struct vlanset *set = &record->vlans;
    if (record->origin_data == 0)
        count_announcement();
    for (uint32_t vid = bri_vlanset_next(set, 0); vid != 0; vid = bri_vlanset_next(set, vid))
        on_created((uint16_t)vid);
}

static int on_event(uint32_t type, void *data, uint16_t len) {
    struct vl_evt_vlan_rec vlan = {0};
    static struct vl_evt_vlanset_rec set;
    static const struct vl_vlanset_reply accepted;
    if (data != NULL) {
        memcpy(&vlan, data, len < sizeof vlan ? len : sizeof vlan);
        memcpy(&set, data, len < sizeof set ? len : sizeof set);
    }
    switch (type) {
    case BRIDGE_EVENT_SWITCHOVER_BEGIN:
        if (has("early"))
            vl_clnt_add_dyn_member(PORT, ADDRESS_VLAN);
        break;
    case BRIDGE_EVENT_BKUP_DATA_END:
    case BRIDGE_EVENT_SWITCHOVER_END:
        if (!has("no-data"))
            bridge_client_request_submod_oridata(BRI_SUBMOD_VLAN);
        add_address();
        break;
    case BRIDGE_EVENT_KERNEL_DATA_REQ:
        if (!has("no-addresses") && g_bridge_client->data_synced != 0)
            add_address();
        break;
    case VLAN_EVENT_CREATE_RANGE_PREJ:
        bridge_client_vlanset_reply(&accepted);
        break;
    case VLAN_EVENT_CREATE_RANGE:
        on_set(&set);
        break;
    default:
        on_single(type, &vlan);
        break;
    }
    return 0;
}

int main(int argc, char **argv) {
    static const uint32_t types[] = {BRIDGE_EVENT_SWITCHOVER_BEGIN, BRIDGE_EVENT_SWITCHOVER_END,
                                     BRIDGE_EVENT_BKUP_DATA_END,    BRIDGE_EVENT_KERNEL_DATA_REQ,
                                     VLAN_EVENT_CREATE_PREJ,        VLAN_EVENT_CREATE_RANGE_PREJ,
                                     VLAN_EVENT_CREATE_INDEX,       VLAN_EVENT_CREATE_RANGE};
    struct event_set events = {{0}};
    fault = argc > 1 ? argv[1] : "";
    for (size_t i = 0; i < sizeof types / sizeof *types; ++i)
        bri_event_set_add(&events, types[i]);
    if (has("dies-of-bursts")) { /* one that is asked gets the announcements one by one */
        bri_event_set_remove(&events, VLAN_EVENT_CREATE_PREJ);
        bri_event_set_remove(&events, VLAN_EVENT_CREATE_RANGE_PREJ);
    }
    if (!host_start("faulty") || bridge_client_reg_event(&events, on_event) != 0)
        return EXIT_FAILURE;
    host_after_ms(LOOK_MS, look, "faulty-look");
    return host_run();
}
