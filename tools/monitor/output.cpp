#include "tools/monitor/output.h"

#include "tools/counter_names.h"
#include "wire/json.h"
#include "wire/text.h"

#include <chrono>
#include <cstdio>
#include <iostream>

namespace monitor {

namespace {

using wire::Json;

constexpr const char *kDim = "\033[2m";
constexpr const char *kBold = "\033[1;36m";
constexpr const char *kGood = "\033[32m";
constexpr const char *kBad = "\033[31m";
constexpr const char *kPlain = "\033[0m";

struct LinkText {
    const char *value;
    const char *text;
    const char *colour;
};
constexpr LinkText kLinks[] = {
    {"down", "not connected: waiting for the server", kBad},
    {"up", "connected", kGood},
    {"no-kernel", "connected, but no events: waiting for the kernel's bridge module", kBad},
}; // by Link

int64_t microseconds_now() {
    using namespace std::chrono;
    return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}

std::string clock_text() {
    const int64_t now = microseconds_now();
    const auto seconds = static_cast<std::time_t>(now / 1000000);
    tm local{};
    localtime_r(&seconds, &local);
    char text[32];
    const size_t end = std::strftime(text, sizeof text, "%H:%M:%S", &local);
    std::snprintf(text + end, sizeof text - end, ".%06d ", static_cast<int>(now % 1000000));
    return text;
}

Json timed() {
    return {{"time", static_cast<double>(microseconds_now()) / 1e6}};
}

void print(const Json &json) {
    std::cout << json.dump() << std::endl;
}

std::string row_text(const std::string &name, uint64_t figure) {
    constexpr size_t width = 36;
    return "  " + name + std::string(name.size() < width ? width - name.size() : 1, ' ') + std::to_string(figure) +
           '\n';
}

Json counters_json(const bri_counters &counters) {
    Json json = Json::object();
    for (const tools::CounterName &counter : tools::kCounterNames)
        json[counter.name] = counters.*counter.member;
    return json;
}

// Those that have counted something.
std::string counters_text(const bri_counters &counters) {
    std::string text = "counters:\n";
    for (const tools::CounterName &counter : tools::kCounterNames)
        if (counters.*counter.member != 0)
            text += row_text(counter.name, counters.*counter.member);
    return text;
}

} // namespace

std::string Output::coloured(const char *colour, const std::string &text) const {
    return style_.colour ? colour + text + kPlain : text;
}

std::string Output::head() const {
    return style_.time ? coloured(kDim, clock_text()) : "";
}

void Output::show_event(uint32_t type, wire::Bytes payload) {
    ++events_;
    ++counts_[type];
    if (style_.summary)
        return;
    const wire::Payload shape = wire::payload_of(type, wire::Direction::kToClient);
    if (style_.json) {
        Json json = timed();
        json["event"] = wire::event_name(type);
        json["type"] = type;
        if (!payload.empty())
            json["fields"] = wire::json_of(shape, payload);
        return print(json);
    }
    const std::string fields = payload.empty() ? "" : ' ' + wire::text_of(shape, payload);
    std::cout << head() << coloured(kBold, wire::event_name(type)) << fields << std::endl;
}

void Output::show_state(const char *name, const char *value, const char *text, const char *colour) const {
    if (style_.summary)
        return;
    if (style_.json) {
        Json json = timed();
        json[name] = value;
        return print(json);
    }
    std::cout << head() << coloured(colour, '[' + std::string(text) + ']') << std::endl;
}

void Output::show_link(Link link) {
    const LinkText &row = kLinks[static_cast<size_t>(link)];
    show_state("connection", row.value, row.text, row.colour);
}

void Output::show_role(bool slave) {
    if (slave)
        show_state("role", "slave", "slave: no events", kBad);
    else
        show_state("role", "master", "master", kGood);
}

void Output::show_end(const bri_counters &counters) const {
    if (style_.json) {
        Json events = Json::object();
        for (const auto &[type, count] : counts_)
            events[wire::event_name(type)] = count;
        return print({{"events", events}, {"counters", counters_json(counters)}});
    }
    if (style_.summary) {
        for (const auto &[type, count] : counts_)
            std::cout << row_text(wire::event_name(type), count);
        std::cout << row_text("events", events_) << std::flush;
    }
    std::cerr << counters_text(counters) << std::flush;
}

bool Output::is_whole() {
    return static_cast<bool>(std::cout);
}

} // namespace monitor
