// VLANs of a bridge's ports as netlink messages, byte for byte, and back.
#include "frames/vlans.h"
#include "tests/support/test.h"

#include <linux/if_bridge.h>
#include <linux/rtnetlink.h>

namespace {

using namespace frames;
using namespace sandbox;

using test::ByteVec;

ByteVec bytes(const Request &request) {
    return {request.bytes().begin(), request.bytes().end()};
}

PortVlans carried(const std::string &members, const std::string &untagged, uint16_t pvid) {
    return {parse_vlans(members), parse_vlans(untagged), pvid};
}

TEST(FramesVlans, native_vlan_and_a_range_are_one_message) {
    const Requests requests = vlan_requests(7, Side::kPort, {}, carried("10,20-22", "10", 10));
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(bytes(requests[0]),
              (ByteVec{
                  60, 0, 0,  0,   RTM_SETLINK, 0, 5,  0, 0, 0, 0, 0, 0,  0, 0,  0, // asks for an answer
                  7,  0, 0,  0,   7,           0, 0,  0, 0, 0, 0, 0, 0,  0, 0,  0, // of AF_BRIDGE
                  28, 0, 26, 128,                                                  // IFLA_AF_SPEC
                  8,  0, 2,  0,   6,           0, 10, 0,                           // 10 untagged, native
                  8,  0, 2,  0,   8,           0, 20, 0, 8, 0, 2, 0, 16, 0, 22, 0, // 20 to 22
              }));
}

TEST(FramesVlans, what_goes_goes_before_what_comes) {
    const Requests requests = vlan_requests(7, Side::kPort, carried("1", "1", 1), carried("10", "10", 10));
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(object_of<nlmsghdr>(requests[0].bytes()).nlmsg_type, RTM_DELLINK);
    EXPECT_EQ(object_of<nlmsghdr>(requests[1].bytes()).nlmsg_type, RTM_SETLINK);
}

TEST(FramesVlans, nothing_is_asked_for_what_is_so_already) {
    EXPECT_TRUE(vlan_requests(7, Side::kPort, carried("1-99", "5", 5), carried("1-99", "5", 5)).empty());
}

TEST(FramesVlans, another_native_vlan_changes_the_two_alone) {
    const Requests requests = vlan_requests(7, Side::kPort, carried("1-99", "5", 5), carried("1-99", "6", 6));
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].bytes().size(), 16U + 16 + 4 + 2 * 8);
}

TEST(FramesVlans, the_bridges_own_are_marked_as_that) {
    const Requests requests = vlan_requests(7, Side::kBridge, {}, carried("10", "none", 0));
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(object_of<uint16_t>(requests[0].bytes().subspan(40)), BRIDGE_FLAGS_SELF);
}

TEST(FramesVlans, a_set_without_neighbours_is_told_in_several_messages_that_are_read_back) {
    PortVlans odd;
    for (unsigned vid = 1; vid < BRI_VID_MAX; vid += 2)
        put(odd.members, vid);
    const Requests requests = vlan_requests(7, Side::kPort, {}, odd);
    EXPECT_GT(requests.size(), 1U);
    vlanset read{};
    for (const Request &request : requests)
        read = both(read, vlans_of(request.bytes().subspan(36)).members);
    EXPECT_EQ(vlans_text(read), vlans_text(odd.members));
}

TEST(FramesVlans, all_there_are_come_back_from_a_range) {
    const Requests requests = vlan_requests(7, Side::kPort, {}, carried("1-4094", "300", 300));
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(vlans_of(requests[0].bytes().subspan(36)), carried("1-4094", "300", 300));
}

TEST(FramesVlans, state_of_neighbours_is_one_entry) {
    VlanStates have{};
    VlanStates want{};
    want[10] = want[11] = BR_STATE_BLOCKING;
    want[13] = BR_STATE_FORWARDING;
    const Requests requests = state_requests(7, parse_vlans("10-13"), have, want);
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(
        bytes(requests[0]),
        (ByteVec{
            72,  0, 0, 0,   RTM_NEWVLAN, 0,  5, 0,  0,  0, 0,  0, 0, 0,  0, 0, 7, 0, 0, 0, 7, 0, 0, 0, 28, 0, 1,
            128, 8, 0, 1,   0,           64, 0, 10, 0,  6, 0,  2, 0, 11, 0, 0, 0, 5, 0, 3, 0, 4, 0, 0, 0, // 10 and 11
            20,  0, 1, 128, 8,           0,  1, 0,  64, 0, 13, 0, 5, 0,  3, 0, 3, 0, 0, 0,                // 13
        }));
}

TEST(FramesVlans, entry_of_the_kernel_is_taken_with_its_state) {
    VlanStates none{};
    VlanStates want{};
    want[10] = want[11] = BR_STATE_LEARNING;
    const Request request = state_requests(7, parse_vlans("10-11"), none, want)[0];
    PortVlans vlans = carried("5,10", "10", 10);
    VlanStates states{};
    take_vlans({RTM_NEWVLAN, request.bytes().subspan(16)}, vlans, states);
    EXPECT_EQ(vlans, carried("5,10-11", "none", 0));
    EXPECT_EQ(states, want);
    take_vlans({RTM_DELVLAN, request.bytes().subspan(16)}, vlans, states);
    EXPECT_EQ(vlans, carried("5", "none", 0));
}

TEST(FramesVlans, cut_message_is_read_up_to_its_end) {
    const Request whole = vlan_requests(7, Side::kPort, {}, carried("10,20-22", "10", 10))[0];
    for (size_t size = 0; size < whole.bytes().size() - 36; ++size) {
        const ByteVec cut(whole.bytes().begin() + 36, whole.bytes().begin() + 36 + static_cast<ptrdiff_t>(size));
        const PortVlans vlans = vlans_of(cut);
        EXPECT_LE(count(vlans.members), 4U);
    }
}

TEST(FramesVlans, numbers_that_are_no_vlan_are_in_no_set) {
    const struct {
        nlattr head;
        bridge_vlan_info info;
    } run[] = {{{8, IFLA_BRIDGE_VLAN_INFO}, {BRIDGE_VLAN_INFO_RANGE_BEGIN, 4000}},
               {{8, IFLA_BRIDGE_VLAN_INFO}, {BRIDGE_VLAN_INFO_RANGE_END, 65535}}};
    EXPECT_EQ(vlans_text(vlans_of(frames::bytes_of(run)).members), "4000-4094");
}

TEST(FramesVlans, end_of_a_range_that_has_not_begun_is_itself_alone) {
    const struct {
        nlattr head;
        bridge_vlan_info info;
    } run[] = {{{8, IFLA_BRIDGE_VLAN_INFO}, {BRIDGE_VLAN_INFO_RANGE_BEGIN, 5}},
               {{8, IFLA_BRIDGE_VLAN_INFO}, {BRIDGE_VLAN_INFO_RANGE_END, 6}},
               {{8, IFLA_BRIDGE_VLAN_INFO}, {BRIDGE_VLAN_INFO_RANGE_END, 20}}};
    EXPECT_EQ(vlans_text(vlans_of(frames::bytes_of(run)).members), "5-6,20");
}

} // namespace
