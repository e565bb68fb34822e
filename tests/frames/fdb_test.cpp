// Addresses as netlink messages, byte for byte, and back.
#include "frames/fdb.h"
#include "tests/support/test.h"

#include <linux/neighbour.h>
#include <linux/rtnetlink.h>

namespace {

using namespace frames;

using test::ByteVec;

constexpr uint32_t kBridge = 5;
constexpr Host kHost{{2, 0, 0, 0, 0, 9}, 10};

// As the kernel tells of it.
Request told(uint16_t type, uint32_t link, uint16_t state, uint32_t master = kBridge, uint16_t vid = 10) {
    ndmsg head{};
    head.ndm_family = AF_BRIDGE;
    head.ndm_ifindex = static_cast<int>(link);
    head.ndm_state = state;
    Request request(type, 0, head);
    request.put(NDA_LLADDR, frames::bytes_of(kHost.mac)).put(NDA_MASTER, master);
    if (vid != 0)
        request.put(NDA_VLAN, vid);
    return request;
}

Notice notice_of(const Request &request) {
    return {object_of<nlmsghdr>(request.bytes()).nlmsg_type, request.bytes().subspan(sizeof(nlmsghdr))};
}

TEST(FramesFdb, static_address_is_sticky_behind_its_port) {
    const Request request = add_entry(kHost, place_of(BRI_MAC_TYPE_STATIC, 7, kBridge), kBridge);
    EXPECT_EQ(ByteVec(request.bytes().begin(), request.bytes().end()), (ByteVec{
                                                                           48,
                                                                           0,
                                                                           0,
                                                                           0,
                                                                           RTM_NEWNEIGH,
                                                                           0,
                                                                           5,
                                                                           5,
                                                                           0,
                                                                           0,
                                                                           0,
                                                                           0,
                                                                           0,
                                                                           0,
                                                                           0,
                                                                           0, // create or replace
                                                                           7,
                                                                           0,
                                                                           0,
                                                                           0,
                                                                           7,
                                                                           0,
                                                                           0,
                                                                           0,
                                                                           NUD_NOARP,
                                                                           0,
                                                                           NTF_MASTER | NTF_STICKY,
                                                                           0, // at link 7
                                                                           10,
                                                                           0,
                                                                           2,
                                                                           0,
                                                                           2,
                                                                           0,
                                                                           0,
                                                                           0,
                                                                           0,
                                                                           9,
                                                                           0,
                                                                           0,
                                                                           6,
                                                                           0,
                                                                           5,
                                                                           0,
                                                                           10,
                                                                           0,
                                                                           0,
                                                                           0, // address, VLAN
                                                                       }));
}

TEST(FramesFdb, filter_is_the_bridges_own) {
    const Place place = place_of(BRI_MAC_TYPE_FILTER, 7, kBridge);
    EXPECT_EQ(place, (Place{kBridge, NUD_PERMANENT}));
    const auto head = notice_of(add_entry(kHost, place, kBridge)).head<ndmsg>();
    EXPECT_EQ(head.ndm_flags, NTF_SELF);
    EXPECT_EQ(head.ndm_state, NUD_PERMANENT);
}

TEST(FramesFdb, every_type_has_a_place_that_is_taken_for_a_type_of_its_kind) {
    for (uint32_t type = BRI_MAC_TYPE_DYNAMIC; type <= BRI_MAC_TYPE_TRUST; ++type) {
        const Place place = place_of(type, 7, kBridge);
        EXPECT_EQ(place_of(type_of(place, kBridge), 7, kBridge), place) << type;
    }
}

TEST(FramesFdb, what_the_kernel_has_learned_is_dynamic) {
    for (const uint16_t state : std::initializer_list<uint16_t>{NUD_REACHABLE, NUD_STALE, 0}) {
        const auto change = fdb_change(notice_of(told(RTM_NEWNEIGH, 7, state)), kBridge);
        ASSERT_TRUE(change && change->place);
        EXPECT_EQ(change->host, kHost);
        EXPECT_EQ(type_of(*change->place, kBridge), static_cast<uint32_t>(BRI_MAC_TYPE_DYNAMIC));
        EXPECT_EQ(change->place->link, 7U);
    }
}

TEST(FramesFdb, what_has_gone_has_no_place) {
    const auto change = fdb_change(notice_of(told(RTM_DELNEIGH, 7, NUD_REACHABLE)), kBridge);
    ASSERT_TRUE(change);
    EXPECT_FALSE(change->place);
}

TEST(FramesFdb, other_bridges_and_entries_without_a_vlan_are_passed_over) {
    EXPECT_FALSE(fdb_change(notice_of(told(RTM_NEWNEIGH, 7, NUD_REACHABLE, 6)), kBridge));
    EXPECT_FALSE(fdb_change(notice_of(told(RTM_NEWNEIGH, 7, NUD_REACHABLE, kBridge, 0)), kBridge));
}

TEST(FramesFdb, cut_notice_is_nobodys) {
    const Request whole = told(RTM_NEWNEIGH, 7, NUD_REACHABLE);
    for (size_t size = 0; size < whole.bytes().size() - sizeof(nlmsghdr) - 4; ++size) {
        const ByteVec cut(whole.bytes().begin() + sizeof(nlmsghdr),
                          whole.bytes().begin() + sizeof(nlmsghdr) + static_cast<ptrdiff_t>(size));
        EXPECT_FALSE(fdb_change({RTM_NEWNEIGH, cut}, kBridge)) << size;
    }
}

} // namespace
