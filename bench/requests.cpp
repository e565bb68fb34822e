// What the layer-2 clients add to the bytes that they move: a request beside a bare append of its bytes, the unpacking
// of an address notification beside a copy of each record, a kernel query beside the bare dialogue, the expansion of a
// status batch beside the bare records.
#include "bench/bare.h"
#include "bench/client.h"
#include "bench/measure.h"
#include "bench/tables.h"

#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <sys/syscall.h>

namespace bench {
namespace {

constexpr uint8_t kMac[6] = {0x02, 0x00, 0x5E, 0x10, 0x20, 0x30};
constexpr uint32_t kPort = 3;

void start() {
    need(connect_to_pair(), "the start");
    swport_get_raw_spcb(kPort)->ifx = kPort;
}

// --- requests: arguments checked, record built, appended to the batch; nothing is written to the socket

constexpr uint32_t kRequests = 200; // fit into one batch
constexpr uint32_t kMessageBytes = sizeof(bri_msg_hdr) + sizeof(bri_mac_msg);

template <class Request> double request(Request send) {
    start();
    bool begun = false;
    return prepared(
        kRequests,
        [&] {
            if (std::exchange(begun, true)) {
                flush();
                need(drain(sizeof(bri_batch_hdr) + kRequests * kMessageBytes), "a request");
            }
        },
        [&] {
            for (uint32_t vlan = 1; vlan <= kRequests; ++vlan)
                need(send(vlan) == 0, "a request");
        });
}

double request_add(unsigned) {
    return request([](uint32_t vlan) { return bridge_maddr_add_static(kMac, vlan, kPort); });
}
double request_delete(unsigned) {
    return request([](uint32_t vlan) { return bridge_maddr_del_dyn(kMac, vlan, kPort); });
}

double request_bare(unsigned) {
    static uint8_t batch[BRI_BATCH_BUFFER_SIZE];
    static const bri_mac_msg record{};
    return prepared(
        kRequests, [] { std::memset(batch, 0, sizeof(bri_batch_hdr)); },
        [] {
            for (uint32_t count = 0; count < kRequests; ++count)
                bare_append(batch, MAC_EVENT_NOTIFY_ADDR, &record, sizeof record);
        });
}

// --- a notification of 200 records to one handler

struct Notification {
    bri_msg_hdr header{MAC_EVENT_NOTIFY_ADDR, sizeof records};
    bri_mac_msg records[kRequests];
};
Notification g_notification;

int take(uint32_t, void *data, uint16_t length) {
    g_handled += static_cast<const uint8_t *>(data)[4] + length;
    return 0;
}

double unpack(unsigned) {
    start();
    for (bri_mac_msg &record : g_notification.records) {
        record.oper = BRI_MAC_ADD;
        record.entry.type = BRI_MAC_TYPE_DYNAMIC;
        record.entry.ifx = kPort;
    }
    need(handle(only(MAC_EVENT_NOTIFY_ADDR), take), "the handler");
    const double time = per_call(kRequests, [] { mac_client_on_server_msg(&g_notification.header); });
    need(g_handled != 0, "the notification");
    return time;
}

double unpack_bare(unsigned) {
    const bri_event_handler handler = take;
    return per_call(kRequests, [=] {
        for (const bri_mac_msg &at : g_notification.records) {
            bri_mac_msg record = at;
            keep(record);
            handler(MAC_EVENT_NOTIFY_ADDR, &record, sizeof record);
        }
    });
}

// --- queries: the kernel is the other end of a pair, and answers in the middle of a send

constexpr uint16_t kFamily = 27;
int g_kernel = -1;    // its end of the one netlink socket that is open
unsigned g_in_table;  // entries that a walk still finds
size_t g_asked[2];    // bytes of the last resolution and of the last question
size_t g_answered[2]; // and of their answers

struct FamilyAnswer {
    nlmsghdr header;
    genlmsghdr generic;
    nlattr name_attr;
    char name[12];
    nlattr id_attr;
    uint16_t id;
    uint16_t padding;
};
template <class Query> struct EntryAnswer {
    nlmsghdr header;
    genlmsghdr generic;
    nlattr attr;
    Query query;
};

template <class Answer> bool answer(Answer &bytes, uint16_t type, bool question) {
    bytes.header.nlmsg_len = sizeof bytes;
    bytes.header.nlmsg_type = type;
    bytes.generic.cmd = CTRL_CMD_NEWFAMILY;
    g_answered[question ? 1 : 0] = sizeof bytes;
    return exchange(send(g_kernel, &bytes, sizeof bytes, 0), sizeof bytes);
}

bool answer_resolution() {
    FamilyAnswer bytes{};
    bytes.name_attr = {sizeof(nlattr) + sizeof "EF_BRIDGE", CTRL_ATTR_FAMILY_NAME};
    std::strcpy(bytes.name, "EF_BRIDGE");
    bytes.id_attr = {sizeof(nlattr) + sizeof bytes.id, CTRL_ATTR_FAMILY_ID};
    bytes.id = kFamily;
    return answer(bytes, GENL_ID_CTRL, false);
}

template <class Query> bool answer_question() {
    EntryAnswer<Query> bytes{};
    bytes.attr = {sizeof(nlattr) + sizeof bytes.query, 0};
    bytes.query.found = g_in_table > 0 ? 1 : 0;
    g_in_table -= bytes.query.found;
    bytes.query.result.ifx = kPort;
    return answer(bytes, kFamily, true);
}

// Reads a request at the kernel's end and answers it.
bool serve() {
    struct {
        nlmsghdr header;
        genlmsghdr generic;
        nlattr attr;
        int32_t type;
        uint8_t rest[512];
    } request;
    const ssize_t got = recv(g_kernel, &request, sizeof request, 0);
    if (got < static_cast<ssize_t>(sizeof request.header))
        return false;
    const bool question = request.header.nlmsg_type != GENL_ID_CTRL;
    g_asked[question ? 1 : 0] = static_cast<size_t>(got);
    if (!question)
        return answer_resolution();
    return request.type == MAC_EVENT_CLIENT_FIND_NEXT ? answer_question<bri_mac_find_next>()
                                                      : answer_question<bri_mac_find_first>();
}

bool ask() {
    g_in_table = 1;
    bri_mac_entry entry{};
    return bridge_maddr_find_single(kMac, 1, &entry) == 0 && entry.ifx == kPort;
}

double query(unsigned) {
    start();
    return per_call(1, [] { need(ask(), "a query"); });
}

// The same traffic without a library: a pair is opened, two requests of a query's bytes are answered, both ends closed.
double query_bare(unsigned) {
    start();
    need(ask(), "a query"); // whose lengths these are
    static uint8_t bytes[512];
    return per_call(1, [] {
        const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_GENERIC);
        nlmsghdr header{};
        for (const unsigned index : {0U, 1U}) {
            header.nlmsg_type = index == 0 ? uint16_t{GENL_ID_CTRL} : kFamily;
            std::memcpy(bytes, &header, sizeof header);
            need(exchange(send(fd, bytes, g_asked[index], MSG_NOSIGNAL), g_asked[index]) && serve() &&
                     exchange(recv(fd, bytes, sizeof bytes, 0), g_answered[index]),
                 "the dialogue");
        }
        close(fd);
    });
}

// A walk of so many entries, per entry.
double walk(unsigned size) {
    start();
    return per_call(size, [=] {
        g_in_table = size;
        bri_mac_entry entry{};
        entry.field = BRI_MAC_FIELD_MAC;
        unsigned found = bridge_maddr_find_first_on_mac(&entry) == 0 ? 1 : 0;
        while (found != 0 && bridge_maddr_find_next_on_mac(&entry, &entry) == 0)
            ++found;
        need(found == size, "the walk");
    });
}

// --- port states: 64 records for 65 instances each leave in 65 messages

constexpr uint32_t kStates = BRI_L2TOP_BATCH_MAX * BRI_STP_INSTANCES;
constexpr uint32_t kStateMessages = kStates / BRI_L2TOP_BATCH_MAX;
constexpr uint32_t kStateBytes = sizeof(bri_batch_hdr) + sizeof(bri_msg_hdr) + sizeof(l2top_port_status_batch);

void take_states() {
    need(drain(size_t{kStateMessages} * kStateBytes), "the states");
}

double expand(unsigned) {
    start();
    static l2top_port_status_batch batch{};
    batch.count = BRI_L2TOP_BATCH_MAX;
    for (l2top_port_status &record : batch.records)
        record = {kPort, BRI_L2TOP_INSTANCE_ALL, {}, 2, 0, 0, {}};
    need(bridge_set_port_fwd_status(&batch) == 0, "the states");
    return prepared(kStates, take_states, [] { need(bridge_set_port_fwd_status(&batch) == 0, "the states"); });
}

void send_states() {
    static uint8_t message[kStateBytes];
    l2top_port_status record{kPort, 0, {}, 2, 0, 0, {}};
    for (uint32_t sent = 0; sent < kStateMessages; ++sent) {
        uint8_t *at = message + sizeof(bri_batch_hdr) + sizeof(bri_msg_hdr) + sizeof(uint32_t);
        for (uint32_t count = 0; count < BRI_L2TOP_BATCH_MAX; ++count, at += sizeof record) {
            record.instance = static_cast<uint16_t>((sent + count) % BRI_STP_INSTANCES);
            std::memcpy(at, &record, sizeof record);
        }
        need(exchange(send(g_near, message, sizeof message, MSG_DONTWAIT | MSG_NOSIGNAL), sizeof message), "a message");
    }
}

double expand_bare(unsigned) {
    start();
    send_states();
    return prepared(kStates, take_states, send_states);
}

constexpr Measurement kMeasurements[] = {
    {"request_add", request_add},
    {"request_delete", request_delete},
    {"request_bare", request_bare},
    {"unpack", unpack},
    {"unpack_bare", unpack_bare},
    {"query", query},
    {"query_bare", query_bare},
    {"walk", walk},
    {"expand", expand},
    {"expand_bare", expand_bare},
};

} // namespace

std::span<const Measurement> requests() {
    return kMeasurements;
}

} // namespace bench

// --- the calls that this program takes the place of, in the library too: those of a query; others pass

extern "C" {

int socket(int domain, int type, int protocol) {
    if (domain != AF_NETLINK)
        return static_cast<int>(syscall(SYS_socket, domain, type, protocol));
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        return -1;
    bench::g_kernel = ends[1];
    return ends[0];
}

int bind(int fd, const sockaddr *address, socklen_t length) {
    return address->sa_family == AF_NETLINK ? 0 : static_cast<int>(syscall(SYS_bind, fd, address, length));
}

ssize_t sendto(int fd, const void *data, size_t size, int flags, const sockaddr *address, socklen_t length) {
    if (address == nullptr || address->sa_family != AF_NETLINK)
        return syscall(SYS_sendto, fd, data, size, flags, address, length);
    const ssize_t sent = send(fd, data, size, flags);
    return bench::serve() ? sent : -1;
}

int close(int fd) {
    if (bench::g_kernel >= 0)
        syscall(SYS_close, std::exchange(bench::g_kernel, -1));
    return static_cast<int>(syscall(SYS_close, fd));
}

} // extern "C"
