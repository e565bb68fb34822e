// The two roads of a message beside the socket's own limit, in one run: the same bytes written and read with bare
// system calls. A batch holds kMessages messages; all times are per batch.
//
//   send      append every message, flush, take the bytes out at the far end
//   receive   put a batch in at the far end, run the read job: read, split, dispatch to 1, 8 or 64 handlers
#include "bench/host.h"
#include "bench/ratios.h"

#include <cstring>
#include <utility>

namespace {

using namespace bench;

constexpr uint32_t kMessages = 64;
constexpr uint32_t kPayload = 24;
static_assert(kMessages == 64 && kPayload == 24, "as the title says");
constexpr uint32_t kBytes = kMessages * (sizeof(bri_msg_hdr) + kPayload);
constexpr uint32_t kType = VLAN_EVENT_MODIFY_INTF_PVID; // not urgent; handed to the handlers as it is
constexpr int kMostHandlers = 64;

uint64_t g_handled;
uint8_t g_wire[sizeof(bri_batch_hdr) + kBytes];

// Handlers are told apart by their address.
template <int N> int handler(uint32_t, void *, uint16_t) {
    g_handled += 1;
    return N;
}

template <int... N> const bri_event_handler *handlers_of(std::integer_sequence<int, N...>) {
    static const bri_event_handler all[] = {handler<N>...};
    return all;
}

const bri_event_handler *const g_handlers = handlers_of(std::make_integer_sequence<int, kMostHandlers>());

bool drain(size_t size) {
    static uint8_t sink[sizeof g_wire];
    return exchange(recv(g_far, sink, size, MSG_WAITALL), size);
}

void build_wire() {
    const bri_batch_hdr batch{kBytes, kMessages};
    std::memcpy(g_wire, &batch, sizeof batch);
    for (uint32_t at = sizeof batch; at < sizeof g_wire; at += sizeof(bri_msg_hdr) + kPayload) {
        const bri_msg_hdr header{kType, kPayload};
        std::memcpy(g_wire + at, &header, sizeof header);
    }
}

void handlers(int64_t wanted) {
    event_set set = {};
    set.words[kType >> 5] = 1U << (kType & 31U);
    for (int index = 0; index < kMostHandlers; ++index) {
        event_set all;
        std::memset(&all, 0xFF, sizeof all);
        bridge_client_unreg_event(&all, g_handlers[index]);
    }
    for (int64_t index = 0; index < wanted; ++index)
        handle(set, g_handlers[index]);
}

// Runs one exchange of a batch after the other; a failed one ends the benchmark with an error.
template <class Fn> void each_batch(benchmark::State &state, Fn &&fn) {
    for (auto _ : state)
        if (!fn()) {
            state.SkipWithError("an exchange failed");
            break;
        }
    state.counters["messages/s"] =
        benchmark::Counter(static_cast<double>(state.iterations() * kMessages), benchmark::Counter::kIsRate);
}

void raw_send(benchmark::State &state) {
    each_batch(state, [] {
        return exchange(send(g_near, g_wire, sizeof g_wire, MSG_DONTWAIT | MSG_NOSIGNAL), sizeof g_wire) &&
               drain(sizeof g_wire);
    });
}

void send_append_flush(benchmark::State &state) {
    const uint8_t payload[kPayload] = {};
    each_batch(state, [&] {
        for (uint32_t count = 0; count < kMessages; ++count)
            if (bridge_client_send_message(payload, sizeof payload, kType) != 0)
                return false;
        bri::client::flush_job(g_bridge_client);
        return drain(sizeof g_wire);
    });
}

void raw_receive(benchmark::State &state) {
    static uint8_t buffer[sizeof g_wire];
    each_batch(state, [] {
        return exchange(send(g_far, g_wire, sizeof g_wire, MSG_NOSIGNAL), sizeof g_wire) &&
               exchange(read(g_near, buffer, sizeof(bri_batch_hdr)), sizeof(bri_batch_hdr)) &&
               exchange(read(g_near, buffer, kBytes), kBytes);
    });
}

void receive_split_dispatch(benchmark::State &state) {
    handlers(state.range(0));
    const auto calls = static_cast<uint64_t>(state.range(0)) * kMessages;
    each_batch(state, [&] {
        const uint64_t before = g_handled;
        return exchange(send(g_far, g_wire, sizeof g_wire, MSG_NOSIGNAL), sizeof g_wire) &&
               bri::client::read_job(g_bridge_client) == 0 && g_handled - before == calls;
    });
}

BENCHMARK(raw_send)->Apply(repeated);
BENCHMARK(send_append_flush)->Apply(repeated);
BENCHMARK(raw_receive)->Apply(repeated);
BENCHMARK(receive_split_dispatch)->Arg(1)->Arg(8)->Arg(64)->Apply(repeated);

constexpr Pair kPairs[] = {{"send_append_flush", "raw_send"},
                           {"receive_split_dispatch/1", "raw_receive"},
                           {"receive_split_dispatch/8", "raw_receive"},
                           {"receive_split_dispatch/64", "raw_receive"}};

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv) || !connect_to_pair())
        return EXIT_FAILURE;
    build_wire();
    return run("Messages, per batch of 64 with 24 bytes each", kPairs);
}
