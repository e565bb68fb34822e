// The replay of the topology as a part of a larger one.
#pragma once

namespace bri::l2top {

// l2top_clnt_notify_origin_data within the level of the caller's replay.
void replay();

} // namespace bri::l2top
