#include "tests/host/picture.h"

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/signalfd.h>
#include <time.h>
#include <unistd.h>

struct picture picture = {.role = "unknown", .addresses = -1};
struct qv_thread_master *picture_loop;

enum { TICK_MS = 20 };

static int signals = -1;
static void (*on_count)(void);
static void (*on_end)(void);
static long last_tick_ms, longest_ms; /* between two ticks, since the last print */

static long now_ms(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

static void measure_hold(void) {
    const long now = now_ms();
    if (now - last_tick_ms > longest_ms)
        longest_ms = now - last_tick_ms;
    last_tick_ms = now;
}

/* Job: how late it comes is how long the loop was held. */
static int tick(void *arg) {
    static const struct timeval period = {.tv_sec = 0, .tv_usec = TICK_MS * 1000L};
    (void)arg;
    measure_hold();
    qv_thread_add_timer_timeval_withname(picture_loop, tick, NULL, &period, "picture-tick");
    return 0;
}

static void print_list(const char *head, unsigned first, unsigned count, bool (*text)(unsigned at)) {
    printf(" %s=", head);
    const char *comma = "";
    for (unsigned at = first; at < count; ++at) {
        if (!text(at))
            continue;
        printf("%s%u", comma, at);
        comma = ",";
    }
}

static bool has_vlan(unsigned vid) {
    return picture.vlans[vid];
}
static bool has_port(unsigned ifx) {
    return picture.pvids[ifx] != 0;
}

static void print_picture(void) {
    static unsigned count;
    measure_hold(); /* one that has just ended counts */
    printf("picture %u", ++count);
    print_list("vlans", 1, PICTURE_VLANS, has_vlan);
    print_list("ports", 0, PICTURE_PORTS, has_port);
    printf(" pvids=");
    for (unsigned ifx = 0; ifx < PICTURE_PORTS; ++ifx)
        if (has_port(ifx))
            printf("%u:%u,", ifx, picture.pvids[ifx]);
    printf(" role=%s addresses=%d %s held=%ld end %u\n", picture.role, picture.addresses,
           picture.misplaced ? "misplaced" : "placed", longest_ms, count);
    longest_ms = 0;
}

/* Job: everything that is wanted from outside. */
static int on_signal(void *arg) {
    static unsigned counts;
    struct signalfd_siginfo info;
    (void)arg;
    while (read(signals, &info, sizeof info) == (ssize_t)sizeof info)
        switch (info.ssi_signo) {
        case SIGUSR1:
            print_picture();
            break;
        case SIGUSR2:
            printf("count %u\n", ++counts);
            on_count();
            break;
        default:
            on_end();
            break;
        }
    qv_thread_add_read_withname(picture_loop, on_signal, NULL, signals, "picture-signal");
    return 0;
}

bool picture_start(void (*count)(void), void (*end)(void)) {
    sigset_t watched;
    on_count = count;
    on_end = end;
    setvbuf(stdout, NULL, _IOLBF, 0);
    sigemptyset(&watched);
    sigaddset(&watched, SIGUSR1);
    sigaddset(&watched, SIGUSR2);
    sigaddset(&watched, SIGTERM);
    sigprocmask(SIG_BLOCK, &watched, NULL);
    signals = signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK);
    picture_loop = qv_thread_master_create();
    if (signals < 0 || picture_loop == NULL)
        return false;
    last_tick_ms = now_ms();
    tick(NULL);
    return qv_thread_add_read_withname(picture_loop, on_signal, NULL, signals, "picture-signal") != NULL;
}

int picture_run(void) {
    const int result = qv_thread_master_run(picture_loop);
    qv_thread_master_destroy(picture_loop);
    close(signals);
    return result == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
