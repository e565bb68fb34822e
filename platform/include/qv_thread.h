/* Thread-event library: one-shot jobs on the host's event loop.
 *
 * A job runs once, on the thread that runs the loop, and is gone before its function is called; the function gets the
 * argument it was added with and its result is ignored. Every add returns the job, or null when the library refuses
 * it. All calls are made from the loop's thread.
 */
#ifndef QV_THREAD_H
#define QV_THREAD_H

#include <sys/time.h>

#ifdef __cplusplus
extern "C" {
#endif

struct qv_thread_master;
struct qv_thread;
typedef int (*qv_thread_func)(void *arg);

#define QV_API __attribute__((visibility("default")))

/* Run `func` at once. */
QV_API struct qv_thread *qv_thread_add_event_withname(struct qv_thread_master *master, qv_thread_func func, void *arg,
                                                      const char *name);
/* Run `func` when `fd` is readable. */
QV_API struct qv_thread *qv_thread_add_read_withname(struct qv_thread_master *master, qv_thread_func func, void *arg,
                                                     int fd, const char *name);
/* Run `func` after `seconds`. */
QV_API struct qv_thread *qv_thread_add_timer_withname(struct qv_thread_master *master, qv_thread_func func, void *arg,
                                                      long seconds, const char *name);
/* Run `func` after the seconds and microseconds of `after`. */
QV_API struct qv_thread *qv_thread_add_timer_timeval_withname(struct qv_thread_master *master, qv_thread_func func,
                                                              void *arg, const struct timeval *after,
                                                              const char *name);
/* Cancel every pending job of this function and argument. */
QV_API void qv_thread_cancel_by_arg_func(struct qv_thread_master *master, void *arg, qv_thread_func func);

/* Host side: make a loop, run it until stopped, stop it from one of its jobs, release it with its pending jobs. */
QV_API struct qv_thread_master *qv_thread_master_create(void);
QV_API int qv_thread_master_run(struct qv_thread_master *master);
QV_API void qv_thread_master_stop(struct qv_thread_master *master);
QV_API void qv_thread_master_destroy(struct qv_thread_master *master);

#ifdef __cplusplus
}
#endif

#endif
