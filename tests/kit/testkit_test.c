/* The C side of the kit, each test in a world of its own. */
#include "tests/kit/check.h"

#include <bridge/testkit.h>

#include <signal.h>
#include <string.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

enum { VLAN_KEY_BASE = 0x22220001 };

static struct btk_world *begin(void) {
    struct btk_world *world = btk_begin(&(struct btk_options){.time_scale = 10});
    CHECK(world != NULL);
    return world;
}

static struct btk_daemon *start_watch(struct btk_world *world, const char *name) {
    char path[4096];
    snprintf(path, sizeof path, "%s/port_watch", getenv("BRIDGE_EXAMPLES"));
    struct btk_daemon *daemon = btk_start(world, (const char *const[]){path, "-n", name, "-p", "0", NULL});
    CHECK(daemon != NULL);
    return daemon;
}

static int is_text(const struct btk_world *world, const char *path, const char *expected) {
    char text[256];
    return btk_field(world, path, text, sizeof text) && strcmp(text, expected) == 0;
}

static void commands_are_answered_in_fields(void) {
    struct btk_world *world = begin();
    btk_must(world, "port add %d access 10", 3);
    CHECK(btk_run(world, "port show"));
    CHECK(btk_count(world, "ports") == 1);
    CHECK(btk_number(world, "ports.0.pvid") == 10);
    CHECK(btk_number(world, "ports.0.mode") == -1); /* a text */
    CHECK(is_text(world, "ports.0.mode", "ACCESS"));
    btk_end(world);
}

static void refused_command_tells_its_reason(void) {
    struct btk_world *world = begin();
    CHECK(!btk_run(world, "bogus"));
    CHECK(is_text(world, "error", "no such command: bogus (try help)"));
    CHECK(!btk_run(world, "wait client nobody registered within 0.2"));
    CHECK(is_text(world, "error", "waited in vain for client nobody registered: it does not exist"));
    CHECK(!btk_run(world, "print a\nprint b"));
    CHECK(btk_run(world, "print still there"));
    btk_end(world);
}

static void daemon_is_reached_and_its_output_captured(void) {
    struct btk_world *world = begin();
    struct btk_daemon *daemon = start_watch(world, "watch");
    btk_must(world, "wait client watch registered");
    btk_must(world, "port add 3 access 10");
    CHECK(btk_prints(daemon, "VLAN_EVENT_CREATE_INTF(398)", 5));
    CHECK(strstr(btk_output(daemon), "watch: connected\n") != NULL);
    CHECK(!btk_prints(daemon, "what nobody prints", 0.05));
    CHECK(btk_stop(daemon) == 0);
    CHECK(btk_stop(daemon) == 0); /* the same again */
    CHECK(strstr(btk_output(daemon), "watch: ended\n") != NULL);
    btk_end(world);
}

static void daemon_that_is_killed_shows_it(void) {
    struct btk_world *world = begin();
    struct btk_daemon *daemon = start_watch(world, "watch");
    btk_must(world, "wait client watch registered");
    kill(btk_pid(daemon), SIGKILL);
    btk_must(world, "wait client watch gone");
    CHECK(btk_stop(daemon) == 128 + SIGKILL);
    btk_end(world);
}

static void program_that_is_not_there_is_no_daemon(void) {
    struct btk_world *world = begin();
    CHECK(btk_start(world, (const char *const[]){"/nowhere/daemon", NULL}) == NULL);
    btk_end(world);
}

static void tables_and_addresses_outlive_a_killed_server(void) {
    struct btk_world *world = begin();
    struct btk_daemon *daemon = start_watch(world, "watch");
    btk_must(world, "wait client watch registered");
    btk_must(world, "port add 3 access 10");
    btk_must(world, "vlan create 10");
    btk_must(world, "traffic 02:00:00:00:00:05 10 3");
    CHECK(btk_kill_server(world));
    CHECK(!btk_run(world, "port show"));
    CHECK(is_text(world, "error", "there is no server"));
    CHECK(btk_start_server(world));
    btk_must(world, "wait client watch registered");
    btk_must(world, "mac show");
    CHECK(is_text(world, "addresses.0.mac", "02:00:00:00:00:05"));
    btk_must(world, "vlan show");
    CHECK(btk_number(world, "vlans.0.vid") == 10);
    CHECK(btk_stop(daemon) == 0);
    btk_end(world);
}

static void worlds_side_by_side_share_nothing(void) {
    struct btk_world *one = begin();
    struct btk_world *two = begin();
    CHECK(btk_vsdid(one) != btk_vsdid(two));
    start_watch(one, "watch");
    struct btk_daemon *other = start_watch(two, "watch");
    btk_must(one, "wait client watch registered");
    btk_must(two, "wait client watch registered");
    btk_must(one, "port add 3 access 10");
    btk_must(one, "vlan create 10");
    btk_must(one, "traffic 02:00:00:00:00:05 10 3");
    btk_must(two, "port show");
    CHECK(btk_count(two, "ports") == 0);
    btk_must(two, "vlan show");
    CHECK(btk_count(two, "vlans") == 0);
    btk_must(two, "mac show");
    CHECK(btk_count(two, "addresses") == 0);
    btk_end(one);
    btk_must(two, "clients");
    CHECK(btk_count(two, "clients") == 1);
    CHECK(strstr(btk_output(other), "VLAN_EVENT_CREATE_INTF") == NULL);
    btk_end(two);
}

static void end_leaves_nothing_behind(void) {
    struct btk_world *world = begin();
    char directory[256];
    snprintf(directory, sizeof directory, "%s", btk_tmpdir(world));
    const key_t key = VLAN_KEY_BASE + btk_vsdid(world);
    struct btk_daemon *daemon = start_watch(world, "watch");
    btk_must(world, "wait client watch registered");
    btk_must(world, "vlan create 10");
    const pid_t pid = btk_pid(daemon);
    struct stat status;
    CHECK(stat(directory, &status) == 0);
    CHECK(shmget(key, 0, 0) >= 0);
    btk_end(world);
    CHECK(stat(directory, &status) != 0);
    CHECK(shmget(key, 0, 0) < 0);
    CHECK(kill(pid, 0) != 0);
    CHECK(waitpid(-1, NULL, WNOHANG) == -1); /* no child is left */
}

/* In a process of its own, whose standard error is read. */
static void must_ends_the_test_and_says_why(void) {
    int output[2];
    char text[65536] = {0};
    size_t length = 0;
    CHECK(pipe(output) == 0);
    const pid_t child = fork();
    if (child == 0) {
        dup2(output[1], STDERR_FILENO);
        close(output[0]);
        struct btk_world *world = begin();
        start_watch(world, "watch");
        btk_must(world, "wait client watch registered");
        btk_must(world, "vlan delete 77");
        _exit(0);
    }
    close(output[1]);
    for (ssize_t more; (more = read(output[0], text + length, sizeof text - 1 - length)) > 0;)
        length += (size_t)more;
    close(output[0]);
    int status = 0;
    CHECK(waitpid(child, &status, 0) == child);
    CHECK(WIFEXITED(status) && WEXITSTATUS(status) == 1);
    CHECK(strstr(text, "testkit: vlan delete 77: {\"error\":") != NULL);
    CHECK(strstr(text, "BRIDGE_EVENT_REG_MSG") != NULL);
    CHECK(strstr(text, "watch: connected") != NULL);
}

int main(void) {
    commands_are_answered_in_fields();
    refused_command_tells_its_reason();
    daemon_is_reached_and_its_output_captured();
    daemon_that_is_killed_shows_it();
    program_that_is_not_there_is_no_daemon();
    tables_and_addresses_outlive_a_killed_server();
    worlds_side_by_side_share_nothing();
    end_leaves_nothing_behind();
    must_ends_the_test_and_says_why();
    return EXIT_SUCCESS;
}
