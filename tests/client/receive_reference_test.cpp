// The roads of a message, which save work where hardly anything is to be done, beside their plain forms: the same
// handlers in the same order with the same bytes, the same lines and messages, whatever the handlers do in the middle.
#include "base/list.h"
#include "shared/delay_list.h"
#include "tests/client/receive_reference.h"
#include "tests/client/transport_fixture.h"
#include "tests/support/children.h"

#include <random>
#include <utility>

namespace {

namespace list = bri::list;
using test::ByteVec;
using test::operator+;

constexpr int kHandlers = 24;
constexpr unsigned kDeepest = 3; // events raised inside each other

// Of each way that a message may take. The last two share a place in the index of types.
constexpr unsigned kTypes[] = {BRIDGE_EVENT_SWITCHOVER_BEGIN,
                               VLAN_EVENT_CREATE_INDEX,
                               VLAN_EVENT_MODIFY_INTF_PVID,
                               VLAN_EVENT_SVI_MODIFY_UP_NUM,
                               L2TOP_EVENT_PORT_STATUS,
                               MVLAN_EVENT_NOTIFY_ENTRY,
                               VG_EVENT_MEM_VLAN,
                               MAC_EVENT_SYNC_DATA_BEGIN,
                               3 << 7 | 92};

class ReceiveReference : public test::Transport {
  protected:
    using Call = void (*)(uint32_t type, void *data, uint32_t len);

    ReceiveReference() { start("unit"); }
    ~ReceiveReference() override {
        test::faults::clear();
        bri::delay::clear();
    }

    // What can be seen of one run.
    struct Seen {
        std::vector<std::string> steps; // calls, results, lines
        ByteVec sent;
        ByteVec received;
        std::vector<uint16_t> versions; // of all VLANs, as this process knows them
        uint32_t delayed = 0;
        std::vector<std::string> jobs;
    };

    // Runs `what` on a client that is as good as new; every random step follows from the seed.
    template <class What> static Seen run(unsigned seed, Call call, What &&what) {
        renew(seed, call);
        peer_ = test::attach_pair();
        what(peer_);
        Seen seen;
        tick();
        seen.sent = peer_.read_now();
        seen.received = receive_buffer();
        seen.versions.assign(std::begin(g_vlan_private_version), std::end(g_vlan_private_version));
        seen.delayed = g_bri_msg_delay_num;
        for (const test::Job &job : loop().pending)
            seen.jobs.push_back(job.name);
        for (const test::LogLine &line : test::log_lines())
            steps_.push_back("line: " + line.text);
        seen.steps = std::exchange(steps_, {});
        return seen;
    }

    static void expect_same(const Seen &fast, const Seen &plain, unsigned seed) {
        EXPECT_EQ(fast.steps, plain.steps) << seed;
        EXPECT_EQ(fast.sent, plain.sent) << seed;
        EXPECT_EQ(fast.received, plain.received) << seed;
        EXPECT_EQ(fast.versions, plain.versions) << seed;
        EXPECT_EQ(fast.delayed, plain.delayed) << seed;
        EXPECT_EQ(fast.jobs, plain.jobs) << seed;
    }

    static unsigned pick(size_t below) { return static_cast<unsigned>(random_() % below); }
    static unsigned any_type() { return kTypes[pick(std::size(kTypes))]; }
    static event_set any_set() {
        event_set set{};
        for (const unsigned type : kTypes)
            if (pick(4) == 0)
                test::add_to(set, type);
        return set;
    }

    static void register_some(int count) {
        for (int index = 0; index < count; ++index) {
            const event_set set = any_set();
            bridge_client_reg_event(&set, kAll[pick(kHandlers)]);
        }
    }

  private:
    // Nodes live as long as their process.
    static void renew(unsigned seed, Call call) {
        static bri_list kept = {&kept, &kept};
        while (auto *node = list::first<bri_list>(ctx().handlers)) {
            list::unlink(*node);
            list::append(kept, *node);
        }
        ctx().event_set = {};
        random_.seed(seed);
        call_ = call;
        depth_ = 0;
        state() = {};
        state().sync_state = bri::client::kSyncEnded;
        std::memset(g_bri_clnt_dbg, 0, sizeof g_bri_clnt_dbg);
        std::memset(g_vlan_private_version, 0, sizeof g_vlan_private_version);
        for (vle *entry = g_vl_mng.entries; entry != g_vl_mng.entries + BRI_VLAN_ENTRIES; ++entry)
            entry->version = 0;
        std::memset(g_bglib_recvbuf, 0, BRI_BATCH_BUFFER_SIZE);
        bri::delay::clear();
        bridge_client_connect_reset();
        std::memset(bri::client::g_bglib_sendbuf, 0, BRI_BATCH_BUFFER_SIZE);
        while (auto *waiting = list::first<bri::client::Run>(ctx().cache))
            bri::client::drop_run(ctx(), *waiting);
        loop().pending.clear();
        test::clear_log();
    }

    static void note(const std::string &what) { steps_.push_back(what); }

    // What a handler may do: change the sets of any handler, raise events, send, reset, switch lines, role and delay on
    // and off, write to what was handed to it and to the tables.
    static void do_something(void *data, uint16_t len) {
        switch (pick(12)) {
        case 0: {
            const event_set set = any_set();
            note("registered " + std::to_string(bridge_client_reg_event(&set, kAll[pick(kHandlers)])));
            return;
        }
        case 1: {
            event_set set = any_set();
            note("withdrawn " + std::to_string(bridge_client_unreg_event(&set, kAll[pick(kHandlers)])));
            note(std::to_string(set.words[VLAN_EVENT_CREATE_INDEX >> 5]));
            return;
        }
        case 2:
            if (depth_ < kDeepest)
                call_(any_type(), nullptr, 0);
            return;
        case 3:
            note("sent " + std::to_string(send(pick(2) == 0 ? kPlain : kUrgent, {uint8_t(pick(256))})));
            return;
        case 4:
            g_bri_clnt_dbg[BRI_DBG_MSG] ^= 1;
            return;
        case 5:
            if (pick(8) == 0)
                bridge_client_connect_reset();
            return;
        case 6:
            if (pick(8) == 0)
                state().slave ^= 1;
            return;
        case 7:
            if (len != 0)
                std::memset(data, static_cast<int>(pick(256)), len);
            return;
        case 8:
            if (pick(8) == 0)
                bri::delay::set_interval(static_cast<int32_t>(pick(3)) - 1);
            return;
        case 9:
            g_bri_clnt_dbg[BRI_DBG_VLAN] ^= 1;
            return;
        case 10: // what a message of a VLAN is held against
            g_vlan_private_version[pick(BRI_VLAN_ENTRIES)] = static_cast<uint16_t>(pick(0x10000));
            g_vl_mng.entries[pick(BRI_VLAN_ENTRIES)].version = static_cast<uint16_t>(pick(4));
            return;
        default:
            return;
        }
    }

    template <int Number> static int handler(uint32_t type, void *data, uint16_t len) {
        std::string text = std::to_string(Number) + " behind " + std::to_string(test::log_lines().size()) +
                           " lines gets " + std::to_string(type) + ":";
        for (unsigned at = 0; at < len; ++at)
            text += " " + std::to_string(static_cast<const uint8_t *>(data)[at]);
        note(text);
        ++depth_;
        do_something(data, len);
        --depth_;
        return 0;
    }
    template <int... Number> static std::vector<bri_event_handler> all(std::integer_sequence<int, Number...>) {
        return {handler<Number>...};
    }
    static inline const std::vector<bri_event_handler> kAll = all(std::make_integer_sequence<int, kHandlers>());

    static inline std::mt19937 random_;
    static inline Call call_;
    static inline unsigned depth_;
    static inline std::vector<std::string> steps_;
    static inline test::Peer peer_;
};

// Handlers: few, many, with sets that few or many of them share.
TEST_F(ReceiveReference, handlers_are_called_as_by_a_walk_over_all_of_them) {
    for (unsigned seed = 1; seed <= test::scaled_histories(400); ++seed) {
        const auto calls = [seed](Call call) {
            return run(seed, call, [call](test::Peer &) {
                register_some(1 + static_cast<int>(pick(2 * kHandlers)));
                for (int count = 0; count < 30; ++count) {
                    ByteVec payload = test::pattern(pick(6), pick(100));
                    call(any_type(), payload.data(), static_cast<uint32_t>(payload.size()));
                }
            });
        };
        expect_same(calls(bridge_call_event_handlers), calls(reference::call_event_handlers), seed);
        if (HasFailure())
            return;
    }
}

class ReadJobReference : public ReceiveReference {
  protected:
    static test::Message any_message() {
        const unsigned kind = pick(16);
        if (kind == 0) // lines on or off
            return {DEBUG_EVENT_MSG, test::bytes_of(uint32_t{0}) + test::bytes_of(uint32_t{pick(2)})};
        if (kind == 1)
            return {DEBUG_EVENT_MSG_DELAY, test::bytes_of(uint32_t{0}) + test::bytes_of(uint32_t{3} * pick(2))};
        if (kind == 2)
            return {BRI_SUBMOD_QINQ << 7 | 1, {}};
        if (kind == 3)
            return {VLAN_EVENT_CREATE_RANGE, test::pattern(8708, pick(50))};
        if (kind == 4)
            return {VLAN_EVENT_SVI_MODIFY_UP_NUM, test::pattern(4)};
        return {any_type(), test::pattern(pick(40), pick(100))};
    }
    // Whole, cut, announcing more or less than there is, or ending in the middle.
    static ByteVec any_batch() {
        std::vector<test::Message> messages;
        for (unsigned left = pick(12), size = 0; left != 0; --left) {
            messages.push_back(any_message());
            size += 8 + static_cast<unsigned>(messages.back().payload.size());
            if (size > BRI_BATCH_MSG_MAX)
                messages.pop_back();
        }
        const auto count = static_cast<uint32_t>(messages.size());
        ByteVec bytes = test::batch_of(messages, {}, pick(8) == 0 ? count + pick(3) - 1 : count);
        if (pick(8) == 0 && bytes.size() > 12) // a length inside
            bytes[8 + pick(bytes.size() - 8)] ^= static_cast<uint8_t>(pick(256));
        return bytes;
    }
    static Seen read_batches(unsigned seed, int (*read_job)(void *), Call call) {
        return run(seed, call, [read_job](test::Peer &peer) {
            register_some(1 + static_cast<int>(pick(kHandlers)));
            bool last = false;
            for (int count = 0; count < 8 && !last && ctx().sock > 0; ++count) {
                ByteVec bytes = any_batch();
                last = pick(16) == 0;
                if (last)
                    bytes.resize(pick(bytes.size() + 1));
                peer.write(bytes);
                if (last)
                    peer.close();
                const test::faults::Pause pause;
                const uint8_t flag = g_bri_clnt_dbg[BRI_DBG_MSG];
                if (last)
                    g_bri_clnt_dbg[BRI_DBG_MSG] = 0; // the lines of a read that fails are another test's
                read_job(nullptr);
                if (last)
                    g_bri_clnt_dbg[BRI_DBG_MSG] = flag;
            }
        });
    }
};

TEST_F(ReadJobReference, batches_are_taken_as_by_the_plain_form) {
    for (unsigned seed = 1; seed <= test::scaled_histories(400); ++seed) {
        expect_same(read_batches(seed, bri::client::read_job, bridge_call_event_handlers),
                    read_batches(seed, reference::read_job, bridge_call_event_handlers), seed);
        if (HasFailure())
            return;
    }
}

} // namespace
