// Arbitrary datagrams from the kernel: at the resolution of the family, in the read job, and as answers to queries.
//
// An input is a run of steps: datagrams that are queued, well formed or not, and calls that read them. All sockets read
// from the one queue. The calls that this program takes the place of hold every request against its framing.
#include "fuzz/host.h"
#include "shared/netlink_frame.h"

#include <qv_thread.h>

#include <cerrno>
#include <deque>
#include <sys/socket.h>
#include <vector>

namespace {

using namespace fuzz;
namespace netlink = bri::netlink;

constexpr uint16_t kFamily = 35;
constexpr size_t kAnswerMax = 10224; // behind an answer's address all of this may be read

using Datagram = std::vector<uint8_t>;
std::deque<Datagram> g_datagrams;
int g_open; // sockets
constexpr int kFirstFd = 100000;

// The jobs that are pending; no more than one of each kind.
struct Job {
    qv_thread_func func;
    void *arg;
};
std::vector<Job> g_reads;
std::vector<Job> g_timers;

template <class T> void append(Datagram &datagram, const T &value) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(&value);
    datagram.insert(datagram.end(), bytes, bytes + sizeof value);
}

void append_attr(Datagram &datagram, uint16_t type, const std::vector<uint8_t> &payload) {
    append(datagram, nlattr{static_cast<uint16_t>(sizeof(nlattr) + payload.size()), type});
    datagram.insert(datagram.end(), payload.begin(), payload.end());
    datagram.resize(netlink::padded(datagram.size()));
}

// The input's own bytes, as many as it says.
std::vector<uint8_t> some_bytes(Input &input) {
    std::vector<uint8_t> bytes(input.take<uint16_t>() % (netlink::kFrameMax + 64));
    input.take(bytes.data(), bytes.size());
    return bytes;
}

Datagram message(uint16_t type, uint8_t command) {
    Datagram datagram;
    append(datagram, nlmsghdr{0, type, 0, 0, 0});
    append(datagram, genlmsghdr{command, 1, 0});
    return datagram;
}

void queue(Datagram datagram) {
    const auto length = static_cast<uint32_t>(datagram.size());
    std::memcpy(datagram.data(), &length, sizeof length);
    g_datagrams.push_back(std::move(datagram));
}

void queue_family(uint16_t id) {
    constexpr char name[] = "EF_BRIDGE";
    Datagram datagram = message(GENL_ID_CTRL, CTRL_CMD_NEWFAMILY);
    append_attr(datagram, CTRL_ATTR_FAMILY_NAME, {name, name + sizeof name});
    append_attr(datagram, CTRL_ATTR_FAMILY_ID,
                {reinterpret_cast<uint8_t *>(&id), reinterpret_cast<uint8_t *>(&id + 1)});
    queue(datagram);
}

void queue_answer(Input &input) {
    Datagram datagram = message(kFamily, 3);
    append_attr(datagram, 0, some_bytes(input));
    queue(datagram);
}

// A well-formed message with some of its words spoilt.
void queue_spoilt(Input &input) {
    queue_family(kFamily);
    Datagram &datagram = g_datagrams.back();
    for (unsigned count = input.take() % 4U; count != 0; --count)
        datagram[input.take() % datagram.size()] = input.take();
    datagram.resize(datagram.size() - input.take() % datagram.size());
}

// For most calls that ask, a kernel that answers: the family, then what the input says.
void queue_dialogue(Input &input) {
    const uint8_t kind = input.take();
    if (kind % 8 == 0)
        return;
    g_datagrams.clear();
    queue_family(kFamily);
    if (kind % 8 == 1)
        g_datagrams.push_back(some_bytes(input));
    else
        queue_answer(input);
}

void run_one(std::vector<Job> &jobs) {
    if (jobs.empty())
        return;
    const Job job = jobs.back();
    jobs.pop_back();
    job.func(job.arg);
}

void check_answer(const void *answer) {
    if (answer != nullptr)
        read_all(answer, kAnswerMax);
}

void look_up(Input &input) {
    bri_mac_entry entry{};
    bri_mac_entry out{};
    uint16_t vlan = 0;
    entry.field = input.take();
    entry.ifx = 3;
    queue_dialogue(input);
    switch (entry.field % 7) {
    case 1:
        bridge_maddr_find_first_on_mac(&entry);
        break;
    case 2:
        bridge_maddr_find_first_on_ifx(&entry);
        break;
    case 3:
        bridge_maddr_find_next_on_mac(&entry, &out);
        break;
    case 4:
        bridge_maddr_find_next_on_ifx(&entry, &out);
        break;
    case 5:
        bridge_maddr_find_static_on_ifx(entry.ifx);
        break;
    case 6:
        bridge_maddr_find_single(entry.mac, 1, &out);
        break;
    default:
        require(mvlan_clnt_get_dyn_entry(entry.mac, &vlan) == (vlan != 0 ? 0 : -1));
        break;
    }
}

// Lengths are claimed, so the data behind them is as long as the library may read.
void send_or_query(Input &input) {
    static const uint8_t data[netlink::kDataMax + 1] = {};
    const auto length = input.take<uint32_t>();
    const uint32_t len = length % 2 == 0 ? length : length % sizeof data;
    queue_dialogue(input);
    if (input.take() % 2 == 0)
        bridge_lib_send_netlink(data, len, 274);
    else
        check_answer(bridge_lib_query_netlink(data, len, 286));
}

// An answer at the very end of a heap block.
void parse_alone(Input &input) {
    const std::vector<uint8_t> bytes = some_bytes(input);
    const Block block(bytes.size());
    if (!bytes.empty())
        std::memcpy(block.data(), bytes.data(), bytes.size());
    static_cast<void>(netlink::family_id_in({block.data(), bytes.size()}, "EF_BRIDGE"));
    for (netlink::AttrIterator attr({block.data(), bytes.size()}); attr.ok(); attr.next())
        read_all(attr.payload().data, attr.payload().size);
}

void step(bri_clnt_ctx &client, Input &input) {
    switch (input.take() % 13) {
    case 0:
        g_datagrams.push_back(some_bytes(input));
        break;
    case 1:
        queue_family(kFamily);
        break;
    case 2:
        queue_family(input.take<uint16_t>());
        break;
    case 3:
        queue_spoilt(input);
        break;
    case 4:
        queue_answer(input);
        break;
    case 5:
        bridge_lib_nlclient_init(&client);
        break;
    case 6:
        bridge_lib_nlclient_deinit(&client);
        break;
    case 7:
        run_one(g_reads);
        break;
    case 8:
        run_one(g_timers);
        break;
    case 9:
        look_up(input);
        break;
    case 10:
        send_or_query(input);
        break;
    case 11:
        check_answer(bridge_lib_feedback_netlink(kFirstFd, input.take<int32_t>()));
        break;
    default:
        parse_alone(input);
        break;
    }
    require(g_open <= 1); // queries close what they open
    require(g_reads.size() <= 1 && g_timers.size() <= 1);
    require(g_open == 1 || g_reads.empty());
}

int handled(uint32_t, void *data, uint16_t len) {
    read_all(data, len);
    return 0;
}

ssize_t receive(void *to, size_t size, int flags) {
    if (g_datagrams.empty()) {
        errno = EAGAIN;
        return -1;
    }
    const Datagram &datagram = g_datagrams.front();
    const size_t some = std::min(size, datagram.size());
    if (some != 0)
        std::memcpy(to, datagram.data(), some);
    if ((flags & MSG_PEEK) == 0)
        g_datagrams.pop_front();
    return static_cast<ssize_t>(some);
}

} // namespace

// --- the calls that this program takes the place of

extern "C" {

int __wrap_socket(int domain, int, int) {
    require(domain == AF_NETLINK);
    return kFirstFd + g_open++;
}

int __wrap_bind(int, const sockaddr *, socklen_t) {
    return 0;
}

int __wrap_setsockopt(int, int, int, const void *, socklen_t) {
    return 0;
}

int __wrap_close(int) {
    require(g_open > 0);
    --g_open;
    return 0;
}

ssize_t __wrap_sendto(int, const void *data, size_t size, int, const sockaddr *, socklen_t) {
    require(size <= netlink::kFrameMax && size % 4 == 0);
    require(bri::load_as<nlmsghdr>(data).nlmsg_len == size);
    read_all(data, size);
    return static_cast<ssize_t>(size);
}

ssize_t __wrap_recvfrom(int, void *to, size_t size, int flags, sockaddr *, socklen_t *) {
    return receive(to, size, flags);
}

ssize_t __wrap_recv(int, void *to, size_t size, int flags) {
    return receive(to, size, flags);
}

qv_thread *qv_thread_add_read_withname(qv_thread_master *, qv_thread_func func, void *arg, int, const char *) {
    g_reads.push_back({func, arg});
    return reinterpret_cast<qv_thread *>(&g_reads);
}

qv_thread *qv_thread_add_timer_withname(qv_thread_master *, qv_thread_func func, void *arg, long, const char *) {
    g_timers.push_back({func, arg});
    return reinterpret_cast<qv_thread *>(&g_timers);
}

void qv_thread_cancel_by_arg_func(qv_thread_master *, void *arg, qv_thread_func func) {
    std::erase_if(g_reads, [&](const Job &job) { return job.func == func && job.arg == arg; });
}

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    bri_clnt_ctx &client = start_host(handled);
    client.master = reinterpret_cast<qv_thread_master *>(&client);
    Input input(bytes, size);
    while (!input.empty())
        step(client, input);
    // Every input begins with a closed channel and nothing pending.
    bridge_lib_nlclient_deinit(&client);
    g_datagrams.clear();
    run_one(g_timers); // without an answer it is added again,
    queue_family(kFamily);
    run_one(g_timers); // with one it brings the channel up
    bridge_lib_nlclient_deinit(&client);
    require(g_open == 0 && g_reads.empty() && g_timers.empty());
    g_datagrams.clear();
    return 0;
}

} // extern "C"
