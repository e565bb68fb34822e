// bridge-tap between peers of a test and a double of the server.
#pragma once

#include "tests/system/workstation.h"
#include "tools/recording/reader.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <thread>

namespace test {

class Tap : public Workstation {
  protected:
    using Words = std::vector<std::string>;

    [[nodiscard]] std::string file() const { return tmpdir() + "/tap.pcapng"; }
    [[nodiscard]] std::string listen_directory() const { return tmpdir() + "/t"; }

    // Records in file(), unless another one is named, for a command or for whoever connects.
    [[nodiscard]] Process start_tap(const Words &command = {}, const std::string &output = {}) const {
        Words words{BRIDGE_TAP, "-o", output.empty() ? file() : output, "--listen", listen_directory()};
        if (!command.empty())
            words.emplace_back("--");
        words.insert(words.end(), command.begin(), command.end());
        // What a sanitizer keeps of freed memory is not the tap's.
        return Process(
            words, {"ASAN_OPTIONS=verify_asan_link_order=0:quarantine_size_mb=0:thread_local_quarantine_size_kb=0"});
    }
    // A client of the tap; tries until it listens.
    [[nodiscard]] Peer connect_to_tap() const {
        for (int tries = 0; tries < kPatienceMs / 5; ++tries) {
            Peer peer = try_to_connect();
            if (peer.open())
                return peer;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        ADD_FAILURE() << "nobody listens at " << listen_directory();
        return {};
    }
    [[nodiscard]] Peer try_to_connect() const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        (listen_directory() + "/bridge/.server_socket").copy(address.sun_path, sizeof address.sun_path - 1);
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
            return Peer(fd);
        ::close(fd);
        return {};
    }
    // Until it does; false when it does not.
    template <class Condition> [[nodiscard]] static bool becomes(Condition &&holds) {
        for (int tries = 0; tries < kPatienceMs / 5; ++tries) {
            if (holds())
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return false;
    }

    // The file when the tap has been told to end.
    [[nodiscard]] recording::Recording recording_of(Process &tap) const {
        EXPECT_EQ(tap.end(), 0);
        tap.drain();
        EXPECT_EQ(tap.output(), "");
        return recording::read_file(file());
    }
    // What batches of one direction hold, back to back; of all clients, or of one.
    [[nodiscard]] static ByteVec bytes_of_way(const recording::Recording &recording, recording::Way way,
                                              uint32_t client = 0) {
        ByteVec all;
        for (const recording::Packet &packet : recording.packets)
            if (packet.head.kind == recording::Kind::kBatch && packet.head.way == way &&
                (client == 0 || packet.head.client == client))
                all.insert(all.end(), packet.body.begin(), packet.body.end());
        return all;
    }
    [[nodiscard]] static std::vector<recording::Change> changes_of(const recording::Recording &recording,
                                                                   uint32_t client) {
        std::vector<recording::Change> changes;
        for (const recording::Packet &packet : recording.packets)
            if (packet.head.kind == recording::Kind::kConnection && packet.head.client == client)
                changes.push_back(static_cast<recording::Change>(packet.body[0]));
        return changes;
    }

    // The most memory that a process has had, in bytes.
    [[nodiscard]] static size_t most_memory(const Process &process) {
        std::ifstream status("/proc/" + std::to_string(process.pid()) + "/status");
        for (std::string word; status >> word;)
            if (size_t kilobytes = 0; word == "VmHWM:" && status >> kilobytes)
                return kilobytes << 10;
        return 0;
    }
};

} // namespace test
