// Lines of commands in order, with their repetitions.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace sandbox {

// "repeat 3 COMMAND" is that command three times; "repeat 3" is what follows up to "end" three times, also nested.
class Script {
  public:
    void add(std::string line) { lines_.push_back(std::move(line)); }
    // Throws std::runtime_error when the file cannot be read or is none.
    void add_file(const std::string &path);

    // The next line that is a command; nothing when there is none yet, or when a block's end has not come. Throws
    // std::invalid_argument for a repetition that makes no sense.
    std::optional<std::string> next();
    [[nodiscard]] bool empty() const { return lines_.empty(); }
    void clear() { lines_.clear(); }

  private:
    bool unroll(const std::vector<std::string> &words);

    std::deque<std::string> lines_;
};

} // namespace sandbox
