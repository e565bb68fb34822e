// What goes into bridge-tap comes out of it, whatever the two sides do.
#include "tests/tools/tap_fixture.h"

#include <algorithm>
#include <fcntl.h>
#include <map>
#include <random>

namespace {

using namespace test;
using recording::Change;
using recording::Way;

constexpr size_t kMegabyte = size_t{1} << 20;

// A batch of one message with so many bytes.
ByteVec one_message(size_t size, unsigned seed) {
    return batch_of({{VLAN_EVENT_RENAME, pattern(size, seed)}});
}

// The next batch as it lies on the socket; empty when none comes.
ByteVec next_bytes(Peer &peer) {
    const auto batch = peer.read_batch(kPatienceMs);
    return batch ? batch->bytes : ByteVec();
}

// A side of a connection that writes and reads in pieces of any size, and rests now and then.
class Side {
  public:
    Side(const Peer &peer, ByteVec output, unsigned seed) : fd_(peer.fd()), output_(std::move(output)), random_(seed) {
        fcntl(fd_, F_SETFL, O_NONBLOCK);
    }
    void move() {
        const size_t piece = 1 + random_() % 30000;
        const size_t most = std::min(piece, output_.size() - sent_);
        const ssize_t written = most != 0 ? write(fd_, output_.data() + sent_, most) : 0;
        sent_ += written > 0 ? static_cast<size_t>(written) : 0;
        uint8_t input[20000];
        const ssize_t length = read(fd_, input, 1 + random_() % sizeof input);
        got_.insert(got_.end(), input, input + std::max<ssize_t>(length, 0));
        if (random_() % 256 == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    // Everything until the other side has closed, and however it did.
    void take_the_rest() {
        fcntl(fd_, F_SETFL, 0);
        uint8_t input[20000];
        for (ssize_t length = 0; (length = read(fd_, input, sizeof input)) > 0;)
            got_.insert(got_.end(), input, input + length);
    }
    [[nodiscard]] const ByteVec &output() const { return output_; }
    [[nodiscard]] ByteVec sent() const { return part_of(output_, 0, sent_); }
    [[nodiscard]] const ByteVec &got() const { return got_; }

  private:
    int fd_;
    ByteVec output_;
    size_t sent_ = 0;
    ByteVec got_;
    std::mt19937 random_;
};

ByteVec many_batches(size_t bytes, unsigned seed) {
    std::mt19937 random(seed);
    ByteVec all;
    while (all.size() < bytes) {
        const ByteVec batch = one_message(random() % 10240, seed++);
        all.insert(all.end(), batch.begin(), batch.end());
    }
    return all;
}

TEST_F(Tap, passes_on_and_records_every_byte_between_sides_of_any_speed) {
    const Server server;
    Process tap = start_tap();
    const Peer client = connect_to_tap();
    const Peer served = server.accept();
    Side left(client, many_batches(6 * kMegabyte, 1), 1);
    Side right(served, many_batches(6 * kMegabyte, 1000), 2);
    ASSERT_TRUE(becomes([&] {
        for (int i = 0; i < 500; ++i) {
            left.move();
            right.move();
        }
        return left.got().size() >= right.output().size() && right.got().size() >= left.output().size();
    }));
    EXPECT_TRUE(left.got() == right.output());
    EXPECT_TRUE(right.got() == left.output());
    const size_t memory = most_memory(tap);
    EXPECT_LT(memory, 32 * kMegabyte);
    const recording::Recording recording = recording_of(tap);
    EXPECT_TRUE(bytes_of_way(recording, Way::kToServer) == left.output());
    EXPECT_TRUE(bytes_of_way(recording, Way::kToClient) == right.output());
}

// Either side is cut off in the middle of what it says and hears, the server by dying.
TEST_F(Tap, passes_on_all_that_was_said_by_whoever_is_cut_off_under_load) {
    std::optional<Server> server(std::in_place);
    Process tap = start_tap();
    std::map<uint32_t, std::pair<ByteVec, ByteVec>> said; // of each connection: by the client, by the server
    std::mt19937 random(3);
    constexpr uint32_t kRounds = 16;
    for (uint32_t round = 1; round <= kRounds; ++round) {
        Peer client = connect_to_tap();
        Peer served = server->accept();
        Side left(client, many_batches(kMegabyte, round * 10000), round);
        Side right(served, many_batches(kMegabyte, round * 20000), round + 100);
        for (auto moves = random() % 60; moves > 0; --moves) {
            left.move();
            right.move();
        }
        const bool dies = round % 2 == 0;
        if (dies)
            server->stop();
        (dies ? served : client).close();
        Side &other = dies ? left : right;
        other.take_the_rest();
        EXPECT_TRUE(other.got() == (dies ? right : left).sent()) << round;
        if (dies) {
            EXPECT_TRUE(becomes([&] { return !try_to_connect().open(); })); // nobody listens for a dead server
            server.emplace();
        }
        said[round] = {left.sent(), right.sent()};
    }
    EXPECT_LT(most_memory(tap), 32 * kMegabyte);
    const recording::Recording recording = recording_of(tap);
    for (const auto &[round, both] : said) {
        const auto begins_with = [](const ByteVec &whole, const ByteVec &part) {
            return part.size() <= whole.size() && std::equal(part.begin(), part.end(), whole.begin());
        };
        const bool died = round % 2 == 0;
        const ByteVec up = bytes_of_way(recording, Way::kToServer, round);
        const ByteVec down = bytes_of_way(recording, Way::kToClient, round);
        EXPECT_TRUE((died ? down : up) == (died ? both.second : both.first)) << round;
        EXPECT_TRUE(begins_with(died ? both.first : both.second, died ? up : down)) << round;
    }
}

// What a client can send until it is held up.
size_t push(const Peer &peer) {
    fcntl(peer.fd(), F_SETFL, O_NONBLOCK);
    const ByteVec batch = one_message(10000, 7);
    size_t sum = 0;
    for (pollfd look{peer.fd(), POLLOUT, 0}; poll(&look, 1, 300) > 0;)
        if (const ssize_t length = write(peer.fd(), batch.data(), batch.size()); length > 0)
            sum += static_cast<size_t>(length);
    return sum;
}

TEST_F(Tap, holds_up_whoever_writes_to_a_side_that_does_not_read) {
    const Server server;
    Process tap = start_tap({}, "/dev/null");
    std::vector<Peer> peers;
    peers.push_back(connect_to_tap());
    peers.push_back(server.accept());
    const size_t before = most_memory(tap);
    for (int i = 0; i < 8; ++i) {
        EXPECT_LT(push(peers[peers.size() - 2]), 2 * kMegabyte); // what two pairs of sockets hold
        peers.push_back(connect_to_tap());
        peers.push_back(server.accept());
    }
    EXPECT_LT(most_memory(tap) - before, 4 * kMegabyte);
}

TEST_F(Tap, keeps_clients_apart) {
    const Server server;
    Process tap = start_tap();
    const Peer first = connect_to_tap();
    Peer first_served = server.accept();
    const Peer second = connect_to_tap();
    Peer second_served = server.accept();
    second.write(one_message(20, 2));
    first.write(one_message(10, 1));
    EXPECT_EQ(next_bytes(second_served), one_message(20, 2));
    EXPECT_EQ(next_bytes(first_served), one_message(10, 1));
    const recording::Recording recording = recording_of(tap);
    EXPECT_EQ(bytes_of_way(recording, Way::kToServer, 1), one_message(10, 1));
    EXPECT_EQ(bytes_of_way(recording, Way::kToServer, 2), one_message(20, 2));
}

TEST_F(Tap, passes_on_what_a_client_said_before_it_closed) {
    const Server server;
    Process tap = start_tap();
    Peer client = connect_to_tap();
    Peer served = server.accept();
    client.write(one_message(1000, 1));
    client.close();
    EXPECT_EQ(next_bytes(served), one_message(1000, 1));
    EXPECT_TRUE(served.ended());
    EXPECT_EQ(changes_of(recording_of(tap), 1), (std::vector{Change::kOpened, Change::kClosedByClient}));
}

TEST_F(Tap, passes_on_that_a_client_says_no_more_but_listens) {
    const Server server;
    Process tap = start_tap();
    Peer client = connect_to_tap();
    Peer served = server.accept();
    shutdown(client.fd(), SHUT_WR);
    EXPECT_TRUE(served.ended());
    served.write(one_message(1000, 1));
    EXPECT_EQ(next_bytes(client), one_message(1000, 1));
    served.close();
    EXPECT_TRUE(client.ended());
}

TEST_F(Tap, tells_whoever_writes_to_a_client_that_has_gone) {
    const Server server;
    Process tap = start_tap();
    Peer client = connect_to_tap();
    const Peer served = server.accept();
    fcntl(served.fd(), F_SETFL, O_NONBLOCK);
    client.close();
    EXPECT_TRUE(becomes([&] { return send(served.fd(), "x", 1, MSG_NOSIGNAL) < 0 && errno == EPIPE; }));
}

TEST_F(Tap, shows_clients_that_the_server_has_died_and_that_it_is_back) {
    std::optional<Server> server(std::in_place);
    Process tap = start_tap();
    Peer client = connect_to_tap();
    Peer served = server->accept();
    client.write(one_message(400, 1));
    EXPECT_EQ(next_bytes(served), one_message(400, 1));
    served.write(one_message(500, 1));
    server->stop();
    served.close();
    EXPECT_EQ(next_bytes(client), one_message(500, 1));
    EXPECT_TRUE(client.ended());
    EXPECT_TRUE(becomes([&] { return !try_to_connect().open(); })); // refused, as without the tap
    server.emplace();
    const Peer again = connect_to_tap();
    served = server->accept();
    again.write(one_message(600, 2));
    EXPECT_EQ(next_bytes(served), one_message(600, 2));
    const recording::Recording recording = recording_of(tap);
    EXPECT_EQ(changes_of(recording, 1), (std::vector{Change::kOpened, Change::kClosedByServer}));
    EXPECT_EQ(bytes_of_way(recording, Way::kToServer, 2), one_message(600, 2));
}

TEST_F(Tap, records_what_is_no_batch_as_it_comes) {
    const Server server;
    Process tap = start_tap();
    Peer client = connect_to_tap();
    Peer served = server.accept();
    const ByteVec wild(5000, 0xEE);
    client.write(one_message(100, 1) + wild);
    client.close();
    EXPECT_TRUE(becomes([&] { return served.readable(); }));
    EXPECT_EQ(next_bytes(served), one_message(100, 1));
    ByteVec rest;
    while (!served.ended(100))
        rest = rest + served.read_now();
    EXPECT_EQ(rest, wild);
    EXPECT_EQ(bytes_of_way(recording_of(tap), Way::kToServer), one_message(100, 1) + wild);
}

TEST_F(Tap, records_a_batch_that_a_connection_ends_in) {
    const Server server;
    Process tap = start_tap();
    Peer client = connect_to_tap();
    Peer served = server.accept();
    client.write(part_of(one_message(100, 1), 0, 50));
    client.close();
    EXPECT_FALSE(served.read_batch());
    EXPECT_EQ(bytes_of_way(recording_of(tap), Way::kToServer), part_of(one_message(100, 1), 0, 50));
}

// --- A disk that is full ---

void expect_that_the_connection_goes_on(const Peer &client, Peer &served) {
    for (unsigned i = 0; i < 20; ++i) {
        client.write(one_message(9000, i));
        EXPECT_EQ(next_bytes(served), one_message(9000, i));
    }
}

TEST_F(Tap, goes_on_without_a_recording_when_the_disk_is_full) {
    const Server server;
    Process tap = start_tap({}, "/dev/full");
    const Peer client = connect_to_tap();
    Peer served = server.accept();
    expect_that_the_connection_goes_on(client, served);
    EXPECT_EQ(tap.end(), 0);
    tap.drain();
    EXPECT_EQ(tap.output(), "bridge-tap: /dev/full: No space left on device: the recording ends here, the connections "
                            "go on\n");
}

TEST_F(Tap, leaves_what_had_room_as_a_whole_recording) {
    const Server server;
    Process tap({"/bin/bash", "-c", "ulimit -f 64; exec \"$@\"", "bash", BRIDGE_TAP, "-o", file(), "--listen",
                 listen_directory()});
    const Peer client = connect_to_tap();
    Peer served = server.accept();
    expect_that_the_connection_goes_on(client, served);
    EXPECT_EQ(tap.end(), 0);
    tap.drain();
    EXPECT_EQ(tap.count("the recording ends here"), 1) << tap.output();
    const ByteVec there = bytes_of_way(recording::read_file(file()), Way::kToServer);
    EXPECT_GT(there.size(), size_t{30000});
    EXPECT_LT(there.size(), size_t{65536});
    EXPECT_EQ(there.size() % one_message(9000, 0).size(), 0U);
}

// --- The command ---

TEST_F(Tap, gives_the_status_of_the_command) {
    EXPECT_EQ(start_tap({"/bin/sh", "-c", "exit 7"}).wait(), 7);
    EXPECT_EQ(start_tap({"/bin/sh", "-c", "kill -KILL $$"}).wait(), 128 + SIGKILL);
    EXPECT_EQ(start_tap({"/no/such/program"}).wait(), 1);
    EXPECT_EQ(start_tap({}, "/no/such/directory/file").wait(), 1);
}

TEST_F(Tap, hands_signals_on_to_the_command) {
    Process tap = start_tap({"/bin/sh", "-c", "trap 'exit 9' TERM; echo ready; while :; do sleep 0.05; done"});
    ASSERT_TRUE(tap.shows("ready"));
    tap.signal(SIGTERM);
    EXPECT_EQ(tap.wait(), 9);
}

TEST_F(Tap, refuses_a_command_line_without_sense) {
    EXPECT_EQ(Process({BRIDGE_TAP, "--", "true"}).wait(), 64);
    EXPECT_EQ(Process({BRIDGE_TAP, "--listen", tmpdir(), "--", "true"}).wait(), 64);
    EXPECT_EQ(Process({BRIDGE_TAP, "--listen", listen_directory(), "--no-such"}).wait(), 64);
    EXPECT_EQ(Process({BRIDGE_TAP, "--listen", listen_directory()}, {"TMPDIR="}).wait(), 64);
}

TEST_F(Tap, passes_on_what_the_command_said_last) {
    const Server server;
    const std::string script =
        "exec 3<>/dev/null; python3 -c \"import os,socket;"
        "s=socket.socket(socket.AF_UNIX);s.connect(os.environ['TMPDIR']+'/bridge/.server_socket');"
        "s.sendall(b'x'*300000)\"";
    Process tap = start_tap({"/bin/sh", "-c", script}, "/dev/null");
    const Peer served = server.accept(kPatienceMs);
    std::this_thread::sleep_for(std::chrono::milliseconds(300)); // the command has long ended
    ByteVec got;
    for (uint8_t piece[65536];;) {
        const ssize_t length = read(served.fd(), piece, sizeof piece);
        if (length <= 0)
            break;
        got.insert(got.end(), piece, piece + length);
    }
    EXPECT_EQ(got.size(), size_t{300000});
    EXPECT_EQ(tap.wait(), 0);
}

TEST_F(Tap, leaves_nothing_behind) {
    {
        const Server server;
        Process tap = start_tap({"/bin/true"});
        EXPECT_EQ(tap.wait(), 0);
    }
    EXPECT_FALSE(std::filesystem::exists(listen_directory()));
}

} // namespace
