#include "sandbox/rules.h"

#include "sandbox/parse.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace sandbox {

namespace {

struct FaultName {
    Fault fault;
    const char *word;
    const char *done;
};
constexpr FaultName kFaults[] = {
    {Fault::kRefuse, "refuse", "refused"},
    {Fault::kDrop, "drop", "dropped"},
    {Fault::kDelay, "delay", "delayed"},
    {Fault::kDuplicate, "duplicate", "duplicated"},
    {Fault::kReorder, "reorder", "put behind the next"},
};

const FaultName &fault_named(const std::string &word) {
    const auto *const row = std::find_if(std::begin(kFaults), std::end(kFaults),
                                         [&](const FaultName &known) { return word == known.word; });
    if (row == std::end(kFaults))
        throw std::invalid_argument("no such fault: " + word);
    return *row;
}

double parse_chance(const std::string &text) {
    char *end = nullptr;
    const double chance = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(chance >= 0 && chance <= 1))
        throw std::invalid_argument("not a chance between 0 and 1: " + text);
    return chance;
}

Kind take_kind(Fault fault, const Words &words, size_t &next) {
    const std::string word = next < words.size() ? words[next] : "";
    const bool named = word == "event" || word == "request";
    const bool request = named ? word == "request" : fault == Fault::kRefuse;
    if (fault == Fault::kRefuse && !request)
        throw std::invalid_argument("only a request can be refused");
    next += named ? 1 : 0;
    return request ? Kind::kRequest : Kind::kEvent;
}

} // namespace

std::string Verdict::text() const {
    const auto *const row = std::find_if(std::begin(kFaults), std::end(kFaults),
                                         [&](const FaultName &known) { return known.fault == fault; });
    return row == std::end(kFaults) ? "" : std::string(row->done) + " by rule " + std::to_string(rule);
}

unsigned Rules::add(const std::string &fault, const Words &words, std::mt19937_64 &random) {
    size_t next = 0;
    const Fault what = fault_named(fault).fault;
    const Kind kind = take_kind(what, words, next);
    Rule rule(next_number_, fault, what, kind, MessagePattern(kind, words, next));
    for (const std::string &word : words)
        rule.text += " " + word;
    bool seeded = false;
    while (next < words.size()) {
        const std::string &word = words[next++];
        const std::string operand = next < words.size() ? words[next] : "";
        if (word == "once") {
            rule.left = 1;
        } else if (operand == "times") {
            rule.left = parse_number(word);
            ++next;
        } else if (word == "by") {
            rule.delay = parse_seconds(operand);
            ++next;
        } else if (word == "chance") {
            rule.chance = parse_chance(operand);
            ++next;
        } else if (word == "seed") {
            rule.random.seed(parse_number(operand));
            seeded = true;
            ++next;
        } else
            throw std::invalid_argument("not understood: " + word);
    }
    if ((what == Fault::kDelay) != (rule.delay.count() != 0))
        throw std::invalid_argument(what == Fault::kDelay ? "delay by how many seconds?" : "only delay takes a time");
    if (rule.chance != 1 && !seeded)
        rule.random.seed(random());
    rules_.push_back(std::move(rule));
    return next_number_++;
}

unsigned Rules::remove(unsigned number) {
    return static_cast<unsigned>(
        rules_.remove_if([&](const Rule &rule) { return number == 0 || rule.number == number; }));
}

Verdict Rules::decide(Kind kind, uint32_t type, Bytes payload, const Party &client) {
    for (Rule &rule : rules_) {
        if (rule.kind != kind || rule.left == 0 || !rule.pattern.concerns(client) ||
            !rule.pattern.matches(type, payload))
            continue;
        if (rule.chance != 1 && std::uniform_real_distribution<double>()(rule.random) >= rule.chance)
            continue;
        --rule.left;
        ++rule.applied;
        return {rule.fault, rule.delay, rule.number};
    }
    return {};
}

Answer Rules::show() const {
    Answer answer;
    answer.begin("rules");
    for (const Rule &rule : rules_)
        answer.row("rules", "  {rule}: {text}, applied {applied} times",
                   {{"rule", rule.number}, {"text", rule.text}, {"applied", rule.applied}});
    return answer.say("rules: {count}", {{"count", rules_.size()}});
}

} // namespace sandbox
