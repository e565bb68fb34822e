// What the monitor prints: a line for each message and each change of the connection, figures at the end.
#pragma once

#include "wire/bytes.h"

#include <bridge/counters.h>

#include <cstdint>
#include <map>
#include <string>

namespace monitor {

// How the connection stands.
enum class Link : uint8_t { kNone, kUp, kNoKernel };

struct Style {
    bool json = false;
    bool time = false;    // in text; JSON always has it
    bool summary = false; // nothing but figures
    bool colour = false;  // in text
};

class Output {
  public:
    explicit Output(Style style) : style_(style) {}

    void show_event(uint32_t type, wire::Bytes payload);
    void show_link(Link link);
    // The server has made this process slave, or master again.
    void show_role(bool slave);
    // The last thing that is printed. In text the counters go to standard error.
    void show_end(const bri_counters &counters) const;

    [[nodiscard]] uint64_t events() const { return events_; }
    [[nodiscard]] static bool is_whole(); // standard output has taken everything

  private:
    void show_state(const char *name, const char *value, const char *text, const char *colour) const;
    [[nodiscard]] std::string head() const;
    [[nodiscard]] std::string coloured(const char *colour, const std::string &text) const;

    Style style_;
    uint64_t events_ = 0;
    std::map<uint32_t, uint64_t> counts_; // by type
};

} // namespace monitor
