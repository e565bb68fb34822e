#include "client/replay_level.h"

#include "base/log.h"

namespace bri::client {

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

} // namespace bri::client
