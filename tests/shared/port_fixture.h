// The port database of a fresh VSDID, beside a mapping of the test's own: the bytes as any other process sees them.
#pragma once

#include "base/vsd.h"
#include "tests/support/test.h"

#include <sys/shm.h>

namespace test {

constexpr size_t kPortHeader = 76;
constexpr size_t kBlockSize = 1960;
constexpr size_t kInstancesAt = 125440;
constexpr size_t kPortDataSize = 135592;
constexpr size_t kTagAt = 424;
constexpr size_t kAllowAt = 936;

class UnmappedPortDb : public Env {
  protected:
    ~UnmappedPortDb() override {
        faults::clear();
        if (segment_ != nullptr)
            shmdt(segment_);
    }

    [[nodiscard]] int32_t key() const { return bri::ipc_key(0x22220001); }

    // The segment, its header first; made with room for `size` bytes where it is not there.
    uint8_t *segment(size_t size = kPortHeader + kPortDataSize) {
        if (segment_ == nullptr)
            segment_ = static_cast<uint8_t *>(shmat(shmget(key(), size, IPC_CREAT | 0777), nullptr, 0));
        return segment_;
    }
    uint8_t *data() { return segment() + kPortHeader; }
    uint8_t *block(int32_t ifx) { return data() + static_cast<size_t>(ifx) * kBlockSize; }

    // What the server does when a port comes and goes.
    void plug(int32_t ifx) { put_at<uint32_t>(block(ifx), 4, static_cast<uint32_t>(ifx)); }
    void unplug(int32_t ifx) { put_at<uint32_t>(block(ifx), 4, 0); }

    // A bit of the set at an offset of a port's block.
    void put_bit(int32_t ifx, size_t set_at, unsigned vid) {
        const size_t word_at = set_at + vid / 32 * 4;
        put_at<uint32_t>(block(ifx), word_at, value_at<uint32_t>(block(ifx), word_at) | 1U << vid % 32);
    }
    bool bit(int32_t ifx, size_t set_at, unsigned vid) {
        return (value_at<uint32_t>(block(ifx), set_at + vid / 32 * 4) >> vid % 32 & 1) != 0;
    }
    ByteVec snapshot() { return {data(), data() + kPortDataSize}; }

  private:
    uint8_t *segment_ = nullptr;
};

class PortDb : public UnmappedPortDb {
  protected:
    PortDb() {
        if (bridge_portdb_init() != 1)
            throw std::runtime_error("no port database");
    }
};

} // namespace test
