/* Ports for functions that exclude each other, by both tables, and addresses that are filtered. */
#include "layer.h"

#include <bridge/events.h>
#include <bridge/port_db.h>
#include <bridge/port_exclusion.h>
#include <bridge/vlan_db.h>

#include <stdarg.h>
#include <stdio.h>

/* By their bits. */
static const char *const names[] = {"BRI_DOT1Q_TUNNEL", "BRI_MAC_COPY", "BRI_SECURE",     "BRI_DOT1X",
                                    "BRI_MIR_DEST",     "BRI_HOST",     "BRI_PROMISCUOUS"};
enum { NAMED = sizeof names / sizeof *names };
_Static_assert(BRI_DOT1Q_TUNNEL == 1 && BRI_PROMISCUOUS == 1 << (NAMED - 1), "a name for each");

/* Appends, as far as there is room. */
static __attribute__((format(printf, 2, 3))) void append(struct bridge_host_refusal *why, const char *format, ...) {
    const size_t length = strlen(why->text);
    va_list values;
    va_start(values, format);
    vsnprintf(why->text + length, sizeof why->text - length, format, values);
    va_end(values);
}

static void name_holders(struct bridge_host_refusal *why) {
    const uint32_t rest = why->flags >> NAMED << NAMED;
    for (uint32_t bit = 0; bit < NAMED; ++bit)
        if ((why->flags >> bit & 1) != 0)
            append(why, " %s", names[bit]);
    if (rest != 0)
        append(why, " flags 0x%x", (unsigned)rest);
    if (why->attrs != 0)
        append(why, " attributes 0x%x", (unsigned)why->attrs);
}

static int refuse(struct bridge_host_refusal *why, uint32_t ifx, enum bridge_host_refusal_reason reason) {
    static const struct {
        const char *text;
        int result;
    } rows[] = {[BRIDGE_HOST_CLAIM_HELD] = {"is held:", BRI_ERR_NOT_PERMITTED},
                [BRIDGE_HOST_CLAIM_NO_PORT] = {"does not exist", BRI_ERR_NO_INTERFACE},
                [BRIDGE_HOST_CLAIM_NO_TABLE] = {"cannot be claimed: the table cannot be had", BRI_ERR_NO_MEMORY}};
    why->reason = reason;
    append(why, "port %u %s", (unsigned)ifx, rows[reason].text);
    if (reason == BRIDGE_HOST_CLAIM_HELD)
        name_holders(why);
    return rows[reason].result;
}

/* Sets the flags unless the table holds one of `conflicts`. */
static enum bridge_host_refusal_reason set_flags(uint32_t ifx, uint32_t flags, uint32_t conflicts, uint32_t *held) {
    *held = 0;
    if (bridge_set_excflag(ifx, flags, conflicts, held) == 0)
        return BRIDGE_HOST_CLAIM_FREE;
    return *held != 0 ? BRIDGE_HOST_CLAIM_HELD : BRIDGE_HOST_CLAIM_NO_TABLE;
}

static enum bridge_host_refusal_reason set_attrs(const struct bridge_host_claim *claim, uint32_t *held) {
    *held = 0;
    if (swport_set_attr_exclude((int32_t)claim->ifx, claim->attrs, 1, claim->attr_conflicts, held) == 0)
        return BRIDGE_HOST_CLAIM_NO_PORT;
    return *held != 0 ? BRIDGE_HOST_CLAIM_HELD : BRIDGE_HOST_CLAIM_FREE;
}

static enum bridge_host_refusal_reason set_both(const struct bridge_host_claim *claim,
                                                struct bridge_host_refusal *why) {
    enum bridge_host_refusal_reason reason = BRIDGE_HOST_CLAIM_FREE;
    uint32_t before = 0;
    if (claim->flags != 0) {
        set_flags(claim->ifx, 0, UINT32_MAX, &before); /* nothing, unless anything is set: that shows what is */
        reason = set_flags(claim->ifx, claim->flags, claim->flag_conflicts, &why->flags);
    }
    if (reason != BRIDGE_HOST_CLAIM_FREE || claim->attrs == 0)
        return reason;
    reason = set_attrs(claim, &why->attrs);
    if (reason != BRIDGE_HOST_CLAIM_FREE && claim->flags != 0)
        bridge_unset_excflag(claim->ifx, claim->flags & ~before);
    return reason;
}

static enum bridge_host_refusal_reason look_for_port(uint32_t ifx) {
    if (swport_get_raw_spcb(1) == NULL)
        return BRIDGE_HOST_CLAIM_NO_TABLE;
    return ifx < BRI_PORT_SLOTS && swport_check_exist((int32_t)ifx) != 0 ? BRIDGE_HOST_CLAIM_FREE
                                                                         : BRIDGE_HOST_CLAIM_NO_PORT;
}

int bridge_host_claim_port(const struct bridge_host_claim *claim, struct bridge_host_refusal *why) {
    struct bridge_host_refusal unseen;
    if (why == NULL)
        why = &unseen;
    memset(why, 0, sizeof *why);
    if (claim == NULL)
        return BRI_ERR_NULL;
    if (claim->flags == 0 && claim->attrs == 0)
        return BRI_ERR_INVALID;
    enum bridge_host_refusal_reason reason = look_for_port(claim->ifx);
    if (reason == BRIDGE_HOST_CLAIM_FREE)
        reason = set_both(claim, why);
    return reason == BRIDGE_HOST_CLAIM_FREE ? 0 : refuse(why, claim->ifx, reason);
}

/* The attributes of a port that has gone went with it. */
int bridge_host_release_port(const struct bridge_host_claim *claim) {
    if (claim == NULL)
        return BRI_ERR_NULL;
    if (claim->attrs != 0 && claim->ifx < BRI_PORT_SLOTS)
        swport_set_attr_exclude((int32_t)claim->ifx, claim->attrs, 0, 0, NULL);
    const bool no_table = claim->attrs != 0 && swport_get_raw_spcb(1) == NULL;
    if (claim->flags != 0 && bridge_unset_excflag(claim->ifx, claim->flags) != 0)
        return claim->ifx > BRI_EXCLUSION_IFX_MAX ? BRI_ERR_INVALID : BRI_ERR_NO_MEMORY;
    return no_table ? BRI_ERR_NO_MEMORY : 0;
}

static int filter(const uint8_t *mac, uint16_t bcast_id, uint32_t oper) {
    if (mac == NULL)
        return BRI_ERR_NULL;
    if (bri_mac_is_multicast(mac) || bcast_id < BRI_VID_MIN || bcast_id > BRI_VID_MAX)
        return BRI_ERR_INVALID;
    const int result = bridge_host_may_send();
    if (result != 0)
        return result;
    struct bri_mac_msg message = {.oper = oper};
    message.entry.field = BRI_MAC_FIELD_MAC | BRI_MAC_FIELD_TYPE | BRI_MAC_FIELD_BCAST_ID;
    memcpy(message.entry.mac, mac, sizeof message.entry.mac);
    message.entry.bcast_id = bcast_id;
    message.entry.type = BRI_MAC_TYPE_FILTER;
    return bridge_client_send_message(&message, sizeof message, MAC_EVENT_NOTIFY_ADDR) == 0 ? 0 : BRI_ERR_SOCKET;
}

int bridge_host_filter_add(const uint8_t *mac, uint16_t bcast_id) {
    return filter(mac, bcast_id, BRI_MAC_ADD);
}

int bridge_host_filter_del(const uint8_t *mac, uint16_t bcast_id) {
    return filter(mac, bcast_id, BRI_MAC_DEL);
}
