/* Port exclusion flags: which port features already run on an interface. */
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

BRI_API int bridge_set_excflag(uint32_t ifx, uint32_t id, uint32_t mask, uint32_t *conflict);

BRI_API int bridge_unset_excflag(uint32_t ifx, uint32_t id);

BRI_API int bridge_coxmng_get_status(uint32_t ifx, char *buf, uint32_t size);

BRI_END_DECLS

#endif
