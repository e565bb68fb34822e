// The VLAN table and the port table as they are printed.
#include "tests/vlan/vlan_fixture.h"

namespace {

using namespace test;

class VlanTable : public MappedVlanTest {
  protected:
    static std::string print() {
        clear_log();
        vl_clnt_show_vlan();
        return log_text();
    }
    // The rows alone.
    static std::string rows() {
        const std::string text = print();
        return text.substr(kHead.size());
    }
    static const std::string kHead;
};

const std::string VlanTable::kHead =
    "VLAN Name       Version Status    Svi_ifx Up_num Proxy Ports\n"
    "---- ---------- ------- --------- ------- ------ ----- -----------------------------------\n";

TEST_F(VlanTable, of_no_vlan_is_its_head) {
    EXPECT_EQ(print(), kHead);
    ASSERT_EQ(log_lines().size(), 2U);
    EXPECT_EQ(log_lines()[0].category(), kShownHead);
    EXPECT_EQ(log_lines()[1].category(), kShownLine);
}

TEST_F(VlanTable, row_to_the_column) {
    vle &entry = add_vlan(10, BRI_VLAN_STATIC, {1, 2, 3});
    entry.up_mem = 2;
    vl_set_svi(10, 4099);
    for (const int ifx : {1, 2, 3})
        add_port(ifx, BRI_PORT_TRUNK);
    EXPECT_EQ(rows(),
              "  10 VLAN0010         1 STATIC    4099    2      ON    1, 2, 3                               \n");
    const LogLine row = log_lines().back();
    EXPECT_EQ(row.category(), kShownLine);
    EXPECT_EQ(row.format, "%4d %-10s %7d %-9s %-7d %-6d %-5s %-38s\n");
}

TEST_F(VlanTable, row_without_ports_keeps_its_last_column) {
    add_vlan(4094);
    EXPECT_EQ(rows(), "4094 VLAN4094         1 STATIC    0       0      ON    " + repeat(' ', 38) + "\n");
}

TEST_F(VlanTable, status_by_mode) {
    add_vlan(1, BRI_VLAN_STATIC);
    add_vlan(2, BRI_VLAN_DYNAMIC);
    add_vlan(3, BRI_VLAN_SUPER);
    add_vlan(4, BRI_VLAN_SUPER).manage_vid = 3;
    add_vlan(5, 3);
    add_vlan(6, 0);
    const std::string text = rows();
    std::vector<std::string> found;
    for (const LogLine &line : log_lines())
        found.push_back(line.text.substr(24, 9));
    EXPECT_EQ(std::vector<std::string>(found.begin() + 2, found.end()),
              (std::vector<std::string>{"STATIC   ", "DYNAMIC  ", "SUPER    ", "SUB      ", "Unknown  ", "Unknown  "}));
}

TEST_F(VlanTable, proxy_is_on_for_any_flag_but_0) {
    add_vlan(10).proxy = 2;
    EXPECT_EQ(rows().substr(49, 5), "ON   ");
}

TEST_F(VlanTable, proxy_off) {
    add_vlan(10).proxy = 0;
    EXPECT_EQ(rows(), "  10 VLAN0010         1 STATIC    0       0      OFF   " + repeat(' ', 38) + "\n");
}

TEST_F(VlanTable, long_name_pushes_the_row) {
    std::strcpy(add_vlan(10).name, "a_name_of_more_than_ten");
    EXPECT_EQ(rows(), "  10 a_name_of_more_than_ten       1 STATIC    0       0      ON    " + repeat(' ', 38) + "\n");
}

TEST_F(VlanTable, name_without_a_terminator_shows_35_characters) {
    std::memset(add_vlan(10).name, 'n', 36);
    EXPECT_EQ(rows().substr(5, 36), repeat('n', 35) + " ");
}

TEST_F(VlanTable, version_is_the_private_one) {
    add_vlan(10);
    vl_get_vlan_entry(10)->version = 40000;
    g_vlan_private_version[10] = 40000;
    EXPECT_EQ(rows().substr(16, 7), "  40000");
}

TEST_F(VlanTable, ports_stand_four_on_a_line) {
    add_vlan(10, BRI_VLAN_STATIC, {0, 1, 5, 32, 60, 61, 62, 63});
    add_vlan(11, BRI_VLAN_STATIC, {1, 5, 32, 60, 61, 62, 63});
    for (const int ifx : {1, 5, 32, 60, 61, 62, 63})
        add_port(ifx, BRI_PORT_TRUNK);
    vl_add_static_member(7, 10); // not present
    const std::string ports =
        "1, 5, 32, 60" + repeat(' ', 26) + "\n" + repeat(' ', 48) + "61, 62, 63" + repeat(' ', 28) + "\n";
    EXPECT_EQ(rows(), "  10 VLAN0010         1 STATIC    0       0      ON    " + ports +
                          "  11 VLAN0011         1 STATIC    0       0      ON    " + ports);
    EXPECT_EQ(log_lines().back().format, "%-47s %-38s\n");
    EXPECT_EQ(log_lines().back().category(), kShownLine);
}

TEST_F(VlanTable, full_group_is_followed_by_no_empty_line) {
    add_vlan(10, BRI_VLAN_STATIC, {1, 2, 3, 4});
    for (const int ifx : {1, 2, 3, 4})
        add_port(ifx, BRI_PORT_TRUNK);
    print();
    EXPECT_EQ(log_lines().size(), 3U);
}

TEST_F(VlanTable, all_ports_take_sixteen_lines) {
    add_vlan(10);
    for (int ifx = 1; ifx <= 63; ++ifx) {
        add_port(ifx, BRI_PORT_TRUNK);
        vl_add_static_member(ifx, 10);
    }
    print();
    EXPECT_EQ(log_lines().size(), 2U + 16U);
    EXPECT_EQ(log_lines().back().text, repeat(' ', 48) + "61, 62, 63" + repeat(' ', 28) + "\n");
}

TEST_F(VlanTable, researches_each_vlan) {
    watch({VLAN_EVENT_CREATE_INDEX});
    add_vlan(10, BRI_VLAN_STATIC, {}, true);
    EXPECT_EQ(rows().substr(16, 7), "      1");
    EXPECT_EQ(events().size(), 1U);
}

int remove_it(uint32_t, void *, uint16_t) {
    vl_clear_vlan_entry(10);
    return 0;
}

TEST_F(VlanTable, vlan_that_a_handler_removed_has_no_row) {
    listen({VLAN_EVENT_CREATE_INDEX}, remove_it);
    add_vlan(10, BRI_VLAN_STATIC, {}, true);
    EXPECT_EQ(rows(), "");
}

TEST_F(VlanTable, vlan_is_left_out_without_memory) {
    add_vlan(10);
    add_vlan(11);
    faults::fail("malloc", 1, ENOMEM);
    const std::string text = rows();
    EXPECT_EQ(text.substr(0, 4), "  11");
    EXPECT_EQ(log_lines().size(), 3U);
}

TEST_F(VlanTable, ends_with_the_databases_status_when_debugging) {
    debug_on({BRI_DBG_VLAN});
    print();
    const size_t vlans = log_text().find("--------------------VLAN-DB---------------------\n");
    const size_t ports = log_text().find("--------------------SWPORT-DB---------------------\n");
    EXPECT_EQ(vlans, kHead.size());
    EXPECT_GT(ports, vlans);
    EXPECT_NE(ports, std::string::npos);
}

TEST_F(VlanTest, tables_of_unmapped_databases_are_their_heads) {
    vl_clnt_show_vlan();
    EXPECT_EQ(log_lines().size(), 2U);
    clear_log();
    vl_clnt_show_swport();
    EXPECT_EQ(log_lines().size(), 2U);
}

class PortTable : public MappedVlanTest {
  protected:
    static std::string print() {
        clear_log();
        vl_clnt_show_swport();
        return log_text();
    }
    static const std::string kHead;
};

const std::string PortTable::kHead = "Interface  Mode      Pvid VLAN lists\n"
                                     "---------- --------- ---- ----------------------\n";

TEST_F(PortTable, of_no_port_is_its_head) {
    EXPECT_EQ(print(), kHead);
    for (const LogLine &line : log_lines()) {
        EXPECT_EQ(line.category(), kShownLine);
    }
}

TEST_F(PortTable, port_row_and_its_allowed_vlans) {
    add_port(7, BRI_PORT_TRUNK, 10).allow_vlan = set_of({1, 2, 3, 4094});
    EXPECT_EQ(print(), kHead + "7          TRUNK     10  \n" + repeat(' ', 26) + "1-3,4094\n");
    EXPECT_EQ(log_lines()[2].format, "%-10d %-9s %-4d\n");
    for (const LogLine &line : log_lines()) {
        EXPECT_EQ(line.category(), kShownLine);
    }
}

TEST_F(PortTable, every_present_port_with_its_mode_rising) {
    for (const int ifx : {63, 1, 32, 5})
        add_port(ifx, static_cast<uint32_t>(ifx % 8), static_cast<uint16_t>(ifx));
    add_port(6, BRI_PORT_TRUNK).ifx = 0;
    add_port(8, 8);
    const std::string empty = repeat(' ', 26) + "\n";
    EXPECT_EQ(print(), kHead + "1          ACCESS    1   \n" + empty + "5          TUNNEL    5   \n" + empty +
                           "8          Unkonw-swport- mode 1   \n" + empty + "32         ROUTE     32  \n" + empty +
                           "63         HYBRID    63  \n" + empty);
}

TEST_F(PortTable, allowed_vlans_stand_22_characters_wide) {
    vlanset &allow = add_port(7, BRI_PORT_TRUNK, 10).allow_vlan;
    for (unsigned vid = 100; vid < 120; vid += 2)
        add_to(allow, vid);
    const std::string column(26, ' ');
    EXPECT_EQ(print(), kHead + "7          TRUNK     10  \n" + column + "100,102,104,106,108\n" + column +
                           "110,112,114,116,118\n");
    std::memset(&allow, 0xFF, sizeof allow);
    EXPECT_EQ(print(), kHead + "7          TRUNK     10  \n" + column + "ALL\n");
}

TEST_F(PortTable, shows_the_blocks_own_index) {
    add_port(7, BRI_PORT_TRUNK, 10).ifx = 70;
    EXPECT_EQ(print().substr(kHead.size(), 11), "70         ");
}

} // namespace
