/* Test kit: a switch of a test's own, with its server, its kernel's bridge module and the daemons under test, driven by
 * the commands of bridge-sandbox. Link bridge::testkit (libbridge_testkit.a); plain C11.
 *
 *     struct btk_world *world = btk_begin(NULL);
 *     struct btk_daemon *daemon = btk_start(world, (const char *const[]){"./my_daemon", NULL});
 *     btk_must(world, "wait client my_daemon registered");
 *     btk_must(world, "port add 3 access 10");
 *     assert(btk_number(world, "ports.0.pvid") == 10);
 *     btk_end(world);
 *
 * One thread uses a world. A test may have several worlds: they share nothing. Durations in commands are in the world's
 * time, those of this header's functions in seconds of the wall's clock. */
#ifndef BRIDGE_TESTKIT_H
#define BRIDGE_TESTKIT_H

#include <stdbool.h>
#include <stddef.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define BTK_PRINTF(text, arguments) __attribute__((format(printf, text, arguments)))
#else
#define BTK_PRINTF(text, arguments)
#endif

struct btk_world;
struct btk_daemon;

struct btk_options {
    const char *sandbox; /* bridge-sandbox; null: $BRIDGE_SANDBOX, or the one of PATH. Its preload lies beside it or in
                          * the library directory of its tree. */
    double time_scale;   /* how many times as fast as the wall's its clocks run, the daemons' too; 0: once */
};

/* A new world in a directory of its own below $TMPDIR or /tmp: a kernel's bridge module and a server that answers. Null
 * with a line on standard error when that fails. `options` may be null. */
struct btk_world *btk_begin(const struct btk_options *options);

/* Ends its processes, daemons first, and removes the directory and the tables in shared memory; the daemons' handles
 * go too. Null is nothing. When the test's process dies instead, the processes end with it. */
void btk_end(struct btk_world *world);

/* TMPDIR and VSDID of the world. */
const char *btk_tmpdir(const struct btk_world *world);
int btk_vsdid(const struct btk_world *world);

/* Commands.
 *
 * Runs a command of the server ("port add 3 access 10"; bridge-sandbox ctl help lists them) and waits for its answer.
 * The commands wait, never and expect are how a test waits: they answer when what they name has happened. False when
 * the command is refused, waits in vain, or there is no server. */
bool btk_run(struct btk_world *world, const char *format, ...) BTK_PRINTF(2, 3);

/* The same for tests that cannot go on without: when it fails, prints the command, the reason, the last messages of the
 * world and the daemons' outputs on standard error, ends the world and then the process with status 1. */
void btk_must(struct btk_world *world, const char *format, ...) BTK_PRINTF(2, 3);

/* The last command's answer, a JSON object on one line; of a refused one {"error": "the reason"}. Lives until the next
 * command. */
const char *btk_answer(const struct btk_world *world);

/* A field of the last answer by its path, "addresses.0.mac": names of members and numbers of elements. A text comes
 * without its quotes and escapes, anything else as it stands. False when there is no such field or no room for it. */
bool btk_field(const struct btk_world *world, const char *path, char *text, size_t size);

/* A number there, also 1 or 0 for true or false; -1 when there is none. */
long btk_number(const struct btk_world *world, const char *path);

/* How many elements the array has there; -1 when there is none. */
long btk_count(const struct btk_world *world, const char *path);

/* The server.
 *
 * Killing it is a kill -9: the tables and the kernel's bridge module stay. Commands fail until it is started again;
 * its settings and rules begin anew. True when it has ended, or answers. */
bool btk_kill_server(struct btk_world *world);
bool btk_start_server(struct btk_world *world);

/* Daemons.
 *
 * Starts one in the world, `arguments` ending with a null; its two output streams are captured together. Null with a
 * line on standard error when it cannot be started. */
struct btk_daemon *btk_start(struct btk_world *world, const char *const *arguments);

pid_t btk_pid(const struct btk_daemon *daemon);

/* What it has printed so far, ending with a NUL. Lives until the next call for this daemon. */
const char *btk_output(struct btk_daemon *daemon);

/* Whether it prints the text within the time; what it has printed already counts. */
bool btk_prints(struct btk_daemon *daemon, const char *text, double seconds);

/* Sends SIGTERM, after five seconds SIGKILL, and waits for the end. Its exit status, 128 and the signal that ended it,
 * and the same again when it had ended before. Its output stays. */
int btk_stop(struct btk_daemon *daemon);

#ifdef __cplusplus
}
#endif

#endif
