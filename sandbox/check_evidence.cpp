#include "sandbox/check_story.h"
#include "sandbox/parse.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

namespace sandbox {

namespace {

bool speaks_of(const std::string &name, const Fields &value, unsigned vid, unsigned ifx) {
    if (value.is_structured()) {
        for (const auto &[key, element] : value.items())
            if (speaks_of(value.is_object() ? key : name, element, vid, ifx))
                return true;
        return false;
    }
    const std::string number = std::to_string(name == "ifx" ? ifx : vid);
    return value.is_string() ? lists(value.get<std::string>(), number) : value.is_number() && value.dump() == number;
}

// What the scheduler has counted for one thread, in nanoseconds.
struct Share {
    double ran = 0;
    double waited = 0; // for a processor that others had
};

// By thread; none where the kernel does not count it.
std::map<std::string, Share> shares_of(pid_t process) {
    std::map<std::string, Share> shares;
    std::error_code ended;
    for (const auto &task : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task", ended)) {
        std::ifstream file(task.path() / "schedstat");
        Share share;
        if (file >> share.ran >> share.waited)
            shares[task.path().filename()] = share;
    }
    return shares;
}

constexpr int kLooks = 20;

} // namespace

std::vector<Observed> observed_since(const World &world, size_t line) {
    std::vector<Observed> all;
    const std::vector<std::string> lines = world.lines(Log::kRecords);
    for (; line < lines.size(); ++line) {
        const Fields record = Fields::parse(lines[line]);
        const std::string kind = record["kind"];
        // An event that nobody registered has no clients, and one with a result was not delivered.
        const bool event = kind == "event" && !record["clients"].empty() && !record.contains("result");
        if (event || kind == "request")
            all.push_back({kind == "request", record["type"], record["time"], record.value("fields", Fields())});
    }
    return all;
}

bool is_question(const Observed &message) {
    return !message.request && (message.type.ends_with("_PREJ") || message.type == "RESEARCH_EVENT_SWPORT_PREJUDGE");
}

bool is_answer(const Observed &message, const std::string &question_type) {
    const bool undecided = message.type == "RESEARCH_EVENT_FAILED" && question_type.starts_with("RESEARCH_");
    return message.request && (message.type == question_type || undecided);
}

bool is_work(const Observed &message) {
    // One of client management is spelt in another way than the rest.
    return message.request && !message.type.starts_with("BRIDGE_EVE") && !message.type.starts_with("RESEARCH_") &&
           !message.type.ends_with("_PREJ");
}

bool speaks_of(const Observed &message, unsigned vid, unsigned ifx) {
    return speaks_of("", message.fields, vid, ifx);
}

// A wait is counted when it is over, with what of it was before we looked: we look on until every thread could run for
// half of the time at least.
std::optional<double> busy_part(pid_t process, std::chrono::duration<double, std::nano> time) {
    std::map<std::string, Share> before = shares_of(process);
    const auto begin = std::chrono::steady_clock::now();
    for (int looks = 0; looks < kLooks && !before.empty(); looks++) {
        std::this_thread::sleep_for(time);
        const std::chrono::duration<double, std::nano> passed = std::chrono::steady_clock::now() - begin;
        std::optional<double> most;
        double least_free = passed.count(); // to run in, or to sleep
        for (const auto &[thread, share] : shares_of(process)) {
            const double free = passed.count() - (share.waited - before[thread].waited);
            least_free = std::min(least_free, free);
            most = std::max(most.value_or(0), std::min(1.0, (share.ran - before[thread].ran) / free));
        }
        if (least_free >= time.count() / 2)
            return most;
    }
    return std::nullopt;
}

} // namespace sandbox
