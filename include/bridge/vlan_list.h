/* VLAN lists as text, and the VLAN and port tables printed. */
#ifndef BRIDGE_VLAN_LIST_H
#define BRIDGE_VLAN_LIST_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

BRI_API int vl_clnt_check_vlan_set(const char *text, char *errbuf, uint32_t errlen);

BRI_API int vl_clnt_vlist_str_to_map(const char *text, struct vlanset *set, char *errbuf, uint32_t errlen);

BRI_API void vl_clnt_trim_str(char *text);

BRI_API void vl_clnt_exchange_int(int32_t *a, int32_t *b);

BRI_API void vl_clnt_show_vlanlist(const struct vlanset *set, uint32_t width);

BRI_API int vl_clnt_vlist_vlan_line_format(char *buf, const struct vlanset *set, int start_vid, int max_items);

BRI_API void vl_clnt_show_vlan(void);

BRI_API void vl_clnt_show_swport(void);

BRI_END_DECLS

#endif
