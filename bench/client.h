// The host process of a measurement: a started client with tables of its own, whose server is the other end of a
// socket pair. Only the public headers are used, so that the same program measures any build of the library. A program
// has one such process and links platform.cpp.
#pragma once

#include <bridge/bridge.h>

#include <qv_thread.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace bench {

// What is sent.
inline constexpr uint8_t kBytes[BRI_PAYLOAD_MAX] = {};

// What the client asked its loop for. It does not run by itself; see platform.cpp.
struct Jobs {
    qv_thread_func read, flush;
    bool forwarded; // to the platform's own loop instead
};
extern Jobs g_jobs;

// Both ends of the connection: ours, and the server's.
inline int g_near = -1;
inline int g_far = -1;

inline constexpr uint32_t kEvent = VLAN_EVENT_MODIFY_INTF_PVID;   // not urgent; handed to the handlers as it is
inline constexpr uint32_t kUrgentEvent = L2TOP_EVENT_PORT_STATUS; // goes at once, to the handlers too

// Tables that nothing else on this machine has. They go at once; the mappings last as long as the process.
inline void choose_tables() {
    setenv("VSDID", std::to_string(getpid()).c_str(), 1);
}
inline void remove_tables() {
    for (const uint32_t base : {0x11110001U, 0x22220001U, 0x33330001U, 0x5A5B7C3DU}) {
        const auto key = static_cast<key_t>(base + static_cast<uint32_t>(getpid()));
        shmctl(shmget(key, 0, 0), IPC_RMID, nullptr);
        semctl(semget(key, 0, 0), 0, IPC_RMID);
    }
}

inline void adopt_connection(int near, int far) {
    g_near = g_bridge_client->sock = near;
    g_far = far;
    bridge_client_thread_event(BRI_CLNT_EVT_READ);
    bri_msg_hdr synchronised{BRIDGE_EVENT_BKUP_DATA_END, 0};
    bridge_client_msg_dspch(&synchronised); // what it asks for is not sent yet
    g_bridge_client->connected = 1;
}

// Starts the client; events pass to its handlers from here on.
inline bool connect_to_pair() {
    int ends[2];
    choose_tables();
    const bool started = bridge_agent_init("bench", reinterpret_cast<qv_thread_master *>(&g_near)) == 0;
    remove_tables();
    if (!started || socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        return false;
    close(g_bridge_client->sock);
    adopt_connection(ends[0], ends[1]);
    return true;
}

// The client's own jobs, as the loop would run them.
inline void flush() {
    g_jobs.flush(g_bridge_client);
}
inline void read_batch() {
    g_jobs.read(g_bridge_client);
}

// Registers a handler. That announces itself to the server, which is not measured: nothing is sent.
inline bool handle(const event_set &set, bri_event_handler handler) {
    g_bridge_client->connected = 0;
    const bool registered = bridge_client_reg_event(&set, handler) == 0;
    g_bridge_client->connected = 1;
    return registered;
}

inline event_set only(uint32_t type) {
    event_set set{};
    set.words[type >> 5] = 1U << (type & 31U);
    return set;
}

// Handlers are told apart by their address.
inline uint64_t g_handled;
template <unsigned N> int counting_handler(uint32_t, void *, uint16_t) {
    g_handled += 1 + N / 65536; // no two are folded into one
    return static_cast<int>(N);
}
template <unsigned... N> const bri_event_handler *counting_handlers_of(std::integer_sequence<unsigned, N...>) {
    static const bri_event_handler all[] = {counting_handler<N>...};
    return all;
}
inline constexpr unsigned kMostHandlers = 1024;
inline const bri_event_handler *counting_handlers() {
    return counting_handlers_of(std::make_integer_sequence<unsigned, kMostHandlers>());
}

// `interested` of `count` handlers want the event, the others its neighbour; those that want it come last.
inline bool handle_by(unsigned count, unsigned interested) {
    const bri_event_handler *all = counting_handlers();
    bool done = true;
    for (unsigned index = 0; index < count; ++index)
        done = handle(only(index + interested < count ? kEvent + 1 : kEvent), all[index]) && done;
    return done;
}

// The bytes of a batch: so many messages with so many bytes each.
inline std::string batch_of(uint32_t messages, uint32_t payload, uint32_t type = kEvent) {
    const bri_batch_hdr batch{messages * (static_cast<uint32_t>(sizeof(bri_msg_hdr)) + payload), messages};
    const bri_msg_hdr header{type, payload};
    std::string bytes(reinterpret_cast<const char *>(&batch), sizeof batch);
    for (uint32_t count = 0; count < messages; ++count) {
        bytes.append(reinterpret_cast<const char *>(&header), sizeof header);
        bytes.append(payload, '\0');
    }
    return bytes;
}

// Whether a call moved all it should.
inline bool exchange(ssize_t done, size_t size) {
    return done == static_cast<ssize_t>(size);
}
inline bool put(int fd, const std::string &bytes) {
    return exchange(send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), bytes.size());
}
// Takes so many bytes out at the server's end.
inline bool drain(size_t size) {
    static char sink[65536];
    for (size_t left = size; left > 0;) {
        const ssize_t got = recv(g_far, sink, std::min(left, sizeof sink), 0);
        if (got <= 0)
            return false;
        left -= static_cast<size_t>(got);
    }
    return true;
}

} // namespace bench
