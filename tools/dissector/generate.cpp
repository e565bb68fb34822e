// Writes the dissector: the tables of wire/ as Lua, and behind them the code that reads them. Its output is checked in
// as bridge.lua, so that the analyser needs nothing else.
#include "wire/event.h"
#include "wire/names.h"

#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>

namespace {

using wire::Direction;
using wire::Kind;

constexpr struct {
    const char *name;
    Direction direction;
} kWays[] = {{"to_client", Direction::kToClient},
             {"to_server", Direction::kToServer},
             {"to_kernel", Direction::kToKernel},
             {"from_kernel", Direction::kFromKernel}};

// How the Lua side reads a field: by what its values are there.
const char *type_of(const wire::Field &field) {
    if (field.is_set())
        return "set";
    switch (field.kind) {
    case Kind::kSigned:
        return "int";
    case Kind::kMac:
        return "ether";
    case Kind::kText:
        return "string";
    case Kind::kBytes:
    case Kind::kReserved:
        return "bytes";
    case Kind::kRecords:
        return "records";
    default:
        return field.kind == Kind::kFlags ? "flags" : "uint";
    }
}

// What a filter compares.
std::string filter_type_of(const wire::Field &field) {
    const std::string type = type_of(field);
    return type == "set" || type == "flags" ? "uint" : type;
}

std::string submodule_name(uint32_t type) {
    for (const wire::Name &name : wire::kSubmodules)
        if (name.value == type >> 7)
            return name.text;
    throw std::logic_error("a submodule has no name");
}

// Records by the submodule of the first event that carries them, those inside others with them.
class Groups {
  public:
    Groups() {
        for (const wire::Event &event : wire::all_events())
            for (const auto &way : kWays)
                if (const wire::Record *record = event.payload(way.direction).record)
                    add(*record, submodule_name(event.type));
        add(wire::record_of<wire::ef_bridge_request>(), "kernel");
        add(wire::record_of<wire::ef_bridge_answer>(), "kernel");
    }

    [[nodiscard]] const std::map<const wire::Record *, std::string> &all() const { return groups_; }

  private:
    void add(const wire::Record &record, const std::string &group) {
        if (!groups_.emplace(&record, group).second)
            return;
        for (const wire::Field &field : record.fields)
            if (field.record != nullptr)
                add(*field.record, group);
    }

    std::map<const wire::Record *, std::string> groups_;
};

// The names of filters with what they compare; one name compares one kind of value.
class Filters {
  public:
    std::string name_of(const wire::Record &record, const wire::Field &field, const std::string &group) {
        const std::string type = filter_type_of(field);
        std::string common = "bridge." + group + "." + field.name;
        if (types_.emplace(common, type).first->second == type)
            return common;
        std::string own = "bridge." + group + "." + record.name + "." + field.name;
        types_.emplace(own, type);
        return own;
    }

    [[nodiscard]] const std::map<std::string, std::string> &types() const { return types_; }

  private:
    std::map<std::string, std::string> types_;
};

std::string names_text(std::span<const wire::Name> names) {
    std::string text;
    for (const wire::Name &name : names)
        text += (text.empty() ? "" : ", ") + ("[" + std::to_string(name.value)) + "] = \"" + name.text + "\"";
    return text;
}

std::string field_text(const wire::Field &field, const std::string &filter) {
    std::ostringstream text;
    text << "{name = \"" << field.name << "\", type = \"" << type_of(field) << "\", filter = \"" << filter
         << "\", at = " << field.offset << ", width = " << field.width << ", element = " << field.element;
    if (!field.names.empty())
        text << ", names = {" << names_text(field.names) << "}";
    if (field.kind == Kind::kReserved)
        text << ", reserved = true";
    if (field.record != nullptr)
        text << ", record = \"" << field.record->name << "\"";
    return text.str() + "}";
}

void write_records(std::ostream &out, const Groups &groups, Filters &filters) {
    out << "local records = {\n";
    for (const wire::Record *record : wire::all_records()) {
        const auto group = groups.all().find(record);
        if (group == groups.all().end())
            continue;
        out << "  " << record->name << " = {size = " << record->size << ", least = " << record->least()
            << ", fields = {\n";
        for (const wire::Field &field : record->fields)
            out << "    " << field_text(field, filters.name_of(*record, field, group->second)) << ",\n";
        out << "  }},\n";
    }
    out << "}\n\n";
}

std::string payload_text(const wire::Payload &payload) {
    constexpr const char *shapes[] = {"never", "none", "record", "run", "opaque"}; // by Shape
    std::string text = std::string("{shape = \"") + shapes[static_cast<size_t>(payload.shape)] + "\"";
    if (payload.record != nullptr)
        text += ", record = \"" + payload.record->name + "\"";
    if (payload.assumed)
        text += ", assumed = true";
    return text + "}";
}

void write_events(std::ostream &out) {
    out << "local events = {\n";
    for (const wire::Event &event : wire::all_events()) {
        out << "  [" << event.type << "] = {name = \"" << event.name << "\"";
        for (const auto &way : kWays)
            if (event.payload(way.direction).shape != wire::Shape::kNever)
                out << ", " << way.name << " = " << payload_text(event.payload(way.direction));
        out << "},\n";
    }
    out << "}\n\n";
}

void write_filters(std::ostream &out, const Filters &filters) {
    out << "local filters = {\n";
    for (const auto &[name, type] : filters.types())
        if (type != "records")
            out << "  [\"" << name << "\"] = \"" << type << "\",\n";
    out << "}\n\n";
}

} // namespace

int main(int argc, char **argv) {
    const std::ifstream logic(argc == 2 ? argv[1] : "");
    if (!logic) {
        std::cerr << "usage: bridge-dissector dissect.lua\n";
        return 64;
    }
    Filters filters;
    std::cout << "-- Generated by bridge-dissector from wire/ and dissect.lua; not to be changed by hand.\n\n";
    write_records(std::cout, Groups(), filters);
    write_events(std::cout);
    write_filters(std::cout, filters);
    std::cout << logic.rdbuf() << std::flush;
    return std::cout ? 0 : 1;
}
