// The host layer for C++20: bridge/host.h with events as types, functions of any kind as handlers, and lifetimes as
// objects. Header only; link libbridge_host and libbridge_client. Needs no exceptions and no RTTI, allocates nothing.
//
// @code
// #include <qv_thread.h>
//
// int run(qv_thread_master *loop) {
//     unsigned changes = 0;
//     bridge::role role = bridge::role::unknown;
//     bridge::host daemon{{.name = "my_daemon", .loop = loop},
//                         bridge::on<bridge::event::port_pvid>([&](const bridge::port_pvid &) { changes++; }),
//                         bridge::on_role([&](bridge::role now) { role = now; })};
//     return daemon.start() == bridge::error::ok ? qv_thread_master_run(loop) : 1;
// }
// @endcode
//
// What is promised, when and in which order, says bridge/host.h. Everything belongs to the loop's thread. The objects
// of this header stay where they are made (they can be neither copied nor moved), and the loop must outlive them.
#pragma once

#include <bridge/events.hpp>
#include <bridge/host.h>
#include <bridge/sets.hpp>

#include <array>
#include <chrono>
#include <concepts>
#include <tuple>
#include <utility>

namespace bridge {

// enum bri_error, and its texts. What each function gives of them says its C form, which it calls.
enum class error : int {
    ok = BRI_OK,
    null = BRI_ERR_NULL,
    invalid = BRI_ERR_INVALID,
    not_permitted = BRI_ERR_NOT_PERMITTED,
    no_memory = BRI_ERR_NO_MEMORY,
    socket = BRI_ERR_SOCKET,
    would_block = BRI_ERR_WOULD_BLOCK,
    no_vlan = BRI_ERR_NO_VLAN,
    vlan_mode = BRI_ERR_VLAN_MODE,
    no_interface = BRI_ERR_NO_INTERFACE,
    route_port = BRI_ERR_ROUTE_PORT,
    port_mode = BRI_ERR_PORT_MODE,
    unknown = BRI_ERR_UNKNOWN
};
[[nodiscard]] inline const char *text_of(error code) {
    return bri_strerror(static_cast<int>(code));
}

// What the server has made of this process: enum bridge_host_role.
enum class role : int {
    unknown = BRIDGE_HOST_ROLE_UNKNOWN,
    slave = BRIDGE_HOST_ROLE_SLAVE,
    master = BRIDGE_HOST_ROLE_MASTER
};

// How a request ended: enum bridge_host_result.
enum class result : int {
    done = BRIDGE_HOST_DONE,
    timed_out = BRIDGE_HOST_TIMED_OUT,
    lost = BRIDGE_HOST_LOST,
    stopped = BRIDGE_HOST_STOPPED
};

// What on_vanished and stop tell.
using vanished = ::bridge_host_vanished;
using left = ::bridge_host_left;

// bridge_host_role: the role as it is at this moment.
[[nodiscard]] inline role current_role() {
    return static_cast<role>(bridge_host_role());
}
// bridge_host_resync: asks for the origin data of every followed submodule again.
inline error resync() {
    return static_cast<error>(bridge_host_resync());
}
// bridge_host_in_step: whether a mirror of the submodule is up to date as far as anybody can know.
[[nodiscard]] inline bool in_step(bri_submod submodule) {
    return bridge_host_in_step(submodule) != 0;
}
// bridge_host_may_send: error::ok when a request can be sent now.
[[nodiscard]] inline error may_send() {
    return static_cast<error>(bridge_host_may_send());
}
// bridge_host_filter_add and _del: ask the server to drop all frames of an address in a VLAN, or no longer.
inline error filter_add(const mac_address &address, uint16_t vid) {
    return static_cast<error>(bridge_host_filter_add(address.data(), vid));
}
inline error filter_del(const mac_address &address, uint16_t vid) {
    return static_cast<error>(bridge_host_filter_del(address.data(), vid));
}
// bridge_host_get_statistics: all figures since the start.
[[nodiscard]] inline ::bridge_host_statistics statistics() {
    ::bridge_host_statistics figures{};
    figures.size = sizeof figures;
    bridge_host_get_statistics(&figures);
    return figures;
}

// The host object that runs, if one does. Not for hosts.
inline const void *running_host = nullptr;

// Ends the host; then calls the function, which has no state: one that C could call too.
template <std::invocable<const left &> F>
requires std::is_empty_v<F> && std::default_initializable<F> error stop(F) {
    const auto outcome = static_cast<error>(bridge_host_stop([](const left *what, void *) { F{}(*what); }));
    if (outcome == error::ok || outcome == error::no_memory)
        running_host = nullptr;
    return outcome;
}

// An object whose address others keep.
struct pinned {
    pinned() = default;
    pinned(const pinned &) = delete;
    pinned &operator=(const pinned &) = delete;
};

// Parts of a host: handlers of events and callbacks. --------------------------------------------------------------

// Which member of struct bridge_host_config a part fills. Not for hosts, as the two forms of a part.
enum class part_kind { event_row, connection, role_change, resync_begin, vanishing, resync_end };

template <class Event, class F> struct event_part {
    static constexpr part_kind kind = part_kind::event_row;
    F fn;

    bridge_host_handler row() { return {Event::code, Event::least, call, &fn}; }
    static void call(const void *record, uint16_t size, void *context) {
        give<Event>(*static_cast<F *>(context), record, size);
    }
};
template <part_kind Kind, class F> struct callback_part {
    static constexpr part_kind kind = Kind;
    F fn;
};

// Calls the function for each event of that type. The types of its argument: bridge/events.hpp.
template <class Event, takes<Event> F> [[nodiscard]] event_part<Event, F> on(F fn) {
    return {std::move(fn)};
}
// Call the function for what struct bridge_host_config says of the callback of the same name: whether the connection
// stands, the role, the submodule whose data begins, what has vanished.
template <std::invocable<bool> F> [[nodiscard]] callback_part<part_kind::connection, F> on_connection(F fn) {
    return {std::move(fn)};
}
template <std::invocable<role> F> [[nodiscard]] callback_part<part_kind::role_change, F> on_role(F fn) {
    return {std::move(fn)};
}
template <std::invocable<bri_submod> F> [[nodiscard]] callback_part<part_kind::resync_begin, F> on_resync_begin(F fn) {
    return {std::move(fn)};
}
template <std::invocable<const vanished &> F> [[nodiscard]] callback_part<part_kind::vanishing, F> on_vanished(F fn) {
    return {std::move(fn)};
}
// The second argument says whether it was complete.
template <std::invocable<bri_submod, bool> F>
[[nodiscard]] callback_part<part_kind::resync_end, F> on_resync_end(F fn) {
    return {std::move(fn)};
}

// As in struct bridge_host_config, zero for the usual value.
struct options {
    const char *name = nullptr;
    qv_thread_master *loop = nullptr;
    bool refuse_as_slave = false;
    bool sweep_vlans = false;
    bool sweep_ports = false;
    uint32_t mac_capacity = 0;
    std::chrono::milliseconds tick{0};
    std::chrono::milliseconds answer{0};
    std::chrono::milliseconds stop{0};
};

// The one host of a process, of any number of parts; of each callback one.
template <class... Parts> class host : pinned {
    static constexpr size_t count_of([[maybe_unused]] part_kind kind) {
        return (size_t{0} + ... + size_t{Parts::kind == kind});
    }
    static_assert(((Parts::kind == part_kind::event_row || count_of(Parts::kind) == 1) && ...),
                  "a callback stands twice");

  public:
    explicit host(const options &wanted, Parts... parts) : options_(wanted), parts_(std::move(parts)...) {}
    // One that runs is ended as by stop(); what is on its way is flushed as far as the loop still runs. None of its
    // parts is called any more.
    ~host() {
        if (running != this)
            return;
        running = nullptr;
        if (running_host == this)
            stop([](const left &) {});
    }

    // bridge_host_start, with the parts.
    [[nodiscard]] error start() {
        std::array<bridge_host_handler, count_of(part_kind::event_row)> rows{};
        bridge_host_config config{};
        config.size = sizeof config;
        config.flags = (options_.refuse_as_slave ? uint32_t{BRIDGE_HOST_REFUSE_AS_SLAVE} : 0) |
                       (options_.sweep_vlans ? uint32_t{BRIDGE_HOST_SWEEP_VLANS} : 0) |
                       (options_.sweep_ports ? uint32_t{BRIDGE_HOST_SWEEP_PORTS} : 0);
        config.name = options_.name;
        config.master = options_.loop;
        config.handlers = rows.data();
        config.handler_count = static_cast<uint32_t>(rows.size());
        config.mac_capacity = options_.mac_capacity;
        config.tick_ms = static_cast<uint32_t>(options_.tick.count());
        config.answer_ms = static_cast<uint32_t>(options_.answer.count());
        config.stop_ms = static_cast<uint32_t>(options_.stop.count());
        fill(config, rows.data(), std::index_sequence_for<Parts...>{});
        const auto outcome = static_cast<error>(bridge_host_start(&config));
        if (outcome == error::ok)
            running_host = running = this;
        return outcome;
    }

  private:
    // The callbacks go through this rather than through the object's address, which may end before the layer does.
    inline static host *running = nullptr;

    template <size_t... I>
    void fill([[maybe_unused]] bridge_host_config &config, [[maybe_unused]] bridge_host_handler *row,
              std::index_sequence<I...>) {
        (fill_one<I>(config, row), ...);
    }
    template <size_t I> void fill_one(bridge_host_config &config, bridge_host_handler *&row) {
        constexpr part_kind kind = std::tuple_element_t<I, std::tuple<Parts...>>::kind;
        if constexpr (kind == part_kind::event_row)
            *row++ = std::get<I>(parts_).row();
        else if constexpr (kind == part_kind::connection)
            config.on_connection = [](int up, void *) { call<I>(up != 0); };
        else if constexpr (kind == part_kind::role_change)
            config.on_role = [](enum bridge_host_role now, void *) { call<I>(static_cast<role>(now)); };
        else if constexpr (kind == part_kind::resync_begin)
            config.on_resync_begin = [](uint32_t submodule, void *) { call<I>(static_cast<bri_submod>(submodule)); };
        else if constexpr (kind == part_kind::vanishing)
            config.on_vanished = [](const vanished *what, void *) { call<I>(*what); };
        else
            config.on_resync_end = [](uint32_t submodule, int complete, void *) {
                call<I>(static_cast<bri_submod>(submodule), complete != 0);
            };
    }
    template <size_t I, class... Arguments> static void call(const Arguments &...arguments) {
        if (running != nullptr)
            std::get<I>(running->parts_).fn(arguments...);
    }

    options options_;
    std::tuple<Parts...> parts_;
};

// Requests with an end. -------------------------------------------------------------------------------------------

// The two ways in which a request may end. Not for hosts.
template <class Event, class F> struct event_end {
    static constexpr uint32_t events[] = {Event::code, 0};
    F fn;
    bool seen(uint32_t code, const void *record, uint16_t size) {
        return code == Event::code && size >= Event::least && give<Event>(fn, record, size);
    }
};
template <class F, uint32_t... Codes> struct table_end {
    static constexpr uint32_t events[] = {Codes..., 0};
    F fn;
    bool seen(uint32_t, const void *, uint16_t) { return fn(); }
};

// Done with the first event of that type of which the function says so.
template <class Event, takes<Event> F> [[nodiscard]] event_end<Event, F> until(F fn) {
    return {std::move(fn)};
}
// Done when the function says so, which is asked at every event of these codes and at every tick.
template <uint32_t... Codes, std::predicate F> [[nodiscard]] table_end<F, Codes...> until_true(F fn) {
    return {std::move(fn)};
}

// A request: what sends it (a negative result: it could not be sent), what ends it, and who is told of the end. Its own
// end cancels it. It can be started again when it has ended.
template <class Send, class Done, std::invocable<result> End> class request : pinned {
  public:
    request(std::chrono::milliseconds timeout, Send send, Done done, End end)
        : send_(std::move(send)), done_(std::move(done)), end_(std::move(end)) {
        pending_.send = [](void *context) { return static_cast<int>(self(context).send_()); };
        pending_.done_when = [](uint32_t code, const void *record, uint16_t size, void *context) {
            return self(context).done_.seen(code, record, size) ? 1 : 0;
        };
        pending_.events = Done::events;
        pending_.timeout_ms = static_cast<uint32_t>(timeout.count());
        pending_.on_done = [](bridge_host_pending *, bridge_host_result outcome, void *context) {
            self(context).end_(static_cast<result>(outcome));
        };
        pending_.context = this;
    }
    ~request() { cancel(); }

    // Sends it; the end is told only after error::ok.
    [[nodiscard]] error start() { return static_cast<error>(bridge_host_request(&pending_)); }
    // Ends it without a word.
    void cancel() { bridge_host_cancel(&pending_); }

  private:
    static request &self(void *context) { return *static_cast<request *>(context); }

    Send send_;
    Done done_;
    End end_;
    bridge_host_pending pending_{};
};

// Walks over the kernel's addresses. ------------------------------------------------------------------------------

// As in struct bridge_host_walk, zero for the usual value.
struct walk_options {
    uint32_t ifx = 0; // 0: all ports'
    std::chrono::microseconds slice{0};
    std::chrono::milliseconds answer{0};
};

// Gives each entry to the first function, which goes on with true or without a result; the second gets error::ok at the
// end of the table or when it was enough. The object's end ends the walk.
template <std::invocable<const ::bri_mac_entry &> Each, std::invocable<error> End> class walk : pinned {
  public:
    walk(const walk_options &wanted, Each each, End end) : each_(std::move(each)), end_(std::move(end)) {
        walk_.ifx = wanted.ifx;
        walk_.slice_us = static_cast<uint32_t>(wanted.slice.count());
        walk_.answer_ms = static_cast<uint32_t>(wanted.answer.count());
        walk_.on_entry = [](const ::bri_mac_entry *entry, void *context) {
            if constexpr (std::is_void_v<std::invoke_result_t<Each &, const ::bri_mac_entry &>>) {
                self(context).each_(*entry);
                return 0;
            } else
                return self(context).each_(*entry) ? 0 : 1;
        };
        walk_.on_end = [](bridge_host_walk *, int outcome, void *context) {
            self(context).end_(static_cast<error>(outcome));
        };
        walk_.context = this;
    }
    ~walk() { cancel(); }

    // Begins it; the end is told only after error::ok.
    [[nodiscard]] error start() { return static_cast<error>(bridge_host_walk_start(&walk_)); }
    // Ends it without a word.
    void cancel() { bridge_host_walk_cancel(&walk_); }

  private:
    static walk &self(void *context) { return *static_cast<walk *>(context); }

    Each each_;
    End end_;
    bridge_host_walk walk_{};
};

// Ports. ----------------------------------------------------------------------------------------------------------

// A port held for a function that cannot share it, until the object's end.
class claim : pinned {
  public:
    explicit claim(const ::bridge_host_claim &what) : what_(what) {}
    ~claim() { release(); }

    // bridge_host_claim_port. Fills why() too.
    [[nodiscard]] error take() {
        const auto outcome = static_cast<error>(bridge_host_claim_port(&what_, &why_));
        held_ = held_ || outcome == error::ok;
        return outcome;
    }
    // bridge_host_release_port, when it is held.
    void release() {
        if (std::exchange(held_, false))
            bridge_host_release_port(&what_);
    }
    [[nodiscard]] bool held() const { return held_; }
    [[nodiscard]] const ::bridge_host_refusal &why() const { return why_; }

  private:
    ::bridge_host_claim what_;
    ::bridge_host_refusal why_{};
    bool held_ = false;
};

} // namespace bridge
