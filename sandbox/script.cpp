#include "sandbox/script.h"

#include "sandbox/command.h"
#include "sandbox/parse.h"

#include <cerrno>
#include <filesystem>
#include <fstream>

namespace sandbox {

namespace {

constexpr uint32_t kMostTimes = 100000;

} // namespace

void Script::add_file(const std::string &path) {
    if (std::filesystem::is_directory(path))
        throw std::runtime_error("cannot read " + path + ": it is a directory");
    std::ifstream file(path);
    if (!file)
        throw std::runtime_error("cannot read " + path + ": " + std::strerror(errno));
    for (std::string line; std::getline(file, line);)
        add(line);
}

std::optional<std::string> Script::next() {
    while (!lines_.empty()) {
        const Words words = split(lines_.front());
        if (!words.empty() && words[0] == "repeat") {
            if (!unroll(words))
                return std::nullopt;
            continue;
        }
        std::string line = std::move(lines_.front());
        lines_.pop_front();
        if (!words.empty())
            return line;
    }
    return std::nullopt;
}

// Puts what the first line repeats in its place. False when that is not all there yet.
bool Script::unroll(const Words &words) {
    const uint32_t times = parse_number(words.size() > 1 ? words[1] : "", kMostTimes);
    std::deque<std::string> body;
    size_t end = 1; // lines of it, the first one included
    if (words.size() > 2)
        body.push_back(join(words, 2));
    else
        for (int depth = 1; depth > 0; body.push_back(lines_[end++])) {
            if (end == lines_.size())
                return false;
            const Words inner = split(lines_[end]);
            depth += inner.size() == 2 && inner[0] == "repeat" ? 1 : 0;
            depth -= inner == Words{"end"} ? 1 : 0;
        }
    if (words.size() == 2)
        body.pop_back(); // its end
    lines_.erase(lines_.begin(), lines_.begin() + static_cast<ptrdiff_t>(end));
    for (uint32_t i = 0; i < times; ++i)
        lines_.insert(lines_.begin(), body.begin(), body.end());
    return true;
}

} // namespace sandbox
