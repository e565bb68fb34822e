/* Kernel channel: generic netlink family "EF_BRIDGE".
 *
 * One persistent socket per process takes one-way messages and is read by a job of the host's loop; every query opens
 * a socket of its own. When the kernel side goes (it reports that a family was deleted or an error, or a message is
 * longer than 10248 bytes) the channel is closed and brought up again by a one-second timer.
 */
#ifndef BRIDGE_NETLINK_H
#define BRIDGE_NETLINK_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

/* Brings the channel of this process up: opens the socket, finds the family, adds the read job "bri-ef-read" to the
 * client's event loop, sets the client's nl_ready and raises BRIDGE_EVENT_KERNEL_DATA_REQ to the host's handlers. Steps
 * that are done already are not repeated. Waits up to 10 seconds for the kernel. 1 when the channel is up, 0 when a
 * step failed or `client` is null; what was opened is then kept for the next call. Loop's thread. */
BRI_API int bridge_lib_nlclient_init(struct bri_clnt_ctx *client);

/* Closes the channel, cancels its read job and clears the client's nl_ready; `client` may be null. Loop's thread. */
BRI_API void bridge_lib_nlclient_deinit(struct bri_clnt_ctx *client);

/* Sends `len` bytes (at most 19987; `data` may be null when it is 0) as one message of this type on the persistent
 * socket. No answer is awaited. 0, or -1 when it could not be sent. Any thread. */
BRI_API int bridge_lib_send_netlink(const uint8_t *data, uint32_t len, int32_t type);

/* Asks the kernel: sends `len` bytes (at most 19987; `data` may be null when it is 0) as one message of this type and
 * waits up to 10 seconds for the family and for the answer each. The attribute payload of the answer, or null when
 * there is none; an error answer also restarts the persistent channel. The result lies, 8-byte aligned, in a buffer of
 * the library that holds 10224 bytes from there on, all zero behind the answer, and is valid until the next query.
 * Loop's thread; queries do not run at the same time. */
BRI_API void *bridge_lib_query_netlink(const void *data, uint32_t len, int32_t type);

/* Reads the next message of this family on a generic netlink socket of the caller's, as a query does with its own.
 * Waits as long as the socket does. Result and thread as for bridge_lib_query_netlink. */
BRI_API void *bridge_lib_feedback_netlink(int fd, int32_t family_id);

/* Gets the attribute payload of every message that the read job takes off the persistent socket. Does nothing: what
 * the kernel sends unasked is of no use to a client. */
BRI_API void bridge_lib_nlmsg_dispch(void *payload);

BRI_END_DECLS

#endif
