// The event loop of this program, its clock, and the libevent handles that clean up after themselves.
#pragma once

#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/listener.h>

#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <unistd.h>
#include <utility>

namespace sandbox {

using Milliseconds = std::chrono::milliseconds;
using Microseconds = std::chrono::microseconds;

template <auto Release> struct Releaser {
    template <class Handle> void operator()(Handle *handle) const { Release(handle); }
};
using EventBase = std::unique_ptr<event_base, Releaser<event_base_free>>;
using Event = std::unique_ptr<event, Releaser<event_free>>;
using BufferEvent = std::unique_ptr<bufferevent, Releaser<bufferevent_free>>;
using Listener = std::unique_ptr<evconnlistener, Releaser<evconnlistener_free>>;

// What stays where it is: others know its address, or it owns what there is once.
struct Pinned {
    Pinned() = default;
    Pinned(const Pinned &) = delete;
    Pinned &operator=(const Pinned &) = delete;
};

// A descriptor closed at the end of the scope unless released.
class Fd : Pinned {
  public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() {
        if (fd_ >= 0)
            close(fd_);
    }

    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] bool ok() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }

  private:
    int fd_;
};

// The loop and the only clock: all durations of this program are in its time, which runs `scale` times as fast as that
// of the wall.
class Loop {
  public:
    explicit Loop(double scale = 1);

    [[nodiscard]] event_base *base() const { return base_.get(); }
    [[nodiscard]] double scale() const { return scale_; }
    [[nodiscard]] Microseconds now() const; // since the start
    // How long that takes by the wall's clock.
    [[nodiscard]] timeval real(Microseconds time) const;

    void run() { event_base_dispatch(base_.get()); }
    void end() { event_base_loopbreak(base_.get()); }

  private:
    EventBase base_;
    double scale_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// A one-shot timer that may be started anew; starting replaces, destroying cancels.
class Timer : Pinned {
  public:
    Timer(Loop &loop, std::function<void()> fire);

    void set(std::function<void()> fire) { fire_ = std::move(fire); }
    void start(Microseconds after);
    void cancel() { event_del(event_.get()); }

  private:
    Loop &loop_;
    std::function<void()> fire_;
    Event event_;
};

// Calls back when this process is interrupted or told to end.
class EndOnSignals {
  public:
    EndOnSignals(Loop &loop, std::function<void()> end);

  private:
    std::function<void()> end_;
    std::list<Event> events_;
};

} // namespace sandbox
