/* The thread-event library of a made-up switch: nothing but what the client library needs of one. */
#include <stdio.h>
#include <stdlib.h>
#include <switch_loop.h>
#include <sys/time.h>

enum { JOBS = 16 };

struct job {
    int (*func)(void *arg); /* null: a free place */
    void *arg;
    char name[32];
    int waits; /* for a descriptor */
};

struct qv_thread_master {
    struct job jobs[JOBS];
    int next; /* the place that is looked at next, so that no job waits behind another for ever */
};

struct qv_thread_master *switch_loop(void) {
    return calloc(1, sizeof(struct qv_thread_master));
}

static void *add(struct qv_thread_master *loop, int (*func)(void *), void *arg, const char *name, int waits) {
    for (int i = 0; i < JOBS; i++)
        if (loop->jobs[i].func == NULL) {
            loop->jobs[i] = (struct job){.func = func, .arg = arg, .waits = waits};
            snprintf(loop->jobs[i].name, sizeof loop->jobs[i].name, "%s", name);
            return &loop->jobs[i];
        }
    return NULL;
}

void *qv_thread_add_event_withname(struct qv_thread_master *loop, int (*func)(void *), void *arg, const char *name) {
    return add(loop, func, arg, name, 0);
}

void *qv_thread_add_read_withname(struct qv_thread_master *loop, int (*func)(void *), void *arg, int fd,
                                  const char *name) {
    (void)fd;
    return add(loop, func, arg, name, 1);
}

void *qv_thread_add_timer_withname(struct qv_thread_master *loop, int (*func)(void *), void *arg, long seconds,
                                   const char *name) {
    (void)seconds;
    return add(loop, func, arg, name, 0);
}

void *qv_thread_add_timer_timeval_withname(struct qv_thread_master *loop, int (*func)(void *), void *arg,
                                           const struct timeval *after, const char *name) {
    (void)after;
    return add(loop, func, arg, name, 0);
}

void qv_thread_cancel_by_arg_func(struct qv_thread_master *loop, void *arg, int (*func)(void *)) {
    for (int i = 0; i < JOBS; i++)
        if (loop->jobs[i].func == func && loop->jobs[i].arg == arg)
            loop->jobs[i].func = NULL;
}

void switch_loop_run(struct qv_thread_master *loop, int most) {
    for (int looked = 0; most > 0 && looked < JOBS; looked++) {
        struct job *const place = &loop->jobs[loop->next];
        const struct job job = *place;
        loop->next = (loop->next + 1) % JOBS;
        if (job.func == NULL || job.waits)
            continue;
        place->func = NULL;
        printf("ran %s\n", job.name);
        job.func(job.arg);
        looked = 0;
        most--;
    }
}
