// The same session on machines of either byte order: recordings/ppc32be.pcapng was made on a booted 32-bit big-endian
// one, with what its daemons printed beside it; see recordings/again.sh.
#include "tests/tools/replay_fixture.h"
#include "tools/replay/choice.h"
#include "tools/replay/said.h"
#include "wire/kernel_message.h"
#include "wire/text.h"

#include <regex>

namespace {

using namespace test;
using recording::Kind;
using recording::Packet;
using recording::Way;
using wire::Direction;

// Another one's path may be in the environment: the lab has the one that its machine has just made.
const std::string &theirs() {
    static const char *given = std::getenv("BRIDGE_THEIR_RECORDING");
    static const std::string path = given != nullptr ? given : BRIDGE_RECORDINGS "/ppc32be.pcapng";
    return path;
}

constexpr const char *kScenario = BRIDGE_RECORDINGS "/tour.scenario";
// What the daemons of the scenario call themselves, and what their lines begin with. The monitor's others, about its
// connection and role, come by a timer of its own and stand where that finds them.
const struct {
    const char *name;
    const char *lines;
    std::vector<std::string> command;
} kDaemons[] = {{"follow", "follow: ", {"vlan_follow", "-n", "follow", "-i", "3"}},
                {"table", "table: ", {"mac_table", "-n", "table", "-m", "02:00:00:00:00:01", "-v", "10", "-i", "4"}},
                {"monitor", "[A-Z0-9]+_EV", {BRIDGE_MONITOR, "--name", "monitor", "--color", "never", "vlan", "mac"}}};

// The lines that begin like this.
std::string lines_of(const std::string &text, const std::string &beginning) {
    const std::regex begins("^(" + beginning + ")");
    std::string lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        if (std::regex_search(line, begins))
            lines += line + '\n';
    return lines;
}

// --- The recordings by their contents ---

// What went over one channel of a daemon, in its order.
struct Transcript {
    std::string to_server, from_server, to_kernel, from_kernel, connection;
};

// A message by its fields, from which its bytes can be made again. The process id of a registration is left out.
std::string text_of(const replay::Said &said) {
    return said.normal().text() + '\n';
}

std::string text_of_batch(const Packet &packet) {
    std::string text;
    const wire::Buffer batch = replay::native_body(packet);
    for (const wire::Message &message : wire::split(batch).messages)
        text += wire::message_text(message.type, Direction::kToClient, message.payload) + '\n';
    return text;
}

// The answer's record, without the family's number and the process id in front of it.
std::string text_of_answer(const Packet &packet, uint32_t question) {
    const wire::KernelMessage answer = read_kernel_message(packet.body, Direction::kFromKernel, packet.order());
    return wire::message_text(question, Direction::kFromKernel, answer.data, packet.order()) + '\n';
}

Transcript transcript_of(const recording::Recording &recording, const std::string &daemon) {
    Transcript all;
    uint32_t question = 0; // 0: about the family's number
    for (const Packet &packet : packets_of(recording.packets, replay::choose(recording.packets, daemon))) {
        const bool to_client = packet.head.way == Way::kToClient;
        const std::vector<replay::Said> said = replay::said_in(packet);
        for (const replay::Said &each : said)
            (packet.head.kind == Kind::kKernel ? all.to_kernel : all.to_server) += text_of(each);
        if (packet.head.kind == Kind::kBatch && to_client)
            all.from_server += text_of_batch(packet);
        if (packet.head.kind == Kind::kConnection)
            all.connection += std::to_string(packet.body[0]) + ' ';
        if (packet.head.kind == Kind::kKernel && !to_client)
            question = said.empty() ? 0 : said[0].type;
        else if (packet.head.kind == Kind::kKernel && packet.head.client != 0 && question != 0)
            all.from_kernel += text_of_answer(packet, question);
    }
    return all;
}

// The tables at the end, in this machine's byte order. Without the times at which VLANs were created, and without the
// bytes of a port that are the server's own: nobody else knows what they are, so nobody can turn them.
std::map<recording::Table, ByteVec> tables_of(const recording::Recording &recording) {
    std::map<recording::Table, ByteVec> tables;
    for (const Packet &packet : recording.packets) {
        if (packet.head.kind != Kind::kTable)
            continue;
        const wire::Segment &segment = *wire::all_segments()[static_cast<size_t>(packet.head.table)];
        ByteVec &table = tables.try_emplace(packet.head.table, segment.size, 0).first->second;
        const bool turned = wire::is_big(packet.order()) != wire::is_big(wire::Order::kNative);
        const auto places = turned ? wire::swapped_places(segment.record()) : std::vector<uint32_t>();
        for (size_t i = 0; i < packet.body.size(); ++i)
            table[turned ? places[packet.head.offset + i] : packet.head.offset + i] = packet.body[i];
    }
    for (vle &vlan : reinterpret_cast<bri_vlandb *>(tables.at(recording::Table::kVlans).data())->vlans)
        vlan.create_time = 0;
    for (spcb &port : reinterpret_cast<bri_portdb *>(tables.at(recording::Table::kPorts).data())->ports)
        std::ranges::fill(port.server3, uint8_t{0});
    return tables;
}

// The first place where they differ; the size where they do not.
size_t first_difference(const ByteVec &one, const ByteVec &other) {
    return static_cast<size_t>(std::ranges::mismatch(one, other).in1 - one.begin());
}

struct BothMachines : Replay {
    // The scenario on this machine; what the daemons printed.
    [[nodiscard]] std::string record() const {
        const std::string tools = std::filesystem::path(BRIDGE_MONITOR).parent_path();
        Process sandbox({kSandbox, "run", "--record", file(), "--script", kScenario},
                        {"PATH=" + std::string(getenv("PATH")) + ":" + tools, "ASAN_OPTIONS=verify_asan_link_order=0"});
        EXPECT_EQ(sandbox.wait(60000), 0);
        sandbox.drain();
        return sandbox.output();
    }
};

// Left out are times, process ids, the number that the kernel gives its family, how messages were put into batches, in
// what order different daemons and different channels of one were served, and the tables before their end; for all that
// hangs on the machine's speed. What is left is every message of every daemon by its bytes.
TEST_F(BothMachines, see_the_same_in_the_same_scenario) {
    const std::string printed = record();
    const recording::Recording ours = recording::read_file(file());
    const recording::Recording other = recording::read_file(theirs());
    ASSERT_NE(ours.packets[0].order(), other.packets[0].order());
    for (const auto &daemon : kDaemons) {
        const Transcript here = transcript_of(ours, daemon.name);
        const Transcript there = transcript_of(other, daemon.name);
        EXPECT_EQ(here.connection, there.connection) << daemon.name;
        EXPECT_EQ(here.to_server, there.to_server) << daemon.name;
        EXPECT_EQ(here.from_server, there.from_server) << daemon.name;
        EXPECT_EQ(here.to_kernel, there.to_kernel) << daemon.name;
        EXPECT_EQ(here.from_kernel, there.from_kernel) << daemon.name;
        EXPECT_NE(there.from_server, "") << daemon.name;
    }
    EXPECT_NE(transcript_of(other, "table").from_kernel, "");
    const auto tables = tables_of(ours);
    for (const auto &[number, table] : tables_of(other))
        EXPECT_EQ(first_difference(table, tables.at(number)), table.size()) << static_cast<int>(number);
}

TEST_F(BothMachines, let_a_daemon_print_the_lines_that_it_printed_on_the_other) {
    const std::string printed = text_in(BRIDGE_RECORDINGS "/ppc32be.printed");
    for (const auto &daemon : kDaemons)
        for (const char *speed : {"4", "max"}) {
            const Played played =
                play({theirs(), "--client", daemon.name, "--speed", speed, "--compare"}, daemon.command);
            EXPECT_EQ(by_channel(lines_of(played.daemon, daemon.lines)), by_channel(lines_of(printed, daemon.lines)))
                << daemon.name << " at " << speed << '\n'
                << played.lines;
            EXPECT_EQ(played.status, 0) << played.lines;
            EXPECT_TRUE(has(played.lines, ", 0 differences\n"));
        }
}

TEST_F(BothMachines, have_their_recordings_told_by_the_analyser) {
    if (Process({"/bin/sh", "-c", "command -v tshark"}).wait() != 0)
        GTEST_SKIP() << "NOT TESTED: no tshark on this machine, the recording was not dissected";
    Process dissect({BRIDGE_RECORDINGS "/dissect.sh", theirs()}, {"HOME=" + tmpdir()});
    EXPECT_EQ(dissect.wait(60000), 0);
    dissect.drain();
    EXPECT_EQ(lines_of(dissect.output(), "[0-9]"), text_in(BRIDGE_RECORDINGS "/ppc32be.dissected"));
}

} // namespace
