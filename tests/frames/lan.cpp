#include "tests/frames/lan.h"

#include "tests/system/workstation.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <grp.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace test {

namespace {

constexpr uint16_t kFrameType = 0x88b5; // for experiments in one's own network
constexpr uint16_t kTag = 0x8100;

void put16(std::vector<uint8_t> &frame, uint16_t value) {
    frame.push_back(static_cast<uint8_t>(value >> 8));
    frame.push_back(static_cast<uint8_t>(value));
}

// A process that does nothing in a network of its own.
pid_t start_network() {
    int ready[2];
    EXPECT_EQ(pipe(ready), 0);
    const pid_t process = fork();
    if (process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const char answer = unshare(CLONE_NEWNET) == 0 ? 'y' : 'n';
        if (write(ready[1], &answer, 1) == 1)
            pause();
        _exit(0);
    }
    char answer = 0;
    EXPECT_EQ(read(ready[0], &answer, 1), 1);
    EXPECT_EQ(answer, 'y');
    close(ready[0]);
    close(ready[1]);
    return process;
}

int open_network(pid_t process) {
    return open(("/proc/" + std::to_string(process) + "/ns/net").c_str(), O_RDONLY | O_CLOEXEC);
}

// The tag that the kernel has taken off the frame.
uint16_t tag_of(msghdr &message) {
    for (cmsghdr *part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part))
        if (part->cmsg_level == SOL_PACKET && part->cmsg_type == PACKET_AUXDATA) {
            tpacket_auxdata data{};
            std::memcpy(&data, CMSG_DATA(part), sizeof data);
            return (data.tp_status & TP_STATUS_VLAN_VALID) != 0 ? data.tp_vlan_tci & 0xfff : uint16_t{0};
        }
    return 0;
}

void write_to(const char *path, const std::string &text) {
    std::ofstream(path) << text;
}

} // namespace

bool shell(const std::string &line) {
    return std::system((line + " 2>/dev/null").c_str()) == 0; // NOLINT(cert-env33-c): our own words
}

std::string output_of(const std::string &line) {
    std::string text;
    FILE *pipe = popen(line.c_str(), "r"); // NOLINT(cert-env33-c): our own words
    for (int c = 0; pipe != nullptr && (c = fgetc(pipe)) != EOF;)
        text += static_cast<char>(c);
    pclose(pipe);
    return text;
}

std::string text_of(const Address &address) {
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", address[0], address[1], address[2], address[3],
                  address[4], address[5]);
    return text;
}

LanHost::LanHost(const std::string &device) : process_(start_network()) {
    EXPECT_TRUE(shell("ip link add " + device + " type veth peer name eth0 netns " + std::to_string(process_)));
    socket_ = open_in_its_namespace();
    set_link(true);
}

LanHost::~LanHost() {
    close(socket_);
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}

int LanHost::open_in_its_namespace() const {
    const int here = open_network(getpid());
    const int there = open_network(process_);
    EXPECT_EQ(setns(there, CLONE_NEWNET), 0);
    const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL));
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex("eth0"));
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    const int on = 1;
    setsockopt(fd, SOL_PACKET, PACKET_AUXDATA, &on, sizeof on);
    setsockopt(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on);
    EXPECT_EQ(setns(here, CLONE_NEWNET), 0);
    close(here);
    close(there);
    return fd;
}

void LanHost::set_link(bool up) const {
    const int here = open_network(getpid());
    const int there = open_network(process_);
    EXPECT_EQ(setns(there, CLONE_NEWNET), 0);
    write_to("/proc/sys/net/ipv6/conf/eth0/disable_ipv6", "1"); // it says what it is told to say
    EXPECT_TRUE(shell(std::string("ip link set eth0 ") + (up ? "up" : "down")));
    EXPECT_EQ(setns(here, CLONE_NEWNET), 0);
    close(here);
    close(there);
}

void LanHost::send(const Address &to, const Address &from, uint32_t number, uint16_t vid) const {
    std::vector<uint8_t> frame(to.begin(), to.end());
    frame.insert(frame.end(), from.begin(), from.end());
    if (vid != 0) {
        put16(frame, kTag);
        put16(frame, vid);
    }
    put16(frame, kFrameType);
    put16(frame, static_cast<uint16_t>(number >> 16));
    put16(frame, static_cast<uint16_t>(number));
    frame.resize(60);
    static_cast<void>(::send(socket_, frame.data(), frame.size(), 0)); // lost without a link
}

std::optional<uint16_t> LanHost::receives(uint32_t number, int timeout_ms) const {
    const uint8_t wanted[] = {static_cast<uint8_t>(number >> 24), static_cast<uint8_t>(number >> 16),
                              static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
    for (pollfd ready{socket_, POLLIN, 0}; poll(&ready, 1, timeout_ms) > 0;) {
        uint8_t frame[2048];
        uint8_t room[CMSG_SPACE(sizeof(tpacket_auxdata))];
        iovec part{frame, sizeof frame};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = room;
        message.msg_controllen = sizeof room;
        const ssize_t length = recvmsg(socket_, &message, MSG_DONTWAIT);
        if (length >= 18 && frame[12] == kFrameType >> 8 && frame[13] == (kFrameType & 0xff) &&
            std::memcmp(frame + 14, wanted, sizeof wanted) == 0)
            return tag_of(message);
    }
    return std::nullopt;
}

bool leave_root(const std::string &folder, std::string &why_not) {
    constexpr uid_t kUser = 1000;
    if (geteuid() != 0)
        return true;
    if (chown(folder.c_str(), kUser, kUser) != 0 || setgroups(0, nullptr) != 0 || setgid(kUser) != 0 ||
        setuid(kUser) != 0 || prctl(PR_SET_DUMPABLE, 1) != 0) { // for its maps of users
        why_not = "there is no other user here";
        return false;
    }
    if (access(kSandbox, X_OK) == 0)
        return true;
    why_not = "the build is not for everybody to run";
    return false;
}

bool enter_lan(std::string &why_not) {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (unshare(CLONE_NEWNET) != 0) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
            why_not = "no network of its own: neither root nor user namespaces";
            return false;
        }
        write_to("/proc/self/setgroups", "deny");
        write_to("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
        write_to("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
    }
    // With an address of its own: the kernel's entry for one that a port shares names now the one, now the other.
    if (shell("ip link add br0 address 02:00:00:00:00:fe type bridge vlan_filtering 1")) {
        write_to("/proc/sys/net/ipv6/conf/all/disable_ipv6", "1");
        return shell("ip link set br0 up");
    }
    why_not = "this kernel has no bridge that filters VLANs (or there is no ip): run ./dev lab amd64 -- frames";
    return false;
}

} // namespace test
