// The replay against its plainest form: identical events over random tables, also while handlers change everything
// that a handler may change.
#include "tests/vlan/replay_reference.h"
#include "tests/vlan/vlan_fixture.h"

#include <algorithm>
#include <numeric>
#include <random>

namespace {

using namespace test;

struct Event {
    uint32_t type;
    ByteVec payload;

    bool operator==(const Event &) const = default;
};

std::vector<Event> seen; // by both recording handlers

int note(uint32_t type, void *data, uint16_t len) {
    const auto *bytes = static_cast<const uint8_t *>(data);
    seen.push_back({type, ByteVec(bytes, bytes + len)});
    return 0;
}

using Random = std::mt19937;

unsigned below(Random &random, unsigned limit) {
    return static_cast<unsigned>(random()) % limit;
}
bool chance(Random &random, unsigned percent) {
    return below(random, 100) < percent;
}
uint16_t any_vid(Random &random) {
    return static_cast<uint16_t>(1 + below(random, 4094));
}
int32_t any_ifx(Random &random) {
    return static_cast<int32_t>(1 + below(random, 63));
}

// `count` of the numbers 1..limit.
std::vector<uint16_t> some(Random &random, unsigned limit, unsigned count) {
    std::vector<uint16_t> numbers(limit);
    std::iota(numbers.begin(), numbers.end(), uint16_t{1});
    std::shuffle(numbers.begin(), numbers.end(), random);
    numbers.resize(count);
    return numbers;
}

vlanset any_set(Random &random) {
    vlanset set;
    for (uint32_t &word : set.words)
        word = static_cast<uint32_t>(random());
    return set;
}

struct Shape {
    unsigned seed;
    unsigned vlans;    // 1..4094
    unsigned ports;    // 1..63
    unsigned members;  // in percent of the ports, for each VLAN
    unsigned unusual;  // in percent: dynamic VLANs, renamed ones, those with an SVI, missed ones
    bool handlers_act; // in the middle of the replay
};

void make_vlan(Random &random, uint16_t vid, unsigned unusual) {
    constexpr uint32_t kModes[] = {BRI_VLAN_STATIC, BRI_VLAN_SUPER, 0, 9};
    vl_initial_vlan_entry(vid, chance(random, unusual) ? uint32_t{BRI_VLAN_DYNAMIC} : kModes[below(random, 4)]);
    vle *entry = vl_get_vlan_entry(vid);
    if (entry == nullptr)
        return;
    if (chance(random, unusual))
        std::snprintf(entry->name, sizeof entry->name, "name of %u", below(random, 100000));
    if (chance(random, unusual))
        vl_set_svi(vid, 1 + below(random, 5000));
    if (chance(random, unusual))
        entry->version = static_cast<uint16_t>(random());
    if (chance(random, 100 - unusual))
        g_vlan_private_version[vid] = entry->version;
}

void make_port(Random &random, int32_t ifx) {
    spcb &port = *swport_get_raw_spcb(ifx);
    port.ifx = static_cast<uint32_t>(ifx);
    port.mode = below(random, 10);
    port.default_vid = chance(random, 5) ? static_cast<uint16_t>(random()) : any_vid(random);
    port.tag_vlan = any_set(random);
    port.allow_vlan = any_set(random);
}

// Everything that a run may change, to start two runs alike.
struct Tables {
    bri_vlandb vlans;
    spcb ports[BRI_PORT_SLOTS];
    uint16_t versions[BRI_VLAN_ENTRIES];

    void save() {
        std::memcpy(&vlans, g_vl_mng.entries, sizeof vlans);
        std::memcpy(ports, swport_get_raw_spcb(1) - 1, sizeof ports);
        std::memcpy(versions, g_vlan_private_version, sizeof versions);
    }
    void restore() const {
        std::memcpy(g_vl_mng.entries, &vlans, sizeof vlans);
        std::memcpy(swport_get_raw_spcb(1) - 1, ports, sizeof ports);
        std::memcpy(g_vlan_private_version, versions, sizeof versions);
    }
};

// The handlers: one that records, one that acts after it, one that the acting one registers and withdraws.
Random acting;

constexpr uint32_t kLateMark = 0x80000000;

int late_handler(uint32_t type, void *data, uint16_t len) {
    note(type, data, len);
    seen.back().type |= kLateMark;
    return 0;
}

event_set any_types(Random &random) {
    event_set set{};
    for (const unsigned type :
         {VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX, VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_RENAME,
          VLAN_EVENT_MODIFY_VLAN_MODE, VLAN_EVENT_CREATE_INTF, VLAN_EVENT_ADD_INTF, VLAN_EVENT_RANGE_ADD_INTF,
          VLAN_EVENT_MODIFY_INTF_MODE, VLAN_EVENT_MODIFY_INTF_PVID, VLAN_EVENT_MODIFY_INTF_ALLOWVL,
          VLAN_EVENT_SVI_CREATE_DESTROY})
        if (chance(random, 50))
            add_to(set, type);
    return set;
}

void act_on_vlan(Random &random, uint16_t vid) {
    vle *entry = vl_get_vlan_entry(vid);
    switch (below(random, 8)) {
    case 0:
        vl_clear_vlan_entry(vid);
        break;
    case 1:
        make_vlan(random, vid, 50);
        break;
    case 2:
        vl_set_vlan_mode(vid, 1 + below(random, 4));
        break;
    case 3:
        vl_set_svi(vid, chance(random, 50) ? 0 : below(random, 100));
        break;
    case 4:
        if (entry != nullptr)
            std::snprintf(entry->name, sizeof entry->name, chance(random, 50) ? "VLAN%04u" : "DVLAN%04u", vid);
        break;
    case 5:
        if (entry != nullptr)
            entry->version = static_cast<uint16_t>(entry->version + below(random, 3) - 1);
        break;
    case 6:
        vl_add_static_member(any_ifx(random), vid);
        break;
    default:
        vl_del_static_member(any_ifx(random), vid);
    }
}

void act_on_port(Random &random, int32_t ifx) {
    if (chance(random, 30))
        swport_get_raw_spcb(ifx)->ifx = 0;
    else if (chance(random, 30))
        swport_tag_vlan_add(ifx, any_vid(random));
    else
        make_port(random, ifx);
}

void act_on_client(Random &random) {
    event_set set = any_types(random);
    switch (below(random, 4)) {
    case 0:
        bridge_client_reg_event(&set, late_handler);
        break;
    case 1:
        bridge_client_unreg_event(&set, late_handler);
        break;
    case 2:
        vl_clnt_create_vlan_entry(any_vid(random));
        break;
    default:
        vl_set_vlan_range(below(random, 50), 4000 + below(random, 200));
    }
}

// Acts on what the event is about, or on anything.
int acting_handler(uint32_t type, void *data, uint16_t) {
    if (!chance(acting, 20))
        return 0;
    const bool about_port = type == VLAN_EVENT_CREATE_INTF || type == VLAN_EVENT_ADD_INTF ||
                            type == VLAN_EVENT_RANGE_ADD_INTF || type == VLAN_EVENT_MODIFY_INTF_MODE ||
                            type == VLAN_EVENT_MODIFY_INTF_PVID || type == VLAN_EVENT_MODIFY_INTF_ALLOWVL;
    const auto near = value_at<uint32_t>(data, 0);
    switch (below(acting, 4)) {
    case 0:
        act_on_vlan(acting, any_vid(acting));
        break;
    case 1:
        act_on_port(acting, about_port && near >= 1 && near <= 63 ? static_cast<int32_t>(near) : any_ifx(acting));
        break;
    case 2:
        act_on_vlan(acting, about_port ? any_vid(acting)
                                       : value_at<uint16_t>(data, type == VLAN_EVENT_SVI_CREATE_DESTROY ? 8 : 0));
        break;
    default:
        act_on_client(acting);
    }
    return 0;
}

class Differential : public MappedVlanTest {
  protected:
    static void make_tables(const Shape &shape) {
        Random random(shape.seed);
        std::memset(g_vl_mng.entries, 0, BRI_VLAN_ENTRIES * sizeof(vle));
        std::memset(g_vlan_private_version, 0, sizeof g_vlan_private_version);
        std::memset(swport_get_raw_spcb(1), 0, 63 * sizeof(spcb));
        vl_set_vlan_range(1, 4094);
        for (const uint16_t vid : some(random, 4094, shape.vlans)) {
            make_vlan(random, vid, shape.unusual);
            for (int32_t ifx = 0; ifx < 64; ++ifx)
                if (chance(random, shape.members))
                    vl_add_static_member(ifx, vid);
        }
        for (const uint16_t ifx : some(random, 63, shape.ports))
            make_port(random, ifx);
    }

    static std::vector<Event> run(const Shape &shape, void (*replay)()) {
        acting.seed(shape.seed);
        listen({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX, VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_RENAME,
                VLAN_EVENT_MODIFY_VLAN_MODE, VLAN_EVENT_CREATE_INTF, VLAN_EVENT_ADD_INTF, VLAN_EVENT_RANGE_ADD_INTF,
                VLAN_EVENT_MODIFY_INTF_MODE, VLAN_EVENT_MODIFY_INTF_PVID, VLAN_EVENT_MODIFY_INTF_ALLOWVL,
                VLAN_EVENT_SVI_CREATE_DESTROY},
               note);
        event_set all{};
        std::memset(&all, 0xFF, sizeof all);
        bridge_client_unreg_event(&all, late_handler);
        if (shape.handlers_act)
            listen({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX, VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_RENAME,
                    VLAN_EVENT_MODIFY_VLAN_MODE, VLAN_EVENT_CREATE_INTF, VLAN_EVENT_ADD_INTF, VLAN_EVENT_RANGE_ADD_INTF,
                    VLAN_EVENT_MODIFY_INTF_MODE, VLAN_EVENT_MODIFY_INTF_PVID, VLAN_EVENT_MODIFY_INTF_ALLOWVL,
                    VLAN_EVENT_SVI_CREATE_DESTROY},
                   acting_handler);
        seen.clear();
        replay();
        return std::move(seen);
    }

    // Also what the run left behind must be the same.
    static void expect_same(const Shape &shape) {
        make_tables(shape);
        static Tables before, after_library, after_reference;
        before.save();
        const std::vector<Event> library = run(shape, vl_clnt_notify_origin_data);
        after_library.save();
        before.restore();
        const std::vector<Event> plain = run(shape, reference::replay);
        after_reference.save();
        ASSERT_GE(plain.size(), 1U);
        ASSERT_EQ(library.size(), plain.size()) << "seed " << shape.seed;
        for (size_t i = 0; i < plain.size(); ++i)
            ASSERT_TRUE(library[i] == plain[i]) << "seed " << shape.seed << ", event " << i << " of type "
                                                << plain[i].type << " or " << library[i].type;
        ASSERT_EQ(std::memcmp(after_library.versions, after_reference.versions, sizeof before.versions), 0);
        ASSERT_EQ(std::memcmp(after_library.ports, after_reference.ports, sizeof before.ports), 0);
    }
};

TEST_F(Differential, full_tables) {
    expect_same({1, 4094, 63, 100, 30, false});
}

TEST_F(Differential, full_tables_while_handlers_act) {
    expect_same({2, 4094, 63, 50, 30, true});
}

TEST_F(Differential, dense_tables) {
    for (unsigned seed = 10; seed < 13; ++seed)
        expect_same({seed, 3700, 40, 70, 20, false});
}

TEST_F(Differential, sparse_tables) {
    for (unsigned seed = 20; seed < 30; ++seed)
        expect_same({seed, 80, 5, 10, 30, false});
}

TEST_F(Differential, tables_without_anything_unusual) {
    for (unsigned seed = 40; seed < 43; ++seed)
        expect_same({seed, 1000, 24, 5, 0, false});
}

TEST_F(Differential, one_vlan_and_one_port) {
    for (unsigned seed = 50; seed < 60; ++seed)
        expect_same({seed, 1, 1, 100, 50, false});
}

TEST_F(Differential, sparse_tables_while_handlers_act) {
    for (unsigned seed = 60; seed < 80; ++seed)
        expect_same({seed, 1 + seed, 8, 30, 50, true});
}

TEST_F(Differential, dense_tables_while_handlers_act) {
    for (unsigned seed = 80; seed < 83; ++seed)
        expect_same({seed, 2500, 30, 60, 60, true});
}

} // namespace
