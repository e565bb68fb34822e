#include "wire/kernel_message.h"
#include "wire/text.h"

#include <gtest/gtest.h>

namespace {

using namespace wire;
using What = KernelMessage::What;

constexpr uint16_t kFamily = 0x23;

template <class Head> Buffer head_of(const std::string &text, Order order) {
    return parse_text(one(record_of<Head>()), text, order);
}

class WireKernelMessage : public testing::TestWithParam<Order> {
  protected:
    [[nodiscard]] static KernelMessage read(Bytes bytes, Direction direction) {
        return read_kernel_message(bytes, direction, GetParam());
    }
};

TEST_P(WireKernelMessage, request_has_its_type_and_data) {
    Buffer bytes = head_of<ef_bridge_request>("nlmsg_type=" + std::to_string(kFamily) + " type=286 len=3", GetParam());
    append(bytes, Buffer{1, 2, 3, 0});
    const KernelMessage message = read(bytes, Direction::kToKernel);
    EXPECT_EQ(message.what, What::kRequest);
    EXPECT_EQ(message.type, 286U);
    EXPECT_EQ(Buffer(message.data.begin(), message.data.end()), (Buffer{1, 2, 3}));
}

TEST_P(WireKernelMessage, answer_has_its_data) {
    Buffer bytes = head_of<ef_bridge_answer>("nlmsg_type=" + std::to_string(kFamily) + " nla_len=6", GetParam());
    append(bytes, Buffer{7, 8, 0, 0});
    const KernelMessage message = read(bytes, Direction::kFromKernel);
    EXPECT_EQ(message.what, What::kAnswer);
    EXPECT_EQ(Buffer(message.data.begin(), message.data.end()), (Buffer{7, 8}));
}

TEST_P(WireKernelMessage, refusal_has_its_error) {
    Buffer bytes = head_of<ef_bridge_answer>("nlmsg_type=2", GetParam());
    store(bytes, 16, 4, GetParam(), static_cast<uint32_t>(-16));
    const KernelMessage message = read(bytes, Direction::kFromKernel);
    EXPECT_EQ(message.what, What::kError);
    EXPECT_EQ(message.error, 16);
}

TEST_P(WireKernelMessage, the_controllers_messages_are_told_apart) {
    const auto what = [](const char *text, Direction direction) {
        return read(head_of<ef_bridge_answer>(text, GetParam()), direction).what;
    };
    EXPECT_EQ(what("nlmsg_type=16 cmd=3", Direction::kToKernel), What::kFamilyAsked);
    EXPECT_EQ(what("nlmsg_type=16 cmd=1", Direction::kFromKernel), What::kFamily);
    EXPECT_EQ(what("nlmsg_type=16 cmd=2", Direction::kFromKernel), What::kFamilyGone);
    EXPECT_EQ(what("nlmsg_type=16 cmd=7", Direction::kFromKernel), What::kOther);
}

// Each piece is a block of its own, so that a sanitizer sees what is read behind it.
TEST_P(WireKernelMessage, what_is_cut_is_read_as_far_as_it_goes) {
    Buffer whole = head_of<ef_bridge_request>("nlmsg_type=35 type=286 len=4000000000", GetParam());
    append(whole, Buffer(8, 0xFF));
    for (size_t size = 0; size <= whole.size(); ++size) {
        Buffer cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
        cut.shrink_to_fit();
        const KernelMessage request = read(cut, Direction::kToKernel);
        EXPECT_EQ(request.what, size < sizeof(ef_bridge_request) ? What::kOther : What::kRequest) << size;
        EXPECT_EQ(request.data.size(), size < sizeof(ef_bridge_request) ? 0 : size - sizeof(ef_bridge_request));
        EXPECT_EQ(read(cut, Direction::kFromKernel).what,
                  size < sizeof(ef_bridge_answer) ? What::kOther : What::kAnswer);
    }
}

INSTANTIATE_TEST_SUITE_P(Orders, WireKernelMessage, testing::Values(Order::kLittle, Order::kBig),
                         [](const auto &each) { return std::string(each.param == Order::kBig ? "big" : "little"); });

} // namespace
