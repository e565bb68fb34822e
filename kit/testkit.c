#include "environment.h"
#include "json.h"
#include "process.h"

#include <bridge/testkit.h>

#include <errno.h>
#include <ftw.h>
#include <limits.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

enum { COMMAND_SIZE = 65536, SHOWN_MESSAGES = 50, SERVER_SECONDS = 10 };
/* Numbers of processes end below this one, so that worlds of several processes have different VSDIDs. */
enum { PID_LIMIT = 1 << 22, WORLD_NUMBERS = 64 };

struct btk_daemon {
    struct process process;
    struct btk_daemon *next;
};

struct btk_world {
    char tmpdir[PATH_MAX];
    char sandbox[PATH_MAX];
    char trace[PATH_MAX + 32];
    int vsdid;
    unsigned files; /* numbers the files in the directory */
    char **environment;
    struct process kernel;
    struct process server;
    int control; /* -1 without a server */
    char *answer;
    struct btk_daemon *daemons;
};

/* ---- its processes ---- */

static bool set_environment(struct btk_world *world, double time_scale) {
    char number[32];
    world->environment = environment_copy();
    snprintf(number, sizeof number, "%d", world->vsdid);
    if (world->environment == NULL || !environment_set(&world->environment, "TMPDIR", world->tmpdir) ||
        !environment_set(&world->environment, "VSDID", number) ||
        !environment_set_preload(&world->environment, world->sandbox))
        return false;
    snprintf(number, sizeof number, "%g", time_scale);
    return time_scale == 0 || environment_set(&world->environment, "QV_THREAD_TIME_SCALE", number);
}

static bool start_process(struct btk_world *world, struct process *process, const char *const *arguments) {
    const int length = snprintf(process->path, sizeof process->path, "%s/output.%u", world->tmpdir, ++world->files);
    if (length >= 0 && (size_t)length < sizeof process->path && process_start(process, arguments, world->environment))
        return true;
    fprintf(stderr, "testkit: cannot start %s: %s\n", arguments[0], strerror(errno));
    return false;
}

static bool start_kernel(struct btk_world *world) {
    const char *const arguments[] = {world->sandbox, "kernel", NULL};
    if (!start_process(world, &world->kernel, arguments))
        return false;
    if (process_prints(&world->kernel, "listening", SERVER_SECONDS))
        return true;
    fprintf(stderr, "testkit: no kernel: %s\n", process_output(&world->kernel));
    return false;
}

static int connect_control(const struct btk_world *world) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    const int length = snprintf(address.sun_path, sizeof address.sun_path, "%s/bridge/.control", world->tmpdir);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && length > 0 && (size_t)length < sizeof address.sun_path &&
        connect(fd, (const struct sockaddr *)&address, sizeof address) == 0)
        return fd;
    if (fd >= 0)
        close(fd);
    return -1;
}

bool btk_start_server(struct btk_world *world) {
    const char *const arguments[] = {world->sandbox, "--quiet", "--trace", world->trace, NULL};
    if (process_runs(&world->server))
        return true;
    snprintf(world->trace, sizeof world->trace, "%s/trace.%u", world->tmpdir, ++world->files);
    if (!start_process(world, &world->server, arguments))
        return false;
    const double end = wall_seconds() + SERVER_SECONDS;
    while ((world->control = connect_control(world)) < 0 && wall_seconds() < end && process_runs(&world->server))
        short_pause();
    if (world->control >= 0)
        return true;
    fprintf(stderr, "testkit: no server: %s\n", process_output(&world->server));
    return false;
}

static void close_control(struct btk_world *world) {
    if (world->control >= 0)
        close(world->control);
    world->control = -1;
}

bool btk_kill_server(struct btk_world *world) {
    close_control(world);
    return process_end(&world->server, SIGKILL) == 128 + SIGKILL;
}

/* ---- its life ---- */

static bool make_directory(struct btk_world *world) {
    const char *parent = getenv("TMPDIR");
    snprintf(world->tmpdir, sizeof world->tmpdir, "%s/btk.XXXXXX", parent != NULL && *parent != '\0' ? parent : "/tmp");
    if (mkdtemp(world->tmpdir) != NULL)
        return true;
    fprintf(stderr, "testkit: cannot make %s: %s\n", world->tmpdir, strerror(errno));
    *world->tmpdir = '\0';
    return false;
}

static int next_vsdid(void) {
    static int worlds = 0;
    worlds = worlds % (WORLD_NUMBERS - 1) + 1;
    return (int)getpid() % PID_LIMIT + worlds * PID_LIMIT;
}

struct btk_world *btk_begin(const struct btk_options *options) {
    struct btk_world *world = calloc(1, sizeof *world);
    if (world == NULL)
        return NULL;
    world->control = -1;
    world->vsdid = next_vsdid();
    if (find_sandbox(options != NULL ? options->sandbox : NULL, world->sandbox) && make_directory(world) &&
        set_environment(world, options != NULL ? options->time_scale : 0) && start_kernel(world) &&
        btk_start_server(world))
        return world;
    btk_end(world);
    return NULL;
}

static int remove_entry(const char *path, const struct stat *status, int kind, struct FTW *place) {
    (void)status;
    (void)kind;
    (void)place;
    return remove(path);
}

/* The tables in shared memory; the program knows them. */
static void remove_tables(struct btk_world *world) {
    struct process cleaner = {0};
    const char *const arguments[] = {world->sandbox, "clean", NULL};
    if (start_process(world, &cleaner, arguments) && process_prints(&cleaner, "\n", SERVER_SECONDS))
        process_end(&cleaner, SIGTERM);
    process_free(&cleaner);
}

static void end_daemons(struct btk_world *world) {
    for (struct btk_daemon *daemon = world->daemons, *next; daemon != NULL; daemon = next) {
        next = daemon->next;
        process_end(&daemon->process, SIGTERM);
        process_free(&daemon->process);
        free(daemon);
    }
}

void btk_end(struct btk_world *world) {
    if (world == NULL)
        return;
    end_daemons(world);
    close_control(world);
    process_end(&world->server, SIGTERM);
    process_end(&world->kernel, SIGTERM);
    if (world->files > 0)
        remove_tables(world);
    if (*world->tmpdir != '\0')
        nftw(world->tmpdir, remove_entry, 16, FTW_DEPTH | FTW_PHYS);
    process_free(&world->server);
    process_free(&world->kernel);
    environment_free(world->environment);
    free(world->answer);
    free(world);
}

const char *btk_tmpdir(const struct btk_world *world) {
    return world->tmpdir;
}

int btk_vsdid(const struct btk_world *world) {
    return world->vsdid;
}

/* ---- commands ---- */

static bool send_all(int fd, const char *bytes, size_t size) {
    while (size > 0) {
        const ssize_t sent = send(fd, bytes, size, MSG_NOSIGNAL);
        if (sent < 0 && errno != EINTR)
            return false;
        bytes += sent > 0 ? sent : 0;
        size -= sent > 0 ? (size_t)sent : 0;
    }
    return true;
}

static bool receive_all(int fd, char *bytes, size_t size) {
    while (size > 0) {
        const ssize_t length = recv(fd, bytes, size, 0);
        if (length == 0 || (length < 0 && errno != EINTR))
            return false;
        bytes += length > 0 ? length : 0;
        size -= length > 0 ? (size_t)length : 0;
    }
    return true;
}

/* The line before an answer: its result and how many bytes follow. */
static bool receive_head(int fd, bool *ok, size_t *size) {
    char head[64] = {0};
    size_t length = 0;
    do
        if (length + 1 == sizeof head || !receive_all(fd, head + length, 1))
            return false;
    while (head[length++] != '\n');
    *ok = strncmp(head, "ok ", 3) == 0;
    *size = strtoul(head + strcspn(head, " "), NULL, 10);
    return true;
}

/* Keeps an answer of this program's own. */
static bool fail(struct btk_world *world, const char *reason) {
    free(world->answer);
    if (asprintf(&world->answer, "{\"error\":\"%s\"}", reason) < 0)
        world->answer = NULL;
    return false;
}

static bool run_line(struct btk_world *world, const char *line) {
    bool ok = false;
    size_t size = 0;
    if (strchr(line, '\n') != NULL)
        return fail(world, "a command is one line");
    if (world->control < 0)
        return fail(world, "there is no server");
    if (!send_all(world->control, "json ", 5) || !send_all(world->control, line, strlen(line)) ||
        !send_all(world->control, "\n", 1) || !receive_head(world->control, &ok, &size)) {
        close_control(world);
        return fail(world, "the server has gone");
    }
    free(world->answer);
    world->answer = calloc(size + 1, 1);
    if (world->answer != NULL && receive_all(world->control, world->answer, size))
        return ok;
    close_control(world);
    return fail(world, "the server has gone");
}

bool btk_run(struct btk_world *world, const char *format, ...) {
    char line[COMMAND_SIZE];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    return length >= 0 && (size_t)length < sizeof line ? run_line(world, line) : fail(world, "too long a command");
}

const char *btk_answer(const struct btk_world *world) {
    return world->answer != NULL ? world->answer : "";
}

bool btk_field(const struct btk_world *world, const char *path, char *text, size_t size) {
    const char *value = json_find(btk_answer(world), path);
    return value != NULL && json_text(value, text, size);
}

long btk_number(const struct btk_world *world, const char *path) {
    char text[64];
    char *end = text;
    if (!btk_field(world, path, text, sizeof text))
        return -1;
    if (strcmp(text, "true") == 0 || strcmp(text, "false") == 0)
        return *text == 't';
    const long number = strtol(text, &end, 10);
    return end != text && *end == '\0' ? number : -1;
}

long btk_count(const struct btk_world *world, const char *path) {
    return json_count(json_find(btk_answer(world), path));
}

/* ---- a command that must not fail ---- */

/* The last lines of a text. */
static const char *tail_of(const char *text, unsigned lines) {
    const char *at = text + strlen(text);
    while (at > text && (at[-1] != '\n' || at[0] == '\0' || --lines > 0))
        --at;
    return at;
}

static void print_world(struct btk_world *world) {
    struct process file = {0};
    if ((size_t)snprintf(file.path, sizeof file.path, "%s", world->trace) < sizeof file.path)
        fprintf(stderr, "the last messages:\n%s", tail_of(process_output(&file), SHOWN_MESSAGES));
    process_free(&file);
    for (struct btk_daemon *daemon = world->daemons; daemon != NULL; daemon = daemon->next)
        fprintf(stderr, "output of process %d:\n%s", (int)daemon->process.pid, btk_output(daemon));
}

void btk_must(struct btk_world *world, const char *format, ...) {
    char line[COMMAND_SIZE];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    if (run_line(world, line))
        return;
    fprintf(stderr, "testkit: %s: %s\n", line, btk_answer(world));
    print_world(world);
    btk_end(world);
    exit(EXIT_FAILURE);
}

/* ---- daemons ---- */

struct btk_daemon *btk_start(struct btk_world *world, const char *const *arguments) {
    struct btk_daemon *daemon = calloc(1, sizeof *daemon);
    if (daemon == NULL || !start_process(world, &daemon->process, arguments)) {
        free(daemon);
        return NULL;
    }
    daemon->next = world->daemons;
    world->daemons = daemon;
    return daemon;
}

pid_t btk_pid(const struct btk_daemon *daemon) {
    return daemon->process.pid;
}

const char *btk_output(struct btk_daemon *daemon) {
    return process_output(&daemon->process);
}

bool btk_prints(struct btk_daemon *daemon, const char *text, double seconds) {
    return process_prints(&daemon->process, text, seconds);
}

int btk_stop(struct btk_daemon *daemon) {
    return process_end(&daemon->process, SIGTERM);
}
