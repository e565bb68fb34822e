#include "client/local_mac.h"
#include "tests/client/client_fixture.h"

#include <array>
#include <sys/stat.h>

namespace {

using namespace std::string_view_literals;
using Mac = std::array<uint8_t, 6>;

constexpr const char *kDeviceFile = "/data/.zenx/vsd/0/dev/dm_cfg.txt";
constexpr const char *kSystemFile = "./tmp/dm/.sysmac";
constexpr const char *kKernelFile = "/proc/macaddr";
constexpr const char *kRoutedFile = "./tmp/dm/.l3mac";

// Needs no context; the four files are missing until a test writes them.
class LocalMac : public test::Env {
  protected:
    LocalMac() {
        for (const char *path : {kDeviceFile, kSystemFile, kKernelFile, kRoutedFile})
            test::faults::redirect(path, tmpdir() + "/missing");
        setenv("VSDID", "0", 1);
        test::debug_on({BRI_DBG_MSG});
    }

    void put(const char *path, const std::string &content) {
        test::faults::redirect(path, write_file("mac" + std::to_string(++files_), content));
    }
    void put_device_line(const std::string &fifth) { put(kDeviceFile, "1\n2\n3\n4\n" + fifth); }

    // The address, or nothing when there is none.
    static std::vector<Mac> local() { return get(bridge_client_get_local_mac); }
    static std::vector<Mac> svi() { return get(bridge_client_get_svi_mac); }

    static std::string line(const std::string &text) { return "(" + std::to_string(getpid()) + "), " + text + "\n"; }

    static void expect_debug_line(const std::string &text, int times = 1) {
        EXPECT_EQ(test::times_logged(text), times) << text;
        const test::LogLine found = test::log_line(text);
        EXPECT_EQ(found.category(), test::kClientLine) << text;
    }

  private:
    static std::vector<Mac> get(int (*getter)(uint8_t *)) {
        Mac mac;
        mac.fill(0xEE);
        const int found = getter(mac.data());
        if (found == 0) {
            EXPECT_EQ(mac, (Mac{0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}));
            return {};
        }
        EXPECT_EQ(found, 1);
        return {mac};
    }

    int files_ = 0;
};

using Found = std::vector<Mac>;
const Found kNone;

// Device file ---------------------------------------------------------------------------------------------------------

TEST_F(LocalMac, comes_from_the_fifth_line_of_the_device_file) {
    put(kDeviceFile, "aa:bb:cc:dd:ee:01\n\nx\n 4\n00:1A:2b:3C:4d:5e\n99:99:99:99:99:99\n");
    put(kSystemFile, "020000000001");
    EXPECT_EQ(local(), (Found{{0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}}));
}

bool device_mac(const std::string &fifth, bri::client::Mac &mac) {
    std::string content = "1\n2\n3\n4\n" + fifth;
    FILE *file = fmemopen(content.data(), content.size(), "r");
    const bool found = bri::client::read_device_mac(file, mac);
    fclose(file);
    return found;
}

TEST_F(LocalMac, of_the_device_file_takes_any_separator_and_needs_none_at_the_end) {
    const bri::client::Mac expected{{0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e}};
    for (const char *text :
         {"00:1a:2b:3c:4d:5e\n", "00-1A-2B-3C-4D-5E", "00 1a 2b 3c 4d 5e rest\n", "00.1a.2b.3c.4d.5e.",
          "0001a02b03c04d05e0\n", "00:1a:2b:3c:4d:5e and more than the piece holds\n"}) {
        bri::client::Mac mac{};
        EXPECT_TRUE(device_mac(text, mac)) << text;
        EXPECT_EQ(mac, expected) << text;
    }
}

TEST_F(LocalMac, is_not_taken_from_a_broken_fifth_line) {
    for (const char *text : {"", "\n", "00:1a:2b:3c:4d\n", "00:1a:2b:3c:4d:\n", "00:1a:2b:3c:4d:5\n",
                             "00:1a:2b:3c:4d:5", "00:1a:2b:3c:4d:5g\n", "g0:1a:2b:3c:4d:5e\n", "0x:1a:2b:3c:4d:5e\n",
                             " 0:1a:2b:3c:4d:5e\n", "-1:1a:2b:3c:4d:5e\n", "001a2b3c4d5e\n", "0:1a:2b:3c:4d:5e\n",
                             "00::1a:2b:3c:4d:5e\n", "\n00:1a:2b:3c:4d:5e\n"}) {
        bri::client::Mac mac{};
        EXPECT_FALSE(device_mac(text, mac)) << text;
    }
}

TEST_F(LocalMac, of_a_broken_device_file_comes_from_the_next_file) {
    put(kSystemFile, "020000000001");
    // A NUL hides what lies behind it.
    put_device_line(std::string("00:1a") + '\0' + "2b:3c:4d:5e\n");
    EXPECT_EQ(local(), (Found{{2, 0, 0, 0, 0, 1}}));
}

TEST_F(LocalMac, of_a_device_file_with_four_lines_comes_from_the_next_file) {
    put(kSystemFile, "020000000001");
    put(kDeviceFile, "1\n2\n3\n00:1a:2b:3c:4d:5e\n");
    EXPECT_EQ(local(), (Found{{2, 0, 0, 0, 0, 1}}));
}

TEST_F(LocalMac, counts_the_lines_of_the_device_file_in_pieces_of_31_characters) {
    // Three lines, the second of 62 characters: its end is piece 4, the line behind it the fifth.
    put(kDeviceFile, "1\n" + std::string(62, 'x') + "\n00:1a:2b:3c:4d:5e\n");
    EXPECT_EQ(local(), (Found{{0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}}));
}

TEST_F(LocalMac, of_the_device_file_is_adjusted_by_twice_the_virtual_device) {
    put_device_line("00:1a:2b:3c:4d:5e\n");
    setenv("VSDID", "3", 1);
    EXPECT_EQ(local(), (Found{{0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x64}}));
}

TEST_F(LocalMac, of_the_device_file_is_not_adjusted_without_a_virtual_device) {
    put_device_line("00:1a:2b:3c:4d:5e\n");
    unsetenv("VSDID");
    EXPECT_EQ(local(), (Found{{0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}}));
}

struct Adjustment {
    const char *vsd;
    uint8_t before;
    uint8_t after;
};

class AdjustedMac : public LocalMac, public ::testing::WithParamInterface<Adjustment> {};

TEST_P(AdjustedMac, wraps_in_the_last_byte_alone) {
    const Adjustment &row = GetParam();
    char digits[16];
    std::snprintf(digits, sizeof digits, "0200000000%02x", row.before);
    put(kKernelFile, digits);
    setenv("VSDID", row.vsd, 1);
    EXPECT_EQ(local(), (Found{{2, 0, 0, 0, 0, row.after}}));
}

INSTANTIATE_TEST_SUITE_P(Values, AdjustedMac,
                         ::testing::Values(Adjustment{"3", 0x01, 0x07}, Adjustment{"0", 0xFF, 0xFF},
                                           Adjustment{"1", 0xFF, 0x01}, Adjustment{"127", 0x00, 0xFE},
                                           Adjustment{"128", 0x10, 0x10}, Adjustment{"200", 0x00, 0x90},
                                           Adjustment{"-1", 0x01, 0xFF}, Adjustment{"259", 0x01, 0x07},
                                           Adjustment{"text", 0x05, 0x05}, Adjustment{"", 0x05, 0x05}));

// The other files -----------------------------------------------------------------------------------------------------

TEST_F(LocalMac, comes_from_the_system_file_unadjusted_before_the_kernel_file) {
    setenv("VSDID", "3", 1);
    put(kSystemFile, "00:1a:2b:3c:4d:5e\n");
    put(kKernelFile, "020000000001");
    EXPECT_EQ(local(), (Found{{0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}}));
}

TEST_F(LocalMac, comes_from_the_kernel_file_last) {
    setenv("VSDID", "3", 1);
    put(kKernelFile, "020000000001");
    EXPECT_EQ(local(), (Found{{2, 0, 0, 0, 0, 7}}));
    expect_debug_line("Oepn local MAC file failed: ./tmp/dm/.sysmac.\n");
}

TEST_F(LocalMac, of_a_broken_system_file_comes_from_the_kernel_file) {
    put(kSystemFile, "00:1a:2b:3c:4d:5");
    put(kKernelFile, "020000000001");
    EXPECT_EQ(local(), (Found{{2, 0, 0, 0, 0, 1}}));
    expect_debug_line("Parse local MAC failed: ./tmp/dm/.sysmac.\n");
}

TEST_F(LocalMac, of_an_empty_system_file_comes_from_the_kernel_file) {
    put(kSystemFile, "");
    put(kKernelFile, "020000000001");
    EXPECT_EQ(local(), (Found{{2, 0, 0, 0, 0, 1}}));
    expect_debug_line("Parse local MAC failed: ./tmp/dm/.sysmac.\n"); // it could be read
}

TEST_F(LocalMac, of_an_unreadable_system_file_comes_from_the_kernel_file) {
    put(kSystemFile, "00:1a:2b:3c:4d:5e");
    put(kKernelFile, "020000000001");
    test::faults::fail("read", 1, EIO);
    EXPECT_EQ(local(), (Found{{2, 0, 0, 0, 0, 1}}));
    expect_debug_line("Read local MAC failed: ./tmp/dm/.sysmac.\n");
}

TEST_F(LocalMac, is_not_found_without_a_file) {
    EXPECT_EQ(local(), kNone);
    expect_debug_line("Oepn local MAC file failed: ./tmp/dm/.sysmac.\n");
    expect_debug_line("Oepn local MAC file failed: /proc/macaddr.\n");
    EXPECT_EQ(test::log_lines().size(), 2U);
    put(kKernelFile, "02000000000"); // a failure is not remembered
    EXPECT_EQ(local(), kNone);
    expect_debug_line("Parse local MAC failed: /proc/macaddr.\n");
    put(kKernelFile, "020000000002");
    EXPECT_EQ(local(), (Found{{2, 0, 0, 0, 0, 2}}));
}

TEST_F(LocalMac, lies_below_the_working_directory) {
    test::faults::clear();
    ASSERT_EQ(chdir(tmpdir().c_str()), 0);
    mkdir("tmp", 0700);
    mkdir("tmp/dm", 0700);
    write_file("tmp/dm/.sysmac", "02:00:00:00:00:33\n");
    write_file("tmp/dm/.l3mac", "02:00:00:00:00:44\n");
    EXPECT_EQ(local(), (Found{{2, 0, 0, 0, 0, 0x33}}));
    EXPECT_EQ(svi(), (Found{{2, 0, 0, 0, 0, 0x44}}));
    ASSERT_EQ(chdir("/"), 0);
}

TEST_F(LocalMac, text_is_its_first_twelve_hexadecimal_digits) {
    const bri::client::Mac expected{{0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e}};
    for (const std::string_view text :
         {"001a2b3c4d5e"sv, "001A2B3C4D5Eff"sv, "00:1a:2b:3c:4d:5e\n"sv, "zz0g0-1:a_2b\t3c4D5Etrailing"sv,
          "0\0\x30\x31\x61\x32\x62\x33\x63\x34\x64\x35\x65"sv, "                   001a2b3c4d5e"sv,
          "\xFF\x80-001a2b3c4d5e"sv}) {
        bri::client::Mac mac{};
        EXPECT_TRUE(bri::client::parse_mac_text(text.data(), text.size(), mac)) << text;
        EXPECT_EQ(mac, expected) << text;
    }
    for (const std::string_view text : {""sv, "001a2b3c4d5"sv, "gh:ij:kl:mn:op:qr"sv, "\0\0\0\0"sv,
                                        "                    001a2b3c4d5e"sv /* the last digit is character 32 */}) {
        bri::client::Mac mac{};
        EXPECT_FALSE(bri::client::parse_mac_text(text.data(), text.size(), mac)) << text;
    }
}

TEST_F(LocalMac, text_knows_every_digit_and_no_neighbour_of_one) {
    bri::client::Mac mac{};
    for (const std::string_view text : {"0123456789aB"sv, "/0:1@2`3G4g5 6789aB"sv}) {
        EXPECT_TRUE(bri::client::parse_mac_text(text.data(), text.size(), mac)) << text;
        EXPECT_EQ(mac, (bri::client::Mac{{0x01, 0x23, 0x45, 0x67, 0x89, 0xAB}})) << text;
    }
    EXPECT_TRUE(bri::client::parse_mac_text("cdefABCDEFAf", 12, mac));
    EXPECT_EQ(mac, (bri::client::Mac{{0xCD, 0xEF, 0xAB, 0xCD, 0xEF, 0xAF}}));
}

TEST_F(LocalMac, of_a_file_lies_in_its_first_31_characters) {
    put(kSystemFile, "                    001a2b3c4d5e");
    EXPECT_EQ(local(), kNone);
    expect_debug_line("Parse local MAC failed: ./tmp/dm/.sysmac.\n");
    put(kSystemFile, "                   001a2b3c4d5eff");
    EXPECT_EQ(local(), (Found{{0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e}}));
}

TEST_F(LocalMac, of_a_file_is_read_once_and_no_further_than_32_bytes) {
    put(kSystemFile, "00:1a:2b:3c:4d:5e" + std::string(100, '\n'));
    std::vector<size_t> sizes;
    test::faults::hooks.read = [&](int fd, void *data, size_t size) {
        sizes.push_back(size);
        return test::faults::real_read(fd, data, size);
    };
    EXPECT_EQ(local().size(), 1U);
    test::faults::hooks.read = nullptr;
    EXPECT_EQ(sizes, (std::vector<size_t>{32}));
}

TEST_F(LocalMac, leaves_no_descriptor_open) {
    const int before = test::open_descriptors();
    local();
    put_device_line("bad");
    put(kSystemFile, "bad");
    put(kKernelFile, "bad");
    put(kRoutedFile, "bad");
    svi();
    test::faults::fail("read", 1, EIO, 10);
    svi();
    put_device_line("00:1a:2b:3c:4d:5e\n");
    svi();
    EXPECT_EQ(test::open_descriptors(), before);
}

// Cache ---------------------------------------------------------------------------------------------------------------

TEST_F(LocalMac, is_read_once) {
    put(kKernelFile, "020a0b0c0d01");
    EXPECT_EQ(local().size(), 1U);
    expect_debug_line(line("set_local : 020a.0b0c.0d01."));
    expect_debug_line(line("save local mac to lib-db SUCC, 020a.0b0c.0d01."));
    EXPECT_EQ(test::log_text(), "Oepn local MAC file failed: ./tmp/dm/.sysmac.\n" +
                                    line("set_local : 020a.0b0c.0d01.") +
                                    line("save local mac to lib-db SUCC, 020a.0b0c.0d01."));
    EXPECT_FALSE(test::logged(line("get local mac from lib-db SUCC, 020a.0b0c.0d01.")));
    test::clear_log();
    put(kKernelFile, "020000000002");
    setenv("VSDID", "9", 1);
    EXPECT_EQ(local(), (Found{{2, 0x0A, 0x0B, 0x0C, 0x0D, 1}}));
    expect_debug_line(line("get local mac from lib-db SUCC, 020a.0b0c.0d01."));
    EXPECT_EQ(test::log_lines().size(), 1U);
}

TEST_F(LocalMac, of_zeros_is_found_but_not_kept) {
    put(kKernelFile, "000000000000");
    EXPECT_EQ(local(), (Found{{0, 0, 0, 0, 0, 0}}));
    put(kKernelFile, "020000000002");
    EXPECT_EQ(local(), (Found{{2, 0, 0, 0, 0, 2}}));
}

TEST_F(LocalMac, goes_nowhere_without_a_place) {
    put(kKernelFile, "020000000001");
    EXPECT_EQ(bridge_client_get_local_mac(nullptr), 0);
    EXPECT_EQ(bridge_client_get_svi_mac(nullptr), 0);
    EXPECT_TRUE(test::log_lines().empty());
}

// Routed interfaces ---------------------------------------------------------------------------------------------------

TEST_F(LocalMac, of_svis_is_the_routed_one_when_it_differs) {
    put(kKernelFile, "020000000001");
    put(kRoutedFile, "0200.0000.00ff");
    EXPECT_EQ(svi(), (Found{{2, 0, 0, 0, 0, 0xFF}}));
    expect_debug_line(line("set_local : 0200.0000.0001."));
    expect_debug_line(line("set_svi : 0200.0000.00ff."));
    expect_debug_line(line("save svi mac to lib-db SUCC, 0200.0000.00ff."));
}

TEST_F(LocalMac, of_svis_is_not_adjusted) {
    setenv("VSDID", "3", 1);
    put(kKernelFile, "020000000001");
    put(kRoutedFile, "020000000001"); // the local one is ...07
    EXPECT_EQ(svi(), (Found{{2, 0, 0, 0, 0, 1}}));
}

TEST_F(LocalMac, of_svis_is_the_routed_one_when_there_is_no_local_one) {
    put(kRoutedFile, "020000000009");
    EXPECT_EQ(svi(), (Found{{2, 0, 0, 0, 0, 9}}));
}

TEST_F(LocalMac, of_svis_is_one_above_the_local_one_when_they_are_equal) {
    put(kKernelFile, "0200000000fe");
    put(kRoutedFile, "0200000000fe");
    EXPECT_EQ(svi(), (Found{{2, 0, 0, 0, 0, 0xFF}}));
}

TEST_F(LocalMac, of_svis_is_one_above_the_local_one_without_a_routed_one) {
    put(kKernelFile, "0200000000ff");
    EXPECT_EQ(svi(), (Found{{2, 0, 0, 0, 0, 0}}));
    expect_debug_line("Oepn local MAC file failed: ./tmp/dm/.l3mac.\n");
    EXPECT_EQ(local(), (Found{{2, 0, 0, 0, 0, 0xFF}}));
}

TEST_F(LocalMac, of_svis_is_one_above_the_local_one_with_a_broken_routed_one) {
    put(kKernelFile, "020000000010");
    put(kRoutedFile, "02000000");
    EXPECT_EQ(svi(), (Found{{2, 0, 0, 0, 0, 0x11}}));
    expect_debug_line("Parse local MAC failed: ./tmp/dm/.l3mac.\n");
}

TEST_F(LocalMac, of_svis_uses_a_local_one_that_is_known_already) {
    put(kKernelFile, "020000000010");
    local();
    put(kKernelFile, "020000000020");
    EXPECT_EQ(svi(), (Found{{2, 0, 0, 0, 0, 0x11}}));
    expect_debug_line(line("get local mac from lib-db SUCC, 0200.0000.0010."));
}

TEST_F(LocalMac, of_svis_is_not_found_without_either) {
    EXPECT_EQ(svi(), kNone);
    EXPECT_EQ(test::log_text(), "Oepn local MAC file failed: ./tmp/dm/.l3mac.\n"
                                "Oepn local MAC file failed: ./tmp/dm/.sysmac.\n"
                                "Oepn local MAC file failed: /proc/macaddr.\n");
    put(kRoutedFile, "020000000009");
    EXPECT_EQ(svi().size(), 1U);
}

TEST_F(LocalMac, of_svis_is_read_once) {
    put(kRoutedFile, "020000000009");
    svi();
    put(kRoutedFile, "02000000000a");
    test::clear_log();
    EXPECT_EQ(svi(), (Found{{2, 0, 0, 0, 0, 9}}));
    expect_debug_line(line("get svi mac from lib-db SUCC, 0200.0000.0009."));
    EXPECT_EQ(test::log_lines().size(), 1U);
}

// bridge_maddr_get_local ----------------------------------------------------------------------------------------------

TEST_F(LocalMac, of_the_mac_family_is_0_or_minus_1) {
    Mac mac{};
    EXPECT_EQ(bridge_maddr_get_local(nullptr), -1);
    expect_debug_line(line("invalid mac addr."));
    EXPECT_EQ(bridge_maddr_get_local(mac.data()), -1);
    expect_debug_line(line("get local mac from file failed."));
    put(kKernelFile, "020000000001");
    EXPECT_EQ(bridge_maddr_get_local(mac.data()), 0);
    EXPECT_EQ(mac, (Mac{2, 0, 0, 0, 0, 1}));
    expect_debug_line(line("get local mac from file failed."));
}

TEST_F(LocalMac, logs_nothing_while_message_debugging_is_off) {
    g_bri_clnt_dbg[BRI_DBG_MSG] = 0;
    Mac mac{};
    bridge_maddr_get_local(nullptr);
    bridge_maddr_get_local(mac.data());
    put(kSystemFile, "bad");
    put(kKernelFile, "020000000001");
    test::faults::fail("read", 2, EIO);
    svi();
    svi();
    svi();
    EXPECT_EQ(local().size(), 1U);
    EXPECT_TRUE(test::log_lines().empty());
}

} // namespace
