// The thread-event library of a workstation, on libevent. A job is one libevent event in one heap block; the loop keeps
// its jobs in a list, so that cancelling by function and argument finds all of them.
#include "base/list.h"
#include "base/text.h"

#include <event2/event.h>
#include <event2/event_struct.h>
#include <qv_thread.h>

#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>

struct qv_thread_master {
    event_base *base;
    bri_list jobs;
    bool running;
    bool stopped; // asked for, not yet obeyed by a run
    bool trace;
    double time_scale;
    qv_thread *served; // the read job that runs, as long as it may be taken again
};

struct qv_thread {
    bri_list link; // in the loop's jobs
    event job;
    qv_thread_master *master;
    qv_thread_func func;
    void *arg;
    int fd;        // of a read job
    char name[32]; // empty when nothing is told
};

namespace {

namespace list = bri::list;

// About 34 years. Longer timers are cut to it, so that no clock arithmetic wraps with a 32-bit time_t.
constexpr long kLongestTimer = 1L << 30;
constexpr long kMicroseconds = 1000000;
constexpr int kJobsPerRound = 16;

// `kind` of job and its name; what happens to it alone names none.
void trace(const qv_thread &thread, const char *what, const char *kind = nullptr) {
    if (thread.master->trace) [[unlikely]]
        std::fprintf(stderr, "qv-thread: %s %s%s%s\n", what, kind != nullptr ? kind : "", kind != nullptr ? " " : "",
                     thread.name);
}

void release(qv_thread &thread) {
    if (thread.master->served == &thread)
        thread.master->served = nullptr;
    event_del(&thread.job);
    list::unlink(thread.link);
    std::free(&thread);
}

template <class Predicate> void release_if(qv_thread_master &master, Predicate &&predicate) {
    for (bri_list *link = master.jobs.next, *next = nullptr; link != &master.jobs; link = next) {
        next = link->next;
        auto &thread = *reinterpret_cast<qv_thread *>(link);
        if (predicate(thread))
            release(thread);
    }
}

// By poll() a descriptor is a number: what closes it, and what is opened with its number, needs no new event.
bool keeps_descriptors(const qv_thread_master &master) {
    return master.time_scale == 1;
}

// A read job waits on while it runs, so that it need not begin anew: most wait again for what they were run for.
void run_and_keep(qv_thread &thread) {
    qv_thread_master &master = *thread.master;
    list::unlink(thread.link);
    master.served = &thread;
    thread.func(thread.arg);
    if (master.served == &thread && list::empty(thread.link))
        release(thread);
    master.served = nullptr;
}

void run_job(evutil_socket_t, short what, void *argument) {
    auto &thread = *static_cast<qv_thread *>(argument);
    trace(thread, "run");
    if (what == EV_READ && keeps_descriptors(*thread.master))
        return run_and_keep(thread);
    const qv_thread_func func = thread.func;
    void *const arg = thread.arg;
    release(thread);
    func(arg);
}

// What a job waits for. An event job waits for nothing: it is due when it is added.
struct Trigger {
    const char *kind;
    int fd;
    short what;
    const timeval *after;
};

bool can_wait(int fd) {
    struct stat file {};
    return fstat(fd, &file) == 0 && !S_ISREG(file.st_mode) && !S_ISDIR(file.st_mode);
}

bool start(qv_thread &thread, const Trigger &trigger) {
    if (trigger.fd >= 0 && !can_wait(trigger.fd))
        return false;
    const bool kept = trigger.what == EV_READ && keeps_descriptors(*thread.master);
    const auto what = static_cast<short>(trigger.what | (kept ? EV_PERSIST : 0));
    if (event_assign(&thread.job, thread.master->base, trigger.fd, what, run_job, &thread) != 0)
        return false;
    if (trigger.what != 0)
        return event_add(&thread.job, trigger.after) == 0;
    event_active(&thread.job, EV_TIMEOUT, 0);
    return true;
}

// The job that runs, when it waits again; else null.
qv_thread *taken_again(qv_thread_master &master, const Trigger &trigger) {
    qv_thread *const served = master.served;
    const bool again =
        served != nullptr && trigger.what == EV_READ && served->fd == trigger.fd && list::empty(served->link);
    return again ? served : nullptr;
}

qv_thread *add(qv_thread_master *master, qv_thread_func func, void *arg, const Trigger &trigger, const char *name) {
    if (master == nullptr || func == nullptr)
        return nullptr;
    qv_thread *const again = taken_again(*master, trigger);
    auto *thread = again != nullptr ? again : static_cast<qv_thread *>(std::calloc(1, sizeof(qv_thread)));
    if (thread == nullptr)
        return nullptr;
    thread->master = master;
    thread->func = func;
    thread->arg = arg;
    thread->fd = trigger.fd;
    if (master->trace) [[unlikely]]
        bri::copy_text(thread->name, name != nullptr ? name : "(unnamed)");
    if (again == nullptr && !start(*thread, trigger)) {
        trace(*thread, "refused", trigger.kind);
        std::free(thread);
        return nullptr;
    }
    list::append(master->jobs, thread->link);
    trace(*thread, "add", trigger.kind);
    return thread;
}

// How long that takes by a clock that runs so many times as fast as the wall's.
timeval scaled(long seconds, long microseconds, double scale) {
    const double wall = (static_cast<double>(seconds) + static_cast<double>(microseconds) / kMicroseconds) / scale;
    timeval time{};
    time.tv_sec = static_cast<long>(wall);
    time.tv_usec = static_cast<long>((wall - static_cast<double>(time.tv_sec)) * kMicroseconds);
    return time;
}

qv_thread *add_timer(qv_thread_master *master, qv_thread_func func, void *arg, long seconds, long microseconds,
                     const char *name) {
    if (seconds < 0 || microseconds < 0 || microseconds >= kMicroseconds)
        return nullptr;
    timeval after{};
    after.tv_sec = seconds < kLongestTimer ? seconds : kLongestTimer;
    after.tv_usec = microseconds;
    if (master != nullptr && master->time_scale != 1)
        after = scaled(after.tv_sec, after.tv_usec, master->time_scale);
    return add(master, func, arg, {"timer", -1, EV_TIMEOUT, &after}, name);
}

// Times are measured when a job is added, not when the round of the loop began, and a timer never fires early. Event
// jobs that keep adding event jobs let descriptors and timers have their turn after every few. By poll(), a job that
// waits for its descriptor again costs no system call, and a host has few of them; epoll is left for a clock that runs
// faster, since poll's timers are late by up to a millisecond of the wall's.
event_base *make_base(double time_scale) {
    event_config *config = event_config_new();
    if (config == nullptr)
        return nullptr;
    event_config_set_flag(config, EVENT_BASE_FLAG_NO_CACHE_TIME | EVENT_BASE_FLAG_PRECISE_TIMER);
    if (time_scale == 1)
        event_config_avoid_method(config, "epoll");
    event_config_set_max_dispatch_interval(config, nullptr, kJobsPerRound, 0);
    event_base *base = event_base_new_with_config(config);
    event_config_free(config);
    return base;
}

bool tracing() {
    const char *value = std::getenv("QV_THREAD_TRACE");
    return value != nullptr && value[0] == '1';
}

// A test's time may pass faster than the wall's.
double time_scale() {
    const char *value = std::getenv("QV_THREAD_TIME_SCALE");
    const double scale = value != nullptr ? std::strtod(value, nullptr) : 1;
    return scale >= 1 && scale <= 1000 ? scale : 1;
}

} // namespace

qv_thread *qv_thread_add_event_withname(qv_thread_master *master, qv_thread_func func, void *arg, const char *name) {
    return add(master, func, arg, {"event", -1, 0, nullptr}, name);
}

qv_thread *qv_thread_add_read_withname(qv_thread_master *master, qv_thread_func func, void *arg, int fd,
                                       const char *name) {
    return fd < 0 ? nullptr : add(master, func, arg, {"read", fd, EV_READ, nullptr}, name);
}

qv_thread *qv_thread_add_timer_withname(qv_thread_master *master, qv_thread_func func, void *arg, long seconds,
                                        const char *name) {
    return add_timer(master, func, arg, seconds, 0, name);
}

qv_thread *qv_thread_add_timer_timeval_withname(qv_thread_master *master, qv_thread_func func, void *arg,
                                                const timeval *after, const char *name) {
    return after == nullptr ? nullptr : add_timer(master, func, arg, after->tv_sec, after->tv_usec, name);
}

void qv_thread_cancel_by_arg_func(qv_thread_master *master, void *arg, qv_thread_func func) {
    if (master == nullptr)
        return;
    release_if(*master, [&](const qv_thread &thread) {
        const bool cancelled = thread.func == func && thread.arg == arg;
        if (cancelled)
            trace(thread, "cancel");
        return cancelled;
    });
}

qv_thread_master *qv_thread_master_create(void) {
    const double scale = time_scale();
    event_base *base = make_base(scale);
    if (base == nullptr)
        return nullptr;
    auto *master = static_cast<qv_thread_master *>(std::calloc(1, sizeof(qv_thread_master)));
    if (master == nullptr) {
        event_base_free(base);
        return nullptr;
    }
    master->base = base;
    list::init(master->jobs);
    master->trace = tracing();
    master->time_scale = scale;
    return master;
}

int qv_thread_master_run(qv_thread_master *master) {
    if (master == nullptr || master->running)
        return -1;
    int result = 0;
    master->running = true;
    while (!master->stopped && result >= 0)
        result = event_base_loop(master->base, EVLOOP_NO_EXIT_ON_EMPTY);
    master->running = false;
    master->stopped = false;
    return result < 0 ? -1 : 0;
}

void qv_thread_master_stop(qv_thread_master *master) {
    if (master == nullptr)
        return;
    master->stopped = true;
    event_base_loopbreak(master->base);
}

void qv_thread_master_destroy(qv_thread_master *master) {
    if (master == nullptr || master->running)
        return;
    release_if(*master, [](const qv_thread &) { return true; });
    event_base_free(master->base);
    std::free(master);
}
