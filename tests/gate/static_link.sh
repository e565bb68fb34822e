#!/bin/sh
# static_link.sh PROGRAM NM: a program that is linked with the archive has what it uses, and nothing of other families.
set -eu
names=$("$2" --defined-only "$1" | awk '{ print $3 }')
echo "$names" | grep -qx vl_clnt_check_vlan_set
for family in bridge_maddr_ mvlan_clnt_ vg_clnt_ swport_clnt_ bridge_lib_query bridge_agent_init bri_clnt_on_; do
    if echo "$names" | grep "^$family"; then
        echo "of a family that the program does not use"
        exit 1
    fi
done
echo "$(echo "$names" | wc -l) names"
