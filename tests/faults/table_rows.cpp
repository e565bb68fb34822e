// Setting up the shared tables, and what their operations ask of the system.
#include "tests/faults/rows.h"

#include <cstdlib>
#include <sys/shm.h>

namespace test {

namespace {

constexpr size_t kExclusionHeader = 76;
constexpr uint32_t kIfx = 5;

uint32_t g_conflict;
char g_status[64];

// A table that another process has made, with a flag set.
void flagged(SweptHost &host) {
    const faults::Pause pause;
    const int id = shmget(host.key(0x33330001), kExclusionHeader + sizeof(bri_exclusion_table), IPC_CREAT | 0777);
    void *segment = shmat(id, nullptr, 0);
    put_at<uint32_t>(segment, kExclusionHeader + kIfx * 4, BRI_DOT1X);
    shmdt(segment);
}

// A lock that cannot be set up fails the table; one that is not set free does not. A repeated set-up maps anew.
const Effects kSetUp{{"calloc", Got::kFailure},
                     {"semget", Got::kFailure},
                     {"semctl", Got::kSuccess, 0, 0, true},
                     {"shmget", Got::kFailure},
                     {"shmctl", Got::kFailure},
                     {"shmat", Got::kFailure},
                     {"malloc", Got::kFailure, 0, 0, true}};

// The same for a table that is set up anew by the next attempt and leaves the handles of this one to the host.
Effects anew(Effects effects) {
    for (Effect &effect : effects)
        effect.keeps_handles = true;
    return effects;
}

// The same for two of them, of which the first can be had.
Effects behind_another(Effects effects) {
    effects = anew(effects);
    for (Effect &effect : effects)
        effect.keeps_mapping = true;
    effects.push_back({"realloc", Got::kSuccess, 0, 0, true, false, true});
    return effects;
}

// What a process does that comes up: a lock that was not given back is free again.
void come_up(SweptHost &host) {
    free(bridge_lock_create(host.key(0x33330001)));
}

// Who does not get the lock goes on without it.
Effects locking(Effects effects) {
    effects.push_back({"semop", Got::kSuccess});
    return effects;
}

Got make_vlan() {
    vl_clear_vlan_entry(kVlan);
    vl_initial_vlan_entry(kVlan, BRI_VLAN_STATIC);
    return vl_exist(kVlan, 0) != 0 ? Got::kSuccess : Got::kElse;
}

} // namespace

std::vector<Row> table_rows() {
    return {
        {"bridge_portdb_init", Level::kBare, [](SweptHost &) { return one(bridge_portdb_init()); }, anew(kSetUp)},
        {"vl_vlandb_init", Level::kBare, [](SweptHost &) { return one(vl_vlandb_init()); }, anew(kSetUp)},
        {"vlan_group_shm_init", Level::kBare, [](SweptHost &) { return one(vlan_group_shm_init()); }, anew(kSetUp)},
        {"vl_clnt_manage_init", Level::kStarted,
         [](SweptHost &) { return made(vl_clnt_manage_init(&SweptHost::ctx())); }, behind_another(kSetUp)},
        {"bridge_set_excflag",
         Level::kBare,
         [](SweptHost &) { return zero(bridge_set_excflag(kIfx, BRI_HOST, BRI_SECURE, &g_conflict)); },
         locking(kSetUp),
         0,
         {},
         come_up},
        {"bridge_unset_excflag",
         Level::kBare,
         [](SweptHost &) { return zero(bridge_unset_excflag(kIfx, BRI_HOST)); },
         locking(kSetUp),
         0,
         {},
         come_up},
        {"bridge_coxmng_get_status", Level::kBare,
         [](SweptHost &) { return one(bridge_coxmng_get_status(kIfx, g_status, sizeof g_status)); }, kSetUp, 0,
         flagged},
        {"swport_set_attr_exclude",
         Level::kStarted,
         [](SweptHost &) { return one(swport_set_attr_exclude(kPort, 64, 1, 128, &g_conflict)); },
         {{"semop", Got::kSuccess}},
         0,
         {},
         [](SweptHost &host) { free(bridge_lock_create(host.key(0x22220001))); }},
        {"vl_initial_vlan_entry",
         Level::kStarted,
         [](SweptHost &) { return make_vlan(); },
         {{"sysinfo", Got::kSuccess}}},
    };
}

} // namespace test
