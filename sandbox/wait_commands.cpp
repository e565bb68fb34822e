// The commands that wait: for messages in the trace, for values of the switch, for time.
#include "sandbox/sandbox.h"

#include <algorithm>

namespace sandbox {

namespace {

constexpr Microseconds kPatience{10000000}; // of the wall's clock, unless a command says otherwise

constexpr struct {
    const char *word;
    Kind kind;
} kConditionKinds[] = {{"event", Kind::kEvent}, {"request", Kind::kRequest}, {"refusal", Kind::kRefusal}};

// One thing that may happen, or be so.
class Condition {
  public:
    Condition(const Words &words, size_t &next) : text_(read(words, next)) {}

    [[nodiscard]] const std::string &text() const { return text_; }
    [[nodiscard]] const MessagePattern *message() const { return std::get_if<MessagePattern>(&*what_); }
    [[nodiscard]] const ValueCondition &value() const { return std::get<ValueCondition>(*what_); }

    // The first record behind `after` that meets it, for which that becomes its number; a value is met or not.
    std::optional<Answer> met(Sandbox &sandbox, uint64_t &after) const {
        if (message() == nullptr)
            return value().holds(sandbox) ? std::optional(Answer().say("{condition}", {{"condition", text_}}))
                                          : std::nullopt;
        const std::deque<Record> &history = sandbox.trace.history();
        const auto behind = std::partition_point(history.begin(), history.end(),
                                                 [&](const Record &record) { return record.number <= after; });
        const auto found =
            std::find_if(behind, history.end(), [&](const Record &record) { return message()->matches(record); });
        after = found == history.end() ? std::max(after, sandbox.trace.last()) : found->number;
        return found == history.end() ? std::nullopt
                                      : std::optional(Answer().line(record_text(*found), record_json(*found)));
    }

  private:
    std::string read(const Words &words, size_t &next) {
        const size_t begin = next;
        const std::string word = next < words.size() ? words[next] : "";
        const auto *const kind = std::find_if(std::begin(kConditionKinds), std::end(kConditionKinds),
                                              [&](const auto &row) { return word == row.word; });
        if (kind != std::end(kConditionKinds))
            what_.emplace(MessagePattern(kind->kind, words, ++next));
        else if (ValueCondition::begins(word))
            what_.emplace(ValueCondition(words, next));
        else
            throw std::invalid_argument("no such condition: " + word +
                                        "; there are event TYPE, request TYPE, refusal TYPE" + ValueCondition::nouns());
        return join({words.begin() + static_cast<ptrdiff_t>(begin), words.begin() + static_cast<ptrdiff_t>(next)});
    }

    std::optional<std::variant<MessagePattern, ValueCondition>> what_;
    std::string text_; // behind what_, which reading it makes
};

// The words behind the conditions: "since MARK", "within T".
struct Bounds {
    uint64_t since;
    Microseconds limit;
};

Bounds take_bounds(const Sandbox &sandbox, const Call &call, size_t next) {
    Bounds bounds{call.session.begin, Microseconds(std::llround(kPatience.count() * sandbox.loop.scale()))};
    for (; next + 1 < call.words.size(); next += 2) {
        const std::string &word = call.words[next];
        const std::string &operand = call.words[next + 1];
        if (word == "within") {
            bounds.limit = parse_seconds(operand);
        } else if (word == "since") {
            const auto mark = sandbox.marks.find(operand);
            refuse_if(mark == sandbox.marks.end(), "no such mark: " + operand);
            bounds.since = mark->second;
        } else
            break;
    }
    refuse_if(next != call.words.size(), "not understood: " + call.rest(next));
    return bounds;
}

std::string in_vain(Sandbox &sandbox, const Condition &condition) {
    return "waited in vain for " + condition.text() +
           (condition.message() == nullptr ? ": " + condition.value().now(sandbox) : "");
}

// The conditions of "A then B then C", or the one of a wait, and how far they have been met.
struct Sequence {
    std::vector<Condition> conditions;
    size_t met = 0;
    uint64_t after = 0;
    Answer answer;
};

// Each record is used up by the wait that it ends: the next wait for the same takes the next one.
template <bool InOrder> Outcome wait_for(Sandbox &sandbox, const Call &call) {
    const auto sequence = std::make_shared<Sequence>();
    std::vector<Condition> &conditions = sequence->conditions;
    size_t next = 0;
    do
        conditions.emplace_back(call.words, next);
    while (InOrder && next < call.words.size() && call.words[next] == "then" && ++next);
    const Bounds bounds = take_bounds(sandbox, call, next);
    uint64_t &matched = call.session.matched[InOrder ? "expect" : conditions[0].text()];
    sequence->after = std::max(matched, bounds.since);
    const auto done = [&sandbox, sequence, &matched]() -> std::optional<Answer> {
        for (; sequence->met < sequence->conditions.size(); ++sequence->met) {
            const std::optional<Answer> answer = sequence->conditions[sequence->met].met(sandbox, sequence->after);
            if (!answer)
                return std::nullopt;
            if (InOrder)
                sequence->answer.element("expected", answer->lines()[0], answer->json());
            else
                sequence->answer = *answer;
        }
        matched = sequence->after;
        return sequence->answer;
    };
    return Wait{
        done, bounds.limit, [&sandbox, sequence] { return in_vain(sandbox, sequence->conditions[sequence->met]); }, {}};
}

// From now on.
Outcome never(Sandbox &sandbox, const Call &call) {
    size_t next = 0;
    const auto condition = std::make_shared<Condition>(call.words, next);
    refuse_if(next + 2 != call.words.size() || call.words[next] != "for",
              "never " + condition->text() + " for how long?");
    auto after = std::make_shared<uint64_t>(sandbox.trace.last());
    const auto done = [&sandbox, condition, after]() -> std::optional<Answer> {
        if (const std::optional<Answer> answer = condition->met(sandbox, *after))
            throw std::runtime_error("it happened: " + answer->lines()[0]);
        return std::nullopt;
    };
    return Wait{done,
                parse_seconds(call.words[next + 1]),
                {},
                Answer().say("never {condition}", {{"condition", condition->text()}})};
}

// What has happened so far does not count any more, or has that name for "since".
Outcome mark(Sandbox &sandbox, const Call &call) {
    if (call.words.empty())
        call.session.begin = sandbox.trace.last();
    else
        sandbox.marks[call.words[0]] = sandbox.trace.last();
    return Answer().say("mark: {number}", {{"number", sandbox.trace.last()}});
}

// The answer of a command that has been refused.
Answer refusal(const std::string &reason) {
    return Answer().say("fails: {reason}", {{"reason", reason}});
}

// Whether the command only waits, so that what it does not understand is never a refusal.
bool only_waits(const Command &row);

std::optional<Answer> must_fail(const std::function<std::optional<Answer>()> &done, bool waits) {
    std::optional<Answer> answer;
    try {
        answer = done();
    } catch (const std::invalid_argument &error) {
        if (waits)
            throw;
        return refusal(error.what());
    } catch (const std::exception &error) {
        return refusal(error.what());
    }
    if (answer)
        throw std::runtime_error("it did not fail" + (answer->lines().empty() ? "" : ": " + answer->lines()[0]));
    return std::nullopt;
}

// A command that has to be refused, now or when it is settled.
Outcome fails(Sandbox &sandbox, const Call &call) {
    Call inner{{}, {}, call.session};
    // One that is not understood is not refused, it is an error.
    const bool waits = only_waits(find_command(all_commands(), call.words, inner));
    Outcome outcome;
    const auto run = [&]() -> std::optional<Answer> {
        outcome = run_command(sandbox, call.rest(), call.session);
        const Answer *answer = std::get_if<Answer>(&outcome);
        return answer != nullptr ? std::optional(*answer) : std::nullopt;
    };
    if (const std::optional<Answer> answer = must_fail(run, waits))
        return *answer;
    Wait wait = std::get<Wait>(std::move(outcome));
    wait.done = [done = std::move(wait.done), waits] { return must_fail(done, waits); };
    // What a passing limit means is turned round, too.
    const bool well = wait.timed_out == nullptr;
    wait.timed_out = well ? [] { return std::string("it did not fail"); } : std::function<std::string()>();
    wait.passed = refusal("in vain");
    return wait;
}

// The shorter ways to say two of the waits.
Outcome wait_shortly(Sandbox &sandbox, const Call &call) {
    const std::string &what = call.words[0];
    const bool event = call.command == "wait-event";
    Words words = event ? Words{"request", what} : split("clients registered is " + std::to_string(parse_number(what)));
    if (call.words.size() > 1)
        words.insert(words.end(), {"within", call.words[1]});
    return wait_for<false>(sandbox, {call.command, words, call.session});
}

constexpr Command kWaitCommands[] = {
    {"wait", "CONDITION... [since MARK] [within SECONDS]", "until it happens or is so; 10 seconds at most by default",
     wait_for<false>},
    {"never", "CONDITION... for SECONDS", "fails as soon as it happens or is so", never},
    {"expect", "CONDITION... [then CONDITION...] [since MARK] [within SECONDS]", "what happens in this order",
     wait_for<true>},
    {"mark", "[NAME]", "waits look behind this place only, or \"since NAME\" does", mark},
    {"fails", "COMMAND...", "run it and fail unless it does", fails},
    {"sleep", "SECONDS", "let time pass",
     [](Sandbox &, const Call &call) -> Outcome {
         return Wait{[] { return std::optional<Answer>(); }, parse_seconds(call.words[0]), {}, Answer().say("slept")};
     }},
    {"wait-event", "TYPE [SECONDS]", "wait request TYPE", wait_shortly},
    {"wait-clients", "N [SECONDS]", "wait clients registered is N", wait_shortly},
};

bool only_waits(const Command &row) {
    return &row >= std::begin(kWaitCommands) && &row < std::end(kWaitCommands) && row.run != fails;
}

} // namespace

const Family wait_commands = kWaitCommands;

} // namespace sandbox
