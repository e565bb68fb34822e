/* vlan_guard: a small host daemon that has a say in which VLANs are created. The server asks it before each creation;
 * it refuses the VLANs that it is told to, accepts the others, and takes one back after its creation, as a host does
 * that finds out too late that it cannot serve it. It prints every question and every creation and deletion.
 */
#include "layer.h"

#include <stdint.h>
#include <stdio.h>
#include <unistd.h>

static struct {
    const char *name;
    struct vlanset refused;
    long taken_back; /* 0: none */
} options = {.name = "vlan_guard"};

/* The VLANs of a set. */
static const char *list_text(const struct vlanset *set) {
    static char text[BRI_SET_TEXT_SIZE];
    return bri_vlanset_to_text(set, text, sizeof text) > 0 ? text : "none";
}

/* The question about one VLAN: zero accepts. Whoever is asked answers exactly once. */
static void judge_vlan(const void *record, uint16_t size, void *context) {
    const struct vl_evt_vlan_rec *vlan = record;
    const uint32_t result = bri_vlanset_has(&options.refused, vlan->vid) != 0;
    (void)size, (void)context;
    printf("%s: VLAN %u asked: %s\n", options.name, vlan->vid, result == 0 ? "accepted" : "refused");
    bridge_client_vlan_reply(&result);
}

/* The question about a set: the answer names the VLANs that fail. */
static void judge_set(const void *record, uint16_t size, void *context) {
    const struct vlanset *asked = record;
    (void)size, (void)context;
    struct vl_vlanset_reply reply = {.failure = 0};
    for (uint32_t vid = bri_vlanset_next(asked, 0); vid != 0; vid = bri_vlanset_next(asked, vid))
        if (bri_vlanset_has(&options.refused, vid) != 0) {
            bri_vlanset_add(&reply.failed, vid);
            reply.failure = 1;
        }
    printf("%s: VLANs %s asked: ", options.name, list_text(asked));
    if (reply.failure == 0)
        printf("accepted\n");
    else
        printf("refused because of %s\n", list_text(&reply.failed));
    bridge_client_vlanset_reply(&reply);
}

static void on_created(uint16_t vid, uint16_t version) {
    printf("%s: VLAN %u created, version %u\n", options.name, vid, version);
    if (vid != options.taken_back)
        return;
    printf("%s: VLAN %u taken back\n", options.name, vid);
    bridge_client_vlan_rollback(vid);
}

static void on_deleted(uint16_t vid, uint16_t version) {
    printf("%s: VLAN %u deleted, version %u\n", options.name, vid, version);
}

/* The record of a replay lists the VLANs that are there already; nobody was asked about those. */
static void on_set(const struct vl_evt_vlanset_rec *record, void (*each)(uint16_t vid, uint16_t version)) {
    if (record->origin_data != 0) {
        printf("%s: VLANs so far: %s\n", options.name, list_text(&record->vlans));
        return;
    }
    for (uint32_t vid = bri_vlanset_next(&record->vlans, 0); vid != 0; vid = bri_vlanset_next(&record->vlans, vid))
        each((uint16_t)vid, record->versions[vid]);
}

static void vlan_created(const void *record, uint16_t size, void *context) {
    const struct vl_evt_vlan_rec *vlan = record;
    (void)size, (void)context;
    on_created(vlan->vid, vlan->version);
}
static void vlan_deleted(const void *record, uint16_t size, void *context) {
    const struct vl_evt_vlan_rec *vlan = record;
    (void)size, (void)context;
    on_deleted(vlan->vid, vlan->version);
}
static void set_created(const void *record, uint16_t size, void *context) {
    (void)size, (void)context;
    on_set(record, on_created);
}
static void set_deleted(const void *record, uint16_t size, void *context) {
    (void)size, (void)context;
    on_set(record, on_deleted);
}

/* A question names a VLAN; what else stands in its record is not read. */
static const struct bridge_host_handler handlers[] = {
    {VLAN_EVENT_CREATE_PREJ, sizeof(uint16_t), judge_vlan, NULL},
    {VLAN_EVENT_CREATE_RANGE_PREJ, sizeof(struct vlanset), judge_set, NULL},
    {VLAN_EVENT_CREATE_INDEX, offsetof(struct vl_evt_vlan_rec, name), vlan_created, NULL},
    {VLAN_EVENT_DESTROY_INDEX, offsetof(struct vl_evt_vlan_rec, name), vlan_deleted, NULL},
    {VLAN_EVENT_CREATE_RANGE, sizeof(struct vl_evt_vlanset_rec), set_created, NULL},
    {VLAN_EVENT_DESTROY_RANGE, sizeof(struct vl_evt_vlanset_rec), set_deleted, NULL},
};

static bool take_refused(const char *word) {
    const long vid = host_number(word, 1, BRI_VID_MAX);
    return vid > 0 && bri_vlanset_add(&options.refused, (uint32_t)vid) == 0;
}

static const struct host_option command_line[] = {
    {.letter = 'n', .text = &options.name},
    {.letter = 'r', .take = take_refused},
    {.letter = 'b', .number = &options.taken_back, .least = 1, .most = BRI_VID_MAX},
    {0},
};
static const char usage[] = "usage: vlan_guard [-n NAME] [-r VLAN]... [-b VLAN]\n"
                            "  -n NAME  name told to the server (vlan_guard)\n"
                            "  -r VLAN  refuse this VLAN\n"
                            "  -b VLAN  accept this VLAN, but take it back when it has been created\n"
                            "TMPDIR names the directory of the server, VSDID the switch device.\n";

int main(int argc, char **argv) {
    if (!host_options(argc, argv, command_line, usage))
        return 2;
    struct bridge_host_config config = {
        .name = options.name, .handlers = handlers, .handler_count = sizeof handlers / sizeof *handlers};
    return layer_start(&config) ? host_run() : 1;
}
