// A bridge with three cables, and a host in a namespace of its own at the other end of each.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>

namespace test {

// Runs a command line of ip or bridge; true when it went well.
bool shell(const std::string &line);
// What it prints.
std::string output_of(const std::string &line);

using Address = std::array<uint8_t, 6>;

// The nth address of a host.
constexpr Address address(uint8_t host, uint8_t nth = 0) {
    return {2, 0, 0, 0, host, nth};
}
std::string text_of(const Address &address);
constexpr Address kEverybody{0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

// A host with one network interface, eth0, whose other end is a device that is named here.
class LanHost {
  public:
    explicit LanHost(const std::string &device);
    LanHost(const LanHost &) = delete;
    LanHost &operator=(const LanHost &) = delete;
    ~LanHost();

    // A frame with that number; VLAN 0: without a tag.
    void send(const Address &to, const Address &from, uint32_t number, uint16_t vid = 0) const;
    // The tag of the frame with that number, if one comes in time; 0: it had none.
    [[nodiscard]] std::optional<uint16_t> receives(uint32_t number, int timeout_ms) const;
    void set_link(bool up) const;

  private:
    [[nodiscard]] int open_in_its_namespace() const;

    pid_t process_ = -1; // keeps the namespace
    int socket_ = -1;
};

// A process of root's becomes one of a user without any right, who takes that folder along. False, with the reason,
// where such a user cannot run these tests.
bool leave_root(const std::string &folder, std::string &why_not);

// This process in a network of its own, as root or as if it were. False, with the reason, where the kernel has no
// bridge that filters VLANs.
bool enter_lan(std::string &why_not);

} // namespace test
