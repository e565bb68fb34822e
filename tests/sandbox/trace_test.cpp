#include "sandbox/rules.h"
#include "sandbox/trace.h"

#include <bridge/events.h>
#include <bridge/vlan_client.h>

#include <gtest/gtest.h>

namespace {

using namespace sandbox;

Record request_of(uint16_t pvid) {
    vl_evt_intf_pvid_rec payload{};
    payload.ifx = 3;
    payload.pvid = pvid;
    Record record;
    record.kind = Kind::kRequest;
    record.clients = {std::make_shared<const Party>(Party{1, "authd"})};
    record.type = VLAN_EVENT_MODIFY_INTF_PVID;
    record.payload = buffer_of(bytes_of(payload));
    return record;
}

TEST(Trace, numbers_its_records_and_tells_the_readers) {
    const Loop loop;
    Trace trace(loop);
    std::vector<uint64_t> seen;
    int changes = 0;
    auto reader = trace.records.subscribe([&](const Record &record) { seen.push_back(record.number); });
    const auto watcher = trace.changed.subscribe([&] { ++changes; });
    trace.note("a");
    trace.add(request_of(1));
    reader.reset();
    trace.note("b");
    EXPECT_EQ(seen, (std::vector<uint64_t>{1, 2}));
    EXPECT_EQ(changes, 3);
    EXPECT_EQ(trace.last(), 3U);
}

TEST(Trace, reader_may_leave_and_add_while_it_is_told) {
    const Loop loop;
    Trace trace(loop);
    int told = 0;
    std::shared_ptr<void> once;
    once = trace.records.subscribe([&](const Record &) {
        ++told;
        once.reset();
        trace.note("inner");
    });
    trace.note("outer");
    EXPECT_EQ(told, 1);
    EXPECT_EQ(trace.history().size(), 2U);
}

TEST(Trace, keeps_the_last_records_within_bounds) {
    const Loop loop;
    Trace trace(loop);
    for (int i = 0; i < 5000; ++i)
        trace.note("x");
    EXPECT_EQ(trace.history().size(), 2048U);
    EXPECT_EQ(trace.history().back().number, 5000U);
    Record large;
    large.payload.resize(1U << 20);
    for (int i = 0; i < 8; ++i)
        trace.add(large);
    EXPECT_LE(trace.history().size(), 4U);
}

TEST(RecordText, shows_the_fields_and_what_became_of_it) {
    Record record = request_of(7);
    EXPECT_EQ(record_text(record), "client 1 (authd): sent VLAN_EVENT_MODIFY_INTF_PVID(409), 8 bytes: ifx=3 pvid=7");
    record.result = "dropped by rule 1";
    EXPECT_EQ(record_json(record).dump(),
              R"({"number":0,"time":0.0,"kind":"request","clients":["authd"],"type":"VLAN_EVENT_MODIFY_INTF_PVID",)"
              R"("fields":{"ifx":3,"pvid":7},"result":"dropped by rule 1"})");
}

TEST(RecordText, escapes_a_clients_name) {
    Record record;
    record.result = "connected";
    record.clients = {std::make_shared<const Party>(Party{1, "a\x1b[2J\n"})};
    EXPECT_EQ(record_text(record), "client 1 (a\\x1b[2J\\n): connected");
}

TEST(Pattern, matches_records_of_its_kind_fields_and_client) {
    const auto matches = [](const char *words, const Record &record) {
        size_t next = 0;
        return MessagePattern(Kind::kRequest, split(words), next).matches(record);
    };
    EXPECT_TRUE(matches("VLAN_EVENT_MODIFY_INTF_PVID", request_of(7)));
    EXPECT_TRUE(matches("409 pvid=7 ifx=3 from authd", request_of(7)));
    EXPECT_FALSE(matches("409 pvid=8", request_of(7)));
    EXPECT_FALSE(matches("409 from stpd", request_of(7)));
    EXPECT_FALSE(matches("408", request_of(7)));
}

TEST(Pattern, event_that_was_not_delivered_is_none) {
    Record record = request_of(7);
    record.kind = Kind::kEvent;
    size_t next = 0;
    const MessagePattern pattern(Kind::kEvent, {"409"}, next);
    EXPECT_TRUE(pattern.matches(record));
    record.result = "dropped by rule 1";
    EXPECT_FALSE(pattern.matches(record));
}

TEST(Loop, runs_timers_in_its_own_time) {
    Loop loop(100);
    std::string order;
    Timer second(loop, [&] {
        order += 'b';
        loop.end();
    });
    Timer first(loop, [&] { order += 'a'; });
    second.start(std::chrono::seconds(2));
    first.start(std::chrono::seconds(1));
    loop.run();
    EXPECT_EQ(order, "ab");
    EXPECT_GE(loop.now(), std::chrono::seconds(2));
}

} // namespace
