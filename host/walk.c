/* Walks over the kernel's address table, a slice at a time. */
#include "kernel.h"
#include "layer.h"

#include <bridge/events.h>

#include <time.h>
#include <unistd.h>

enum { SLICE_US = 1000, ANSWER_MS = 10000, PAUSE_US = 1000 };
enum state { IDLE = 0, RESOLVE, FIRST, NEXT, STATES };
enum { ASKED = 0x100 }; /* with a state: its question is out */

static struct bri_list walks = {&walks, &walks};
static struct bridge_host_walk *active; /* whose slice runs; null once it has ended */

static struct bridge_host_walk *of_link(struct bri_list *link) {
    return (struct bridge_host_walk *)((char *)link - offsetof(struct bridge_host_walk, link));
}

static int on_turn(void *arg);
static int on_answer(void *arg);
static int on_silence(void *arg);

static void take_out(struct bridge_host_walk *walk) {
    bri_host_cancel_job(on_turn, walk);
    bri_host_cancel_job(on_answer, walk);
    bri_host_cancel_job(on_silence, walk);
    close(walk->fd);
    walk->link.prev->next = walk->link.next;
    walk->link.next->prev = walk->link.prev;
    walk->state = IDLE;
    if (active == walk)
        active = NULL;
}

static void finish(struct bridge_host_walk *walk, int result) {
    take_out(walk);
    if (walk->on_end != NULL)
        walk->on_end(walk, result, walk->context);
}

void bri_host_walks_end(int result) {
    while (walks.next != &walks)
        finish(of_link(walks.next), result);
}

/* Questions and answers ------------------------------------------------------------------------------------------- */

static struct bri_mac_entry key_of(const struct bridge_host_walk *walk) {
    struct bri_mac_entry key = {.field = walk->ifx != 0 ? BRI_MAC_FIELD_IFX : BRI_MAC_FIELD_MAC, .ifx = walk->ifx};
    if (walk->ifx == 0)
        memcpy(key.mac, walk->current.mac, sizeof key.mac);
    return key;
}

static int ask_first(struct bridge_host_walk *walk) {
    const struct bri_mac_find_first question = {.key = key_of(walk)};
    return bri_host_kernel_ask(walk->fd, walk->family, MAC_EVENT_CLIENT_FIND_FIRST, &question, sizeof question);
}

static int ask_next(struct bridge_host_walk *walk) {
    const struct bri_mac_find_next question = {.key = key_of(walk), .current = walk->current};
    return bri_host_kernel_ask(walk->fd, walk->family, MAC_EVENT_CLIENT_FIND_NEXT, &question, sizeof question);
}

static int ask_family(struct bridge_host_walk *walk) {
    return bri_host_kernel_ask_family(walk->fd);
}

static int take_family(struct bridge_host_walk *walk) {
    const int result = bri_host_kernel_take_family(walk->fd, &walk->family);
    if (result == 0)
        walk->state = FIRST;
    return result;
}

static bool is_same(const struct bri_mac_entry *left, const struct bri_mac_entry *right) {
    return left->bcast_id == right->bcast_id && memcmp(left->mac, right->mac, sizeof left->mac) == 0;
}

/* The callback may end this walk, or begin it anew: it is looked at no more then. */
static int take_entry(struct bridge_host_walk *walk, const struct bri_mac_entry *entry) {
    const bool first = (walk->state & ~ASKED) == FIRST;
    if (!first && is_same(entry, &walk->current))
        return BRI_HOST_NONSENSE;
    walk->current = *entry;
    walk->state = NEXT;
    const int enough = walk->on_entry(entry, walk->context);
    if (active == walk && enough != 0)
        finish(walk, 0);
    return 0;
}

static int take_first(struct bridge_host_walk *walk) {
    struct bri_mac_find_first answer;
    const int result = bri_host_kernel_take(walk->fd, walk->family, &answer, sizeof answer);
    if (result != 0)
        return result;
    if (answer.found != 0)
        return take_entry(walk, &answer.result);
    finish(walk, 0);
    return 0;
}

static int take_next(struct bridge_host_walk *walk) {
    struct bri_mac_find_next answer;
    const int result = bri_host_kernel_take(walk->fd, walk->family, &answer, sizeof answer);
    if (result != 0)
        return result;
    if (answer.found != 0)
        return take_entry(walk, &answer.result);
    finish(walk, 0);
    return 0;
}

static const struct {
    int (*ask)(struct bridge_host_walk *walk);
    int (*take)(struct bridge_host_walk *walk);
} steps[STATES] = {
    [RESOLVE] = {ask_family, take_family}, [FIRST] = {ask_first, take_first}, [NEXT] = {ask_next, take_next}};

static int ask_once(struct bridge_host_walk *walk) {
    if ((walk->state & ASKED) != 0)
        return 0;
    const int result = steps[walk->state].ask(walk);
    if (result == 0)
        walk->state |= ASKED;
    return result;
}

/* Slices ---------------------------------------------------------------------------------------------------------- */

static int64_t now_us(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * 1000000 + now.tv_nsec / 1000;
}

/* Others have their turn before the next slice, which an event job would not give them. */
static void pause_walk(struct bridge_host_walk *walk) {
    if (!bri_host_after(on_turn, walk, PAUSE_US, "host-walk"))
        finish(walk, BRI_ERR_NO_MEMORY);
}

static void await_answer(struct bridge_host_walk *walk) {
    const uint64_t limit = (uint64_t)(walk->answer_ms != 0 ? walk->answer_ms : ANSWER_MS) * 1000;
    if (!bri_host_after(on_silence, walk, limit, "host-walk-limit") ||
        qv_thread_add_read_withname(bri_host.config.master, on_answer, walk, walk->fd, "host-walk-read") == NULL)
        finish(walk, BRI_ERR_NO_MEMORY);
}

/* What the socket cannot take now is tried again in the next slice. */
static void end_slice(struct bridge_host_walk *walk, int result) {
    if (result == BRI_HOST_LATER && (walk->state & ASKED) != 0)
        await_answer(walk);
    else if (result == 0 || result == BRI_HOST_LATER)
        pause_walk(walk);
    else
        finish(walk, result == BRI_HOST_GONE ? BRI_ERR_SOCKET : BRI_ERR_UNKNOWN);
}

static void run_slice(struct bridge_host_walk *walk) {
    struct bridge_host_walk *const outer = active;
    const int64_t end = now_us() + (walk->slice_us != 0 ? walk->slice_us : SLICE_US);
    int result;
    active = walk;
    do {
        result = ask_once(walk);
        if (result == 0)
            result = steps[walk->state & ~ASKED].take(walk);
    } while (active == walk && result == 0 && now_us() < end);
    if (active == walk)
        end_slice(walk, result);
    active = outer;
}

static int on_turn(void *arg) {
    run_slice(arg);
    return 0;
}

static int on_answer(void *arg) {
    bri_host_cancel_job(on_silence, arg);
    run_slice(arg);
    return 0;
}

static int on_silence(void *arg) {
    finish(arg, BRI_ERR_WOULD_BLOCK);
    return 0;
}

static int begin(struct bridge_host_walk *walk) {
    walk->fd = bri_host_kernel_open();
    if (walk->fd < 0)
        return BRI_ERR_SOCKET;
    if (!bri_host_after(on_turn, walk, 0, "host-walk")) {
        close(walk->fd);
        return BRI_ERR_NO_MEMORY;
    }
    memset(&walk->current, 0, sizeof walk->current);
    walk->state = RESOLVE;
    walk->link = (struct bri_list){&walks, walks.prev};
    walks.prev->next = &walk->link;
    walks.prev = &walk->link;
    ++bri_host.statistics.walks;
    return 0;
}

int bridge_host_walk_start(struct bridge_host_walk *walk) {
    if (walk == NULL || walk->on_entry == NULL)
        return BRI_ERR_NULL;
    if (!bri_host_runs())
        return BRI_ERR_NOT_PERMITTED;
    return walk->state != IDLE ? BRI_ERR_INVALID : begin(walk);
}

void bridge_host_walk_cancel(struct bridge_host_walk *walk) {
    if (walk != NULL && walk->state != IDLE)
        take_out(walk);
}
