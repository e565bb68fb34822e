// Messages from one process to another, the library at both ends or bare system calls, and requests with their replies.
#include "bench/bare.h"
#include "bench/pair.h"

#include <array>

namespace bench {
namespace {

void start(int near) {
    need(connect_to_pair(), "the start");
    close(g_near);
    close(g_far);
    adopt_connection(near, -1);
}

// --- messages of `size` bytes

double messages_library(unsigned size) {
    const Ends ends = make_ends();
    const uint32_t messages = per_window(size);
    return of_both(
        messages,
        [=] {
            start(ends.at[1]);
            need(handle(only(kEvent), counting_handler<0>), "the handler");
            return [=] {
                for (const uint64_t end = g_handled + messages; g_handled < end;)
                    read_batch();
            };
        },
        [=] {
            start(ends.at[0]);
            return [=] {
                for (uint32_t sent = 0; sent < messages; ++sent)
                    bridge_client_send_message(kBytes, size, kEvent);
                flush();
            };
        });
}

class BareSender {
  public:
    BareSender(int fd, uint32_t payload, uint32_t messages) : fd_(fd), payload_(payload), messages_(messages) {}
    void operator()() {
        for (uint32_t sent = 0; sent < messages_; ++sent) {
            if (header().msg_len + sizeof(bri_msg_hdr) + payload_ > BRI_BATCH_MSG_MAX)
                write();
            bare_append(batch_.data(), kEvent, kBytes, payload_);
        }
        write();
    }

  private:
    [[nodiscard]] bri_batch_hdr header() const {
        bri_batch_hdr header;
        std::memcpy(&header, batch_.data(), sizeof header);
        return header;
    }
    void write() {
        const size_t size = sizeof(bri_batch_hdr) + header().msg_len;
        need(exchange(send(fd_, batch_.data(), size, MSG_NOSIGNAL), size), "the socket");
        std::memset(batch_.data(), 0, sizeof(bri_batch_hdr));
    }

    int fd_;
    uint32_t payload_;
    uint32_t messages_;
    std::array<uint8_t, BRI_BATCH_BUFFER_SIZE> batch_{};
};

double messages_bare(unsigned size) {
    const Ends ends = make_ends();
    const uint32_t messages = per_window(size);
    return of_both(
        messages,
        [=] {
            return [=, buffer = std::array<uint8_t, BRI_BATCH_BUFFER_SIZE>()]() mutable {
                for (uint32_t got = 0; got < messages;)
                    got += bare_receive(ends.at[1], buffer.data(), counting_handler<0>);
            };
        },
        [=] { return BareSender(ends.at[0], size, messages); });
}

// --- an urgent request and its reply

int reply(uint32_t, void *, uint16_t) {
    ++g_handled;
    return bridge_client_send_message(kBytes, 24, kUrgentEvent);
}

double reply_library(unsigned) {
    const Ends ends = make_ends();
    return of_both(
        kExchanges,
        [=] {
            start(ends.at[1]);
            need(handle(only(kUrgentEvent), reply), "the handler");
            return [] {
                for (uint32_t count = 0; count < kExchanges; ++count)
                    read_batch();
            };
        },
        [=] {
            start(ends.at[0]);
            need(handle(only(kUrgentEvent), counting_handler<0>), "the handler");
            return [] {
                for (uint32_t count = 0; count < kExchanges; ++count) {
                    bridge_client_send_message(kBytes, 24, kUrgentEvent);
                    read_batch();
                }
            };
        });
}

double reply_bare(unsigned) {
    const Ends ends = make_ends();
    const auto exchanges = [](int fd, bool first) {
        return [=, sender = BareSender(fd, 24, 1), buffer = std::array<uint8_t, BRI_BATCH_BUFFER_SIZE>()]() mutable {
            for (uint32_t count = 0; count < kExchanges; ++count) {
                if (first)
                    sender();
                need(bare_receive(fd, buffer.data(), counting_handler<0>) == 1, "the exchange");
                if (!first)
                    sender();
            }
        };
    };
    return of_both(
        kExchanges, [=] { return exchanges(ends.at[1], false); }, [=] { return exchanges(ends.at[0], true); });
}

constexpr Measurement kMeasurements[] = {
    {"messages", messages_library},
    {"messages_bare", messages_bare},
    {"reply", reply_library},
    {"reply_bare", reply_bare},
};

} // namespace

std::span<const Measurement> pairs() {
    return kMeasurements;
}

} // namespace bench
