// Every log line of start-up and transport: its exact text, and in each case that nothing is written while flag 7 is
// off.
#include "tests/client/transport_fixture.h"

namespace {

using namespace test;

using Lines = std::vector<std::string>;

constexpr const char *kReconnecting = "[unit] ready to add qv-thread for RECONNECT.\n";

void nothing() {}

std::string number(long long value) {
    return std::to_string(value);
}

class TransportLog : public Transport {
  protected:
    ~TransportLog() override { faults::clear(); }

    // Runs `act` twice: with the flag off, when it writes nothing, and on, when it writes these lines and no others.
    // `prepare` comes before each run and is not looked at.
    template <class Act> void expect_lines(const Lines &expected, Act &&act) {
        expect_lines(expected, act, [] {});
    }
    template <class Act, class Prepare> void expect_lines(const Lines &expected, Act &&act, Prepare &&prepare) {
        for (const uint8_t on : {uint8_t{0}, uint8_t{1}}) {
            prepare();
            std::memset(g_bri_clnt_dbg, on == 0 ? 1 : 0, sizeof g_bri_clnt_dbg); // every other flag says the contrary
            g_bri_clnt_dbg[BRI_DBG_MSG] = on;
            std::memset(g_bri_clnt_dbg + BRI_DBG_DELAY, 0, 4);
            clear_log();
            act();
            const std::vector<LogLine> lines = log_lines();
            std::memset(g_bri_clnt_dbg, 0, sizeof g_bri_clnt_dbg);
            Lines texts;
            for (const LogLine &line : lines) {
                texts.push_back(line.text);
                EXPECT_EQ(line.category(), kClientLine) << line.text;
            }
            EXPECT_EQ(texts, on != 0 ? expected : Lines{});
        }
    }
    // A connection that is there before each run, with no job pending but the flush timer.
    void attach() {
        if (g_bridge_client == nullptr)
            start();
        loop().pending.clear();
        loop().refuse = 0;
        faults::clear();
        clear_batch_and_cache();
        peer = attach_pair();
        script_sends(script);
        bridge_client_thread_event(BRI_CLNT_EVT_MSG_TIMER);
    }
    static void clear_batch_and_cache() {
        std::memset(bri::client::g_bglib_sendbuf, 0, BRI_BATCH_BUFFER_SIZE);
        while (ctx().cache_cnt != 0)
            bri::client::drop_run(ctx(), *reinterpret_cast<bri::client::Run *>(ctx().cache.next));
        ctx().cache_max = 100;
    }
    // One message in the batch, and one run in the cache before it when asked for.
    void queue(bool run_waits) {
        attach();
        if (run_waits) {
            ASSERT_EQ(send(kPlain, {1}), 0);
            script = {-EAGAIN};
            tick();
        }
        ASSERT_EQ(send(kPlain, {2}), 0);
    }
    std::string created() { return "[unit] sock[" + number(ctx().sock) + "] create SUCC.\n"; }

    Peer peer;
    Script script;
};

// --- without a client

TEST_F(TransportLog, of_calls_before_start_up) {
    bri_batch_hdr *batch = nullptr;
    expect_lines({"Bridge client thread-event failed: client is not init.\n"}, [] { bridge_client_thread_event(0); });
    expect_lines({"Set callback failed: client is not init.\n"}, [] { bridge_agent_set_connect_callback(nothing); });
    expect_lines({"Set callback failed: client is not init.\n"}, [] { bridge_agent_set_oridata_callback(nullptr); });
    expect_lines({"Bridge client sock create failed: client is not init.\n"},
                 [] { bridge_client_socket_create(nullptr); });
    expect_lines({"Bridge client sock conn failed: client is not init.\n"},
                 [] { bridge_client_socket_connect(nullptr); });
    expect_lines({"Bridge client connect-reset: client is not init.\n"}, [] { bridge_client_connect_reset(); });
    expect_lines({"Bridge client connect failed: client is not init.\n"}, [] { bri::client::connect_job(nullptr); });
    expect_lines({"Bridge client send reg-evt failed: client is not init.\n"},
                 [] { bri::client::send_full_registration(); });
    expect_lines({"Client send msg failed: Socket is not ready.\n"}, [] { send(kPlain, {1}); });
    expect_lines({"Client send msg failed!\n"}, [] { send_ontime(kPlain, {1}); });
    expect_lines({"[] failed to receive msg: buff is not ready.\n"}, [&] { bridge_client_read_msg(0, &batch); });
    expect_lines({"Bridge client thread-event failed: client is not init.\n"}, [] { bri::client::flush_job(nullptr); });
    expect_lines({"Bridge client connect-reset: client is not init.\n",
                  "Bridge client thread-event failed: client is not init.\n"},
                 [] { bri::client::read_job(nullptr); });
}

// --- context

TEST_F(TransportLog, of_thread_events) {
    start();
    struct {
        int kind;
        Lines ready;
        std::string failed;
    } const events[] = {
        {0, {"[unit] ready to add qv-thread for CONNECT.\n"}, "[unit] failed to add qv-thread for CONNECT.\n"},
        {1, {}, "[unit] failed to add qv-thread for READ.\n"},
        {2, {kReconnecting}, "[unit] failed to add re-thread for RECONNECT.\n"},
        {3, {}, "[unit] failed to add re-thread for MSG timer.\n"},
    };
    for (const auto &event : events) {
        const auto add = [&] { bridge_client_thread_event(event.kind); };
        expect_lines(event.ready, add);
        Lines refused = event.ready;
        refused.push_back(event.failed);
        expect_lines(refused, add, [] { loop().refuse = 1; });
    }
    expect_lines({}, [] { bridge_client_thread_event(4); });
}

TEST_F(TransportLog, of_callback_setters) {
    start();
    char set[100];
    std::snprintf(set, sizeof set, "[unit] Set a new callback: %p.\n", reinterpret_cast<void *>(nothing));
    for (const auto setter : {bridge_agent_set_connect_callback, bridge_agent_set_oridata_callback}) {
        expect_lines({set}, [&] { setter(nothing); });
        expect_lines({"Set callback failed: handler or list_head is null.\n"}, [&] { setter(nullptr); });
        expect_lines(
            {"Set callback failed: no memory.\n"}, [&] { setter(nothing); }, [] { faults::fail("malloc", 1, ENOMEM); });
        EXPECT_EQ(faults::injected(), 2);
        faults::clear();
    }
}

// --- socket

TEST_F(TransportLog, of_creating_a_socket) {
    start();
    bridge_client_connect_reset();
    int expected = dup(1); // the number that comes next
    close(expected);
    expect_lines(
        {"[unit] sock[" + number(expected) + "] create SUCC.\n"}, [] { bridge_client_socket_create(&ctx()); },
        bridge_client_connect_reset);
    expect_lines(
        {"[unit] create sock failed: Too many open files\n"}, [] { bridge_client_socket_create(&ctx()); },
        [] { faults::fail("socket", 1, EMFILE); });
}

TEST_F(TransportLog, of_connecting) {
    const Server server;
    start();
    const auto connect = [] { bridge_client_socket_connect(&ctx()); };
    expect_lines({"[unit] connect failed: Connection refused\n"}, connect,
                 [] { faults::fail("connect", 1, ECONNREFUSED); });
    expect_lines({"Bridge client sock conn SUCC.\n"}, connect, [] {
        bridge_client_connect_reset();
        bridge_client_socket_create(&ctx());
    });
    expect_lines({"Bridge client sock is connected.\n"}, connect);
    bridge_client_connect_reset();
    expect_lines({"Bridge client sock conn failed: client is not init.\n"}, connect);
    bridge_client_socket_create(&ctx());
    unsetenv("TMPDIR");
    expect_lines({"Connect failed: Make sock-file-path failed.\n"}, connect);
    setenv("TMPDIR", tmpdir().c_str(), 1);
}

TEST_F(TransportLog, of_a_reset_is_empty) {
    start();
    expect_lines({}, bridge_client_connect_reset);
}

// --- the connect job

TEST_F(TransportLog, of_a_connect_job_that_gets_no_socket) {
    start();
    expect_lines(
        {"[unit] create sock failed: Too many open files\n", kReconnecting, "[unit] recreating sock ...\n"},
        [] { bri::client::connect_job(nullptr); },
        [] {
            bridge_client_connect_reset();
            faults::fail("socket", 1, EMFILE);
        });
}

TEST_F(TransportLog, of_a_connect_job_that_finds_no_server) {
    start();
    expect_lines({"[unit] connect failed: No such file or directory\n", kReconnecting,
                  "[unit] sock[" + number(ctx().sock) + "] reconnecting ...\n"},
                 [] { bri::client::connect_job(nullptr); });
}

TEST_F(TransportLog, of_a_connect_job_that_succeeds) {
    const Server server;
    start();
    expect_lines(
        {"Bridge client sock conn SUCC.\n", "[unit] Msg send SUCC: msg-cnt 1, msg-len 552.\n",
         "[unit] send reg-evt SUCC, Client name(unit), pid(" + number(getpid()) + ").\n"},
        [] { bri::client::connect_job(nullptr); },
        [] {
            bridge_client_connect_reset();
            bridge_client_socket_create(&ctx());
        });
}

TEST_F(TransportLog, of_a_connect_job_whose_read_job_is_refused) {
    attach();
    ctx().conn_done = 1;
    expect_lines(
        {"[unit] failed to add qv-thread for READ.\n", kReconnecting,
         "[unit] sock[" + number(ctx().sock) + "] add THREAD_READ failed ...\n"},
        [] { bri::client::connect_job(nullptr); }, [] { loop().refuse = 1; });
}

TEST_F(TransportLog, of_a_registration_that_is_refused) {
    start();
    expect_lines({"Client send msg failed: Socket is not ready.\n", "[unit] send reg-evt failed: send msg error.\n"},
                 [] { bri::client::send_full_registration(); });
}

// --- sending

TEST_F(TransportLog, of_refused_messages) {
    start();
    expect_lines({"Client send msg failed: Socket is not ready.\n"}, [] { send(kPlain, {1}); });
    attach();
    for (const uint32_t len : {10241U, 0xFFFFFFFFU})
        expect_lines({"Client send msg failed: msg-len[" + number(static_cast<int32_t>(len)) + "] is too large.\n"},
                     [&] { bridge_client_send_message(nullptr, len, kPlain); });
    uint8_t *buffer = std::exchange(bri::client::g_bglib_sendbuf, nullptr);
    expect_lines({"failed to send msg: buff is not ready.\n"}, [] { send(kPlain, {1}); });
    bri::client::g_bglib_sendbuf = buffer;
    expect_lines({"Client send msg failed!\n"}, [] { bridge_client_send_message_ontime(nullptr, 10241, kPlain); });
    expect_lines(
        {"Client send msg failed!\n"}, [] { bridge_client_send_message_ontime(nullptr, 1, kPlain); },
        [] { faults::fail("malloc", 1, ENOMEM); });
    EXPECT_EQ(faults::injected(), 2);
    bridge_client_connect_reset();
    expect_lines({"Client send msg failed!\n"}, [] { send_ontime(kPlain, {1}); });
}

TEST_F(TransportLog, of_a_message_that_waits_or_goes_at_once_is_empty) {
    attach();
    expect_lines({}, [] { send(kPlain, {1}); });
    expect_lines({}, [] { send_ontime(kPlain, {1}); });
}

TEST_F(TransportLog, of_a_batch_that_goes_out) {
    expect_lines({"[unit] Msg send SUCC: msg-cnt 1, msg-len 9.\n"}, tick, [&] { queue(false); });
    expect_lines({"[unit] Msg send SUCC: msg-cnt 1, msg-len 9.\n"}, tick, [&] { queue(true); });
    expect_lines({}, tick, [&] { attach(); });
}

TEST_F(TransportLog, of_a_batch_that_would_block_is_empty) {
    for (const int step : {-EAGAIN, -EINTR, 5})
        expect_lines({}, tick, [&] {
            queue(false);
            script = {step};
        });
}

TEST_F(TransportLog, of_a_batch_that_meets_a_broken_socket) {
    expect_lines({"[unit] Msg send FAIL: error socket.\n"}, tick, [&] {
        queue(false);
        script = {-EPIPE};
    });
}

// The format deliberately has no value behind "left_len".
TEST_F(TransportLog, of_a_waiting_run_that_does_not_go_out) {
    const std::string again = "[unit] Failed to send cached msg and try to enqueue again.\n";
    const auto fail = [](const char *code, int written) {
        return "[unit] Socket send FAIL, ret " + std::string(bri_strerror(code[0] == '5' ? -5 : -6)) +
               ", written_len " + number(written) + ", left_len.\n";
    };
    const auto drain = [&](int step) {
        return [this, step] {
            queue(true);
            script = {step};
        };
    };
    expect_lines({fail("6", 0), again}, tick, drain(-EAGAIN));
    expect_lines({fail("6", 7), again}, tick, drain(7));
    expect_lines({fail("5", 0), again}, tick, drain(-EPIPE));
    expect_lines({fail("6", 0)}, tick, [&] { // the batch is empty
        queue(false);
        script = {-EAGAIN};
        tick();
        script = {-EAGAIN};
    });
}

TEST_F(TransportLog, names_the_reason_of_a_failed_send_in_words) {
    queue(true);
    debug_on({BRI_DBG_MSG});
    for (const int error : {EAGAIN, EPIPE}) {
        script = {-error};
        tick();
    }
    EXPECT_TRUE(logged("[unit] Socket send FAIL, ret Socket would block, written_len 0, left_len.\n"));
    EXPECT_TRUE(logged("[unit] Socket send FAIL, ret Error socket, written_len 0, left_len.\n"));
}

TEST_F(TransportLog, of_a_cache_without_room) {
    const Lines full = {"Failed to create msg node, reach maximun cache msg.\n"};
    expect_lines(full, tick, [&] {
        queue(false);
        ctx().cache_max = 0;
        script = {-EAGAIN};
    });
    expect_lines({"Failed to create msg node.\n"}, tick, [&] {
        queue(false);
        script = {-EAGAIN};
        faults::fail("malloc", 1, ENOMEM);
    });
}

// --- receiving

TEST_F(TransportLog, of_a_batch_that_comes) {
    attach();
    expect_lines(
        {
            "[unit] batch-msg received: msg-cnt 2, msg-len 19.\n",
            "A msg Start...\n",
            "[unit] recv msg: type[BRIDGE_EVENT_REG_MSG, 129], len[3].\n",
            "Error mng-msg type(BRIDGE_EVENT_REG_MSG), discarded.\n",
            "\n",
            "\n",
            "A msg Start...\n",
            "[unit] recv msg: type[QINQ EVENT, 769], len[0].\n",
            "[unit] error msg, module[6], type[769].\n",
            "\n",
            "\n",
        },
        [] { bri::client::read_job(g_bridge_client); },
        [&] {
            peer.send({{BRIDGE_EVENT_REG_MSG, {1, 2, 3}}, {769, {}}});
        });
}

TEST_F(TransportLog, of_a_message_that_is_delayed) {
    attach();
    expect_lines(
        {
            "[unit] batch-msg received: msg-cnt 1, msg-len 8.\n",
            "A msg Start...\n",
            "[unit] recv msg: type[VLAN_EVENT_CREATE_INDEX, 387], len[0].\n",
            "Msg received is delayed to process.\n",
            "\n",
            "\n",
        },
        [] {
            put_at(g_bri_clnt_dbg, BRI_DBG_DELAY, uint32_t{3});
            bri::client::read_job(g_bridge_client);
        },
        [&] {
            peer.send({{kPlain, {}}});
        });
}

TEST_F(TransportLog, of_a_batch_that_ends_inside_a_message) {
    attach();
    expect_lines(
        {"[unit] batch-msg received: msg-cnt 1, msg-len 5.\n", "[unit] batch-msg ends inside a msg, rest discarded.\n"},
        [] { bri::client::read_job(g_bridge_client); }, [&] { peer.write(batch_of({}, 5, 1) + pattern(5)); });
}

TEST_F(TransportLog, of_batches_that_do_not_come_whole) {
    bri_batch_hdr *batch = nullptr;
    const auto read = [&] { bridge_client_read_msg(ctx().sock, &batch); };
    const auto write_and_close = [&](const ByteVec &bytes) {
        return [this, bytes] {
            attach();
            peer.write(bytes);
            peer.close();
        };
    };
    const ByteVec whole = batch_of({{BRIDGE_EVENT_REG_MSG, pattern(4)}});
    expect_lines({"[unit] failed to receive batch-msg header, received 3, errno = 0, Success\n"}, read,
                 write_and_close(part_of(whole, 0, 3)));
    expect_lines({"[unit] failed to receive batch-msg header, received 0, errno = 0, Success\n"}, read,
                 write_and_close({}));
    expect_lines({"[unit] failed to recv batch-msg, require length 12, recv 7, errno= 0, Success\n"}, read,
                 write_and_close(part_of(whole, 0, 15)));
    expect_lines({"[unit] failed to receive batch-msg header, received -1, errno = " + number(ECONNRESET) +
                  ", Connection reset by peer\n"},
                 read, [&] {
                     attach();
                     faults::fail("read", 1, ECONNRESET);
                 });
    expect_lines({"[unit] failed to recv batch-msg, require length 12, recv -1, errno= " + number(ECONNRESET) +
                  ", Connection reset by peer\n"},
                 read, [&] {
                     attach();
                     peer.write(whole);
                     faults::fail("read", 2, ECONNRESET);
                 });
    expect_lines({"[unit] excess max batch-msg length, max length 10248, received 10249.\n"}, read, [&] {
        attach();
        peer.write(batch_of({}, 10249, 1));
    });
}

TEST_F(TransportLog, of_a_read_job_that_loses_the_connection) {
    expect_lines(
        {"[unit] failed to receive batch-msg header, received 0, errno = 0, Success\n", kReconnecting},
        [] { bri::client::read_job(g_bridge_client); },
        [&] {
            attach();
            peer.close();
        });
}

TEST_F(TransportLog, without_a_receive_buffer) {
    start();
    bri_batch_hdr *batch = nullptr;
    uint8_t *buffer = std::exchange(g_bglib_recvbuf, nullptr);
    expect_lines({"[unit] failed to receive msg: buff is not ready.\n"},
                 [&] { bridge_client_read_msg(ctx().sock, &batch); });
    g_bglib_recvbuf = buffer;
}

} // namespace
