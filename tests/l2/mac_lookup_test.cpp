#include "tests/l2/fixture.h"

namespace {

using namespace test;

class MacLookup : public L2Host {
  protected:
    MacLookup() { debug_on({BRI_DBG_MAC}); }

    static bri_mac_entry entry(uint8_t field, uint32_t ifx = 0) {
        bri_mac_entry made{};
        made.field = field;
        made.bcast_id = 30;
        made.ifx = ifx;
        made.type = 5;
        std::copy(kMac.begin(), kMac.end(), made.mac);
        return made;
    }
    // An entry as the kernel may give it: every byte set.
    static ByteVec result() {
        ByteVec bytes(32);
        for (size_t at = 0; at < bytes.size(); ++at)
            bytes[at] = static_cast<uint8_t>(0x80 + at);
        return bytes;
    }
    // The kernel answers with its request's layout, `found` and a result in it, cut to `size` bytes.
    void kernel_finds(uint32_t found, size_t size = SIZE_MAX) {
        kernel.on_data = [this, found, size](const KernelRequest &request) {
            Packet answer = request.data();
            const size_t found_at = answer.size() == 68 ? 32 : 64;
            put_at(answer.data(), found_at, found);
            const ByteVec bytes = result();
            std::copy(bytes.begin(), bytes.end(), answer.begin() + static_cast<std::ptrdiff_t>(found_at) + 4);
            answer.resize(std::min(answer.size(), size));
            kernel.answer(request, answer);
        };
    }
    void expect_query(int32_t type, const ByteVec &data) {
        const std::vector<KernelRequest> requests = kernel.data_requests();
        ASSERT_EQ(requests.size(), 1U);
        EXPECT_EQ(requests[0].type(), type);
        EXPECT_EQ(requests[0].data(), data);
        kernel.requests.clear();
    }

    Kernel kernel;
};

TEST_F(MacLookup, first_on_mac_and_ifx_send_the_callers_entry_as_it_stands) {
    const struct {
        int (*call)(bri_mac_entry *);
        uint8_t field;
    } rows[] = {{bridge_maddr_find_first_on_mac, 1}, {bridge_maddr_find_first_on_ifx, 2}};
    for (const auto &row : rows) {
        kernel_finds(1);
        bri_mac_entry key = entry(row.field, 9);
        key.flags = 3;
        key.reserved2[11] = 7;
        const ByteVec before = bytes_of(key);
        EXPECT_EQ(row.call(&key), 0);
        expect_query(MAC_EVENT_CLIENT_FIND_FIRST, Bytes(68).put(0, before));
        EXPECT_EQ(bytes_of(key), result());
    }
    EXPECT_TRUE(log_lines().empty());
    EXPECT_TRUE(sent().empty());
}

TEST_F(MacLookup, first_accepts_exactly_its_own_field) {
    kernel_finds(1);
    for (unsigned field = 0; field < 256; ++field) {
        clear_log();
        bri_mac_entry key = entry(static_cast<uint8_t>(field));
        EXPECT_EQ(bridge_maddr_find_first_on_mac(&key), field == 1 ? 0 : -1) << field;
        if (field != 1) {
            expect_only_mac_line("(unit), invalid param in bridge_maddr_find_first_on_mac.\n");
        }
        clear_log();
        key = entry(static_cast<uint8_t>(field));
        EXPECT_EQ(bridge_maddr_find_first_on_ifx(&key), field == 2 ? 0 : -1) << field;
        if (field != 2) {
            expect_only_mac_line("(unit), invalid param in bridge_maddr_find_first_on_ifx.\n");
        }
    }
    EXPECT_EQ(kernel.data_requests().size(), 2U);
}

TEST_F(MacLookup, next_on_mac_keys_by_the_address_alone) {
    kernel_finds(1);
    const bri_mac_entry current = entry(0x0F, 9);
    bri_mac_entry out{};
    EXPECT_EQ(bridge_maddr_find_next_on_mac(&current, &out), 0);
    expect_query(MAC_EVENT_CLIENT_FIND_NEXT, Bytes(100).put(3, uint8_t{1}).put(4, kMac).put(32, bytes_of(current)));
    EXPECT_EQ(bytes_of(out), result());
}

TEST_F(MacLookup, next_on_ifx_keys_by_the_port_alone) {
    kernel_finds(1);
    const bri_mac_entry current = entry(0x0F, 0x01020304);
    bri_mac_entry out{};
    EXPECT_EQ(bridge_maddr_find_next_on_ifx(&current, &out), 0);
    expect_query(MAC_EVENT_CLIENT_FIND_NEXT,
                 Bytes(100).put(3, uint8_t{2}).put(12, uint32_t{0x01020304}).put(32, bytes_of(current)));
    EXPECT_EQ(bytes_of(out), result());
}

TEST_F(MacLookup, next_may_overwrite_the_entry_it_continues_after) {
    kernel_finds(1);
    bri_mac_entry walk = entry(1);
    const ByteVec before = bytes_of(walk);
    EXPECT_EQ(bridge_maddr_find_next_on_mac(&walk, &walk), 0);
    expect_query(MAC_EVENT_CLIENT_FIND_NEXT, Bytes(100).put(3, uint8_t{1}).put(4, kMac).put(32, before));
    EXPECT_EQ(bytes_of(walk), result());
}

TEST_F(MacLookup, static_on_ifx_only_answers_whether) {
    kernel_finds(1);
    EXPECT_EQ(bridge_maddr_find_static_on_ifx(63), 0);
    expect_query(MAC_EVENT_CLIENT_FIND_FIRST, Bytes(68).put(3, uint8_t{6}).put(12, uint32_t{63}).put(16, uint32_t{2}));
    kernel_finds(0);
    EXPECT_EQ(bridge_maddr_find_static_on_ifx(63), -1);
}

TEST_F(MacLookup, single_keys_by_address_and_domain) {
    kernel_finds(1);
    bri_mac_entry out{};
    EXPECT_EQ(bridge_maddr_find_single(kMac.data(), 0x1000A, &out), 0);
    expect_query(MAC_EVENT_CLIENT_FIND_FIRST, Bytes(68).put(3, uint8_t{9}).put(4, kMac).put(10, uint16_t{10}));
    EXPECT_EQ(bytes_of(out), result());
}

TEST_F(MacLookup, single_without_a_destination_still_answers) {
    kernel_finds(1);
    EXPECT_EQ(bridge_maddr_find_single(kMac.data(), 10, nullptr), 0);
    kernel_finds(0);
    EXPECT_EQ(bridge_maddr_find_single(kMac.data(), 10, nullptr), -1);
}

TEST_F(MacLookup, refused_arguments_ask_nothing) {
    bri_mac_entry any{};
    const struct {
        int result;
        const char *line;
    } rows[] = {
        {bridge_maddr_find_first_on_mac(nullptr), "(unit), invalid param in bridge_maddr_find_first_on_mac.\n"},
        {bridge_maddr_find_first_on_ifx(nullptr), "(unit), invalid param in bridge_maddr_find_first_on_ifx.\n"},
        {bridge_maddr_find_next_on_mac(nullptr, &any), "(unit), invalid param in bridge_maddr_find_next_on_mac.\n"},
        {bridge_maddr_find_next_on_mac(&any, nullptr), "(unit), invalid param in bridge_maddr_find_next_on_mac.\n"},
        {bridge_maddr_find_next_on_ifx(nullptr, &any), "(unit), invalid param in bridge_maddr_find_next_on_ifx.\n"},
        {bridge_maddr_find_next_on_ifx(&any, nullptr), "(unit), invalid param in bridge_maddr_find_next_on_ifx.\n"},
        {bridge_maddr_find_static_on_ifx(0), "(unit), invalid ifx.\n"},
        {bridge_maddr_find_single(nullptr, 10, &any), "(unit), invalid mac addr, bcast_id.\n"},
        {bridge_maddr_find_single(kMac.data(), 0, &any), "(unit), invalid mac addr, bcast_id.\n"},
        {bridge_maddr_find_single(kMac.data(), 0x10000, &any), "(unit), invalid mac addr, bcast_id.\n"},
    };
    std::string expected;
    for (const auto &row : rows) {
        EXPECT_EQ(row.result, -1) << row.line;
        expected += row.line;
    }
    EXPECT_EQ(log_text(), expected);
    for (const LogLine &line : log_lines()) {
        EXPECT_EQ(line.category(), kMacLine);
    }
    EXPECT_TRUE(kernel.sockets.empty());
}

TEST_F(MacLookup, refusals_pass_the_filter_and_need_the_flag) {
    const auto all_refused = [] {
        bridge_maddr_find_first_on_mac(nullptr);
        bridge_maddr_find_first_on_ifx(nullptr);
        bridge_maddr_find_next_on_mac(nullptr, nullptr);
        bridge_maddr_find_next_on_ifx(nullptr, nullptr);
        bridge_maddr_find_static_on_ifx(0);
        bridge_maddr_find_single(nullptr, 0, nullptr);
    };
    g_bglib_mac_filter.vid = 4000;
    g_bglib_mac_filter.ifx = 60;
    all_refused();
    EXPECT_EQ(log_lines().size(), 6U);
    clear_log();
    g_bri_clnt_dbg[BRI_DBG_MAC] = 0;
    all_refused();
    EXPECT_TRUE(log_lines().empty());
}

// Every way to find nothing leaves the destination as it was.
TEST_F(MacLookup, nothing_found_leaves_the_destination) {
    const auto all_fail = [](const char *what) {
        bri_mac_entry key = entry(1);
        const ByteVec before = bytes_of(key);
        EXPECT_EQ(bridge_maddr_find_first_on_mac(&key), -1) << what;
        EXPECT_EQ(bytes_of(key), before) << what;
        key = entry(2);
        EXPECT_EQ(bridge_maddr_find_first_on_ifx(&key), -1) << what;
        const bri_mac_entry current = entry(1);
        bri_mac_entry out = entry(0xEE);
        const ByteVec out_before = bytes_of(out);
        EXPECT_EQ(bridge_maddr_find_next_on_mac(&current, &out), -1) << what;
        EXPECT_EQ(bridge_maddr_find_next_on_ifx(&current, &out), -1) << what;
        EXPECT_EQ(bridge_maddr_find_single(kMac.data(), 10, &out), -1) << what;
        EXPECT_EQ(bridge_maddr_find_static_on_ifx(5), -1) << what;
        EXPECT_EQ(bytes_of(out), out_before) << what;
    };
    kernel_finds(0);
    all_fail("found 0");
    kernel_finds(1, 0);
    all_fail("an empty answer");
    kernel_finds(1, 32);
    all_fail("an answer that ends before the found word");
    kernel.on_data = [this](const KernelRequest &request) { kernel.answer_error(request, -EINVAL); };
    all_fail("an error");
    kernel.on_data = nullptr;
    all_fail("no answer");
    kernel.family = 0;
    all_fail("no kernel module");
}

TEST_F(MacLookup, any_found_word_but_0_counts) {
    for (const uint32_t found : {1U, 2U, 0x100U, 0x80000000U, 0xFFFFFFFFU}) {
        kernel_finds(found);
        EXPECT_EQ(bridge_maddr_find_single(kMac.data(), 10, nullptr), 0) << found;
    }
}

// What an answer does not hold reads as zero, also right behind a longer answer.
TEST_F(MacLookup, a_short_result_is_completed_with_zeros) {
    kernel_finds(1);
    bri_mac_entry out{};
    ASSERT_EQ(bridge_maddr_find_single(kMac.data(), 10, &out), 0);
    kernel_finds(1, 36 + 10);
    ASSERT_EQ(bridge_maddr_find_single(kMac.data(), 10, &out), 0);
    ByteVec expected = result();
    std::fill(expected.begin() + 10, expected.end(), uint8_t{0});
    EXPECT_EQ(bytes_of(out), expected);
    kernel_finds(1, 68 + 12);
    const bri_mac_entry current = entry(1);
    ASSERT_EQ(bridge_maddr_find_next_on_mac(&current, &out), 0);
    expected = result();
    std::fill(expected.begin() + 12, expected.end(), uint8_t{0});
    EXPECT_EQ(bytes_of(out), expected);
}

TEST_F(MacLookup, a_walk_visits_every_entry_of_the_kernel) {
    std::vector<bri_mac_entry> table;
    for (uint8_t n = 1; n <= 5; ++n) {
        bri_mac_entry made = entry(0x0F, n);
        made.mac[5] = n;
        table.push_back(made);
    }
    kernel.on_data = [&](const KernelRequest &request) {
        Packet answer = request.data();
        const bool first = answer.size() == 68;
        const uint8_t after = first ? 0 : answer[32 + 9]; // the last byte of the current entry's address
        const bool found = after < table.size();
        put_at(answer.data(), first ? 32 : 64, uint32_t{found ? 1U : 0U});
        if (found)
            put_at(answer.data(), first ? 36 : 68, table[after]);
        kernel.answer(request, answer);
    };
    bri_mac_entry at{};
    at.field = 1;
    std::vector<uint32_t> seen;
    for (int result = bridge_maddr_find_first_on_mac(&at); result == 0;
         result = bridge_maddr_find_next_on_mac(&at, &at))
        seen.push_back(at.ifx);
    EXPECT_EQ(seen, (std::vector<uint32_t>{1, 2, 3, 4, 5}));
    EXPECT_EQ(kernel.open_sockets(), 0);
}

} // namespace
