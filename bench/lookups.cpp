// Look-ups in the shared tables beside the same access to the bare arrays, and beside look-ups of the same records in
// LMDB and in SQLite. All of them must give the same answers to all questions before anything is measured.
#include "bench/bare.h"
#include "bench/client.h"
#include "bench/measure.h"
#include "bench/tables.h"
#ifdef BRIDGE_HAVE_LMDB
#include "bench/lmdb.h"
#endif
#ifdef BRIDGE_HAVE_SQLITE3
#include "bench/sqlite.h"
#endif

#include <filesystem>
#include <vector>

namespace bench {
namespace {

using Answer = uint32_t (*)(unsigned number);

namespace library {

uint32_t member_test(unsigned number) {
    const Question &asked = question(number);
    return static_cast<uint32_t>(vl_is_vlan_member(asked.vid, asked.ifx));
}
uint32_t tag_rule(unsigned number) {
    const Question &asked = question(number);
    return static_cast<uint32_t>(swport_get_vlan_tag_rule(asked.ifx, asked.vid));
}
uint32_t entry_copy(unsigned number) {
    vle copy{};
    vl_get_vlan_copy(question(number).vid, &copy);
    keep(copy);
    return copy.mode + copy.vid;
}
uint32_t set_walk(unsigned number) {
    static vlanset missing;
    return static_cast<uint32_t>(vl_vlanset_exist(0, &set_asked(number), &missing));
}
uint32_t port_count(unsigned number) {
    return static_cast<uint32_t>(vl_get_vlan_port_count(question(number).vid));
}
uint32_t svi_lookup(unsigned number) {
    return vl_get_vid_from_svifx(question(number).svi_ifx);
}
uint32_t group_search(unsigned number) {
    uint8_t id = 0;
    vg_clnt_is_member_of_any_group(question(number).vid, &id);
    return id;
}

} // namespace library

namespace bare {

uint32_t member_test(unsigned number) {
    const Question &asked = question(number);
    return static_cast<uint32_t>(bare_is_member(g_records.vlans, asked.vid, asked.ifx));
}
uint32_t tag_rule(unsigned number) {
    const Question &asked = question(number);
    return static_cast<uint32_t>(bare_tag_rule(g_records.vlans, g_records.ports, asked.ifx, asked.vid));
}
uint32_t entry_copy(unsigned number) {
    vle copy = g_records.vlans[question(number).vid];
    keep(copy);
    return copy.mode + copy.vid;
}
uint32_t set_walk(unsigned number) {
    uint32_t all = 1;
    for_each_bit(set_asked(number).words, [&](unsigned vid) {
        if (g_records.vlans[vid].vid == 0)
            all = 0;
    });
    return all;
}
uint32_t port_count(unsigned number) {
    const uint32_t *members = g_records.vlans[question(number).vid].members;
    uint32_t count = 0;
    for (unsigned ifx = 1; ifx < BRI_PORT_SLOTS; ++ifx)
        count += has_bit(members, ifx) && g_records.ports[ifx].ifx != 0 ? 1U : 0U;
    return count;
}
uint32_t svi_lookup(unsigned number) {
    const uint32_t ifx = question(number).svi_ifx;
    for (unsigned vid = 1; vid < BRI_VLAN_ENTRIES; ++vid)
        if (g_records.vlans[vid].svi_ifx == ifx)
            return vid;
    return 0;
}
uint32_t group_search(unsigned number) {
    const uint16_t vid = question(number).vid;
    for (unsigned id = 1; id < BRI_VLAN_GROUP_ENTRIES; ++id)
        if (g_records.groups[id].id != 0 && has_bit(g_records.groups[id].members.words, vid))
            return id;
    return 0;
}

} // namespace bare

// The tables, and a directory for a database that is gone at the end.
template <class Open> void fill(Open open) {
    need(connect_to_pair(), "the start");
    fill_varied_tables();
    const std::filesystem::path directory =
        std::filesystem::temp_directory_path() / ("bridge-bench." + std::to_string(getpid()));
    std::filesystem::create_directory(directory);
    open(directory);
    std::filesystem::remove_all(directory); // what is open stays usable
}

template <auto Open, Answer expected, Answer answer> double measure(unsigned) {
    fill(Open);
    for (unsigned number = 0; number < kQuestions; ++number)
        need(answer(number) == expected(number), "an answer");
    unsigned number = 0;
    return per_call(1, [&] { keep(answer(number++)); });
}

void no_database(const std::string &) {}

#define BRI_LOOKUP(operation)                                                                                          \
    {#operation, measure<no_database, bare::operation, library::operation>}, {                                         \
#operation "_bare", measure < no_database, library::operation, bare::operation>                                \
    }
#define BRI_LMDB(operation)                                                                                            \
    { #operation "_lmdb", measure < lmdb::open, library::operation, lmdb::operation> }
#define BRI_SQLITE(operation)                                                                                          \
    { #operation "_sqlite", measure < sqlite::open, library::operation, sqlite::operation> }
#define BRI_EACH(row)                                                                                                  \
    row(member_test), row(tag_rule), row(entry_copy), row(set_walk), row(port_count), row(svi_lookup), row(group_search)

const std::vector<Measurement> kMeasurements = {
    BRI_EACH(BRI_LOOKUP),
#ifdef BRIDGE_HAVE_LMDB
    BRI_EACH(BRI_LMDB),
#endif
#ifdef BRIDGE_HAVE_SQLITE3
    BRI_EACH(BRI_SQLITE),
#endif
};

} // namespace

std::span<const Measurement> lookups() {
    return kMeasurements;
}

} // namespace bench
