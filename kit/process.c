#include "process.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

static const double patience = 5; /* seconds that a process has to end by itself */

double wall_seconds(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec + (double)now.tv_nsec / 1e9;
}

void short_pause(void) {
    nanosleep(&(struct timespec){.tv_nsec = 2000000}, NULL);
}

/* In the child, up to its new program: nothing that could wait for a lock of another thread. */
static void become(const char *const *arguments, char *const *environment, int output, int failure) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int input = open("/dev/null", O_RDONLY);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, NULL);
    if (input >= 0 && dup2(input, STDIN_FILENO) >= 0 && dup2(output, STDOUT_FILENO) >= 0 &&
        dup2(output, STDERR_FILENO) >= 0)
        execvpe(arguments[0], (char *const *)arguments, environment);
    const int reason = errno;
    const ssize_t told = write(failure, &reason, sizeof reason);
    _exit(told > 0 ? 127 : 126);
}

bool process_start(struct process *process, const char *const *arguments, char *const *environment) {
    int failure[2];
    int reason = 0;
    const int output = open(process->path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (output < 0)
        return false;
    if (pipe2(failure, O_CLOEXEC) != 0) {
        close(output);
        return false;
    }
    process->pid = fork();
    if (process->pid == 0)
        become(arguments, environment, output, failure[1]);
    if (process->pid < 0)
        reason = errno;
    close(output);
    close(failure[1]);
    /* The pipe closes as soon as the program is there. */
    if (process->pid > 0 && read(failure[0], &reason, sizeof reason) > 0)
        waitpid(process->pid, NULL, 0);
    close(failure[0]);
    if (reason == 0)
        return true;
    process->pid = 0;
    process->status = 127;
    errno = reason;
    return false;
}

bool process_runs(struct process *process) {
    int status = 0;
    if (process->pid == 0)
        return false;
    if (waitpid(process->pid, &status, WNOHANG) != process->pid)
        return true;
    process->pid = 0;
    process->status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    return false;
}

const char *process_output(struct process *process) {
    struct stat file;
    free(process->output);
    process->output = NULL;
    const int fd = open(process->path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return "";
    const size_t size = fstat(fd, &file) == 0 ? (size_t)file.st_size : 0;
    process->output = calloc(size + 1, 1);
    const ssize_t length = process->output != NULL ? read(fd, process->output, size) : -1;
    close(fd);
    if (length < 0)
        return "";
    return process->output;
}

bool process_prints(struct process *process, const char *text, double seconds) {
    const double end = wall_seconds() + seconds;
    while (true) {
        const bool runs = process_runs(process); /* asked first: then what it wrote at its end is seen */
        if (strstr(process_output(process), text) != NULL)
            return true;
        if (!runs || wall_seconds() >= end)
            return false;
        short_pause();
    }
}

int process_end(struct process *process, int number) {
    if (process_runs(process))
        kill(process->pid, number);
    const double end = wall_seconds() + patience;
    while (process_runs(process)) {
        if (wall_seconds() >= end)
            kill(process->pid, SIGKILL);
        short_pause();
    }
    return process->status;
}

void process_free(struct process *process) {
    free(process->output);
    process->output = NULL;
}
