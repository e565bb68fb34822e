/* Sets of events, VLANs and ports, and MAC addresses: what a daemon does with them every day, written out in this
 * header. Nothing here is exported by the library, allocates, logs or sends.
 *
 * The sets are the interface's own: what is put together here goes into a registration, a request or a reply as it
 * stands, and what came with an event or out of a table is read here. A set begins cleared: struct vlanset set = {{0}}.
 * A set has usable numbers only: events 1..4095, VLANs 1..4094, ports 1..63. Other bits of its words are neither set
 * nor taken away nor told of, except that clearing clears everything.
 *
 * @code
 * uint32_t sum_of_ids(const struct vlanset *set) {
 *     uint32_t sum = 0;
 *     uint32_t vid = 0;
 *     while ((vid = bri_vlanset_next(set, vid)) != 0)
 *         sum += vid;
 *     return sum;
 * }
 * @endcode
 *
 * A list text is numbers and ranges between commas, "1-10,20". It has no blanks and no empty items; a range may be
 * written high to low; the empty text is the empty set. Sets are written in rising order, two numbers in a row and more
 * as a range.
 *
 * Any thread, for objects of its own. A set in shared memory can change while it is read, and others' bits would be
 * lost by changing it here: copy it, and change it with the functions of its table. Pointers are not null where nothing
 * else is said.
 */
#ifndef BRIDGE_SETS_H
#define BRIDGE_SETS_H

#include <bridge/base.h>
#include <bridge/port_db.h>
#include <bridge/vlan_db.h>

#include <stdio.h>
#include <string.h>

BRI_BEGIN_DECLS

#define BRI_EVENT_MAX 4095u                /* greatest event type of a set; the least is 1 */
#define BRI_IFX_MAX   (BRI_PORT_SLOTS - 1) /* greatest interface index of a set; the least is 1 */

/* Sizes with which every text of its kind fits, its NUL included. */
#define BRI_SET_TEXT_SIZE      12912u /* list text of events or VLANs */
#define BRI_PORT_SET_TEXT_SIZE 120u   /* list text of ports */
#define BRI_MAC_TEXT_SIZE      18u    /* address */

/* A set of ports: interface index i is bit i & 31 of word i >> 5. The words are those that the VLAN table holds for its
 * members, and those that vl_get_vlan_port_bmap() fills. */
struct bri_port_set {
    uint32_t words[2]; /* 0 */
};
BRI_SIZE(bri_port_set, 8);
BRI_AT(bri_port_set, words, 0);

/* What the three kinds have in common: numbers 1..last in last / 32 + 1 words, 128 at most. Not for hosts. */

/* Whether `id` is a number that the set can have. */
static inline int bri_words_take(uint32_t id, uint32_t last) {
    return id >= 1 && id <= last;
}

/* 1 when `id` is there, else 0. */
static inline int bri_words_has(const uint32_t *words, uint32_t last, uint32_t id) {
    return bri_words_take(id, last) && (words[id >> 5] >> (id & 31) & 1) != 0;
}

/* Puts `id` in: 0, or -1 when it is out of range. */
static inline int bri_words_add(uint32_t *words, uint32_t last, uint32_t id) {
    if (!bri_words_take(id, last))
        return -1;
    words[id >> 5] |= UINT32_C(1) << (id & 31);
    return 0;
}

/* Takes `id` out: 0, or -1 when it is out of range. */
static inline int bri_words_remove(uint32_t *words, uint32_t last, uint32_t id) {
    if (!bri_words_take(id, last))
        return -1;
    words[id >> 5] &= ~(UINT32_C(1) << (id & 31));
    return 0;
}

/* The least number above `after` that is there; 0 when there is none. */
static inline uint32_t bri_words_next(const uint32_t *words, uint32_t last, uint32_t after) {
    if (after >= last)
        return 0;
    uint32_t index = (after + 1) >> 5;
    uint32_t left = words[index] & ~UINT32_C(0) << ((after + 1) & 31);
    while (left == 0) {
        if (++index > last >> 5)
            return 0;
        left = words[index];
    }
    const uint32_t id = index * 32 + (uint32_t)__builtin_ctz(left);
    return id <= last ? id : 0;
}

/* How many numbers are there. */
static inline uint32_t bri_words_count(const uint32_t *words, uint32_t last) {
    uint32_t count = 0;
    for (uint32_t index = 0; index <= last >> 5; ++index)
        count += (uint32_t)__builtin_popcount(words[index]);
    count -= words[0] & 1;
    return (last & 31) == 31 ? count : count - (uint32_t)__builtin_popcount(words[last >> 5] >> (last & 31) >> 1);
}

/* Puts first..last_id in, in either order: 0, or -1 with nothing changed when one of them is out of range. */
static inline int bri_words_add_range(uint32_t *words, uint32_t last, uint32_t first, uint32_t last_id) {
    if (!bri_words_take(first, last) || !bri_words_take(last_id, last))
        return -1;
    const uint32_t end = first < last_id ? last_id : first;
    for (uint32_t id = first < last_id ? first : last_id; id <= end; ++id)
        words[id >> 5] |= UINT32_C(1) << (id & 31);
    return 0;
}

/* Reads the digits at `text` into *id. What stands behind them; null when there are none or their number is none of the
 * set's. */
static inline const char *bri_words_number(const char *text, uint32_t last, uint32_t *id) {
    const char *at = text;
    for (*id = 0; *at >= '0' && *at <= '9'; ++at) {
        *id = *id * 10 + (uint32_t)(*at - '0');
        if (*id > last)
            return NULL;
    }
    return bri_words_take(*id, last) ? at : NULL;
}

/* Reads a list text: 0, or -1 with the set as it was. */
static inline int bri_words_from_text(uint32_t *words, uint32_t last, const char *text) {
    uint32_t read[128] = {0};
    uint32_t first = 0;
    uint32_t end = 0;
    if (text == NULL)
        return -1;
    for (const char *at = text; *at != '\0'; ++at) {
        at = bri_words_number(at, last, &first);
        end = first;
        if (at != NULL && *at == '-')
            at = bri_words_number(at + 1, last, &end);
        if (at == NULL || bri_words_add_range(read, last, first, end) != 0)
            return -1;
        if (*at == '\0')
            break;
        if (*at != ',' || at[1] == '\0')
            return -1;
    }
    memcpy(words, read, ((last >> 5) + 1) * sizeof *words);
    return 0;
}

/* Writes the list text as the functions below say. */
static inline size_t bri_words_to_text(const uint32_t *words, uint32_t last, char *buf, size_t size) {
    size_t length = 0;
    size_t written = 0;
    char item[24];
    for (uint32_t first = bri_words_next(words, last, 0), end = 0; first != 0;
         first = bri_words_next(words, last, end)) {
        for (end = first; bri_words_has(words, last, end + 1);)
            ++end;
        const char *comma = length == 0 ? "" : ",";
        const int count = first == end ? snprintf(item, sizeof item, "%s%u", comma, (unsigned)first)
                                       : snprintf(item, sizeof item, "%s%u-%u", comma, (unsigned)first, (unsigned)end);
        if (written == length && length + (size_t)count < size) {
            memcpy(buf + length, item, (size_t)count);
            written += (size_t)count;
        }
        length += (size_t)count;
    }
    if (size != 0)
        buf[written] = '\0';
    return length;
}

/* Events. */

/* Puts an event in. 0, or -1 when it is out of range. */
static inline int bri_event_set_add(struct event_set *set, uint32_t type) {
    return bri_words_add(set->words, BRI_EVENT_MAX, type);
}

/* Puts all from `first` to `last` in, in either order. 0, or -1 with nothing changed when one of them is out of range.
 */
static inline int bri_event_set_add_range(struct event_set *set, uint32_t first, uint32_t last) {
    return bri_words_add_range(set->words, BRI_EVENT_MAX, first, last);
}

/* Takes an event out, also one that is not there. 0, or -1 when it is out of range. */
static inline int bri_event_set_remove(struct event_set *set, uint32_t type) {
    return bri_words_remove(set->words, BRI_EVENT_MAX, type);
}

/* 1 when the event is there, else 0, also when it is out of range. */
static inline int bri_event_set_has(const struct event_set *set, uint32_t type) {
    return bri_words_has(set->words, BRI_EVENT_MAX, type);
}

/* The least event above `after` that is there, 0 when there is none. Begin with 0; `after` need not be there. */
static inline uint32_t bri_event_set_next(const struct event_set *set, uint32_t after) {
    return bri_words_next(set->words, BRI_EVENT_MAX, after);
}

/* How many events there are. */
static inline uint32_t bri_event_set_count(const struct event_set *set) {
    return bri_words_count(set->words, BRI_EVENT_MAX);
}

/* Empties the set, all words of it. */
static inline void bri_event_set_clear(struct event_set *set) {
    memset(set, 0, sizeof *set);
}

/* Makes the set what a list text says. 0, or -1 with the set as it was for null and for any other text. */
static inline int bri_event_set_from_text(struct event_set *set, const char *text) {
    return bri_words_from_text(set->words, BRI_EVENT_MAX, text);
}

/* Writes the list text into `size` bytes at `buf`, always terminated. The length of the whole text; when that is `size`
 * or more, items are missing from the end, but none is cut. BRI_SET_TEXT_SIZE is always enough. `size` 0 writes
 * nothing, `buf` may be null then. */
static inline size_t bri_event_set_to_text(const struct event_set *set, char *buf, size_t size) {
    return bri_words_to_text(set->words, BRI_EVENT_MAX, buf, size);
}

/* VLANs. */

/* Puts a VLAN in. 0, or -1 when it is out of range. */
static inline int bri_vlanset_add(struct vlanset *set, uint32_t vid) {
    return bri_words_add(set->words, BRI_VID_MAX, vid);
}

/* Puts all from `first` to `last` in, in either order. 0, or -1 with nothing changed when one of them is out of range.
 */
static inline int bri_vlanset_add_range(struct vlanset *set, uint32_t first, uint32_t last) {
    return bri_words_add_range(set->words, BRI_VID_MAX, first, last);
}

/* Takes a VLAN out, also one that is not there. 0, or -1 when it is out of range. */
static inline int bri_vlanset_remove(struct vlanset *set, uint32_t vid) {
    return bri_words_remove(set->words, BRI_VID_MAX, vid);
}

/* 1 when the VLAN is there, else 0, also when it is out of range. */
static inline int bri_vlanset_has(const struct vlanset *set, uint32_t vid) {
    return bri_words_has(set->words, BRI_VID_MAX, vid);
}

/* The least VLAN above `after` that is there, 0 when there is none. Begin with 0; `after` need not be there. */
static inline uint32_t bri_vlanset_next(const struct vlanset *set, uint32_t after) {
    return bri_words_next(set->words, BRI_VID_MAX, after);
}

/* How many VLANs there are. */
static inline uint32_t bri_vlanset_count(const struct vlanset *set) {
    return bri_words_count(set->words, BRI_VID_MAX);
}

/* Empties the set, all words of it. */
static inline void bri_vlanset_clear(struct vlanset *set) {
    memset(set, 0, sizeof *set);
}

/* Makes the set what a list text says. 0, or -1 with the set as it was for null and for any other text. */
static inline int bri_vlanset_from_text(struct vlanset *set, const char *text) {
    return bri_words_from_text(set->words, BRI_VID_MAX, text);
}

/* Writes the list text into `size` bytes at `buf`, always terminated. The length of the whole text; when that is `size`
 * or more, items are missing from the end, but none is cut. BRI_SET_TEXT_SIZE is always enough. `size` 0 writes
 * nothing, `buf` may be null then. */
static inline size_t bri_vlanset_to_text(const struct vlanset *set, char *buf, size_t size) {
    return bri_words_to_text(set->words, BRI_VID_MAX, buf, size);
}

/* Ports. */

/* Puts a port in. 0, or -1 when it is out of range. */
static inline int bri_port_set_add(struct bri_port_set *set, uint32_t ifx) {
    return bri_words_add(set->words, BRI_IFX_MAX, ifx);
}

/* Puts all from `first` to `last` in, in either order. 0, or -1 with nothing changed when one of them is out of range.
 */
static inline int bri_port_set_add_range(struct bri_port_set *set, uint32_t first, uint32_t last) {
    return bri_words_add_range(set->words, BRI_IFX_MAX, first, last);
}

/* Takes a port out, also one that is not there. 0, or -1 when it is out of range. */
static inline int bri_port_set_remove(struct bri_port_set *set, uint32_t ifx) {
    return bri_words_remove(set->words, BRI_IFX_MAX, ifx);
}

/* 1 when the port is there, else 0, also when it is out of range. */
static inline int bri_port_set_has(const struct bri_port_set *set, uint32_t ifx) {
    return bri_words_has(set->words, BRI_IFX_MAX, ifx);
}

/* The least port above `after` that is there, 0 when there is none. Begin with 0; `after` need not be there. */
static inline uint32_t bri_port_set_next(const struct bri_port_set *set, uint32_t after) {
    return bri_words_next(set->words, BRI_IFX_MAX, after);
}

/* How many ports there are. */
static inline uint32_t bri_port_set_count(const struct bri_port_set *set) {
    return bri_words_count(set->words, BRI_IFX_MAX);
}

/* Empties the set, all words of it. */
static inline void bri_port_set_clear(struct bri_port_set *set) {
    memset(set, 0, sizeof *set);
}

/* Makes the set what a list text says. 0, or -1 with the set as it was for null and for any other text. */
static inline int bri_port_set_from_text(struct bri_port_set *set, const char *text) {
    return bri_words_from_text(set->words, BRI_IFX_MAX, text);
}

/* Writes the list text into `size` bytes at `buf`, always terminated. The length of the whole text; when that is `size`
 * or more, items are missing from the end, but none is cut. BRI_PORT_SET_TEXT_SIZE is always enough. `size` 0 writes
 * nothing, `buf` may be null then. */
static inline size_t bri_port_set_to_text(const struct bri_port_set *set, char *buf, size_t size) {
    return bri_words_to_text(set->words, BRI_IFX_MAX, buf, size);
}

/* MAC addresses: 6 bytes in transmission order. */

/* The value of a hexadecimal digit in either case; -1 for another character. Not for hosts. */
static inline int bri_mac_digit(char text) {
    if (text >= '0' && text <= '9')
        return text - '0';
    if (text >= 'a' && text <= 'f')
        return text - 'a' + 10;
    return text >= 'A' && text <= 'F' ? text - 'A' + 10 : -1;
}

/* Reads an address: 02:00:5e:10:00:01, 02-00-5e-10-00-01 or 0200.5e10.0001, digits in either case and all of them. 0,
 * or -1 with `mac` as it was for null and for any other text. */
static inline int bri_mac_from_text(uint8_t mac[6], const char *text) {
    uint8_t read[6];
    if (text == NULL)
        return -1;
    const char *at = text;
    char between = 0;
    for (unsigned i = 0; i < 6; ++i) {
        if (i == 1)
            between = (char)(*at == ':' || *at == '-' ? *at : '.');
        if (i != 0 && (between != '.' || i % 2 == 0) && *at++ != between)
            return -1;
        const int high = bri_mac_digit(at[0]);
        const int low = high < 0 ? -1 : bri_mac_digit(at[1]);
        if (low < 0)
            return -1;
        read[i] = (uint8_t)(high << 4 | low);
        at += 2;
    }
    if (*at != '\0')
        return -1;
    memcpy(mac, read, sizeof read);
    return 0;
}

/* Writes an address as 02:00:5e:10:00:01 into `size` bytes at `buf`; the empty text when `size` is below
 * BRI_MAC_TEXT_SIZE, nothing when it is 0. `buf`. */
static inline char *bri_mac_to_text(const uint8_t mac[6], char *buf, size_t size) {
    static const char digits[] = "0123456789abcdef";
    if (size >= BRI_MAC_TEXT_SIZE)
        for (size_t i = 0; i < 6; ++i) {
            buf[3 * i] = digits[mac[i] >> 4];
            buf[3 * i + 1] = digits[mac[i] & 15];
            buf[3 * i + 2] = i < 5 ? ':' : '\0';
        }
    else if (size != 0)
        *buf = '\0';
    return buf;
}

/* Below 0, 0 or above 0 as the first address, read as a number, is less than the second, the same or greater. */
static inline int bri_mac_compare(const uint8_t mac[6], const uint8_t other[6]) {
    return memcmp(mac, other, 6);
}

/* 1 when the address is all zeros, which is no address, else 0. */
static inline int bri_mac_is_zero(const uint8_t mac[6]) {
    return (mac[0] | mac[1] | mac[2] | mac[3] | mac[4] | mac[5]) == 0;
}

/* 1 for a group address, the broadcast address among them, else 0. */
static inline int bri_mac_is_multicast(const uint8_t mac[6]) {
    return mac[0] & 1;
}

BRI_END_DECLS

#endif
