// The same traffic between two processes through libraries that others use for it, where they were at hand.
#include "bench/pair.h"

#include <array>
#include <vector>
#ifdef BRIDGE_HAVE_LIBZMQ
#include <zmq.h>
#endif
#ifdef BRIDGE_HAVE_LIBSYSTEMD
#include <systemd/sd-bus.h>
#endif

namespace bench {
namespace {

#ifdef BRIDGE_HAVE_LIBZMQ
void *zmq_end(int type, bool listens, const std::string &where) {
    void *socket = zmq_socket(zmq_ctx_new(), type);
    const int no_limit = 0;
    zmq_setsockopt(socket, ZMQ_SNDHWM, &no_limit, sizeof no_limit);
    zmq_setsockopt(socket, ZMQ_RCVHWM, &no_limit, sizeof no_limit);
    need((listens ? zmq_bind : zmq_connect)(socket, where.c_str()) == 0, "libzmq");
    return socket;
}

// PUSH and PULL over a local socket, which has a name in the abstract space: no file is left.
double messages_zmq(unsigned size) {
    const std::string where = "ipc://@bridge-bench-" + std::to_string(getpid());
    const uint32_t messages = per_window(size);
    return of_both(
        messages,
        [=] {
            return [=, socket = zmq_end(ZMQ_PULL, true, where),
                    buffer = std::array<uint8_t, BRI_PAYLOAD_MAX>()]() mutable {
                for (uint32_t got = 0; got < messages; ++got)
                    need(zmq_recv(socket, buffer.data(), buffer.size(), 0) == static_cast<int>(size), "libzmq");
            };
        },
        [=] {
            return [=, socket = zmq_end(ZMQ_PUSH, false, where)] {
                for (uint32_t sent = 0; sent < messages; ++sent)
                    need(zmq_send(socket, kBytes, size, 0) == static_cast<int>(size), "libzmq");
            };
        });
}
#endif

#ifdef BRIDGE_HAVE_LIBSYSTEMD
constexpr char kPath[] = "/bench";
constexpr char kInterface[] = "local.bench";

// Two ends of one connection without a broker between them.
sd_bus *bus_end(int fd, bool server) {
    sd_bus *bus = nullptr;
    sd_id128_t id;
    need(sd_bus_new(&bus) >= 0 && sd_bus_set_fd(bus, fd, fd) >= 0 && sd_id128_randomize(&id) >= 0 &&
             sd_bus_set_anonymous(bus, 1) >= 0 && (!server || sd_bus_set_server(bus, 1, id) >= 0) &&
             sd_bus_start(bus) >= 0,
         "sd-bus");
    return bus;
}

// The next message that is not the library's own.
sd_bus_message *next_message(sd_bus *bus) {
    for (;;) {
        sd_bus_message *message = nullptr;
        const int done = sd_bus_process(bus, &message);
        need(done >= 0, "sd-bus");
        if (message != nullptr)
            return message;
        if (done == 0)
            sd_bus_wait(bus, UINT64_MAX);
    }
}

void take_signal(sd_bus *bus, size_t size) {
    sd_bus_message *message = next_message(bus);
    const void *data = nullptr;
    size_t length = 0;
    need(sd_bus_message_read_array(message, 'y', &data, &length) >= 0 && length == size, "sd-bus");
    sd_bus_message_unref(message);
}

void send_signal(sd_bus *bus, size_t size) {
    sd_bus_message *message = nullptr;
    need(sd_bus_message_new_signal(bus, &message, kPath, kInterface, "Event") >= 0 &&
             sd_bus_message_append_array(message, 'y', kBytes, size) >= 0 && sd_bus_send(bus, message, nullptr) >= 0,
         "sd-bus");
    sd_bus_message_unref(message);
}

// A window is smaller: its queue has a limit.
double messages_sd_bus(unsigned size) {
    const Ends ends = make_ends();
    const uint32_t messages = std::min(per_window(size), 128U);
    return of_both(
        messages,
        [=] {
            return [=, bus = bus_end(ends.at[1], true)] {
                for (uint32_t got = 0; got < messages; ++got)
                    take_signal(bus, size);
            };
        },
        [=] {
            return [=, bus = bus_end(ends.at[0], false)] {
                for (uint32_t sent = 0; sent < messages; ++sent)
                    send_signal(bus, size);
                need(sd_bus_flush(bus) >= 0, "sd-bus");
            };
        });
}

void answer_call(sd_bus *bus) {
    sd_bus_message *message = next_message(bus);
    need(sd_bus_reply_method_return(message, nullptr) >= 0, "sd-bus");
    sd_bus_message_unref(message);
}
void call(sd_bus *bus) {
    sd_bus_message *message = nullptr;
    sd_bus_message *answer = nullptr;
    need(sd_bus_message_new_method_call(bus, &message, nullptr, kPath, kInterface, "Ask") >= 0 &&
             sd_bus_message_append_array(message, 'y', kBytes, 24) >= 0 &&
             sd_bus_call(bus, message, 0, nullptr, &answer) >= 0,
         "sd-bus");
    sd_bus_message_unref(message);
    sd_bus_message_unref(answer);
}

double reply_sd_bus(unsigned) {
    const Ends ends = make_ends();
    const auto each = [](auto exchange_one, int fd, bool server) {
        return [=, bus = bus_end(fd, server)] {
            for (uint32_t count = 0; count < kExchanges; ++count)
                exchange_one(bus);
        };
    };
    return of_both(
        kExchanges, [=] { return each(answer_call, ends.at[1], true); }, [=] { return each(call, ends.at[0], false); });
}
#endif

const std::vector<Measurement> kMeasurements = {
#ifdef BRIDGE_HAVE_LIBZMQ
    {"messages_zmq", messages_zmq},
#endif
#ifdef BRIDGE_HAVE_LIBSYSTEMD
    {"messages_sd_bus", messages_sd_bus},
    {"reply_sd_bus", reply_sd_bus},
#endif
};

} // namespace

std::span<const Measurement> peers() {
    return kMeasurements;
}

} // namespace bench
