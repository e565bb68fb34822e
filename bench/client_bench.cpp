// The two roads of a message beside the socket's own limit, in one run: the same bytes written and read with bare
// system calls. A batch holds kMessages messages; all times are per batch.
//
//   send      append every message, flush, take the bytes out at the far end
//   receive   put a batch in at the far end, run the read job: read, split, dispatch to 1, 8 or 64 handlers
#include "client/state.h"

#include <bridge/bridge.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr uint32_t kMessages = 64;
constexpr uint32_t kPayload = 24;
constexpr uint32_t kBytes = kMessages * (sizeof(bri_msg_hdr) + kPayload);
constexpr uint32_t kType = VLAN_EVENT_MODIFY_INTF_PVID; // not urgent; handed to the handlers as it is
constexpr int kMostHandlers = 64;

int g_near = -1;
int g_far = -1;
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

bool exchange(ssize_t done, size_t size) {
    return done == static_cast<ssize_t>(size);
}

bool drain(size_t size) {
    static uint8_t sink[sizeof g_wire];
    return exchange(recv(g_far, sink, size, MSG_WAITALL), size);
}

// The tables that start-up makes are this process's own and go at once; the mappings last as long as the process.
void remove_tables() {
    for (const uint32_t base : {0x11110001U, 0x22220001U, 0x33330001U, 0x5A5B7C3DU}) {
        const auto key = static_cast<key_t>(base + static_cast<uint32_t>(getpid()));
        shmctl(shmget(key, 0, 0), IPC_RMID, nullptr);
        semctl(semget(key, 0, 0), 0, IPC_RMID);
    }
}

void build_wire() {
    const bri_batch_hdr batch{kBytes, kMessages};
    std::memcpy(g_wire, &batch, sizeof batch);
    for (uint32_t at = sizeof batch; at < sizeof g_wire; at += sizeof(bri_msg_hdr) + kPayload) {
        const bri_msg_hdr header{kType, kPayload};
        std::memcpy(g_wire + at, &header, sizeof header);
    }
}

// A started client whose server socket is one end of a pair.
bool connect_to_pair() {
    int ends[2];
    setenv("VSDID", std::to_string(getpid()).c_str(), 1);
    if (bridge_agent_init("bench", reinterpret_cast<qv_thread_master *>(&g_near)) != 0 ||
        socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0)
        return false;
    remove_tables();
    build_wire();
    g_near = g_bridge_client->sock = ends[0];
    g_far = ends[1];
    g_bridge_client->connected = 1;
    bri_msg_hdr synchronised{BRIDGE_EVENT_BKUP_DATA_END, 0}; // from here on events pass to the handlers
    bridge_client_msg_dspch(&synchronised);
    return true;
}

void handlers(int64_t wanted) {
    event_set set = {};
    set.words[kType >> 5] = 1U << (kType & 31U);
    for (int index = 0; index < kMostHandlers; ++index) {
        event_set all;
        std::memset(&all, 0xFF, sizeof all);
        bridge_client_unreg_event(&all, g_handlers[index]);
    }
    // Registering announces itself to the server: those bytes are not measured.
    g_bridge_client->connected = 0;
    for (int64_t index = 0; index < wanted; ++index)
        bridge_client_reg_event(&set, g_handlers[index]);
    g_bridge_client->connected = 1;
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

// The shortest of the repetitions: what else runs on the machine only adds.
constexpr int kRepetitions = 5;
void repeated(benchmark::internal::Benchmark *bench) {
    bench->Repetitions(kRepetitions)->ReportAggregatesOnly(false)->MinTime(0.1);
}
BENCHMARK(raw_send)->Apply(repeated);
BENCHMARK(send_append_flush)->Apply(repeated);
BENCHMARK(raw_receive)->Apply(repeated);
BENCHMARK(receive_split_dispatch)->Arg(1)->Arg(8)->Arg(64)->Apply(repeated);

struct Pair {
    const char *what;
    const char *limit;
};
constexpr Pair kPairs[] = {{"send_append_flush", "raw_send"},
                           {"receive_split_dispatch/1", "raw_receive"},
                           {"receive_split_dispatch/8", "raw_receive"},
                           {"receive_split_dispatch/64", "raw_receive"}};

class Reporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &run : runs)
            if (run.run_type == Run::RT_Iteration && !run.error_occurred)
                keep(run.run_name.function_name + (run.run_name.args.empty() ? "" : "/" + run.run_name.args),
                     run.GetAdjustedCPUTime());
            else if (run.error_occurred)
                failed = true;
        ConsoleReporter::ReportRuns(runs);
    }
    // Every pair that ran.
    void print_ratios() const {
        std::printf("\nbatches of %u messages, %zu bytes; processor time, shortest of %d\n", kMessages, sizeof g_wire,
                    kRepetitions);
        for (const Pair &pair : kPairs) {
            const auto what = shortest_.find(pair.what);
            const auto limit = shortest_.find(pair.limit);
            if (what != shortest_.end() && limit != shortest_.end())
                std::printf("%-26s %9.0f ns = %5.2f x %s (%.0f ns)\n", pair.what, what->second,
                            what->second / limit->second, pair.limit, limit->second);
        }
    }
    bool failed = false;

  private:
    void keep(const std::string &name, double time) {
        const auto [entry, fresh] = shortest_.emplace(name, time);
        if (!fresh && time < entry->second)
            entry->second = time;
    }
    std::map<std::string, double> shortest_;
};

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv) || !connect_to_pair())
        return EXIT_FAILURE;
    Reporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.print_ratios();
    return reporter.failed ? EXIT_FAILURE : EXIT_SUCCESS;
}
