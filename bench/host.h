// The host process of a benchmark: a started client with tables of its own, whose server is the other end of a socket
// pair. A program is one file and includes this once.
#pragma once

#include "client/state.h"

#include <bridge/bridge.h>

#include <cstdlib>
#include <string>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {

// Tables that nothing else on this machine has.
inline void choose_tables() {
    setenv("VSDID", std::to_string(getpid()).c_str(), 1);
}

// They go at once; the mappings last as long as the process.
inline void remove_tables() {
    for (const uint32_t base : {0x11110001U, 0x22220001U, 0x33330001U, 0x5A5B7C3DU}) {
        const auto key = static_cast<key_t>(base + static_cast<uint32_t>(getpid()));
        shmctl(shmget(key, 0, 0), IPC_RMID, nullptr);
        semctl(semget(key, 0, 0), 0, IPC_RMID);
    }
}

// Both ends of the connection: ours, and the server's.
inline int g_near = -1;
inline int g_far = -1;

// Starts the client; events pass to its handlers from here on.
inline bool connect_to_pair() {
    int ends[2];
    choose_tables();
    if (bridge_agent_init("bench", reinterpret_cast<qv_thread_master *>(&g_near)) != 0 ||
        socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0)
        return false;
    remove_tables();
    g_near = g_bridge_client->sock = ends[0];
    g_far = ends[1];
    g_bridge_client->connected = 1;
    bri_msg_hdr synchronised{BRIDGE_EVENT_BKUP_DATA_END, 0};
    bridge_client_msg_dspch(&synchronised);
    return true;
}

// Registers a handler. That announces itself to the server, which is not measured: nothing is sent.
inline bool handle(const event_set &set, bri_event_handler handler) {
    g_bridge_client->connected = 0;
    const bool registered = bridge_client_reg_event(&set, handler) == 0;
    g_bridge_client->connected = 1;
    return registered;
}

// Whether a call moved all it should.
inline bool exchange(ssize_t done, size_t size) {
    return done == static_cast<ssize_t>(size);
}

} // namespace bench
