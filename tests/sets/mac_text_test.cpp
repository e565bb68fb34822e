// The helpers for MAC addresses.
#include "tests/support/test.h"

#include <bridge/sets.h>

#include <array>
#include <memory>

namespace {

using Address = std::array<uint8_t, 6>;
constexpr Address kAddress{0x02, 0x00, 0x5E, 0xAB, 0xCD, 0x0F};

std::string mac_text(const Address &address) {
    char text[BRI_MAC_TEXT_SIZE];
    return bri_mac_to_text(address.data(), text, sizeof text);
}

TEST(MacText, reads_all_three_forms_in_either_case) {
    for (const char *text : {"02:00:5e:ab:cd:0f", "02-00-5e-ab-cd-0f", "0200.5eab.cd0f", "02:00:5E:AB:CD:0F",
                             "02-00-5E-aB-Cd-0F", "0200.5EAB.CD0F"}) {
        Address read{};
        EXPECT_EQ(bri_mac_from_text(read.data(), text), 0) << text;
        EXPECT_EQ(read, kAddress) << text;
    }
}

TEST(MacText, refuses_every_other_text_and_leaves_the_address) {
    for (const char *text : {"",
                             "02",
                             "02:00:5e:ab:cd",
                             "02:00:5e:ab:cd:",
                             "02:00:5e:ab:cd:0",
                             "02:00:5e:ab:cd:0f:",
                             "02:00:5e:ab:cd:0f ",
                             " 02:00:5e:ab:cd:0f",
                             "2:0:5e:ab:cd:f",
                             "02:00-5e:ab:cd:0f",
                             "02-00:5e-ab-cd-0f",
                             "02.00.5e.ab.cd.0f",
                             "0200:5eab:cd0f",
                             "0200.5eabcd0f",
                             "0200.5eab.cd0f.",
                             "02005e.abcd0f",
                             "02005eabcd0f",
                             "0g:00:5e:ab:cd:0f",
                             "02:00:5e:ab:cd:0g",
                             "02::5e:ab:cd:0f:00",
                             "::::::",
                             "..",
                             "0x:00:5e:ab:cd:0f",
                             "020.05eab.cd0f"}) {
        Address read = kAddress;
        EXPECT_EQ(bri_mac_from_text(read.data(), text), -1) << text;
        EXPECT_EQ(read, kAddress) << text;
    }
    Address read = kAddress;
    EXPECT_EQ(bri_mac_from_text(read.data(), nullptr), -1);
    EXPECT_EQ(read, kAddress);
}

TEST(MacText, reads_nothing_behind_the_end_of_a_text) {
    const std::string whole = "02:00:5e:ab:cd:0f";
    for (size_t length = 0; length < whole.size(); ++length) {
        // Of its exact size, so that a sanitizer sees a byte too many.
        const auto text = std::make_unique<char[]>(length + 1);
        std::memcpy(text.get(), whole.data(), length);
        Address read{};
        EXPECT_EQ(bri_mac_from_text(read.data(), text.get()), -1) << length;
    }
}

TEST(MacText, every_byte_is_written_and_read_back_in_every_place) {
    for (size_t place = 0; place < kAddress.size(); ++place)
        for (unsigned value = 0; value < 256; ++value) {
            Address address = kAddress;
            address[place] = static_cast<uint8_t>(value);
            Address read{};
            ASSERT_EQ(bri_mac_from_text(read.data(), mac_text(address).c_str()), 0);
            ASSERT_EQ(read, address);
        }
    EXPECT_EQ(mac_text(kAddress), "02:00:5e:ab:cd:0f");
}

TEST(MacText, a_buffer_that_is_too_small_holds_the_empty_text) {
    for (size_t size = 0; size < BRI_MAC_TEXT_SIZE; ++size) {
        std::string buffer(size + 4, 'x');
        EXPECT_EQ(bri_mac_to_text(kAddress.data(), buffer.data(), size), buffer.data());
        EXPECT_EQ(buffer, size == 0 ? "xxxx" : std::string(1, '\0') + std::string(size + 3, 'x'));
    }
}

TEST(MacText, compares_as_numbers_are) {
    constexpr Address kLess{0x7F, 0x01, 0x7F, 0x01, 0x7F, 0x01};
    for (size_t place = 0; place < kLess.size(); ++place) {
        Address greater = kLess;
        greater[place] |= 0x80;
        if (place + 1 < kLess.size())
            greater[place + 1] = 0; // weighs less than the byte before it
        EXPECT_LT(bri_mac_compare(kLess.data(), greater.data()), 0) << place;
        EXPECT_GT(bri_mac_compare(greater.data(), kLess.data()), 0) << place;
    }
    EXPECT_EQ(bri_mac_compare(kLess.data(), Address(kLess).data()), 0);
}

TEST(MacText, zero_is_all_bytes_zero) {
    EXPECT_EQ(bri_mac_is_zero(Address{}.data()), 1);
    for (size_t place = 0; place < kAddress.size(); ++place) {
        Address address{};
        address[place] = 0x80;
        EXPECT_EQ(bri_mac_is_zero(address.data()), 0) << place;
    }
}

TEST(MacText, a_group_address_has_the_lowest_bit_of_its_first_byte) {
    for (unsigned value = 0; value < 256; ++value) {
        const Address address{static_cast<uint8_t>(value), 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
        EXPECT_EQ(bri_mac_is_multicast(address.data()), static_cast<int>(value & 1)) << value;
    }
}

} // namespace
