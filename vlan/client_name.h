// The name that the VLAN client's log lines give the host.
#pragma once

namespace bri::vlan {

// Empty before vl_clnt_manage_init succeeded.
const char *client_name();

} // namespace bri::vlan
