// Which messages a rule or a condition is about, as words: "VLAN_EVENT_CREATE_INDEX vid=10 @authd".
#pragma once

#include "sandbox/command.h"
#include "sandbox/trace.h"
#include "wire/text.h"

#include <string>

namespace sandbox {

class MessagePattern {
  public:
    // Takes TYPE [FIELD=VALUE...] [@CLIENT | from CLIENT | to CLIENT] from the words, beginning at `next`, which is
    // then the first word that is none of that. Throws std::invalid_argument.
    MessagePattern(Kind kind, const Words &words, size_t &next);

    [[nodiscard]] bool matches(uint32_t type, Bytes payload) const;
    [[nodiscard]] bool concerns(const Party &client) const { return client_.empty() || client.is(client_); }
    // Of that kind, about one of those clients; what was not delivered is no event.
    [[nodiscard]] bool matches(const Record &record) const;

  private:
    Kind kind_;
    uint32_t type_;
    wire::Filter filter_;
    std::string client_;
};

} // namespace sandbox
