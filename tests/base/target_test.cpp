// A cross configuration that silently ran on the build machine would prove nothing: the program says what it is and
// must be what the preset asked for.
#include "tests/support/test.h"

#include <cstdio>
#include <string_view>
#include <sys/utsname.h>

namespace {

std::string_view byte_order() {
    const uint32_t word = 0x01020304;
    return test::value_at<uint8_t>(&word, 0) == 1 ? "big" : "little";
}

TEST(target, is_what_the_preset_says) {
    utsname machine = {};
    ASSERT_EQ(uname(&machine), 0);
    std::printf("sizeof(void*) %zu, %s-endian, machine %s\n", sizeof(void *), byte_order().data(), machine.machine);
    EXPECT_EQ(sizeof(void *), size_t{BRIDGE_EXPECT_POINTER});
    EXPECT_EQ(byte_order(), BRIDGE_EXPECT_ENDIAN);
}

} // namespace
