/* Figures, copied out. */
#include "layer.h"

uint32_t bri_host_runs_dropped(void) {
    return g_bridge_client->cache_drop - bri_host.dropped_before;
}

int bridge_host_get_statistics(struct bridge_host_statistics *out) {
    if (out == NULL)
        return BRI_ERR_NULL;
    const uint32_t size = out->size;
    if (size < sizeof size)
        return BRI_ERR_INVALID;
    struct bridge_host_statistics figures = bri_host.statistics;
    if (bri_host.started)
        figures.runs_dropped = bri_host_runs_dropped();
    bri_host_running_outage(&figures);
    figures.size = size;
    memset(out, 0, size);
    memcpy(out, &figures, size < sizeof figures ? size : sizeof figures);
    return 0;
}
