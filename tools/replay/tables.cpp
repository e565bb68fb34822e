#include "tools/replay/tables.h"

#include "wire/batch.h"
#include "wire/segments.h"

#include <bridge/bridge.h>

#include <bit>
#include <cstring>
#include <stdexcept>

namespace replay {

namespace {

constexpr size_t kWord = sizeof(uint32_t);

// The library's own ways; the table of exclusions comes with its first use.
bool make_tables() {
    return bridge_portdb_init() == 1 && vl_vlandb_init() == 1 && vlan_group_shm_init() == 1 &&
           bridge_unset_excflag(1, 1) == 0;
}

// Daemons read whole words, so they are written as such. What others write meanwhile in the rest of a word may be lost
// by that, as it may on the switch.
class WordWriter {
  public:
    explicit WordWriter(uint32_t *words) : words_(words) {}
    ~WordWriter() { flush(); }
    WordWriter(const WordWriter &) = delete;
    WordWriter &operator=(const WordWriter &) = delete;

    void put(size_t place, uint8_t byte) {
        if (place / kWord != index_) {
            flush();
            index_ = place / kWord;
            word_ = __atomic_load_n(words_ + index_, __ATOMIC_RELAXED);
        }
        reinterpret_cast<uint8_t *>(&word_)[place % kWord] = byte;
    }

  private:
    void flush() {
        if (index_ != SIZE_MAX)
            __atomic_store_n(words_ + index_, word_, __ATOMIC_RELAXED);
    }

    uint32_t *words_;
    size_t index_ = SIZE_MAX;
    uint32_t word_ = 0;
};

} // namespace

Tables::Tables() {
    const int32_t vsd = wire::vsd_of_environment();
    if (!make_tables())
        throw std::runtime_error("cannot make the tables in shared memory");
    for (const wire::Segment *segment : wire::all_segments()) {
        bri_shm_handle *memory = bridge_shm_attach(key_of(*segment, vsd));
        if (memory == nullptr)
            throw std::runtime_error(std::string("cannot attach ") + segment->name);
        std::memset(memory->data, 0, segment->size); // nobody else has it yet
        tables_.push_back({segment->size, wire::swapped_places(segment->record()), memory});
    }
}

Tables::~Tables() {
    for (const Table &table : tables_)
        bridge_shm_dettach(table.memory);
}

bool Tables::apply(const recording::Packet &change) {
    const auto number = static_cast<size_t>(change.head.table);
    if (number >= tables_.size())
        return false;
    const Table &table = tables_[number];
    const size_t offset = change.head.offset;
    if (offset > table.size || change.body.size() > table.size - offset)
        return false;
    WordWriter writer(static_cast<uint32_t *>(table.memory->data));
    const bool turned = wire::is_big(change.order()) != wire::is_big(wire::Order::kNative);
    for (size_t i = 0; i < change.body.size(); ++i)
        writer.put(turned ? table.places[offset + i] : offset + i, change.body[i]);
    return true;
}

} // namespace replay
