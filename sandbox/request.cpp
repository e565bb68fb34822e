#include "sandbox/request.h"

namespace sandbox {

const Request *find_request(uint32_t type) {
    static const Requests families[] = {vlan_requests(), mac_requests(), topology_requests()};
    for (const Requests family : families)
        for (const Request &row : family)
            if (row.type == type)
                return &row;
    return nullptr;
}

} // namespace sandbox
