// Readers of the files that hold a MAC address.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace bri::client {

struct Mac {
    uint8_t bytes[6];

    [[nodiscard]] bool operator==(const Mac &) const = default;
    [[nodiscard]] bool known() const { return *this != Mac{}; }
};

// The address in the fifth line of the device file; false when there is none.
bool read_device_mac(FILE *file, Mac &mac);

// The address that the first twelve hexadecimal digits of a text form, whatever lies between them. False when the
// part of the text that is looked at has fewer.
bool parse_mac_text(const char *text, size_t size, Mac &mac);

} // namespace bri::client
