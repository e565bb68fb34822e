/* Resynchronisation: asks for the origin data when something may have been missed, and makes one begin and one end out
 * of whatever markers come with it. */
#include "layer.h"

#include <bridge/events.h>
#include <bridge/port_db.h>
#include <bridge/vlan_client.h>
#include <bridge/vlan_db.h>

enum { QUESTIONS = 3, PATIENCE = 8 }; /* see ask_again */

/* What is known of a submodule's origin data. That in the tables is replayed within the request, the others' is sent by
 * the server. */
struct round {
    uint32_t submod;
    uint32_t begin; /* its markers */
    uint32_t end;
    bool in_tables;
    bool begun;       /* its begin marker was seen, its end marker not yet */
    bool open;        /* on_resync_begin was called, on_resync_end not yet */
    bool in_step;     /* the last one was complete */
    uint8_t asked;    /* questions without an answer */
    uint8_t question; /* how many times the server was asked in a row */
    uint32_t wait;    /* ticks until it is asked again */
};
static const struct round submodules[] = {
    {.begin = VLAN_EVENT_SYNC_DATA_BEGIN, .end = VLAN_EVENT_SYNC_DATA_END, .in_tables = true},
    {.begin = L2TOP_EVENT_SYNC_DATA_BEGIN, .end = L2TOP_EVENT_SYNC_DATA_END, .in_tables = true},
    {.begin = MAC_EVENT_SYNC_DATA_BEGIN, .end = MAC_EVENT_SYNC_DATA_END},
    {.begin = MVLAN_EVENT_SYNC_DATA_BEGIN, .end = MVLAN_EVENT_SYNC_DATA_END},
    {.begin = VG_EVENT_SYNC_DATA_BEGIN, .end = VG_EVENT_SYNC_DATA_END},
};
enum { SUBMODULES = sizeof submodules / sizeof *submodules, SUBMOD_NUMBERS = 32 };
static struct round rounds[SUBMODULES];
static struct round *followed[SUBMOD_NUMBERS]; /* by their submodules' numbers */

static bool needed;     /* something may have been missed and was not asked for yet */
static uint32_t due;    /* ticks until it is asked for without a sign of the server */
static uint64_t missed; /* bri_host_missed when it was asked for last */
static bool asking;     /* the library's request runs */
static bool replayed;   /* within it the replay began */
static bool in_backup;  /* between begin and end of the backup data nothing is told */
static bool switching;  /* the begin of a switch-over has come, its end not yet */
static uint32_t depth;  /* BRIDGE_EVENT_SYNC_DATA_BEGIN without their end yet: of replays, and of the server's end */

static struct round *round_of(uint32_t submod) {
    return submod < SUBMOD_NUMBERS ? followed[submod] : NULL;
}

void bri_host_resync_start(struct event_set *events) {
    static const uint32_t own[] = {BRIDGE_EVENT_BKUP_DATA_BEGIN, BRIDGE_EVENT_BKUP_DATA_END,
                                   BRIDGE_EVENT_SYNC_DATA_BEGIN, BRIDGE_EVENT_SYNC_DATA_END,
                                   BRIDGE_EVENT_KERNEL_DATA_REQ, BRIDGE_EVENT_SWITCHOVER_BEGIN,
                                   BRIDGE_EVENT_SWITCHOVER_END};
    for (size_t i = 0; i < sizeof own / sizeof *own; ++i)
        bri_event_set_add(events, own[i]);
    memcpy(rounds, submodules, sizeof rounds);
    memset(followed, 0, sizeof followed);
    for (struct round *round = rounds; round != rounds + SUBMODULES; ++round) {
        round->submod = round->begin >> 7;
        if (!bri_host_has_row_of(round->submod) && !bri_host_sweeps(round->submod))
            continue;
        followed[round->submod] = round;
        bri_event_set_add(events, round->begin);
        bri_event_set_add(events, round->end);
        if (round->submod == BRI_SUBMOD_VLAN)
            bri_event_set_add(events, VLAN_EVENT_CREATE_RANGE);
    }
    needed = asking = in_backup = switching = false;
    depth = 0;
    missed = bri_host_missed();
}

/* Rounds ---------------------------------------------------------------------------------------------------------- */

static void open_round(struct round *round) {
    round->open = true;
    round->in_step = false;
    bri_host_sweep_begin(round->submod);
    if (bri_host.config.on_resync_begin != NULL)
        bri_host.config.on_resync_begin(round->submod, bri_host.config.context);
}

static bool tables_mapped(void) {
    return g_vl_mng.entries != NULL && swport_get_raw_spcb(1) != NULL;
}

/* A callback may cut it in the middle: the end has been told then. */
static void close_round(struct round *round, bool complete) {
    const uint32_t submod = round->submod;
    complete = complete && (!round->in_tables || tables_mapped()) && bri_host_sweep_whole(submod);
    if (complete)
        bri_host_sweep_finish(submod, &round->open);
    if (!round->open)
        return;
    round->open = false;
    round->in_step = complete;
    ++*(complete ? &bri_host.statistics.resyncs_complete : &bri_host.statistics.resyncs_cut);
    if (bri_host.config.on_resync_end != NULL)
        bri_host.config.on_resync_end(submod, complete, bri_host.config.context);
}

static void cut_round(struct round *round) {
    round->asked = 0;
    round->begun = false;
    round->in_step = false;
    if (round->open)
        close_round(round, false);
}

void bri_host_resync_cut(void) {
    for (size_t i = 0; i < SUBMODULES; ++i)
        cut_round(&rounds[i]);
}

/* Between its begin and end the library raises the markers of the server's end of its data. Those of the addresses are
 * no answer, which comes from the server alone. */
static bool is_raised(const struct round *round) {
    return depth != 0 && round->submod == BRI_SUBMOD_MAC;
}

/* With more than one question on the way only what the last answer holds is there. */
static void on_begin_marker(struct round *round) {
    if (round->open && !round->begun)
        bri_host_sweep_begin(round->submod);
    round->begun = true;
    if (round->asked != 0 && !round->open)
        open_round(round);
}

/* An end without a begin is that of an answer of which something is missing: it will be asked for again. */
static void on_end_marker(struct round *round) {
    if (!round->begun)
        return;
    round->begun = false;
    if (round->asked != 0)
        --round->asked;
    if (round->asked == 0 && round->open)
        close_round(round, true);
}

/* Asking ---------------------------------------------------------------------------------------------------------- */

static void need(bool now) {
    needed = true;
    due = now ? 0 : bri_host_ticks(bri_host.config.answer_ms);
}

static void map_tables(void) {
    if (swport_get_raw_spcb(1) == NULL)
        bridge_portdb_init();
    if (g_vl_mng.entries == NULL)
        vl_vlandb_init();
}

/* The question is one of so many in a row; those behind the last that is waited for are asked less often. */
static void expect_answer(struct round *round, uint8_t question) {
    round->asked = (uint8_t)(round->asked + (round->asked != UINT8_MAX));
    round->question = question;
    round->wait = bri_host_ticks(bri_host.config.answer_ms) * (question > QUESTIONS ? PATIENCE : 1);
}

static bool replay(void) {
    asking = true;
    replayed = false;
    bridge_client_request_oridata();
    asking = false;
    return replayed;
}

/* The library asks the server for the addresses by itself. */
static void ask_server(struct round *round) {
    if (followed[round->submod] == NULL || g_bridge_client->connected == 0)
        return;
    expect_answer(round, 1);
    if (round->submod != BRI_SUBMOD_MAC)
        bridge_client_request_submod_oridata(round->submod);
}

/* A replay that has not come to its end tells nothing more. */
static void end_replay(struct round *round, bool ran) {
    if (ran && round->asked != 0 && round->open)
        cut_round(round);
    round->asked = 0;
}

/* False: the library keeps the request until the server's data is there and this process is master. */
static bool ask(void) {
    map_tables();
    for (struct round *round = rounds; round != rounds + SUBMODULES; ++round)
        if (followed[round->submod] != NULL && round->in_tables)
            round->asked = 1;
    needed = false;
    missed = bri_host_missed();
    const bool ran = replay();
    for (struct round *round = rounds; round != rounds + SUBMODULES; ++round)
        if (round->in_tables)
            end_replay(round, ran);
        else if (ran && bri_host_runs())
            ask_server(round);
    in_backup = in_backup && !ran;
    if (!ran)
        need(false);
    return ran;
}

/* The kernel's table is a new one. It comes twice. */
static void ask_for_addresses(void) {
    struct round *round = round_of(BRI_SUBMOD_MAC);
    if (round == NULL || needed || in_backup || round->asked != 0 || g_bridge_client->connected == 0)
        return;
    round->in_step = false;
    expect_answer(round, 1);
    bridge_client_request_submod_oridata(BRI_SUBMOD_MAC);
}

/* Without an answer the server is asked again. When that has not helped it is said, and from then on it is asked less
 * often. */
static void ask_again(struct round *round) {
    const bool told = round->question > QUESTIONS;
    const uint8_t question = (uint8_t)(round->question + !told);
    round->begun = false;
    if (question > QUESTIONS && !told) {
        if (!round->open)
            open_round(round);
        cut_round(round);
    }
    round->asked = 0;
    expect_answer(round, question);
    bridge_client_request_submod_oridata(round->submod);
}

/* Events ---------------------------------------------------------------------------------------------------------- */

static void note_management(uint32_t type) {
    if (type == BRIDGE_EVENT_SYNC_DATA_BEGIN) {
        ++depth;
        replayed = replayed || asking;
    } else if (type == BRIDGE_EVENT_BKUP_DATA_BEGIN) {
        in_backup = true;
        bri_host_resync_cut();
    } else if (type == BRIDGE_EVENT_SWITCHOVER_BEGIN) {
        switching = true;
        need(false);
    }
}

/* What begins the data of a submodule that nobody has asked for. A look-up may raise VLAN events at any time. */
static bool begins_data(uint32_t type, const void *record, uint16_t size) {
    const struct vl_evt_vlanset_rec *vlans = record;
    if (type >> 7 != BRI_SUBMOD_VLAN)
        return true;
    return type == VLAN_EVENT_CREATE_RANGE && size >= sizeof *vlans && vlans->origin_data != 0;
}

void bri_host_resync_before(uint32_t type, const void *record, uint16_t size) {
    note_management(type);
    struct round *round = round_of(type >> 7);
    if (round == NULL || type == round->end)
        return;
    if (type != round->begin) {
        if (round->begun && !round->open && begins_data(type, record, size))
            open_round(round);
    } else if (!is_raised(round))
        on_begin_marker(round);
}

/* Behind the handlers, so that those who do without the layer have asked before. */
static void answer_management(uint32_t type) {
    if (type == BRIDGE_EVENT_SYNC_DATA_END) {
        depth -= depth != 0;
    } else if (type == BRIDGE_EVENT_BKUP_DATA_END) {
        in_backup = false;
        need(true);
    } else if (type == BRIDGE_EVENT_SWITCHOVER_END) {
        if (needed || !switching) /* else the end of the backup data has come in between, and answered it */
            need(true);
        switching = false;
    } else if (type == BRIDGE_EVENT_KERNEL_DATA_REQ) {
        ask_for_addresses();
    }
}

void bri_host_resync_after(uint32_t type) {
    struct round *round = round_of(type >> 7);
    if (round != NULL && type == round->end && !is_raised(round))
        on_end_marker(round);
    answer_management(type);
    if (needed && due == 0 && depth == 0 && !asking)
        ask();
}

void bri_host_resync_connected(bool introduced) {
    switching = false;
    depth = 0;
    need(!introduced);
}

void bri_host_resync_master(void) {
    need(!switching);
}

/* The tick is never within a replay, whatever became of its end. */
void bri_host_resync_tick(void) {
    depth = 0;
    if (!bri_host.connected || bri_host.role == BRIDGE_HOST_ROLE_SLAVE)
        return;
    if (missed != bri_host_missed() && !needed && !in_backup) /* it was slave for a moment */
        need(true);
    due -= due != 0;
    if (needed && due == 0)
        ask();
    for (struct round *round = rounds; round != rounds + SUBMODULES && bri_host_runs(); ++round)
        if (round->asked != 0 && --round->wait == 0)
            ask_again(round);
}

int bridge_host_resync(void) {
    if (!bri_host_runs())
        return BRI_ERR_NOT_PERMITTED;
    need(true);
    if (asking || depth != 0)
        return 0;
    if (g_bridge_client->connected == 0 || bridge_host_role() == BRIDGE_HOST_ROLE_SLAVE)
        return BRI_ERR_WOULD_BLOCK;
    return ask() ? 0 : BRI_ERR_WOULD_BLOCK;
}

int bridge_host_in_step(uint32_t submod) {
    const struct round *round = round_of(submod);
    return bri_host_runs() && round != NULL && round->in_step && round->asked == 0 && !needed &&
           missed == bri_host_missed() && !in_backup && bri_host.connected && g_bridge_client->connected != 0 &&
           bridge_host_role() == BRIDGE_HOST_ROLE_MASTER;
}
