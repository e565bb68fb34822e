// The one client context of a process and its start-up.
#include "base/list.h"
#include "base/log.h"
#include "base/raii.h"
#include "base/text.h"
#include "client/state.h"
#include "client/transport.h"
#include "shared/debug.h"

#include <bridge/bridge.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

bri_clnt_ctx *g_bridge_client;

namespace bri::client {

State g_state;

namespace {

constexpr uint32_t kCacheMin = 10240;        // runs
constexpr uint64_t kMemoryPerShare = 204960; // kB of system memory
constexpr unsigned kRunsPerShareShift = 10;  // 1024 runs for each

// Zeros that were written take memory, those that the kernel gives on demand take none: the pages that lie wholly
// inside the buffer are given back. Most hosts never fill a batch.
uint8_t *make_buffer() {
    auto *buffer = static_cast<uint8_t *>(std::calloc(1, BRI_BATCH_BUFFER_SIZE));
    if (buffer == nullptr)
        return nullptr;
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto address = reinterpret_cast<uintptr_t>(buffer);
    const uintptr_t begin = (address + page - 1) / page * page;
    const uintptr_t end = (address + BRI_BATCH_BUFFER_SIZE) / page * page;
    if (end > begin)
        madvise(buffer + (begin - address), end - begin, MADV_DONTNEED);
    return buffer;
}

void release_memory() {
    debug::forget(g_bridge_client);
    std::free(std::exchange(g_bridge_client, nullptr));
    std::free(std::exchange(g_bglib_recvbuf, nullptr));
    std::free(std::exchange(g_bglib_sendbuf, nullptr));
}

bool allocate_memory() {
    g_bglib_sendbuf = make_buffer();
    if (g_bglib_sendbuf != nullptr)
        g_bglib_recvbuf = make_buffer();
    if (g_bglib_recvbuf == nullptr) {
        release_memory();
        return false;
    }
    g_bridge_client = static_cast<bri_clnt_ctx *>(std::calloc(1, sizeof(bri_clnt_ctx)));
    if (g_bridge_client != nullptr)
        return true;
    std::puts("Bridge lib init failed: no memory.");
    release_memory();
    return false;
}

void set_name(bri_clnt_ctx &ctx, const char *given) {
    if (given != nullptr)
        copy_text(ctx.name, given);
    else
        std::snprintf(ctx.name, sizeof ctx.name, "Bridge-client-%d", static_cast<int>(ctx.pid));
}

uint32_t cache_limit() {
    bri_sys_mem_info memory;
    if (bridge_get_sys_mem_info(&memory) != 0) {
        std::puts("Failed to get sys mem info.");
        return kCacheMin;
    }
    const uint64_t limit = memory.mem_total / kMemoryPerShare << kRunsPerShareShift;
    return static_cast<uint32_t>(std::clamp<uint64_t>(limit, kCacheMin, UINT32_MAX));
}

void fill_context(bri_clnt_ctx &ctx, const char *name, qv_thread_master *master) {
    ctx.pid = static_cast<uint32_t>(getpid());
    ctx.master = master;
    ctx.fresh = 1;
    set_name(ctx, name);
    for (bri_list *head : {&ctx.handlers, &ctx.conn_cbs, &ctx.oridata_cbs, &ctx.cache})
        list::init(*head);
    std::ranges::fill(g_state.business, nullptr);
    ctx.cache_max = cache_limit();
}

void init_subsystems(bri_clnt_ctx &ctx) {
    mac_client_init(&ctx);
    vl_clnt_manage_init(&ctx);
    l2top_clnt_init(ctx.name);
    if (vlan_group_shm_init() != 1)
        std::puts("bri clnt vlan group shm init failed.");
    bridge_dspch_client_init(ctx.name);
}

bool may_start(const qv_thread_master *master) {
    if (master == nullptr) {
        std::puts("Bridge lib init failed: master is null");
        return false;
    }
    if (g_bridge_client != nullptr) {
        std::printf("Bridge lib is already init by [%s]; \n", g_bridge_client->name);
        return false;
    }
    return true;
}

// Whether a node before this one, appended earlier, has the same function.
bool repeats(const bri_list &callbacks, const bri_clnt_cb_node &node) {
    for (const bri_list *link = callbacks.next; link != &node.link; link = link->next)
        if (reinterpret_cast<const bri_clnt_cb_node *>(link)->fn == node.fn)
            return true;
    return false;
}

void append_callback(bri_list bri_clnt_ctx::*callbacks, bri_clnt_cb fn) {
    if (!can_set_callbacks())
        return;
    if (fn == nullptr) {
        BRI_LOG(log::kClient, "Set callback failed: handler or list_head is null.\n");
        return;
    }
    auto *node = static_cast<bri_clnt_cb_node *>(std::malloc(sizeof(bri_clnt_cb_node)));
    if (node == nullptr) {
        BRI_LOG(log::kClient, "Set callback failed: no memory.\n");
        return;
    }
    node->fn = fn;
    list::append(g_bridge_client->*callbacks, node->link);
    BRI_LOG(log::kClient, "[%s] Set a new callback: %p.\n", name(), reinterpret_cast<void *>(fn));
}

} // namespace

bool can_set_callbacks() {
    if (g_bridge_client != nullptr)
        return true;
    BRI_LOG(log::kClient, "Set callback failed: client is not init.\n");
    return false;
}

void run_callbacks(bri_list &callbacks) {
    const bri_list *last = callbacks.prev;
    bool appended_meanwhile = false;
    list::for_each<bri_clnt_cb_node>(callbacks, [&](bri_clnt_cb_node &node) {
        if (node.fn != nullptr && !(appended_meanwhile && repeats(callbacks, node)))
            node.fn();
        appended_meanwhile = appended_meanwhile || &node.link == last;
    });
}

} // namespace bri::client

using namespace bri;
using namespace bri::client;

int bridge_agent_init(const char *name, struct qv_thread_master *master) {
    g_state.slave = 0;
    g_state.sync_state = kSyncNone;
    g_state.oridata_req_set = 0;
    g_state.oridata_state = kOridataNone;
    g_state.switchover_state = kSwitchoverNone;
    if (!may_start(master) || !allocate_memory())
        return -1;
    bri_clnt_ctx &ctx = *g_bridge_client;
    fill_context(ctx, name, master);
    bri_clnt_debug_init(&ctx);
    if (bridge_client_socket_create(&ctx) < 0) {
        std::puts("Bridge lib init failed: sock create failed.");
        release_memory();
        return -1;
    }
    init_subsystems(ctx);
    bridge_client_thread_event(BRI_CLNT_EVT_CONNECT);
    bridge_client_thread_event(BRI_CLNT_EVT_MSG_TIMER);
    return 0;
}

void bridge_agent_set_connect_callback(bri_clnt_cb fn) {
    append_callback(&bri_clnt_ctx::conn_cbs, fn);
}

void bridge_agent_set_oridata_callback(bri_clnt_cb fn) {
    append_callback(&bri_clnt_ctx::oridata_cbs, fn);
}
