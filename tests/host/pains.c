/* pains PAIN NAIVE LAYERED: what is hard in a daemon's life, each thing in a world of its own. Ends with 0 when the
 * naive daemon, on the bare library, gets it wrong and the same daemon with the layer gets it right. */
#undef NDEBUG
#include <bridge/testkit.h>

#include <inttypes.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

enum { PICTURE_SIZE = 32768 };

/* What is right comes as late as a busy machine lets it. What is wrong stays so, and each naive daemon spends this. */
static const double patience_s = 20;
static const double naive_patience_s = 1.5;
static const double time_scale = 10;

struct stage {
    struct btk_world *world;
    struct btk_daemon *daemon;
    unsigned pictures; /* that the daemon was asked for */
    double patience_s;
};

static struct stage stage_now;

static _Noreturn void give_up(const char *what) {
    fprintf(stderr, "pains: %s\n", what);
    btk_end(stage_now.world);
    exit(2);
}

static void start(struct stage *stage, const char *program) {
    stage->daemon = btk_start(stage->world, (const char *const[]){program, "pain", NULL});
    if (stage->daemon == NULL)
        give_up("the daemon does not start");
    btk_must(stage->world, "wait client pain registered");
    btk_must(stage->world, "wait event BRIDGE_EVENT_SYNC_DATA_END to pain");
}

static void start_keeping(struct stage *stage, const char *program) {
    start(stage, program);
    btk_must(stage->world, "wait vlan 900 exists");
}

/* The daemon's picture as it is now. */
static const char *picture(struct stage *stage) {
    char text[32];
    snprintf(text, sizeof text, "end %u\n", ++stage->pictures);
    kill(btk_pid(stage->daemon), SIGUSR1);
    if (!btk_prints(stage->daemon, text, patience_s))
        give_up("the daemon shows nothing");
    snprintf(text, sizeof text, "picture %u ", stage->pictures);
    return strstr(btk_output(stage->daemon), text);
}

static double now_s(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec + (double)now.tv_nsec / 1e9;
}

/* Whether its picture comes to hold the text. */
static bool shows_within(struct stage *stage, const char *text, double seconds) {
    static const struct timespec pause = {.tv_nsec = 20000000};
    const double end = now_s() + seconds;
    while (strstr(picture(stage), text) == NULL) {
        if (now_s() > end) {
            printf("does not show \"%s\": %s", text, picture(stage));
            return false;
        }
        nanosleep(&pause, NULL);
    }
    return true;
}

static bool shows(struct stage *stage, const char *text) {
    return shows_within(stage, text, stage->patience_s);
}

/* Whether it comes to be so in the server, whose time is that of the world. */
static bool comes(struct stage *stage, const char *condition) {
    return btk_run(stage->world, "wait %s within %g", condition, stage->patience_s * time_scale);
}

static void must_show(struct stage *stage, const char *text) {
    if (!shows_within(stage, text, patience_s))
        give_up("what both should show is not there");
}

/* Each of them: whether the daemon gets it right. */

/* What changes while there is no connection is not told. */
static bool outage(struct stage *stage, const char *program) {
    start_keeping(stage, program);
    btk_must(stage->world, "vlan create 10");
    must_show(stage, " vlans=10,900 ");
    kill(btk_pid(stage->daemon), SIGSTOP); /* so that it is not back before all is done */
    btk_must(stage->world, "drop");
    btk_must(stage->world, "vlan delete 10");
    btk_must(stage->world, "vlan create 20");
    kill(btk_pid(stage->daemon), SIGCONT);
    btk_must(stage->world, "wait client pain registered");
    return shows(stage, " vlans=20,900 ");
}

/* The markers of a submodule come twice, the second time with nothing in between. */
static bool markers(struct stage *stage, const char *program) {
    btk_must(stage->world, "port add 3 access 10");
    start(stage, program);
    return shows(stage, " ports=3 ");
}

/* The role changes without a call. */
static bool role(struct stage *stage, const char *program) {
    start(stage, program);
    btk_must(stage->world, "role slave");
    if (!shows(stage, " role=slave "))
        return false;
    btk_must(stage->world, "role master");
    return shows(stage, " role=master ");
}

/* Nobody says that a request was lost. */
static bool answer(struct stage *stage, const char *program) {
    btk_must(stage->world, "drop request VLAN_EVENT_CREATE_INDEX vid=900 once");
    start(stage, program);
    btk_must(stage->world, "wait request VLAN_EVENT_CREATE_INDEX vid=900 from pain");
    return comes(stage, "vlan 900 exists");
}

/* A refused one, too, is asked for again. */
static bool refusal(struct stage *stage, const char *program) {
    btk_must(stage->world, "refuse VLAN_EVENT_CREATE_INDEX vid=900 once");
    start(stage, program);
    btk_must(stage->world, "wait refusal VLAN_EVENT_CREATE_INDEX vid=900 from pain");
    return comes(stage, "vlan 900 exists");
}

/* The loop ends before the last request has left. */
static bool last_request(struct stage *stage, const char *program) {
    start_keeping(stage, program);
    if (btk_stop(stage->daemon) != 0)
        give_up("the daemon ended badly");
    return comes(stage, "vlan 900 gone");
}

/* Tells it to count the addresses, and waits until it has read that. */
static void ask_to_count(struct stage *stage, const char *printed_then) {
    kill(btk_pid(stage->daemon), SIGUSR2);
    if (!btk_prints(stage->daemon, printed_then, patience_s))
        give_up("the daemon does not begin to count");
}

/* A look-up holds the loop for as long as the kernel does not answer. */
static bool look_up(struct stage *stage, const char *program) {
    static const long held_limit_ms = 500;
    btk_must(stage->world, "port add 3 access 10");
    btk_must(stage->world, "vlan create 10");
    btk_must(stage->world, "mac fill 5 10 3");
    start(stage, program);
    ask_to_count(stage, "count 1\n");
    must_show(stage, " addresses=5 ");
    btk_must(stage->world, "kernel silent");
    ask_to_count(stage, "count 2\n");
    const char *held = strstr(picture(stage), " held=");
    const long held_ms = held != NULL ? strtol(held + strlen(" held="), NULL, 10) : 1000000;
    printf("the loop was held for %ld ms\n", held_ms);
    return held_ms < held_limit_ms;
}

/* The hexadecimal digits of a word as it lies in memory. */
static void put_word(char *text, size_t size, uint32_t word) {
    const size_t used = strlen(text);
    const uint8_t *bytes = (const uint8_t *)&word;
    snprintf(text + used, size - used, "%02x%02x%02x%02x", bytes[0], bytes[1], bytes[2], bytes[3]);
}

enum { PVID_EVENT = 409, STATE_EVENT = 401 };

/* A record that ends too early. */
static bool short_record(struct stage *stage, const char *program) {
    char ifx[16] = "";
    start(stage, program);
    btk_must(stage->world, "event VLAN_EVENT_MODIFY_INTF_PVID ifx=3 pvid=7");
    must_show(stage, " pvids=3:7, ");
    put_word(ifx, sizeof ifx, 3);
    btk_must(stage->world, "event VLAN_EVENT_MODIFY_INTF_PVID %s", ifx);
    btk_must(stage->world, "event VLAN_EVENT_MODIFY_INTF_PVID ifx=5 pvid=9");
    must_show(stage, "5:9,");
    return shows(stage, " pvids=3:7,5:9, ");
}

/* A record at an odd address: the message before it in the batch has one byte. */
static bool unaligned_record(struct stage *stage, const char *program) {
    char batch[128] = "";
    start(stage, program);
    const uint16_t pvid = 7;
    uint32_t pvid_word = 0;
    memcpy(&pvid_word, &pvid, sizeof pvid);
    const uint32_t head[] = {8 + 1 + 8 + 8, 2, STATE_EVENT, 1};
    const uint32_t record[] = {PVID_EVENT, 8, 3, pvid_word};
    for (size_t i = 0; i < sizeof head / sizeof *head; ++i)
        put_word(batch, sizeof batch, head[i]);
    strcat(batch, "00");
    for (size_t i = 0; i < sizeof record / sizeof *record; ++i)
        put_word(batch, sizeof batch, record[i]);
    btk_must(stage->world, "raw @pain %s", batch);
    must_show(stage, " pvids=3:7, ");
    return shows(stage, " placed ");
}

/* Sets of bits, walked by hand. */
static bool sets(struct stage *stage, const char *program) {
    start_keeping(stage, program);
    btk_must(stage->world, "vlan create 4092-4094");
    must_show(stage, ",4093");
    return shows(stage, " vlans=900,4092,4093,4094 ");
}

static const struct {
    const char *name;
    bool (*right)(struct stage *stage, const char *program);
} pains[] = {
    {"outage", outage},
    {"markers", markers},
    {"role", role},
    {"answer", answer},
    {"refusal", refusal},
    {"last_request", last_request},
    {"look_up", look_up},
    {"sets", sets},
    {"short_record", short_record},
    {"unaligned_record", unaligned_record},
};

static bool gets_right(bool (*right)(struct stage *stage, const char *program), const char *program, double patience) {
    stage_now =
        (struct stage){.world = btk_begin(&(struct btk_options){.time_scale = time_scale}), .patience_s = patience};
    if (stage_now.world == NULL)
        give_up("no world");
    const bool result = right(&stage_now, program);
    printf("%s: %s\n", program, result ? "right" : "wrong");
    btk_end(stage_now.world);
    return result;
}

int main(int argc, char **argv) {
    if (argc != 4)
        give_up("pains PAIN NAIVE LAYERED");
    for (size_t i = 0; i < sizeof pains / sizeof *pains; ++i)
        if (strcmp(pains[i].name, argv[1]) == 0) {
            const bool naive = gets_right(pains[i].right, argv[2], naive_patience_s);
            const bool layered = gets_right(pains[i].right, argv[3], patience_s);
            return !naive && layered ? EXIT_SUCCESS : EXIT_FAILURE;
        }
    give_up("no such pain");
}
