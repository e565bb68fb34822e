/* Everything of the bridge client library. */
#ifndef BRIDGE_BRIDGE_H
#define BRIDGE_BRIDGE_H

/* From the foundation upwards. */
/* clang-format off */
#include <bridge/base.h>
#include <bridge/events.h>
#include <bridge/client.h>
#include <bridge/services.h>
#include <bridge/counters.h>
#include <bridge/port_exclusion.h>
#include <bridge/ipc.h>
#include <bridge/port_db.h>
#include <bridge/vlan_db.h>
#include <bridge/protocol_registry.h>
#include <bridge/netlink.h>
#include <bridge/debug.h>
#include <bridge/vlan_client.h>
#include <bridge/vlan_query.h>
#include <bridge/vlan_list.h>
#include <bridge/vlan_request.h>
#include <bridge/vlan_group.h>
#include <bridge/l2_topology.h>
#include <bridge/mac_client.h>
#include <bridge/mac_vlan.h>
#include <bridge/sets.h>
/* clang-format on */

#endif
