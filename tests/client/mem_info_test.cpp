#include "client/mem_info.h"
#include "tests/support/test.h"

namespace {

using Info = bri_sys_mem_info;

constexpr const char *kComplete = "MemTotal:        1000 kB\n"
                                  "MemFree:          100 kB\n"
                                  "Buffers:           50 kB\n"
                                  "Cached:            60 kB\n"
                                  "SwapCached:        99 kB\n"
                                  "Active:           200 kB\n"
                                  "Inactive:         300 kB\n"
                                  "Mapped:            70 kB\n"
                                  "Slab:              30 kB\n";

class MemInfo : public test::Env {
  protected:
    // The result of reading a text through the exported function; the record is `info`.
    int read(const std::string &text) {
        test::faults::redirect("/proc/meminfo", write_file("meminfo", text));
        std::memset(&info, 0xA5, sizeof info);
        return bridge_get_sys_mem_info(&info);
    }
    [[nodiscard]] uint64_t word(size_t offset) const { return test::value_at<uint64_t>(&info, offset); }

    static std::string without(const std::string &label) {
        std::string text = std::string("\n") + kComplete;
        const size_t start = text.find("\n" + label) + 1;
        return text.erase(start, text.find('\n', start) + 1 - start);
    }

    Info info;
};

TEST_F(MemInfo, refuses_a_null_record) {
    EXPECT_EQ(bridge_get_sys_mem_info(nullptr), -22);
}

TEST_F(MemInfo, without_the_file_fails_with_a_cleared_record) {
    test::faults::redirect("/proc/meminfo", tmpdir() + "/missing");
    std::memset(&info, 0xA5, sizeof info);
    EXPECT_EQ(bridge_get_sys_mem_info(&info), -2);
    EXPECT_EQ(test::bytes_of(info), test::ByteVec(sizeof info));
}

TEST_F(MemInfo, fails_alike_for_every_open_error) {
    test::faults::fail("fopen", 1, EMFILE);
    EXPECT_EQ(bridge_get_sys_mem_info(&info), -2);
}

TEST_F(MemInfo, puts_each_figure_at_its_place) {
    EXPECT_EQ(read(kComplete), 0);
    const std::vector<std::pair<size_t, uint64_t>> words{
        {0, 0},  {8, 0},  {16, 0},  {24, 1000}, {32, 100}, {40, 50}, {48, 60}, {56, 200},  {64, 300},
        {72, 0}, {80, 0}, {88, 70}, {96, 30},   {104, 0},  {112, 0}, {120, 0}, {128, 300},
    };
    for (const auto &[offset, value] : words)
        EXPECT_EQ(word(offset), value) << "offset " << offset;
}

TEST_F(MemInfo, reads_this_machine) {
    EXPECT_EQ(bridge_get_sys_mem_info(&info), 0);
    EXPECT_GT(info.mem_total, info.mem_free);
}

TEST_F(MemInfo, leaves_no_descriptor_open) {
    const int before = test::open_descriptors();
    read(kComplete);
    read("");
    EXPECT_EQ(test::open_descriptors(), before);
}

TEST_F(MemInfo, fails_without_one_of_the_six_figures_and_keeps_the_others) {
    for (const char *label : {"MemTotal:", "MemFree:", "Active:", "Inactive:", "Mapped:", "Slab:"}) {
        EXPECT_EQ(read(without(label)), -1) << label;
        EXPECT_EQ(info.buffers, 50U) << label;
    }
}

TEST_F(MemInfo, fails_with_a_zero_in_one_of_the_six_figures) {
    for (const char *label : {"MemTotal:", "MemFree:", "Active:", "Inactive:", "Mapped:", "Slab:"})
        EXPECT_EQ(read(without(label) + label + " 0 kB\n"), -1) << label;
}

TEST_F(MemInfo, does_without_buffers_and_cached) {
    EXPECT_EQ(read(without("Buffers:")), 0);
    EXPECT_EQ(info.buffers, 0U);
    EXPECT_EQ(read(without("Cached:")), 0);
    EXPECT_EQ(info.cached, 0U);
}

TEST_F(MemInfo, takes_cached_only_from_a_line_that_begins_with_c) {
    EXPECT_EQ(read("SwapCached: 7 kB\n Cached: 8 kB\nCached: 9 kB\n" + without("Cached:")), 0);
    EXPECT_EQ(info.cached, 9U);
}

TEST_F(MemInfo, takes_a_figure_from_the_first_line_that_has_it) {
    EXPECT_EQ(
        read(std::string(kComplete) + "ShmemPmdMapped: 0 kB\nFilePmdMapped: 5 kB\nMemTotal: 1 kB\nCached: 2 kB\n"), 0);
    EXPECT_EQ(info.mapped, 70U);
    EXPECT_EQ(info.mem_total, 1000U);
    EXPECT_EQ(info.cached, 60U);
}

TEST_F(MemInfo, takes_a_zero_of_the_first_line_too) {
    EXPECT_EQ(read("Slab: 0 kB\n" + std::string(kComplete)), -1);
    EXPECT_EQ(info.slab, 0U);
}

TEST_F(MemInfo, finds_a_label_anywhere_in_its_line) {
    EXPECT_EQ(read("  NodeSlab: 44 kB\n" + std::string(kComplete)), 0);
    EXPECT_EQ(info.slab, 44U);
}

TEST_F(MemInfo, gives_no_negative_remainder) {
    EXPECT_EQ(read("Active: 500 kB\n" + std::string(kComplete)), 0);
    EXPECT_EQ(info.unaccounted, 0U);
    EXPECT_EQ(read("Active: 501 kB\n" + std::string(kComplete)), 0);
    EXPECT_EQ(info.unaccounted, 0U);
    EXPECT_EQ(read("Active: 499 kB\n" + std::string(kComplete)), 0);
    EXPECT_EQ(info.unaccounted, 1U);
}

TEST_F(MemInfo, keeps_64_bit_figures_and_saturates) {
    EXPECT_EQ(read("MemTotal: 4294967297 kB\n" + std::string(kComplete)), 0);
    EXPECT_EQ(info.mem_total, 4294967297ULL);
    EXPECT_EQ(info.unaccounted, 4294967297ULL - 700);
    EXPECT_EQ(read("MemTotal: 99999999999999999999999 kB\nSlab: 99999999999999999999999\n" + std::string(kComplete)),
              0);
    EXPECT_EQ(info.mem_total, UINT64_MAX);
    EXPECT_EQ(info.unaccounted, 0U);
}

TEST_F(MemInfo, counts_what_is_no_number_as_zero) {
    for (const char *text : {"Slab:\n", "Slab: kB\n", "Slab: -5 kB\n", "Slab:\r-5 kB\n", "Slab:"}) {
        EXPECT_EQ(read(text + std::string(text[5] == 0 ? "" : kComplete)), -1) << text;
        EXPECT_EQ(info.slab, 0U) << text;
    }
}

TEST_F(MemInfo, reads_numbers_without_blanks_and_a_last_line_without_an_end) {
    EXPECT_EQ(read(without("Slab:") + "Slab:31"), 0);
    EXPECT_EQ(info.slab, 31U);
}

TEST_F(MemInfo, reads_an_over_long_line_in_pieces_of_254_characters) {
    const std::string filler(254, 'x');
    EXPECT_EQ(read(filler + "Cached: 77 kB\n" + kComplete), 0);
    EXPECT_EQ(info.cached, 77U); // the second piece begins with its label
    const std::string split(250, 'x');
    EXPECT_EQ(read(split + "Slab: 77 kB\n" + kComplete), 0);
    EXPECT_EQ(info.slab, 30U); // cut within the label
}

TEST_F(MemInfo, survives_bytes_that_are_no_text) {
    std::string text = kComplete;
    text.insert(0, std::string("\0Slab: 1 kB\n\xFF\xFE\n", 15));
    EXPECT_EQ(read(text), 0);
    EXPECT_EQ(info.slab, 30U);
    EXPECT_EQ(read(std::string(100000, '\0')), -1);
}

TEST_F(MemInfo, sends_and_logs_nothing) {
    test::debug_on({BRI_DBG_MSG});
    read("");
    bridge_get_sys_mem_info(nullptr);
    EXPECT_TRUE(test::log_lines().empty());
}

} // namespace
