#include "layer.h"

#include <stdio.h>

static void on_stopped(const struct bridge_host_left *left, void *context) {
    (void)context;
    if (left->result != 0)
        fprintf(stderr, "the last requests may not have reached the server: %s\n", bri_strerror(left->result));
    qv_thread_master_stop(host_loop);
}

/* A second signal does not wait. */
void layer_stop(void) {
    if (bridge_host_stop(on_stopped) != 0)
        qv_thread_master_stop(host_loop);
}

bool layer_start(struct bridge_host_config *config) {
    if (!host_make_loop())
        return false;
    host_at_end = layer_stop;
    config->size = sizeof *config;
    config->master = host_loop;
    return bridge_host_start(config) == 0;
}
