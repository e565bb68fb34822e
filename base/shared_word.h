// Words that other processes or threads read and write while we do: relaxed atomics, which are plain loads and stores
// in machine code but are neither torn nor invented by the compiler. Bit changes never lose another writer's bit.
#pragma once

#include <cstdint>

namespace bri::word {

template <class T> [[nodiscard]] inline T load(const T &word) {
    return __atomic_load_n(&word, __ATOMIC_RELAXED);
}

template <class T> inline void store(T &word, T value) {
    __atomic_store_n(&word, value, __ATOMIC_RELAXED);
}

// All three give the value before the change.
template <class T> inline T set_bits(T &word, T bits) {
    return __atomic_fetch_or(&word, bits, __ATOMIC_RELAXED);
}

template <class T> inline T clear_bits(T &word, T bits) {
    return __atomic_fetch_and(&word, static_cast<T>(~bits), __ATOMIC_RELAXED);
}

template <class T> inline T add(T &word, T amount) {
    return __atomic_fetch_add(&word, amount, __ATOMIC_RELAXED);
}

// Puts change(value) in place of the word's value while may(value) holds, in one step; whether it did. `met` becomes
// the value that was there: the one replaced, or the one that may not be.
template <class T, class May, class Change> inline bool change_if(T &word, T &met, May &&may, Change &&change) {
    met = load(word);
    while (may(met))
        if (__atomic_compare_exchange_n(&word, &met, static_cast<T>(change(met)), true, __ATOMIC_RELAXED,
                                        __ATOMIC_RELAXED))
            return true;
    return false;
}

// Sets `bits` unless one of `barred` is set already. Gives the barred bits that it found; 0 means that it set them.
template <class T> inline T set_bits_unless(T &word, T bits, T barred) {
    T met;
    const bool set = change_if(
        word, met, [=](T now) { return (now & barred) == 0; }, [=](T now) { return now | bits; });
    return set ? T{0} : static_cast<T>(met & barred);
}

} // namespace bri::word
