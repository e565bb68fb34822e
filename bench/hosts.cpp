// What a host's process bears: the loop, its memory, allocations, and the host layer.
#include "bench/bare.h"
#include "bench/client.h"
#include "bench/measure.h"
#include "bench/pair.h"
#include "bench/tables.h"

#include <bridge/host.h>

#include <cstdio>
#include <filesystem>
#include <malloc.h>
#include <poll.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <vector>

namespace bench {

namespace {

uint64_t g_allocations;

// --- the platform's own loop: a host's processor time for a batch of one event, which comes while it waits

constexpr uint32_t kEvents = 2000;
double g_loop_start;

int take_from_loop(uint32_t, void *, uint16_t) {
    if (++g_handled == 1)
        g_loop_start = processor_seconds();
    if (g_handled == kEvents)
        qv_thread_master_stop(g_bridge_client->master);
    return 0;
}

// The connect job of the start is not kept: the connection is there already.
double run_loop(int fd) {
    qv_thread_master *master = qv_thread_master_create();
    choose_tables();
    const bool started = bridge_agent_init("bench", master) == 0;
    remove_tables();
    need(started && handle(only(kEvent), take_from_loop), "the start");
    g_jobs.forwarded = true;
    bridge_client_thread_event(BRI_CLNT_EVT_MSG_TIMER);
    adopt_connection(fd, -1);
    need(qv_thread_master_run(master) == 0, "the loop");
    return processor_seconds() - g_loop_start;
}

// The system calls of a loop that waits by poll(), and nothing else.
double run_bare_loop(int fd) {
    static uint8_t buffer[BRI_BATCH_BUFFER_SIZE];
    while (g_handled != kEvents) {
        pollfd readable{fd, POLLIN, 0};
        need(poll(&readable, 1, 50) >= 0, "the wait");
        if (readable.revents == 0)
            continue;
        need(bare_receive(fd, buffer, [](uint32_t, void *, uint16_t) { return 0; }) == 1, "the batch");
        if (++g_handled == 1)
            g_loop_start = processor_seconds();
    }
    return processor_seconds() - g_loop_start;
}

// The host waits each time, and its processor is the sender's: it is not woken from another one.
double loop_by(double (*run)(int fd)) {
    share_a_processor();
    int ends[2];
    int told[2];
    need(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0 && pipe(told) == 0, "the socket pair");
    const pid_t host = fork();
    if (host == 0) {
        const double seconds = run(ends[0]);
        _exit(exchange(write(told[1], &seconds, sizeof seconds), sizeof seconds) ? 0 : 1);
    }
    const std::string event = batch_of(1, 24);
    for (uint32_t sent = 0; sent < kEvents; ++sent) {
        usleep(20);
        need(put(ends[1], event), "the socket");
    }
    double seconds = 0;
    need(exchange(read(told[0], &seconds, sizeof seconds), sizeof seconds), "the host");
    waitpid(host, nullptr, 0);
    return 1e9 * seconds / (kEvents - 1);
}
double loop(unsigned) {
    return loop_by(run_loop);
}
double loop_bare(unsigned) {
    return loop_by(run_bare_loop);
}

// --- private memory of a started host, more than that of a process with nothing but the loop; in bytes. A process's
// stack begins anywhere in a page, so that it needs a page more or less: of some processes the median counts.

// A server that takes one connection and sends it an event. Gone with this.
class Server {
  public:
    Server() : directory_(std::filesystem::temp_directory_path() / ("bridge-bench." + std::to_string(getpid()))) {
        std::filesystem::create_directories(directory_ / "bridge");
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        (directory_ / "bridge/.server_socket").string().copy(address.sun_path, sizeof address.sun_path - 1);
        listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        need(bind(listener_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
                 listen(listener_, 1) == 0,
             "the server");
        setenv("TMPDIR", directory_.c_str(), 1);
    }
    ~Server() {
        close(listener_);
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
    }
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    void serve_one() const {
        const int connection = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        need(put(connection, batch_of(1, 0, BRIDGE_EVENT_BKUP_DATA_END)) && put(connection, batch_of(1, 24)),
             "the connection");
        close(std::exchange(g_far, connection)); // this one until the next, or the end
    }

  private:
    std::filesystem::path directory_;
    int listener_ = -1;
};

double private_bytes(const char *program, const Server *server) {
    const std::filesystem::path path = std::filesystem::read_symlink("/proc/self/exe").parent_path() / program;
    FILE *told = popen((path.string() + " 100").c_str(), "r");
    need(told != nullptr, program);
    if (server != nullptr)
        server->serve_one();
    double bytes = -1;
    need(std::fscanf(told, "%lf", &bytes) == 1 && pclose(told) == 0 && bytes > 0, program);
    return bytes;
}

double memory(unsigned) {
    constexpr unsigned kProcesses = 9;
    choose_tables();
    const Server server;
    std::vector<double> idle;
    std::vector<double> client;
    for (unsigned process = 0; process < kProcesses; ++process) {
        idle.push_back(private_bytes("memory_idle", nullptr));
        client.push_back(private_bytes("memory_client", &server));
    }
    remove_tables();
    return median(client) - median(idle);
}

// --- allocations while messages come and go

double allocations(unsigned) {
    constexpr uint32_t kMessages = 300;
    constexpr uint32_t kPayload = 24;
    const std::string batch = batch_of(kMessages, kPayload);
    need(connect_to_pair() && handle_by(8, 8), "the start");
    const uint64_t before = g_allocations;
    for (unsigned round = 0; round < 100; ++round) {
        for (uint32_t sent = 0; sent < kMessages; ++sent)
            bridge_client_send_message(kBytes, kPayload, kEvent);
        flush();
        need(drain(batch.size()) && put(g_far, batch), "the exchange");
        read_batch();
    }
    need(g_handled == uint64_t{8} * 100 * kMessages, "the dispatch");
    return static_cast<double>(g_allocations - before);
}

// --- the host layer

void on_record(const void *record, uint16_t, void *) {
    g_handled += static_cast<const vl_evt_intf_pvid_rec *>(record)->pvid;
}

void start_layer(uint32_t mac_capacity, uint32_t flags) {
    static const bridge_host_handler rows[] = {{kEvent, sizeof(vl_evt_intf_pvid_rec), on_record, nullptr}};
    bridge_host_config config{};
    config.size = sizeof config;
    config.handlers = rows;
    config.handler_count = 1;
    config.flags = flags;
    config.mac_capacity = mac_capacity;
    g_bridge_client->connected = 0; // so that the registration is not sent
    need(bridge_host_start(&config) == 0, "the layer");
    g_bridge_client->connected = 1;
}

// An event that lies at this offset of a word.
double layer(unsigned offset) {
    alignas(8) static uint8_t bytes[64];
    need(connect_to_pair(), "the start");
    start_layer(0, 0);
    const bri_msg_hdr header{kEvent, sizeof(vl_evt_intf_pvid_rec)};
    const vl_evt_intf_pvid_rec record{3, 1, 0};
    std::memcpy(bytes + offset, &header, sizeof header);
    std::memcpy(bytes + offset + sizeof header, &record, sizeof record);
    const double time = per_call(1, [=] { bridge_client_msg_dspch(reinterpret_cast<bri_msg_hdr *>(bytes + offset)); });
    need(g_handled != 0, "the layer");
    return time;
}

// Bytes of the heap for one row, the sweep of VLANs and ports, and room for `size` addresses.
double layer_heap(unsigned size) {
    need(connect_to_pair(), "the start");
    const struct mallinfo2 before = mallinfo2();
    start_layer(size, BRIDGE_HOST_SWEEP_VLANS | BRIDGE_HOST_SWEEP_PORTS);
    const struct mallinfo2 after = mallinfo2();
    return static_cast<double>(after.uordblks + after.hblkhd - before.uordblks - before.hblkhd);
}

constexpr Measurement kMeasurements[] = {
    {"loop", loop},   {"loop_bare", loop_bare},   {"memory", memory}, {"allocations", allocations},
    {"layer", layer}, {"layer_heap", layer_heap},
};

} // namespace

std::span<const Measurement> hosts() {
    return kMeasurements;
}

} // namespace bench

// --- every allocation of this process and its libraries is counted

extern "C" {

void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);

void *malloc(size_t size) {
    ++bench::g_allocations;
    return __libc_malloc(size);
}
void *calloc(size_t count, size_t size) {
    ++bench::g_allocations;
    return __libc_calloc(count, size);
}
void *realloc(void *block, size_t size) {
    ++bench::g_allocations;
    return __libc_realloc(block, size);
}

} // extern "C"
