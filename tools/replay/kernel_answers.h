// What the kernel's module did in a recording.
#pragma once

#include "sandbox/kernel_tables.h"
#include "tools/recording/reader.h"

#include <deque>
#include <map>
#include <optional>
#include <set>
#include <vector>

namespace replay {

class KernelAnswers {
  public:
    // Of these packets, in their order; those that are not of the kernel channel are passed over.
    explicit KernelAnswers(const std::vector<recording::Packet> &packets);

    // Whether it is known which messages were this daemon's, and so which are different now.
    [[nodiscard]] bool are_known() const { return known_; }

    // The answer to a question that was asked like this: equal questions get the recorded answers in their order, and
    // then the last one again. Nothing when it was never asked.
    std::optional<sandbox::KernelResult> answer(uint32_t type, wire::Bytes data);

    // Whether the daemon's next message to the kernel is taken at that packet: at its answer, or where there was none
    // at the message itself.
    [[nodiscard]] bool is_taken_at(size_t packet) const { return taken_.contains(packet); }

    // Whether the module is there, from the packet of that number on; nothing when that packet does not tell.
    [[nodiscard]] std::optional<bool> is_there_from(size_t packet) const;
    // At the start.
    [[nodiscard]] bool is_there() const { return module_.empty() || module_.begin()->second; }

  private:
    using Question = std::pair<uint32_t, wire::Buffer>;

    std::map<Question, std::deque<sandbox::KernelResult>> answers_;
    std::map<size_t, bool> module_;
    std::set<size_t> taken_;
    bool known_ = false;
};

} // namespace replay
