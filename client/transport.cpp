// Not built yet: every operation gives its failure value.
#include "client/state.h"
#include <bridge/bridge.h>

int bridge_client_socket_create(struct bri_clnt_ctx *) { return -1; }
int bridge_client_socket_connect(struct bri_clnt_ctx *) { return -1; }
void bridge_client_connect_reset() {}
int bridge_readn(int , void *, uint32_t ) { return -1; }
int bridge_writen(int , const void *, uint32_t ) { return -1; }
int bridge_writen_dontwait(int , const void *, uint32_t , uint32_t *) { return -1; }
int bridge_client_send_message(const void *, uint32_t , uint32_t ) { return -1; }
int bridge_client_send_message_ontime(const void *, uint32_t , uint32_t ) { return -1; }
int bridge_client_read_msg(int , struct bri_batch_hdr **) { return -1; }
