// Host threads that log about MAC addresses while the server changes the filter of those lines.
#include "tests/client/client_fixture.h"

#include <atomic>
#include <thread>

namespace {

using MacFilterThreads = test::Client;

// Both filters let the entry pass, so it passes whatever a thread sees of them; that no field is read while it is
// written is the thread sanitizer's part.
TEST_F(MacFilterThreads, read_it_while_messages_change_it) {
    bri_mac_entry entry{};
    entry.bcast_id = 10;
    entry.ifx = 7;
    std::atomic<bool> stop = false;
    std::atomic<uint32_t> refused = 0;
    std::vector<std::thread> readers;
    for (int i = 0; i < 2; ++i)
        readers.emplace_back([&] {
            while (!stop)
                refused += bri_clnt_match_mac_dbg_filter(&entry) == 0 ? 1 : 0;
        });
    g_bri_clnt_dbg[BRI_DBG_MSG] = 0;
    for (int round = 0; round < 2000; ++round) {
        bri_mac_filter filter{};
        if (round % 2 == 0)
            filter.vid = entry.bcast_id;
        else
            filter.ifx = entry.ifx;
        deliver(DEBUG_EVENT_MAC, test::bytes_of(filter));
    }
    stop = true;
    for (std::thread &reader : readers)
        reader.join();
    EXPECT_EQ(refused, 0U);
}

} // namespace
