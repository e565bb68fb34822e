// Not built yet: every operation gives its failure value.
#include <bridge/bridge.h>

int vl_clnt_check_vlan_set(const char *, char *, uint32_t ) { return 0; }
int vl_clnt_vlist_str_to_map(const char *, struct vlanset *, char *, uint32_t ) { return 0; }
void vl_clnt_trim_str(char *) {}
void vl_clnt_exchange_int(int32_t *, int32_t *) {}
void vl_clnt_show_vlanlist(const struct vlanset *, uint32_t ) {}
int vl_clnt_vlist_vlan_line_format(char *, const struct vlanset *, int , int ) { return 0; }
void vl_clnt_show_vlan() {}
void vl_clnt_show_swport() {}
