// The platform of a measurement: jobs are kept and never run, because the measurement calls them itself, and no log
// line is written. What is measured is the library. Where the platform's own loop is measured, calls pass on to it.
#include "bench/client.h"

#include <qv_syslog.h>

#include <dlfcn.h>

namespace bench {
Jobs g_jobs;
} // namespace bench

namespace {

using bench::g_jobs;

int job;
qv_thread *accepted() {
    return reinterpret_cast<qv_thread *>(&job);
}

// The loop's own function of the name behind this program's.
template <class Fn> Fn *own(Fn *, const char *name) {
    return reinterpret_cast<Fn *>(dlsym(RTLD_NEXT, name));
}
#define BRI_FORWARD(function, ...)                                                                                     \
    do {                                                                                                               \
        static auto *const next = own(function, #function);                                                            \
        if (g_jobs.forwarded)                                                                                          \
            return next(__VA_ARGS__);                                                                                  \
    } while (false)

} // namespace

qv_thread *qv_thread_add_event_withname(qv_thread_master *master, qv_thread_func func, void *arg, const char *name) {
    BRI_FORWARD(qv_thread_add_event_withname, master, func, arg, name);
    return accepted();
}
qv_thread *qv_thread_add_read_withname(qv_thread_master *master, qv_thread_func func, void *arg, int fd,
                                       const char *name) {
    BRI_FORWARD(qv_thread_add_read_withname, master, func, arg, fd, name);
    g_jobs.read = func;
    return accepted();
}
qv_thread *qv_thread_add_timer_withname(qv_thread_master *master, qv_thread_func func, void *arg, long seconds,
                                        const char *name) {
    BRI_FORWARD(qv_thread_add_timer_withname, master, func, arg, seconds, name);
    return accepted();
}
qv_thread *qv_thread_add_timer_timeval_withname(qv_thread_master *master, qv_thread_func func, void *arg,
                                                const timeval *after, const char *name) {
    BRI_FORWARD(qv_thread_add_timer_timeval_withname, master, func, arg, after, name);
    g_jobs.flush = func;
    return accepted();
}
void qv_thread_cancel_by_arg_func(qv_thread_master *master, void *arg, qv_thread_func func) {
    BRI_FORWARD(qv_thread_cancel_by_arg_func, master, arg, func);
}

void printk_syslog_ext(int, const char *, const char *, int, const char *, ...) {}
