#include "sandbox/answer.h"

#include <cstdio>
#include <stdexcept>

namespace sandbox {

namespace {

std::string value_text(const Fields &value) {
    if (value.is_null())
        return "";
    if (value.is_string())
        return escaped(value.get_ref<const std::string &>());
    if (!value.is_array())
        return value.dump();
    std::string text;
    for (const Fields &element : value)
        text += (text.empty() ? "" : " ") + value_text(element);
    return text;
}

} // namespace

std::string escaped(std::string_view text) {
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        char code[5];
        if (c == '\n')
            result += "\\n";
        else if (c == '\t')
            result += "\\t";
        else if (c == '\\')
            result += "\\\\";
        else if (byte >= 0x20 && byte != 0x7f)
            result += c;
        else {
            std::snprintf(code, sizeof code, "\\x%02x", byte);
            result += code;
        }
    }
    return result;
}

std::string fill(std::string_view pattern, const Fields &fields) {
    std::string text;
    for (size_t open = 0; (open = pattern.find('{')) != std::string_view::npos;) {
        const size_t close = pattern.find('}', open);
        if (close == std::string_view::npos)
            throw std::logic_error("a pattern without the end of a field: " + std::string(pattern));
        const std::string name(pattern.substr(open + 1, close - open - 1));
        if (!fields.contains(name))
            throw std::logic_error("a pattern names \"" + name + "\", which is no field");
        const std::string value = value_text(fields[name]);
        text += pattern.substr(0, open);
        if (value.empty() && !text.empty() && text.back() == ' ')
            text.pop_back();
        text += value;
        pattern.remove_prefix(close + 1);
    }
    return text.append(pattern);
}

Answer &Answer::say(std::string_view pattern, const Fields &fields) {
    lines_.push_back(fill(pattern, fields));
    json_.update(fields);
    return *this;
}

Answer &Answer::line(std::string text, const Fields &fields) {
    lines_.push_back(std::move(text));
    json_.update(fields);
    return *this;
}

Answer &Answer::element(const char *list, std::string text, const Fields &fields) {
    lines_.push_back(std::move(text));
    json_[list].push_back(fields);
    return *this;
}

void say(const std::string &line) {
    std::puts(line.c_str());
    std::fflush(stdout);
}

std::string Answer::text() const {
    std::string text;
    for (const std::string &line : lines_)
        text += line + "\n";
    return text;
}

} // namespace sandbox
