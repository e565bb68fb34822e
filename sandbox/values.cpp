#include "sandbox/values.h"

#include "wire/value.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace sandbox {

namespace {

constexpr const char *kOperators[] = {"is", "not", "has", "lacks", "<", "<=", ">", ">="};
// Words of the commands around a condition: what ends it.
constexpr const char *kEnds[] = {"within", "for", "then", "since"};

template <size_t N> bool is_one_of(const char *const (&list)[N], const std::string &word) {
    return std::find(std::begin(list), std::end(list), word) != std::end(list);
}

const Value *find_value(const std::string &noun) {
    static const Values families[] = {client_values(), switch_values(), mac_values()};
    for (const Values family : families)
        for (const Value &row : family)
            if (noun == row.noun)
                return &row;
    return nullptr;
}

std::string plain(const Fields &value) {
    return value.is_string() ? value.get<std::string>() : value.dump();
}

std::string names_in(const Fields &object) {
    std::string names;
    for (const auto &[name, value] : object.items())
        names += (names.empty() ? "" : ", ") + name;
    return names;
}

// Whether an array, or a text such as "1-10,20", has the word among its elements.
bool has(const Fields &value, const std::string &word) {
    if (value.is_array())
        return std::any_of(value.begin(), value.end(), [&](const Fields &element) { return plain(element) == word; });
    const std::string text = plain(value);
    if (text == word)
        return true;
    try {
        const unsigned number = wire::parse_number(word);
        const wire::Ids ids = wire::parse_ids(text, 0, UINT16_MAX);
        return std::find(ids.begin(), ids.end(), number) != ids.end();
    } catch (const std::invalid_argument &) {
        return false; // a text of another kind
    }
}

bool truth(const Fields &value) {
    if (value.is_boolean())
        return value.get<bool>();
    if (value.is_number())
        return value.get<double>() != 0;
    return !value.empty() && plain(value) != "" && plain(value) != "none";
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

bool ValueCondition::begins(const std::string &noun) {
    return find_value(noun) != nullptr;
}

ValueCondition::ValueCondition(const Words &words, size_t &next) {
    const auto more = [&] { return next < words.size() && !is_one_of(kEnds, words[next]); };
    value_ = more() ? find_value(words[next++]) : nullptr;
    if (value_ == nullptr)
        throw std::invalid_argument("no such value: " + (next > 0 ? words[next - 1] : std::string()));
    for (size_t keys = split(value_->keys).size(); keys > 0; --keys) {
        if (!more())
            throw std::invalid_argument("usage: " + std::string(value_->noun) + " " + value_->keys + " FIELD ...");
        keys_.push_back(words[next++]);
    }
    field_ = more() ? words[next++] : "exists";
    if (!more())
        return;
    operator_ = is_one_of(kOperators, words[next]) ? words[next++] : "is";
    if (!more())
        throw std::invalid_argument(field_ + " " + operator_ + " what?");
    operand_ = words[next++];
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

} // namespace sandbox
