/* Uses one family of the library: reads a VLAN list. */
#include <bridge/vlan_list.h>

int main(int argc, char **argv) {
    char error[128];
    return vl_clnt_check_vlan_set(argc > 1 ? argv[1] : "1-10", error, sizeof error);
}
