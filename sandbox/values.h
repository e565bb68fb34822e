// The values of the switch that one can wait for, by the same fields as in the answers of the show commands.
#pragma once

#include "sandbox/command.h"

namespace sandbox {

// "vlan 10", "client authd", "clients": a noun, its keys, and the fields of the object that they name; null when there
// is none. Throws std::invalid_argument for keys that name nothing ever.
struct Value {
    const char *noun;
    const char *keys; // "VID"; as many words
    Fields (*get)(Sandbox &sandbox, const Words &keys);
};
using Values = std::span<const Value>;

// The families' tables.
Values client_values();
Values switch_values();
Values mac_values();

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

  private:
    const Value *value_;
    Words keys_;
    std::string field_; // or exists, gone
    std::string operator_;
    std::string operand_;
};

} // namespace sandbox
