/* Requests with an end: records of the caller's in a list, each with a timer of the loop for its deadline. */
#include "layer.h"

#include <bridge/events.h>

enum state { IDLE = 0, OUTSTANDING = 1, SENDING = 2 };

static struct bri_list outstanding = {&outstanding, &outstanding};

/* A walk over the list, which survives whatever callbacks do to it. Walks may lie inside each other. */
struct cursor {
    struct bri_list *current; /* null when it was taken out meanwhile */
    struct bri_list *next;
    struct cursor *outer;
};
static struct cursor *cursors;

static struct bridge_host_pending *of_link(struct bri_list *link) {
    return (struct bridge_host_pending *)((char *)link - offsetof(struct bridge_host_pending, link));
}

static void unlink_one(struct bri_list *link) {
    for (struct cursor *cursor = cursors; cursor != NULL; cursor = cursor->outer) {
        if (cursor->current == link)
            cursor->current = NULL;
        if (cursor->next == link)
            cursor->next = link->next;
    }
    bri_host_unlink(link);
}

/* The next request that was made before this event. */
static struct bridge_host_pending *step(struct cursor *cursor, uint32_t event_number) {
    while (cursor->next != &outstanding) {
        cursor->current = cursor->next;
        cursor->next = cursor->next->next;
        struct bridge_host_pending *const request = of_link(cursor->current);
        if ((int32_t)(event_number - request->since) > 0)
            return request;
    }
    return NULL;
}

static int on_deadline(void *arg);

static void take_out(struct bridge_host_pending *request) {
    bri_host_cancel_job(on_deadline, request);
    unlink_one(&request->link);
    request->state = IDLE;
}

static void finish(struct bridge_host_pending *request, enum bridge_host_result result) {
    struct bridge_host_statistics *figures = &bri_host.statistics;
    uint32_t *const counts[] = {&figures->requests_done, &figures->requests_timed_out, &figures->requests_lost,
                                &figures->requests_cancelled};
    take_out(request);
    ++*counts[result];
    if (request->on_done != NULL)
        request->on_done(request, result, request->context);
}

static int on_deadline(void *arg) {
    finish(arg, BRIDGE_HOST_TIMED_OUT);
    return 0;
}

static bool waits_for(const struct bridge_host_pending *request, uint32_t type) {
    for (const uint32_t *event = request->events; event != NULL && *event != 0; ++event)
        if (*event == type)
            return true;
    return false;
}

/* A look into a table may raise events, by which the same request ends. */
static bool is_done(const struct cursor *cursor, const struct bridge_host_pending *request, uint32_t type,
                    const void *record, uint16_t size) {
    return request->done_when(type, record, size, request->context) != 0 && cursor->current != NULL;
}

static void look(uint32_t event_number, uint32_t type, const void *record, uint16_t size) {
    struct cursor cursor = {NULL, outstanding.next, cursors};
    cursors = &cursor;
    for (struct bridge_host_pending *request = NULL; (request = step(&cursor, event_number)) != NULL;)
        if ((type == 0 || waits_for(request, type)) && is_done(&cursor, request, type, record, size))
            finish(request, BRIDGE_HOST_DONE);
    cursors = cursor.outer;
}

void bri_host_requests_event(uint32_t event_number, uint32_t type, const void *record, uint16_t size) {
    if (outstanding.next != &outstanding)
        look(event_number, type, size != 0 ? record : NULL, size);
}

void bri_host_requests_tick(void) {
    look(++bri_host.event_number, 0, NULL, 0);
}

uint32_t bri_host_requests_end(enum bridge_host_result result) {
    const uint32_t number = ++bri_host.event_number;
    uint32_t count = 0;
    struct cursor cursor = {NULL, outstanding.next, cursors};
    cursors = &cursor;
    for (struct bridge_host_pending *request = NULL; (request = step(&cursor, number)) != NULL; ++count)
        finish(request, result);
    cursors = cursor.outer;
    return count;
}

int bridge_host_may_send(void) {
    if (!bri_host_runs())
        return BRI_ERR_NOT_PERMITTED;
    if (g_bridge_client->connected == 0)
        return BRI_ERR_SOCKET;
    const bool refuses = (bri_host.config.flags & BRIDGE_HOST_REFUSE_AS_SLAVE) != 0;
    return refuses && bridge_host_role() == BRIDGE_HOST_ROLE_SLAVE ? BRI_ERR_NOT_PERMITTED : 0;
}

static int register_events(const struct bridge_host_pending *request) {
    struct event_set events = {{0}};
    for (const uint32_t *event = request->events; event != NULL && *event != 0; ++event)
        if (bri_event_set_add(&events, *event) != 0)
            return BRI_ERR_INVALID;
    return bri_host_register(&events);
}

static int begin(struct bridge_host_pending *request) {
    int result = bridge_host_may_send();
    if (result == 0 && (request->state != IDLE || request->timeout_ms == 0))
        result = BRI_ERR_INVALID;
    if (result == 0)
        result = register_events(request);
    if (result == 0 && !bri_host_after(on_deadline, request, (uint64_t)request->timeout_ms * 1000, "host-deadline"))
        result = BRI_ERR_NO_MEMORY;
    if (result != 0)
        return result;
    request->state = SENDING;
    if (request->send != NULL)
        result = request->send(request->context);
    if (result != 0) {
        bri_host_cancel_job(on_deadline, request);
        request->state = IDLE;
    }
    return result;
}

int bridge_host_request(struct bridge_host_pending *request) {
    if (request == NULL || request->done_when == NULL)
        return BRI_ERR_NULL;
    const int result = begin(request);
    if (result != 0) {
        ++bri_host.statistics.requests_refused;
        return result;
    }
    request->since = bri_host.event_number;
    request->state = OUTSTANDING;
    bri_host_append(&outstanding, &request->link);
    ++bri_host.statistics.requests;
    return 0;
}

void bridge_host_cancel(struct bridge_host_pending *request) {
    if (request == NULL || request->state != OUTSTANDING)
        return;
    take_out(request);
    ++bri_host.statistics.requests_cancelled;
}
