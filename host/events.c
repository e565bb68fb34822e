/* The table of events: one handler of the library for all of them, which finds an event's rows by its type. */
#include "layer.h"

#include <stdlib.h>

enum { TYPES = 4096, ALIGNMENT = 4, ROWS_MAX = 250 };

struct row {
    struct bridge_host_handler handler;
    uint32_t count; /* events, in the first row of each */
    uint8_t next;   /* the event's next row, counted from 1; 0: none */
};

static struct row *rows;
static uint32_t row_count;
static uint32_t generation;      /* of the rows */
static uint8_t first_row[TYPES]; /* of each event, counted from 1; 0: none */

static bool is_row(const struct bridge_host_handler *handler) {
    return handler->handler != NULL && handler->event >= 1 && handler->event < TYPES;
}

/* Behind the event's other rows. */
static void chain(uint32_t index) {
    uint8_t *place = &first_row[rows[index].handler.event];
    while (*place != 0)
        place = &rows[*place - 1].next;
    *place = (uint8_t)(index + 1);
}

int bri_host_take_rows(const struct bridge_host_config *config) {
    if (config->handler_count > ROWS_MAX || (config->handlers == NULL && config->handler_count != 0))
        return BRI_ERR_INVALID;
    for (uint32_t i = 0; i < config->handler_count; ++i)
        if (!is_row(&config->handlers[i]))
            return BRI_ERR_INVALID;
    rows = calloc(config->handler_count + 1, sizeof *rows);
    if (rows == NULL)
        return BRI_ERR_NO_MEMORY;
    memset(first_row, 0, sizeof first_row);
    row_count = config->handler_count;
    ++generation;
    for (uint32_t i = 0; i < row_count; ++i) {
        rows[i].handler = config->handlers[i];
        if (rows[i].handler.context == NULL)
            rows[i].handler.context = config->context;
        chain(i);
    }
    return 0;
}

void bri_host_drop_rows(void) {
    memset(first_row, 0, sizeof first_row);
    free(rows);
    rows = NULL;
    row_count = 0;
}

bool bri_host_has_row_of(uint32_t submod) {
    for (uint32_t i = 0; i < row_count; ++i)
        if (rows[i].handler.event >> 7 == submod)
            return true;
    return false;
}

int bri_host_register(const struct event_set *events) {
    struct event_set all = bri_host.registered;
    uint32_t missing = 0;
    for (size_t i = 0; i < sizeof all.words / sizeof *all.words; ++i) {
        missing |= events->words[i] & ~all.words[i];
        all.words[i] |= events->words[i];
    }
    if (missing != 0 && bridge_client_reg_event(events, bri_host_on_event) != 0)
        return BRI_ERR_NO_MEMORY;
    bri_host.registered = all;
    return 0;
}

/* A handler may end the layer, and with it the rows, and start it anew. */
static void call_rows(uint32_t type, const void *record, uint16_t size) {
    uint8_t next = first_row[type];
    if (next == 0)
        return;
    ++rows[next - 1].count;
    ++bri_host.statistics.events;
    for (const uint32_t these = generation; next != 0 && bri_host_runs() && these == generation;) {
        const struct row *row = &rows[next - 1];
        next = row->next;
        if (size < row->handler.least)
            ++bri_host.statistics.dropped_short;
        else
            row->handler.handler(size != 0 ? record : NULL, size, row->handler.context);
    }
}

/* Whatever a callback does, each step finds the state as it is then. */
static void deliver(uint32_t type, const void *record, uint16_t size) {
    const uint32_t number = ++bri_host.event_number;
    bri_host_resync_before(type, record, size);
    bri_host_note_master(type);
    bri_host_sweep_note(type, record, size);
    call_rows(type, record, size);
    if (bri_host_runs())
        bri_host_requests_event(number, type, record, size);
    if (bri_host_runs())
        bri_host_resync_after(type);
}

/* A copy for each event, since a handler may raise others. */
static __attribute__((noinline)) void deliver_copy(uint32_t type, const void *data, uint16_t len) {
    uint32_t copy[BRI_PAYLOAD_MAX / sizeof(uint32_t)];
    memcpy(copy, data, len);
    deliver(type, copy, len);
}

int bri_host_on_event(uint32_t type, void *data, uint16_t len) {
    const uint32_t known = type & 0xFFFF;
    if (bri_host_is_probe(known, data) || !bri_host_runs() || known >= TYPES)
        return 0;
    bri_host_keep_tick();
    if (data == NULL || (uintptr_t)data % ALIGNMENT == 0)
        deliver(known, data, data != NULL ? len : 0);
    else if (len <= BRI_PAYLOAD_MAX)
        deliver_copy(known, data, len);
    else
        ++bri_host.statistics.dropped_long;
    return 0;
}

uint32_t bridge_host_event_count(uint32_t event) {
    return event < TYPES && first_row[event] != 0 ? rows[first_row[event] - 1].count : 0;
}
