#include "base/raii.h"

#include <fcntl.h>

namespace {

using AboveZero = test::Env;

TEST_F(AboveZero, moves_descriptor_0_and_closes_it) {
    close(0);
    ASSERT_EQ(open("/dev/null", O_RDONLY), 0);
    const int moved = bri::above_zero(0);
    EXPECT_GT(moved, 0);
    EXPECT_EQ(fcntl(moved, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(0, F_GETFD), -1);
    close(moved);
}

TEST_F(AboveZero, leaves_every_other_value_alone) {
    EXPECT_EQ(bri::above_zero(-1), -1);
    EXPECT_EQ(bri::above_zero(2), 2);
}

} // namespace
