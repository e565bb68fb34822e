// The platform of a benchmark: jobs are accepted and never run, because the benchmark calls them itself, and no log
// line is written. What is measured is the library.
#include <qv_syslog.h>
#include <qv_thread.h>

namespace {

int job;
qv_thread *accepted() {
    return reinterpret_cast<qv_thread *>(&job);
}

} // namespace

qv_thread *qv_thread_add_event_withname(qv_thread_master *, qv_thread_func, void *, const char *) {
    return accepted();
}
qv_thread *qv_thread_add_read_withname(qv_thread_master *, qv_thread_func, void *, int, const char *) {
    return accepted();
}
qv_thread *qv_thread_add_timer_withname(qv_thread_master *, qv_thread_func, void *, long, const char *) {
    return accepted();
}
qv_thread *qv_thread_add_timer_timeval_withname(qv_thread_master *, qv_thread_func, void *, const timeval *,
                                                const char *) {
    return accepted();
}
void qv_thread_cancel_by_arg_func(qv_thread_master *, void *, qv_thread_func) {}

void printk_syslog_ext(int, const char *, const char *, int, const char *, ...) {}
