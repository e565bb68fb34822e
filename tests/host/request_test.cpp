// Requests with an end, and the end of the layer.
#include "tests/host/layer_fixture.h"

using namespace test;

namespace {

// A request that writes "NAME RESULT" down when it ends.
struct Request : bridge_host_pending {
    Request(Layer &layer_told, std::string its_name)
        : bridge_host_pending{}, layer(layer_told), name(std::move(its_name)) {
        send = [](void *self) {
            static_cast<Request *>(self)->sends += 1;
            return bridge_client_send_message(nullptr, 0, MAC_EVENT_NOTIFY_ADDR);
        };
        done_when = [](uint32_t event, const void *, uint16_t, void *self) {
            return static_cast<int>(event == static_cast<Request *>(self)->awaited);
        };
        on_done = [](bridge_host_pending *, bridge_host_result result, void *self) {
            static const char *const names[] = {"done", "timed out", "lost", "stopped"};
            auto &request = *static_cast<Request *>(self);
            request.layer.write(request.name + " " + names[result]);
        };
        events = awaits;
        timeout_ms = 1000;
        context = this;
    }
    Layer &layer;
    std::string name;
    int sends = 0;
    uint32_t awaited = VLAN_EVENT_RENAME;
    uint32_t awaits[3] = {VLAN_EVENT_RENAME, 0, 0};
};

class HostRequest : public Layer {
  protected:
    void SetUp() override { start_synchronised(); }
    static bridge_host_statistics figures() {
        bridge_host_statistics figures{};
        figures.size = sizeof figures;
        EXPECT_EQ(bridge_host_get_statistics(&figures), 0);
        return figures;
    }
};

TEST_F(HostRequest, is_done_by_its_event) {
    Request request(*this, "a");
    ASSERT_EQ(bridge_host_request(&request), 0);
    EXPECT_EQ(request.sends, 1);
    deliver(VLAN_EVENT_INTF_STATE);
    EXPECT_EQ(told, Told{});
    deliver(VLAN_EVENT_RENAME);
    EXPECT_EQ(told, Told{"a done"});
    EXPECT_EQ(loop().count("host-deadline"), 0);
    EXPECT_EQ(figures().requests_done, 1U);
}

TEST_F(HostRequest, registers_its_events) {
    Request request(*this, "a");
    EXPECT_FALSE(has(ctx().event_set, VLAN_EVENT_RENAME));
    ASSERT_EQ(bridge_host_request(&request), 0);
    EXPECT_TRUE(has(ctx().event_set, VLAN_EVENT_RENAME));
    bridge_host_cancel(&request);
    sent();
    ASSERT_EQ(bridge_host_request(&request), 0);
    EXPECT_EQ(types_sent(), std::vector<uint32_t>{MAC_EVENT_NOTIFY_ADDR}); // and no registration
    bridge_host_cancel(&request);
}

TEST_F(HostRequest, sees_the_record) {
    Request request(*this, "a");
    request.done_when = [](uint32_t, const void *record, uint16_t size, void *) {
        return static_cast<int>(size == sizeof(vl_evt_vlan_rec) &&
                                static_cast<const vl_evt_vlan_rec *>(record)->vid == 7);
    };
    ASSERT_EQ(bridge_host_request(&request), 0);
    vl_evt_vlan_rec record{};
    record.vid = 6;
    deliver(VLAN_EVENT_RENAME, bytes_of(record));
    EXPECT_EQ(told, Told{});
    record.vid = 7;
    deliver(VLAN_EVENT_RENAME, bytes_of(record));
    EXPECT_EQ(told, Told{"a done"});
}

TEST_F(HostRequest, is_done_by_a_table_at_the_tick) {
    range();
    Request request(*this, "a");
    request.events = nullptr;
    request.done_when = [](uint32_t, const void *, uint16_t, void *) { return vl_exist(30, 0); };
    ASSERT_EQ(bridge_host_request(&request), 0);
    tick();
    EXPECT_EQ(told, Told{});
    vl_initial_vlan_entry(30, BRI_VLAN_STATIC);
    tick();
    EXPECT_EQ(told, Told{"a done"});
}

TEST_F(HostRequest, times_out) {
    Request request(*this, "a");
    ASSERT_EQ(bridge_host_request(&request), 0);
    EXPECT_EQ(loop().find("host-deadline")->usec, 1000000);
    loop().run("host-deadline");
    EXPECT_EQ(told, Told{"a timed out"});
    deliver(VLAN_EVENT_RENAME);
    EXPECT_EQ(told, Told{"a timed out"});
    EXPECT_EQ(figures().requests_timed_out, 1U);
}

TEST_F(HostRequest, is_lost_with_the_connection) {
    Request request(*this, "a");
    ASSERT_EQ(bridge_host_request(&request), 0);
    lose_connection();
    tick();
    EXPECT_EQ(told, (Told{"a lost", "down"}));
    EXPECT_EQ(loop().count("host-deadline"), 0);
    EXPECT_EQ(figures().requests_lost, 1U);
}

TEST_F(HostRequest, that_is_cancelled_says_nothing_more) {
    Request request(*this, "a");
    ASSERT_EQ(bridge_host_request(&request), 0);
    bridge_host_cancel(&request);
    bridge_host_cancel(&request);
    bridge_host_cancel(nullptr);
    deliver(VLAN_EVENT_RENAME);
    tick();
    EXPECT_EQ(told, Told{});
    EXPECT_EQ(loop().count("host-deadline"), 0);
    EXPECT_EQ(figures().requests_cancelled, 1U);
}

TEST_F(HostRequest, is_one_of_any_number) {
    std::vector<std::unique_ptr<Request>> requests;
    for (int i = 0; i < 300; ++i) {
        requests.push_back(std::make_unique<Request>(*this, std::to_string(i)));
        requests.back()->awaited = requests.back()->awaits[0] =
            i % 2 == 0 ? uint32_t{VLAN_EVENT_RENAME} : uint32_t{VLAN_EVENT_INTF_STATE};
        ASSERT_EQ(bridge_host_request(requests.back().get()), 0);
    }
    deliver(VLAN_EVENT_RENAME);
    EXPECT_EQ(told.size(), 150U);
    EXPECT_EQ(told.back(), "298 done");
    deliver(VLAN_EVENT_INTF_STATE);
    EXPECT_EQ(told.size(), 300U);
}

TEST_F(HostRequest, may_be_made_anew_when_it_has_ended) {
    Request request(*this, "a");
    ASSERT_EQ(bridge_host_request(&request), 0);
    during = [&](const std::string &line) {
        if (line == "a done" && request.sends < 3) {
            EXPECT_EQ(bridge_host_request(&request), 0);
        }
    };
    deliver(VLAN_EVENT_RENAME);
    EXPECT_EQ(told, Told{"a done"}); // not by the same event
    deliver(VLAN_EVENT_RENAME);
    deliver(VLAN_EVENT_RENAME);
    deliver(VLAN_EVENT_RENAME);
    EXPECT_EQ(told, (Told{"a done", "a done", "a done"}));
}

TEST_F(HostRequest, made_anew_at_the_tick_waits_for_the_next) {
    Request request(*this, "a");
    request.done_when = [](uint32_t, const void *, uint16_t, void *) { return 1; };
    ASSERT_EQ(bridge_host_request(&request), 0);
    during = [&](const std::string &line) {
        if (line == "a done") {
            EXPECT_EQ(bridge_host_request(&request), 0);
        }
    };
    tick();
    EXPECT_EQ(told, Told{"a done"});
    during = nullptr;
    bridge_host_cancel(&request);
}

TEST_F(HostRequest, survives_the_end_of_others_on_the_way) {
    Request first(*this, "a");
    Request second(*this, "b");
    Request third(*this, "c");
    for (Request *request : {&first, &second, &third})
        ASSERT_EQ(bridge_host_request(request), 0);
    during = [&](const std::string &line) {
        if (line == "a done") {
            bridge_host_cancel(&second);
        }
    };
    deliver(VLAN_EVENT_RENAME);
    EXPECT_EQ(told, (Told{"a done", "c done"}));
}

TEST_F(HostRequest, ends_once_when_its_own_look_raises_its_event) {
    Request request(*this, "a");
    request.done_when = [](uint32_t event, const void *, uint16_t, void *) {
        if (event == 0)
            bridge_call_event_handlers(VLAN_EVENT_RENAME, nullptr, 0);
        return 1;
    };
    ASSERT_EQ(bridge_host_request(&request), 0);
    tick();
    EXPECT_EQ(told, Told{"a done"});
}

TEST_F(HostRequest, without_a_callback_ends_all_the_same) {
    Request request(*this, "a");
    request.on_done = nullptr;
    ASSERT_EQ(bridge_host_request(&request), 0);
    deliver(VLAN_EVENT_RENAME);
    EXPECT_EQ(figures().requests_done, 1U);
    ASSERT_EQ(bridge_host_request(&request), 0);
    bridge_host_cancel(&request);
}

TEST_F(HostRequest, gives_what_sending_gave) {
    Request request(*this, "a");
    request.send = [](void *) { return 2; };
    EXPECT_EQ(bridge_host_request(&request), 2);
    EXPECT_EQ(loop().count("host-deadline"), 0);
    deliver(VLAN_EVENT_RENAME);
    EXPECT_EQ(told, Told{});
    EXPECT_EQ(figures().requests_refused, 1U);
}

TEST_F(HostRequest, is_made_once_when_its_own_sending_makes_it_again) {
    Request request(*this, "a");
    request.send = [](void *self) {
        EXPECT_EQ(bridge_host_request(static_cast<Request *>(self)), BRI_ERR_INVALID);
        return 0;
    };
    ASSERT_EQ(bridge_host_request(&request), 0);
    deliver(VLAN_EVENT_RENAME);
    EXPECT_EQ(told, Told{"a done"});
    EXPECT_EQ(figures().requests, 1U);
    EXPECT_EQ(figures().requests_refused, 1U);
}

TEST_F(HostRequest, is_refused_with_the_reason) {
    Request request(*this, "a");
    EXPECT_EQ(bridge_host_request(nullptr), BRI_ERR_NULL);
    request.timeout_ms = 0;
    EXPECT_EQ(bridge_host_request(&request), BRI_ERR_INVALID);
    request.timeout_ms = 1;
    request.awaits[0] = 4096;
    EXPECT_EQ(bridge_host_request(&request), BRI_ERR_INVALID);
    request.awaits[0] = VLAN_EVENT_RENAME;
    loop().refused = "host-deadline";
    EXPECT_EQ(bridge_host_request(&request), BRI_ERR_NO_MEMORY);
    loop().refused.clear();
    ASSERT_EQ(bridge_host_request(&request), 0);
    EXPECT_EQ(bridge_host_request(&request), BRI_ERR_INVALID);
    bridge_host_cancel(&request);
    lose_connection();
    EXPECT_EQ(bridge_host_request(&request), BRI_ERR_SOCKET);
    EXPECT_EQ(request.sends, 1);
}

class HostSlave : public Layer {
  protected:
    void make_slave(uint32_t flags) {
        config.flags = flags;
        start_synchronised();
        set_role(true);
    }
};

TEST_F(HostSlave, is_refused_when_it_wishes_so) {
    make_slave(BRIDGE_HOST_REFUSE_AS_SLAVE);
    Request request(*this, "a");
    EXPECT_EQ(bridge_host_may_send(), BRI_ERR_NOT_PERMITTED);
    EXPECT_EQ(bridge_host_request(&request), BRI_ERR_NOT_PERMITTED);
    EXPECT_EQ(request.sends, 0);
    set_role(false);
    EXPECT_EQ(bridge_host_may_send(), 0);
}

TEST_F(HostSlave, may_send_otherwise) {
    make_slave(0);
    EXPECT_EQ(bridge_host_may_send(), 0);
}

// The end
// ---------------------------------------------------------------------------------------------------------------

class HostStop : public Layer {
  protected:
    static inline bridge_host_left left;
    static inline int stops;
    int stop() {
        left = {};
        stops = 0;
        return bridge_host_stop([](const bridge_host_left *what, void *) {
            left = *what;
            ++stops;
        });
    }
};

TEST_F(HostStop, flushes_what_was_accepted) {
    start_synchronised();
    ASSERT_EQ(bridge_client_send_message(nullptr, 0, VLAN_EVENT_RENAME), 0); // waits for the flush timer
    EXPECT_FALSE(peer().readable());
    ASSERT_EQ(stop(), 0);
    EXPECT_EQ(stops, 0); // never within the call
    loop().run("host-stop");
    EXPECT_EQ(stops, 1);
    EXPECT_EQ(left.result, 0);
    EXPECT_EQ(left.runs, 0U);
    EXPECT_GT(left.unread, 0U);
    const std::vector<Message> messages = peer().read_messages();
    ASSERT_GE(messages.size(), 2U);
    EXPECT_EQ(messages[0].type, uint32_t{VLAN_EVENT_RENAME});
    EXPECT_EQ(messages[1].type, uint32_t{BRIDGE_EVENT_REG_MSG});
}

TEST_F(HostStop, withdraws_its_events) {
    follow(VLAN_EVENT_RENAME);
    start_synchronised();
    stop();
    EXPECT_FALSE(has(ctx().event_set, VLAN_EVENT_RENAME));
    deliver(VLAN_EVENT_RENAME);
    EXPECT_EQ(told, Told{});
    loop().run("host-stop");
    EXPECT_EQ(loop().count("host-tick"), 0);
    EXPECT_EQ(loop().count("host-stop"), 0);
}

TEST_F(HostStop, waits_for_a_server_that_does_not_read) {
    start_synchronised();
    while (ctx().cache_cnt < 3)
        ASSERT_EQ(bridge_client_send_message(pattern(8000).data(), 8000, MAC_EVENT_DYN_FLUSH), 0);
    ASSERT_EQ(stop(), 0);
    for (int i = 0; i < 5; ++i)
        loop().run("host-stop");
    EXPECT_EQ(stops, 0);
    for (int i = 0; i < 20; ++i)
        sent();
    loop().run("host-stop");
    EXPECT_EQ(stops, 1);
    EXPECT_EQ(left.result, 0);
    EXPECT_EQ(left.runs, 0U);
}

TEST_F(HostStop, tells_what_is_left_when_the_time_is_up) {
    config.stop_ms = 50;
    start_synchronised();
    while (ctx().cache_cnt < 3)
        ASSERT_EQ(bridge_client_send_message(pattern(8000).data(), 8000, MAC_EVENT_DYN_FLUSH), 0);
    ctx().cache_max = ctx().cache_cnt;
    bridge_client_send_message(pattern(8000).data(), 8000, MAC_EVENT_DYN_FLUSH); // has no room
    stop();
    for (int i = 0; i < 6 && stops == 0; ++i)
        loop().run("host-stop");
    EXPECT_EQ(stops, 1);
    EXPECT_EQ(left.result, BRI_ERR_WOULD_BLOCK);
    EXPECT_EQ(left.runs, ctx().cache_cnt);
    EXPECT_EQ(left.dropped, 2U); // and the withdrawal
    EXPECT_GT(left.unread, 0U);
}

TEST_F(HostStop, says_that_there_is_no_connection) {
    config.stop_ms = 10;
    start_synchronised();
    lose_connection();
    stop();
    for (int i = 0; i < 2; ++i)
        loop().run("host-stop");
    EXPECT_EQ(stops, 1);
    EXPECT_EQ(left.result, BRI_ERR_SOCKET);
}

TEST_F(HostStop, ends_the_requests) {
    start_synchronised();
    Request request(*this, "a");
    ASSERT_EQ(bridge_host_request(&request), 0);
    stop();
    EXPECT_EQ(told, Told{});
    loop().run("host-stop");
    EXPECT_EQ(told, Told{"a stopped"});
    EXPECT_EQ(left.requests, 1U);
    EXPECT_EQ(bridge_host_request(&request), BRI_ERR_NOT_PERMITTED);
}

TEST_F(HostStop, leaves_the_role_as_it_was_until_the_end) {
    start_synchronised();
    Request request(*this, "a");
    enum bridge_host_role at_the_end = BRIDGE_HOST_ROLE_UNKNOWN;
    ASSERT_EQ(bridge_host_request(&request), 0);
    during = [&](const std::string &) { at_the_end = bridge_host_role(); };
    stop();
    loop().run("host-stop");
    EXPECT_EQ(at_the_end, BRIDGE_HOST_ROLE_MASTER);
    bridge_host_statistics figures{};
    figures.size = sizeof figures;
    ASSERT_EQ(bridge_host_get_statistics(&figures), 0);
    EXPECT_EQ(figures.dropped_missed, 0U);
}

TEST_F(HostStop, cuts_a_resynchronisation) {
    config.mac_capacity = 4;
    start_synchronised();
    deliver(MAC_EVENT_SYNC_DATA_BEGIN);
    stop();
    EXPECT_EQ(told, (Told{"begin 2", "cut 2"}));
}

TEST_F(HostStop, gives_the_memory_back) {
    config.mac_capacity = 4;
    follow(VLAN_EVENT_RENAME);
    start_synchronised(); // with the library's own nodes, which stay
    stop();
    loop().run("host-stop");
    const int before = faults::live_blocks();
    ASSERT_EQ(start_layer(), 0);
    stop();
    loop().run("host-stop");
    EXPECT_EQ(faults::live_blocks(), before);
}

TEST_F(HostStop, may_be_followed_by_a_start) {
    follow(VLAN_EVENT_RENAME);
    start_synchronised();
    stop();
    loop().run("host-stop");
    EXPECT_EQ(bridge_host_role(), BRIDGE_HOST_ROLE_UNKNOWN);
    ASSERT_EQ(start_layer(), 0);
    tick(); // sees the connection
    deliver(VLAN_EVENT_RENAME);
    EXPECT_EQ(std::count(told.begin(), told.end(), "event 392"), 1);
}

TEST_F(HostStop, is_refused_where_there_is_nothing_to_stop) {
    EXPECT_EQ(stop(), BRI_ERR_NOT_PERMITTED);
    start_layer();
    EXPECT_EQ(bridge_host_stop(nullptr), BRI_ERR_NULL);
    ASSERT_EQ(stop(), 0);
    EXPECT_EQ(stop(), BRI_ERR_NOT_PERMITTED);
}

TEST_F(HostStop, ends_the_layer_also_when_the_loop_refuses) {
    follow(VLAN_EVENT_RENAME);
    start_synchronised();
    Request request(*this, "a");
    ASSERT_EQ(bridge_host_request(&request), 0);
    loop().refused = "host-stop";
    EXPECT_EQ(stop(), BRI_ERR_NO_MEMORY);
    deliver(VLAN_EVENT_RENAME);
    EXPECT_EQ(told, Told{"a stopped"});
    EXPECT_EQ(stops, 0);
    loop().refused.clear();
    EXPECT_EQ(start_layer(), 0);
}

TEST_F(HostStop, ends_even_when_the_loop_refuses_to_wait) {
    start_synchronised();
    lose_connection();
    stop();
    loop().refused = "host-stop";
    loop().run("host-stop");
    EXPECT_EQ(stops, 1);
    EXPECT_EQ(left.result, BRI_ERR_SOCKET);
}

} // namespace
