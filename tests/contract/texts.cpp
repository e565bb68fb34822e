// Holds the texts that the built library carries against the list of the system's texts.
//
//     texts LIBRARY TEXTS OWN
//
// TEXTS: every text other programs and people know (log formats, names, paths), one a line, \n \r \t written so. Each
// must be in the library as it stands. OWN: the formats that only this library has (lines about input that it refuses).
// A format in the library that stands in neither list fails too: it is misspelt or unlisted.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <link.h>
#include <set>
#include <string>
#include <vector>

namespace {

std::string read_file(const char *path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string unescaped(const std::string &line) {
    std::string text;
    for (size_t index = 0; index < line.size(); ++index) {
        if (line[index] != '\\' || index + 1 == line.size()) {
            text += line[index];
            continue;
        }
        const char next = line[++index];
        text += next == 'n' ? '\n' : next == 'r' ? '\r' : next == 't' ? '\t' : next;
    }
    return text;
}

std::string escaped(const std::string &text) {
    std::string line;
    for (const char character : text)
        line += character == '\n'   ? "\\n"
                : character == '\r' ? "\\r"
                : character == '\t' ? "\\t"
                                    : std::string(1, character);
    return line;
}

std::set<std::string> read_list(const char *path) {
    std::set<std::string> texts;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
        texts.insert(unescaped(line));
    return texts;
}

// The constant data of a shared object of this machine's kind.
std::string constants_of(const std::string &object) {
    ElfW(Ehdr) header;
    std::memcpy(&header, object.data(), sizeof header);
    std::vector<ElfW(Shdr)> sections(header.e_shnum);
    std::memcpy(sections.data(), object.data() + header.e_shoff, sections.size() * sizeof sections[0]);
    const char *names = object.data() + sections.at(header.e_shstrndx).sh_offset;
    std::string all;
    for (const auto &section : sections)
        if (std::strncmp(names + section.sh_name, ".rodata", 7) == 0)
            all.append(object, section.sh_offset, section.sh_size).push_back('\0');
    return all;
}

bool is_text(char character) {
    return (character >= ' ' && character <= '~') || character == '\n' || character == '\r' || character == '\t';
}

// What lies in the file as text of at least four characters before a NUL.
std::vector<std::string> texts_in(const std::string &bytes) {
    std::vector<std::string> texts;
    std::string text;
    for (const char character : bytes) {
        if (is_text(character)) {
            text += character;
            continue;
        }
        if (character == '\0' && text.size() >= 4)
            texts.push_back(text);
        text.clear();
    }
    return texts;
}

// A line for the log or for a person: it ends as one, or it has values in words.
bool is_line(const std::string &text) {
    const bool ends = text.back() == '\n';
    const bool words = text.find('%') != std::string::npos && text.find(' ') != std::string::npos;
    return text.size() > 5 && (ends || words);
}

// The linker lets a text share the end of a longer one.
bool carries(const std::vector<std::string> &texts, const std::string &wanted) {
    return std::any_of(texts.begin(), texts.end(), [&](const std::string &text) { return text.ends_with(wanted); });
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 4)
        return 2;
    const std::vector<std::string> carried = texts_in(constants_of(read_file(argv[1])));
    const std::set<std::string> system = read_list(argv[2]);
    const std::set<std::string> own = read_list(argv[3]);
    int wrong = 0;
    for (const std::set<std::string> &list : {system, own})
        for (const std::string &text : list)
            if (text.size() >= 4 && !carries(carried, text)) {
                std::printf("not in the library: %s\n", escaped(text).c_str());
                ++wrong;
            }
    for (const std::string &text : carried)
        if (is_line(text) && system.count(text) == 0 && own.count(text) == 0) {
            std::printf("in no list:         %s\n", escaped(text).c_str());
            ++wrong;
        }
    std::printf("%zu texts of the system, %zu of our own, %d wrong\n", system.size(), own.size(), wrong);
    return wrong == 0 && system.size() > 400 ? 0 : 1;
}
