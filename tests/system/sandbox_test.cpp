// The sandbox server as raw clients see it.
#include "tests/system/workstation.h"

#include <filesystem>

namespace {

using namespace test;

struct Sandbox : Workstation {
    // Nothing has been sent to it: an event that it wants comes first.
    static void expect_nothing_before(Peer &peer, const Message &marker) {
        EXPECT_EQ(next(peer), std::vector<Message>{marker});
    }
};

TEST_F(Sandbox, registration_is_answered_with_role_backup_data_and_sync_end_in_one_batch) {
    Process sandbox = start_sandbox();
    Peer client = connect_client();
    client.send({{BRIDGE_EVENT_REG_MSG, registration({VLAN_EVENT_CREATE_INDEX}, 77, "raw")}});
    EXPECT_EQ(next(client), synchronisation());
    EXPECT_TRUE(sandbox.shows("client 1 (raw): registered, pid 77, 1 event types, fresh\n"));
}

TEST_F(Sandbox, slave_is_told_so_at_its_registration) {
    Process sandbox = start_sandbox({"--role", "slave"});
    Peer client = connect_client();
    client.send({{BRIDGE_EVENT_REG_MSG, registration({}, 77, "raw")}});
    EXPECT_EQ(next(client), synchronisation(1));
}

TEST_F(Sandbox, event_reaches_only_the_clients_that_registered_it) {
    Process sandbox = start_sandbox();
    Peer both = register_client({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX}, "both");
    Peer one = register_client({VLAN_EVENT_DESTROY_INDEX}, "one");
    Peer stranger = connect_client();
    sandbox.write_line("event 387 01 02");
    EXPECT_TRUE(sandbox.shows("event VLAN_EVENT_CREATE_INDEX(387): to 1 clients"));
    sandbox.write_line("event VLAN_EVENT_DESTROY_INDEX 03");
    EXPECT_TRUE(sandbox.shows("to 2 clients"));
    EXPECT_EQ(next(both), (std::vector<Message>{{VLAN_EVENT_CREATE_INDEX, {1, 2}}}));
    EXPECT_EQ(next(both), (std::vector<Message>{{VLAN_EVENT_DESTROY_INDEX, {3}}}));
    expect_nothing_before(one, {VLAN_EVENT_DESTROY_INDEX, {3}});
    sandbox.write_line("event @both 388");
    sandbox.write_line("event @2 388 07");
    EXPECT_EQ(next(both), (std::vector<Message>{{VLAN_EVENT_DESTROY_INDEX, {}}}));
    expect_nothing_before(one, {VLAN_EVENT_DESTROY_INDEX, {7}});
    sandbox.write_line("raw ff");
    EXPECT_TRUE(sandbox.shows("raw: to 3 clients"));
    EXPECT_TRUE(stranger.readable(kPatienceMs));
    EXPECT_EQ(stranger.read_now(), ByteVec{0xff});
}

TEST_F(Sandbox, management_events_are_for_every_registered_client) {
    Process sandbox = start_sandbox();
    Peer client = register_client({}, "raw");
    Peer stranger = connect_client();
    sandbox.write_line("role slave");
    EXPECT_EQ(next(client), (std::vector<Message>{{BRIDGE_EVEVT_SERVER_STAT, {1}}}));
    sandbox.write_line("switchover");
    EXPECT_EQ(next(client), (std::vector<Message>{{BRIDGE_EVENT_SWITCHOVER_BEGIN, {}}}));
    EXPECT_EQ(next(client), (std::vector<Message>{{BRIDGE_EVENT_SWITCHOVER_END, {}}}));
    sandbox.write_line("event BRIDGE_EVENT_ORI_DATA_REQUEST");
    EXPECT_EQ(next(client), (std::vector<Message>{{BRIDGE_EVENT_ORI_DATA_REQUEST, {}}}));
    sandbox.write_line("role");
    EXPECT_TRUE(sandbox.shows("role: master"));
    EXPECT_FALSE(stranger.readable());
}

TEST_F(Sandbox, requests_of_the_mac_and_vlan_submodules_come_back_to_all_that_want_them) {
    Process sandbox = start_sandbox();
    Peer sender = register_client({MAC_EVENT_DYN_FLUSH, VLAN_EVENT_RENAME}, "sender");
    Peer other = register_client({VLAN_EVENT_RENAME, L2TOP_EVENT_PROTO_CONFIG}, "other");
    sender.send({{VLAN_EVENT_RENAME, {1, 2, 3}}, {MAC_EVENT_DYN_FLUSH, {}}, {L2TOP_EVENT_PROTO_CONFIG, {9}}});
    EXPECT_EQ(next(sender), (std::vector<Message>{{VLAN_EVENT_RENAME, {1, 2, 3}}}));
    EXPECT_EQ(next(sender), (std::vector<Message>{{MAC_EVENT_DYN_FLUSH, {}}}));
    expect_nothing_before(other, {VLAN_EVENT_RENAME, {1, 2, 3}});
    EXPECT_TRUE(sandbox.shows("client 1 (sender): sent VLAN_EVENT_RENAME(392), 3 bytes"));
    EXPECT_TRUE(sandbox.shows("client 1 (sender): sent L2TOP_EVENT_PROTO_CONFIG(645), 1 bytes")); // not echoed
    EXPECT_FALSE(other.readable());
}

TEST_F(Sandbox, added_and_withdrawn_events_change_the_registered_set) {
    Process sandbox = start_sandbox();
    Peer client = register_client({VLAN_EVENT_CREATE_INDEX}, "raw");
    client.send(
        {{BRIDGE_EVENT_REG_MSG, registration({VLAN_EVENT_DESTROY_INDEX, VLAN_EVENT_CREATE_RANGE}, 0, "", 1, 0)}});
    EXPECT_TRUE(sandbox.shows("client 1 (raw): added events, now 3 event types"));
    client.send(
        {{BRIDGE_EVENT_REG_MSG, registration({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_CREATE_RANGE}, 0, "", 0, 0)}});
    EXPECT_TRUE(sandbox.shows("client 1 (raw): withdrew events, now 1 event types"));
    for (const char *line : {"event 387", "event 389", "event 388"})
        sandbox.write_line(line);
    expect_nothing_before(client, {VLAN_EVENT_DESTROY_INDEX, {}});
    // A full registration replaces what was known.
    client.send({{BRIDGE_EVENT_REG_MSG,
                  registration({VLAN_EVENT_DESTROY_RANGE, VLAN_EVENT_DESTROY_ROLLBACK}, 5, "new", 1, 0)}});
    EXPECT_TRUE(sandbox.shows("client 1 (new): registered, pid 5, 2 event types\n"));
    EXPECT_EQ(next(client), synchronisation());
}

TEST_F(Sandbox, registration_of_a_wrong_size_is_ignored) {
    Process sandbox = start_sandbox();
    Peer client = connect_client();
    client.send({{BRIDGE_EVENT_REG_MSG, ByteVec(543)}});
    EXPECT_TRUE(sandbox.shows("client 1: registration of 543 bytes ignored"));
    client.send({{BRIDGE_EVENT_REG_MSG, registration({}, 1, "raw")}});
    EXPECT_EQ(next(client), synchronisation());
}

TEST_F(Sandbox, origin_data_request_is_answered_to_the_asking_client_alone) {
    Process sandbox = start_sandbox();
    Peer asking =
        register_client({MAC_EVENT_SYNC_DATA_BEGIN, MAC_EVENT_SYNC_DATA_END, VG_EVENT_SYNC_DATA_BEGIN}, "asking");
    Peer other = register_client({MAC_EVENT_SYNC_DATA_BEGIN, MAC_EVENT_SYNC_DATA_END}, "other");
    asking.send({{BRIDGE_EVENT_ORI_DATA_REQUEST, bytes_of(uint32_t{BRI_SUBMOD_MAC})},
                 {BRIDGE_EVENT_ORI_DATA_REQUEST, bytes_of(uint32_t{BRI_SUBMOD_VLAN_GROUP})},
                 {BRIDGE_EVENT_ORI_DATA_REQUEST, bytes_of(uint32_t{99})}});
    EXPECT_EQ(next(asking), (std::vector<Message>{{MAC_EVENT_SYNC_DATA_BEGIN, {}}}));
    EXPECT_EQ(next(asking), (std::vector<Message>{{MAC_EVENT_SYNC_DATA_END, {}}}));
    EXPECT_EQ(next(asking), (std::vector<Message>{{VG_EVENT_SYNC_DATA_BEGIN, {}}})); // its end was not registered
    EXPECT_TRUE(sandbox.shows("client 1 (asking): no origin data of submodule 99"));
    EXPECT_FALSE(asking.readable());
    EXPECT_FALSE(other.readable());
}

TEST_F(Sandbox, client_that_breaks_the_framing_is_dropped_alone) {
    Process sandbox = start_sandbox();
    Peer good = register_client({VLAN_EVENT_CREATE_INDEX}, "good");
    Peer oversized = connect_client();
    oversized.write(batch_of({}, BRI_BATCH_MSG_MAX + 1, 1));
    EXPECT_TRUE(sandbox.shows("client 2: lost, sent a batch header of 10249 bytes"));
    EXPECT_TRUE(oversized.ended());
    Peer past = connect_client();
    ByteVec batch = batch_of({{VLAN_EVENT_CREATE_INDEX, {1, 2}}});
    put_at<uint32_t>(batch.data(), 12, 3); // the message's length: one byte more than the batch has
    past.write(batch);
    EXPECT_TRUE(sandbox.shows("client 3: lost, sent a message that runs past its batch"));
    EXPECT_TRUE(past.ended());
    sandbox.write_line("event 387");
    EXPECT_EQ(next(good), (std::vector<Message>{{VLAN_EVENT_CREATE_INDEX, {}}}));
}

TEST_F(Sandbox, batches_arrive_whole_however_they_are_cut) {
    Process sandbox = start_sandbox();
    Peer client = register_client({VLAN_EVENT_RENAME, VLAN_EVENT_MODIFY_VLAN_MODE}, "raw");
    const ByteVec bytes = batch_of({{VLAN_EVENT_RENAME, {1}}, {VLAN_EVENT_MODIFY_VLAN_MODE, {2, 3}}}) + batch_of({}) +
                          batch_of({{VLAN_EVENT_RENAME, ByteVec(10240, 7)}});
    for (size_t at = 0; at < 60; ++at)
        client.write({bytes[at]});
    client.write(ByteVec(bytes.begin() + 60, bytes.end()));
    EXPECT_EQ(next(client), (std::vector<Message>{{VLAN_EVENT_RENAME, {1}}}));
    EXPECT_EQ(next(client), (std::vector<Message>{{VLAN_EVENT_MODIFY_VLAN_MODE, {2, 3}}}));
    EXPECT_EQ(next(client), (std::vector<Message>{{VLAN_EVENT_RENAME, ByteVec(10240, 7)}}));
}

TEST_F(Sandbox, slow_client_holds_nobody_and_loses_nothing) {
    constexpr int events = 200; // two megabytes, more than a socket takes
    Process sandbox = start_sandbox({"--quiet"});
    Peer slow = register_client({VLAN_EVENT_RENAME}, "slow");
    Peer quick = register_client({VLAN_EVENT_RENAME}, "quick");
    for (int i = 0; i < events; ++i)
        quick.send({{VLAN_EVENT_RENAME, ByteVec(10240, static_cast<uint8_t>(i))}});
    for (int i = 0; i < events; ++i)
        ASSERT_EQ(next(quick), (std::vector<Message>{{VLAN_EVENT_RENAME, ByteVec(10240, static_cast<uint8_t>(i))}}));
    for (int i = 0; i < events; ++i)
        ASSERT_EQ(next(slow), (std::vector<Message>{{VLAN_EVENT_RENAME, ByteVec(10240, static_cast<uint8_t>(i))}}));
}

TEST_F(Sandbox, stalled_client_is_neither_read_nor_written_until_resumed) {
    Process sandbox = start_sandbox();
    Peer client = register_client({VLAN_EVENT_CREATE_INDEX}, "raw");
    Peer other = register_client({VLAN_EVENT_CREATE_INDEX}, "other");
    sandbox.write_line("stall @raw");
    EXPECT_TRUE(sandbox.shows("stall: 1 clients"));
    client.send({{VLAN_EVENT_DESTROY_INDEX, {}}});
    sandbox.write_line("event 387 01");
    EXPECT_EQ(next(other), (std::vector<Message>{{VLAN_EVENT_CREATE_INDEX, {1}}}));
    sandbox.write_line("clients");
    EXPECT_TRUE(sandbox.shows("1 raw pid 4242 events 1 messages 1 sent 5 queued 17 fresh stalled"));
    EXPECT_FALSE(client.readable());
    sandbox.write_line("resume");
    EXPECT_TRUE(sandbox.shows("resume: 2 clients"));
    EXPECT_EQ(next(client), (std::vector<Message>{{VLAN_EVENT_CREATE_INDEX, {1}}}));
    EXPECT_TRUE(sandbox.shows("client 1 (raw): sent VLAN_EVENT_DESTROY_INDEX(388)"));
}

TEST_F(Sandbox, stalled_server_answers_nobody_new_until_resumed) {
    Process sandbox = start_sandbox();
    sandbox.write_line("stall");
    EXPECT_TRUE(sandbox.shows("stall: 0 clients"));
    Peer client = connect_client(); // the system queues it
    client.send({{BRIDGE_EVENT_REG_MSG, registration({}, 1, "raw")}});
    EXPECT_FALSE(client.readable(50));
    sandbox.write_line("resume");
    EXPECT_EQ(next(client), synchronisation());
}

TEST_F(Sandbox, drop_closes_connections_and_restart_listens_again) {
    Process sandbox = start_sandbox();
    Peer first = register_client({}, "first");
    Peer second = register_client({}, "second");
    sandbox.write_line("drop @first");
    EXPECT_TRUE(first.ended());
    EXPECT_FALSE(second.readable());
    sandbox.write_line("restart");
    EXPECT_TRUE(second.ended());
    EXPECT_TRUE(sandbox.shows("listening again"));
    Peer third = register_client({}, "third");
    sandbox.write_line("clients");
    EXPECT_TRUE(sandbox.shows("3 third"));
    EXPECT_TRUE(sandbox.shows("clients: 1\n"));
}

TEST_F(Sandbox, script_runs_with_its_waits_and_its_exit_status) {
    const std::string script = write_file("script", "# a comment\n"
                                                    "wait-clients 1   # another\n"
                                                    "\n"
                                                    "event 387 0a0b\n"
                                                    "wait-event VLAN_EVENT_RENAME\n"
                                                    "wait-event 392\n"
                                                    "sleep 0.01\n"
                                                    "print both have come\n"
                                                    "wait-clients 0\n"
                                                    "quit\n"
                                                    "print not reached\n");
    Process sandbox = start_sandbox({"--script", script});
    {
        Peer client = register_client({VLAN_EVENT_CREATE_INDEX}, "raw");
        EXPECT_EQ(next(client), (std::vector<Message>{{VLAN_EVENT_CREATE_INDEX, {10, 11}}}));
        client.send({{VLAN_EVENT_RENAME, {}}});
        EXPECT_TRUE(sandbox.shows("sent VLAN_EVENT_RENAME"));
        EXPECT_EQ(sandbox.count("both have come"), 0);
        client.send({{VLAN_EVENT_RENAME, {}}});
        EXPECT_TRUE(sandbox.shows("\nboth have come\n"));
    }
    EXPECT_EQ(sandbox.wait(), 0);
    EXPECT_EQ(sandbox.count("not reached"), 0);
}

TEST_F(Sandbox, script_that_waits_in_vain_ends_the_server_with_status_1) {
    const std::string script = write_file("script", "wait-clients 3 0.05\nprint not reached\n");
    Process sandbox({kSandbox, "--script", script});
    EXPECT_EQ(sandbox.wait(), 1);
    EXPECT_TRUE(sandbox.shows("error in " + script + ": waited in vain for clients registered is 3"));
    EXPECT_EQ(sandbox.count("not reached"), 0);
}

TEST_F(Sandbox, bad_commands_are_told_and_nothing_else_happens) {
    Process sandbox = start_sandbox();
    const std::vector<std::pair<const char *, const char *>> cases = {
        {"fly", "error: no such command: fly (try help)"},
        {"role admin", "error: no such role: admin"},
        {"role a b", "error: no such role: a b"},
        {"switchover now", "error: begin or end, not now"},
        {"event", "error: usage: event [@CLIENT] TYPE [FIELD=VALUE...|HEX...]"},
        {"event @x", "error: which event?"},
        {"event NO_EVENT", "error: no such event: NO_EVENT"},
        {"event 99999999999", "error: no such event: 99999999999"},
        {"event 387 0", "error: \"0\" has half a byte"},
        {"event 387 0g", "error: \"0g\" is not hexadecimal"},
        {"raw", "error: usage: raw [@CLIENT] HEX..."},
        {"sleep -1", "error: not a number of seconds: -1"},
        {"sleep soon", "error: not a number of seconds: soon"},
        {"wait-clients many", "error: not a number up to 4294967295: many"},
        {"kernel panic", "error: no such state: panic"},
    };
    for (const auto &[command, error] : cases) {
        sandbox.write_line(command);
        EXPECT_TRUE(sandbox.shows(error)) << command;
    }
    sandbox.write_line("event 387 " + std::string(2 * 10241, '0'));
    EXPECT_TRUE(sandbox.shows("error: more than a message can carry"));
    sandbox.write_line("role");
    EXPECT_TRUE(sandbox.shows("role: master"));
}

TEST_F(Sandbox, help_names_every_command) {
    Process sandbox = start_sandbox();
    sandbox.write_line("help");
    EXPECT_TRUE(sandbox.shows("pairs of hexadecimal digits"));
    for (const char *command :
         {"role", "switchover", "event", "raw",          "stall",      "resume", "drop", "restart", "clients", "kernel",
          "mac",  "mvlan",      "sleep", "wait-clients", "wait-event", "port",   "vlan", "print",   "help",    "quit"})
        EXPECT_GE(sandbox.count("\n  " + std::string(command) + " "), 1) << command;
}

TEST_F(Sandbox, second_server_is_refused_and_a_dead_one_replaced) {
    Process first = start_sandbox();
    Process second({kSandbox});
    EXPECT_EQ(second.wait(), 1);
    EXPECT_TRUE(second.shows("bridge-sandbox: a server is already listening at " + socket_path()));
    first.signal(SIGKILL);
    EXPECT_EQ(first.wait(), 1000 + SIGKILL);
    ASSERT_TRUE(std::filesystem::exists(socket_path()));
    Process third = start_sandbox();
    Peer client = register_client({}, "raw");
}

TEST_F(Sandbox, ends_cleanly_on_signals_and_on_quit) {
    for (const int signal : {SIGTERM, SIGINT}) {
        Process sandbox = start_sandbox();
        Peer client = register_client({}, "raw");
        sandbox.signal(signal);
        EXPECT_EQ(sandbox.wait(), 0);
        EXPECT_TRUE(client.ended());
        EXPECT_TRUE(std::filesystem::is_empty(tmpdir() + "/bridge"));
    }
    Process sandbox = start_sandbox();
    sandbox.write_line("quit");
    EXPECT_EQ(sandbox.wait(), 0);
    EXPECT_TRUE(std::filesystem::is_empty(tmpdir() + "/bridge"));
}

TEST_F(Sandbox, refuses_to_start_without_a_usable_directory) {
    Process missing({kSandbox, "--tmpdir", tmpdir() + "/missing"});
    EXPECT_EQ(missing.wait(), 1);
    EXPECT_TRUE(missing.shows("bridge-sandbox: cannot make " + tmpdir() + "/missing/bridge: No such file"));
    Process too_long({kSandbox, "--tmpdir", "/tmp/" + std::string(50, 'x')});
    EXPECT_EQ(too_long.wait(), 1);
    EXPECT_TRUE(too_long.shows("TMPDIR is too long for the clients"));
    Process unset({kSandbox}, {"TMPDIR="});
    EXPECT_EQ(unset.wait(), 1);
    EXPECT_TRUE(unset.shows("bridge-sandbox: TMPDIR is not set"));
}

TEST_F(Sandbox, commands_from_a_file_on_standard_input_are_run) {
    const std::string commands = write_file("commands", "print from a file\nquit");
    Process sandbox({"/bin/sh", "-c", "exec \"$0\" <\"$1\"", kSandbox, commands});
    EXPECT_TRUE(sandbox.shows("from a file"));
    EXPECT_EQ(sandbox.wait(), 0);
}

} // namespace
