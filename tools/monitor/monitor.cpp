#include "tools/monitor/monitor.h"

#include <bridge/client.h>
#include <bridge/services.h>
#include <bridge/sets.h>

#include <qv_thread.h>

#include <cmath>
#include <csignal>
#include <iostream>
#include <memory>
#include <sys/signalfd.h>
#include <unistd.h>

namespace monitor {

namespace {

constexpr timeval kTick{0, 100000};

struct LoopRelease {
    void operator()(qv_thread_master *loop) const { qv_thread_master_destroy(loop); }
};

class Monitor {
  public:
    explicit Monitor(const Settings &settings);
    ~Monitor();
    Monitor(const Monitor &) = delete;
    Monitor &operator=(const Monitor &) = delete;

    bool run();

  private:
    [[nodiscard]] bool start();
    [[nodiscard]] bool register_events();
    bool watch_signals();
    [[nodiscard]] bool add_timer(qv_thread_func job, timeval after);
    void look_at_link();
    void look_at_role();
    void show(Link link);
    void end();

    // Callbacks of the library, which have no argument for the object.
    static Monitor *the_;
    static void on_connect();
    static int on_event(uint32_t type, void *data, uint16_t length);
    static int on_data_end(uint32_t type, void *data, uint16_t length);
    // Jobs of the loop; the argument is the object.
    static int on_tick(void *self);
    static int on_end(void *self);

    const Settings &settings_;
    Output output_;
    std::unique_ptr<qv_thread_master, LoopRelease> loop_;
    int signals_ = -1;
    std::optional<Link> link_; // as shown
    bool waited_for_kernel_ = false;
    bool slave_ = false;  // as shown
    bri_counters seen_{}; // by the last tick
    bool ended_ = false;
};

Monitor *Monitor::the_;

bri_counters counters_now() {
    bri_counters counters{};
    bridge_client_get_counters(&counters, sizeof counters);
    return counters;
}

Monitor::Monitor(const Settings &settings)
    : settings_(settings), output_(settings.style), loop_(qv_thread_master_create()) {
    the_ = this;
}

Monitor::~Monitor() {
    if (signals_ >= 0)
        close(signals_);
    the_ = nullptr;
}

// Signals become readable like everything else, so that none interrupts a job.
bool Monitor::watch_signals() {
    sigset_t watched;
    sigemptyset(&watched);
    sigaddset(&watched, SIGINT);
    sigaddset(&watched, SIGTERM);
    sigprocmask(SIG_BLOCK, &watched, nullptr);
    signals_ = signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK);
    return signals_ >= 0 &&
           qv_thread_add_read_withname(loop_.get(), on_end, this, signals_, "monitor-signal") != nullptr;
}

bool Monitor::add_timer(qv_thread_func job, timeval after) {
    return qv_thread_add_timer_timeval_withname(loop_.get(), job, this, &after, "monitor-timer") != nullptr;
}

bool Monitor::register_events() {
    event_set data_end{};
    bri_event_set_add(&data_end, BRIDGE_EVENT_BKUP_DATA_END);
    event_set events = settings_.events;
    bridge_agent_set_connect_callback(on_connect);
    return bridge_client_reg_event(&events, on_event) == 0 &&
           (!settings_.origin || bridge_client_reg_event(&data_end, on_data_end) == 0);
}

bool Monitor::start() {
    if (loop_ == nullptr || !watch_signals() || bridge_agent_init(settings_.name.c_str(), loop_.get()) != 0 ||
        !register_events() || !add_timer(on_tick, kTick))
        return false;
    const double whole = std::floor(settings_.seconds);
    const timeval after{static_cast<time_t>(whole), static_cast<suseconds_t>((settings_.seconds - whole) * 1e6)};
    return settings_.seconds == 0 || add_timer(on_end, after);
}

void Monitor::end() {
    ended_ = true;
    qv_thread_master_stop(loop_.get());
}

void Monitor::show(Link link) {
    if (link_ == link)
        return;
    link_ = link;
    output_.show_link(link);
}

// The library tells of a connection, but not of its loss.
void Monitor::look_at_link() {
    if (g_bridge_client->connected == 0)
        return show(Link::kNone);
    const bool waits = g_bridge_client->conn_done != 0 && g_bridge_client->nl_ready == 0;
    if (waits && waited_for_kernel_)
        show(Link::kNoKernel);
    if (!waits)
        show(Link::kUp);
    waited_for_kernel_ = waits;
}

// The library keeps the role to itself. What it has counted since the last tick tells it, as far as it matters.
void Monitor::look_at_role() {
    const bri_counters now = counters_now();
    const bool dropped = now.dropped_slave != seen_.dropped_slave;
    const bool handed_on = now.events_handed_on != seen_.events_handed_on;
    seen_ = now;
    if (dropped == handed_on || dropped == slave_)
        return;
    slave_ = dropped;
    output_.show_role(slave_);
}

// A connection that was lost and made again between two ticks is told as what it was.
void Monitor::on_connect() {
    if (the_->link_ && the_->link_ != Link::kNone)
        the_->show(Link::kNone);
    the_->show(Link::kUp);
}

int Monitor::on_event(uint32_t type, void *data, uint16_t length) {
    const wire::Bytes payload{static_cast<const uint8_t *>(data), length};
    if (the_->ended_ || !the_->settings_.filter.matches(wire::payload_of(type, wire::Direction::kToClient), payload))
        return 0;
    the_->output_.show_event(type, payload);
    if (the_->output_.events() == the_->settings_.count || !Output::is_whole())
        the_->end();
    return 0;
}

// From here on the server's data is there; asked for earlier, it would wait for this.
int Monitor::on_data_end(uint32_t, void *, uint16_t) {
    bridge_client_request_oridata();
    return 0;
}

int Monitor::on_tick(void *self) {
    auto *const monitor = static_cast<Monitor *>(self);
    monitor->look_at_link();
    monitor->look_at_role();
    if (!monitor->add_timer(on_tick, kTick) || !Output::is_whole())
        monitor->end();
    return 0;
}

int Monitor::on_end(void *self) {
    static_cast<Monitor *>(self)->end();
    return 0;
}

bool Monitor::run() {
    if (!start()) {
        std::cerr << "bridge-monitor: the library cannot be started\n";
        return false;
    }
    const bool good = qv_thread_master_run(loop_.get()) == 0;
    const bri_counters counters = counters_now();
    output_.show_end(counters);
    if (!Output::is_whole())
        std::cerr << "bridge-monitor: standard output does not take any more\n";
    else if (counters.connections == 0)
        std::cerr << "bridge-monitor: there was no server\n";
    return good && Output::is_whole() && counters.connections != 0;
}

} // namespace

bool run(const Settings &settings) {
    return Monitor(settings).run();
}

} // namespace monitor
