// The VLAN table and the port table, printed for a person.
#include "base/bits.h"
#include "base/log.h"
#include "base/raii.h"
#include "base/shared_word.h"
#include "base/text.h"

#include <bridge/port_db.h>
#include <bridge/vlan_client.h>
#include <bridge/vlan_db.h>
#include <bridge/vlan_list.h>

#include <cstdio>
#include <cstdlib>

namespace bri::vlan {

namespace {

constexpr unsigned kPortsOnALine = 4;
constexpr uint32_t kVlanListWidth = 22; // of the port table's last column

const char *status(const vle &entry) {
    switch (word::load(entry.mode)) {
    case BRI_VLAN_STATIC:
        return "STATIC";
    case BRI_VLAN_DYNAMIC:
        return "DYNAMIC";
    case BRI_VLAN_SUPER:
        return word::load(entry.manage_vid) == word::load(entry.vid) ? "SUPER" : "SUB";
    default:
        return "Unknown";
    }
}

struct PortBitmap {
    uint32_t words[BRI_PORT_SLOTS / 32];
};

// The next ports of a VLAN as text, a line's worth; what is taken leaves the bitmap.
struct PortGroup {
    char text[sizeof "63, 63, 63, 63"] = {};

    explicit PortGroup(PortBitmap &left) {
        unsigned count = 0;
        size_t length = 0;
        bits::for_each(left.words, 0, BRI_PORT_SLOTS - 1, [&](unsigned ifx) {
            bits::clear(left.words, ifx);
            if (swport_check_exist(static_cast<int32_t>(ifx)) != 0)
                length += static_cast<size_t>(std::snprintf(text + length, sizeof text - length,
                                                            count++ == 0 ? "%d" : ", %d", static_cast<int>(ifx)));
            return count < kPortsOnALine;
        });
    }
    [[nodiscard]] bool empty() const { return *text == '\0'; }
};

void print_row(uint16_t vid, const vle &entry, PortBitmap &ports) {
    char name[BRI_VLAN_NAME_SIZE];
    copy_text(name, entry.name);
    const PortGroup first(ports);
    BRI_LOG(log::kPrint, "%4d %-10s %7d %-9s %-7d %-6d %-5s %-38s\n", vid, name, vl_get_vlan_private_version(vid),
            status(entry), static_cast<int>(word::load(entry.svi_ifx)), static_cast<int>(word::load(entry.up_mem)),
            word::load(entry.proxy) != 0 ? "ON" : "OFF", first.text);
    for (PortGroup more(ports); !more.empty(); more = PortGroup(ports))
        BRI_LOG(log::kPrint, "%-47s %-38s\n", " ", more.text);
}

// The look-up may call handlers, so the VLAN may be gone behind it. Without memory for its ports it is left out.
void print_vlan(uint16_t vid) {
    vle *entry = nullptr;
    vl_clnt_get_vle_from_vid(vid, &entry);
    if (entry == nullptr)
        return;
    const HeapPtr<PortBitmap> ports(static_cast<PortBitmap *>(std::malloc(sizeof(PortBitmap))));
    if (ports.ok() && vl_get_vlan_port_bmap(vid, ports->words) != 0)
        print_row(vid, *entry, *ports);
}

} // namespace

} // namespace bri::vlan

using namespace bri;
using namespace bri::vlan;

void vl_clnt_show_vlan(void) {
    BRI_LOG(log::kPrintHead, "VLAN Name       Version Status    Svi_ifx Up_num Proxy Ports\n");
    BRI_LOG(log::kPrint,
            "---- ---------- ------- --------- ------- ------ ----- -----------------------------------\n");
    for (unsigned vid = BRI_VID_MIN; vid <= BRI_VID_MAX; ++vid)
        vlan::print_vlan(static_cast<uint16_t>(vid));
    if (log::kVlan.on()) {
        vl_vlandb_show_status();
        swport_show_status();
    }
}

void vl_clnt_show_swport(void) {
    BRI_LOG(log::kPrint, "Interface  Mode      Pvid VLAN lists\n");
    BRI_LOG(log::kPrint, "---------- --------- ---- ----------------------\n");
    for (int32_t ifx = 0; ifx < static_cast<int32_t>(BRI_PORT_SLOTS); ++ifx) {
        const spcb *port = swport_get_spcb(ifx);
        if (port == nullptr)
            continue;
        BRI_LOG(log::kPrint, "%-10d %-9s %-4d\n", static_cast<int>(word::load(port->ifx)),
                swport_vlan_mode_name(word::load(port->mode)), word::load(port->default_vid));
        vl_clnt_show_vlanlist(&port->allow_vlan, vlan::kVlanListWidth);
    }
}
