/* What the two daemons of the pains have in common: what they know, which they print when asked (SIGUSR1), how they
 * are told to count addresses (SIGUSR2) and to end (SIGTERM), and a watch on how long their loop is held. */
#ifndef TESTS_HOST_PICTURE_H
#define TESTS_HOST_PICTURE_H

#include <bridge/bridge.h>

#include <qv_thread.h>

#include <stdbool.h>
#include <stdint.h>

enum { PICTURE_PORTS = 64, PICTURE_VLANS = 4096, KEPT_VLAN = 900 };

/* The daemon keeps VLAN 900 in existence while it runs, and knows VLANs and ports. */
struct picture {
    bool vlans[PICTURE_VLANS];
    uint16_t pvids[PICTURE_PORTS]; /* 0: no such port */
    const char *role;
    int addresses;  /* the last count of the kernel's; -1: none yet, or it failed */
    bool misplaced; /* a record was read at an address that is not its type's */
};
extern struct picture picture;

/* The loop, after picture_start(). */
extern struct qv_thread_master *picture_loop;

/* Makes the loop and takes the signals. `count` and `end` are called on it; `end` stops it in its own time. */
bool picture_start(void (*count)(void), void (*end)(void));

/* Runs the loop until it is stopped. Gives the exit status. */
int picture_run(void);

#endif
