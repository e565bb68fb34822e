#include "sandbox/check_evidence.h"

#include "wire/value.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string_view>

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

Processor::Processor(pid_t process) : process_(process), before_(times()) {}

std::map<std::string, Processor::Times> Processor::times() const {
    std::map<std::string, Times> all;
    std::error_code ended;
    for (const auto &task : std::filesystem::directory_iterator("/proc/" + std::to_string(process_) + "/task", ended)) {
        std::ifstream file(task.path() / "schedstat"); // nanoseconds
        Times times{};
        if (file >> times.ran >> times.waited)
            all[task.path().filename()] = {times.ran / 1e9, times.waited / 1e9};
    }
    return all;
}

double Processor::busy() const {
    const double passed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    double most = -1;
    for (const auto &[thread, now] : times()) {
        const auto found = before_.find(thread);
        if (found == before_.end())
            continue;
        const double ran = now.ran - found->second.ran;
        const double free = passed - (now.waited - found->second.waited);
        most = std::max(most, ran / std::max(free, ran));
    }
    return most;
}

} // namespace sandbox
