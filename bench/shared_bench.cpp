// What a look-up in the shared tables costs, beside the same access to the bare arrays and beside look-ups of the same
// records in LMDB and in SQLite, all in one run.
//
// All four must give the same answers to all questions before anything is measured.
#include "bench/ratios.h"
#include "bench/shared_records.h"

#include <benchmark/benchmark.h>
#ifdef BRIDGE_HAVE_LMDB
#include "bench/shared_lmdb.h"
#endif
#ifdef BRIDGE_HAVE_SQLITE3
#include "bench/shared_sqlite.h"
#endif

#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>
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
    benchmark::DoNotOptimize(copy);
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

// No limits, no presence, no copy more than asked for.
namespace bare {

uint32_t member_test(unsigned number) {
    const Question &asked = question(number);
    return has_bit(g_records.vlans[asked.vid].members, asked.ifx) ? 1U : 0U;
}
uint32_t tag_rule(unsigned number) {
    const Question &asked = question(number);
    return member_test(number) != 0 ? rule_of(g_records.ports[asked.ifx], asked.vid) : uint32_t{BRI_TAG_NOT_MEMBER};
}
uint32_t entry_copy(unsigned number) {
    vle copy = g_records.vlans[question(number).vid];
    benchmark::DoNotOptimize(copy);
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

template <Answer answer> void measure(benchmark::State &state) {
    unsigned number = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(answer(number++));
}

struct Way {
    const char *name;
    Answer answer;
    void (*measure)(benchmark::State &);
};
template <Answer answer> constexpr Way way(const char *name) {
    return {name, answer, measure<answer>};
}

constexpr const char *kLibrary = "library";

#ifdef BRIDGE_HAVE_LMDB
#define BRI_BENCH_LMDB(operation) way<lmdb::operation>("lmdb"),
#else
#define BRI_BENCH_LMDB(operation)
#endif
#ifdef BRIDGE_HAVE_SQLITE3
#define BRI_BENCH_SQLITE(operation) way<sqlite::operation>("sqlite"),
#else
#define BRI_BENCH_SQLITE(operation)
#endif
#define BRI_BENCH_OPERATION(operation)                                                                                 \
    {                                                                                                                  \
#operation, {                                                                                                  \
            way<library::operation>(kLibrary), way<bare::operation>("bare"),                                           \
                BRI_BENCH_LMDB(operation) BRI_BENCH_SQLITE(operation)                                                  \
        }                                                                                                              \
    }

struct Operation {
    const char *name;
    std::vector<Way> ways;
};

std::vector<Operation> operations() {
    return {
        BRI_BENCH_OPERATION(member_test),  BRI_BENCH_OPERATION(tag_rule),   BRI_BENCH_OPERATION(entry_copy),
        BRI_BENCH_OPERATION(set_walk),     BRI_BENCH_OPERATION(port_count), BRI_BENCH_OPERATION(svi_lookup),
        BRI_BENCH_OPERATION(group_search),
    };
}

void make_vlans(std::mt19937 &random) {
    vl_set_vlan_range(BRI_VID_MIN, BRI_VID_MAX);
    for (unsigned vid = BRI_VID_MIN; vid <= BRI_VID_MAX; ++vid) {
        if (vid % 4 == 0) // every fourth does not exist
            continue;
        const auto id = static_cast<uint16_t>(vid);
        vl_initial_vlan_entry(id, BRI_VLAN_STATIC);
        if (vid % 16 == 1)
            vl_set_svi(id, 10000 + vid);
        for (int32_t ifx = 1; ifx <= kPorts; ++ifx)
            if (random() % 4 == 0)
                vl_add_static_member(ifx, id);
    }
    for (unsigned vid = 1; vid <= 4089; vid += 8)
        set_bit(g_records.live.words, vid);
    g_records.holes = g_records.live;
    set_bit(g_records.holes.words, 4092);
}

void make_ports(std::mt19937 &random) {
    constexpr std::array kModes{BRI_PORT_ACCESS, BRI_PORT_TRUNK, BRI_PORT_HYBRID, BRI_PORT_UPLINK};
    for (int32_t ifx = 1; ifx <= kPorts; ++ifx) {
        spcb *port = swport_get_raw_spcb(ifx);
        need(port != nullptr, "no port database");
        port->ifx = static_cast<uint32_t>(ifx);
        port->mode = kModes[static_cast<unsigned>(ifx) % kModes.size()];
        port->default_vid = 1;
        for (uint32_t &word : port->tag_vlan.words)
            word = static_cast<uint32_t>(random());
    }
}

void make_groups() {
    for (unsigned number = 1; number <= kGroups; ++number) {
        const auto id = static_cast<uint8_t>(number);
        vlanset members{};
        vlanset added{};
        vlanset removed{};
        uint8_t counts[2] = {};
        for (unsigned vid = number * 32; vid < number * 32 + 8; ++vid)
            set_bit(members.words, vid);
        need(vlan_group_creat_entry(id) == 1 &&
                 vlan_group_set_member_vlan(id, &members, &added, &removed, &counts[0], &counts[1]) == 1,
             "no group table");
    }
}

void make_questions(std::mt19937 &random) {
    for (Question &asked : g_records.asked) {
        asked.vid = static_cast<uint16_t>(1 + random() % BRI_VID_MAX);
        asked.ifx = static_cast<uint8_t>(1 + random() % static_cast<uint32_t>(kPorts));
        asked.svi_ifx = 10000 + 1 + 16 * static_cast<uint32_t>(random() % 256);
    }
}

// The tables stay mapped and vanish with this process, however it ends.
void mark_for_removal(uint32_t key, uint32_t id) {
    shmctl(static_cast<int>(id), IPC_RMID, nullptr);
    semctl(semget(static_cast<key_t>(key), 0, 0), 0, IPC_RMID);
}

void map_tables() {
    setenv("VSDID", std::to_string(1000000 + getpid()).c_str(), 1);
    need(vl_vlandb_init() == 1, "no VLAN database");
    mark_for_removal(g_vl_mng.shm->hdr->key, g_vl_mng.shm->hdr->shmid);
    need(vlan_group_shm_init() == 1, "no group table");
    mark_for_removal(vlan_group_mng.shm->hdr->key, vlan_group_mng.shm->hdr->shmid);
    uint32_t key = 0;
    uint32_t id = 0;
    uint32_t size = 0;
    char name[64];
    need(bridge_portdb_init() == 1 && swport_get_shm_head(&key, &id, &size, name) == 1, "no port database");
    mark_for_removal(key, id);
    g_records.vlans = g_vl_mng.entries;
    g_records.ports = swport_get_raw_spcb(1) - 1;
    g_records.groups = vlan_group_mng.entries;
}

// The records, and a directory for the databases that is gone at the end of the run.
class World {
  public:
    World() : directory_(std::filesystem::temp_directory_path() / ("shared_bench." + std::to_string(getpid()))) {
        std::filesystem::create_directory(directory_);
        map_tables();
        std::mt19937 random(1); // every run asks the same
        make_vlans(random);
        make_ports(random);
        make_groups();
        make_questions(random);
        open_databases();
    }
    ~World() {
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
    }
    World(const World &) = delete;
    World &operator=(const World &) = delete;

  private:
    void open_databases() const {
#ifdef BRIDGE_HAVE_LMDB
        lmdb::open(directory_);
#else
        std::puts("without LMDB: its headers and library were not found when this was built");
#endif
#ifdef BRIDGE_HAVE_SQLITE3
        sqlite::open(directory_);
#else
        std::puts("without SQLite: its headers and library were not found when this was built");
#endif
    }

    std::filesystem::path directory_;
};

void compare_answers(const Operation &operation) {
    for (unsigned number = 0; number < kQuestions; ++number)
        for (const Way &way : operation.ways)
            if (way.answer(number) != operation.ways.front().answer(number)) {
                std::fprintf(stderr, "%s, question %u: %s and %s answer %u and %u\n", operation.name, number,
                             operation.ways.front().name, way.name, operation.ways.front().answer(number),
                             way.answer(number));
                give_up("answers differ");
            }
}

std::string name_of(const Operation &operation, const Way &way) {
    return std::string(operation.name) + "/" + way.name;
}

// How many times longer than the library each other way takes.
class Table : public Times {
  public:
    explicit Table(const std::vector<Operation> &all) : operations_(all) {}

    void Finalize() override {
        std::printf("%-14s %12s", "", "library ns");
        for (size_t index = 1; index < operations_.front().ways.size(); ++index)
            std::printf(" %10s", operations_.front().ways[index].name);
        std::puts("   (times the library's)");
        for (const Operation &operation : operations_)
            print(operation);
    }

  private:
    void print(const Operation &operation) const {
        const double own = time_of(operation, operation.ways.front());
        if (own <= 0)
            return; // not among those that were asked for
        std::printf("%-14s %12.2f", operation.name, own);
        for (size_t index = 1; index < operation.ways.size(); ++index)
            if (const double time = time_of(operation, operation.ways[index]); time > 0)
                std::printf(" %10.2f", time / own);
            else
                std::printf(" %10s", "-");
        std::puts("");
    }
    double time_of(const Operation &operation, const Way &way) const { return Times::time_of(name_of(operation, way)); }

    const std::vector<Operation> &operations_;
};

} // namespace
} // namespace bench

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    const bench::World world;
    const std::vector<bench::Operation> all = bench::operations();
    for (const bench::Operation &operation : all) {
        bench::compare_answers(operation);
        for (const bench::Way &way : operation.ways)
            benchmark::RegisterBenchmark(name_of(operation, way).c_str(), way.measure)->Apply(bench::repeated);
    }
    bench::Table table(all);
    return bench::run("Look-ups in the shared tables", table);
}
