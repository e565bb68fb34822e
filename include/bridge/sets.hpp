// Sets of events, VLANs and ports as values and as ranges, and MAC addresses as values: bridge/sets.h for C++20. Needs
// no exceptions and no RTTI, allocates nothing, and costs what the C functions cost.
//
// @code
// // What of VLANs 10 and 20 is missing in a set where it lies, as in an event's record.
// bridge::vlans missing(const vlanset &there) {
//     bridge::vlans wanted{10, 20};
//     wanted -= there;
//     return wanted;
// }
//
// uint32_t sum_of_ids(const vlanset &there) {
//     uint32_t sum = 0;
//     for (const uint32_t vid : bridge::in(there))
//         sum += vid;
//     return sum;
// }
// @endcode
//
// A set of one's own is its struct: its address goes wherever the C interface takes one.
#pragma once

#include <bridge/sets.h>

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <ranges>

namespace bridge {

// The functions of a set's kind, by its struct.
template <class Set> struct set_kind;
template <> struct set_kind<::event_set> {
    static constexpr uint32_t last = BRI_EVENT_MAX;
    static constexpr size_t text_size = BRI_SET_TEXT_SIZE;
};
template <> struct set_kind<::vlanset> {
    static constexpr uint32_t last = BRI_VID_MAX;
    static constexpr size_t text_size = BRI_SET_TEXT_SIZE;
};
template <> struct set_kind<::bri_port_set> {
    static constexpr uint32_t last = BRI_IFX_MAX;
    static constexpr size_t text_size = BRI_PORT_SET_TEXT_SIZE;
};

// A walk over the numbers of a set, rising. What is changed in the set behind the walk's place shows in it.
template <uint32_t Last> class set_iterator {
  public:
    using value_type = uint32_t;
    using difference_type = std::ptrdiff_t;
    using reference = uint32_t;
    using pointer = void;
    using iterator_category = std::input_iterator_tag; // by the older rules, which want references
    using iterator_concept = std::forward_iterator_tag;

    set_iterator() = default;
    set_iterator(const uint32_t *words, uint32_t id) : words_(words), id_(id) {}

    uint32_t operator*() const { return id_; }
    set_iterator &operator++() {
        id_ = bri_words_next(words_, Last, id_);
        return *this;
    }
    set_iterator operator++(int) {
        const set_iterator before = *this;
        ++*this;
        return before;
    }
    friend bool operator==(const set_iterator &one, const set_iterator &other) { return one.id_ == other.id_; }

  private:
    const uint32_t *words_ = nullptr;
    uint32_t id_ = 0; // 0: behind the last
};

// The numbers of a set that lies elsewhere and must stay there.
template <uint32_t Last> class set_view : public std::ranges::view_base {
  public:
    set_view() = default;
    explicit set_view(const uint32_t *words) : words_(words) {}

    [[nodiscard]] set_iterator<Last> begin() const {
        return {words_, words_ == nullptr ? 0 : bri_words_next(words_, Last, 0)};
    }
    [[nodiscard]] set_iterator<Last> end() const { return {words_, 0}; }

  private:
    const uint32_t *words_ = nullptr; // null: no numbers
};

// The numbers of a set of the C interface, also of two words of members of a VLAN.
template <class Set> [[nodiscard]] set_view<set_kind<Set>::last> in(const Set &set) {
    return set_view<set_kind<Set>::last>(set.words);
}
[[nodiscard]] inline set_view<BRI_IFX_MAX> in(const uint32_t (&members)[2]) {
    return set_view<BRI_IFX_MAX>(members);
}
template <class Set> void in(const Set &&) = delete; // it would be gone

// A set of one's own.
template <class Set> class id_set : public Set {
    using kind = set_kind<Set>;

  public:
    using iterator = set_iterator<kind::last>;

    id_set() : Set{} {}
    id_set(const Set &set) : Set(set) {} // it is one
    // Numbers out of range are left out.
    id_set(std::initializer_list<uint32_t> ids) : Set{} {
        for (const uint32_t id : ids)
            add(id);
    }
    // The set of a list text ("1-10,20"), if it is one.
    [[nodiscard]] static std::optional<id_set> parse(const char *text) {
        std::optional<id_set> set(std::in_place);
        if (bri_words_from_text(set->words, kind::last, text) != 0)
            set.reset();
        return set;
    }

    // False when a number is out of range; nothing has changed then.
    bool add(uint32_t id) { return bri_words_add(this->words, kind::last, id) == 0; }
    bool add(uint32_t first, uint32_t last) { return bri_words_add_range(this->words, kind::last, first, last) == 0; }
    bool remove(uint32_t id) { return bri_words_remove(this->words, kind::last, id) == 0; }
    void clear() { std::memset(this->words, 0, sizeof this->words); }

    // Of numbers, as of a container of them.
    [[nodiscard]] bool contains(uint32_t id) const { return bri_words_has(this->words, kind::last, id) != 0; }
    [[nodiscard]] uint32_t size() const { return bri_words_count(this->words, kind::last); }
    [[nodiscard]] bool empty() const { return bri_words_next(this->words, kind::last, 0) == 0; }
    [[nodiscard]] iterator begin() const { return {this->words, bri_words_next(this->words, kind::last, 0)}; }
    [[nodiscard]] iterator end() const { return {this->words, 0}; }

    // All bits, also those that are no numbers.
    id_set &operator|=(const Set &other) {
        for (size_t i = 0; i < std::size(other.words); ++i)
            this->words[i] |= other.words[i];
        return *this;
    }
    id_set &operator&=(const Set &other) {
        for (size_t i = 0; i < std::size(other.words); ++i)
            this->words[i] &= other.words[i];
        return *this;
    }
    id_set &operator-=(const Set &other) {
        for (size_t i = 0; i < std::size(other.words); ++i)
            this->words[i] &= ~other.words[i];
        return *this;
    }
    friend id_set operator|(id_set one, const Set &other) { return one |= other; }
    friend id_set operator&(id_set one, const Set &other) { return one &= other; }
    friend id_set operator-(id_set one, const Set &other) { return one -= other; }
    friend bool operator==(const id_set &one, const id_set &other) {
        return std::memcmp(one.words, other.words, sizeof one.words) == 0;
    }

    // The list text, in an object of its own: printf("%s", set.text().c_str()).
    struct list_text {
        char chars[kind::text_size];
        [[nodiscard]] const char *c_str() const { return chars; }
    };
    [[nodiscard]] list_text text() const {
        list_text text;
        bri_words_to_text(this->words, kind::last, text.chars, sizeof text.chars);
        return text;
    }
};

// The three kinds.
using events = id_set<::event_set>;
using vlans = id_set<::vlanset>;
using ports = id_set<::bri_port_set>;

// A MAC address. It compares as a number does, so it can be a key.
class mac_address {
  public:
    constexpr mac_address() = default; // the zero address
    constexpr mac_address(uint8_t a, uint8_t b, uint8_t c, uint8_t d, uint8_t e, uint8_t f)
        : bytes_{a, b, c, d, e, f} {}
    explicit constexpr mac_address(const uint8_t (&bytes)[6])
        : mac_address(bytes[0], bytes[1], bytes[2], bytes[3], bytes[4], bytes[5]) {}

    // 02:00:5e:10:00:01, 02-00-5e-10-00-01 or 0200.5e10.0001.
    [[nodiscard]] static std::optional<mac_address> parse(const char *text) {
        std::optional<mac_address> address(std::in_place);
        if (bri_mac_from_text(address->bytes_.data(), text) != 0)
            address.reset();
        return address;
    }

    [[nodiscard]] constexpr const uint8_t *data() const { return bytes_.data(); } // 6 bytes, as the C interface wants
    [[nodiscard]] constexpr bool is_zero() const { return *this == mac_address(); }
    [[nodiscard]] constexpr bool is_multicast() const { return (bytes_[0] & 1) != 0; }
    friend constexpr auto operator<=>(const mac_address &, const mac_address &) = default;

    // 02:00:5e:10:00:01, in an object of its own.
    struct mac_text {
        char chars[BRI_MAC_TEXT_SIZE];
        [[nodiscard]] const char *c_str() const { return chars; }
    };
    [[nodiscard]] mac_text text() const {
        mac_text text;
        bri_mac_to_text(bytes_.data(), text.chars, sizeof text.chars);
        return text;
    }

  private:
    std::array<uint8_t, 6> bytes_{};
};

} // namespace bridge

template <uint32_t Last> inline constexpr bool std::ranges::enable_borrowed_range<bridge::set_view<Last>> = true;
