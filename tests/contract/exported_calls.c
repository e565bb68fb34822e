/* Uses every exported name once, from C, through the shared library. The rows are in calls.def; the names they must
 * cover come from the export map. */
#include <bridge/bridge.h>

#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#define COUNT(array) (sizeof(array) / sizeof(array)[0])

static const char *const exported[] = {
#include "exported_names.inc"
};

/* What the calls may write to. */
static uint8_t buffer[64];
static uint32_t number;
static struct event_set events;
static struct bri_batch_hdr *batch;

/* Of an object of this process's own, beside the tables. */
enum { OWN_BASE = 0x6B1D0000 };
static int32_t own_key(void) {
    return OWN_BASE + atoi(getenv("VSDID"));
}

static int is_zero(const void *object, size_t size) {
    const uint8_t *bytes = object;
    for (size_t at = 0; at < size; ++at)
        if (bytes[at] != 0)
            return 0;
    return 1;
}

/* One function a row: 1 when the call gave what its row says. */
#define RESULT(name, value, arguments)                                                                                 \
    static int use_##name(void) {                                                                                      \
        const long long result = (long long)name arguments;                                                            \
        if (result != (value))                                                                                         \
            printf("%s gave %lld instead of %lld\n", #name, result, (long long)(value));                               \
        return result == (value);                                                                                      \
    }
#define NOTHING(name, arguments)                                                                                       \
    static int use_##name(void) {                                                                                      \
        const void *result = name arguments;                                                                           \
        if (result != NULL)                                                                                            \
            printf("%s gave something instead of null\n", #name);                                                      \
        return result == NULL;                                                                                         \
    }
#define TEXT(name, text, arguments)                                                                                    \
    static int use_##name(void) {                                                                                      \
        const char *result = name arguments;                                                                           \
        const int same = result != NULL && strcmp(result, text) == 0;                                                  \
        if (!same)                                                                                                     \
            printf("%s gave \"%s\" instead of \"%s\"\n", #name, result == NULL ? "(null)" : result, text);             \
        return same;                                                                                                   \
    }
#define RUNS(name, arguments)                                                                                          \
    static int use_##name(void) {                                                                                      \
        (void)name arguments;                                                                                          \
        return 1;                                                                                                      \
    }
#define OBJECT(name, size)                                                                                             \
    static int use_##name(void) {                                                                                      \
        const int as_documented = sizeof name == (size) && is_zero(&name, sizeof name);                                \
        if (!as_documented)                                                                                            \
            printf("%s has %zu bytes or is not zero at the start\n", #name, sizeof name);                              \
        return as_documented;                                                                                          \
    }
static int use_g_bri_msg_delay_list(void) { /* an empty list points at itself, or nowhere before its first use */
    return g_bri_msg_delay_list.next == &g_bri_msg_delay_list || g_bri_msg_delay_list.next == NULL;
}
#include "calls.def"
#undef RESULT
#undef NOTHING
#undef TEXT
#undef RUNS
#undef OBJECT

#define ROW(name)                      {#name, use_##name},
#define RESULT(name, value, arguments) ROW(name)
#define NOTHING(name, arguments)       ROW(name)
#define TEXT(name, text, arguments)    ROW(name)
#define RUNS(name, arguments)          ROW(name)
#define OBJECT(name, size)             ROW(name)
static const struct row {
    const char *name;
    int (*use)(void);
} rows[] = {
#include "calls.def"
    ROW(g_bri_msg_delay_list)};

/* In a child: a row that crashes or hangs is one failed row, and no row sees what another left. */
static int row_holds(const struct row *row) {
    fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        const int holds = row->use();
        fflush(stdout);
        _exit(holds ? 0 : 1);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child)
        return 0;
    if (WIFSIGNALED(status))
        printf("%s ended by signal %d\n", row->name, WTERMSIG(status));
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

static int rows_of(const char *name) {
    int found = 0;
    for (size_t at = 0; at < COUNT(rows); ++at)
        found += strcmp(rows[at].name, name) == 0;
    return found;
}

static int is_exported(const char *name) {
    for (size_t at = 0; at < COUNT(exported); ++at)
        if (strcmp(exported[at], name) == 0)
            return 1;
    return 0;
}

static int check_coverage(void) {
    int failures = 0;
    for (size_t at = 0; at < COUNT(exported); ++at)
        if (rows_of(exported[at]) != 1) {
            printf("%s has %d rows\n", exported[at], rows_of(exported[at]));
            ++failures;
        }
    for (size_t at = 0; at < COUNT(rows); ++at)
        if (!is_exported(rows[at].name)) {
            printf("%s is not exported\n", rows[at].name);
            ++failures;
        }
    return failures;
}

/* A VSDID of its own keeps the calls off real tables; what they made is removed. */
static void remove_tables(uint32_t vsd) {
    const uint32_t bases[] = {0x11110001, 0x22220001, 0x33330001, 0x5A5B7C3D, OWN_BASE};
    for (size_t at = 0; at < COUNT(bases); ++at) {
        const key_t key = (key_t)(bases[at] + vsd);
        const int segment = shmget(key, 0, 0);
        if (segment >= 0)
            shmctl(segment, IPC_RMID, NULL);
        const int semaphore = semget(key, 0, 0);
        if (semaphore >= 0)
            semctl(semaphore, 0, IPC_RMID);
    }
}

int main(void) {
    char vsd[16];
    char directory[] = "/tmp/bri.XXXXXX";
    snprintf(vsd, sizeof vsd, "%d", (int)getpid());
    if (mkdtemp(directory) == NULL || setenv("TMPDIR", directory, 1) != 0 || setenv("VSDID", vsd, 1) != 0)
        return 2;
    int failures = check_coverage();
    for (size_t at = 0; at < COUNT(rows); ++at)
        failures += !row_holds(&rows[at]);
    remove_tables((uint32_t)getpid());
    rmdir(directory);
    printf("%zu exported names used, %d failures\n", COUNT(rows), failures);
    return failures == 0 ? 0 : 1;
}
