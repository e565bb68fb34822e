/* Walks over the kernel's address table, a slice at a time. */
#include "kernel.h"
#include "layer.h"

#include <bridge/events.h>

#include <unistd.h>

enum { SLICE_US = 1000, ANSWER_MS = 10000, PAUSE_US = 1000 };
enum state { IDLE = 0, RESOLVE, FIRST, NEXT };
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
    bri_host_unlink(&walk->link);
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

static int ask(struct bridge_host_walk *walk) {
    const struct bri_mac_find_first first = {.key = key_of(walk)};
    const struct bri_mac_find_next next = {.key = first.key, .current = walk->current};
    if (walk->state == RESOLVE)
        return bri_host_kernel_ask_family(walk->fd);
    if (walk->state == FIRST)
        return bri_host_kernel_ask(walk->fd, walk->family, MAC_EVENT_CLIENT_FIND_FIRST, &first, sizeof first);
    return bri_host_kernel_ask(walk->fd, walk->family, MAC_EVENT_CLIENT_FIND_NEXT, &next, sizeof next);
}

static bool is_same(const struct bri_mac_entry *left, const struct bri_mac_entry *right) {
    return left->bcast_id == right->bcast_id && memcmp(left->mac, right->mac, sizeof left->mac) == 0;
}

/* The callback may end this walk, or begin it anew: it is looked at no more then. */
static int take_entry(struct bridge_host_walk *walk, const struct bri_mac_entry *entry) {
    if (walk->state == (NEXT | ASKED) && is_same(entry, &walk->current))
        return BRI_HOST_NONSENSE;
    walk->current = *entry;
    walk->state = NEXT;
    const int enough = walk->on_entry(entry, walk->context);
    if (active == walk && enough != 0)
        finish(walk, 0);
    return 0;
}

/* Both answers end alike, the shorter one begins later. */
static int take_answer(struct bridge_host_walk *walk) {
    struct bri_mac_find_next answer;
    const uint32_t size = walk->state == (FIRST | ASKED) ? sizeof(struct bri_mac_find_first) : sizeof answer;
    const int result = bri_host_kernel_take(walk->fd, walk->family, (uint8_t *)&answer + sizeof answer - size, size);
    if (result != 0)
        return result;
    if (answer.found != 0)
        return take_entry(walk, &answer.result);
    finish(walk, 0);
    return 0;
}
_Static_assert(sizeof(struct bri_mac_find_next) - offsetof(struct bri_mac_find_next, found) ==
                   sizeof(struct bri_mac_find_first) - offsetof(struct bri_mac_find_first, found),
               "the answers end alike");

static int take(struct bridge_host_walk *walk) {
    if (walk->state != (RESOLVE | ASKED))
        return take_answer(walk);
    const int result = bri_host_kernel_take_family(walk->fd, &walk->family);
    if (result == 0)
        walk->state = FIRST;
    return result;
}

static int ask_once(struct bridge_host_walk *walk) {
    const int result = (walk->state & ASKED) != 0 ? 0 : ask(walk);
    if (result == 0)
        walk->state |= ASKED;
    return result;
}

/* Slices ---------------------------------------------------------------------------------------------------------- */

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
    const int64_t end = bri_host_now_us() + (walk->slice_us != 0 ? walk->slice_us : SLICE_US);
    int result = 0;
    active = walk;
    do {
        result = ask_once(walk);
        if (result == 0)
            result = take(walk);
    } while (active == walk && result == 0 && bri_host_now_us() < end);
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
    bri_host_append(&walks, &walk->link);
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
