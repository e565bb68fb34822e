// The event loop of this program and the libevent handles that clean up after themselves.
#pragma once

#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/listener.h>

#include <chrono>
#include <functional>
#include <memory>

namespace sandbox {

using Milliseconds = std::chrono::milliseconds;

template <auto Release> struct Releaser {
    template <class Handle> void operator()(Handle *handle) const { Release(handle); }
};
using EventBase = std::unique_ptr<event_base, Releaser<event_base_free>>;
using Event = std::unique_ptr<event, Releaser<event_free>>;
using BufferEvent = std::unique_ptr<bufferevent, Releaser<bufferevent_free>>;
using Listener = std::unique_ptr<evconnlistener, Releaser<evconnlistener_free>>;

// A one-shot timer that may be started anew; starting replaces, destroying cancels.
class Timer {
  public:
    Timer(event_base *base, std::function<void()> fire);
    Timer(const Timer &) = delete;
    Timer &operator=(const Timer &) = delete;

    void start(Milliseconds after);
    void cancel();

  private:
    std::function<void()> fire_;
    Event event_;
};

} // namespace sandbox
