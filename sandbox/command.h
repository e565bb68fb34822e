// The one mechanism of all commands: rows of words, arguments, help and a handler. Each family of commands is a table
// in a file of its own.
// The values of the switch that one can wait for, by the same fields as in the answers of the show commands.
#pragma once

#include "sandbox/answer.h"
#include "sandbox/loop.h"

#include <deque>
#include <map>
#include <optional>
#include <span>
#include <variant>

namespace sandbox {

struct Sandbox; // everything that a command can reach; see sandbox.h

using Words = std::vector<std::string>;

// Blank-separated; a word that begins with # begins a comment.
Words split(const std::string &line);
// The words from there on, with that between them.
std::string join(const Words &words, size_t first = 0, const char *between = " ");

// Lines of commands in order, with their repetitions:
// "repeat 3 COMMAND" is that command three times; "repeat 3" is what follows up to "end" three times, also nested.
class Script {
  public:
    void add(std::string line) { lines_.push_back(std::move(line)); }
    // Throws std::runtime_error when the file cannot be read or is none.
    void add_file(const std::string &path);

    // The next line that is a command; nothing when there is none yet, or when a block's end has not come. Throws
    // std::invalid_argument for a repetition that makes no sense.
    std::optional<std::string> next();
    [[nodiscard]] bool empty() const { return lines_.empty(); }
    void clear() { lines_.clear(); }

  private:
    bool unroll(const Words &words);

    std::deque<std::string> lines_;
};

// What one stream of commands remembers.
struct Session {
    uint64_t begin = 0;                      // records up to that number are not looked at
    std::map<std::string, uint64_t> matched; // by condition: the number of the record that its last wait has used up
};

// Something that the next command of the stream waits for.
struct Wait {
    // The answer once it has come, nothing until then. Looked at after every record of the trace and every command;
    // throws std::exception when it cannot come any more.
    std::function<std::optional<Answer>()> done;
    Microseconds limit;
    // The error when the limit passes; empty when passing it is what was asked for.
    std::function<std::string()> timed_out;
    Answer passed; // the answer then
};

// A handler's answer, now or later.
using Outcome = std::variant<Answer, Wait>;

struct Call {
    std::string command; // the row's words
    Words words;         // those behind them, but for the words that stand in the row's arguments themselves
    Session &session;
    std::string line = {}; // the whole command

    [[nodiscard]] std::string rest(size_t first = 0) const { return join(words, first); }
};

// A handler throws std::invalid_argument with the reason when it refuses. One that says nothing is answered for with
// "port add ...: done".
using Handler = Outcome (*)(Sandbox &sandbox, const Call &call);

struct Command {
    const char *words; // "vlan create"
    // "LIST [MODE]"; also tells how many there may be: ... for any number, [] for what may lack. A word in small
    // letters in front of an argument stands as it is.
    const char *arguments;
    const char *help;
    Handler run;
};

// How many words an arguments text allows.
struct Arity {
    size_t least;
    size_t most;
};
Arity arity_of(std::string_view arguments);

using Family = std::span<const Command>;

// The row whose words the line begins with, the longest one; the call has the words behind. Throws
// std::invalid_argument when there is none, or when it takes another number of words.
const Command &find_command(std::span<const Family> families, const Words &line, Call &call);
// The rows that begin with the word, or all; with what stands at the end of the whole list.
Answer command_help(std::span<const Family> families, const std::string &word);

// "vlan 10", "client authd", "clients": a noun, its keys, and the fields of the object that they name; null when there
// is none. Throws std::invalid_argument for keys that name nothing ever.
struct Value {
    const char *noun;
    const char *keys; // "VID"; as many words
    Fields (*get)(Sandbox &sandbox, const Words &keys);
};
using Values = std::span<const Value>;

// The families' tables.
extern const Values client_values;
extern const Values switch_values;
extern const Values mac_values;

// "vlan 10 members has 3": whether it holds now. A field alone is true or not empty; "exists" and "gone" ask for the
// object itself; is, not, has, lacks, <, <=, >, >= compare, "is" may be left out.
class ValueCondition {
  public:
    // Takes the condition from the words, beginning at `next`. Throws std::invalid_argument.
    ValueCondition(const Words &words, size_t &next);

    [[nodiscard]] bool holds(Sandbox &sandbox) const;
    // What it is now instead, for the line of a wait in vain.
    [[nodiscard]] std::string now(Sandbox &sandbox) const;

    // Whether a condition begins with that word.
    static bool begins(const std::string &noun);
    // ", port IFX, vlan VID": what there is.
    static std::string nouns();

  private:
    const Value *value_;
    Words keys_;
    std::string field_; // or exists, gone
    std::string operator_;
    std::string operand_;
};

} // namespace sandbox
