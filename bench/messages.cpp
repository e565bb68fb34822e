// The roads of a message within one process, whose far end of the connection is in its own hands.
#include "bench/bare.h"
#include "bench/client.h"
#include "bench/measure.h"
#include "bench/tables.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <vector>

namespace bench {
namespace {

constexpr uint32_t kPayload = 24;
constexpr uint32_t kMessage = sizeof(bri_msg_hdr) + kPayload;
constexpr uint32_t kFull = BRI_BATCH_MSG_MAX / kMessage;
constexpr unsigned kBatches = 8; // that a socket takes at once

void start() {
    need(connect_to_pair(), "the start");
}

// --- send

void append(uint32_t messages) {
    for (uint32_t count = 0; count < messages; ++count)
        bridge_client_send_message(kBytes, kPayload, kEvent);
}

// A full batch, written by nobody: the flush is not measured.
double append_library(unsigned) {
    start();
    bool begun = false;
    return prepared(
        kFull,
        [&] {
            if (std::exchange(begun, true)) {
                flush();
                need(drain(sizeof(bri_batch_hdr) + kFull * kMessage), "the batch");
            }
        },
        [] { append(kFull); });
}

double append_bare(unsigned) {
    alignas(8) static uint8_t batch[BRI_BATCH_BUFFER_SIZE];
    return prepared(
        kFull, [] { std::memset(batch, 0, sizeof(bri_batch_hdr)); },
        [] {
            for (uint32_t count = 0; count < kFull; ++count)
                bare_append(batch, kEvent, kBytes, kPayload);
        });
}

// --- receive: full batches, or with `size` messages, of 64 bytes each, to one handler

constexpr uint32_t kReceived = 64;
constexpr uint32_t kFullReceived = BRI_BATCH_MSG_MAX / (sizeof(bri_msg_hdr) + kReceived);
static_assert(kFullReceived == 142);

void put_batches(const std::string &bytes) {
    for (unsigned count = 0; count < kBatches; ++count)
        need(put(g_far, bytes), "the socket");
}

double receive_library(unsigned size) {
    const uint32_t messages = size != 0 ? size : kFullReceived;
    start();
    handle_by(1, 1);
    const std::string bytes = batch_of(messages, kReceived);
    return prepared(
        kBatches * messages, [&] { put_batches(bytes); },
        [] {
            for (unsigned count = 0; count < kBatches; ++count)
                read_batch();
        });
}

double receive_bare(unsigned size) {
    const uint32_t messages = size != 0 ? size : kFullReceived;
    start();
    static uint8_t buffer[BRI_BATCH_BUFFER_SIZE];
    const std::string bytes = batch_of(messages, kReceived);
    return prepared(
        kBatches * messages, [&] { put_batches(bytes); },
        [] {
            for (unsigned count = 0; count < kBatches; ++count)
                bare_receive(g_near, buffer, counting_handlers()[0]);
        });
}

// --- an event to handlers: the walk alone, and from the message on

struct Message {
    bri_msg_hdr header{kEvent, kPayload};
    uint8_t payload[kPayload] = {};
};

template <class Call> double dispatch_by(unsigned handlers, unsigned interested, Call call) {
    start();
    need(handle_by(handlers, interested), "the handlers");
    const double time = per_call(1, call);
    need(g_handled % interested == 0 && g_handled != 0, "the dispatch");
    return time;
}
double dispatch(unsigned handlers, unsigned interested) {
    static Message message;
    return dispatch_by(handlers, interested, [] { bridge_call_event_handlers(kEvent, message.payload, kPayload); });
}
double dispatch_all(unsigned size) {
    return dispatch(size, size);
}
double dispatch_one(unsigned size) {
    return dispatch(size, 1);
}
double dispatch_message(unsigned size) {
    static Message message;
    return dispatch_by(size, size, [] { bridge_client_msg_dspch(&message.header); });
}

double dispatch_bare(unsigned size) {
    static Message message;
    static std::vector<bare_handler> list(size);
    for (unsigned index = 0; index < size; ++index)
        list[index] = {index + 1 < size ? &list[index + 1] : nullptr, only(kEvent), counting_handlers()[index]};
    return per_call(1, [] { bare_dispatch(list.data(), &message.header); });
}

// --- the cache: runs that the socket did not take

void fill_socket() {
    static const std::array<char, 4096> kFiller{};
    while (send(g_near, kFiller.data(), kFiller.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0)
        ;
}
void empty_socket() {
    static char sink[65536];
    while (recv(g_far, sink, sizeof sink, MSG_DONTWAIT) > 0)
        ;
}

// So many runs with so many messages each wait behind a full socket.
void fill_cache(unsigned runs, uint32_t messages) {
    fill_socket();
    for (unsigned run = 0; run < runs; ++run) {
        append(messages);
        flush();
    }
    need(g_bridge_client->cache_cnt == runs, "the cache");
}

// Per run: what the socket takes at once leaves in one flush.
double drain_library(unsigned runs, uint32_t messages) {
    start();
    return prepared(
        runs,
        [=] {
            empty_socket();
            fill_cache(runs, messages);
            empty_socket();
        },
        [] {
            flush();
            need(g_bridge_client->cache_cnt == 0, "the drain");
        });
}

double drain_bare(unsigned runs, uint32_t messages) {
    start();
    const std::string bytes = batch_of(messages, kPayload);
    const std::vector<std::string> entries(runs, bytes);
    return prepared(runs, empty_socket, [&] {
        for (const std::string &entry : entries)
            need(exchange(send(g_near, entry.data(), entry.size(), MSG_DONTWAIT | MSG_NOSIGNAL), entry.size()),
                 "the socket");
    });
}

constexpr unsigned kFullRuns = 12; // that a socket takes at once
constexpr unsigned kShortRuns = 256;

double drain_full(unsigned) {
    return drain_library(kFullRuns, kFull);
}
double drain_full_bare(unsigned) {
    return drain_bare(kFullRuns, kFull);
}
double drain_short(unsigned) {
    return drain_library(kShortRuns, 1);
}
double drain_short_bare(unsigned) {
    return drain_bare(kShortRuns, 1);
}

// What a run costs to be kept while `size` runs wait already.
double cache_library(unsigned size) {
    constexpr unsigned kRuns = 64;
    start();
    g_bridge_client->cache_max = size + kRuns;
    return prepared(
        kRuns,
        [=] {
            while (g_bridge_client->cache_cnt != 0) {
                empty_socket();
                flush();
            }
            empty_socket();
            fill_cache(size, 1);
        },
        [] {
            for (unsigned run = 0; run < kRuns; ++run) {
                append(1);
                flush();
            }
        });
}

// --- time to empty a cache of 10,240 full runs, in seconds, by a reader that takes 5 us for a batch and sends an event
// every 5 ms, also while a batch has come in part. A tenth of the runs is measured; they leave at a steady pace.

constexpr unsigned kRunsMeasured = 1024;
constexpr double kWhole = 10240.0 / kRunsMeasured;
constexpr double kFlushSeconds = 0.05;
constexpr double kEventSeconds = 0.005;

double now() {
    return seconds_of(CLOCK_MONOTONIC);
}

constexpr size_t kFullRun = sizeof(bri_batch_hdr) + kFull * kMessage;

[[noreturn]] void read_slowly() {
    static uint8_t run[kFullRun];
    const std::string event = batch_of(1, kPayload);
    close(g_near);
    empty_socket();
    size_t came = 0;
    double next = now();
    for (bool open = true; open;) {
        pollfd readable{g_far, POLLIN, 0};
        if (poll(&readable, 1, 1) > 0) {
            const ssize_t got = recv(g_far, run + came, sizeof run - came, MSG_DONTWAIT);
            open = got > 0;
            came += open ? static_cast<size_t>(got) : 0;
        }
        if (came == sizeof run) {
            came = 0;
            for (const double start = now(); now() - start < 5e-6;)
                ;
        }
        if (now() < next)
            continue;
        static_cast<void>(send(g_far, event.data(), event.size(), MSG_DONTWAIT | MSG_NOSIGNAL));
        next = now() + kEventSeconds;
    }
    _exit(0);
}

// The host's loop, until the cache is empty: what has come is read, the timer flushes.
double run_until_empty() {
    const double start = now();
    double next = start + kFlushSeconds;
    while (g_bridge_client->cache_cnt != 0) {
        const double left = next - now();
        pollfd readable{g_near, POLLIN, 0};
        if (left > 0 && poll(&readable, 1, static_cast<int>(left * 1000) + 1) > 0)
            read_batch();
        if (now() >= next) {
            flush();
            next = now() + kFlushSeconds;
        }
    }
    return now() - start;
}

double empty_cache(unsigned) {
    start();
    handle_by(1, 1);
    for (fill_socket(); g_bridge_client->cache_cnt < kRunsMeasured; flush())
        append(kFull);
    empty_socket(); // so that the reader begins at a batch
    const pid_t reader = fork();
    if (reader == 0)
        read_slowly();
    close(g_far);
    const double seconds = run_until_empty();
    shutdown(g_near, SHUT_RDWR);
    waitpid(reader, nullptr, 0);
    return seconds * kWhole;
}

// One socket buffer for each time the timer comes.
double empty_by_timer(unsigned) {
    start();
    const std::string run = batch_of(kFull, kPayload);
    unsigned taken = 0;
    while (send(g_near, run.data(), run.size(), MSG_DONTWAIT | MSG_NOSIGNAL) == static_cast<ssize_t>(run.size()))
        ++taken;
    return 10240.0 / taken * kFlushSeconds;
}

constexpr Measurement kMeasurements[] = {
    {"append", append_library},
    {"append_bare", append_bare},
    {"receive", receive_library},
    {"receive_bare", receive_bare},
    {"dispatch", dispatch_all},
    {"dispatch_one", dispatch_one},
    {"dispatch_message", dispatch_message},
    {"dispatch_bare", dispatch_bare},
    {"drain_full", drain_full},
    {"drain_full_bare", drain_full_bare},
    {"drain_short", drain_short},
    {"drain_short_bare", drain_short_bare},
    {"cache", cache_library},
    {"empty_cache", empty_cache},
    {"empty_by_timer", empty_by_timer},
};

} // namespace

std::span<const Measurement> messages() {
    return kMeasurements;
}

} // namespace bench
