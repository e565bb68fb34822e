// Walks over the kernel's address table.
#include "tests/host/layer_fixture.h"

#include <bridge/host.hpp>

#include <optional>

using namespace test;

namespace {

class HostWalk : public Layer {
  public:
    bridge_host_walk walk{};
    std::vector<int> seen; // the last byte of each
    std::vector<int> ends;

  protected:
    void SetUp() override {
        ASSERT_EQ(start_layer(), 0);
        loop().pending.clear();
        kernel.emplace();
        walk.on_entry = [](const bri_mac_entry *entry, void *self) {
            auto &test = *static_cast<HostWalk *>(self);
            test.seen.push_back(entry->mac[5]);
            return static_cast<int>(test.seen.size() == test.enough);
        };
        walk.on_end = [](bridge_host_walk *, int result, void *self) {
            static_cast<HostWalk *>(self)->ends.push_back(result);
        };
        walk.context = this;
        kernel->on_data = [this](const KernelRequest &request) { answer(request); };
    }

    std::optional<Kernel> kernel;     // comes when the start-up has cleared what stood in the calls' places
    std::vector<bri_mac_entry> table; // what the kernel has, in its order
    size_t enough = SIZE_MAX;

    void fill(int count) {
        for (int i = 1; i <= count; ++i)
            table.push_back(address(static_cast<uint8_t>(i), BRI_MAC_ADD, 10, i % 2 == 0 ? 2 : 1).entry);
    }
    // The entry from which on the walk is to be answered, as the kernel's bridge module does.
    template <class Query> void find(const KernelRequest &request, size_t from) {
        auto query = value_at<Query>(request.data().data(), 0);
        for (size_t i = from; i < table.size() && query.found == 0; ++i)
            if (query.key.field == BRI_MAC_FIELD_MAC || table[i].ifx == query.key.ifx) {
                query.found = 1;
                query.result = table[i];
            }
        kernel->answer(request, packet_of(query));
    }
    void answer(const KernelRequest &request) {
        if (request.type() == MAC_EVENT_CLIENT_FIND_FIRST)
            return find<bri_mac_find_first>(request, 0);
        const auto query = value_at<bri_mac_find_next>(request.data().data(), 0);
        find<bri_mac_find_next>(request, query.current.mac[5]);
    }
    // Runs the layer's jobs until none is left.
    void run(int most = 100) {
        while (most-- > 0 && !loop().pending.empty())
            if (loop().run_readable() == 0 && loop().run("host-walk") == -1000)
                return;
    }
};

TEST_F(HostWalk, gives_every_entry_and_its_end) {
    fill(5);
    ASSERT_EQ(bridge_host_walk_start(&walk), 0);
    EXPECT_EQ(seen.size(), 0U); // never within the call
    run();
    EXPECT_EQ(seen, (std::vector<int>{1, 2, 3, 4, 5}));
    EXPECT_EQ(ends, std::vector<int>{0});
}

TEST_F(HostWalk, keeps_one_socket_and_gives_it_back) {
    fill(5);
    const int before = open_descriptors();
    bridge_host_walk_start(&walk);
    run();
    EXPECT_EQ(kernel->sockets.size(), 1U);
    EXPECT_EQ(kernel->open_sockets(), 0);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(kernel->sockets[0].type & SOCK_CLOEXEC, SOCK_CLOEXEC);
    EXPECT_TRUE(loop().pending.empty());
}

TEST_F(HostWalk, asks_as_the_library_does) {
    fill(2);
    bridge_host_walk_start(&walk);
    run();
    const size_t own = kernel->requests.size();
    bri_mac_entry entry{};
    entry.field = BRI_MAC_FIELD_MAC;
    ASSERT_EQ(bridge_maddr_find_first_on_mac(&entry), 0);
    ASSERT_EQ(bridge_maddr_find_next_on_mac(&entry, &entry), 0);
    std::vector<Packet> library;
    for (size_t i = own; i < kernel->requests.size(); ++i)
        library.push_back(kernel->requests[i].bytes);
    // The family, the first, and for the second look-up of the library the family once more.
    ASSERT_EQ(library.size(), 4U);
    EXPECT_EQ(kernel->requests[0].bytes, library[0]);
    EXPECT_EQ(kernel->requests[1].bytes, library[1]);
    EXPECT_EQ(kernel->requests[2].bytes, library[3]);
}

TEST_F(HostWalk, goes_by_port) {
    fill(5);
    walk.ifx = 2;
    bridge_host_walk_start(&walk);
    run();
    EXPECT_EQ(seen, (std::vector<int>{2, 4}));
    EXPECT_EQ(ends, std::vector<int>{0});
}

TEST_F(HostWalk, ends_when_it_is_enough) {
    fill(5);
    enough = 2;
    bridge_host_walk_start(&walk);
    run();
    EXPECT_EQ(seen, (std::vector<int>{1, 2}));
    EXPECT_EQ(ends, std::vector<int>{0});
}

TEST_F(HostWalk, lets_others_run_between_its_slices) {
    fill(20);
    walk.slice_us = 1;
    walk.on_entry = [](const bri_mac_entry *, void *) {
        usleep(2);
        return 0;
    };
    bridge_host_walk_start(&walk);
    int slices = 0;
    while (loop().run("host-walk") != -1000)
        ++slices;
    EXPECT_EQ(slices, 22); // the family, 20 entries and the end
    EXPECT_EQ(ends, std::vector<int>{0});
}

TEST_F(HostWalk, takes_many_entries_in_a_slice) {
    fill(20);
    walk.slice_us = 10000000;
    bridge_host_walk_start(&walk);
    loop().run("host-walk");
    EXPECT_EQ(seen.size(), 20U);
    EXPECT_EQ(ends, std::vector<int>{0});
}

TEST_F(HostWalk, does_not_wait_for_a_slow_kernel) {
    fill(2);
    std::vector<KernelRequest> waiting;
    kernel->on_data = [&](const KernelRequest &request) { waiting.push_back(request); };
    bridge_host_walk_start(&walk);
    run();
    EXPECT_EQ(seen.size(), 0U);
    EXPECT_EQ(loop().find("host-walk-limit")->usec, 10000000);
    while (!waiting.empty()) {
        answer(waiting.back());
        waiting.pop_back();
        run();
    }
    EXPECT_EQ(seen, (std::vector<int>{1, 2}));
    EXPECT_EQ(ends, std::vector<int>{0});
    EXPECT_TRUE(loop().pending.empty());
}

TEST_F(HostWalk, ends_when_the_kernel_stays_silent) {
    kernel->silent = true;
    walk.answer_ms = 70;
    bridge_host_walk_start(&walk);
    run();
    EXPECT_EQ(loop().find("host-walk-limit")->usec, 70000);
    loop().run("host-walk-limit");
    EXPECT_EQ(ends, std::vector<int>{BRI_ERR_WOULD_BLOCK});
    EXPECT_EQ(kernel->open_sockets(), 0);
    EXPECT_TRUE(loop().pending.empty());
}

TEST_F(HostWalk, says_that_there_is_no_bridge_module) {
    kernel->family = 0;
    bridge_host_walk_start(&walk);
    run();
    EXPECT_EQ(ends, std::vector<int>{BRI_ERR_SOCKET});
}

TEST_F(HostWalk, ends_when_the_module_goes_in_the_middle) {
    fill(5);
    kernel->on_data = [this](const KernelRequest &request) {
        if (seen.size() == 2)
            kernel->answer_error(request, -ENOENT);
        else
            answer(request);
    };
    bridge_host_walk_start(&walk);
    run();
    EXPECT_EQ(seen, (std::vector<int>{1, 2}));
    EXPECT_EQ(ends, std::vector<int>{BRI_ERR_SOCKET});
    EXPECT_EQ(loop().count("bri-ef-reconn"), 0); // the library's channel is its own
}

TEST_F(HostWalk, refuses_answers_that_cannot_be) {
    const auto find = bri_mac_find_first{{}, 1, address(1).entry};
    const Packet cut(sizeof find - 4);
    const std::vector<Packet> answers = {
        netlink_message(kernel->family, 3, netlink_attr(0, cut)), // shorter than its record
        netlink_message(static_cast<uint16_t>(kernel->family + 1), 3, netlink_attr(0, packet_of(find))), // another's
        netlink_message(kernel->family, 3, netlink_attr(0, packet_of(find)), 5000), // longer than it is
        Packet(3),
    };
    for (size_t i = 0; i < answers.size(); ++i) {
        kernel->on_data = [&](const KernelRequest &request) { kernel->deliver(request.fd, answers[i]); };
        ASSERT_EQ(bridge_host_walk_start(&walk), 0);
        run();
        EXPECT_EQ(ends, std::vector<int>{BRI_ERR_UNKNOWN}) << i;
        ends.clear();
    }
    EXPECT_EQ(seen.size(), 0U);
}

TEST_F(HostWalk, refuses_families_that_cannot_be) {
    const Packet name = netlink_attr(CTRL_ATTR_FAMILY_NAME, {'E', 'F', '_', 'B', 'R', 'I', 'D', 'G', 'E', 0});
    const Packet other = netlink_attr(CTRL_ATTR_FAMILY_NAME, {'E', 'F', '_', 'B', 'R', 'I', 'D', 'G', 'E', '2', 0});
    const Packet id = netlink_attr(CTRL_ATTR_FAMILY_ID, {27, 27});
    Packet endless = name;
    endless[0] = 0; // an attribute of no length at all, in either byte order
    endless[1] = 0;
    const std::vector<Packet> answers = {
        netlink_message(GENL_ID_CTRL, CTRL_CMD_NEWFAMILY, name),
        netlink_message(GENL_ID_CTRL, CTRL_CMD_NEWFAMILY, other + id),
        netlink_message(GENL_ID_CTRL, CTRL_CMD_NEWFAMILY, name + netlink_attr(CTRL_ATTR_FAMILY_ID, {1})),
        netlink_message(GENL_ID_CTRL, CTRL_CMD_NEWFAMILY, endless + id),
    };
    for (size_t i = 0; i < answers.size(); ++i) {
        kernel->on_resolve = [&](const KernelRequest &request) { kernel->deliver(request.fd, answers[i]); };
        ASSERT_EQ(bridge_host_walk_start(&walk), 0);
        run();
        EXPECT_EQ(ends, std::vector<int>{BRI_ERR_UNKNOWN}) << i;
        ends.clear();
    }
}

TEST_F(HostWalk, does_not_go_round_an_entry_that_comes_again) {
    fill(1);
    kernel->on_data = [this](const KernelRequest &request) {
        if (request.type() == MAC_EVENT_CLIENT_FIND_FIRST)
            find<bri_mac_find_first>(request, 0);
        else
            find<bri_mac_find_next>(request, 0);
    };
    bridge_host_walk_start(&walk);
    run();
    EXPECT_EQ(seen, std::vector<int>{1});
    EXPECT_EQ(ends, std::vector<int>{BRI_ERR_UNKNOWN});
}

TEST_F(HostWalk, that_is_cancelled_leaves_nothing) {
    fill(5);
    bridge_host_walk_start(&walk);
    bridge_host_walk_cancel(&walk);
    bridge_host_walk_cancel(&walk);
    bridge_host_walk_cancel(nullptr);
    run();
    EXPECT_TRUE(loop().pending.empty());
    EXPECT_EQ(kernel->open_sockets(), 0);
    EXPECT_EQ(ends.size(), 0U);
}

TEST_F(HostWalk, may_be_cancelled_and_begun_anew_by_an_entry) {
    fill(3);
    walk.on_entry = [](const bri_mac_entry *entry, void *self) {
        auto &test = *static_cast<HostWalk *>(self);
        test.seen.push_back(entry->mac[5]);
        if (test.seen.size() == 2) {
            bridge_host_walk_cancel(&test.walk);
            EXPECT_EQ(bridge_host_walk_start(&test.walk), 0);
        }
        return 0;
    };
    bridge_host_walk_start(&walk);
    run();
    EXPECT_EQ(seen, (std::vector<int>{1, 2, 1, 2, 3}));
    EXPECT_EQ(ends, std::vector<int>{0});
    EXPECT_EQ(kernel->open_sockets(), 0);
}

TEST_F(HostWalk, runs_beside_others) {
    fill(3);
    bridge_host_walk second = walk;
    second.ifx = 2;
    bridge_host_walk_start(&walk);
    bridge_host_walk_start(&second);
    run();
    EXPECT_EQ(seen.size(), 4U);
    EXPECT_EQ(ends, (std::vector<int>{0, 0}));
}

TEST_F(HostWalk, is_ended_with_the_layer) {
    kernel->silent = true;
    bridge_host_walk_start(&walk);
    run();
    bridge_host_stop([](const bridge_host_left *, void *) {});
    for (int i = 0; i < 1000 && ends.empty(); ++i)
        loop().run("host-stop");
    EXPECT_EQ(ends, std::vector<int>{BRI_ERR_NOT_PERMITTED});
    EXPECT_EQ(kernel->open_sockets(), 0);
    EXPECT_EQ(bridge_host_walk_start(&walk), BRI_ERR_NOT_PERMITTED);
}

TEST_F(HostWalk, is_refused_with_the_reason) {
    EXPECT_EQ(bridge_host_walk_start(nullptr), BRI_ERR_NULL);
    faults::fail("socket", 1, EMFILE);
    EXPECT_EQ(bridge_host_walk_start(&walk), BRI_ERR_SOCKET);
    loop().refused = "host-walk";
    EXPECT_EQ(bridge_host_walk_start(&walk), BRI_ERR_NO_MEMORY);
    loop().refused.clear();
    EXPECT_EQ(kernel->open_sockets(), 0);
    ASSERT_EQ(bridge_host_walk_start(&walk), 0);
    EXPECT_EQ(bridge_host_walk_start(&walk), BRI_ERR_INVALID);
    walk.on_entry = nullptr;
    EXPECT_EQ(bridge_host_walk_start(&walk), BRI_ERR_NULL);
    bridge_host_walk_cancel(&walk);
}

TEST_F(HostWalk, leaves_no_socket_that_cannot_be_bound) {
    faults::fail("bind", 1, EPERM);
    EXPECT_EQ(bridge_host_walk_start(&walk), BRI_ERR_SOCKET);
    EXPECT_EQ(kernel->open_sockets(), 0);
    EXPECT_TRUE(loop().pending.empty());
}

TEST_F(HostWalk, ends_when_its_socket_fails) {
    fill(2);
    for (const char *call : {"sendto", "recv"})
        for (int nth = 1; nth <= 3; ++nth) { // for the family, the first and the next
            ASSERT_EQ(bridge_host_walk_start(&walk), 0);
            faults::fail(call, nth, ECONNRESET);
            run();
            EXPECT_EQ(ends, std::vector<int>{BRI_ERR_SOCKET}) << call << nth;
            EXPECT_EQ(seen.size(), nth == 3 ? 1U : 0U) << call << nth;
            EXPECT_EQ(kernel->open_sockets(), 0);
            ends.clear();
            seen.clear();
        }
}

TEST_F(HostWalk, ends_when_the_loop_refuses_its_jobs) {
    kernel->silent = true;
    for (const char *job : {"host-walk-limit", "host-walk-read"}) {
        ASSERT_EQ(bridge_host_walk_start(&walk), 0);
        loop().refused = job;
        loop().run("host-walk");
        loop().refused.clear();
        EXPECT_EQ(ends, std::vector<int>{BRI_ERR_NO_MEMORY}) << job;
        EXPECT_TRUE(loop().pending.empty());
        ends.clear();
    }
}

TEST_F(HostWalk, tries_again_when_the_socket_is_full) {
    fill(1);
    bridge_host_walk_start(&walk);
    faults::fail("sendto", 1, ENOBUFS);
    loop().run("host-walk");
    EXPECT_EQ(loop().count("host-walk"), 1);
    run();
    EXPECT_EQ(seen, std::vector<int>{1});
    EXPECT_EQ(ends, std::vector<int>{0});
}

// As C++ has it.

TEST_F(HostWalk, is_an_object_that_gives_every_entry) {
    fill(3);
    bridge::walk typed{{},
                       [&](const bri_mac_entry &entry) { seen.push_back(entry.mac[5]); },
                       [&](bridge::error end) { ends.push_back(static_cast<int>(end)); }};
    ASSERT_EQ(typed.start(), bridge::error::ok);
    EXPECT_EQ(typed.start(), bridge::error::invalid); // it runs
    run();
    EXPECT_EQ(seen, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(ends, std::vector<int>{0});
}

TEST_F(HostWalk, is_an_object_that_goes_on_while_it_is_told_to) {
    fill(5);
    bridge::walk typed{{.ifx = 1},
                       [&](const bri_mac_entry &entry) {
                           seen.push_back(entry.mac[5]);
                           return seen.size() < 2;
                       },
                       [&](bridge::error end) { ends.push_back(static_cast<int>(end)); }};
    ASSERT_EQ(typed.start(), bridge::error::ok);
    run();
    EXPECT_EQ(seen, (std::vector<int>{1, 3}));
    EXPECT_EQ(ends, std::vector<int>{0});
}

TEST_F(HostWalk, is_an_object_with_which_it_ends) {
    fill(5);
    {
        bridge::walk typed{{},
                           [&](const bri_mac_entry &entry) { seen.push_back(entry.mac[5]); },
                           [&](bridge::error end) { ends.push_back(static_cast<int>(end)); }};
        ASSERT_EQ(typed.start(), bridge::error::ok);
    }
    run();
    EXPECT_TRUE(seen.empty());
    EXPECT_TRUE(ends.empty());
    EXPECT_EQ(kernel->open_sockets(), 0);
}

} // namespace
