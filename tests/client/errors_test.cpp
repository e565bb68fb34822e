#include "tests/support/test.h"

#include <climits>

namespace {

TEST(Errors, have_their_texts) {
    EXPECT_STREQ(bri_strerror(0), "Success, not errno");
    EXPECT_STREQ(bri_strerror(-1), "Input null pointer");
    EXPECT_STREQ(bri_strerror(-2), "Invalid argument");
    EXPECT_STREQ(bri_strerror(-3), "Operation not permit");
    EXPECT_STREQ(bri_strerror(-4), "No memory");
    EXPECT_STREQ(bri_strerror(-5), "Error socket");
    EXPECT_STREQ(bri_strerror(-6), "Socket would block");
    EXPECT_STREQ(bri_strerror(-7), "No such vlan");
    EXPECT_STREQ(bri_strerror(-8), "Cannot operate on this vlan mode");
    EXPECT_STREQ(bri_strerror(-9), "Interface isn't exists");
    EXPECT_STREQ(bri_strerror(-10), "Interface is route, isn't switchport");
    EXPECT_STREQ(bri_strerror(-11), "Cannot operate on this switchport vlan mode");
    EXPECT_STREQ(bri_strerror(-12), "unknown errno");
}

TEST(Errors, beyond_the_table_are_unknown) {
    for (int code = 1; code < 200; ++code)
        EXPECT_STREQ(bri_strerror(code), "unknown errno") << code;
    for (int code = -13; code > -200; --code)
        EXPECT_STREQ(bri_strerror(code), "unknown errno") << code;
    EXPECT_STREQ(bri_strerror(INT_MAX), "unknown errno");
    EXPECT_STREQ(bri_strerror(INT_MIN), "unknown errno");
}

} // namespace
