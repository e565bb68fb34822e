// The same records in SQLite: one table a kind, the number as the row's id, the record as one blob, and an index over
// the SVIs. The statements are prepared once and the log is written ahead, which lets readers and a writer work at
// once.
#pragma once

#include "bench/tables.h"

#include <sqlite3.h>

#include <string>

namespace bench::sqlite {

struct Store {
    sqlite3 *db;
    sqlite3_stmt *vlan, *port, *group_walk, *svi;
};
inline Store g_store;

inline void run(const char *text) {
    need(sqlite3_exec(g_store.db, text, nullptr, nullptr, nullptr) == SQLITE_OK, "SQLite refuses a statement");
}
inline sqlite3_stmt *prepare(const char *text) {
    sqlite3_stmt *statement = nullptr;
    need(sqlite3_prepare_v2(g_store.db, text, -1, &statement, nullptr) == SQLITE_OK, "SQLite refuses a statement");
    return statement;
}

// The rows of one execution; at its end the statement is ready for the next.
class Rows {
  public:
    explicit Rows(sqlite3_stmt *statement) : statement_(statement) {}
    Rows(sqlite3_stmt *statement, uint32_t key) : statement_(statement) { sqlite3_bind_int64(statement, 1, key); }
    ~Rows() { sqlite3_reset(statement_); }
    Rows(const Rows &) = delete;
    Rows &operator=(const Rows &) = delete;

    bool next() { return sqlite3_step(statement_) == SQLITE_ROW; }
    template <class T> const T *blob() const { return static_cast<const T *>(sqlite3_column_blob(statement_, 0)); }
    uint32_t number() const { return static_cast<uint32_t>(sqlite3_column_int64(statement_, 0)); }

  private:
    sqlite3_stmt *statement_;
};

template <class T> void put(sqlite3_stmt *insert, uint32_t key, const T &record, uint32_t extra = 0) {
    sqlite3_bind_int64(insert, 1, key);
    sqlite3_bind_blob(insert, 2, &record, sizeof record, SQLITE_STATIC);
    sqlite3_bind_int64(insert, 3, extra);
    need(sqlite3_step(insert) == SQLITE_DONE, "SQLite refuses a record");
    sqlite3_reset(insert);
}

inline void fill() {
    sqlite3_stmt *vlan = prepare("INSERT INTO vlans VALUES (?, ?, ?)");
    sqlite3_stmt *port = prepare("INSERT INTO ports VALUES (?, ?, ?)");
    sqlite3_stmt *group = prepare("INSERT INTO groups VALUES (?, ?, ?)");
    run("BEGIN");
    for (uint32_t vid = 1; vid < BRI_VLAN_ENTRIES; ++vid)
        if (g_records.vlans[vid].vid != 0)
            put(vlan, vid, g_records.vlans[vid], g_records.vlans[vid].svi_ifx);
    for (uint32_t ifx = 1; ifx <= kVariedPorts; ++ifx)
        put(port, ifx, g_records.ports[ifx]);
    for (uint32_t id = 1; id <= kGroups; ++id)
        put(group, id, g_records.groups[id]);
    run("COMMIT");
    for (sqlite3_stmt *insert : {vlan, port, group})
        sqlite3_finalize(insert);
}

inline void open(const std::string &directory) {
    const std::string file = directory + "/records.sqlite";
    need(sqlite3_open(file.c_str(), &g_store.db) == SQLITE_OK, "SQLite does not open");
    run("PRAGMA journal_mode = WAL");
    run("CREATE TABLE vlans (id INTEGER PRIMARY KEY, record BLOB, svi INTEGER)");
    run("CREATE TABLE ports (id INTEGER PRIMARY KEY, record BLOB, extra INTEGER)");
    run("CREATE TABLE groups (id INTEGER PRIMARY KEY, record BLOB, extra INTEGER)");
    run("CREATE INDEX svis ON vlans (svi)");
    fill();
    g_store.vlan = prepare("SELECT record FROM vlans WHERE id = ?");
    g_store.port = prepare("SELECT record FROM ports WHERE id = ?");
    g_store.group_walk = prepare("SELECT record FROM groups ORDER BY id");
    g_store.svi = prepare("SELECT min(id) FROM vlans WHERE svi = ?");
}

inline uint32_t member_test(unsigned number) {
    const Question &asked = question(number);
    Rows rows(g_store.vlan, asked.vid);
    return rows.next() && has_bit(rows.blob<vle>()->members, asked.ifx) ? 1U : 0U;
}

inline uint32_t tag_rule(unsigned number) {
    const Question &asked = question(number);
    if (member_test(number) == 0)
        return BRI_TAG_NOT_MEMBER;
    Rows rows(g_store.port, asked.ifx);
    return rows.next() ? rule_of(*rows.blob<spcb>(), asked.vid) : uint32_t{BRI_TAG_NOT_MEMBER};
}

inline uint32_t entry_copy(unsigned number) {
    Rows rows(g_store.vlan, question(number).vid);
    vle copy{};
    if (rows.next())
        copy = *rows.blob<vle>();
    keep(copy);
    return copy.mode + copy.vid;
}

inline uint32_t set_walk(unsigned number) {
    uint32_t all = 1;
    for_each_bit(set_asked(number).words, [&](unsigned vid) {
        if (Rows rows(g_store.vlan, vid); !rows.next())
            all = 0;
    });
    return all;
}

inline uint32_t port_count(unsigned number) {
    Rows vlan(g_store.vlan, question(number).vid);
    if (!vlan.next())
        return 0;
    const auto *entry = vlan.blob<vle>();
    uint32_t count = 0;
    for (uint32_t ifx = 1; ifx < BRI_PORT_SLOTS; ++ifx)
        if (has_bit(entry->members, ifx))
            count += Rows(g_store.port, ifx).next() ? 1U : 0U;
    return count;
}

inline uint32_t svi_lookup(unsigned number) {
    Rows rows(g_store.svi, question(number).svi_ifx);
    return rows.next() ? rows.number() : 0;
}

inline uint32_t group_search(unsigned number) {
    Rows rows(g_store.group_walk);
    while (rows.next())
        if (const auto *entry = rows.blob<vlan_group_entry>(); has_bit(entry->members.words, question(number).vid))
            return entry->id;
    return 0;
}

} // namespace bench::sqlite
