// A host process of the library, without start-up: a client context, handlers that record, and on demand a connection
// whose other end the test reads as the server does.
#pragma once

#include "base/list.h"
#include "client/state.h"
#include "client/transport.h"
#include "tests/support/server.h"
#include "tests/support/test.h"

#include <functional>

namespace test {

struct HostEvent {
    uint32_t type;
    ByteVec payload;
    uint16_t len;
    bool aligned; // the payload lay at a multiple of 4

    [[nodiscard]] bool operator==(const HostEvent &) const = default;
};

class Host : public Env {
  protected:
    Host() {
        ctx() = bri_clnt_ctx{};
        std::strcpy(ctx().name, "unit");
        ctx().cache_max = 16;
        ctx().master = Loop::get().master();
        for (bri_list *head : {&ctx().handlers, &ctx().conn_cbs, &ctx().oridata_cbs, &ctx().cache})
            bri::list::init(*head);
        g_bridge_client = &ctx();
        bri::client::g_state = bri::client::State{};
        bri::client::g_state.sync_state = bri::client::kSyncEnded; // events of every submodule pass
    }
    ~Host() override {
        g_bridge_client = nullptr;
        if (ctx().sock > 0)
            faults::real_close(ctx().sock);
        free(bri::client::g_bglib_sendbuf);
        bri::client::g_bglib_sendbuf = nullptr;
    }

    static bri_clnt_ctx &ctx() {
        static bri_clnt_ctx context;
        return context;
    }

    // What the handlers got, in order.
    static std::vector<HostEvent> &events() {
        static std::vector<HostEvent> all;
        return all;
    }
    static void watch(std::initializer_list<unsigned> types) { watch(set_of_types(types)); }
    static void watch(const event_set &set) { ASSERT_EQ(bridge_client_reg_event(&set, record), 0); }
    // What the handler does beside recording.
    static inline std::function<void(uint32_t type)> during;

    // Connects the context to a server that only takes what is sent.
    void connect_server() {
        bri::client::g_bglib_sendbuf = static_cast<uint8_t *>(calloc(1, BRI_BATCH_BUFFER_SIZE));
        server_ = attach_pair();
    }
    // Takes every message that was sent since the last call.
    std::vector<Message> sent() {
        bri::client::flush_job(nullptr);
        return server_.read_messages();
    }

  private:
    static int record(uint32_t type, void *data, uint16_t len) {
        const faults::Pause pause;
        HostEvent event{type, {}, len, reinterpret_cast<uintptr_t>(data) % 4 == 0};
        if (data != nullptr)
            event.payload.assign(static_cast<uint8_t *>(data), static_cast<uint8_t *>(data) + len);
        events().push_back(event);
        if (during)
            during(type);
        return 0;
    }
    Peer server_;
};

} // namespace test
