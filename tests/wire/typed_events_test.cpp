// The events that C++ has as types: every event that carries a record of the public headers, with that record.
#include "tests/support/started_host.h"
#include "wire/event.h"

#include <bridge/events.hpp>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

namespace {

using wire::Event;
using wire::Shape;

struct Typed {
    const char *name;
    std::string record;
    size_t size;
    uint16_t least;
    bool many;
    bool assumed;
};

std::map<uint32_t, std::vector<Typed>> typed_events() {
    using namespace bridge::event;
    std::map<uint32_t, std::vector<Typed>> all;
    const auto add = [&](uint32_t code, const Typed &row) { all[code].push_back(row); };
#define KNOWN(name, code, record)   add(code, {#name, #record, sizeof(record), name::least, false, false});
#define ASSUMED(name, code, record) add(code, {#name, #record, sizeof(record), name::least, false, true});
    BRIDGE_KNOWN_EVENTS(KNOWN)
    BRIDGE_ASSUMED_EVENTS(ASSUMED)
#undef KNOWN
#undef ASSUMED
    add(mac_moved::code, {"mac_moved", "bri_mac_msg", sizeof(bri_mac_msg), mac_moved::least, true, true});
    add(port_states::code,
        {"port_states", "l2top_port_status_batch", sizeof(l2top_port_status_batch), port_states::least, false, false});
    return all;
}

std::string public_headers() {
    std::stringstream text;
    for (const auto &entry : std::filesystem::directory_iterator(BRIDGE_HEADERS))
        if (entry.path().extension() == ".h")
            text << std::ifstream(entry.path()).rdbuf();
    return text.str();
}

// A host that registers for every event. The library keeps some to itself, whoever registers.
class TypedEvents : public test::StartedHost {
  protected:
    TypedEvents() {
        start("typed");
        event_set all;
        std::memset(&all, 0xFF, sizeof all);
        bridge_client_reg_event(&all, [](uint32_t type, void *, uint16_t) {
            told().insert(type);
            return 0;
        });
        test::deliver(bridge_client_msg_dspch, BRIDGE_EVENT_BKUP_DATA_END, {});
    }

    static std::set<uint32_t> &told() {
        static std::set<uint32_t> types;
        return types;
    }
    // Whether an event with a record that nothing can be said against is told to a handler.
    static bool reaches_a_handler(uint32_t type, size_t size) {
        test::ByteVec payload(size, 1); // a new version, VLAN and port numbers that there are
        if (const uint32_t add = BRI_MAC_ADD; size == sizeof(bri_mac_msg))
            std::memcpy(payload.data() + offsetof(bri_mac_msg, oper), &add, sizeof add);
        told().clear();
        test::deliver(bridge_client_msg_dspch, type, payload);
        return told().contains(type);
    }
};

// Come as several records and are handed on one by one.
const std::set<uint32_t> kTakenApart{MAC_EVENT_NOTIFY_ADDR, MAC_EVENT_NOTIFY_NONDYN};

bool carries_public_record(const Event &event, const std::string &headers) {
    const wire::Payload &payload = event.to_client;
    return (payload.shape == Shape::kRecord || payload.shape == Shape::kRun) &&
           headers.find("struct " + payload.record->name + " {") != std::string::npos;
}

TEST_F(TypedEvents, every_event_that_brings_a_host_a_public_record_has_a_type_with_that_record) {
    const std::string headers = public_headers();
    const auto typed = typed_events();
    size_t expected = 0;
    for (const Event &event : wire::all_events()) {
        const bool wanted =
            carries_public_record(event, headers) && reaches_a_handler(event.type, event.to_client.record->size);
        expected += wanted ? 1 : 0;
        const auto found = typed.find(event.type);
        ASSERT_EQ(found != typed.end(), wanted) << event.name;
        if (!wanted)
            continue;
        const Typed &row = found->second.front();
        EXPECT_EQ(found->second.size(), 1U) << event.name;
        EXPECT_EQ(row.record, event.to_client.record->name) << event.name;
        EXPECT_EQ(row.size, event.to_client.record->size) << event.name;
        EXPECT_EQ(row.least, event.to_client.record->least()) << event.name;
        EXPECT_EQ(row.many, event.to_client.shape == Shape::kRun && !kTakenApart.contains(event.type)) << event.name;
        EXPECT_EQ(row.assumed, event.to_client.assumed) << event.name;
    }
    EXPECT_EQ(typed.size(), expected);
    EXPECT_GT(expected, 30U);
}

TEST_F(TypedEvents, no_two_have_one_name) {
    std::set<std::string> names;
    for (const auto &[code, rows] : typed_events())
        for (const Typed &row : rows)
            EXPECT_TRUE(names.insert(row.name).second) << row.name;
}

} // namespace
