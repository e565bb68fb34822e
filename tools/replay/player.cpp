#include "tools/replay/player.h"

#include "sandbox/kernel.h"
#include "sandbox/programs.h"
#include "sandbox/world.h"
#include "tools/replay/enter.h"
#include "tools/replay/kernel_answers.h"
#include "tools/replay/said.h"
#include "tools/replay/server.h"
#include "tools/replay/tables.h"
#include "wire/batch.h"

#include <algorithm>
#include <csignal>
#include <iostream>
#include <optional>
#include <stdexcept>

namespace replay {

namespace {

using recording::Change;
using recording::Kind;
using recording::Packet;
using recording::Way;
using sandbox::Microseconds;
using Clock = std::chrono::steady_clock;
using Nanoseconds = std::chrono::duration<double, std::nano>;

constexpr Microseconds kLook{1000};                              // between two looks at what is waited for
constexpr recording::Time kQuick = std::chrono::milliseconds(5); // a daemon is through with what it was told
constexpr std::chrono::milliseconds kStray{100}; // then the kernel takes what it was not asked in the recording
constexpr std::chrono::milliseconds kLate{500};  // for what a daemon does of itself
constexpr Nanoseconds kMostApart = std::chrono::hours(24 * 365); // two packets, so that no clock overflows
constexpr size_t kMostQueued = 256 << 10;                        // bytes that wait for the daemon
constexpr std::chrono::milliseconds kEnd{3000};                  // to end when it is asked to
constexpr std::chrono::milliseconds kDrain{200};                 // for what a daemon that has ended had sent

class Player {
  public:
    Player(const recording::Recording &recording, const Settings &settings);

    Status run();

  private:
    void hear(Said message);
    std::optional<sandbox::KernelResult> on_question(uint32_t type, sandbox::Bytes data);

    void serve_stray();
    bool serve();
    template <class Condition> bool run_until(Clock::time_point end, Condition &&holds);
    template <class Condition> bool wait_for(Clock::time_point end, Condition &&holds);
    template <class Condition> bool wait_for_daemon(Condition &&holds);
    [[nodiscard]] bool runs(); // the daemon
    [[nodiscard]] bool is_over() { return (!runs() && daemon_ > 0) || sandbox::is_told_to_end(); }

    void settle(recording::Time now = recording::Time::max());
    void wait_until_due(const Packet &packet);
    void set_anchor(const Packet &packet);
    void wait_for_enter();

    void start_daemon();
    void take_connection(const Packet &packet);
    void play_connection(const Packet &packet);
    void play_batch(const Packet &packet);
    void await_messages(const Packet &packet);
    [[nodiscard]] bool comes_of_itself(const Packet &packet);
    void set_module(bool there);
    void play_kernel(const Packet &packet);
    void play(const Packet &packet);
    void step(const Packet &packet);

    void stop();
    void tell_to_end(int signal);
    void end_daemon();
    [[nodiscard]] Status report();

    void say(const std::string &line) const { std::cerr << line << std::endl; }
    void say_about(const Packet &packet, const std::string &line) const {
        say("packet " + std::to_string(packet.number) + ": " + line);
    }

    const Settings &settings_;
    std::vector<Packet> packets_;
    sandbox::World world_;
    Tables tables_;
    sandbox::Loop loop_;
    sandbox::Timer look_{loop_, [] {}};
    KernelAnswers answers_;
    sandbox::Kernel kernel_;
    Server server_;
    Dialogue dialogue_;
    Clock::time_point asked_since_ = Clock::time_point::max(); // the kernel, which has not answered
    pid_t daemon_ = -1;
    std::optional<int> ended_; // the daemon's status
    bool is_busy_ = false;     // the daemon, for longer than anybody waits
    size_t played_ = 0;
    size_t farewell_; // the packets from here on are the daemon's end
    bool module_is_there_ = true;
    recording::Time told_ = recording::Time::max(); // when something was sent to it last, in the recording
    Clock::time_point anchor_;                      // when the packet of that time was played
    recording::Time anchor_time_{};
    Enter enter_;
};

double time_scale_of(double speed) {
    constexpr double most = 1000;
    return std::clamp(speed, 1.0, most);
}

Player::Player(const recording::Recording &recording, const Settings &settings)
    : settings_(settings), packets_(packets_of(recording.packets, settings.choice)),
      world_(time_scale_of(settings.speed)), answers_(packets_),
      kernel_(
          loop_, world_.directory(), [](uint32_t, sandbox::Bytes) {},
          [this](uint32_t type, sandbox::Bytes data) { return on_question(type, data); }),
      server_(loop_, world_.directory(),
              [this](uint32_t type, sandbox::Bytes payload) {
                  hear({Said::To::kServer, type, sandbox::buffer_of(payload)});
              }),
      farewell_(farewell_of(packets_)) {
    if (answers_.are_known())
        kernel_.hold();
    kernel_.listen();
    set_module(answers_.is_there());
}

// --- what comes from the daemon ---

void Player::hear(Said message) {
    say("sent: " + message.text());
    dialogue_.hear(std::move(message));
}

std::optional<sandbox::KernelResult> Player::on_question(uint32_t type, sandbox::Bytes data) {
    const Said question{Said::To::kKernel, type, sandbox::buffer_of(data)};
    if (answers_.are_known())
        hear(question);
    std::optional<sandbox::KernelResult> answer = answers_.answer(type, data);
    if (!answer)
        say("no answer in the recording to " + question.text());
    return answer;
}

// --- waiting ---

template <class Condition> bool Player::run_until(Clock::time_point end, Condition &&holds) {
    while (!holds()) {
        if (Clock::now() >= end)
            return false;
        look_.start(kLook);
        event_base_loop(loop_.base(), EVLOOP_ONCE);
        serve_stray();
    }
    return true;
}

// A message that was not recorded at this point would hold the daemon up.
void Player::serve_stray() {
    if (!kernel_.is_asked())
        asked_since_ = Clock::time_point::max();
    else
        asked_since_ = std::min(asked_since_, Clock::now());
    if (Clock::now() - kStray > asked_since_)
        serve();
}

bool Player::serve() {
    const bool served = kernel_.serve();
    if (served)
        asked_since_ = Clock::time_point::max();
    return served;
}

// False as well when nothing more can come of it.
template <class Condition> bool Player::wait_for(Clock::time_point end, Condition &&holds) {
    bool held = false;
    run_until(end, [&] { return (held = holds()) || is_over(); });
    return held;
}

template <class Condition> bool Player::wait_for_daemon(Condition &&holds) {
    const auto patience =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(settings_.patience));
    return wait_for(Clock::now() + patience, holds);
}

bool Player::runs() {
    if (daemon_ > 0 && !ended_)
        ended_ = sandbox::World::ended(daemon_, std::chrono::milliseconds(0));
    return daemon_ > 0 && !ended_;
}

// So that it sees the tables as they were when it was told, where it had the time for that in the recording. A daemon
// that never comes back is waited for once.
void Player::settle(recording::Time now) {
    if (daemon_ < 0 || is_busy_ || now - told_ < kQuick)
        return;
    is_busy_ = !wait_for_daemon([this] { return !server_.is_connected() || server_.is_settled(); });
    if (is_busy_ && !is_over())
        say("the daemon does not come back to its loop; going on");
}

// Who waited too long for something does not hurry afterwards.
void Player::wait_until_due(const Packet &packet) {
    if (settings_.speed == 0 || !server_.was_found())
        return;
    const auto apart = std::min(Nanoseconds(packet.time - anchor_time_) / settings_.speed, kMostApart);
    const Clock::time_point due = anchor_ + std::chrono::duration_cast<Clock::duration>(apart);
    if (due > Clock::now())
        wait_for(due, [] { return false; });
    else
        set_anchor(packet);
}

void Player::set_anchor(const Packet &packet) {
    anchor_ = Clock::now();
    anchor_time_ = packet.time;
}

void Player::wait_for_enter() {
    wait_for(Clock::time_point::max(), [this] { return enter_.pressed(); });
}

// --- the packets ---

// What is in front of its first one is as it finds it.
void Player::start_daemon() {
    if (daemon_ < 0)
        daemon_ = world_.start(settings_.command);
}

void Player::take_connection(const Packet &packet) {
    start_daemon();
    if (!wait_for_daemon([this] { return server_.has_another(); }))
        return say_about(packet, "the daemon does not connect");
    server_.take_next();
    set_anchor(packet);
}

void Player::play_connection(const Packet &packet) {
    switch (static_cast<Change>(packet.body[0])) {
    case Change::kOpened:
        return take_connection(packet);
    case Change::kClosedByServer:
        settle(packet.time);
        if (server_.is_connected())
            server_.connection().close();
        break;
    case Change::kClosedByClient:
        if (packet.number != packets_.back().number && !wait_for_daemon([this] { return !server_.is_connected(); }))
            say_about(packet, "the daemon does not close its connection");
    }
}

void Player::play_batch(const Packet &packet) {
    if (!server_.was_found()) // the recording began in the middle
        take_connection(packet);
    if (packet.head.way == Way::kToServer)
        return await_messages(packet);
    if (!wait_for_daemon([this] { return !server_.is_connected() || server_.connection().queued() < kMostQueued; }) &&
        !is_over())
        return say_about(packet, "not sent, as the daemon does not read");
    if (!server_.is_connected())
        return say_about(packet, "not sent, as the daemon has no connection");
    server_.connection().send(native_body(packet));
    told_ = packet.time;
}

// The server's answer must not come in front of its cause.
void Player::await_messages(const Packet &packet) {
    dialogue_.expect(packet.number, said_in(packet));
    if (played_ >= farewell_ && !comes_of_itself(packet))
        tell_to_end(SIGTERM);
    if (wait_for_daemon([this] { return dialogue_.awaited().empty(); }) || is_over())
        return;
    say_about(packet, "the daemon does not send " + dialogue_.awaited());
    dialogue_.wait_no_more();
}

// What it does not do in the time that it took then, it does when it is told to end.
bool Player::comes_of_itself(const Packet &packet) {
    const recording::Time before = packets_[played_ - 1].time;
    const Nanoseconds apart = Nanoseconds(packet.time - before) / time_scale_of(settings_.speed) + kLate;
    const Nanoseconds most = std::min<Nanoseconds>(apart, std::chrono::duration<double>(settings_.patience));
    return wait_for(Clock::now() + std::chrono::duration_cast<Clock::duration>(most),
                    [this] { return dialogue_.awaited().empty(); });
}

void Player::set_module(bool there) {
    module_is_there_ = there;
    const auto state = there ? sandbox::KernelState::kUp : sandbox::KernelState::kDown;
    const sandbox::KernelModule module{static_cast<uint32_t>(state), 0, 0, 0, 0, 0};
    kernel_.ask(sandbox::kSetModule, wire::bytes_of(module));
}

void Player::play_kernel(const Packet &packet) {
    const bool there = answers_.is_there_from(packet.number).value_or(module_is_there_);
    if (there != module_is_there_) {
        settle(packet.time);
        set_module(there);
    }
    if (packet.head.client == 0)
        return;
    dialogue_.expect(packet.number, said_in(packet));
    if (answers_.is_taken_at(packet.number) && !wait_for_daemon([this] { return serve(); }) && !is_over())
        say_about(packet, "the daemon does not ask the kernel");
}

void Player::play(const Packet &packet) {
    switch (packet.head.kind) {
    case Kind::kBatch:
        return play_batch(packet);
    case Kind::kKernel:
        return play_kernel(packet);
    case Kind::kConnection:
        return play_connection(packet);
    case Kind::kTable:
        settle(packet.time);
        if (!tables_.apply(packet))
            say_about(packet, "passed over, as it is about no place in a table");
    }
}

// Of what the daemon is told.
void Player::step(const Packet &packet) {
    if (packet.head.kind == Kind::kTable || packet.head.way == Way::kToServer)
        return;
    say_about(packet, "Enter plays it");
    if (packet.head.kind == Kind::kBatch)
        for (const std::string &line : wire::batch_text(packet.body, wire::Direction::kToClient, packet.order()))
            say("  " + line);
    wait_for_enter();
}

// --- the end ---

void Player::stop() {
    settle();
    say("stopped behind packet " + std::to_string(packets_.back().number) + ": TMPDIR=" + world_.directory() +
        " VSDID=" + sandbox::environment("VSDID") + ", process " + std::to_string(daemon_) + "; Enter ends it");
    wait_for_enter();
}

void Player::tell_to_end(int signal) {
    if (runs())
        kill(daemon_, signal);
}

// What it sends until then counts.
void Player::end_daemon() {
    for (const int signal : {SIGTERM, SIGKILL}) {
        tell_to_end(signal);
        run_until(Clock::now() + kEnd, [this] { return !runs(); });
    }
    run_until(Clock::now() + kDrain, [this] { return !server_.is_connected(); });
}

Status Player::report() {
    std::vector<std::string> lines;
    std::vector<std::string> moved;
    if (settings_.compare)
        lines = dialogue_.differences(settings_.stop, moved);
    for (const std::string &line : moved)
        say("order: " + line);
    for (const std::string &line : lines)
        say("differs: " + line);
    say("bridge-replay: " + std::to_string(played_) + " packets played, " + std::to_string(dialogue_.heard()) +
        " messages from the daemon" + (settings_.compare ? ", " + std::to_string(lines.size()) + " differences" : ""));
    return lines.empty() ? kFine : kDiffers;
}

Status Player::run() {
    for (; played_ < packets_.size() && (!is_over() || played_ >= farewell_); ++played_) {
        const Packet &packet = packets_[played_];
        wait_until_due(packet);
        if (settings_.step)
            step(packet);
        play(packet);
    }
    const bool early = played_ < packets_.size();
    if (early)
        say("bridge-replay: " + (ended_ ? "the daemon ended with status " + std::to_string(*ended_) : "interrupted") +
            " in front of packet " + std::to_string(packets_[played_].number));
    else if (settings_.stop)
        stop();
    settle();
    end_daemon();
    const Status status = report();
    return early ? kFailed : status;
}

} // namespace

Status play(const recording::Recording &recording, const Settings &settings) {
    return Player(recording, settings).run();
}

} // namespace replay
