// Sessions of a workstation's daemons recorded, and played to daemons.
#pragma once

#include "tests/system/workstation.h"
#include "tools/recording/reader.h"
#include "tools/recording/writer.h"
#include "wire/batch.h"
#include "wire/own.h"
#include "wire/segments.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

namespace test {

// The recording of another machine: each packet in the other byte order, at its time.
class Turned {
  public:
    explicit Turned(const recording::Recording &from) {
        for (const recording::Packet &packet : from.packets)
            turn(packet);
    }

    void write(const std::string &path) const {
        {
            recording::Writer writer(path, {"bridge-tap", 0, kOther, 4});
            for (const Part &part : parts_)
                writer.add(part.head, part.bytes);
        }
        put_times(path);
    }

  private:
    static constexpr wire::Order kOther =
        std::endian::native == std::endian::big ? wire::Order::kLittle : wire::Order::kBig;

    struct Part {
        recording::Head head;
        wire::Buffer bytes;
        recording::Time time;
    };

    void turn(const recording::Packet &packet) {
        Part part{packet.head, {packet.body.begin(), packet.body.end()}, packet.time};
        const bool to_client = packet.head.way == recording::Way::kToClient;
        if (packet.head.kind == recording::Kind::kTable)
            return turn_table(part);
        if (packet.head.kind == recording::Kind::kBatch)
            wire::swap_batch(part.bytes, to_client ? wire::Direction::kToClient : wire::Direction::kToServer,
                             packet.order());
        if (packet.head.kind == recording::Kind::kKernel)
            turn_kernel(part, to_client);
        parts_.push_back(std::move(part));
    }

    // Bytes next to each other may lie apart in the other order.
    void turn_table(const Part &part) {
        const auto places = wire::swapped_places(wire::all_segments()[static_cast<size_t>(part.head.table)]->record());
        std::map<uint32_t, uint8_t> bytes;
        for (size_t i = 0; i < part.bytes.size(); ++i)
            bytes[places[part.head.offset + i]] = part.bytes[i];
        for (const auto &[place, byte] : bytes) {
            Part *last = parts_.empty() ? nullptr : &parts_.back();
            const bool follows =
                last != nullptr && place != bytes.begin()->first && last->head.offset + last->bytes.size() == place;
            if (!follows)
                last = &parts_.emplace_back(Part{part.head, {}, part.time});
            if (!follows)
                last->head.offset = place;
            last->bytes.push_back(byte);
        }
    }

    // The head, and behind it what the last question was about.
    void turn_kernel(Part &part, bool to_client) {
        const wire::Order order = wire::Order::kNative;
        std::span<uint8_t> bytes(part.bytes);
        const bool is_data = bytes.size() >= sizeof(wire::ef_bridge_answer) &&
                             wire::load(bytes, 4, 2, order) > 16; // numbers of families; smaller ones are the system's
        if (is_data && !to_client)
            asked_ = wire::load(bytes, 24, 4, order);
        const size_t head = is_data && !to_client ? sizeof(wire::ef_bridge_request) : sizeof(wire::ef_bridge_answer);
        if (is_data)
            wire::swap(wire::payload_of(asked_, to_client ? wire::Direction::kFromKernel : wire::Direction::kToKernel),
                       bytes.subspan(head));
        wire::swap(is_data && !to_client ? wire::one(wire::record_of<wire::ef_bridge_request>())
                                         : wire::one(wire::record_of<wire::ef_bridge_answer>()),
                   bytes.first(std::min(head, bytes.size())));
    }

    void put_times(const std::string &path) const {
        recording::Recording written = recording::read_file(path);
        for (size_t i = 0; i < parts_.size(); ++i) {
            const auto time = static_cast<uint64_t>(parts_[i].time.count());
            const auto at =
                static_cast<size_t>(written.packets[i].body.data() - written.bytes.data()) - recording::kHeadSize - 16;
            wire::store(written.bytes, at, 4, kOther, static_cast<uint32_t>(time >> 32));
            wire::store(written.bytes, at + 4, 4, kOther, static_cast<uint32_t>(time));
        }
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char *>(written.bytes.data()),
                   static_cast<std::streamsize>(written.bytes.size()));
    }

    std::vector<Part> parts_;
    uint32_t asked_ = 0;
};

class Replay : public Workstation {
  protected:
    using Words = std::vector<std::string>;

    [[nodiscard]] std::string file() const { return tmpdir() + "/session.pcapng"; }
    [[nodiscard]] static std::string example(const std::string &name) {
        return std::filesystem::path(kPortWatch).parent_path().string() + "/" + name;
    }

    [[nodiscard]] Process start_recorded_server(const Words &more = {}) const {
        Words options{"--record", file()};
        options.insert(options.end(), more.begin(), more.end());
        return start_sandbox(options);
    }
    [[nodiscard]] static Process start_daemon(const Words &words) {
        Words command = words;
        command[0] = example(words[0]);
        return Process(command, host_environment());
    }
    // What it has printed in all.
    static std::string end_of(Process &daemon) {
        EXPECT_EQ(daemon.end(), 0);
        daemon.drain();
        return daemon.output();
    }

    // The program with its own lines in a file; what comes is the daemon's.
    [[nodiscard]] Process start_replay(const Words &options, const Words &daemon) const {
        Words command{"/bin/sh", "-c", "exec \"$0\" \"$@\" 2>" + tmpdir() + "/lines", BRIDGE_REPLAY};
        command.insert(command.end(), options.begin(), options.end());
        command.emplace_back("--");
        command.insert(command.end(), daemon.begin(), daemon.end());
        return Process(command, {"ASAN_OPTIONS=verify_asan_link_order=0"});
    }
    struct Played {
        int status;
        std::string daemon;
        std::string lines;
    };
    [[nodiscard]] Played play(const Words &options, const Words &daemon) const {
        Process program = start_replay(options, daemon);
        const int status = program.wait(60000).value_or(-1);
        program.drain();
        return {status, program.output(), lines()};
    }
    [[nodiscard]] std::string lines() const {
        std::stringstream text;
        text << std::ifstream(tmpdir() + "/lines").rdbuf();
        return text.str();
    }

    static ::testing::AssertionResult has(const std::string &text, const std::string &part) {
        return text.find(part) != std::string::npos ? ::testing::AssertionSuccess()
                                                    : ::testing::AssertionFailure() << "no " << part << " in\n"
                                                                                    << text;
    }
};

} // namespace test
