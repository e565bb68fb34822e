#include "kernel.h"

#include <bridge/mac_client.h>

#include <errno.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

enum { ATTRIBUTE = sizeof(struct nlmsghdr) + sizeof(struct genlmsghdr), PAYLOAD = ATTRIBUTE + sizeof(struct nlattr) };
enum { COMMAND = 3, VERSION = 1, LENGTH_EXTRA = 1 /* of an attribute, as every client of the module counts */ };
enum { QUESTION_MAX = 192, ANSWER_MAX = 10248 };
_Static_assert(PAYLOAD + 8 + sizeof(struct bri_mac_find_next) + NLA_ALIGNTO <= QUESTION_MAX, "the questions fit");
_Static_assert((int)CTRL_CMD_GETFAMILY == (int)COMMAND, "one command for all");

static const char family_name[] = "EF_BRIDGE";

static size_t padded(size_t length) {
    return (length + NLA_ALIGNTO - 1) / NLA_ALIGNTO * NLA_ALIGNTO;
}

int bri_host_kernel_open(void) {
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
    uint8_t bytes[QUESTION_MAX] = {0};
    const size_t length = sizeof(struct nlattr) + size + LENGTH_EXTRA;
    const struct nlattr attr = {.nla_len = (uint16_t)length, .nla_type = attribute};
    const struct genlmsghdr generic = {.cmd = COMMAND, .version = VERSION};
    const struct nlmsghdr header = {.nlmsg_len = (uint32_t)(ATTRIBUTE + padded(length)),
                                    .nlmsg_type = type,
                                    .nlmsg_flags = NLM_F_REQUEST,
                                    .nlmsg_pid = (uint32_t)getpid()};
    const struct sockaddr_nl kernel = {.nl_family = AF_NETLINK};
    memcpy(bytes, &header, sizeof header);
    memcpy(bytes + sizeof header, &generic, sizeof generic);
    memcpy(bytes + ATTRIBUTE, &attr, sizeof attr);
    memcpy(bytes + PAYLOAD, payload, size);
    if (sendto(fd, bytes, header.nlmsg_len, MSG_DONTWAIT | MSG_NOSIGNAL, (const struct sockaddr *)&kernel,
               sizeof kernel) == (ssize_t)header.nlmsg_len)
        return 0;
    return errno == EAGAIN || errno == ENOBUFS || errno == EINTR ? BRI_HOST_LATER : BRI_HOST_GONE;
}

/* One message of this type with its attributes whole in `bytes`. */
static int receive(int fd, uint16_t type, uint8_t *bytes, size_t *size) {
    struct nlmsghdr header = {0};
    const ssize_t got = recv(fd, bytes, ANSWER_MAX, MSG_DONTWAIT);
    if (got < 0)
        return errno == EAGAIN || errno == EINTR ? BRI_HOST_LATER : BRI_HOST_GONE;
    if ((size_t)got < sizeof header)
        return BRI_HOST_NONSENSE;
    memcpy(&header, bytes, sizeof header);
    struct genlmsghdr generic = {0};
    if ((size_t)got >= ATTRIBUTE)
        memcpy(&generic, bytes + sizeof header, sizeof generic);
    if (header.nlmsg_type == NLMSG_ERROR || (header.nlmsg_type == GENL_ID_CTRL && generic.cmd == CTRL_CMD_DELFAMILY))
        return BRI_HOST_GONE;
    *size = header.nlmsg_len;
    return header.nlmsg_type == type && *size >= PAYLOAD && *size <= (size_t)got ? 0 : BRI_HOST_NONSENSE;
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

int bri_host_kernel_ask_family(int fd) {
    return send_question(fd, GENL_ID_CTRL, CTRL_ATTR_FAMILY_NAME, family_name, sizeof family_name);
}

int bri_host_kernel_take_family(int fd, uint16_t *family) {
    uint8_t bytes[ANSWER_MAX];
    size_t size = 0;
    size_t length = 0;
    const int result = receive(fd, GENL_ID_CTRL, bytes, &size);
    if (result != 0)
        return result;
    const uint8_t *name = find(bytes, size, CTRL_ATTR_FAMILY_NAME, &length);
    if (name == NULL || length < sizeof family_name || memcmp(name, family_name, sizeof family_name) != 0)
        return BRI_HOST_NONSENSE;
    const uint8_t *id = find(bytes, size, CTRL_ATTR_FAMILY_ID, &length);
    if (id == NULL || length < sizeof *family)
        return BRI_HOST_NONSENSE;
    memcpy(family, id, sizeof *family);
    return 0;
}

int bri_host_kernel_ask(int fd, uint16_t family, uint32_t event, const void *data, uint32_t size) {
    uint8_t payload[2 * sizeof(uint32_t) + sizeof(struct bri_mac_find_next)];
    const uint32_t head[2] = {event, size};
    memcpy(payload, head, sizeof head);
    memcpy(payload + sizeof head, data, size);
    return send_question(fd, family, 0, payload, sizeof head + size);
}

int bri_host_kernel_take(int fd, uint16_t family, void *data, uint32_t size) {
    uint8_t bytes[ANSWER_MAX];
    size_t got = 0;
    const int result = receive(fd, family, bytes, &got);
    if (result != 0)
        return result;
    if (got < PAYLOAD + size)
        return BRI_HOST_NONSENSE;
    memcpy(data, bytes + PAYLOAD, size);
    return 0;
}
