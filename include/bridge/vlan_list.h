/* VLAN lists as text, and the VLAN and port tables printed.
 *
 * A list is VLAN ids and ranges of them between commas: 1-10,20,30-40. Nothing here sends anything. The list functions
 * may be called from any thread; the two tables belong to the event-loop thread.
 *
 * @code
 * // What an operator has typed; -1 with the error in the buffer.
 * int read_vlans(const char *typed, struct vlanset *vlans, char error[128]) {
 *     return vl_clnt_vlist_str_to_map(typed, vlans, error, 128) == 0 ? 0 : -1;
 * }
 * @endcode
 */
#ifndef BRIDGE_VLAN_LIST_H
#define BRIDGE_VLAN_LIST_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

/* Whether `text` is a VLAN list: 1 or 0. Its ids must lie in the database's range; a range may be written high to low;
 * single commas may stand at either end and spaces at the end, and a list may consist of them alone. A character that
 * does not belong, a comma behind a comma and a second "-" in an item give "illegal input character '%c' found!\n" in
 * `errbuf`, a number that is missing or out of range "vlanset input range error!\n". Nothing is written, and the result
 * is 0, for a null or empty text, a null `errbuf`, `errlen` (the size of `errbuf`) below 128, or without memory. */
BRI_API int vl_clnt_check_vlan_set(const char *text, char *errbuf, uint32_t errlen);

/* Reads a VLAN list into `*set`, its first 255 characters at most. Gives 0; -1 when text, set or errbuf is null; -2
 * when vl_clnt_check_vlan_set refuses the text, with its message in `errbuf` and `*set` as it was. Ids outside 1..4094
 * are left out, whatever the database's range. */
BRI_API int vl_clnt_vlist_str_to_map(const char *text, struct vlanset *set, char *errbuf, uint32_t errlen);

/* Removes every space from `text`, in place. Only the space character counts. Nothing for null. */
BRI_API void vl_clnt_trim_str(char *text);

/* Swaps two numbers. Nothing when a pointer is null. */
BRI_API void vl_clnt_exchange_int(int32_t *a, int32_t *b);

/* Writes the VLANs 1..4094 of `set` to the log as a compressed list, "ALL" for all of them. A line holds at most
 * `width` characters of list (255 at most; a single item may be longer than a narrow width) and starts in column 27. An
 * empty set is one empty line; null is none. Written whatever the debug flags. */
BRI_API void vl_clnt_show_vlanlist(const struct vlanset *set, uint32_t width);

/* Writes one line of a compressed list of the VLANs from `start_vid` (0 when it is below) to 4094 into `buf`, always
 * terminated. An id counts one item and a closed range two. A line ends at the first new id with which it holds
 * `max_items` items, at most 20: one more where that id comes behind a range, and never fewer than two. It then ends
 * with a comma and that id, which is returned and with which the next line begins. 0 when the list is complete, or a
 * pointer is null. `buf` holds at least 134 bytes. */
BRI_API int vl_clnt_vlist_vlan_line_format(char *buf, const struct vlanset *set, int start_vid, int max_items);

/* Writes the VLAN table to the log, whatever the debug flags; with the VLAN debug flag also the status of both
 * databases. The re-search runs for each VLAN (see bridge/vlan_client.h), so event handlers may be called. */
BRI_API void vl_clnt_show_vlan(void);

/* Writes the table of present ports with their allowed VLANs to the log, whatever the debug flags. */
BRI_API void vl_clnt_show_swport(void);

BRI_END_DECLS

#endif
