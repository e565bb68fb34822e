// What stands in a recording: tables as clients saw them, and a session as the analyser tells it.
#include "tests/tools/tap_fixture.h"
#include "tools/recording/recorder.h"
#include "wire/segments.h"

#include <bridge/ipc.h>

#include <algorithm>
#include <map>
#include <memory>
#include <sstream>

namespace {

using namespace test;
using recording::Kind;
using recording::Packet;
using recording::Table;
using recording::Way;

struct Detach {
    void operator()(bri_shm_handle *handle) const { bridge_shm_dettach(handle); }
};
using Handle = std::unique_ptr<bri_shm_handle, Detach>;

// A recorder in this process, and what it has written.
struct RecordedTables : Tap {
    [[nodiscard]] Handle make(const wire::Segment &segment) const {
        return Handle(bridge_shm_create(segment.name, wire::key_of(segment, vsd()), segment.size));
    }
    static uint8_t *data(const Handle &handle) { return static_cast<uint8_t *>(handle->data); }
    static ByteVec copy_of(const Handle &handle) { return {data(handle), data(handle) + handle->hdr->size}; }

    void send_batch() { recorder_->pass(stream_, batch_of({{VLAN_EVENT_RENAME, {}}})); }
    void begin() { recorder_.emplace(file(), "test", vsd()); }
    recording::Recording end() {
        recorder_.reset();
        return recording::read_file(file());
    }

    // The tables in front of the batch of that number, from 0, as a reader builds them.
    static std::map<Table, ByteVec> tables_before(const recording::Recording &recording, size_t batch) {
        std::map<Table, ByteVec> tables;
        for (const Packet &packet : recording.packets) {
            if (packet.head.kind == Kind::kBatch && batch-- == 0)
                break;
            if (packet.head.kind != Kind::kTable)
                continue;
            const size_t size = wire::all_segments()[static_cast<size_t>(packet.head.table)]->size;
            ByteVec &table = tables.try_emplace(packet.head.table, size, 0).first->second;
            std::ranges::copy(packet.body, table.begin() + packet.head.offset);
        }
        return tables;
    }

  private:
    std::optional<recording::Recorder> recorder_;
    recording::Stream stream_{1, Way::kToClient};
};

TEST_F(RecordedTables, are_in_front_of_each_packet_as_they_were) {
    const Handle vlans = make(wire::kVlanSegment);
    data(vlans)[100] = 5;
    std::fill_n(data(vlans) + 4090, 10, 0xAB); // two pieces
    begin();
    const ByteVec first = copy_of(vlans);
    send_batch();
    data(vlans)[vlans->hdr->size - 1] = 9;
    data(vlans)[100] = 0;
    const ByteVec second = copy_of(vlans);
    send_batch();
    const recording::Recording recording = end();
    EXPECT_TRUE(tables_before(recording, 0)[Table::kVlans] == first);
    EXPECT_TRUE(tables_before(recording, 1)[Table::kVlans] == second);
}

TEST_F(RecordedTables, begin_with_start_values_and_go_on_with_what_changes) {
    const Handle ports = make(wire::kPortSegment);
    data(ports)[8] = 1;
    begin();
    send_batch();
    data(ports)[8] = 2;
    data(ports)[10] = 3;
    send_batch();
    send_batch();
    const recording::Recording recording = end();
    ASSERT_EQ(recording.packets.size(), 6U);
    EXPECT_EQ(recording.packets[0].head.flags, recording::kStartValue);
    EXPECT_TRUE(recording.packets[0].body.empty());
    EXPECT_EQ(recording.packets[1].head.flags, recording::kStartValue);
    EXPECT_EQ(recording.packets[1].head.offset, 8U);
    EXPECT_EQ(recording.packets[1].body.size(), 1U);
    EXPECT_EQ(recording.packets[3].head.kind, Kind::kTable);
    EXPECT_EQ(recording.packets[3].head.flags, 0);
    EXPECT_EQ(recording.packets[3].head.offset, 8U);
    EXPECT_EQ(recording.packets[3].body.size(), 3U); // from the first to the last that changed
}

TEST_F(RecordedTables, that_are_made_later_come_with_their_start_values) {
    begin();
    send_batch();
    const Handle groups = make(wire::kGroupSegment);
    data(groups)[77] = 7;
    const ByteVec made = copy_of(groups);
    send_batch();
    const recording::Recording recording = end();
    EXPECT_TRUE(tables_before(recording, 0).empty());
    EXPECT_TRUE(tables_before(recording, 1)[Table::kGroups] == made);
    EXPECT_EQ(recording.packets[1].head.flags, recording::kStartValue);
}

TEST_F(RecordedTables, that_are_too_small_are_left_alone) {
    const Handle small(bridge_shm_create("VLAN-SHM", wire::key_of(wire::kVlanSegment, vsd()), 1000));
    begin();
    send_batch();
    EXPECT_TRUE(tables_before(end(), 0).empty());
}

TEST_F(RecordedTables, are_only_read) {
    const Handle vlans = make(wire::kVlanSegment);
    const bri_shm_hdr before = *vlans->hdr;
    begin();
    send_batch();
    static_cast<void>(end());
    EXPECT_EQ(std::memcmp(&before, vlans->hdr, sizeof before), 0);
}

// --- A session of a daemon with the sandbox ---

// A host follows VLANs, another owns addresses and asks the kernel.
constexpr const char *kSession = R"(vlan create 1
port add 3 access 1
daemon start mac_table -n table -m 02:00:00:00:00:01 -v 1 -i 3
wait client table registered
wait event MAC_EVENT_NOTIFY_ADDR mac=02:00:00:00:00:01 to table
mac add 02:00:00:00:00:05 1 3 static
wait event MAC_EVENT_NOTIFY_ADDR mac=02:00:00:00:00:05 to table
daemon end
)";

struct RecordedSession : Tap {
    void SetUp() override {
        if (Process({"/bin/sh", "-c", "command -v tshark"}).wait() != 0)
            GTEST_SKIP() << "NOT TESTED: no tshark on this machine, no session was dissected";
    }
    // The session, with the sandbox as recorder.
    void record() const {
        Process sandbox({kSandbox, "run", "--record", file(), "--script", write_file("session", kSession)});
        EXPECT_EQ(sandbox.wait(), 0);
        sandbox.drain();
        printed_ = sandbox.output();
    }
    // A column of the analyser's, of the packets that a filter keeps.
    [[nodiscard]] std::string dissected(const std::string &filter, const std::string &field) const {
        Process program({"/bin/sh", "-c",
                         "exec tshark -n -X lua_script:\"$3\" -r \"$0\" -Y \"$1\" -T fields -e \"$2\" "
                         "2>\"$0.errors\" | tr , '\\n'",
                         file(), filter, field, BRIDGE_DISSECTOR_DIR "/bridge.lua"},
                        {"HOME=" + tmpdir()});
        EXPECT_EQ(program.wait(60000), 0);
        program.drain();
        return program.output();
    }
    mutable std::string printed_;
};

TEST_F(RecordedSession, is_told_by_the_analyser) {
    record();
    EXPECT_EQ(dissected("bridge.kind == 0 && bridge.direction == 0", "bridge.event"),
              "BRIDGE_EVENT_REG_MSG\nBRIDGE_EVENT_ORI_DATA_REQUEST\nMAC_EVENT_NOTIFY_ADDR\nBRIDGE_EVENT_REG_MSG\n"
              "BRIDGE_EVENT_REG_MSG\n")
        << printed_;
    EXPECT_EQ(dissected("bridge.kind == 0 && bridge.direction == 1", "bridge.event"),
              "BRIDGE_EVEVT_SERVER_STAT\nBRIDGE_EVENT_BKUP_DATA_BEGIN\nBRIDGE_EVENT_BKUP_DATA_END\n"
              "BRIDGE_EVENT_SYNC_DATA_END\nMAC_EVENT_SYNC_DATA_BEGIN\nMAC_EVENT_SYNC_DATA_END\n"
              "MAC_EVENT_NOTIFY_ADDR\nMAC_EVENT_NOTIFY_ADDR\n")
        << printed_;
    EXPECT_EQ(dissected("bridge.kind == 3", "_ws.col.Info"), "connected\nclosed by the client\n");
    EXPECT_EQ(dissected("bridge.cut || bridge.rest || bridge.bad_count || bridge.unknown", "frame.number"), "");
}

TEST_F(RecordedSession, has_the_kernel_channel_and_the_tables) {
    record();
    const std::string kernel = dissected("bridge.kind == 2 && bridge.client == 1", "_ws.col.Info");
    EXPECT_EQ(kernel.find("kernel asked: family look-up\nkernel answers: family look-up\n"), 0U) << kernel;
    EXPECT_NE(kernel.find("asked: MAC_EVENT_CLIENT_FIND_FIRST\nkernel answers: MAC_EVENT_CLIENT_FIND_FIRST\n"),
              std::string::npos)
        << kernel;
    const std::string tables = dissected("bridge.table == 1 && bridge.start_value == 1", "_ws.col.Info");
    EXPECT_EQ(tables.find("start value of vlans: 0 bytes at 0x0\nstart value of vlans: "), 0U) << tables;
}

} // namespace
