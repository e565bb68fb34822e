/* Kernel channel: generic netlink family "EF_BRIDGE". */
#ifndef BRIDGE_NETLINK_H
#define BRIDGE_NETLINK_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

BRI_API int bridge_lib_nlclient_init(struct bri_clnt_ctx *client);

BRI_API void bridge_lib_nlclient_deinit(struct bri_clnt_ctx *client);

BRI_API int bridge_lib_send_netlink(const uint8_t *data, uint32_t len, int32_t type);

BRI_API void *bridge_lib_query_netlink(const void *data, uint32_t len, int32_t type);

BRI_API void *bridge_lib_feedback_netlink(int fd, int32_t family_id);

BRI_API void bridge_lib_nlmsg_dispch(void *payload);

BRI_END_DECLS

#endif
