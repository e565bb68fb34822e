#include "sandbox/loop.h"

#include <cmath>
#include <csignal>

namespace sandbox {

namespace {

constexpr long long kMicroseconds = 1000000;

void on_timer(evutil_socket_t, short, void *fire) {
    (*static_cast<std::function<void()> *>(fire))(); // may destroy its own timer as the last thing it does
}

// Times are measured when a timer is started, and none fires early: fast clocks would show it.
event_base *make_base() {
    const std::unique_ptr<event_config, Releaser<event_config_free>> config(event_config_new());
    event_config_set_flag(config.get(), EVENT_BASE_FLAG_NO_CACHE_TIME | EVENT_BASE_FLAG_PRECISE_TIMER);
    return event_base_new_with_config(config.get());
}

} // namespace

Loop::Loop(double scale) : base_(make_base()), scale_(scale) {}

Microseconds Loop::now() const {
    const std::chrono::duration<double, std::micro> passed = std::chrono::steady_clock::now() - start_;
    return Microseconds(std::llround(passed.count() * scale_));
}

timeval Loop::real(Microseconds time) const {
    const long long wall = std::llround(static_cast<double>(time.count()) / scale_);
    timeval result{};
    result.tv_sec = static_cast<time_t>(wall / kMicroseconds);
    result.tv_usec = static_cast<suseconds_t>(wall % kMicroseconds);
    return result;
}

Timer::Timer(Loop &loop, std::function<void()> fire)
    : loop_(loop), fire_(std::move(fire)), event_(event_new(loop.base(), -1, 0, on_timer, &fire_)) {}

void Timer::start(Microseconds after) {
    const timeval time = loop_.real(after);
    event_add(event_.get(), &time);
}

EndOnSignals::EndOnSignals(Loop &loop, std::function<void()> end) : end_(std::move(end)) {
    for (const int number : {SIGINT, SIGTERM}) {
        const auto on_signal = [](evutil_socket_t, short, void *self) { static_cast<EndOnSignals *>(self)->end_(); };
        event_add(events_.emplace_back(evsignal_new(loop.base(), number, on_signal, this)).get(), nullptr);
    }
}

} // namespace sandbox
