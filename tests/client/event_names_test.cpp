#include "tests/support/test.h"

#include <map>

namespace {

// Written down from the interface, code by code; nothing here comes from the library's tables.
const std::map<uint32_t, std::string> kNames{
    {129, "BRIDGE_EVENT_REG_MSG"},
    {130, "BRIDGE_EVENT_ORI_DATA_OVER"},
    {131, "BRIDGE_EVENT_BKUP_DATA_BEGIN"},
    {132, "BRIDGE_EVENT_BKUP_DATA_END"},
    {133, "BRIDGE_EVENT_SYNC_DATA_BEGIN"},
    {134, "BRIDGE_EVENT_SYNC_DATA_END"},
    {135, "BRIDGE_EVENT_ORI_DATA_REQUEST"},
    {136, "BRIDGE_EVEVT_SERVER_STAT"},
    {137, "BRIDGE_EVENT_KERNEL_DATA_REQ"},
    {138, "BRIDGE_EVENT_SWITCHOVER_BEGIN"},
    {139, "BRIDGE_EVENT_SWITCHOVER_END"},
    {140, "BRIDGE_EVEVT_MS_ROLE_STAT"},
    {141, "BRIDGE_EVEVT_CLI_FLUSH_OVER"},
    {142, "BRIDGE_EVEVT_MS_BATCH_SYNC_OVER"},
    {143, "BRIDGE_EVEVT_EF_BATCH_PROC_OVER"},
    {144, "BRIDGE_EVEVT_MS_NTF_BKUP_OVER"},

    {257, "MAC_EVENT_SYNC_DATA_BEGIN"},
    {258, "MAC_EVENT_SYNC_DATA_END"},
    {259, "MAC_EVENT_SYNC_ADDR"},
    {260, "MAC_EVENT_SYNC_NONDYN"},
    {261, "MAC_EVENT_NOTIFY_ADDR"},
    {262, "MAC_EVENT_NOTIFY_NONDYN"},
    {263, "MAC_EVENT_SET_AGETIME"},
    {264, "MAC_EVENT_SET_AGETIME_RANGE"},
    {265, "MAC_EVENT_DYN_FLUSH"},
    {266, "MAC_EVENT_DYN_MOVE"},
    {267, "MAC_EVENT_DEL_DYN_ON_VLANMAP"},
    {268, "MAC_EVENT_DEL_DYN_ON_INTF_VLANMAP"},
    {269, "MAC_EVENT_INTF_LEARN"},
    {270, "MAC_EVENT_GLOBAL_LEARN"},
    {271, "MAC_EVENT_SET_AVAILABLE_MAC"},
    {272, "MAC_EVENT_ROLLBACK_ADDR"},
    {273, "MAC_EVENT_BYPASS_ADDR"},
    {274, "MAC_EVENT_SS_NOTIFY_ADDR"},
    {275, "MAC_EVENT_DYN_CHECK_BEGIN"},
    {276, "MAC_EVENT_DYN_CHECK_END"},
    {277, "MAC_EVENT_NONDYN_CHECK_BEGIN"},
    {278, "MAC_EVENT_NONDYN_CHECK_END"},
    {279, "MAC_EVENT_MIB_GET_FIRST"},
    {280, "MAC_EVENT_MIB_GET_NEXT"},
    {281, "MAC_EVENT_QUERY_MAC_SHOW"},
    {282, "MAC_EVENT_QUERY_MAC_COUNT"},
    {283, "MAC_EVENT_QUERY_TYPES_COUNT"},
    {284, "MAC_EVENT_SERVER_FIND_FIRST"},
    {285, "MAC_EVENT_SERVER_FIND_NEXT"},
    {286, "MAC_EVENT_CLIENT_FIND_FIRST"},
    {287, "MAC_EVENT_CLIENT_FIND_NEXT"},
    {288, "MAC_EVENT_EXCEED_ADDR_CAPA"},
    {289, "MAC_EVENT_NONDYN_SYNC_REQUEST"},
    {290, "MAC_EVENT_ADDR_SYNC_REQUEST"},
    {300, "MAC_EVENT_BACKUP_REQ"},

    {385, "VLAN_EVENT_SYNC_DATA_BEGIN"},
    {386, "VLAN_EVENT_SYNC_DATA_END"},
    {387, "VLAN_EVENT_CREATE_INDEX"},
    {388, "VLAN_EVENT_DESTROY_INDEX"},
    {389, "VLAN_EVENT_CREATE_RANGE"},
    {390, "VLAN_EVENT_DESTROY_RANGE"},
    {391, "VLAN_EVENT_DESTROY_ROLLBACK"},
    {392, "VLAN_EVENT_RENAME"},
    {393, "VLAN_EVENT_MODIFY_VLAN_MODE"},
    {394, "VLAN_EVENT_MODE_RANGE"},
    {395, "VLAN_EVENT_DEFAULT_RANGE"},
    {396, "VLAN_EVENT_CREATE_PREJ"},
    {397, "VLAN_EVENT_CREATE_RANGE_PREJ"},
    {398, "VLAN_EVENT_CREATE_INTF"},
    {399, "VLAN_EVENT_DESTROY_INTF"},
    {400, "VLAN_EVENT_DEFAULT_INTF"},
    {401, "VLAN_EVENT_INTF_STATE"},
    {402, "VLAN_EVENT_ADD_INTF"},
    {403, "VLAN_EVENT_RANGE_ADD_INTF"},
    {404, "VLAN_EVENT_DEL_INTF"},
    {405, "VLAN_EVENT_RANGE_DEL_INTF"},
    {406, "VLAN_EVENT_MODIFY_TAG"},
    {407, "VLAN_EVENT_MODIFY_INTF_MODE"},
    {408, "VLAN_EVENT_INTF_NO_MODE"},
    {409, "VLAN_EVENT_MODIFY_INTF_PVID"},
    {410, "VLAN_EVENT_MODIFY_INTF_ALLOWVL"},
    {411, "VLAN_EVENT_SVI_CREATE_DESTROY"},
    {412, "VLAN_EVENT_SVI_MODIFY_UP_NUM"},
    {413, "VLAN_EVENT_SET_ADD_DYN_INTF"},
    {414, "VLAN_EVENT_SET_DEL_DYN_INTF"},
    {415, "VLAN_EVENT_DYN_MEM_ADD_RANG"},
    {416, "VLAN_EVENT_DYN_MEM_DEL_RANG"},
    {417, "VLAN_EVENT_SP_ADD_ALLOW_VLAN"},
    {418, "VLAN_EVENT_SP_RMV_ALLOW_VLAN"},
    {419, "VLAN_EVENT_SET_VSWPT_NUM"},
    {421, "VLAN_EVENT_SP_RMV_SUB_IF_VLAN"},

    {1153, "BRI_EVT_CFG_PORTMAP"},
    {1154, "BRI_EVT_PORTMAP_SYNC_BEGIN"},
    {1155, "BRI_EVT_PORTMAP_SYNC_END"},

    {1539, "VLAN_EVENT_SUPER_CREATE"},
    {1540, "VLAN_EVENT_SUPER_DELETE"},
    {1541, "VLAN_EVENT_SUPER_CREATE_RANGE"},
    {1542, "VLAN_EVENT_SUPER_DELETE_RANGE"},
    {1543, "VLAN_EVENT_SUPER_RANG_DEL_SUB"},
    {1544, "VLAN_EVENT_SUPER_ADD_RANGE_SUB"},
    {1545, "VLAN_EVENT_SUPER_DEL_RANGE_SUB"},
    {1546, "VLAN_EVENT_ARPROXY"},
    {1547, "VLAN_EVENT_SUB_IP"},

    {1667, "RSPAN_EVENT_VLAN_CREATE"},
    {1668, "RSPAN_EVENT_VLAN_DELETE"},
    {1669, "RSPAN_EVENT_CREATE_RANGE"},
    {1670, "RSPAN_EVENT_DELETE_RANGE"},

    {2049, "L2_IPAM_EVENT_SYNC_DATA_BEGIN"},
    {2050, "L2_IPAM_EVENT_SYNC_DATA_END"},
    {2051, "L2_IPAM_ADD_VLANLST"},
    {2052, "L2_IPAM_DEL_VLANLST"},
    {2053, "L2_IPAM_EVT_GLOBAL_CFG"},
};

const std::map<uint32_t, std::string> kFallbacks{
    {1, "BRI_EVT_CLNT_MNG_UNKOWEN"}, {2, "ERROR_BRIDGE_MAC_TYPE"}, {6, "QINQ EVENT"}, {7, "VMAP EVENT"},
    {9, "BRI_EVT_PORTMAP_UNKNOWN"},  {16, "L2_IPAM_EVT_UNKNOWN"},
};

std::string expected_name(uint32_t type) {
    if (const auto name = kNames.find(type); name != kNames.end())
        return name->second;
    const auto fallback = kFallbacks.find(type / 128);
    return fallback != kFallbacks.end() ? fallback->second : "BRIDGE_UNKNOWN_TYPE";
}

TEST(EventNames, are_right_for_every_type_that_can_be_registered) {
    for (uint32_t type = 0; type < 4096; ++type)
        EXPECT_EQ(bri_msg_type_name(type), expected_name(type)) << type;
}

TEST(EventNames, are_unknown_for_every_type_beyond) {
    for (uint32_t type = 4096; type < 0x20000; ++type)
        ASSERT_STREQ(bri_msg_type_name(type), "BRIDGE_UNKNOWN_TYPE") << type;
    for (const uint32_t type : {0x10000U + 387, 0x7FFFFFFFU, 0x80000000U, 0x80000081U, 0xFFFFFFFFU})
        EXPECT_STREQ(bri_msg_type_name(type), "BRIDGE_UNKNOWN_TYPE") << type;
}

TEST(EventNames, cover_the_tables_whole) {
    EXPECT_EQ(kNames.size(), 108U);
    for (const auto &[type, name] : kNames)
        EXPECT_STREQ(bri_msg_type_name(type), name.c_str());
}

TEST(EventNames, of_the_edges) {
    EXPECT_STREQ(bri_msg_type_name(0), "BRIDGE_UNKNOWN_TYPE");
    EXPECT_STREQ(bri_msg_type_name(127), "BRIDGE_UNKNOWN_TYPE");
    EXPECT_STREQ(bri_msg_type_name(128), "BRI_EVT_CLNT_MNG_UNKOWEN");
    EXPECT_STREQ(bri_msg_type_name(145), "BRI_EVT_CLNT_MNG_UNKOWEN");
    EXPECT_STREQ(bri_msg_type_name(291), "ERROR_BRIDGE_MAC_TYPE");
    EXPECT_STREQ(bri_msg_type_name(299), "ERROR_BRIDGE_MAC_TYPE");
    EXPECT_STREQ(bri_msg_type_name(420), "BRIDGE_UNKNOWN_TYPE");
    EXPECT_STREQ(bri_msg_type_name(515), "BRIDGE_UNKNOWN_TYPE");
    EXPECT_STREQ(bri_msg_type_name(641), "BRIDGE_UNKNOWN_TYPE");
    EXPECT_STREQ(bri_msg_type_name(800), "QINQ EVENT");
    EXPECT_STREQ(bri_msg_type_name(1025), "BRIDGE_UNKNOWN_TYPE");
    EXPECT_STREQ(bri_msg_type_name(1156), "BRI_EVT_PORTMAP_UNKNOWN");
    EXPECT_STREQ(bri_msg_type_name(1537), "BRIDGE_UNKNOWN_TYPE");
    EXPECT_STREQ(bri_msg_type_name(2054), "L2_IPAM_EVT_UNKNOWN");
    EXPECT_STREQ(bri_msg_type_name(2175), "L2_IPAM_EVT_UNKNOWN");
    EXPECT_STREQ(bri_msg_type_name(2176), "BRIDGE_UNKNOWN_TYPE");
    EXPECT_STREQ(bri_msg_type_name(2309), "BRIDGE_UNKNOWN_TYPE");
}

TEST(EventNames, of_submodules) {
    const std::map<uint32_t, std::string> names{
        {1, "BRI_SUBMOD_CLNT_MNG"}, {2, "BRI_SUBMOD_MAC"},      {3, "BRI_SUBMOD_VLAN"},    {5, "BRI_SUBMOD_L2TOP"},
        {6, "BRI_SUBMOD_QINQ"},     {7, "BRI_SUBMOD_VLAN_MAP"}, {9, "BRI_SUBMOD_PORTMAP"}, {10, "BRI_SUBMOD_PROTVLAN"},
        {11, "BRI_SUBMOD_PRIVLAN"}, {12, "BRI_SUBMOD_SVLAN"},   {13, "BRI_SUBMOD_RSPAN"},  {14, "BRI_SUBMOD_GVRP"},
        {15, "BRI_SUBMOD_EF"},      {16, "BRI_SUBMOD_L2_IPAM"}, {17, "BRI_SUBMOD_DEBUG"},  {18, "BRI_SUBMOD_RESEARCH"},
        {19, "BRI_SUBMOD_BCFG"},
    };
    for (uint32_t submod = 0; submod < 300; ++submod) {
        const auto name = names.find(submod);
        EXPECT_EQ(bri_submod_name(submod), name != names.end() ? name->second : "ERROR_BRI_SUBMOD") << submod;
    }
    EXPECT_STREQ(bri_submod_name(0x80000000), "ERROR_BRI_SUBMOD");
    EXPECT_STREQ(bri_submod_name(0xFFFFFFFF), "ERROR_BRI_SUBMOD");
}

} // namespace
