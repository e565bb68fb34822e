/* Walks over the kernel's address table, a slice at a time, each on a socket of its own that does not wait. */
#include "layer.h"

#include <bridge/events.h>

#include <errno.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

enum { SLICE_US = 1000, ANSWER_MS = 10000, PAUSE_US = 1000 };
enum state { IDLE = 0, RESOLVE, FIRST, NEXT };
enum { ASKED = 0x100 }; /* with a state: its question is out */

/* The kernel channel's messages -------------------------------------------------------------------------------------
 *
 *     0         16        20          24
 *     +---------+---------+-----------+------------------+-----+
 *     | nlmsghdr| genlmsg | nlattr    | payload          | pad |
 *     +---------+---------+-----------+------------------+-----+
 *
 * The payload of a question is its event type, the length of its data, and the data; that of an answer the data alone,
 * of the same layout. */

/* What became of a step: 0, or */
enum {
    LATER = 1,    /* the socket would wait */
    GONE = 2,     /* there is no bridge module, or it reports an error */
    NONSENSE = 3, /* an answer that cannot be */
};

enum { COMMAND = 3, VERSION = 1, LENGTH_EXTRA = 1 /* of an attribute, as every client of the module counts */ };
enum { ANSWER_MAX = 10248 };

struct question {
    struct nlmsghdr header;
    struct genlmsghdr generic;
    struct nlattr attr;
    uint8_t payload[2 * sizeof(uint32_t) + sizeof(struct bri_mac_find_next) + NLA_ALIGNTO];
};
enum { ATTRIBUTE = offsetof(struct question, attr), PAYLOAD = offsetof(struct question, payload) };
_Static_assert(ATTRIBUTE == 20 && PAYLOAD == 24, "no gaps");
_Static_assert((int)CTRL_CMD_GETFAMILY == (int)COMMAND, "one command for all");

static const char family_name[] = "EF_BRIDGE";

static size_t padded(size_t length) {
    return (length + NLA_ALIGNTO - 1) / NLA_ALIGNTO * NLA_ALIGNTO;
}

static int open_channel(void) {
    const struct sockaddr_nl address = {.nl_family = AF_NETLINK};
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_GENERIC);
    if (fd >= 0 && bind(fd, (const struct sockaddr *)&address, sizeof address) == 0)
        return fd;
    if (fd >= 0)
        close(fd);
    return -1;
}

/* A question of one attribute. */
static int send_question(int fd, uint16_t type, uint16_t attribute, const void *payload, size_t size) {
    const size_t length = sizeof(struct nlattr) + size + LENGTH_EXTRA;
    const struct sockaddr_nl kernel = {.nl_family = AF_NETLINK};
    struct question question = {.generic = {.cmd = COMMAND, .version = VERSION},
                                .attr = {.nla_len = (uint16_t)length, .nla_type = attribute}};
    const size_t whole = ATTRIBUTE + padded(length);
    question.header = (struct nlmsghdr){(uint32_t)whole, type, NLM_F_REQUEST, 0, (uint32_t)getpid()};
    memcpy(question.payload, payload, size);
    if (sendto(fd, &question, whole, MSG_DONTWAIT | MSG_NOSIGNAL, (const void *)&kernel, sizeof kernel) ==
        (ssize_t)whole)
        return 0;
    return errno == EAGAIN || errno == ENOBUFS || errno == EINTR ? LATER : GONE;
}

/* One message of this type with its attributes whole in `bytes`. */
static int receive_message(int fd, uint16_t type, uint8_t *bytes, size_t *size) {
    struct question head = {0};
    const ssize_t got = recv(fd, bytes, ANSWER_MAX, MSG_DONTWAIT);
    if (got < 0)
        return errno == EAGAIN || errno == EINTR ? LATER : GONE;
    if ((size_t)got < sizeof head.header)
        return NONSENSE;
    memcpy(&head, bytes, (size_t)got >= ATTRIBUTE ? ATTRIBUTE : sizeof head.header);
    const uint16_t kind = head.header.nlmsg_type;
    if (kind == NLMSG_ERROR || (kind == GENL_ID_CTRL && head.generic.cmd == CTRL_CMD_DELFAMILY))
        return GONE;
    *size = head.header.nlmsg_len;
    return kind == type && *size >= PAYLOAD && *size <= (size_t)got ? 0 : NONSENSE;
}

/* The attribute of this type among those of a message: its payload and length, or null. */
static const uint8_t *find(const uint8_t *bytes, size_t size, uint16_t type, size_t *length) {
    struct nlattr attr;
    for (size_t at = ATTRIBUTE; at + sizeof attr <= size; at += padded(attr.nla_len)) {
        memcpy(&attr, bytes + at, sizeof attr);
        if (attr.nla_len < sizeof attr || at + attr.nla_len > size)
            return NULL;
        *length = attr.nla_len - sizeof attr;
        if (attr.nla_type == type)
            return bytes + at + sizeof attr;
    }
    return NULL;
}

/* Walks ----------------------------------------------------------------------------------------------------------- */

static struct bri_list walks = {&walks, &walks};
static struct bridge_host_walk *active; /* whose slice runs; null once it has ended */

static struct bridge_host_walk *of_link(struct bri_list *link) {
    return (struct bridge_host_walk *)((char *)link - offsetof(struct bridge_host_walk, link));
}

static int on_turn(void *arg);
static int on_silence(void *arg);

static void take_out(struct bridge_host_walk *walk) {
    bri_host_cancel_job(on_turn, walk);
    bri_host_cancel_job(on_silence, walk);
    close(walk->fd);
    bri_host_unlink(&walk->link);
    walk->state = IDLE;
    if (active == walk)
        active = NULL;
}

static void finish(struct bridge_host_walk *walk, int result) {
    take_out(walk);
    if (walk->on_end != NULL)
        walk->on_end(walk, result, walk->context);
}

void bri_host_walks_end(int result) {
    while (walks.next != &walks)
        finish(of_link(walks.next), result);
}

/* Questions and answers ------------------------------------------------------------------------------------------- */

static struct bri_mac_entry key_of(const struct bridge_host_walk *walk) {
    struct bri_mac_entry key = {.field = walk->ifx != 0 ? BRI_MAC_FIELD_IFX : BRI_MAC_FIELD_MAC, .ifx = walk->ifx};
    if (walk->ifx == 0)
        memcpy(key.mac, walk->current.mac, sizeof key.mac);
    return key;
}

/* The question for the first entry is that for the next one without its end. */
static int ask(struct bridge_host_walk *walk) {
    const bool first = walk->state == FIRST;
    const struct {
        uint32_t event;
        uint32_t size;
        struct bri_mac_find_next data;
    } question = {first ? MAC_EVENT_CLIENT_FIND_FIRST : MAC_EVENT_CLIENT_FIND_NEXT,
                  first ? sizeof(struct bri_mac_find_first) : sizeof(struct bri_mac_find_next),
                  {.key = key_of(walk), .current = walk->current}};
    if (walk->state == RESOLVE)
        return send_question(walk->fd, GENL_ID_CTRL, CTRL_ATTR_FAMILY_NAME, family_name, sizeof family_name);
    return send_question(walk->fd, walk->family, 0, &question, 2 * sizeof(uint32_t) + question.size);
}

static int take_family(struct bridge_host_walk *walk, const uint8_t *bytes, size_t size) {
    size_t length = 0;
    const uint8_t *name = find(bytes, size, CTRL_ATTR_FAMILY_NAME, &length);
    if (name == NULL || length < sizeof family_name || memcmp(name, family_name, sizeof family_name) != 0)
        return NONSENSE;
    const uint8_t *id = find(bytes, size, CTRL_ATTR_FAMILY_ID, &length);
    if (id == NULL || length < sizeof walk->family)
        return NONSENSE;
    memcpy(&walk->family, id, sizeof walk->family);
    walk->state = FIRST;
    return 0;
}

/* Of the two answers, which end alike, the shorter one begins later. */
static int receive(struct bridge_host_walk *walk, struct bri_mac_find_next *answer) {
    uint8_t bytes[ANSWER_MAX];
    size_t size = 0;
    const bool resolving = walk->state == (RESOLVE | ASKED);
    const size_t length = walk->state == (FIRST | ASKED) ? sizeof(struct bri_mac_find_first) : sizeof *answer;
    const int result = receive_message(walk->fd, resolving ? GENL_ID_CTRL : walk->family, bytes, &size);
    if (result != 0)
        return result;
    if (resolving)
        return take_family(walk, bytes, size);
    if (size < PAYLOAD + length)
        return NONSENSE;
    memcpy((uint8_t *)(answer + 1) - length, bytes + PAYLOAD, length);
    return 0;
}
_Static_assert(sizeof(struct bri_mac_find_next) - offsetof(struct bri_mac_find_next, found) ==
                   sizeof(struct bri_mac_find_first) - offsetof(struct bri_mac_find_first, found),
               "the answers end alike");

static bool is_same(const struct bri_mac_entry *left, const struct bri_mac_entry *right) {
    return left->bcast_id == right->bcast_id && memcmp(left->mac, right->mac, sizeof left->mac) == 0;
}

/* The callback may end this walk, or begin it anew: it is looked at no more then. */
static int take_entry(struct bridge_host_walk *walk, const struct bri_mac_entry *entry) {
    if (walk->state == (NEXT | ASKED) && is_same(entry, &walk->current))
        return NONSENSE;
    walk->current = *entry;
    walk->state = NEXT;
    const int enough = walk->on_entry(entry, walk->context);
    if (active == walk && enough != 0)
        finish(walk, 0);
    return 0;
}

static int take(struct bridge_host_walk *walk) {
    const bool resolving = walk->state == (RESOLVE | ASKED);
    struct bri_mac_find_next answer;
    const int result = receive(walk, &answer);
    if (result != 0 || resolving)
        return result;
    if (answer.found != 0)
        return take_entry(walk, &answer.result);
    finish(walk, 0);
    return 0;
}

static int ask_once(struct bridge_host_walk *walk) {
    const int result = (walk->state & ASKED) != 0 ? 0 : ask(walk);
    if (result == 0)
        walk->state |= ASKED;
    return result;
}

/* Slices ---------------------------------------------------------------------------------------------------------- */

static bool await_answer(struct bridge_host_walk *walk) {
    const uint64_t limit = (uint64_t)(walk->answer_ms != 0 ? walk->answer_ms : ANSWER_MS) * 1000;
    return bri_host_after(on_silence, walk, limit, "host-walk-limit") &&
           qv_thread_add_read_withname(bri_host.config.master, on_turn, walk, walk->fd, "host-walk-read") != NULL;
}

/* What the socket cannot take now is tried again in the next slice. Others have their turn before it, which an event
 * job would not give them. */
static void end_slice(struct bridge_host_walk *walk, int result) {
    const bool awaits = result == LATER && (walk->state & ASKED) != 0;
    if (result != 0 && result != LATER)
        finish(walk, result == GONE ? BRI_ERR_SOCKET : BRI_ERR_UNKNOWN);
    else if (awaits ? !await_answer(walk) : !bri_host_after(on_turn, walk, PAUSE_US, "host-walk"))
        finish(walk, BRI_ERR_NO_MEMORY);
}

static void run_slice(struct bridge_host_walk *walk) {
    struct bridge_host_walk *const outer = active;
    const int64_t end = bri_host_now_us() + (walk->slice_us != 0 ? walk->slice_us : SLICE_US);
    int result = 0;
    active = walk;
    do {
        result = ask_once(walk);
        if (result == 0)
            result = take(walk);
    } while (active == walk && result == 0 && bri_host_now_us() < end);
    if (active == walk)
        end_slice(walk, result);
    active = outer;
}

static int on_turn(void *arg) {
    bri_host_cancel_job(on_silence, arg);
    run_slice(arg);
    return 0;
}

static int on_silence(void *arg) {
    finish(arg, BRI_ERR_WOULD_BLOCK);
    return 0;
}

static int begin(struct bridge_host_walk *walk) {
    walk->fd = open_channel();
    if (walk->fd < 0)
        return BRI_ERR_SOCKET;
    if (!bri_host_after(on_turn, walk, 0, "host-walk")) {
        close(walk->fd);
        return BRI_ERR_NO_MEMORY;
    }
    memset(&walk->current, 0, sizeof walk->current);
    walk->state = RESOLVE;
    bri_host_append(&walks, &walk->link);
    ++bri_host.statistics.walks;
    return 0;
}

int bridge_host_walk_start(struct bridge_host_walk *walk) {
    if (walk == NULL || walk->on_entry == NULL)
        return BRI_ERR_NULL;
    if (!bri_host_runs())
        return BRI_ERR_NOT_PERMITTED;
    return walk->state != IDLE ? BRI_ERR_INVALID : begin(walk);
}

void bridge_host_walk_cancel(struct bridge_host_walk *walk) {
    if (walk != NULL && walk->state != IDLE)
        take_out(walk);
}
