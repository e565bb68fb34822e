// How the records of a table in shared memory are reached: one set of names for every table.
#pragma once

#include "base/bits.h"
#include "base/shared_word.h"

#include <bridge/base.h>

#include <cstddef>
#include <cstdint>

namespace bri::table {

// A table describes itself to these by `Places`: its Record, the Id that numbers them, kInUse (the field that is not 0
// in a record that is in use), and slot(id), the place of a record, in use or not; null for a number without a place
// and before the table is mapped.
template <class Places> struct Records {
    using Record = typename Places::Record;
    using Id = typename Places::Id;

    [[nodiscard]] static Record *slot(Id id) { return Places::slot(id); }

    // The record while it is in use, else null. Other processes write to it at any time.
    [[nodiscard]] static const Record *live(Id id) { return writable(id); }

    // The same for a change of single fields or of the whole record; its sets are changed by set().
    [[nodiscard]] static Record *writable(Id id) {
        Record *record = slot(id);
        return record != nullptr && word::load(record->*Places::kInUse) != 0 ? record : nullptr;
    }

    // One field of a live record; `missing` when there is none.
    template <class T> [[nodiscard]] static T field(Id id, T Record::*member, T missing = 0) {
        const Record *record = live(id);
        return record != nullptr ? word::load(record->*member) : missing;
    }

    // The same into *out; false, with *out as it was, without a record or without `out`.
    template <class T> [[nodiscard]] static bool read(Id id, T Record::*member, T *out) {
        const Record *record = live(id);
        if (record == nullptr || out == nullptr)
            return false;
        *out = word::load(record->*member);
        return true;
    }

    // Writes one field of a live record; false when there is none.
    template <class T> static bool store(Id id, T Record::*member, T value) {
        Record *record = writable(id);
        if (record == nullptr)
            return false;
        word::store(record->*member, value);
        return true;
    }

    // A set of a live record; none without a record.
    [[nodiscard]] static bits::SharedSet set(Id id, vlanset Record::*member) {
        Record *record = writable(id);
        return bits::SharedSet(record != nullptr ? (record->*member).words : nullptr);
    }
    template <size_t N> [[nodiscard]] static bits::SharedSet set(Id id, uint32_t (Record::*member)[N]) {
        Record *record = writable(id);
        return bits::SharedSet(record != nullptr ? record->*member : nullptr);
    }
};

} // namespace bri::table
