// The count of the replays that run inside each other.
#include "base/log.h"
#include "base/runtime.h"

namespace bri::runtime {

namespace {

unsigned g_running;

} // namespace

ReplayLevel::ReplayLevel() : entered_(g_running < kMost) {
    if (entered_)
        ++g_running;
    else
        BRI_LOG(log::kClient, "oridata is asked for inside %u replays of it, discarded.\n", g_running);
}

ReplayLevel::~ReplayLevel() {
    if (entered_)
        --g_running;
}

} // namespace bri::runtime
