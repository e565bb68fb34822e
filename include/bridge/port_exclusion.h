/* Port exclusion flags: which port features already run on an interface.
 *
 * The first call of any of these makes or joins the table and its lock (key 0x33330001 + VSDID); one that fails is
 * tried again by the next call. Setting and clearing take the lock, reading does not; nothing is sent. Any thread, but
 * one at a time. Log lines go with debug flag BRI_DBG_VLAN.
 *
 * @code
 * // Port security takes a port, unless 802.1X or a mirror has it: 1 or 0.
 * int secure(uint32_t ifx) {
 *     uint32_t conflict = 0;
 *     const uint32_t rivals = BRI_DOT1X | BRI_MIR_DEST;
 *     return bridge_set_excflag(ifx, BRI_SECURE, rivals, &conflict) == 0;
 * }
 * @endcode
 */
#ifndef BRIDGE_PORT_EXCLUSION_H
#define BRIDGE_PORT_EXCLUSION_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

/* Highest interface index that has a flag word. */
#define BRI_EXCLUSION_IFX_MAX 8192u

/* Exclusion ids; higher bits may be stored but have no text. */
enum bri_exclusion_id {
    BRI_DOT1Q_TUNNEL = 1,
    BRI_MAC_COPY = 2,
    BRI_SECURE = 4,
    BRI_DOT1X = 8,
    BRI_MIR_DEST = 16,
    BRI_HOST = 32,
    BRI_PROMISCUOUS = 64
};

/* Data area of the segment "Port-Function-Mutex": the ids set on each interface. */
struct bri_exclusion_table {
    uint32_t flags[BRI_EXCLUSION_IFX_MAX + 1]; /* 0: one word per interface index 0..8192 */
};
BRI_SIZE(bri_exclusion_table, 32772);
BRI_AT(bri_exclusion_table, flags, 0);

/* Sets the bits of `id` on interface `ifx` (0..8192) unless one of the bits in `mask` is set there: test and setting
 * are one step across all processes. 0 with *conflict 0 when they were set; -1 with the bits of `mask` that were found
 * in *conflict when they were not, the interface unchanged; -1 with *conflict untouched for an index above 8192, a null
 * `conflict` or when the table cannot be had. */
BRI_API int bridge_set_excflag(uint32_t ifx, uint32_t id, uint32_t mask, uint32_t *conflict);

/* Clears the bits of `id` on interface `ifx`, also bits that are not set. 0, or -1 for an index above 8192 or when the
 * table cannot be had. */
BRI_API int bridge_unset_excflag(uint32_t ifx, uint32_t id);

/* Tells whether interface `ifx` has any flag: 1, else 0 (also for an index above 8192 and when the table cannot be
 * had). With 1, writes the index and the texts of the flags into `buf`, "%-4d %-36s", cut to `size` bytes with their
 * end; a null `buf` or size 0 gets nothing. */
BRI_API int bridge_coxmng_get_status(uint32_t ifx, char *buf, uint32_t size);

BRI_END_DECLS

#endif
