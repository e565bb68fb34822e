// MAC addresses of the device: its own, and the one of its routed interfaces.
#include "client/local_mac.h"

#include "base/log.h"
#include "base/mac_text.h"
#include "base/raii.h"
#include "base/vsd.h"
#include "client/state.h"

#include <bridge/bridge.h>

#include <cstring>
#include <fcntl.h>

namespace bri::client {

namespace {

constexpr const char *kDeviceFile = "/data/.zenx/vsd/0/dev/dm_cfg.txt";
constexpr const char *kSystemMacFile = "./tmp/dm/.sysmac";
constexpr const char *kKernelMacFile = "/proc/macaddr";
constexpr const char *kRoutedMacFile = "./tmp/dm/.l3mac";

constexpr int kDeviceMacLine = 5;     // counted from 1
constexpr size_t kDeviceLineMax = 31; // a longer line is read in pieces
constexpr size_t kMacFileRead = 32;
constexpr size_t kMacTextMax = 31; // characters that are looked at

// All zero while unknown.
Mac g_local;
Mac g_svi;

// Value of a hexadecimal digit, -1 for another character.
int digit_value(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Six groups of two digits, one character of any kind behind each; the last one may end the text.
bool parse_groups(const char *text, Mac &mac) {
    constexpr size_t kGroup = 3;
    if (std::strlen(text) < sizeof mac.bytes * kGroup - 1)
        return false;
    for (size_t index = 0; index < sizeof mac.bytes; ++index) {
        const int high = digit_value(text[index * kGroup]);
        const int low = digit_value(text[index * kGroup + 1]);
        if (high < 0 || low < 0)
            return false;
        mac.bytes[index] = static_cast<uint8_t>(high << 4 | low);
    }
    return true;
}

void add_to_last_byte(Mac &mac, int value) {
    mac.bytes[5] = static_cast<uint8_t>(mac.bytes[5] + static_cast<unsigned>(value));
}

// Each virtual switch device has its own address, two apart from the next.
void adjust_for_vsd(Mac &mac) {
    add_to_last_byte(mac, 2 * static_cast<int8_t>(vsd_id()));
}

bool read_device_file(Mac &mac) {
    FILE *file = std::fopen(kDeviceFile, "re");
    if (file == nullptr)
        return false;
    const bool found = client::read_device_mac(file, mac);
    std::fclose(file);
    return found;
}

bool read_mac_file(const char *path, Mac &mac) {
    const Fd fd(open(path, O_RDONLY | O_CLOEXEC));
    if (!fd.ok()) {
        BRI_LOG(log::kClient, "Oepn local MAC file failed: %s.\n", path);
        return false;
    }
    char text[kMacFileRead];
    const ssize_t size = read(fd.get(), text, sizeof text);
    if (size < 0) {
        BRI_LOG(log::kClient, "Read local MAC failed: %s.\n", path);
        return false;
    }
    if (!client::parse_mac_text(text, static_cast<size_t>(size), mac)) {
        BRI_LOG(log::kClient, "Parse local MAC failed: %s.\n", path);
        return false;
    }
    return true;
}

bool find_local(Mac &mac) {
    if (read_device_file(mac)) {
        adjust_for_vsd(mac);
        return true;
    }
    if (read_mac_file(kSystemMacFile, mac))
        return true;
    if (!read_mac_file(kKernelMacFile, mac))
        return false;
    adjust_for_vsd(mac);
    return true;
}

// The address of the routed interfaces is never the local one.
bool find_svi(Mac &mac) {
    Mac local{};
    const bool routed_known = read_mac_file(kRoutedMacFile, mac);
    const bool local_known = bridge_client_get_local_mac(local.bytes) == 1;
    if (routed_known && !(local_known && mac == local))
        return true;
    if (!local_known)
        return false;
    mac = local;
    add_to_last_byte(mac, 1);
    return true;
}

// What the two addresses differ in.
struct Kind {
    Mac &cache;
    bool svi; // the routed interfaces' one, for log lines
    bool (*find)(Mac &);
};

int get_mac(const Kind &kind, uint8_t *out) {
    if (out == nullptr)
        return 0;
    const int pid = static_cast<int>(getpid());
    if (kind.cache.known()) {
        std::memcpy(out, kind.cache.bytes, sizeof kind.cache.bytes);
        BRI_LOG(log::kClient,
                kind.svi ? "(%d), get svi mac from lib-db SUCC, " BRI_MAC_FMT ".\n"
                         : "(%d), get local mac from lib-db SUCC, " BRI_MAC_FMT ".\n",
                pid, BRI_MAC_ARGS(out));
        return 1;
    }
    Mac mac{};
    if (!kind.find(mac))
        return 0;
    BRI_LOG(log::kClient, kind.svi ? "(%d), set_svi : " BRI_MAC_FMT ".\n" : "(%d), set_local : " BRI_MAC_FMT ".\n", pid,
            BRI_MAC_ARGS(mac.bytes));
    kind.cache = mac;
    std::memcpy(out, mac.bytes, sizeof mac.bytes);
    BRI_LOG(log::kClient,
            kind.svi ? "(%d), save svi mac to lib-db SUCC, " BRI_MAC_FMT ".\n"
                     : "(%d), save local mac to lib-db SUCC, " BRI_MAC_FMT ".\n",
            pid, BRI_MAC_ARGS(out));
    return 1;
}

} // namespace

} // namespace bri::client

using namespace bri;
using namespace bri::client;

bool client::read_device_mac(FILE *file, Mac &mac) {
    char line[kDeviceLineMax + 1];
    for (int number = 1; number <= kDeviceMacLine; ++number)
        if (std::fgets(line, sizeof line, file) == nullptr)
            return false;
    return parse_groups(line, mac);
}

bool client::parse_mac_text(const char *text, size_t size, Mac &mac) {
    size_t digits = 0;
    for (size_t index = 0; index < size && index < kMacTextMax && digits < 2 * sizeof mac.bytes; ++index) {
        const int value = digit_value(text[index]);
        if (value < 0)
            continue;
        uint8_t &byte = mac.bytes[digits / 2];
        byte = static_cast<uint8_t>(byte << 4 | value);
        ++digits;
    }
    return digits == 2 * sizeof mac.bytes;
}

int bridge_client_get_local_mac(uint8_t *mac) {
    return get_mac({g_local, false, find_local}, mac);
}

int bridge_client_get_svi_mac(uint8_t *mac) {
    return get_mac({g_svi, true, find_svi}, mac);
}

int bridge_maddr_get_local(uint8_t *mac) {
    const int pid = static_cast<int>(getpid());
    if (mac == nullptr) {
        BRI_LOG(log::kClient, "(%d), invalid mac addr.\n", pid);
        return -1;
    }
    if (bridge_client_get_local_mac(mac) == 1)
        return 0;
    BRI_LOG(log::kClient, "(%d), get local mac from file failed.\n", pid);
    return -1;
}
