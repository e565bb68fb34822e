#include "host.h"

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/signalfd.h>
#include <sys/time.h>
#include <unistd.h>

struct qv_thread_master *host_loop;
void (*host_at_end)(void);

static int signals = -1;

/* Job: a signal asks us to end. */
static int on_signal(void *arg) {
    (void)arg;
    if (host_at_end != NULL)
        host_at_end();
    else
        qv_thread_master_stop(host_loop);
    return 0;
}

/* Signals become readable like everything else, so that none interrupts a job. */
static bool watch_signals(void) {
    sigset_t watched;
    sigemptyset(&watched);
    sigaddset(&watched, SIGINT);
    sigaddset(&watched, SIGTERM);
    sigprocmask(SIG_BLOCK, &watched, NULL);
    signals = signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK);
    return signals >= 0 && qv_thread_add_read_withname(host_loop, on_signal, NULL, signals, "host-signal") != NULL;
}

static void destroy_loop(void) {
    qv_thread_master_destroy(host_loop);
    close(signals);
}

bool host_make_loop(void) {
    setvbuf(stdout, NULL, _IOLBF, 0);
    host_loop = qv_thread_master_create();
    return host_loop != NULL && atexit(destroy_loop) == 0 && watch_signals();
}

bool host_start(const char *name) {
    return host_make_loop() && bridge_agent_init(name, host_loop) == 0;
}

int host_run(void) {
    return qv_thread_master_run(host_loop) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

void host_after_ms(long milliseconds, qv_thread_func job, const char *name) {
    const struct timeval after = {.tv_sec = milliseconds / 1000, .tv_usec = milliseconds % 1000 * 1000};
    if (qv_thread_add_timer_timeval_withname(host_loop, job, NULL, &after, name) == NULL)
        fprintf(stderr, "no timer %s\n", name);
}

long host_number(const char *text, long least, long most) {
    char *end;
    errno = 0;
    const long value = strtol(text, &end, 10);
    return *text >= '0' && *text <= '9' && *end == '\0' && errno == 0 && value >= least && value <= most ? value : -1;
}

static bool take_option(const struct host_option *option, const char *word) {
    if (option->take != NULL)
        return option->take(word);
    if (option->text != NULL)
        *option->text = word;
    else
        *option->number = host_number(word, option->least, option->most);
    return option->text != NULL || *option->number >= 0;
}

bool host_options(int argc, char **argv, const struct host_option *options, const char *usage) {
    char letters[32] = "";
    for (size_t i = 0; options[i].letter != 0; ++i)
        snprintf(letters + 2 * i, sizeof letters - 2 * i, "%c:", options[i].letter);
    bool understood = true;
    for (int letter; understood && (letter = getopt(argc, argv, letters)) != -1;) {
        const struct host_option *option = options;
        while (option->letter != 0 && option->letter != letter)
            ++option;
        understood = option->letter != 0 && take_option(option, optarg);
    }
    if (understood && optind == argc)
        return true;
    fputs(usage, stderr);
    return false;
}
