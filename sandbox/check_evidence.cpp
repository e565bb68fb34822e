#include "sandbox/check_evidence.h"

#include "wire/value.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <string_view>
#include <thread>

namespace sandbox {

namespace {

bool ends_as(const std::string &text, std::string_view end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

bool starts_as(const std::string &text, std::string_view begin) {
    return text.compare(0, begin.size(), begin) == 0;
}

// A number alone, or a list such as "10-20,30".
bool has_number(const Fields &value, unsigned number) {
    if (value.is_number())
        return value.get<double>() == number;
    if (!value.is_string())
        return false;
    try {
        const wire::Ids ids = wire::parse_ids(value.get<std::string>(), 0, UINT16_MAX);
        return std::find(ids.begin(), ids.end(), number) != ids.end();
    } catch (const std::invalid_argument &) {
        return false; // a text of another kind
    }
}

bool speaks_of(const std::string &name, const Fields &value, unsigned vid, unsigned ifx) {
    if (value.is_structured()) {
        for (const auto &[key, element] : value.items())
            if (speaks_of(value.is_object() ? key : name, element, vid, ifx))
                return true;
        return false;
    }
    return has_number(value, name == "ifx" ? ifx : vid);
}

std::vector<std::string> runnable_threads(pid_t process) {
    std::vector<std::string> threads;
    std::error_code ended;
    for (const auto &task : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task", ended)) {
        std::ifstream file(task.path() / "stat");
        std::string line;
        std::getline(file, line);
        const size_t name_end = line.rfind(") "); // the name may hold anything
        if (name_end != std::string::npos && line.compare(name_end, 3, ") R") == 0)
            threads.push_back(task.path().filename());
    }
    return threads;
}

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
    return !message.request && (ends_as(message.type, "_PREJ") || message.type == "RESEARCH_EVENT_SWPORT_PREJUDGE");
}

bool is_answer(const Observed &message, const std::string &question_type) {
    const bool undecided = message.type == "RESEARCH_EVENT_FAILED" && starts_as(question_type, "RESEARCH_");
    return message.request && (message.type == question_type || undecided);
}

bool is_work(const Observed &message) {
    // One of client management is spelt in another way than the rest.
    return message.request && !starts_as(message.type, "BRIDGE_EVE") && !starts_as(message.type, "RESEARCH_") &&
           !ends_as(message.type, "_PREJ");
}

bool speaks_of(const Observed &message, unsigned vid, unsigned ifx) {
    return speaks_of("", message.fields, vid, ifx);
}

double busy_part(pid_t process, std::chrono::duration<double> time) {
    constexpr unsigned looks = 40;
    std::map<std::string, unsigned> found; // by thread
    for (unsigned look = 0; look < looks; ++look) {
        std::this_thread::sleep_for(time / looks);
        for (const std::string &thread : runnable_threads(process))
            ++found[thread];
    }
    unsigned most = 0;
    for (const auto &[thread, times] : found)
        most = std::max(most, times);
    return most / double{looks};
}

} // namespace sandbox
