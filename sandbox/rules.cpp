#include "sandbox/rules.h"

#include "sandbox/sandbox.h"

#include <algorithm>
#include <cstdlib>

namespace sandbox {

namespace {

// By enum Fault: a rule's word, and what it has done.
constexpr struct {
    const char *word;
    const char *done;
} kFaults[] = {{"", ""},
               {"refuse", "refused"},
               {"drop", "dropped"},
               {"delay", "delayed"},
               {"duplicate", "duplicated"},
               {"reorder", "put behind the next"}};
static_assert(std::size(kFaults) == static_cast<size_t>(Fault::kReorder) + 1);

Fault fault_named(const std::string &word) {
    const auto *const row = std::ranges::find_if(kFaults, [&](const auto &known) { return word == known.word; });
    refuse_if(row == std::end(kFaults) || word.empty(), "no such fault: " + word);
    return static_cast<Fault>(row - std::begin(kFaults));
}

const std::string &word_at(const Words &words, size_t index, const char *what) {
    refuse_if(index >= words.size(), std::string(what) + " is missing");
    return words[index];
}

Kind take_kind(Fault fault, const Words &words, size_t &next) {
    const std::string word = next < words.size() ? words[next] : "";
    const bool named = word == "event" || word == "request";
    const bool request = named ? word == "request" : fault == Fault::kRefuse;
    refuse_if(fault == Fault::kRefuse && !request, "only a request can be refused");
    next += named ? 1 : 0;
    return request ? Kind::kRequest : Kind::kEvent;
}

} // namespace

MessagePattern::MessagePattern(Kind kind, const Words &words, size_t &next)
    : kind_(kind), type_(parse_event(word_at(words, next, "the event"))) {
    std::string conditions;
    for (++next; next < words.size() && words[next].find('=') != std::string::npos; ++next)
        conditions += " " + words[next];
    if (!conditions.empty())
        filter_ = wire::Filter(wire::payload_of(type_, direction_of(kind)), conditions);
    if (next < words.size() && words[next][0] == '@')
        client_ = words[next++];
    else if (next < words.size() && (words[next] == "from" || words[next] == "to")) {
        client_ = word_at(words, next + 1, "the client");
        next += 2;
    }
}

bool MessagePattern::matches(Kind kind, uint32_t type, Bytes payload, const Party &client) const {
    return kind == kind_ && type == type_ && (client_.empty() || client.is(client_)) && filter_.matches(payload);
}

bool MessagePattern::matches(const Record &record) const {
    const bool lost = record.kind == Kind::kEvent && !record.result.empty();
    return record.type == type_ && !lost && std::ranges::any_of(record.clients, [&](const Client &client) {
               return matches(record.kind, record.type, record.payload, *client);
           });
}

std::string Verdict::text() const {
    const std::string done = kFaults[static_cast<size_t>(fault)].done;
    return fault == Fault::kNone ? "" : done + " by rule " + std::to_string(rule);
}

unsigned Rules::add(const std::string &fault, const Words &words, std::mt19937_64 &random) {
    size_t next = 0;
    const Fault what = fault_named(fault);
    const Kind kind = take_kind(what, words, next);
    Rule rule{next_number_, fault + " " + join(words), what, MessagePattern(kind, words, next)};
    bool seeded = false;
    while (next < words.size()) {
        const std::string &word = words[next++];
        const std::string operand = next < words.size() ? words[next] : "";
        next += word == "once" ? 0U : 1U;
        if (word == "once")
            rule.left = 1;
        else if (operand == "times")
            rule.left = parse_number(word);
        else if (word == "by")
            rule.delay = parse_seconds(operand);
        else if (word == "chance")
            rule.chance = parse_real(operand, 1, "not a chance between 0 and 1: ");
        else if (word == "seed") {
            rule.random.seed(parse_number(operand));
            seeded = true;
        } else
            throw std::invalid_argument("not understood: " + word);
    }
    refuse_if((what == Fault::kDelay) != (rule.delay.count() != 0),
              what == Fault::kDelay ? "delay by how many seconds?" : "only delay takes a time");
    if (rule.chance != 1 && !seeded)
        rule.random.seed(random());
    rules_.push_back(std::move(rule));
    return next_number_++;
}

Verdict Rules::decide(Kind kind, uint32_t type, Bytes payload, const Party &client) {
    for (Rule &rule : rules_) {
        if (rule.left == 0 || !rule.pattern.matches(kind, type, payload, client))
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
    Answer answer{"rules"};
    for (const Rule &rule : rules_)
        answer.row("rules", "  {rule}: {text}, applied {applied} times",
                   {{"rule", rule.number}, {"text", rule.text}, {"applied", rule.applied}});
    return answer.say("rules: {count}", {{"count", rules_.size()}});
}

bool Detour::pass(unsigned client, const Message &message, const Verdict &verdict) {
    if (verdict.fault == Fault::kReorder)
        held_[client].push_back(message);
    if (verdict.fault == Fault::kDelay || verdict.fault == Fault::kDuplicate) {
        const auto timer = later_.emplace(later_.end(), loop_, [] {});
        timer->set([this, timer, client, message] {
            std::list<Timer> ended; // lives until the timer's own function is through
            ended.splice(ended.end(), later_, timer);
            arrive_(client, message);
        });
        timer->start(verdict.delay);
    }
    return verdict.fault == Fault::kNone || verdict.fault == Fault::kDuplicate;
}

void Detour::release(unsigned client) {
    if (held_.empty())
        return;
    if (const auto messages = held_.extract(client))
        for (const Message &message : messages.mapped())
            arrive_(client, message);
}

namespace {

Outcome add_rule(Sandbox &sandbox, const Call &call) {
    const unsigned number = sandbox.rules.add(call.command, call.words, sandbox.random);
    return Answer().say("rule {rule}: {text}", {{"rule", number}, {"text", call.command + " " + call.rest()}});
}

// "drop" and "drop @CLIENT" close connections; behind it, an event's name makes a rule.
Outcome drop(Sandbox &sandbox, const Call &call) {
    if (!call.words.empty() && (call.words.size() > 1 || call.words[0][0] != '@'))
        return add_rule(sandbox, call);
    return Answer().say("drop: {clients} clients", {{"clients", sandbox.bridge.server.drop(Target(call.rest()))}});
}

Outcome remove_rules(Sandbox &sandbox, const Call &call) {
    const uint32_t number = call.words.empty() ? 0 : parse_number(call.words[0]);
    const unsigned count = sandbox.rules.remove(number);
    if (count == 0 && number != 0)
        throw std::invalid_argument("no rule " + call.words[0]);
    return Answer().say("rules: {removed} removed", {{"removed", count}});
}

constexpr const char *kPattern = "[event|request] TYPE [FIELD=VALUE...] [@CLIENT] [once|N times|chance P [seed S]]";

constexpr Command kRuleCommands[] = {
    {"refuse", kPattern, "requests like that are refused as the switch does it", add_rule},
    {"drop", "[@CLIENT|RULE...]", "close connections; with an event's name: messages like that are lost", drop},
    {"delay", "RULE... by SECONDS", "they come later, and others overtake them", add_rule},
    {"duplicate", "RULE...", "they come twice", add_rule},
    {"reorder", "RULE...", "they come behind the next one", add_rule},
    {"rules", "", "the rules, and how often each was applied",
     [](Sandbox &sandbox, const Call &) -> Outcome { return sandbox.rules.show(); }},
    {"rules clear", "[N]", "take one away, or all", remove_rules},
};

} // namespace

const Family rule_commands = kRuleCommands;

} // namespace sandbox
