// Commands in two words, such as "mac add": one table of rows for each first word.
#pragma once

#include "sandbox/output.h"

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

namespace sandbox {

template <class Subject> struct Verb {
    using Words = std::vector<std::string>; // behind the verb
    const char *name;
    const char *arguments;
    const char *help;
    size_t least;
    size_t most;
    void (*run)(Subject &subject, const Words &words);
};

// Runs the verb that words[1] names and gives its row, or shows the table for "help" and gives null.
template <class Subject, size_t N>
const Verb<Subject> *run_verb(const Verb<Subject> (&verbs)[N], Subject &subject,
                              const std::vector<std::string> &words) {
    for (const auto &verb : verbs) {
        if (words[1] == "help")
            say("  %-13s%-22s%s", verb.name, verb.arguments, verb.help);
        if (words[1] != verb.name)
            continue;
        const size_t given = words.size() - 2;
        if (given < verb.least || given > verb.most)
            throw std::invalid_argument("usage: " + words[0] + " " + verb.name + " " + verb.arguments);
        verb.run(subject, {words.begin() + 2, words.end()});
        return &verb;
    }
    if (words[1] != "help")
        throw std::invalid_argument("no such command: " + words[0] + " " + words[1] + " (try " + words[0] + " help)");
    return nullptr;
}

} // namespace sandbox
