/* Thread-event library: one-shot jobs on the host's event loop.
 *
 * A job runs once, on the thread that runs the loop, and is gone before its function is called; the function gets the
 * argument it was added with and its result is ignored. Every add returns the job, or null when the library refuses
 * it: no loop, no function, a bad descriptor or time, no memory. The handle only tells success; it is not to be used
 * once the job ran or was cancelled. All calls are made from the loop's thread.
 *
 * The name is copied. With QV_THREAD_TRACE set to 1 in the environment when the loop is made, every job that is added,
 * run or cancelled is told on standard error with its name. With QV_THREAD_TIME_SCALE set to a number from 1 to 1000
 * then, timers take that many times less than they say: a test of what takes a second need not take one.
 */
#ifndef QV_THREAD_H
#define QV_THREAD_H

#include <sys/time.h>

#ifdef __cplusplus
extern "C" {
#endif

struct qv_thread_master;
struct qv_thread;
/* What a job runs; its result is ignored. */
typedef int (*qv_thread_func)(void *arg);

/* Marks what the shared library exports. */
#define QV_API __attribute__((visibility("default")))

/* Run `func` at once: when the running job has returned, behind the event jobs that were added before. */
QV_API struct qv_thread *qv_thread_add_event_withname(struct qv_thread_master *master, qv_thread_func func, void *arg,
                                                      const char *name);
/* Run `func` when `fd` is readable. Cancel the job before `fd` is closed. */
QV_API struct qv_thread *qv_thread_add_read_withname(struct qv_thread_master *master, qv_thread_func func, void *arg,
                                                     int fd, const char *name);
/* Run `func` after `seconds`, 0 or more. */
QV_API struct qv_thread *qv_thread_add_timer_withname(struct qv_thread_master *master, qv_thread_func func, void *arg,
                                                      long seconds, const char *name);
/* Run `func` after the seconds and microseconds (below 1000000) of `after`. */
QV_API struct qv_thread *qv_thread_add_timer_timeval_withname(struct qv_thread_master *master, qv_thread_func func,
                                                              void *arg, const struct timeval *after, const char *name);
/* Cancel every pending job of this function and argument: none of them runs any more, not even one whose time has
 * already come in this round of the loop. */
QV_API void qv_thread_cancel_by_arg_func(struct qv_thread_master *master, void *arg, qv_thread_func func);

/* Host side. */

/* Make a loop; null when the system refuses it. */
QV_API struct qv_thread_master *qv_thread_master_create(void);
/* Run jobs until one of them stops the loop, also while no job is pending. 0 when it was stopped, -1 without a loop,
 * for a loop that is already running, or when the system's event queue failed. A stopped loop may be run again. */
QV_API int qv_thread_master_run(struct qv_thread_master *master);
/* Stop the loop when the running job has returned; before a run, make that run return at once. */
QV_API void qv_thread_master_stop(struct qv_thread_master *master);
/* Release the loop with its pending jobs, which do not run. Does nothing from one of its own jobs. */
QV_API void qv_thread_master_destroy(struct qv_thread_master *master);

#ifdef __cplusplus
}
#endif

#endif
