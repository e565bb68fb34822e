/* Figures, copied out. */
#include "layer.h"

struct bri_counters bri_host_counters(void) {
    struct bri_counters counters = {0};
    bridge_client_get_counters(&counters, sizeof counters);
    return counters;
}

static uint32_t grown(uint64_t now, uint64_t before) {
    return (uint32_t)(now - before);
}

/* The library's counters stay when the layer has ended, which cannot add to them any more. */
static void add_library(struct bridge_host_statistics *figures) {
    const struct bri_counters now = bri_host_counters();
    const struct bri_counters *before = &bri_host.before;
    figures->dropped_stale = grown(now.dropped_stale, before->dropped_stale);
    figures->dropped_missed = (uint32_t)(bri_host_missed() - bri_host.missed_before);
    figures->runs_dropped = grown(now.runs_dropped, before->runs_dropped);
}

int bridge_host_get_statistics(struct bridge_host_statistics *out) {
    if (out == NULL)
        return BRI_ERR_NULL;
    const uint32_t size = out->size;
    if (size < sizeof size)
        return BRI_ERR_INVALID;
    struct bridge_host_statistics figures = bri_host.statistics;
    add_library(&figures);
    bri_host_running_outage(&figures);
    figures.size = size;
    memset(out, 0, size);
    memcpy(out, &figures, size < sizeof figures ? size : sizeof figures);
    return 0;
}
