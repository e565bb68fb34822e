// Many client processes on one server at once.
#include "tests/client/transport_fixture.h"
#include "tests/support/children.h"

#include <set>

namespace {

using namespace test;

constexpr int kClients = 64;

class ManyClients : public Transport {
  protected:
    ~ManyClients() override {
        for (const pid_t child : children_)
            wait_for(child);
    }

    // One client process: registers, answers the server's event with its own process id, ends when the server does.
    static int run_client(int number) {
        start(("client-" + std::to_string(number)).c_str());
        event_set set{};
        set.words[BRIDGE_EVENT_SWITCHOVER_BEGIN / 32] = 1U << BRIDGE_EVENT_SWITCHOVER_BEGIN % 32;
        bool well = bridge_client_reg_event(&set, answer) == 0 && loop().run("bri-conn") == 0;
        while (well && ctx().connected != 0)
            well = loop().run_readable(30000) == 1;
        return well && loop().count("bri-reconn") == 1 ? 0 : 1;
    }
    static int answer(uint32_t type, void *, uint16_t) {
        return bridge_client_send_message(&ctx().pid, sizeof ctx().pid, type);
    }
    void fork_clients() {
        for (int number = 0; number < kClients; ++number) {
            children_.push_back(start_child([number] { return run_client(number); }));
            ASSERT_GT(children_.back(), 0);
        }
    }
    int ended_well() {
        int well = 0;
        for (const pid_t child : children_)
            well += wait_for(child) == 0 ? 1 : 0;
        children_.clear();
        return well;
    }
    [[nodiscard]] std::set<uint32_t> pids() const { return {children_.begin(), children_.end()}; }

  private:
    std::vector<pid_t> children_;
};

TEST_F(ManyClients, register_receive_and_answer_at_once) {
    const Server server;
    fork_clients();
    std::vector<Peer> peers;
    for (int number = 0; number < kClients; ++number) {
        peers.push_back(server.accept(30000));
        ASSERT_TRUE(peers.back().open()) << number;
    }
    std::set<uint32_t> registered;
    for (Peer &peer : peers) {
        const auto batch = peer.read_batch(30000);
        ASSERT_TRUE(batch.has_value());
        ASSERT_EQ(batch->types(), (std::vector<uint32_t>{BRIDGE_EVENT_REG_MSG}));
        const ByteVec payload = batch->messages()[0].payload;
        EXPECT_EQ(value_at<uint32_t>(payload.data(), 4 * 4), 1U << 10); // type 138
        registered.insert(value_at<uint32_t>(payload.data(), 516));
    }
    EXPECT_EQ(registered, pids());
    for (const Peer &peer : peers)
        peer.send({{BRIDGE_EVENT_SWITCHOVER_BEGIN, {}}});
    std::set<uint32_t> answered;
    for (Peer &peer : peers) {
        const auto batch = peer.read_batch(30000);
        ASSERT_TRUE(batch.has_value());
        ASSERT_EQ(batch->types(), (std::vector<uint32_t>{BRIDGE_EVENT_SWITCHOVER_BEGIN}));
        answered.insert(value_at<uint32_t>(batch->messages()[0].payload.data(), 0));
    }
    EXPECT_EQ(answered, pids());
    peers.clear();
    EXPECT_EQ(ended_well(), kClients);
}

} // namespace
