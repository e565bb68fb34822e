// The soak's own bookkeeping: what it must notice, and what it must not mind.
#include "tests/soak/books.h"

#include <gtest/gtest.h>

namespace {

using namespace soak;

class BooksTest : public testing::Test {
  protected:
    BooksTest() { connect(1, 0); }

    void connect(unsigned id, unsigned host) {
        const std::string client = "client " + std::to_string(id);
        books_.server_line(client + ": connected");
        books_.server_line(client + ": sent BRIDGE_EVENT_REG_MSG(129), 544 bytes");
        books_.server_line("event BRIDGE_EVENT_BKUP_DATA_END(132) to " + client + " (h0), 0 bytes");
        books_.server_line(client + " (h" + std::to_string(host) + "): registered, pid 9, 6 event types, fresh");
    }
    // The server sends an event of 8 bytes to everybody.
    void send(uint32_t number, unsigned clients = 1) {
        books_.event_told(407, number, 8, -1);
        const std::string to = " to " + std::to_string(clients) + " clients";
        books_.server_line("event VLAN_EVENT_MODIFY_INTF_MODE(407)" + to + ", 8 bytes");
        books_.server_line("event VLAN_EVENT_MODIFY_INTF_MODE(407):" + to);
    }
    void request(unsigned id, unsigned host) {
        books_.server_line("client " + std::to_string(id) + " (h" + std::to_string(host) + "): sent 406, 8 bytes");
    }
    void see(std::initializer_list<const char *> lines, unsigned host = 0) {
        for (const char *line : lines)
            books_.host_line(host, line);
    }
    void expect_right() {
        books_.verify();
        EXPECT_EQ(books_.faults, std::vector<std::string>{});
    }
    void expect_fault(const std::string &text) {
        books_.verify();
        ASSERT_EQ(books_.faults.size(), 1U);
        EXPECT_NE(books_.faults[0].find(text), std::string::npos) << books_.faults[0];
    }

    Books books_;
};

TEST_F(BooksTest, everything_in_order_agrees) {
    send(1);
    send(2);
    books_.server_line("switchover: begin");
    request(1, 0);
    send(3);
    see({"u", "e 1 2", "b", "q 0 1 1", "e 3 3"});
    expect_right();
    EXPECT_EQ(books_.hosts[0].sent, 6U);
    EXPECT_EQ(books_.hosts[0].delivered, 6U);
    EXPECT_EQ(books_.hosts[0].lost, 0U);
}

TEST_F(BooksTest, missing_event_is_a_fault) {
    for (uint32_t number = 1; number <= 3; ++number)
        send(number);
    see({"u", "e 1 1", "e 3 3"});
    expect_fault("event 3 has come in place of item 3 of 4, event 2");
}

TEST_F(BooksTest, missing_last_event_of_an_open_connection_is_a_fault) {
    send(1);
    see({"u"});
    expect_fault("nothing more has come in place of item 2 of 2, event 1");
}

TEST_F(BooksTest, event_that_comes_twice_is_a_fault) {
    send(1);
    send(2);
    see({"u", "e 1 1", "e 1 2"});
    expect_fault("event 1 has come in place of item 3 of 3, event 2");
}

TEST_F(BooksTest, event_that_nobody_sent_is_a_fault) {
    send(1);
    see({"u", "e 1 2"});
    expect_fault("event 2 has come, nothing more was sent");
}

TEST_F(BooksTest, order_counts) {
    send(1);
    send(2);
    see({"u", "e 2 2", "e 1 1"});
    expect_fault("event 2 has come in place of item 2");
}

TEST_F(BooksTest, what_a_dead_server_had_not_written_may_be_missing_at_the_end) {
    send(1);
    send(2);
    send(3);
    books_.server_died();
    connect(1, 0);
    send(4);
    see({"u", "e 1 1", "u", "e 4 4"});
    expect_right();
    EXPECT_EQ(books_.hosts[0].lost, 2U);
    EXPECT_EQ(books_.hosts[0].delivered, 4U);
}

TEST_F(BooksTest, what_a_dead_server_had_written_may_not_be_missing) {
    send(1);
    send(2); // 41 bytes of synchronisation and two of 24; those of the second are still there
    books_.server_line("  1 h0 pid 9 events 6 messages 1 sent 6 queued 24");
    books_.list_told();
    books_.server_line("clients: 1");
    books_.server_died();
    connect(1, 0);
    see({"u", "u"});
    expect_fault("event 1, which was written");
}

TEST_F(BooksTest, list_that_was_asked_for_before_is_not_the_last_one) {
    books_.list_told();
    books_.drop_told(0);
    books_.list_told();
    books_.server_line("clients: 1");
    EXPECT_FALSE(books_.all_listed()); // the drop is still to come
    books_.server_line("drop: 1 clients");
    books_.server_line("clients: 0");
    EXPECT_TRUE(books_.all_listed());
    see({"u"});
    expect_right();
}

TEST_F(BooksTest, dead_server_owes_no_lists) {
    books_.list_told();
    books_.server_died();
    EXPECT_TRUE(books_.all_listed());
    books_.list_told();
    EXPECT_FALSE(books_.all_listed());
    books_.server_line("clients: 0");
    EXPECT_TRUE(books_.all_listed());
}

TEST_F(BooksTest, list_that_nobody_asked_for_is_a_fault) {
    books_.server_line("clients: 1");
    see({"u"});
    expect_fault("nobody asked the server for: clients: 1");
}

TEST_F(BooksTest, gap_before_the_end_of_a_dead_server_is_a_fault) {
    for (uint32_t number = 1; number <= 3; ++number)
        send(number);
    books_.server_died();
    connect(1, 0);
    see({"u", "e 1 1", "e 3 3", "u"});
    expect_fault("event 3 has come");
}

TEST_F(BooksTest, end_of_the_backup_data_belongs_to_the_connection_that_what_follows_fits) {
    send(1);
    books_.drop_told(-1);
    books_.server_line("drop: 1 clients");
    connect(2, 0);
    send(2);
    see({"u", "e 2 2"}); // of the first connection nothing came
    expect_right();
    EXPECT_EQ(books_.hosts[0].lost, 2U);
}

// A slave that is dropped and comes back: what it is sent first as a master was lost once and came the second time.
struct SlaveBooksTest : BooksTest {
    SlaveBooksTest() { reconnect_as_slave(2); }

    void reconnect_as_slave(unsigned id) {
        books_.server_line("role: slave, 1 clients");
        books_.drop_told(-1);
        books_.server_line("drop: 1 clients");
        connect(id, 0);
    }
};

TEST_F(SlaveBooksTest, begin_of_a_switch_over_belongs_to_the_connection_that_what_follows_fits) {
    books_.server_line("switchover: begin");
    reconnect_as_slave(3);
    books_.server_line("switchover: begin");
    send(1);
    see({"u", "b", "e 1 1"});
    expect_right();
    EXPECT_EQ(books_.hosts[0].lost, 1U);
}

TEST_F(SlaveBooksTest, request_belongs_to_the_connection_that_what_follows_fits) {
    books_.server_line("role: master, 1 clients");
    request(2, 0);
    reconnect_as_slave(3);
    books_.server_line("role: master, 1 clients");
    request(3, 0);
    send(1);
    see({"u", "q 0 2 2", "e 1 1"});
    expect_right();
    EXPECT_EQ(books_.hosts[0].lost, 1U);
}

TEST_F(SlaveBooksTest, begin_of_a_switch_over_missing_on_an_open_connection_is_a_fault) {
    books_.server_line("switchover: begin");
    reconnect_as_slave(3);
    books_.server_line("switchover: begin");
    send(1);
    see({"u", "e 1 1"});
    expect_fault("event 1 has come in place of item 1 of 2, the begin of a switch-over");
}

TEST_F(BooksTest, slave_sees_nothing) {
    send(1);
    books_.server_line("role: slave, 1 clients");
    send(2);
    books_.server_line("role: master, 1 clients");
    send(3);
    see({"u", "e 1 1", "e 3 3"});
    expect_right();
    EXPECT_EQ(books_.totals.held, 1U);
}

TEST_F(BooksTest, slave_that_sees_something_is_a_fault) {
    books_.server_line("role: slave, 1 clients");
    send(1);
    see({"u", "e 1 1"});
    expect_fault("event 1 has come, nothing more was sent");
}

TEST_F(BooksTest, server_that_counts_otherwise_is_a_fault) {
    books_.server_line("  1 h0 pid 9 events 6 messages 1 sent 5 queued 0");
    see({"u"});
    expect_fault("the server counts otherwise");
}

TEST_F(BooksTest, event_that_reached_another_number_of_clients_is_a_fault) {
    send(1, 2);
    see({"u", "e 1 1"});
    expect_fault("sent to 2 clients instead of 1");
}

TEST_F(BooksTest, lost_client_and_refused_command_are_faults) {
    see({"u"});
    books_.server_line("client 1 (h0): lost, closed by the client");
    expect_fault("client 1 (h0): lost");
    books_.faults.clear();
    books_.server_line("error: no such event: 9");
    expect_fault("no such event");
}

struct RequestBooksTest : BooksTest {
    RequestBooksTest() { connect(2, 1); }
};

TEST_F(RequestBooksTest, requests_missing_on_one_connection_are_a_fault) {
    request(1, 0);
    request(1, 0);
    see({"u", "q 0 1 1", "q 0 3 3"}, 0);
    see({"u", "q 0 1 1", "q 0 3 3"}, 1);
    expect_fault("request 3 of h0 comes in place of 2");
}

TEST_F(RequestBooksTest, requests_missing_between_connections_are_counted) {
    request(1, 0);
    books_.drop_told(0);
    books_.server_line("drop: 1 clients");
    connect(3, 0);
    request(3, 0);
    see({"u", "q 0 1 1", "u", "q 0 4 4"}, 0);
    see({"u", "q 0 1 1", "q 0 4 4"}, 1);
    expect_right();
    EXPECT_EQ(books_.totals.gaps, 2U);
}

TEST_F(RequestBooksTest, request_that_comes_again_is_a_fault) {
    request(1, 0);
    books_.drop_told(0);
    books_.server_line("drop: 1 clients");
    connect(3, 0);
    request(3, 0);
    see({"u", "q 0 1 1", "u", "q 0 1 1"}, 0);
    see({"u", "q 0 1 1", "q 0 1 1"}, 1);
    expect_fault("request 1 of h0 comes again");
}

TEST_F(RequestBooksTest, hosts_that_see_different_requests_are_a_fault) {
    request(1, 0);
    see({"u", "q 0 1 1"}, 0);
    see({"u", "q 0 2 2"}, 1);
    expect_fault("h1 has seen request 2 where others saw request 1");
}

} // namespace
