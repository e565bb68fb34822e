#include "sandbox/sandbox.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace sandbox {

namespace {

constexpr uint32_t kMostTimes = 100000; // of a repetition

// How many words of the line the row's words are; 0 when the line is about something else.
size_t match(const Command &row, const Words &line) {
    const Words words = split(row.words);
    const bool same = words.size() <= line.size() && std::equal(words.begin(), words.end(), line.begin());
    return same ? words.size() : 0;
}

std::string usage_of(const Command &row) {
    return "usage: " + std::string(row.words) + " " + row.arguments;
}

// Takes out of the words those that the row demands as they are: the ones in front of an argument.
void take_fixed_words(const Command &row, Words &words) {
    const Words pattern = split(row.arguments);
    for (size_t i = std::min(words.size(), pattern.size()); i-- > 0;) {
        const std::string word = pattern[i].substr(pattern[i][0] == '[' ? 1 : 0);
        if (!std::all_of(word.begin(), word.end(), [](char c) { return c >= 'a' && c <= 'z'; }))
            continue;
        refuse_if(words[i] != word || i + 1 == words.size(), usage_of(row));
        words.erase(words.begin() + static_cast<ptrdiff_t>(i));
    }
}

bool begins_with(const Command &row, const std::string &word) {
    return word.empty() || split(row.words)[0] == word;
}

constexpr const char *kOperators[] = {"is", "not", "has", "lacks", "<", "<=", ">", ">="};
// Words of the commands around a condition: what ends it.
constexpr const char *kEnds[] = {"within", "for", "then", "since"};

template <size_t N> bool is_one_of(const char *const (&list)[N], const std::string &word) {
    return std::ranges::find(list, word) != std::end(list);
}

std::span<const Values> all_values() {
    static const Values families[] = {client_values, switch_values, mac_values};
    return families;
}

const Value *find_value(const std::string &noun) {
    for (const Values family : all_values())
        for (const Value &row : family)
            if (noun == row.noun)
                return &row;
    return nullptr;
}

std::string plain(const Fields &value) {
    return value.is_string() ? value.get<std::string>() : value.dump();
}

std::string names_in(const Fields &object) {
    Words names;
    for (const auto &[name, value] : object.items())
        names.push_back(name);
    return join(names, 0, ", ");
}

// Whether an array, or a text such as "1-10,20", has the word among its elements.
bool has(const Fields &value, const std::string &word) {
    if (value.is_array())
        return std::ranges::any_of(value, [&](const Fields &element) { return plain(element) == word; });
    return plain(value) == word || lists(plain(value), word);
}

bool truth(const Fields &value) {
    if (value.is_boolean())
        return value.get<bool>();
    if (value.is_number())
        return value.get<double>() != 0;
    return !value.empty() && !plain(value).empty() && plain(value) != "none";
}

// Whether the operator wants a number behind it.
bool is_order(const std::string &how) {
    return how[0] == '<' || how[0] == '>';
}

bool is_number(const std::string &text) {
    char *end = nullptr;
    return !std::isnan(std::strtod(text.c_str(), &end)) && end != text.c_str() && *end == '\0';
}

bool compare(const Fields &value, const std::string &how, const std::string &operand) {
    if (how == "has" || how == "lacks")
        return has(value, operand) == (how == "has");
    if (how == "is" || how == "not")
        return (plain(value) == operand) == (how == "is");
    const double left = std::strtod(plain(value).c_str(), nullptr);
    const double right = std::strtod(operand.c_str(), nullptr);
    if (how[0] == '<')
        return left < right || (how == "<=" && left == right);
    return left > right || (how == ">=" && left == right);
}

} // namespace

std::string join(const Words &words, size_t first, const char *between) {
    std::string text;
    for (size_t i = first; i < words.size(); ++i)
        text += (i == first ? "" : between) + words[i];
    return text;
}

Words split(const std::string &line) {
    Words words;
    std::istringstream input(line);
    for (std::string word; input >> word && word[0] != '#';)
        words.push_back(word);
    return words;
}

Arity arity_of(std::string_view arguments) {
    Arity arity{0, 0};
    int brackets = 0;
    for (const std::string &word : split(std::string(arguments))) {
        brackets += static_cast<int>(std::count(word.begin(), word.end(), '['));
        arity.least += brackets == 0 ? 1U : 0U;
        arity.most += arity.most != SIZE_MAX ? 1U : 0U;
        if (word.find("...") != std::string::npos)
            arity.most = SIZE_MAX;
        brackets -= static_cast<int>(std::count(word.begin(), word.end(), ']'));
    }
    return arity;
}

const Command &find_command(std::span<const Family> families, const Words &line, Call &call) {
    const Command *best = nullptr;
    size_t length = 0;
    bool known = false; // the first word at least
    for (const Family family : families)
        for (const Command &row : family) {
            known = known || begins_with(row, line[0]);
            if (const size_t words = match(row, line); words > length) {
                best = &row;
                length = words;
            }
        }
    if (best == nullptr)
        throw std::invalid_argument(
            "no such command: " + line[0] +
            (known ? (line.size() > 1 ? " " + line[1] : "") + " (try help " + line[0] + ")" : " (try help)"));
    call.command = best->words;
    call.words.assign(line.begin() + static_cast<ptrdiff_t>(length), line.end());
    const Arity arity = arity_of(best->arguments);
    refuse_if(call.words.size() < arity.least || call.words.size() > arity.most, usage_of(*best));
    call.line = join(line);
    if (arity.most != SIZE_MAX)
        take_fixed_words(*best, call.words);
    return *best;
}

Answer command_help(std::span<const Family> families, const std::string &word) {
    Answer answer;
    for (const Family family : families)
        for (const Command &row : family) {
            if (!begins_with(row, word))
                continue;
            std::string padding(row.words);
            padding.resize(std::max<size_t>(padding.size() + 1, 15), ' ');
            std::string usage(row.arguments);
            usage.resize(std::max<size_t>(usage.size() + 1, 28), ' ');
            answer.row("commands",
                       "  " + padding + "{arguments}" + usage.substr(std::string(row.arguments).size()) + "{help}",
                       {{"command", row.words}, {"arguments", row.arguments}, {"help", row.help}});
        }
    refuse_if(answer.lines().empty(), "no such command: " + word + " (try help)");
    return answer;
}

std::string ValueCondition::nouns() {
    std::string text;
    for (const Values family : all_values())
        for (const Value &row : family)
            text += std::string(", ") + row.noun + (*row.keys != '\0' ? " " : "") + row.keys;
    return text;
}

bool ValueCondition::begins(const std::string &noun) {
    return find_value(noun) != nullptr;
}

ValueCondition::ValueCondition(const Words &words, size_t &next) {
    const auto more = [&] { return next < words.size() && !is_one_of(kEnds, words[next]); };
    value_ = more() ? find_value(words[next++]) : nullptr;
    refuse_if(value_ == nullptr, "no such value: " + (next > 0 ? words[next - 1] : std::string()));
    for (size_t keys = split(value_->keys).size(); keys > 0; --keys) {
        refuse_if(!more(), "usage: " + std::string(value_->noun) + " " + value_->keys + " FIELD ...");
        keys_.push_back(words[next++]);
    }
    field_ = more() ? words[next++] : "exists";
    if (!more())
        return;
    operator_ = is_one_of(kOperators, words[next]) ? words[next++] : "is";
    refuse_if(!more(), field_ + " " + operator_ + " what?");
    operand_ = words[next++];
    refuse_if(is_order(operator_) && !is_number(operand_), field_ + " " + operator_ + " what number? Not " + operand_);
}

bool ValueCondition::holds(Sandbox &sandbox) const {
    const Fields object = value_->get(sandbox, keys_);
    if (field_ == "exists" || field_ == "gone")
        return object.is_null() == (field_ == "gone");
    if (object.is_null())
        return false;
    const auto found = object.find(field_);
    if (found == object.end())
        throw std::invalid_argument(std::string(value_->noun) + " has no " + field_ + ", only " + names_in(object));
    return operator_.empty() ? truth(*found) : compare(*found, operator_, operand_);
}

std::string ValueCondition::now(Sandbox &sandbox) const {
    const Fields object = value_->get(sandbox, keys_);
    if (object.is_null())
        return "it does not exist";
    const auto found = object.find(field_);
    return found == object.end() ? "it exists" : field_ + " is " + plain(*found);
}

void Script::add_file(const std::string &path) {
    fail_if(std::filesystem::is_directory(path), "cannot read " + path + ": it is a directory");
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

std::span<const Family> all_commands() {
    static const Family families[] = {client_commands, wait_commands, switch_commands, mac_commands, rule_commands};
    return families;
}

Outcome run_command(Sandbox &sandbox, const std::string &line, Session &session) {
    const Words words = split(line);
    if (words.empty())
        return Answer();
    if (words.size() == 2 && words[1] == "help") // "vlan help"
        return command_help(all_commands(), words[0]);
    Call call{{}, {}, session};
    const Command &row = find_command(all_commands(), words, call);
    Outcome outcome = row.run(sandbox, call);
    if (Answer *answer = std::get_if<Answer>(&outcome); answer != nullptr && answer->lines().empty())
        answer->say("{command}: done", {{"command", call.line}});
    return outcome;
}

} // namespace sandbox
