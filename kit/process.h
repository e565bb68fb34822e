/* Processes of a world, each with its output in a file. */
#ifndef KIT_PROCESS_H
#define KIT_PROCESS_H

#include <stdbool.h>
#include <sys/types.h>

struct process {
    pid_t pid;      /* 0 when it has ended */
    int status;     /* of its end: its exit status, or 128 and the signal */
    char path[128]; /* of its output */
    char *output;   /* what was read of it, or null */
};

/* Starts arguments[0], looked for in PATH, with that environment; it is killed when this process ends. False with
 * errno. */
bool process_start(struct process *process, const char *const *arguments, char *const *environment);

bool process_runs(struct process *process);
const char *process_output(struct process *process);

/* Waits until the output holds the text; false after the time, or when it has ended without. */
bool process_prints(struct process *process, const char *text, double seconds);

/* Sends the signal and waits; after some seconds it is killed. */
int process_end(struct process *process, int number);
void process_free(struct process *process);

double wall_seconds(void);
void short_pause(void); /* between two looks at what tells nobody when it changes */

#endif
