#!/bin/sh
# static_link.sh PROGRAM NM SIZE LIBRARY: a program that is linked with the archive has what it uses, and nothing of other
# families; in all less than half of the library. What looks at the tables can raise events, which lead to the
# connection: that much everybody has.
set -eu
names=$("$2" --defined-only "$1" | awk '$2 ~ /[Tt]/ { print $3 }')
echo "$names" | grep -qx vl_clnt_check_vlan_set
for family in bridge_maddr_ mvlan_clnt_ vg_clnt_ vlan_group_ bridge_proto_ bridge_agent_ swport_tag_ vl_clnt_add_; do
    if echo "$names" | grep "^$family"; then
        echo "of a family that the program does not use"
        exit 1
    fi
done
text_of() { "$1" "$2" | awk 'NR == 2 { print $1 }'; }
program=$(text_of "$3" "$1")
library=$(text_of "$3" "$4")
echo "$program bytes, the whole library $library"
[ $((2 * program)) -lt "$library" ]
