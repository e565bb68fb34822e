// A client context without start-up: initialised, and on demand connected to a socket pair whose other end the test
// reads as the server does. Handlers and callbacks record what reached them.
#pragma once

#include "base/bytes.h"
#include "base/list.h"
#include "client/state.h"
#include "tests/support/test.h"

#include <poll.h>

namespace test {

// One call of a handler.
struct Event {
    int handler; // 1, 2 or 3
    uint32_t type;
    const void *data;
    uint16_t len;
    std::vector<uint8_t> bytes; // at most what was received

    [[nodiscard]] bool operator==(const Event &) const = default;
};

// One message as the server reads it.
struct Sent {
    uint32_t type;
    std::vector<uint8_t> payload;
};

inline event_set set_of(std::initializer_list<unsigned> types) {
    event_set set{};
    for (const unsigned type : types)
        set.words[type / 32] |= 1U << (type % 32);
    return set;
}

inline bool holds(const event_set &set, unsigned type) {
    return (set.words[type / 32] >> (type % 32) & 1) != 0;
}

class Client : public Env {
  protected:
    Client() {
        ctx() = bri_clnt_ctx{};
        std::strcpy(ctx().name, "unit");
        ctx().pid = 4711;
        ctx().cache_max = 16;
        for (bri_list *head : {&ctx().handlers, &ctx().conn_cbs, &ctx().oridata_cbs, &ctx().cache})
            bri::list::init(*head);
        g_bridge_client = &ctx();
        state() = bri::client::State{};
        debug_on({BRI_DBG_MSG});
        events().clear();
    }
    ~Client() override { g_bridge_client = nullptr; }

    static bri_clnt_ctx &ctx() {
        static bri_clnt_ctx context; // outlives the test as the real one outlives its host's work
        return context;
    }
    static bri::client::State &state() { return bri::client::g_state; }
    static std::vector<Event> &events() {
        static std::vector<Event> all;
        return all;
    }
    [[nodiscard]] static std::vector<uint32_t> event_types() {
        std::vector<uint32_t> types;
        for (const Event &event : events())
            types.push_back(event.type);
        return types;
    }

    // Past the backup data, so that every submodule's events pass.
    static void synced() { state().sync_state = bri::client::kSyncEnded; }

    template <int Number> static int handler(uint32_t type, void *data, uint16_t len) {
        Event event{Number, type, data, len, {}};
        if (data != nullptr)
            event.bytes.assign(static_cast<uint8_t *>(data), static_cast<uint8_t *>(data) + len);
        events().push_back(event);
        if (during != nullptr)
            during(Number, type);
        return -1; // results are ignored
    }
    // What a handler does beside recording.
    static inline void (*during)(int handler, uint32_t type) = nullptr;

    // Hands a message to the dispatcher from an exact copy on the heap, one byte off every alignment.
    static void deliver(uint32_t type, const std::vector<uint8_t> &payload = {}) {
        std::vector<uint8_t> copy(1 + sizeof(bri_msg_hdr) + payload.size());
        put_at(copy.data(), 1, type);
        put_at(copy.data(), 5, static_cast<uint32_t>(payload.size()));
        std::copy(payload.begin(), payload.end(), copy.begin() + 9);
        bridge_client_msg_dspch(reinterpret_cast<bri_msg_hdr *>(copy.data() + 1));
    }

    static void expect_debug_line(const std::string &text, int times = 1) {
        EXPECT_EQ(times_logged(text), times) << text;
        const LogLine line = log_line(text);
        EXPECT_EQ(line.level, 7) << text;
        EXPECT_EQ(line.module, "BRIDGE") << text;
        EXPECT_EQ(line.tag, "LIB_DEBUG") << text;
        EXPECT_EQ(line.output, 1) << text;
    }
};

} // namespace test
