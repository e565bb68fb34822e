#include "sandbox/command.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace sandbox {

namespace {

// How many words of the line the row's words are; 0 when the line is about something else.
size_t match(const Command &row, const Words &line) {
    const Words words = split(row.words);
    const bool same = words.size() <= line.size() && std::equal(words.begin(), words.end(), line.begin());
    return same ? words.size() : 0;
}

[[noreturn]] void tell_usage(const Command &row) {
    throw std::invalid_argument("usage: " + std::string(row.words) + " " + row.arguments);
}

// Takes out of the words those that the row demands as they are: the ones in front of an argument.
void take_fixed_words(const Command &row, Words &words) {
    const Words pattern = split(row.arguments);
    for (size_t i = std::min(words.size(), pattern.size()); i-- > 0;) {
        const std::string word = pattern[i].substr(pattern[i][0] == '[' ? 1 : 0);
        if (!std::all_of(word.begin(), word.end(), [](char c) { return c >= 'a' && c <= 'z'; }))
            continue;
        if (words[i] != word || i + 1 == words.size())
            tell_usage(row);
        words.erase(words.begin() + static_cast<ptrdiff_t>(i));
    }
}

bool begins_with(const Command &row, const std::string &word) {
    return word.empty() || split(row.words)[0] == word;
}

} // namespace

std::string join(const Words &words, size_t first) {
    std::string text;
    for (size_t i = first; i < words.size(); ++i)
        text += (i == first ? "" : " ") + words[i];
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
    if (call.words.size() < arity.least || call.words.size() > arity.most)
        tell_usage(*best);
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
    if (answer.lines().empty())
        throw std::invalid_argument("no such command: " + word + " (try help)");
    return answer;
}

} // namespace sandbox
