#include "sandbox/commands.h"

#include "sandbox/debug_commands.h"
#include "sandbox/names.h"
#include "sandbox/output.h"

#include <cmath>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace sandbox {

namespace {

constexpr Milliseconds kPatience{10000}; // of the wait commands, unless they say otherwise

using Words = std::vector<std::string>;

// Blank-separated; a word that begins with # begins a comment.
Words split(const std::string &line) {
    Words words;
    std::istringstream input(line);
    for (std::string word; input >> word && word[0] != '#';)
        words.push_back(word);
    return words;
}

std::string join(const Words &words, size_t first) {
    std::string text;
    for (size_t i = first; i < words.size(); ++i)
        text += (i == first ? "" : " ") + words[i];
    return text;
}

Milliseconds parse_seconds(const std::string &text) {
    char *end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(seconds >= 0 && seconds <= 1e6))
        throw std::invalid_argument("not a number of seconds: " + text);
    return Milliseconds(std::llround(seconds * 1000));
}

// A command's target, everybody unless its first word is @..., and the words behind that.
std::pair<Target, Words> take_target(const Words &words) {
    const bool given = words.size() > 1 && words[1][0] == '@';
    return {Target(given ? words[1] : ""), Words(words.begin() + (given ? 2 : 1), words.end())};
}

bool never() {
    return false;
}

} // namespace

struct Commands::Row {
    const char *name;
    const char *arguments;
    const char *help;
    size_t least; // words behind the name
    size_t most;
    Result (Commands::*run)(const Words &words, StreamState &stream);
};

const Commands::Row Commands::kRows[] = {
    {"role", "[master|slave]", "tell the clients their role, or show it", 0, 1, &Commands::role},
    {"switchover", "[begin|end]", "make a slave take over as master; one half or both", 0, 1, &Commands::switchover},
    {"event", "[@CLIENT] TYPE [HEX]", "send an event to the clients that registered it", 1, SIZE_MAX, &Commands::event},
    {"raw", "[@CLIENT] HEX", "write bytes to the connections as they stand", 1, SIZE_MAX, &Commands::raw},
    {"stall", "[@CLIENT]", "stop reading and writing, like a server that hangs", 0, 1, &Commands::stall},
    {"resume", "[@CLIENT]", "end a stall", 0, 1, &Commands::resume},
    {"drop", "[@CLIENT]", "close connections", 0, 1, &Commands::drop},
    {"restart", "[SECONDS]", "close everything and listen again, after a while", 0, 1, &Commands::restart},
    {"clients", "", "list the connections", 0, 0, &Commands::clients},
    {"kernel", "[STATE [ERRNO]]", "the kernel's bridge module: up, down, error, long or silent; or show it", 0, 2,
     &Commands::kernel},
    {"mac", "WHAT [...]", "the kernel's MAC addresses; \"mac help\" tells more", 1, 5, &Commands::mac},
    {"mvlan", "WHAT [...]", "the hosts' VLANs by address; \"mvlan help\" tells more", 1, 4, &Commands::mvlan},
    {"debug", "CLIENT WHAT...", "switch a client's debugging, delay its events, make it print itself", 3, SIZE_MAX,
     &Commands::debug},
    {"sleep", "SECONDS", "let time pass", 1, 1, &Commands::sleep},
    {"wait-clients", "N [SECONDS]", "wait until N clients are registered", 1, 2, &Commands::wait_clients},
    {"wait-event", "TYPE [SECONDS]", "wait for the next message of that type from a client", 1, 2,
     &Commands::wait_event},
    {"port", "WHAT [IFX ...]", "the switch ports; \"port help\" tells more", 1, 4, &Commands::port},
    {"vlan", "WHAT [LIST ...]", "the VLANs; \"vlan help\" tells more", 1, 3, &Commands::vlan},
    {"print", "TEXT", "print a line", 0, SIZE_MAX, &Commands::print},
    {"help", "", "this list", 0, 0, &Commands::help},
    {"quit", "", "end the server", 0, 0, &Commands::quit},
};

Commands::Commands(Bridge &bridge, Kernel &kernel, std::function<void()> quit)
    : bridge_(bridge), kernel_(kernel), quit_(std::move(quit)) {}

std::optional<Wait> Commands::run(const std::string &line, StreamState &stream) {
    const Words words = split(line);
    if (words.empty())
        return std::nullopt;
    for (const Row &row : kRows) {
        if (words[0] != row.name)
            continue;
        const size_t given = words.size() - 1;
        if (given < row.least || given > row.most)
            throw std::invalid_argument(std::string("usage: ") + row.name + " " + row.arguments);
        return (this->*row.run)(words, stream);
    }
    throw std::invalid_argument("no such command: " + words[0] + " (try help)");
}

Commands::Result Commands::role(const Words &words, StreamState &) {
    if (words.size() > 1 && words[1] != "master" && words[1] != "slave")
        throw std::invalid_argument("no such role: " + words[1]);
    if (words.size() > 1)
        bridge_.set_role(words[1] == "slave");
    say("role: %s", bridge_.slave() ? "slave" : "master");
    return std::nullopt;
}

Commands::Result Commands::switchover(const Words &words, StreamState &) {
    const std::string half = words.size() > 1 ? words[1] : "";
    if (!half.empty() && half != "begin" && half != "end")
        throw std::invalid_argument("begin or end, not " + half);
    if (half != "end")
        bridge_.begin_switchover();
    if (half != "begin")
        bridge_.end_switchover();
    say("switchover: %s", half.empty() ? "begin and end" : half.c_str());
    return std::nullopt;
}

Commands::Result Commands::event(const Words &words, StreamState &) {
    const auto [target, rest] = take_target(words);
    if (rest.empty())
        throw std::invalid_argument("which event?");
    const uint32_t type = parse_event(rest[0]);
    const std::vector<uint8_t> payload = parse_hex(join(rest, 1));
    if (payload.size() > BRI_PAYLOAD_MAX)
        throw std::invalid_argument("more than a message can carry");
    const unsigned count = bridge_.announce(type, {payload.data(), payload.size()}, target);
    say("event %s: to %u clients", event_text(type).c_str(), count);
    return std::nullopt;
}

Commands::Result Commands::raw(const Words &words, StreamState &) {
    const auto [target, rest] = take_target(words);
    const std::vector<uint8_t> bytes = parse_hex(join(rest, 0));
    say("raw: to %u clients", bridge_.send_raw({bytes.data(), bytes.size()}, target));
    return std::nullopt;
}

Commands::Result Commands::stall(const Words &words, StreamState &) {
    say("stall: %u clients", bridge_.server().stall(Target(join(words, 1))));
    return std::nullopt;
}

Commands::Result Commands::resume(const Words &words, StreamState &) {
    say("resume: %u clients", bridge_.server().resume(Target(join(words, 1))));
    return std::nullopt;
}

Commands::Result Commands::drop(const Words &words, StreamState &) {
    say("drop: %u clients", bridge_.server().drop(Target(join(words, 1))));
    return std::nullopt;
}

Commands::Result Commands::restart(const Words &words, StreamState &) {
    const Milliseconds pause = words.size() > 1 ? parse_seconds(words[1]) : Milliseconds(0);
    say("restart: %u clients", bridge_.server().drop(Target()));
    bridge_.server().restart(pause);
    return std::nullopt;
}

Commands::Result Commands::clients(const Words &, StreamState &) {
    const unsigned count = bridge_.server().for_each(Target(), [](const Connection &client) {
        const Registration &known = client.registration;
        say("  %u %s pid %u events %u messages %llu sent %llu queued %zu%s%s", client.id(),
            known.complete() ? known.name().c_str() : "(not registered)", known.pid(), known.count(),
            static_cast<unsigned long long>(client.received()), static_cast<unsigned long long>(client.sent()),
            client.queued(), known.fresh() ? " fresh" : "", client.stalled() ? " stalled" : "");
    });
    say("clients: %u", count);
    return std::nullopt;
}

Commands::Result Commands::debug(const Words &words, StreamState &) {
    const std::string target = (words[1][0] == '@' ? "" : "@") + words[1];
    const auto [type, payload] = debug_message(Words(words.begin() + 2, words.end()));
    const unsigned count = bridge_.announce(type, {payload.data(), payload.size()}, Target(target));
    if (count == 0)
        throw std::invalid_argument("no such client: " + words[1]);
    say("debug %s: to %u clients", event_text(type).c_str(), count);
    return std::nullopt;
}

Commands::Result Commands::sleep(const Words &words, StreamState &) {
    return Wait{never, parse_seconds(words[1]), ""};
}

Commands::Result Commands::wait_clients(const Words &words, StreamState &) {
    const uint32_t wanted = parse_number(words[1]);
    return Wait{[this, wanted] { return bridge_.server().registered() == wanted; },
                words.size() > 2 ? parse_seconds(words[2]) : kPatience,
                "waited in vain for " + words[1] + " registered clients"};
}

Commands::Result Commands::wait_event(const Words &words, StreamState &stream) {
    const uint32_t type = parse_event(words[1]);
    const auto done = [this, type, &stream] {
        const bool come = bridge_.received(type) > stream.awaited[type];
        stream.awaited[type] += come ? 1U : 0U;
        return come;
    };
    return Wait{done, words.size() > 2 ? parse_seconds(words[2]) : kPatience,
                "waited in vain for a message " + event_text(type)};
}

Commands::Result Commands::print(const Words &words, StreamState &) {
    say("%s", join(words, 1).c_str());
    return std::nullopt;
}

Commands::Result Commands::help(const Words &, StreamState &) {
    for (const Row &row : kRows)
        say("  %-13s%-22s%s", row.name, row.arguments, row.help);
    say("  @CLIENT is @ and a client's number or name; without it a command is for all clients. TYPE is a number or a");
    say("  name such as VLAN_EVENT_RENAME; HEX is pairs of hexadecimal digits, with blanks where you like.");
    for (const std::string &line : debug_help())
        say("%s", line.c_str());
    return std::nullopt;
}

Commands::Result Commands::quit(const Words &, StreamState &) {
    quit_();
    return Wait{never, Milliseconds(0), ""}; // what follows is not run any more
}

} // namespace sandbox
