/* The event loop of a made-up switch, as its hosts see it. */
#ifndef SWITCH_LOOP_H
#define SWITCH_LOOP_H

struct qv_thread_master;

struct qv_thread_master *switch_loop(void);

/* Runs the jobs that wait for nothing or for time, which passes at once, until `most` have run. */
void switch_loop_run(struct qv_thread_master *loop, int most);

#endif
