/* dot1x: a host daemon that puts ports without a user into a guest VLAN. The VLAN need not exist: it asks for it, and
 * as others may refuse it, asks again after a while until it is there. Then the ports get it as their native VLAN, also
 * after it was deleted, or after the server came back without it. */
#include "examples/host.h"

#include <stdint.h>
#include <stdio.h>
#include <unistd.h>

enum { PORT_MAX = 63, VLAN_MAX = 4094 };

static long guest = 20;
static long retry_ms = 1000;
static bool guests[PORT_MAX + 1];
static bool waiting; /* for what came of a question */

static bool exists(void) {
    return vl_exist((uint16_t)guest, 0) != 0;
}

static void admit_guests(void) {
    for (int32_t ifx = 1; ifx <= PORT_MAX; ++ifx)
        if (guests[ifx] && swport_check_exist(ifx) != 0 && swport_get_port_default_vid(ifx) != guest) {
            vl_clnt_set_native_vlan(ifx, (uint16_t)guest);
            printf("port %d: guest VLAN %ld\n", ifx, guest);
        }
}

static void look(void);

/* Job: it is time to ask again. */
static int ask_again(void *arg) {
    (void)arg;
    waiting = false;
    look();
    return 0;
}

/* Whatever happened, the tables tell what is to be done. A refusal is told to nobody: after a while without the VLAN it
 * is asked for again. */
static void look(void) {
    if (exists())
        admit_guests();
    else if (!waiting) {
        waiting = true;
        printf("VLAN %ld: %s\n", guest, vl_clnt_create_vlan_entry((uint16_t)guest) == 0 ? "asked for" : "cannot ask");
        host_after_ms(retry_ms, ask_again, "guest-ask");
    }
}

static int on_event(uint32_t type, void *data, uint16_t len) {
    (void)type;
    (void)data;
    (void)len;
    look();
    return 0;
}

static bool parse_option(int option) {
    const long number = option == '?' ? -1 : host_number(optarg, 1, option == 't' ? 3600000 : VLAN_MAX);
    if (option == 'g')
        guest = number;
    else if (option == 't')
        retry_ms = number;
    else if (number > 0 && number <= PORT_MAX)
        guests[number] = true;
    else
        return false;
    return number > 0;
}

int main(int argc, char **argv) {
    static const uint32_t types[] = {BRIDGE_EVENT_SYNC_DATA_END, VLAN_EVENT_CREATE_INDEX,  VLAN_EVENT_CREATE_RANGE,
                                     VLAN_EVENT_DESTROY_INDEX,   VLAN_EVENT_DESTROY_RANGE, VLAN_EVENT_CREATE_INTF};
    struct event_set events = {{0}};
    for (int option; (option = getopt(argc, argv, "g:t:p:")) != -1;)
        if (!parse_option(option))
            return 2;
    for (size_t i = 0; i < sizeof types / sizeof *types; ++i)
        bri_event_set_add(&events, types[i]);
    return host_start("dot1x") && bridge_client_reg_event(&events, on_event) == 0 ? host_run() : 1;
}
