// What one client told about itself and the events it wants.
#pragma once

#include <bridge/events.h>

#include <cstdint>
#include <string>

namespace sandbox {

class Registration {
  public:
    // Takes one registration message. True when it was a full one, which names the client and replaces its set; the
    // others add to the set or take from it.
    bool apply(const bri_reg_msg &message);

    [[nodiscard]] bool complete() const { return complete_; } // a full one has come
    [[nodiscard]] bool wants(uint32_t type) const;
    [[nodiscard]] unsigned count() const;
    [[nodiscard]] const std::string &name() const { return name_; }
    [[nodiscard]] uint32_t pid() const { return pid_; }
    [[nodiscard]] bool fresh() const { return fresh_; }

  private:
    event_set types_{};
    bool complete_ = false;
    std::string name_;
    uint32_t pid_ = 0;
    bool fresh_ = false;
};

} // namespace sandbox
