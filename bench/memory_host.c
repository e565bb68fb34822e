/* A process whose private memory is measured: it runs the platform's loop for MILLISECONDS, with BRI_BENCH_CLIENT as a
 * started client with 8 handlers, without it as nothing else, and prints the bytes that are its own alone: what it has
 * written, but for the shared tables. */
#include <qv_thread.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#ifdef BRI_BENCH_CLIENT
#include <bridge/bridge.h>

#define HANDLER(n)                                                                                                     \
    static int handler_##n(uint32_t type, void *data, uint16_t len) {                                                  \
        (void)type, (void)data, (void)len;                                                                             \
        return n;                                                                                                      \
    }
HANDLER(0)
HANDLER(1)
HANDLER(2)
HANDLER(3)
HANDLER(4)
HANDLER(5)
HANDLER(6)
HANDLER(7)

static int start(struct qv_thread_master *master) {
    static const bri_event_handler all[] = {handler_0, handler_1, handler_2, handler_3,
                                            handler_4, handler_5, handler_6, handler_7};
    struct event_set set = {{0}};
    set.words[VLAN_EVENT_MODIFY_INTF_PVID / 32] = 1U << VLAN_EVENT_MODIFY_INTF_PVID % 32;
    if (bridge_agent_init("bench", master) != 0)
        return -1;
    for (size_t index = 0; index < sizeof all / sizeof *all; ++index)
        if (bridge_client_reg_event(&set, all[index]) != 0)
            return -1;
    return 0;
}
#else
static int start(struct qv_thread_master *master) {
    return master != NULL ? 0 : -1;
}
#endif

static int stop(void *master) {
    qv_thread_master_stop(master);
    return 0;
}

/* Mappings of System V segments have their key as name. The text goes into a buffer that is the process's own before
 * it is read: else a longer one, of more mappings, would count as memory. */
static long private_bytes(void) {
    static char text[65536];
    memset(text, ' ', sizeof text);
    FILE *file = fopen("/proc/self/smaps", "r");
    if (file == NULL)
        return -1;
    text[fread(text, 1, sizeof text - 1, file)] = '\0';
    fclose(file);
    long total = 0;
    int shared = 0;
    for (char *line = text; line != NULL && *line != '\0'; line = strchr(line, '\n') + 1) {
        long kib = 0;
        unsigned long from = 0;
        unsigned long to = 0;
        if (sscanf(line, "%lx-%lx ", &from, &to) == 2)
            shared = strstr(line, "/SYSV") != NULL && strstr(line, "/SYSV") < strchr(line, '\n');
        else if (!shared && sscanf(line, "Anonymous: %ld kB", &kib) == 1)
            total += kib * 1024;
        if (strchr(line, '\n') == NULL)
            break;
    }
    return total;
}

int main(int argc, char **argv) {
    struct qv_thread_master *master = qv_thread_master_create();
    const struct timeval after = {0, argc == 2 ? atol(argv[1]) * 1000 : 0};
    if (argc != 2 || start(master) != 0 ||
        qv_thread_add_timer_timeval_withname(master, stop, master, &after, "stop") == NULL ||
        qv_thread_master_run(master) != 0)
        return EXIT_FAILURE;
    printf("%ld\n", private_bytes());
    return EXIT_SUCCESS;
}
