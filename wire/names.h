// The values that have names, spelt as people write them.
#pragma once

#include "wire/record.h"

namespace wire {

inline constexpr Name kRegistrations[] = {{0, "withdraw"}, {1, "register"}};
inline constexpr Name kRoles[] = {{0, "master"}, {1, "slave"}};
inline constexpr Name kLinkStates[] = {{0, "down"}, {1, "up"}};
inline constexpr Name kSubmodules[] = {{BRI_SUBMOD_CLNT_MNG, "clnt_mng"},
                                       {BRI_SUBMOD_MAC, "mac"},
                                       {BRI_SUBMOD_VLAN, "vlan"},
                                       {BRI_SUBMOD_MVLAN, "mvlan"},
                                       {BRI_SUBMOD_L2TOP, "l2top"},
                                       {BRI_SUBMOD_QINQ, "qinq"},
                                       {BRI_SUBMOD_VLAN_MAP, "vlan_map"},
                                       {BRI_SUBMOD_VLAN_GROUP, "vlan_group"},
                                       {BRI_SUBMOD_PORTMAP, "portmap"},
                                       {BRI_SUBMOD_PROTVLAN, "protvlan"},
                                       {BRI_SUBMOD_PRIVLAN, "privlan"},
                                       {BRI_SUBMOD_SVLAN, "svlan"},
                                       {BRI_SUBMOD_RSPAN, "rspan"},
                                       {BRI_SUBMOD_GVRP, "gvrp"},
                                       {BRI_SUBMOD_EF, "ef"},
                                       {BRI_SUBMOD_L2_IPAM, "l2_ipam"},
                                       {BRI_SUBMOD_DEBUG, "debug"},
                                       {BRI_SUBMOD_RESEARCH, "research"},
                                       {BRI_SUBMOD_BCFG, "bcfg"}};

inline constexpr Name kMacEntryFlags[] = {{1, "forced"}};
inline constexpr Name kMacFields[] = {{BRI_MAC_FIELD_MAC, "mac"},
                                      {BRI_MAC_FIELD_IFX, "ifx"},
                                      {BRI_MAC_FIELD_TYPE, "type"},
                                      {BRI_MAC_FIELD_BCAST_ID, "bcast_id"}};
inline constexpr Name kMacTypes[] = {{BRI_MAC_TYPE_DYNAMIC, "dynamic"}, {BRI_MAC_TYPE_STATIC, "static"},
                                     {BRI_MAC_TYPE_FILTER, "filter"},   {BRI_MAC_TYPE_LOCAL, "local"},
                                     {BRI_MAC_TYPE_COPY, "copy"},       {BRI_MAC_TYPE_SECU, "secu"},
                                     {BRI_MAC_TYPE_OTHER, "other"},     {BRI_MAC_TYPE_TRUST, "trust"}};
inline constexpr Name kMacOpers[] = {{BRI_MAC_ADD, "add"}, {BRI_MAC_DEL, "del"}};
inline constexpr Name kMacVlanTypes[] = {{0, "add"}, {1, "del"}, {2, "query"}};
inline constexpr Name kMacVlanFlags[] = {{2, "dynamic"}};

inline constexpr Name kVlanModes[] = {
    {BRI_VLAN_STATIC, "static"}, {BRI_VLAN_DYNAMIC, "dynamic"}, {BRI_VLAN_SUPER, "super"}};
inline constexpr Name kOccasions[] = {
    {BRI_VLAN_OCCASION_NONE, "none"}, {BRI_VLAN_OCCASION_RECREATE, "recreate"}, {BRI_VLAN_OCCASION_REPLAY, "replay"}};
inline constexpr Name kMembershipKinds[] = {{BRI_MEMBERSHIP_STATIC, "static"}, {BRI_MEMBERSHIP_DYNAMIC, "dynamic"}};
inline constexpr Name kPortModes[] = {
    {BRI_PORT_ROUTE, "route"},   {BRI_PORT_ACCESS, "access"}, {BRI_PORT_TRUNK, "trunk"},   {BRI_PORT_HOST, "host"},
    {BRI_PORT_PROMIS, "promis"}, {BRI_PORT_TUNNEL, "tunnel"}, {BRI_PORT_UPLINK, "uplink"}, {BRI_PORT_HYBRID, "hybrid"}};
inline constexpr Name kExclusionIds[] = {{BRI_DOT1Q_TUNNEL, "dot1q-tunnel"},
                                         {BRI_MAC_COPY, "mac-copy"},
                                         {BRI_SECURE, "secure"},
                                         {BRI_DOT1X, "dot1x"},
                                         {BRI_MIR_DEST, "mirror-destination"},
                                         {BRI_HOST, "host"},
                                         {BRI_PROMISCUOUS, "promiscuous"}};

inline constexpr Name kInstances[] = {{BRI_L2TOP_INSTANCE_ALL, "all"}};
inline constexpr Name kProtocols[] = {{BRI_PROT_MSTP, "mstp"},   {BRI_PROT_GVRP, "gvrp"},   {BRI_PROT_LLDP, "lldp"},
                                      {BRI_PROT_ERPS, "erps"},   {BRI_PROT_RERP, "rerp"},   {BRI_PROT_REUP, "reup"},
                                      {BRI_PROT_RLDP, "rldp"},   {BRI_PROT_TPP, "tpp"},     {BRI_PROT_CDP, "cdp"},
                                      {BRI_PROT_DHCP4, "dhcp4"}, {BRI_PROT_DHCP6, "dhcp6"}, {BRI_PROT_TILL, "till"}};
inline constexpr Name kProtocolBits[] = {
    {1U << BRI_PROT_MSTP, "mstp"},   {1U << BRI_PROT_GVRP, "gvrp"},   {1U << BRI_PROT_LLDP, "lldp"},
    {1U << BRI_PROT_ERPS, "erps"},   {1U << BRI_PROT_RERP, "rerp"},   {1U << BRI_PROT_REUP, "reup"},
    {1U << BRI_PROT_RLDP, "rldp"},   {1U << BRI_PROT_TPP, "tpp"},     {1U << BRI_PROT_CDP, "cdp"},
    {1U << BRI_PROT_DHCP4, "dhcp4"}, {1U << BRI_PROT_DHCP6, "dhcp6"}, {1U << BRI_PROT_TILL, "till"}};

} // namespace wire
