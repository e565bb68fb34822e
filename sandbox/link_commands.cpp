// The commands about the links of ports.
#include "sandbox/parse.h"
#include "sandbox/sandbox.h"

#include <memory>
#include <stdexcept>

namespace sandbox {

namespace {

template <bool Up> Outcome set_link(Sandbox &sandbox, const Call &call) {
    sandbox.bridge.vlans().ports().set_link(parse_ifx(call.words[0]), Up);
    return Answer();
}

// A link that goes down and comes up again, some times in a row.
struct Flapping {
    Flapping(Sandbox &sandbox, uint32_t port, unsigned times, Microseconds between)
        : trace(sandbox.trace), ports(sandbox.bridge.vlans().ports()), ifx(port), pause(between), steps(2 * times),
          timer(sandbox.loop, [this] { step(); }) {
        step();
    }
    void step() {
        if (steps == 0)
            return;
        const bool up = --steps % 2 == 0;
        try {
            ports.set_link(ifx, up);
        } catch (const std::invalid_argument &error) { // the port has been taken away
            steps = 0;
            refusal = error.what();
        }
        if (steps != 0)
            timer.start(pause);
        else
            trace.note("port " + std::to_string(ifx) + " flaps no more"); // whoever waits looks then
    }

    Trace &trace;
    Ports &ports;
    uint32_t ifx;
    Microseconds pause;
    unsigned steps;
    std::string refusal;
    Timer timer;
};

Outcome flap(Sandbox &sandbox, const Call &call) {
    if (call.words[1] != "times" || (call.words.size() > 3 && call.words[3] != "every") || call.words.size() == 4)
        throw std::invalid_argument("port flap IFX times N [every SECONDS]");
    constexpr unsigned most = 10000;
    const Microseconds pause = call.words.size() > 4 ? parse_seconds(call.words[4]) : Microseconds(100000);
    const uint32_t ifx = parse_ifx(call.words[0]);
    port_at(ifx);
    const unsigned times = parse_number(call.words[2], most);
    const auto flapping = std::make_shared<Flapping>(sandbox, ifx, times, pause);
    const auto done = [flapping, line = call.command + " " + call.rest()]() -> std::optional<Answer> {
        if (!flapping->refusal.empty())
            throw std::runtime_error(flapping->refusal);
        if (flapping->steps != 0)
            return std::nullopt;
        return Answer().say("{command}: done", {{"command", line}});
    };
    return Wait{
        done, 2 * times * pause + std::chrono::hours(1), [] { return std::string("the link has not finished"); }, {}};
}

constexpr Command kLinkCommands[] = {
    {"port up", "IFX", "its link comes up", set_link<true>},
    {"port down", "IFX", "its link fails", set_link<false>},
    {"port flap", "IFX times N [every SECONDS]", "its link fails and comes back N times, 0.1 s apart", flap},
};

} // namespace

Family link_commands() {
    return kLinkCommands;
}

} // namespace sandbox
