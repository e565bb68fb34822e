// Writes docs/wire-format.md: its head, and behind it the tables of wire/ with a picture of each record.
#include "wire/event.h"
#include "wire/segments.h"

#include <algorithm>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <set>
#include <sstream>

namespace {

using wire::Direction;
using wire::Kind;

constexpr size_t kBytesOfRow = 4;
constexpr size_t kColumns = 16;    // of one byte, in a picture
constexpr size_t kDrawnBytes = 64; // what is longer has its long fields in one row each

constexpr const char *kKinds[] = {"number",   "signed number", "one of",       "bits",      "MAC address",
                                  "VLAN set", "port set",      "instance set", "event set", "text",
                                  "bytes",    "reserved",      "records"}; // by Kind

std::string hexadecimal(uint32_t number) {
    std::ostringstream text;
    text << "0x" << std::hex << number;
    return text.str();
}

// A box of so many columns, its right border included.
std::string box(std::string text, size_t columns) {
    text = " " + text.substr(0, columns - 3) + " ";
    text.resize(columns - 1, ' ');
    return text + "|";
}

std::string rule(size_t bytes) {
    std::string line = "       +";
    for (size_t byte = 0; byte < bytes; ++byte)
        line += std::string(kColumns - 1, '-') + "+";
    return line + "\n";
}

// One field as it lies in rows of four bytes. `at` is where in its record the row begins that `row` holds so far.
class Picture {
  public:
    std::string of(const wire::Record &record) {
        text_ = rule(std::min(record.size, kBytesOfRow));
        for (const wire::Field &field : record.fields) {
            if (filled_ == 0 && field.width > 2 * kBytesOfRow && record.size > kDrawnBytes)
                add_long(field);
            else
                add(field);
        }
        if (filled_ != 0)
            end_row(filled_);
        return text_;
    }

  private:
    void add(const wire::Field &field) {
        for (size_t done = 0; done < field.width;) {
            const size_t bytes = std::min(kBytesOfRow - filled_, field.width - done);
            begin_row(field.offset + done);
            row_ += box(done == 0 ? field.name : "", bytes * kColumns);
            filled_ += bytes;
            done += bytes;
            if (filled_ == kBytesOfRow)
                end_row(kBytesOfRow);
        }
    }
    void add_long(const wire::Field &field) {
        begin_row(field.offset);
        row_ += box(field.name + ", " + std::to_string(field.width) + " bytes", kBytesOfRow * kColumns);
        end_row(kBytesOfRow);
        if (field.width % kBytesOfRow != 0) {
            begin_row(field.offset + field.width / kBytesOfRow * kBytesOfRow);
            filled_ = field.width % kBytesOfRow;
            row_ += box("", filled_ * kColumns);
        }
    }
    void begin_row(size_t at) {
        if (!row_.empty())
            return;
        std::ostringstream begin;
        begin << std::setw(6) << at << " |";
        row_ = begin.str();
    }
    void end_row(size_t bytes) {
        text_ += row_ + "\n" + rule(bytes);
        row_.clear();
        filled_ = 0;
    }

    std::string text_;
    std::string row_;
    size_t filled_ = 0; // bytes of the row
};

std::string values_of(const wire::Field &field) {
    std::string text = kKinds[static_cast<size_t>(field.kind)];
    if (field.kind == Kind::kRecords)
        text = std::to_string(field.width / field.record->size) + " of `" + field.record->name + "`";
    else if (field.count() > 1 && field.is_number())
        text += " (" + std::to_string(field.count()) + " of them)";
    const char *separator = ": ";
    for (const wire::Name &name : field.names) {
        const bool flag = field.kind == Kind::kFlags;
        text += separator + (flag ? hexadecimal(name.value) : std::to_string(name.value)) + " " + name.text;
        separator = ", ";
    }
    return text;
}

void write_record(const wire::Record &record) {
    std::cout << "### " << record.name << "\n\n"
              << record.size << " bytes" << (record.open() ? ", or fewer of the last records" : "") << "\n\n```\n"
              << Picture().of(record) << "```\n\n| offset | bytes | field | what |\n|---|---|---|---|\n";
    for (const wire::Field &field : record.fields)
        if (field.kind != Kind::kReserved)
            std::cout << "| " << field.offset << " | " << field.width << " | `" << field.name << "` | "
                      << values_of(field) << " |\n";
    std::cout << "\n";
}

std::string payload_text(const wire::Payload &payload) {
    switch (payload.shape) {
    case wire::Shape::kNever:
        return "";
    case wire::Shape::kNone:
        return "nothing";
    case wire::Shape::kOpaque:
        return "bytes of others";
    default:
        break;
    }
    const std::string link = "[" + payload.record->name + "](#" + payload.record->name + ")";
    return (payload.shape == wire::Shape::kRun ? "any number of " : "") + link + (payload.assumed ? " (sandbox)" : "");
}

void write_segments() {
    std::cout << "| segment | key | bytes |\n|---|---|---|\n";
    for (const wire::Segment *segment : wire::all_segments())
        std::cout << "| " << segment->name << " | " << hexadecimal(segment->key_base) << " + VSDID | " << segment->size
                  << " |\n";
}

void write_events() {
    std::cout
        << "\n## Events\n\n\"Sandbox\" marks a payload whose layout is not known on a switch: it is the sandbox's "
           "own.\n\n"
           "| type | name | to a client | to the server | to the kernel | its answer |\n|---|---|---|---|---|---|\n";
    for (const wire::Event &event : wire::all_events()) {
        std::cout << "| " << event.type << " | `" << event.name << "` |";
        for (const Direction way :
             {Direction::kToClient, Direction::kToServer, Direction::kToKernel, Direction::kFromKernel}) {
            const std::string text = payload_text(event.payload(way));
            const bool only_local = event.local && way == Direction::kToClient && text.empty();
            std::cout << " " << (only_local ? "raised by the library" : text) << " |";
        }
        std::cout << "\n";
    }
}

} // namespace

int main(int argc, char **argv) {
    const std::ifstream head(argc == 2 ? argv[1] : "");
    if (!head) {
        std::cerr << "usage: bridge-format head.md\n";
        return 64;
    }
    std::cout << head.rdbuf();
    write_segments();
    write_events();
    std::cout << "\n## Records\n\n";
    for (const wire::Record *record : wire::all_records())
        write_record(*record);
    return std::cout.flush() ? 0 : 1;
}
