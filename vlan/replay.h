// The replay of VLANs and ports as a part of a larger one.
#pragma once

namespace bri::vlan {

// vl_clnt_notify_origin_data within the level of the caller's replay.
void replay();

} // namespace bri::vlan
