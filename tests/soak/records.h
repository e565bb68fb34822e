/* What the soak's driver and its hosts agree on: the events, and the words at the head of their payloads. */
#ifndef SOAK_RECORDS_H
#define SOAK_RECORDS_H

#include <bridge/events.h>

#include <stdint.h>

/* Events that only the driver has sent, by commands of the server. */
static const uint32_t soak_events[] = {VLAN_EVENT_MODIFY_INTF_MODE, VLAN_EVENT_MODIFY_INTF_ALLOWVL,
                                       MAC_EVENT_GLOBAL_LEARN};

struct soak_event {
    uint32_t number; /* counts the events of a soak, whatever their type and whoever they are for */
    uint32_t type;
    /* behind this: any number of bytes, each one the number plus its place in the payload, modulo 256 */
};

/* Requests of the hosts that the server sends back to all of them as they stand. */
enum { SOAK_REQUEST = VLAN_EVENT_MODIFY_TAG };

/* Requests that leave at once, as all of their submodule do, to fill a host's cache. The server knows none with this
 * number and only counts them. */
enum { SOAK_FLOOD = L2TOP_EVENT_PROTO_CONFIG + 1 };

struct soak_request {
    uint32_t host;
    uint32_t number; /* counts the requests of a host that its library accepted */
};

#endif
