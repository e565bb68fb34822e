// The flush timer on the real event loop: how long a message waits that is in no hurry.
#include <bridge/bridge.h>

#include <gtest/gtest.h>
#include <qv_thread.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kMessages = 25;

// A client of its own TMPDIR and VSDID on a real loop, and the server's end of its connection.
class FlushTimer : public testing::Test {
  protected:
    FlushTimer() : key_(static_cast<unsigned>(getpid())) {
        setenv("TMPDIR", mkdtemp(directory_), 1);
        setenv("VSDID", std::to_string(key_).c_str(), 1);
        listen_for_client();
        loop = qv_thread_master_create();
        EXPECT_EQ(bridge_agent_init("unit", loop), 0);
    }
    ~FlushTimer() override {
        qv_thread_master_destroy(loop);
        close(listener_);
        for (const unsigned base : {0x11110001U, 0x22220001U, 0x33330001U, 0x5A5B7C3DU}) {
            const auto key = static_cast<key_t>(base + key_);
            shmctl(shmget(key, 0, 0), IPC_RMID, nullptr);
            semctl(semget(key, 0, 0), 0, IPC_RMID);
        }
        std::filesystem::remove_all(directory_);
    }
    FlushTimer(const FlushTimer &) = delete;
    FlushTimer &operator=(const FlushTimer &) = delete;

    // The server: notes when each batch of one message comes, then stops the loop.
    void serve() {
        const int peer = accept(listener_, nullptr, nullptr);
        const timeval limit{3, 0}; // a message that does not come fails the test
        setsockopt(peer, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        uint8_t bytes[600];
        EXPECT_EQ(recv(peer, bytes, 560, MSG_WAITALL), 560); // the registration
        for (size_t number = 0; number < kMessages; ++number) {
            if (recv(peer, bytes, 17, MSG_WAITALL) != 17)
                break;
            came_[number] = Clock::now();
        }
        shutdown(peer, SHUT_RDWR);
        close(peer);
    }
    // Sends one message each time, at ever other points of the timer's period.
    static int send_one(void *self) {
        auto &test = *static_cast<FlushTimer *>(self);
        const uint8_t byte = 1;
        test.sent_[test.number_] = Clock::now();
        EXPECT_EQ(bridge_client_send_message(&byte, 1, VLAN_EVENT_CREATE_INDEX), 0);
        if (++test.number_ == kMessages)
            qv_thread_add_timer_withname(test.loop, stop, self, 1, "stop");
        else
            test.send_later();
        return 0;
    }
    static int stop(void *self) {
        qv_thread_master_stop(static_cast<FlushTimer *>(self)->loop);
        return 0;
    }
    // More than a period lies between two messages, so that each leaves alone.
    void send_later() {
        const timeval after{0, 120000 + static_cast<suseconds_t>(number_ * 7919 % 50000)};
        qv_thread_add_timer_timeval_withname(loop, send_one, this, &after, "send");
    }
    [[nodiscard]] std::vector<double> milliseconds() const {
        std::vector<double> all;
        for (size_t number = 0; number < kMessages; ++number)
            all.push_back(std::chrono::duration<double, std::milli>(came_[number] - sent_[number]).count());
        return all;
    }

    qv_thread_master *loop = nullptr;

  private:
    void listen_for_client() {
        std::filesystem::create_directory(std::string(directory_) + "/bridge");
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = std::string(directory_) + "/bridge/.server_socket";
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(listener_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(listener_, 1), 0);
    }

    char directory_[16] = "/tmp/bri.XXXXXX";
    unsigned key_;
    int listener_ = -1;
    size_t number_ = 0;
    Clock::time_point sent_[kMessages];
    Clock::time_point came_[kMessages];
};

// At any point of the 50 ms period as likely: half of them wait more than 25 ms. The middle one bears a busy machine.
TEST_F(FlushTimer, lets_a_message_wait_up_to_50_ms) {
    std::thread server([this] { serve(); });
    send_later();
    EXPECT_EQ(qv_thread_master_run(loop), 0);
    server.join();
    std::vector<double> waits = milliseconds();
    std::sort(waits.begin(), waits.end());
    EXPECT_GT(waits[kMessages / 2], 8);
    EXPECT_LT(waits[kMessages / 2], 60);
    EXPECT_LT(waits[kMessages * 3 / 4], 90);
}

} // namespace
