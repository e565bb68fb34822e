// The same records in LMDB, each under its number. A question is a read transaction of its own, as it must be to see
// what other processes wrote in between; the handle of the transaction is kept.
#pragma once

#include "bench/tables.h"

#include <lmdb.h>

#include <string>

namespace bench::lmdb {

struct Store {
    MDB_env *env;
    MDB_txn *reader;
    MDB_dbi vlans, ports, groups, svis; // svis: the VLAN of each SVI, the index that a table of records needs
};
inline Store g_store;

class Reading {
  public:
    Reading() { mdb_txn_renew(g_store.reader); }
    ~Reading() { mdb_txn_reset(g_store.reader); }
    Reading(const Reading &) = delete;
    Reading &operator=(const Reading &) = delete;

    template <class T> const T *get(MDB_dbi table, uint32_t key) const {
        MDB_val wanted{sizeof key, &key};
        MDB_val found;
        return mdb_get(g_store.reader, table, &wanted, &found) == 0 ? static_cast<const T *>(found.mv_data) : nullptr;
    }
};

template <class T> void put(MDB_txn *writer, MDB_dbi table, uint32_t key, const T &record) {
    MDB_val name{sizeof key, &key};
    MDB_val value{sizeof record, const_cast<T *>(&record)};
    need(mdb_put(writer, table, &name, &value, 0) == 0, "LMDB refuses a record");
}

inline void fill(MDB_txn *writer) {
    for (uint32_t vid = 1; vid < BRI_VLAN_ENTRIES; ++vid) {
        const vle &entry = g_records.vlans[vid];
        if (entry.vid != 0)
            put(writer, g_store.vlans, vid, entry);
        if (entry.svi_ifx != 0)
            put(writer, g_store.svis, entry.svi_ifx, vid);
    }
    for (uint32_t ifx = 1; ifx <= kVariedPorts; ++ifx)
        put(writer, g_store.ports, ifx, g_records.ports[ifx]);
    for (uint32_t id = 1; id <= kGroups; ++id)
        put(writer, g_store.groups, id, g_records.groups[id]);
}

inline void open(const std::string &directory) {
    Store &store = g_store;
    MDB_txn *writer = nullptr;
    const std::string file = directory + "/records.lmdb";
    need(mdb_env_create(&store.env) == 0 && mdb_env_set_maxdbs(store.env, 4) == 0 &&
             mdb_env_set_mapsize(store.env, size_t{16} << 20) == 0 &&
             mdb_env_open(store.env, file.c_str(), MDB_NOSUBDIR, 0600) == 0 &&
             mdb_txn_begin(store.env, nullptr, 0, &writer) == 0,
         "LMDB does not open");
    constexpr unsigned kFlags = MDB_CREATE | MDB_INTEGERKEY;
    need(mdb_dbi_open(writer, "vlans", kFlags, &store.vlans) == 0 &&
             mdb_dbi_open(writer, "ports", kFlags, &store.ports) == 0 &&
             mdb_dbi_open(writer, "groups", kFlags, &store.groups) == 0 &&
             mdb_dbi_open(writer, "svis", kFlags, &store.svis) == 0,
         "LMDB makes no tables");
    fill(writer);
    need(mdb_txn_commit(writer) == 0 && mdb_txn_begin(store.env, nullptr, MDB_RDONLY, &store.reader) == 0,
         "LMDB does not commit");
    mdb_txn_reset(store.reader);
}

inline uint32_t member_test(unsigned number) {
    const Question &asked = question(number);
    const Reading reading;
    const vle *entry = reading.get<vle>(g_store.vlans, asked.vid);
    return entry != nullptr && has_bit(entry->members, asked.ifx) ? 1U : 0U;
}

inline uint32_t tag_rule(unsigned number) {
    const Question &asked = question(number);
    const Reading reading;
    const vle *entry = reading.get<vle>(g_store.vlans, asked.vid);
    if (entry == nullptr || !has_bit(entry->members, asked.ifx))
        return BRI_TAG_NOT_MEMBER;
    const spcb *port = reading.get<spcb>(g_store.ports, asked.ifx);
    return port != nullptr ? rule_of(*port, asked.vid) : uint32_t{BRI_TAG_NOT_MEMBER};
}

inline uint32_t entry_copy(unsigned number) {
    const Reading reading;
    const vle *entry = reading.get<vle>(g_store.vlans, question(number).vid);
    vle copy{};
    if (entry != nullptr)
        copy = *entry;
    keep(copy);
    return copy.mode + copy.vid;
}

inline uint32_t set_walk(unsigned number) {
    const Reading reading;
    uint32_t all = 1;
    for_each_bit(set_asked(number).words, [&](unsigned vid) {
        if (reading.get<vle>(g_store.vlans, vid) == nullptr)
            all = 0;
    });
    return all;
}

inline uint32_t port_count(unsigned number) {
    const Reading reading;
    const vle *entry = reading.get<vle>(g_store.vlans, question(number).vid);
    uint32_t count = 0;
    for (uint32_t ifx = 1; entry != nullptr && ifx < BRI_PORT_SLOTS; ++ifx)
        if (has_bit(entry->members, ifx) && reading.get<spcb>(g_store.ports, ifx) != nullptr)
            ++count;
    return count;
}

inline uint32_t svi_lookup(unsigned number) {
    const Reading reading;
    const auto *vid = reading.get<uint32_t>(g_store.svis, question(number).svi_ifx);
    return vid != nullptr ? *vid : 0;
}

inline uint32_t group_search(unsigned number) {
    const Reading reading;
    MDB_cursor *cursor = nullptr;
    uint32_t found = 0;
    MDB_val key;
    MDB_val record;
    need(mdb_cursor_open(g_store.reader, g_store.groups, &cursor) == 0, "LMDB gives no cursor");
    while (found == 0 && mdb_cursor_get(cursor, &key, &record, MDB_NEXT) == 0) {
        const auto *entry = static_cast<const vlan_group_entry *>(record.mv_data);
        if (has_bit(entry->members.words, question(number).vid))
            found = entry->id;
    }
    mdb_cursor_close(cursor);
    return found;
}

} // namespace bench::lmdb
