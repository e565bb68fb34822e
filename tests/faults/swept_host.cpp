#include "tests/faults/swept_host.h"

#include "base/list.h"
#include "client/state.h"

#include <algorithm>
#include <set>
#include <sys/ipc.h>
#include <sys/shm.h>

namespace test {

namespace {

constexpr uint32_t kKeyBases[] = {0x11110001, 0x22220001, 0x33330001, 0x5A5B7C3D};

SweptHost *g_world;

int on_event(uint32_t, void *, uint16_t) {
    ++g_world->handled;
    return 0;
}

// One job of each name.
void drop_repeated_jobs(std::vector<Job> &jobs) {
    std::set<std::string> names;
    std::erase_if(jobs, [&](const Job &job) { return !names.insert(job.name).second; });
}

} // namespace

SweptHost::SweptHost(Level level) : level_(level) {
    g_world = this;
    faults::redirect("/data/.zenx/vsd/0/dev/dm_cfg.txt", tmpdir() + "/device");
    faults::redirect("./tmp/dm/.sysmac", tmpdir() + "/system");
    faults::redirect("/proc/macaddr", tmpdir() + "/kernel");
    faults::redirect("./tmp/dm/.l3mac", tmpdir() + "/routed");
    debug_on({BRI_DBG_VLAN, BRI_DBG_MAC, BRI_DBG_MSG});
    kernel.on_data = [this](const KernelRequest &request) { kernel.answer(request, Packet(128, 1)); };
    if (level_ != Level::kBare)
        start();
    if (level_ == Level::kConnected)
        connect();
}

SweptHost::~SweptHost() {
    if (at_end)
        at_end();
    bridge_lib_nlclient_deinit(nullptr);
    bridge_client_connect_reset();
}

void SweptHost::start() {
    if (bridge_agent_init("unit", loop().master()) != 0)
        throw std::runtime_error("not started");
    make_tables();
    event_set every;
    std::memset(&every, 0xFF, sizeof every);
    bridge_client_reg_event(&every, on_event);
    bri::client::g_state.sync_state = bri::client::kSyncEnded;
    debug_on({BRI_DBG_VLAN, BRI_DBG_MAC, BRI_DBG_MSG});
}

// What the server keeps in shared memory.
void SweptHost::make_tables() const {
    vl_set_vlan_range(1, 4094);
    vl_initial_vlan_entry(kVlan, BRI_VLAN_STATIC);
    g_vlan_private_version[kVlan] = vl_get_vlan_latest_version(kVlan);
    spcb &port = *swport_get_raw_spcb(kPort);
    port.ifx = kPort;
    port.mode = BRI_PORT_TRUNK;
}

void SweptHost::connect() {
    server_.emplace();
    reconnect();
    if (arrived(BRIDGE_EVENT_REG_MSG) != 1 || ctx().nl_ready == 0)
        throw std::runtime_error("not connected");
}

void SweptHost::reconnect() {
    bridge_client_thread_event(BRI_CLNT_EVT_CONNECT);
    loop().run("bri-conn");
    accept();
}

// The last of those that wait: the client has given up the others.
void SweptHost::accept() {
    for (Peer fresh = server_->accept(0); fresh.open(); fresh = server_->accept(0))
        peer = std::move(fresh);
}

void SweptHost::tick() {
    bri::client::flush_job(nullptr);
}

int SweptHost::arrived(uint32_t type) {
    int count = 0;
    for (const Message &message : peer.read_messages())
        count += message.type == type ? 1 : 0;
    return count;
}

void SweptHost::settle() {
    if (level_ == Level::kConnected) {
        std::erase_if(loop().pending,
                      [](const Job &job) { return job.name == "bri-reconn" || job.name == "bri-conn"; });
        if (ctx().connected == 0 || ctx().conn_done == 0 || ctx().nl_ready == 0)
            reconnect();
        loop().run("bri-ef-reconn");
        tick();
        static_cast<void>(peer.read_now());
    }
    drop_repeated_jobs(loop().pending);
    std::erase_if(kernel.sockets, [](const KernelSocket &socket) { return socket.peer < 0; });
    kernel.requests.clear();
    clear_log();
}

SweptHost::Holdings SweptHost::holdings() const {
    Holdings now{faults::live_blocks(), open_descriptors() - kernel.open_sockets(), 0};
    for (const uint32_t base : kKeyBases) {
        const faults::Pause pause;
        shmid_ds status{};
        const int id = shmget(key(base), 0, 0);
        if (id >= 0 && shmctl(id, IPC_STAT, &status) == 0)
            now.mappings += static_cast<int>(status.shm_nattch);
    }
    return now;
}

} // namespace test
