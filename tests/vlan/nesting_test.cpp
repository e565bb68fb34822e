// Handlers that look up and ask again in the middle of what they are told: how deep that goes.
#include "tests/vlan/vlan_fixture.h"

#include <pthread.h>

namespace {

using namespace test;

constexpr unsigned kMost = 8;
constexpr unsigned kFarTooDeep = 100;

// How deep handlers lie inside each other: now, and at most.
unsigned g_depth, g_deepest;

// In the place of what a handler does: `again` once more, unless that went on without end.
template <class Again> void nest(Again &&again) {
    g_deepest = std::max(g_deepest, ++g_depth);
    if (g_depth < kFarTooDeep)
        again();
    --g_depth;
}

class Nesting : public MappedVlanTest {
  protected:
    void SetUp() override {
        MappedVlanTest::SetUp();
        g_depth = g_deepest = 0;
    }
    ~Nesting() override { during = nullptr; }
    static void missed(uint16_t vid) { add_vlan(vid, BRI_VLAN_STATIC, {}, true); }
};

// --- re-search

// Another writer raises the version in step with the look-ups of the handler.
TEST_F(Nesting, version_storm_is_told_once_a_look_up) {
    watch({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX});
    missed(100);
    during = [](uint32_t) {
        nest([] {
            ++g_vl_mng.entries[100].version;
            EXPECT_EQ(vl_clnt_exist(100, 0), 1);
        });
    };
    const uint16_t first = g_vl_mng.entries[100].version;
    vl_version_check_on_reserch(100);
    EXPECT_EQ(g_deepest, 1U);
    EXPECT_EQ(events().size(), 1U);
    EXPECT_EQ(g_vlan_private_version[100], first); // what came meanwhile is not taken for told
    vl_version_check_on_reserch(100);              // but by the next look-up
    EXPECT_EQ(events().size(), 3U);
    EXPECT_EQ(g_vlan_private_version[100], first + 1);
}

TEST_F(Nesting, version_that_falls_inside_its_own_search_waits_for_the_next_look_up_too) {
    watch({VLAN_EVENT_CREATE_INDEX});
    missed(100);
    debug_on({BRI_DBG_VLAN});
    during = [](uint32_t) {
        clear_log();
        g_vl_mng.entries[100].version = 0;
        vl_version_check_on_reserch(100);
    };
    vl_version_check_on_reserch(100);
    EXPECT_EQ(log_text(), "");
    EXPECT_EQ(g_vlan_private_version[100], 1);
    vl_version_check_on_reserch(100);
    EXPECT_EQ(g_vlan_private_version[100], 0);
}

TEST_F(Nesting, searches_of_different_vlans_lie_8_deep_and_the_rest_is_told_later) {
    watch({VLAN_EVENT_CREATE_INDEX});
    for (uint16_t vid = 1; vid <= 20; ++vid)
        missed(vid);
    during = [](uint32_t) {
        nest([] {
            const auto told = value_at<uint16_t>(events().back().payload.data(), 0);
            vl_version_check_on_reserch(static_cast<uint16_t>(told + 1));
        });
    };
    vl_version_check_on_reserch(1);
    EXPECT_EQ(g_deepest, kMost);
    EXPECT_EQ(events().size(), kMost);
    EXPECT_EQ(g_vlan_private_version[kMost], 1);
    EXPECT_EQ(g_vlan_private_version[kMost + 1], 0);
    vl_version_check_on_reserch(kMost + 1); // every level was given back
    EXPECT_EQ(events().size(), 2 * kMost);
}

// A handler that walks all VLANs whenever it is told of one: each is told once.
TEST_F(Nesting, searches_inside_searches_tell_every_vlan_once) {
    watch({VLAN_EVENT_CREATE_INDEX});
    for (uint16_t vid = 1; vid <= 40; ++vid)
        missed(vid);
    const auto walk = [] {
        for (uint16_t vid = 1; vid <= 40; ++vid)
            vl_version_check_on_reserch(vid);
    };
    during = [&](uint32_t) { nest(walk); };
    walk();
    EXPECT_EQ(g_deepest, kMost);
    EXPECT_EQ(events().size(), 40U);
}

// --- replays

struct ReplayKind {
    const char *name;
    uint32_t event; // one that it raises once
    void (*run)();
};
const ReplayKind kReplays[] = {
    {"vlans", VLAN_EVENT_CREATE_RANGE, vl_clnt_notify_origin_data},
    {"topology", L2TOP_EVENT_INSTANCE_CONFIG, l2top_clnt_notify_origin_data},
    {"vlan submodule", VLAN_EVENT_SYNC_DATA_BEGIN, [] { bridge_client_notify_submod_oridata(BRI_SUBMOD_VLAN); }},
    {"topology submodule", L2TOP_EVENT_SYNC_DATA_END, [] { bridge_client_notify_submod_oridata(BRI_SUBMOD_L2TOP); }},
    {"all", BRIDGE_EVENT_SYNC_DATA_BEGIN, bridge_client_notify_all_oridata},
    {"request for all", BRIDGE_EVENT_SYNC_DATA_END, bridge_client_request_oridata},
};

const char kDiscarded[] = "oridata is asked for inside 8 replays of it, discarded.\n";

TEST_F(Nesting, replay_inside_replays_stops_at_8_levels) {
    for (const ReplayKind &replay : kReplays)
        watch({replay.event});
    debug_on({BRI_DBG_MSG});
    for (const ReplayKind &replay : kReplays) {
        during = [&](uint32_t type) {
            if (type == replay.event)
                nest(replay.run);
        };
        for (int round = 0; round < 2; ++round) { // every level was given back
            clear_log();
            g_deepest = 0;
            replay.run();
            EXPECT_EQ(g_deepest, kMost) << replay.name;
            expect_line(kDiscarded, kClientLine);
        }
    }
}

TEST_F(Nesting, replays_of_every_kind_share_the_8_levels) {
    constexpr unsigned kMostTurns = 400; // of each, as all of them take seconds
    for (const ReplayKind &replay : kReplays)
        watch({replay.event});
    unsigned turn = 0;
    during = [&](uint32_t) {
        if (turn < kMostTurns)
            nest([&] { kReplays[turn++ % std::size(kReplays)].run(); });
    };
    for (const ReplayKind &replay : kReplays) {
        turn = 0;
        g_deepest = 0;
        replay.run();
        EXPECT_EQ(g_deepest, kMost) << replay.name;
    }
    EXPECT_TRUE(log_lines().empty()); // the flag is off
}

TEST_F(Nesting, discarded_replay_asks_nothing_of_the_server) {
    watch({BRIDGE_EVENT_SYNC_DATA_BEGIN});
    connect_server();
    during = [](uint32_t) { nest(bridge_client_notify_all_oridata); };
    bridge_client_notify_all_oridata();
    EXPECT_EQ(sent().size(), kMost);
}

// --- both, on the stack of a small thread

void *storm(void *) {
    vl_clnt_notify_origin_data();
    return nullptr;
}

constexpr uint16_t kVlans = 12;

// Asks for everything again; while that is refused, for the VLANs one by one, each newer than at the last look.
void ask_for_all() {
    for (unsigned vid = 1; vid <= kVlans; ++vid)
        ++g_vl_mng.entries[vid].version;
    vl_clnt_notify_origin_data();
    for (uint16_t vid = 1; vid <= kVlans; ++vid)
        vl_version_check_on_reserch(vid);
}

TEST_F(Nesting, storm_of_versions_and_replays_fits_a_stack_of_256_kB) {
    watch({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_CREATE_RANGE});
    for (uint16_t vid = 1; vid <= kVlans; ++vid)
        add_vlan(vid);
    during = [](uint32_t) {
        nest([] {
            if (events().size() < 2000) // the storm passes
                ask_for_all();
        });
    };
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 256 * 1024), 0);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, storm, nullptr), 0);
    pthread_attr_destroy(&attributes);
    pthread_join(thread, nullptr);
    EXPECT_GT(g_deepest, kMost);
    EXPECT_LE(g_deepest, 2 * kMost);
}

} // namespace
