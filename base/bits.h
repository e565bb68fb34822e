// Bit sets of 32-bit words: bit n is bit n & 31 of word n >> 5. The word layout is an interface, so walks go word by
// word on every byte order.
#pragma once

#include "base/shared_word.h"

#include <cstdint>

namespace bri::bits {

inline constexpr unsigned kSetBits = 4096; // event sets and VLAN sets
inline constexpr unsigned kSetWords = kSetBits / 32;

[[nodiscard]] constexpr unsigned word_of(unsigned bit) {
    return bit >> 5;
}
[[nodiscard]] constexpr uint32_t mask_of(unsigned bit) {
    return uint32_t{1} << (bit & 31U);
}

// The caller bounds `bit` by the set's size. What only reads takes its words as shared ones, so the same code serves
// private sets and sets in shared memory.
[[nodiscard]] inline bool test(const uint32_t *words, unsigned bit) {
    return (word::load(words[word_of(bit)]) >> (bit & 31U) & 1U) != 0;
}

// Changes of private sets.
inline void set(uint32_t *words, unsigned bit) {
    words[word_of(bit)] |= mask_of(bit);
}
inline void clear(uint32_t *words, unsigned bit) {
    words[word_of(bit)] &= ~mask_of(bit);
}

// A set in shared memory, whose bits other processes change at the same time: no change made here loses one of theirs.
// The view is copied freely; it may be none at all. The caller bounds bits and words by the set's size.
class SharedSet {
  public:
    explicit SharedSet(uint32_t *words) : words_(words) {}

    [[nodiscard]] explicit operator bool() const { return words_ != nullptr; }
    [[nodiscard]] bool test(unsigned bit) const { return bits::test(words_, bit); }

    [[nodiscard]] bool is(const uint32_t *words) const { return words_ == words; }

    // True when the call changed the bit.
    bool set(unsigned bit) const { return add(word_of(bit), mask_of(bit)) != 0; }
    bool clear(unsigned bit) const { return take(word_of(bit), mask_of(bit)) != 0; }

    // Word `index` by itself; the bits of `mask` that the call changed.
    uint32_t add(unsigned index, uint32_t mask) const { return mask & ~word::set_bits(words_[index], mask); }
    uint32_t take(unsigned index, uint32_t mask) const { return mask & word::clear_bits(words_[index], mask); }

    void reset(unsigned count) const {
        for (unsigned index = 0; index < count; ++index)
            word::store(words_[index], uint32_t{0});
    }

  private:
    uint32_t *words_;
};

// Bits of word `index` that lie in first..last.
[[nodiscard]] constexpr uint32_t range_mask(unsigned index, unsigned first, unsigned last) {
    const unsigned low = index * 32;
    uint32_t mask = ~uint32_t{0};
    if (first > low)
        mask = first - low > 31 ? 0 : mask << (first - low);
    if (last < low)
        return 0;
    if (last - low < 31)
        mask &= ~uint32_t{0} >> (31 - (last - low));
    return mask;
}

// Calls fn(bit) for each set bit in first..last, rising. Each word is read once, when the walk reaches it. fn may give
// bool: false ends the walk.
template <class Fn> inline void for_each(const uint32_t *words, unsigned first, unsigned last, Fn &&fn) {
    if (first > last)
        return;
    for (unsigned index = word_of(first); index <= word_of(last); ++index) {
        uint32_t left = word::load(words[index]) & range_mask(index, first, last);
        while (left != 0) {
            const unsigned bit = index * 32 + static_cast<unsigned>(__builtin_ctz(left));
            left &= left - 1;
            if constexpr (requires { static_cast<bool>(fn(bit)); }) {
                if (!fn(bit))
                    return;
            } else {
                fn(bit);
            }
        }
    }
}

[[nodiscard]] inline bool any(const uint32_t *words, unsigned count) {
    for (unsigned index = 0; index < count; ++index)
        if (word::load(words[index]) != 0)
            return true;
    return false;
}

[[nodiscard]] inline unsigned count(const uint32_t *words, unsigned n) {
    unsigned total = 0;
    for (unsigned index = 0; index < n; ++index)
        total += static_cast<unsigned>(__builtin_popcount(word::load(words[index])));
    return total;
}

// Adds the bits of another set of the same size, or takes them out. Private sets only.
inline void merge(uint32_t *words, const uint32_t *other, unsigned count) {
    for (unsigned index = 0; index < count; ++index)
        words[index] |= other[index];
}
inline void remove(uint32_t *words, const uint32_t *other, unsigned count) {
    for (unsigned index = 0; index < count; ++index)
        words[index] &= ~other[index];
}

} // namespace bri::bits
