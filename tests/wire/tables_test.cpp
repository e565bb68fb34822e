// The tables are complete: every event type, every public record, every byte of each.
#include "tests/support/test.h"
#include "wire/event.h"

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

namespace {

using namespace wire;

// Records of the public headers that stay within a process.
const std::set<std::string> kOfOneProcess{"bri_clnt_cb_node",   "bri_clnt_ctx", "bri_list",       "bri_counters",
                                          "bri_port_set",       "bri_sem_lock", "bri_shm_handle", "bri_sys_mem_info",
                                          "vlan_group_manager", "vl_mng"};

std::string text_of_headers() {
    std::stringstream text;
    for (const auto &entry : std::filesystem::directory_iterator(BRIDGE_HEADERS))
        if (entry.path().extension() == ".h")
            text << std::ifstream(entry.path()).rdbuf();
    return text.str();
}

std::vector<std::smatch> all_of(const std::string &text, const char *pattern) {
    const std::regex regex(pattern);
    return {std::sregex_iterator(text.begin(), text.end(), regex), std::sregex_iterator()};
}

TEST(WireTables, every_record_of_the_headers_is_described) {
    const std::string headers = text_of_headers();
    unsigned described = 0;
    for (const std::smatch &match : all_of(headers, "struct ([a-z0-9_]+) \\{")) {
        const std::string name = match[1];
        if (name.starts_with("bridge_host_")) // all of them stay
            continue;
        const bool known = find_record(name) != nullptr;
        EXPECT_NE(known, kOfOneProcess.contains(name)) << name;
        described += known ? 1 : 0;
    }
    EXPECT_GT(described, 40U);
}

TEST(WireTables, every_event_of_the_headers_has_its_row) {
    const std::string headers = text_of_headers();
    std::string list = headers.substr(headers.find("enum bri_event {"));
    list.resize(list.find("};"));
    size_t count = 0;
    for (const std::smatch &match : all_of(list, "([A-Z0-9_]+) = ([0-9]+)")) {
        const auto type = static_cast<uint32_t>(std::stoul(match[2]));
        const Event *event = find_event(type);
        ASSERT_NE(event, nullptr) << match[1];
        EXPECT_EQ(event->name, match[1].str());
        EXPECT_EQ(find_event(match[1].str()), event);
        EXPECT_EQ(find_event(std::to_string(type)), event);
        ++count;
    }
    EXPECT_EQ(count, all_events().size());
    EXPECT_GT(count, 130U);
}

TEST(WireTables, events_travel_somewhere_and_carry_what_their_shape_says) {
    for (const Event &event : all_events()) {
        bool travels = event.local;
        for (const Direction way :
             {Direction::kToClient, Direction::kToServer, Direction::kToKernel, Direction::kFromKernel}) {
            const Payload &payload = event.payload(way);
            travels = travels || payload.shape != Shape::kNever;
            const bool records = payload.shape == Shape::kRecord || payload.shape == Shape::kRun;
            EXPECT_EQ(payload.record != nullptr, records) << event.name;
            EXPECT_TRUE(!payload.assumed || way == Direction::kToClient) << event.name;
        }
        EXPECT_TRUE(travels) << event.name;
    }
}

TEST(WireTables, fields_cover_their_record_without_gap_or_overlap) {
    for (const Record *record : all_records()) {
        size_t at = 0;
        std::set<std::string> names;
        for (const Field &field : record->fields) {
            EXPECT_EQ(field.offset, at) << record->name << "." << field.name;
            EXPECT_TRUE(names.insert(field.name).second) << record->name << "." << field.name;
            EXPECT_TRUE(field.name != "length" && field.name != "rest") << "words of their own in texts";
            EXPECT_EQ(field.record != nullptr, field.kind == Kind::kRecords);
            EXPECT_TRUE(field.names.empty() || field.kind == Kind::kEnumeration || field.kind == Kind::kFlags);
            at += field.width;
        }
        EXPECT_EQ(at, record->size) << record->name;
        EXPECT_EQ(find_record(record->name), record);
    }
}

TEST(WireTables, names_of_values_are_distinct) {
    for (const Record *record : all_records())
        for (const Field &field : record->fields) {
            std::set<std::string> texts;
            std::set<uint32_t> values;
            for (const Name &name : field.names) {
                EXPECT_TRUE(texts.insert(name.text).second) << record->name << "." << field.name;
                EXPECT_TRUE(values.insert(name.value).second) << record->name << "." << field.name;
            }
        }
}

TEST(WireTables, events_without_a_name_are_their_number) {
    EXPECT_EQ(event_name(VLAN_EVENT_RENAME), "VLAN_EVENT_RENAME");
    EXPECT_EQ(event_name(MAC_EVENT_SET_ROOT_BRIDGE_MODE), "MAC_EVENT_SET_ROOT_BRIDGE_MODE");
    EXPECT_EQ(event_name(420), "420");
    EXPECT_EQ(find_event(420), nullptr);
    EXPECT_EQ(parse_event("420"), 420U);
    EXPECT_EQ(parse_event("0x188"), 392U);
    EXPECT_EQ(parse_event("VLAN_EVENT_RENAME"), 392U);
    for (const char *text : {"", "VLAN_EVENT_RENAM", "0x", "-1", "1 ", "4294967296", "x"})
        EXPECT_THROW((void)parse_event(text), std::invalid_argument) << text;
    EXPECT_EQ(payload_of(420, Direction::kToClient).shape, Shape::kOpaque);
}

} // namespace
