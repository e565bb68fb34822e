// The table: what is measured beside what, and what it shall be.
#pragma once

namespace bench {

// Which build of the library a side runs with.
enum class Library { kThis, kBefore, kSilent, kNone };

enum class Goal {
    kNone,    // for the record
    kAtMost,  // ours by beside
    kAtLeast, // beside by ours
    kUnder,   // ours alone
};

struct Side {
    const char *measurement;
    unsigned size = 0;
    Library library = Library::kThis;
};

struct Row {
    const char *what;
    Side ours;
    const char *beside_name; // null when there is none
    Side beside;
    Goal goal = Goal::kNone;
    double limit = 0;
    const char *unit = "ns";
    bool counted = false; // the same whatever else the machine does: a miss is a failure
};

// What others use for the same. A measurement by a peer's library has its suffix, and is there where the library was.
struct Peer {
    const char *suffix;
    const char *name;
    const char *package; // of Debian
};
inline constexpr Peer kPeers[] = {
    {"_zmq", "libzmq", "libzmq3-dev"},
    {"_sd_bus", "sd-bus", "libsystemd-dev"},
    {"_lmdb", "LMDB", "liblmdb-dev"},
    {"_sqlite", "SQLite", "libsqlite3-dev"},
};

inline constexpr Side kNothing{nullptr, 0, Library::kNone};

// Of the member test and the other look-ups: without limits but for two.
#define BRI_LOOKUP_ROWS(operation, goal, limit)                                                                        \
    {#operation, {#operation}, "plain form", {#operation "_bare"}, goal, limit},                                       \
        {#operation, {#operation}, "LMDB", {#operation "_lmdb"}}, {                                                    \
#operation, {#operation }, "SQLite", {                                                                         \
#operation "_sqlite"                                                                                       \
        }                                                                                                              \
    }

constexpr Row kRows[] = {
    // Two processes, processor time of both.
    {"64-byte messages", {"messages", 64}, "bare batches", {"messages_bare", 64}, Goal::kAtMost, 1.35},
    {"64-byte messages", {"messages", 64}, "libzmq", {"messages_zmq", 64}, Goal::kAtLeast, 8},
    {"64-byte messages", {"messages", 64}, "sd-bus", {"messages_sd_bus", 64}, Goal::kAtLeast, 90},
    {"8,708-byte messages", {"messages", 8708}, "bare batches", {"messages_bare", 8708}, Goal::kAtMost, 1.05},
    {"8,708-byte messages", {"messages", 8708}, "libzmq", {"messages_zmq", 8708}},
    {"8,708-byte messages", {"messages", 8708}, "sd-bus", {"messages_sd_bus", 8708}},
    {"urgent request and reply", {"reply"}, "bare, blocking", {"reply_bare"}, Goal::kAtMost, 1.15},
    {"urgent request and reply", {"reply"}, "sd-bus call", {"reply_sd_bus"}, Goal::kAtMost, 0.80},

    // One process: its own part alone.
    {"receive, full batches", {"receive"}, "reads, split, call", {"receive_bare"}, Goal::kAtMost, 1.30},
    {"receive, lines off", {"receive"}, "without lines", {"receive", 0, Library::kSilent}, Goal::kAtMost, 1.05},
    {"receive, one message", {"receive", 1}, "reads, split, call", {"receive_bare", 1}},
    {"append 24 bytes", {"append"}, "before", {"append", 0, Library::kBefore}, Goal::kAtMost, 0.4},
    {"append 24 bytes", {"append"}, "bare append", {"append_bare"}},
    {"message to one handler", {"dispatch_message", 1}, "before", {"dispatch_message", 1, Library::kBefore}},
    {"to 8 handlers, all want it", {"dispatch", 8}, "plain walk", {"dispatch_bare", 8}, Goal::kAtMost, 1.15},
    {"to 64 handlers, one wants it", {"dispatch_one", 64}, "one handler", {"dispatch", 1}, Goal::kAtMost, 4},
    {"to 64 handlers, all want it",
     {"dispatch", 64},
     "before",
     {"dispatch", 64, Library::kBefore},
     Goal::kAtMost,
     1.05},
    {"drain, full batches", {"drain_full"}, "a send for each", {"drain_full_bare"}, Goal::kAtMost, 0.65},
    {"drain, 40-byte runs", {"drain_short"}, "a send for each", {"drain_short_bare"}, Goal::kAtMost, 0.06},
    {"empty a full cache, events come", {"empty_cache"}, "by timer alone", {"empty_by_timer"}, Goal::kUnder, 3, "s"},
    {"a batch of one through the loop", {"loop"}, "before", {"loop", 0, Library::kBefore}, Goal::kAtMost, 0.65},
    {"a batch of one through the loop", {"loop"}, "poll and reads", {"loop_bare"}},

    // Tables.
    BRI_LOOKUP_ROWS(member_test, Goal::kAtMost, 1.2),
    BRI_LOOKUP_ROWS(tag_rule, Goal::kAtMost, 1.7),
    BRI_LOOKUP_ROWS(entry_copy, Goal::kNone, 0),
    BRI_LOOKUP_ROWS(set_walk, Goal::kNone, 0),
    BRI_LOOKUP_ROWS(port_count, Goal::kNone, 0),
    BRI_LOOKUP_ROWS(svi_lookup, Goal::kNone, 0),
    BRI_LOOKUP_ROWS(group_search, Goal::kNone, 0),
    {"replay 4094 x 63", {"replay"}, "touching the bytes", {"replay_floor"}, Goal::kAtMost, 2.2},
    {"replay 4094 x 63", {"replay"}, "literal form", {"replay_literal"}, Goal::kAtLeast, 33},
    {"entry with re-search", {"entry_with_research"}, "entry", {"entry"}},
    {"VLAN list, parsed", {"list_parse"}, nullptr, kNothing},
    {"VLAN list, printed", {"list_format"}, nullptr, kNothing},

    // Layer-2 clients.
    {"MAC request, add", {"request_add"}, "bare append", {"request_bare"}},
    {"MAC request, delete", {"request_delete"}, "bare append", {"request_bare"}},
    {"MAC notification, a record", {"unpack"}, "copy and call", {"unpack_bare"}},
    {"kernel query", {"query"}, "bare dialogue", {"query_bare"}},
    {"port states, a record", {"expand"}, "bare records", {"expand_bare"}},

    // The host layer.
    {"event through the layer", {"layer"}, "one handler", {"dispatch_message", 1}},
    {"the same, unaligned", {"layer", 1}, "one handler", {"dispatch_message", 1}},
    {"heap of the layer", {"layer_heap"}, nullptr, kNothing, Goal::kNone, 0, "bytes", true},

    // What no machine changes.
    {"memory of a host, 8 handlers",
     {"memory"},
     "before",
     {"memory", 0, Library::kBefore},
     Goal::kUnder,
     49152,
     "bytes",
     true},
    {"allocations, steady state", {"allocations"}, nullptr, kNothing, Goal::kUnder, 0, "calls", true},
};
#undef BRI_LOOKUP_ROWS

// How a cost grows: one curve of a plot.
struct Curve {
    const char *plot;
    const char *name;
    const char *measurement;
    unsigned sizes[12]; // as the measurement takes them; 0 ends
    unsigned offset;    // what a size is more than the number it stands for
};

constexpr Curve kCurves[] = {
    {"handlers", "all want it", "dispatch", {1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024}, 0},
    {"handlers", "one wants it", "dispatch_one", {1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024}, 0},
    {"batch", "receive, a message", "receive", {1, 2, 4, 8, 16, 32, 64, 142}, 0},
    {"batch", "bare reads, a message", "receive_bare", {1, 2, 4, 8, 16, 32, 64, 142}, 0},
    {"cache", "to keep a run", "cache", {1, 16, 64, 256, 1024, 4096, 10240}, 0},
    {"vlans", "replay, 63 ports", "replay", {1, 16, 64, 256, 1024, 2048, 4094}, 0},
    {"vlans", "touching the bytes", "replay_floor", {1, 16, 64, 256, 1024, 2048, 4094}, 0},
    {"ports", "replay, 4094 VLANs", "replay", {10001, 10002, 10004, 10008, 10016, 10032, 10063}, 10000},
    {"ports", "touching the bytes", "replay_floor", {10001, 10002, 10004, 10008, 10016, 10032, 10063}, 10000},
    {"walk", "MAC walk, an entry", "walk", {1, 4, 16, 64, 256, 1024, 4096}, 0},
    {"clients", "deliveries a second", "clients", {1, 2, 4, 8, 16, 32, 64}, 0},
};

} // namespace bench
