/* What the small hosts of this directory have in common: their loop, their start, their end by a signal, and the
 * reading of their command lines. */
#ifndef EXAMPLES_HOST_H
#define EXAMPLES_HOST_H

#include <bridge/bridge.h>

#include <qv_thread.h>

#include <stdbool.h>

/* The loop in which everything happens, once it is made. */
extern struct qv_thread_master *host_loop;

/* What SIGINT and SIGTERM lead to; null: the loop is stopped. Else this sees to it that it is. */
extern void (*host_at_end)(void);

/* Makes the loop, which lasts until the process ends; standard output goes out line by line. */
bool host_make_loop(void);

/* Makes the loop and initialises the library with it. Register handlers and callbacks next: nothing is sent or received
 * before the loop runs. */
bool host_start(const char *name);

/* Runs the loop until SIGINT or SIGTERM. Gives the exit status. */
int host_run(void);

/* A job after a while; a line on standard error when there is no memory for it. */
void host_after_ms(long milliseconds, qv_thread_func job, const char *name);

/* A number from `least` (not below 0) to `most`, or -1. */
long host_number(const char *text, long least, long most);

/* What an option's word is for, one of three. A table of them ends with an empty row. */
struct host_option {
    char letter;
    const char **text;              /* it is kept as it is */
    bool (*take)(const char *word); /* it is read there; false when it makes no sense */
    long *number;                   /* it is a number from `least` to `most` */
    long least, most;
};

/* Reads a command line. False, with `usage` on standard error, when it is not understood. */
bool host_options(int argc, char **argv, const struct host_option *options, const char *usage);

#endif
