// What a daemon says to the server and to the kernel's module: as it was recorded, as it is now, and how that differs.
#pragma once

#include "tools/recording/reader.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace replay {

// One message, in this machine's byte order.
struct Said {
    enum class To : uint8_t { kServer, kKernel };

    To to;
    uint32_t type;
    wire::Buffer payload;

    [[nodiscard]] std::string text() const;
    // For comparison: without what differs from one process to the next.
    [[nodiscard]] Said normal() const;
    auto operator<=>(const Said &) const = default;
};

// The body of a packet in this machine's byte order.
[[nodiscard]] wire::Buffer native_body(const recording::Packet &packet);
// What a packet from a client says.
[[nodiscard]] std::vector<Said> said_in(const recording::Packet &packet);

class Dialogue {
  public:
    // A packet of the recording has been reached.
    void expect(size_t packet, std::vector<Said> messages);
    void hear(Said message);

    // The types of what is expected and has not come as often; what nobody waits for any more is left out.
    [[nodiscard]] std::string awaited() const;
    void wait_no_more();

    [[nodiscard]] size_t heard() const { return heard_.size(); }
    // One line for each message that is missing or was not expected. Of a part of a recording what came behind its end
    // is no difference. `moved` gets those that came earlier than others that were recorded before them, which may be
    // a matter of time alone.
    [[nodiscard]] std::vector<std::string> differences(bool part, std::vector<std::string> &moved) const;

  private:
    struct Expected {
        size_t packet;
        Said message;
    };
    using Kind = std::pair<Said::To, uint32_t>;

    std::vector<Expected> expected_;
    std::vector<Said> heard_;
    std::map<Kind, size_t> awaited_; // expected more often than heard
    std::map<Kind, size_t> ahead_;   // heard more often than expected
    std::set<Kind> given_up_;
};

} // namespace replay
