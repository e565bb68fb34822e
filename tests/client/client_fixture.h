// A started client, on demand connected to a peer that reads as the server does. Handlers record what reaches them.
#pragma once

#include "tests/support/started_host.h"

namespace test {

// One call of a handler.
struct Event {
    int handler;
    uint32_t type;
    const void *data;
    uint16_t len;
    ByteVec bytes; // the payload

    [[nodiscard]] bool operator==(const Event &) const = default;
};

inline event_set every_type() {
    event_set set;
    std::memset(&set, 0xFF, sizeof set);
    return set;
}

// The bytes of a 32-bit word.
inline ByteVec word(uint32_t value) {
    return bytes_of(value);
}

class Client : public StartedHost {
  protected:
    explicit Client(const char *name = "unit") {
        start(name);
        debug_on({BRI_DBG_MSG});
        clear_log();
    }

    // As before initialisation. The context stays reachable, as in a host.
    static void without_context() {
        static bri_clnt_ctx *kept = std::exchange(g_bridge_client, nullptr);
        EXPECT_NE(kept, nullptr);
    }
    // Past the backup data, so that every submodule's events pass.
    static void backup_ended() { state().sync_state = bri::client::kSyncEnded; }

    void connect() { server_ = attach_pair(); }
    // Every message that has reached the server since the last call.
    std::vector<Message> sent() { return server_.read_messages(); }
    // Hands a message to the dispatcher.
    static void deliver(uint32_t type, const ByteVec &payload = {}) {
        test::deliver(bridge_client_msg_dspch, type, payload);
    }

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
    [[nodiscard]] static std::vector<int> handlers_called() {
        std::vector<int> numbers;
        for (const Event &event : events())
            numbers.push_back(event.handler);
        return numbers;
    }

    template <int Number> static int handler(uint32_t type, void *data, uint16_t len) {
        Event event{Number, type, data, len, {}};
        if (data != nullptr)
            event.bytes.assign(static_cast<uint8_t *>(data), static_cast<uint8_t *>(data) + len);
        events().push_back(event);
        if (during != nullptr)
            during(Number, type);
        return -1; // results are ignored
    }
    // What handlers do beside recording.
    static inline void (*during)(int handler, uint32_t type) = nullptr;

    static void listen(std::initializer_list<unsigned> types, bri_event_handler with = handler<1>) {
        const event_set set = set_of_types(types);
        ASSERT_EQ(bridge_client_reg_event(&set, with), 0);
    }
    static void listen_to_all() {
        const event_set set = every_type();
        ASSERT_EQ(bridge_client_reg_event(&set, handler<1>), 0);
    }

    static void expect_debug_line(const std::string &text, int times = 1) { expect_line(text, kClientLine, times); }

  private:
    Peer server_;
};

} // namespace test
