// Bytes of the server: whatever comes over the socket goes through the read job, the splitter and dispatch into every
// subsystem and the handlers.
//
// The first byte of an input chooses the switches below; the rest is what the server writes before it goes away.
#include "client/state.h"
#include "client/transport.h"
#include "tests/support/log_sink.h"
#include "tests/support/loop.h"

#include <bridge/bridge.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

enum Switch : uint8_t { kDebug = 1, kSlave = 2, kNotSynchronised = 4 };

constexpr size_t kMostBytes = 64 * 1024; // fits into the socket's buffer

volatile uint8_t g_seen;

// Reads the whole payload, as a host may.
int look_at(uint32_t, void *data, uint16_t len) {
    const auto *bytes = static_cast<const uint8_t *>(data);
    for (uint16_t at = 0; bytes != nullptr && at < len; ++at)
        g_seen = bytes[at];
    return 0;
}

int look_at_request(void *request, void *reply) {
    if (request != nullptr)
        g_seen = *static_cast<const uint8_t *>(request);
    if (reply != nullptr)
        std::memset(reply, 1, 4);
    return 0;
}

void remove_tables() {
    for (const uint32_t base : {0x11110001U, 0x22220001U, 0x33330001U, 0x5A5B7C3DU}) {
        const auto key = static_cast<key_t>(base + static_cast<uint32_t>(getpid()));
        shmctl(shmget(key, 0, 0), IPC_RMID, nullptr);
        semctl(semget(key, 0, 0), 0, IPC_RMID);
    }
}

bool start() {
    setenv("VSDID", std::to_string(getpid()).c_str(), 1);
    setenv("TMPDIR", "/nonexistent", 1);
    if (bridge_agent_init("fuzz", test::Loop::get().master()) != 0)
        return false;
    remove_tables();
    event_set all;
    std::memset(&all, 0xFF, sizeof all);
    bridge_client_reg_event(&all, look_at);
    for (uint32_t type = 0; type < BRI_BUSINESS_TYPES; ++type)
        bridge_agent_set_business_callback(type, look_at_request);
    return true;
}

// The next input finds the client as this one did.
void forget() {
    std::memset(g_bri_clnt_dbg, 0, sizeof g_bri_clnt_dbg);
    while (g_bri_msg_delay_num != 0 && test::Loop::get().find("msg-delay-timer") != nullptr)
        test::Loop::get().run("msg-delay-timer");
    bridge_client_connect_reset();
    bri_list &cache = g_bridge_client->cache;
    while (cache.next != &cache)
        bri::client::drop_run(*g_bridge_client, *reinterpret_cast<bri::client::Run *>(cache.next));
    test::Loop::get().pending.clear();
    test::clear_log();
}

void prepare(uint8_t switches) {
    bri::client::g_state.slave = (switches & kSlave) != 0 ? 1 : 0;
    bri::client::g_state.sync_state =
        (switches & kNotSynchronised) != 0 ? bri::client::kSyncNone : bri::client::kSyncEnded;
    std::memset(g_bri_clnt_dbg, (switches & kDebug) != 0 ? 1 : 0, BRI_DBG_DELAY);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const bool started = start();
    int ends[2];
    if (!started)
        std::abort();
    if (size < 1 || size > kMostBytes || socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0)
        return -1;
    prepare(data[0]);
    if (write(ends[1], data + 1, size - 1) != static_cast<ssize_t>(size - 1))
        std::abort();
    shutdown(ends[1], SHUT_WR); // what the client sends meanwhile is taken and lost
    g_bridge_client->sock = ends[0];
    g_bridge_client->connected = 1;
    while (g_bridge_client->sock == ends[0])
        bri::client::read_job(g_bridge_client);
    close(ends[1]);
    forget();
    return 0;
}
