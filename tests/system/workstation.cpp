#include "tests/system/workstation.h"

#include <csignal>
#include <sys/socket.h>

namespace test {

const char *const kSandbox = BRIDGE_SANDBOX;
const char *const kPortWatch = BRIDGE_PORT_WATCH;
const char *const kMacTable = BRIDGE_MAC_TABLE;
const char *const kVlanGuard = BRIDGE_VLAN_GUARD;
const char *const kPortGuard = BRIDGE_PORT_GUARD;
const char *const kVlanMirror = BRIDGE_VLAN_MIRROR;
const char *const kPictureHost = BRIDGE_PICTURE_HOST;

std::vector<std::string> host_environment() {
    // The preloaded library comes before the sanitizer's, which minds although it loses nothing by it.
    return {"LD_LIBRARY_PATH=" BRIDGE_KERNEL_SIM_DIR, "LD_PRELOAD=" BRIDGE_KERNEL_SIM,
            "ASAN_OPTIONS=verify_asan_link_order=0"};
}

namespace {

sockaddr_un unix_address(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

} // namespace

ByteVec registration(std::initializer_list<unsigned> types, unsigned pid, const std::string &name, uint8_t op,
                     uint8_t fresh) {
    bri_reg_msg message{};
    for (const unsigned type : types)
        message.event_set.words[type >> 5] |= 1U << (type & 31);
    message.op = op;
    message.pid = pid;
    name.copy(message.name, sizeof message.name - 1);
    message.fresh = fresh;
    return bytes_of(message);
}

std::string hex(const ByteVec &bytes) {
    std::string text;
    char digits[3];
    for (const uint8_t byte : bytes) {
        std::snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

Process Workstation::start_sandbox(const std::vector<std::string> &options) const {
    std::vector<std::string> command{kSandbox};
    command.insert(command.end(), options.begin(), options.end());
    Process sandbox(command);
    EXPECT_TRUE(sandbox.shows("listening at " + socket_path()));
    return sandbox;
}

Process Workstation::start_host(const std::string &name, const std::vector<std::string> &options,
                                const char *program) const {
    std::vector<std::string> command{program, "-n", name};
    command.insert(command.end(), options.begin(), options.end());
    return Process(command, host_environment());
}

void Workstation::run(Process &sandbox, const std::string &command) {
    static int commands = 0;
    const std::string done = "done " + std::to_string(++commands);
    sandbox.write_line(command);
    sandbox.write_line("print " + done);
    EXPECT_TRUE(sandbox.shows(done + "\n"));
}

// Its answer is sent when everything before the question is done, the look at the tables included.
void Workstation::settle(Process &sandbox, const std::string &host) {
    sandbox.write_line("event @" + host + " BRIDGE_EVENT_ORI_DATA_REQUEST");
    EXPECT_TRUE(sandbox.shows("(" + host + "): sent BRIDGE_EVENT_ORI_DATA_OVER(130)"));
}

sockaddr_un Workstation::kernel_address() const {
    return unix_address(tmpdir() + "/bridge/.kernel_socket");
}

Peer Workstation::connect_client() const {
    const sockaddr_un address = unix_address(socket_path());
    Peer peer(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(connect(peer.fd(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    return peer;
}

Peer Workstation::register_client(std::initializer_list<unsigned> types, const std::string &name, unsigned pid) const {
    Peer peer = connect_client();
    peer.send({{BRIDGE_EVENT_REG_MSG, registration(types, pid, name)}});
    const auto answer = peer.read_batch();
    EXPECT_TRUE(answer &&
                answer->types() == (std::vector<uint32_t>{BRIDGE_EVEVT_SERVER_STAT, BRIDGE_EVENT_BKUP_DATA_BEGIN,
                                                          BRIDGE_EVENT_BKUP_DATA_END, BRIDGE_EVENT_SYNC_DATA_END}));
    return peer;
}

std::vector<Message> Workstation::next(Peer &peer) {
    const auto batch = peer.read_batch(kPatienceMs);
    return batch ? batch->messages() : std::vector<Message>{};
}

std::vector<Message> Workstation::synchronisation(uint8_t role) {
    return {{BRIDGE_EVEVT_SERVER_STAT, {role}},
            {BRIDGE_EVENT_BKUP_DATA_BEGIN, {}},
            {BRIDGE_EVENT_BKUP_DATA_END, {}},
            {BRIDGE_EVENT_SYNC_DATA_END, {}}};
}

} // namespace test
