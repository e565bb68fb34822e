// Texts of the library's error codes.
#include <bridge/services.h>

#include <iterator>

namespace bri::client {

namespace {

struct ErrorText {
    int code;
    const char *text;
};

constexpr ErrorText kErrorTexts[] = {
    {BRI_OK, "Success, not errno"},
    {BRI_ERR_NULL, "Input null pointer"},
    {BRI_ERR_INVALID, "Invalid argument"},
    {BRI_ERR_NOT_PERMITTED, "Operation not permit"},
    {BRI_ERR_NO_MEMORY, "No memory"},
    {BRI_ERR_SOCKET, "Error socket"},
    {BRI_ERR_WOULD_BLOCK, "Socket would block"},
    {BRI_ERR_NO_VLAN, "No such vlan"},
    {BRI_ERR_VLAN_MODE, "Cannot operate on this vlan mode"},
    {BRI_ERR_NO_INTERFACE, "Interface isn't exists"},
    {BRI_ERR_ROUTE_PORT, "Interface is route, isn't switchport"},
    {BRI_ERR_PORT_MODE, "Cannot operate on this switchport vlan mode"},
    {BRI_ERR_UNKNOWN, "unknown errno"},
};

constexpr bool rows_count_down() {
    for (int row = 0; row < static_cast<int>(std::size(kErrorTexts)); ++row)
        if (kErrorTexts[row].code != -row)
            return false;
    return true;
}
static_assert(rows_count_down(), "texts are looked up by the code's magnitude");

} // namespace

} // namespace bri::client

using namespace bri;
using namespace bri::client;

const char *bri_strerror(int code) {
    const bool known = code <= BRI_OK && code >= BRI_ERR_UNKNOWN;
    return kErrorTexts[-(known ? code : BRI_ERR_UNKNOWN)].text;
}
