#include "sandbox/loop.h"

#include <utility>

namespace sandbox {

namespace {

void on_timer(evutil_socket_t, short, void *fire) {
    (*static_cast<std::function<void()> *>(fire))();
}

} // namespace

Timer::Timer(event_base *base, std::function<void()> fire)
    : fire_(std::move(fire)), event_(event_new(base, -1, 0, on_timer, &fire_)) {}

void Timer::start(Milliseconds after) {
    timeval time{};
    time.tv_sec = static_cast<time_t>(after.count() / 1000);
    time.tv_usec = static_cast<suseconds_t>(after.count() % 1000 * 1000);
    event_add(event_.get(), &time);
}

void Timer::cancel() {
    event_del(event_.get());
}

} // namespace sandbox
