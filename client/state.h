// Process-wide state of the client runtime beside the context, and what the files of client/ offer each other.
#pragma once

#include "base/bytes.h"

#include <bridge/client.h>
#include <bridge/services.h>

#include <cstdint>

namespace bri::client {

// Which of the server's data this process has seen, and its role. Zeroed at the start of every bridge_agent_init.
enum SyncState : uint32_t { kSyncNone, kSyncBegun, kSyncEnded };
enum OridataState : uint32_t { kOridataNone, kOridataRequested, kOridataSent };
enum SwitchoverState : uint32_t { kSwitchoverNone, kSwitchoverBegun, kSwitchoverEnded };

struct State {
    uint8_t slave;             // 1 while the server reports this process as slave
    uint32_t sync_state;       // SyncState: the server's backup data
    uint32_t oridata_req_set;  // bit n: origin data of submodule n was requested; bit 20: all of it
    uint32_t oridata_state;    // OridataState
    uint32_t switchover_state; // SwitchoverState
    bri_business_callback business[BRI_BUSINESS_TYPES];
};

extern State g_state; // client/context.cpp

// The client name for log lines; empty before initialisation.
[[nodiscard]] inline const char *name() {
    return g_bridge_client != nullptr ? g_bridge_client->name : "";
}

// False before initialisation, with the line of every callback setter. client/context.cpp
[[nodiscard]] bool can_set_callbacks();

// Calls every function of a callback list in order, null ones skipped. A function may append others, which are called
// too; one that is appended again on the way is not, so that the walk ends. client/context.cpp
void run_callbacks(bri_list &callbacks);

// Jobs of the host's loop (connect_job.cpp, receive.cpp, send_batch.cpp), each with the context as argument (or null).
// Results are ignored by the loop.
int connect_job(void *arg);
int read_job(void *arg);
int flush_job(void *arg);

// client/handlers.cpp: the full registration of a new connection. Clears the context's `fresh`.
void send_full_registration();

// client/business.cpp: the server's question about a port, answered whatever it looks like.
void on_swport_prejudge(MutableBytes request);

// client/origin_data.cpp: replays or asks for the origin data that was requested, and marks it sent.
void run_requested_oridata();

} // namespace bri::client
