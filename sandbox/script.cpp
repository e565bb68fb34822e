#include "sandbox/script.h"

#include "sandbox/command.h"
#include "sandbox/parse.h"

#include <cerrno>
#include <filesystem>
#include <fstream>

namespace sandbox {

namespace {

constexpr uint32_t kMostTimes = 100000;

bool opens_block(const Words &words) {
    return words.size() == 2 && words[0] == "repeat";
}

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
        if (words.empty()) {
            lines_.pop_front();
        } else if (words[0] != "repeat") {
            std::string line = std::move(lines_.front());
            lines_.pop_front();
            return line;
        } else if (!unroll()) {
            return std::nullopt;
        }
    }
    return std::nullopt;
}

// Puts what the first line repeats in its place. False when that is not all there yet.
bool Script::unroll() {
    const Words words = split(lines_.front());
    const uint32_t times = parse_number(words.size() > 1 ? words[1] : "", kMostTimes);
    size_t end = 1;
    std::deque<std::string> body;
    if (words.size() > 2)
        body.push_back(join(words, 2));
    else
        for (int depth = 1;; ++end) {
            if (end == lines_.size())
                return false;
            const Words inner = split(lines_[end]);
            depth += opens_block(inner) ? 1 : 0;
            depth -= inner.size() == 1 && inner[0] == "end" ? 1 : 0;
            if (depth == 0)
                break;
            body.push_back(lines_[end]);
        }
    lines_.erase(lines_.begin(), lines_.begin() + static_cast<ptrdiff_t>(words.size() > 2 ? 1 : end + 1));
    for (uint32_t i = 0; i < times; ++i)
        lines_.insert(lines_.begin(), body.begin(), body.end());
    return true;
}

} // namespace sandbox
