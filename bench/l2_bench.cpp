// What the layer-2 clients add to the bytes that they move: a MAC request beside a bare append of its 48 bytes, the
// unpacking of an address notification beside a copy of each record, a kernel query beside the bare socket pair, and
// the expansion of a status batch beside the bare records.
//
//   request   arguments checked, record built, appended to the batch; nothing is written to the socket. Per call
//   unpack    a notification of 200 records to one handler. Per record
//   query     socket, family, request, answer, against a kernel in this process. Per query
//   expand    64 records for 65 instances each, written to the server's socket in 65 messages. Per record
#include "bench/host.h"
#include "bench/ratios.h"
#include "client/transport.h"
#include "shared/netlink_frame.h"

#include <cstring>
#include <utility>

namespace {

using namespace bench;
namespace netlink = bri::netlink;

// --- requests ---

constexpr uint32_t kRequests = 200; // fit into one batch
constexpr uint8_t kMac[6] = {0x02, 0x00, 0x5E, 0x10, 0x20, 0x30};
constexpr uint32_t kPort = 3;
constexpr uint32_t kMessageBytes = sizeof(bri_msg_hdr) + sizeof(bri_mac_msg);
static_assert(kMessageBytes == 48);

void count_items(benchmark::State &state, uint32_t items) {
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * items);
}

// Takes the messages out of the batch without writing them, as a flush leaves it.
bool discard_batch(uint32_t expected) {
    bri_batch_hdr header;
    uint8_t *batch = bri::client::g_bglib_sendbuf;
    std::memcpy(&header, batch, sizeof header);
    std::memset(batch, 0, sizeof header + header.msg_len);
    return header.msg_cnt == expected && header.msg_len == expected * kMessageBytes;
}

template <class Request> void request(benchmark::State &state, Request &&send) {
    for (auto _ : state) {
        bool sent = true;
        for (uint32_t vlan = 1; vlan <= kRequests; ++vlan)
            sent = send(vlan) == 0 && sent;
        if (!discard_batch(kRequests) || !sent)
            return state.SkipWithError("a request was refused");
    }
    count_items(state, kRequests);
}

void request_add_static(benchmark::State &state) {
    request(state, [](uint32_t vlan) { return bridge_maddr_add_static(kMac, vlan, kPort); });
}
void request_del_dyn(benchmark::State &state) {
    request(state, [](uint32_t vlan) { return bridge_maddr_del_dyn(kMac, vlan, kPort); });
}
void request_append(benchmark::State &state) {
    static const bri_mac_msg record{0, BRI_MAC_ADD, {}};
    request(state, [](uint32_t) { return bridge_client_send_message(&record, sizeof record, MAC_EVENT_NOTIFY_ADDR); });
}

void bare_append(benchmark::State &state) {
    static uint8_t batch[kRequests * kMessageBytes];
    static const uint8_t message[kMessageBytes] = {};
    for (auto _ : state) {
        for (uint32_t at = 0; at < sizeof batch; at += kMessageBytes) {
            std::memcpy(batch + at, message, sizeof message);
            benchmark::ClobberMemory();
        }
        std::memset(batch, 0, sizeof batch);
        benchmark::ClobberMemory();
    }
    count_items(state, kRequests);
}

// --- notifications ---

constexpr uint32_t kRecords = 200;
uint64_t g_handled;

int take(uint32_t, void *data, uint16_t length) {
    g_handled += static_cast<const uint8_t *>(data)[4] + length;
    return 0;
}
// One that the compiler cannot look into.
bri_event_handler g_take = take;

struct Notification {
    bri_msg_hdr header;
    bri_mac_msg records[kRecords];
};
Notification g_notification;

void build_notification() {
    g_notification.header = {MAC_EVENT_NOTIFY_ADDR, sizeof g_notification.records};
    for (bri_mac_msg &record : g_notification.records) {
        record.oper = BRI_MAC_ADD;
        record.entry.type = BRI_MAC_TYPE_DYNAMIC;
        record.entry.ifx = kPort;
    }
}

void unpack(benchmark::State &state) {
    for (auto _ : state)
        mac_client_on_server_msg(&g_notification.header);
    count_items(state, kRecords);
}

void bare_unpack(benchmark::State &state) {
    for (auto _ : state)
        for (const bri_mac_msg &at : g_notification.records) {
            bri_mac_msg record = at;
            benchmark::DoNotOptimize(record);
            g_take(MAC_EVENT_NOTIFY_ADDR, &record, sizeof record);
        }
    count_items(state, kRecords);
}

// --- queries ---

// The kernel: netlink sockets are pairs whose other end answers in the middle of a send.
constexpr uint16_t kFamily = 27;
int g_kernel = -1; // its end of the one socket that is open
bool g_netlink_wanted;

struct FamilyAnswer {
    nlmsghdr header;
    genlmsghdr generic;
    nlattr name_attr;
    char name[12];
    nlattr id_attr;
    uint16_t id;
    uint16_t padding;
};
struct EntryAnswer {
    nlmsghdr header;
    genlmsghdr generic;
    nlattr attr;
    bri_mac_find_first found;
};

template <class Answer> Answer answer_of(uint16_t type) {
    Answer answer{};
    answer.header.nlmsg_len = sizeof answer;
    answer.header.nlmsg_type = type;
    answer.generic.cmd = CTRL_CMD_NEWFAMILY;
    return answer;
}

FamilyAnswer family_answer() {
    auto answer = answer_of<FamilyAnswer>(GENL_ID_CTRL);
    answer.name_attr = {sizeof(nlattr) + sizeof "EF_BRIDGE", CTRL_ATTR_FAMILY_NAME};
    std::strcpy(answer.name, "EF_BRIDGE");
    answer.id_attr = {sizeof(nlattr) + sizeof answer.id, CTRL_ATTR_FAMILY_ID};
    answer.id = kFamily;
    return answer;
}

EntryAnswer entry_answer() {
    auto answer = answer_of<EntryAnswer>(kFamily);
    answer.attr = {sizeof(nlattr) + sizeof answer.found, 0};
    answer.found.found = 1;
    answer.found.result.ifx = kPort;
    return answer;
}

const FamilyAnswer kFamilyAnswer = family_answer();
const EntryAnswer kEntryAnswer = entry_answer();

// Reads a request at the kernel's end and answers it.
bool serve(int kernel) {
    uint8_t request[512];
    nlmsghdr header;
    if (recv(kernel, request, sizeof request, 0) < static_cast<ssize_t>(sizeof header))
        return false;
    std::memcpy(&header, request, sizeof header);
    return header.nlmsg_type == GENL_ID_CTRL
               ? exchange(send(kernel, &kFamilyAnswer, sizeof kFamilyAnswer, 0), sizeof kFamilyAnswer)
               : exchange(send(kernel, &kEntryAnswer, sizeof kEntryAnswer, 0), sizeof kEntryAnswer);
}

void query(benchmark::State &state) {
    g_netlink_wanted = true;
    for (auto _ : state) {
        bri_mac_entry entry{};
        if (bridge_maddr_find_single(kMac, 1, &entry) != 0 || entry.ifx != kPort) {
            state.SkipWithError("the kernel did not answer");
            break;
        }
    }
    g_netlink_wanted = false;
}

// The same traffic without a library: a pair is opened, two requests of a query's sizes are answered, both ends closed.
bool bare_dialogue(int fd, int kernel) {
    static netlink::Request resolution;
    static netlink::Request look_up;
    static const uint8_t payload[sizeof(netlink::DataHeader) + sizeof(bri_mac_find_first)] = {};
    static uint8_t answer[netlink::kFrameMax];
    static const bool built =
        netlink::build_resolution(resolution, "EF_BRIDGE") && look_up.build(kFamily, 0, {payload, sizeof payload});
    const auto ask = [&](const netlink::Request &request, size_t expected) {
        const bri::Bytes bytes = request.bytes();
        return exchange(send(fd, bytes.data, bytes.size, MSG_NOSIGNAL), bytes.size) && serve(kernel) &&
               exchange(recv(fd, answer, sizeof answer, 0), expected);
    };
    return built && ask(resolution, sizeof kFamilyAnswer) && ask(look_up, sizeof kEntryAnswer);
}

void raw_query(benchmark::State &state) {
    for (auto _ : state) {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
            return state.SkipWithError("no socket pair");
        const bool answered = bare_dialogue(ends[0], ends[1]);
        close(ends[0]);
        close(ends[1]);
        if (!answered)
            return state.SkipWithError("an exchange failed");
    }
}

// --- port states ---

constexpr uint32_t kStates = BRI_L2TOP_BATCH_MAX * BRI_STP_INSTANCES;
constexpr uint32_t kStateMessages = kStates / BRI_L2TOP_BATCH_MAX;
constexpr uint32_t kStateBytes = sizeof(bri_batch_hdr) + sizeof(bri_msg_hdr) + sizeof(l2top_port_status_batch);

bool take_states() {
    static uint8_t sink[kStateMessages * kStateBytes];
    return exchange(recv(g_far, sink, sizeof sink, MSG_WAITALL), sizeof sink);
}

void expand(benchmark::State &state) {
    l2top_port_status_batch batch{};
    batch.count = BRI_L2TOP_BATCH_MAX;
    for (l2top_port_status &record : batch.records)
        record = {kPort, BRI_L2TOP_INSTANCE_ALL, {}, 2, 0, 0, {}};
    for (auto _ : state)
        if (bridge_set_port_fwd_status(&batch) != 0 || !take_states())
            return state.SkipWithError("a batch was not sent");
    count_items(state, kStates);
}

void raw_expand(benchmark::State &state) {
    static uint8_t message[kStateBytes];
    l2top_port_status record{kPort, 0, {}, 2, 0, 0, {}};
    const auto send_states = [&] {
        for (uint32_t sent = 0; sent < kStateMessages; ++sent) {
            uint8_t *at = message + sizeof(bri_batch_hdr) + sizeof(bri_msg_hdr) + sizeof(uint32_t);
            for (uint32_t count = 0; count < BRI_L2TOP_BATCH_MAX; ++count, at += sizeof record) {
                record.instance = static_cast<uint16_t>((sent + count) % BRI_STP_INSTANCES);
                std::memcpy(at, &record, sizeof record);
            }
            if (!exchange(send(g_near, message, sizeof message, MSG_DONTWAIT | MSG_NOSIGNAL), sizeof message))
                return false;
        }
        return true;
    };
    for (auto _ : state)
        if (!send_states() || !take_states())
            return state.SkipWithError("an exchange failed");
    count_items(state, kStates);
}

BENCHMARK(request_add_static)->Apply(repeated);
BENCHMARK(request_del_dyn)->Apply(repeated);
BENCHMARK(request_append)->Apply(repeated);
BENCHMARK(bare_append)->Apply(repeated);
BENCHMARK(unpack)->Apply(repeated);
BENCHMARK(bare_unpack)->Apply(repeated);
BENCHMARK(query)->Apply(repeated);
BENCHMARK(raw_query)->Apply(repeated);
BENCHMARK(expand)->Apply(repeated);
BENCHMARK(raw_expand)->Apply(repeated);

constexpr Pair kPairs[] = {
    {"request_add_static", "bare_append", "a request"},
    {"request_del_dyn", "bare_append", "a request"},
    {"request_append", "bare_append", "a request"},
    {"unpack", "bare_unpack", "a record"},
    {"query", "raw_query", "a query"},
    {"expand", "raw_expand", "a record"},
};

bool start() {
    event_set notifications = {};
    notifications.words[MAC_EVENT_NOTIFY_ADDR >> 5] = 1U << (MAC_EVENT_NOTIFY_ADDR & 31U);
    if (!connect_to_pair() || !handle(notifications, take))
        return false;
    spcb *port = swport_get_raw_spcb(kPort);
    if (port == nullptr)
        return false;
    port->ifx = kPort;
    build_notification();
    return true;
}

} // namespace

// --- the calls that this program takes the place of: only those of a query, and only while one runs ---

extern "C" {

int __real_socket(int domain, int type, int protocol);
int __real_bind(int fd, const sockaddr *address, socklen_t length);
int __real_close(int fd);

int __wrap_socket(int domain, int type, int protocol) {
    if (domain != AF_NETLINK)
        return __real_socket(domain, type, protocol);
    int ends[2];
    if (!g_netlink_wanted || socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        return -1;
    g_kernel = ends[1];
    return ends[0];
}

int __wrap_bind(int fd, const sockaddr *address, socklen_t length) {
    return address->sa_family == AF_NETLINK ? 0 : __real_bind(fd, address, length);
}

ssize_t __wrap_sendto(int fd, const void *data, size_t size, int flags, const sockaddr *, socklen_t) {
    const ssize_t sent = send(fd, data, size, flags);
    return serve(g_kernel) ? sent : -1;
}

int __wrap_close(int fd) {
    if (g_kernel >= 0)
        __real_close(std::exchange(g_kernel, -1));
    return __real_close(fd);
}

} // extern "C"

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv) || !start())
        return EXIT_FAILURE;
    return run("Layer-2 clients, per request, record or query", kPairs);
}
