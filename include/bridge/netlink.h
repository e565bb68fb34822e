/* Kernel channel: generic netlink family "EF_BRIDGE".
 *
 * One persistent socket per process takes one-way messages and is read by a job of the host's loop, which is added anew
 * after each message; every query opens a socket of its own. When the kernel side goes (it reports that a family was
 * deleted or an error, or a message is longer than 10248 bytes) the channel is closed and brought up again by a
 * one-second timer, which also reopens a channel that the host closes while it is pending. A job that the loop refuses
 * is asked for again every 50 ms.
 *
 * All operations belong to the loop's thread. They may hold it: for up to 10 seconds each time the kernel is to answer
 * and does not (without bound where the system grants the socket no time-out), and for up to 100 ms while a socket is
 * too full to take a message.
 *
 * @code
 * #include <string.h>
 *
 * // A question without data; `size` is what its answer holds.
 * int ask(int32_t type, void *answer, size_t size) {
 *     const void *found = bridge_lib_query_netlink(NULL, 0, type);
 *     if (found == NULL)
 *         return -1;
 *     memcpy(answer, found, size); // the next question overwrites it
 *     return 0;
 * }
 * @endcode
 */
#ifndef BRIDGE_NETLINK_H
#define BRIDGE_NETLINK_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

/* Brings the channel of this process up: opens the socket, finds the family, adds the read job "bri-ef-read" to the
 * client's event loop, sets the client's nl_ready and raises BRIDGE_EVENT_KERNEL_DATA_REQ to the host's handlers; the
 * reconnect timer raises it a second time, so after a loss it comes twice. An open socket and a known family are kept;
 * the read job is added anew in place of a pending one. 1 when the channel is up, 0 when a step failed or `client` is
 * null; what was opened is then kept for the next call. */
BRI_API int bridge_lib_nlclient_init(struct bri_clnt_ctx *client);

/* Closes the channel, cancels its read job and clears the client's nl_ready; `client` may be null. A reconnect timer
 * that is pending stays, and brings the channel up again. */
BRI_API void bridge_lib_nlclient_deinit(struct bri_clnt_ctx *client);

/* Sends `len` bytes (at most 19987; `data` may be null when it is 0) as one message of this type on the persistent
 * socket. No answer is awaited. 0, or -1 when it could not be sent. */
BRI_API int bridge_lib_send_netlink(const uint8_t *data, uint32_t len, int32_t type);

/* Asks the kernel: sends `len` bytes (at most 19987; `data` may be null when it is 0) as one message of this type and
 * waits up to 10 seconds for the family and for the answer each. The attribute payload of the answer, or null when
 * there is none; an error answer also restarts the persistent channel. The result lies, 8-byte aligned, in a buffer of
 * the library that holds 10224 bytes from there on, all zero behind the answer, and is valid until the next query. */
BRI_API void *bridge_lib_query_netlink(const void *data, uint32_t len, int32_t type);

/* Reads the next message of this family on a generic netlink socket of the caller's, as a query does with its own.
 * Waits as long as the socket does. Result as for bridge_lib_query_netlink. */
BRI_API void *bridge_lib_feedback_netlink(int fd, int32_t family_id);

/* Gets the attribute payload of every message that the read job takes off the persistent socket. Does nothing: what
 * the kernel sends unasked is of no use to a client. */
BRI_API void bridge_lib_nlmsg_dispch(void *payload);

BRI_END_DECLS

#endif
