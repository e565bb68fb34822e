// The host process of a fuzz target: an input taken apart, a client context whose handlers read every byte they get,
// and a system log that formats every line. A program is one file and includes this once.
#pragma once

#include "base/list.h"
#include "client/state.h"
#include "fuzz/fuzz.h"

#include <bridge/bridge.h>

#include <qv_syslog.h>

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

namespace fuzz {

// What an input has left; zeros behind its end.
class Input {
  public:
    Input(const uint8_t *bytes, size_t size) : bytes_(bytes), left_(size) {}

    [[nodiscard]] bool empty() const { return left_ == 0; }
    template <class T = uint8_t> T take() {
        T value{};
        take(&value, sizeof value);
        return value;
    }
    // Up to `size` bytes; the rest of `to` is zero.
    void take(void *to, size_t size) {
        const size_t some = std::min(size, left_);
        if (size != 0)
            std::memset(to, 0, size);
        if (some != 0)
            std::memcpy(to, bytes_, some);
        bytes_ += some;
        left_ -= some;
    }

  private:
    const uint8_t *bytes_;
    size_t left_;
};

// Bytes on the heap, so that the address sanitizer sees the first one behind them; `offset` bytes off every alignment.
class Block {
  public:
    explicit Block(size_t size, size_t offset = 0) : bytes_(new uint8_t[offset + size]()), offset_(offset) {}
    [[nodiscard]] uint8_t *data() const { return bytes_.get() + offset_; }

  private:
    std::unique_ptr<uint8_t[]> bytes_;
    size_t offset_;
};

inline void read_all(const void *bytes, size_t size) {
    volatile uint8_t sum = 0;
    for (size_t at = 0; at < size; ++at)
        sum = static_cast<uint8_t>(sum + static_cast<const uint8_t *>(bytes)[at]);
}

// Makes the context once; all log lines are on, the server's data is complete and `handler` gets every event.
inline bri_clnt_ctx &start_host(bri_event_handler handler) {
    static bri_clnt_ctx client;
    if (g_bridge_client != nullptr)
        return client;
    std::strcpy(client.name, "fuzz");
    client.cache_max = 4;
    for (bri_list *head : {&client.handlers, &client.conn_cbs, &client.oridata_cbs, &client.cache})
        bri::list::init(*head);
    g_bridge_client = &client;
    bri::client::g_state.sync_state = bri::client::kSyncEnded;
    event_set every;
    std::memset(&every, 0xFF, sizeof every);
    require(bridge_client_reg_event(&every, handler) == 0);
    std::memset(g_bri_clnt_dbg, 1, BRI_DBG_DELAY);
    return client;
}

} // namespace fuzz

// Formats the line, as a log would: a text that does not end is seen here.
extern "C" void printk_syslog_ext(int, const char *, const char *, int, const char *format, ...) {
    static char line[4096];
    va_list arguments;
    va_start(arguments, format);
    fuzz::require(std::vsnprintf(line, sizeof line, format, arguments) >= 0);
    va_end(arguments);
}
