// What a command answers: lines of text and a JSON object, both from the same fields.
#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace sandbox {

// Names and values in the order in which they are shown.
using Fields = nlohmann::ordered_json;

// The pattern with its fields, control characters escaped. An array is its elements with blanks between; where a field
// is empty, the blank before it goes too. Throws std::logic_error for a name that is no field.
std::string fill(std::string_view pattern, const Fields &fields);

class Answer {
  public:
    // With these lists, empty as yet, in the JSON object.
    Answer(std::initializer_list<const char *> lists = {}) { // NOLINT(google-explicit-constructor)
        for (const char *list : lists)
            json_[list] = Fields::array();
    }

    // One line: the pattern with each {name} replaced by that field. The fields become members of the JSON object.
    Answer &say(std::string_view pattern, const Fields &fields = Fields::object());
    // One line as it stands, which the fields tell in another way.
    Answer &line(std::string text, const Fields &fields);
    // One line of a list; the fields become one more element of the JSON object's array of that name.
    Answer &row(const char *list, std::string_view pattern, const Fields &fields) {
        return element(list, fill(pattern, fields), fields);
    }
    // The same with the line as it stands.
    Answer &element(const char *list, std::string text, const Fields &fields);

    // "ports: 3", as many as the list has elements.
    Answer &total(const std::string &list) { return say(list + ": {count}", {{"count", json_[list].size()}}); }

    [[nodiscard]] const std::vector<std::string> &lines() const { return lines_; }
    [[nodiscard]] std::string text() const; // the lines, each with its end
    [[nodiscard]] const Fields &json() const { return json_; }

  private:
    std::vector<std::string> lines_;
    Fields json_ = Fields::object();
};

// Text that may hold anything, on one line: control characters and backslashes as \n, \t, \\ or \x1b.
std::string escaped(std::string_view text);

// One line on standard output for the person or script that runs the program, written at once.
void say(const std::string &line);

} // namespace sandbox
