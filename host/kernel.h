/* The kernel channel's messages, for a socket that does not wait.
 *
 *     0         16        20          24
 *     +---------+---------+-----------+------------------+-----+
 *     | nlmsghdr| genlmsg | nlattr    | payload          | pad |
 *     +---------+---------+-----------+------------------+-----+
 *
 * The payload of a question is its event type, the length of its data, and the data; that of an answer the data alone,
 * of the same layout. */
#ifndef BRIDGE_HOST_KERNEL_H
#define BRIDGE_HOST_KERNEL_H

#include <stddef.h>
#include <stdint.h>

/* What became of a step: 0, or */
enum {
    BRI_HOST_LATER = 1,    /* the socket would wait */
    BRI_HOST_GONE = 2,     /* there is no bridge module, or it reports an error */
    BRI_HOST_NONSENSE = 3, /* an answer that cannot be */
};

int bri_host_kernel_open(void); /* a socket, or -1 */
int bri_host_kernel_ask_family(int fd);
int bri_host_kernel_take_family(int fd, uint16_t *family);
int bri_host_kernel_ask(int fd, uint16_t family, uint32_t event, const void *data, uint32_t size);
int bri_host_kernel_take(int fd, uint16_t family, void *data, uint32_t size);

#endif
