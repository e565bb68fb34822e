// Arbitrary bytes in every shared table, headers included, then reads, shows, walks and changes.
//
// An input says what the tables are filled with and then, step by step, what is done to them, so that an input that
// reaches something new stays short and quick. What goes through whole tables is done once for an input at most.
//
// The segments are blocks of the heap of exactly the size that was asked for, behind the calls that this program takes
// the place of: the address sanitizer sees the first byte beside a table, and nothing outlives the process. They are
// made once; an input fills them anew.
#include "base/list.h"
#include "client/state.h"

#include <bridge/bridge.h>

#include <qv_syslog.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/sem.h>
#include <sys/shm.h>
#include <utility>

namespace {

struct Segment {
    key_t key;
    size_t size;
    uint8_t *bytes;
};
constexpr int kSegments = 4;
Segment g_segments[kSegments];
int g_made;

// What an input has left; zeros behind its end.
class Source {
  public:
    Source(const uint8_t *bytes, size_t size) : bytes_(bytes), left_(size) {}

    [[nodiscard]] bool empty() const { return left_ == 0; }
    uint8_t byte() {
        if (left_ == 0)
            return 0;
        --left_;
        return *bytes_++;
    }
    uint16_t half() { return static_cast<uint16_t>(byte() << 8 | byte()); }
    uint32_t word() { return uint32_t{half()} << 16 | half(); }

  private:
    const uint8_t *bytes_;
    size_t left_;
};

// Bytes without a pattern, the same in every run. A table takes them from wherever the input says.
constexpr size_t kMostTable = 512 * 1024;
const uint8_t *noise(uint8_t offset) {
    static std::array<uint8_t, kMostTable + 4 * UINT8_MAX> bytes;
    if (bytes[0] == 0) {
        uint64_t state = 0xcbf29ce484222325;
        for (uint8_t &byte : bytes) {
            state ^= state << 13;
            state ^= state >> 7;
            state ^= state << 17;
            byte = static_cast<uint8_t>(state >> 32);
        }
        bytes[0] = 1;
    }
    return bytes.data() + size_t{4} * offset;
}

// Pieces of noise over the whole table, zeros between them.
void scatter(const Segment &segment, Source &source) {
    const uint8_t *bytes = noise(source.byte());
    const size_t step = size_t{1} << (6 + source.byte() % 8U);
    std::memset(segment.bytes, 0, segment.size);
    for (size_t at = 0; at < segment.size; at += step) {
        const size_t some = bytes[at] % std::min<size_t>(step, segment.size - at);
        std::memcpy(segment.bytes + at, bytes + at, some);
    }
}

void fill(const Segment &segment, Source &source) {
    switch (source.byte() % 4) {
    case 0:
        std::memset(segment.bytes, 0, segment.size);
        break;
    case 1:
        std::memset(segment.bytes, 0xff, segment.size);
        break;
    case 2:
        std::memcpy(segment.bytes, noise(source.byte()), segment.size);
        break;
    default:
        scatter(segment, source);
        break;
    }
}

// The VLAN limits are the input's in any case: most arbitrary ones leave no VLAN. Mostly they span few, which keeps
// what walks over them quick.
void choose_limits(Source &source) {
    const uint16_t first = source.half();
    const uint8_t span = source.byte();
    vl_set_vlan_range(first % 8192U, span < 0xf0 ? first % 8192U + span : source.half());
}

// Arbitrary words hardly ever are modes that mean something.
void make_modes_likely() {
    for (int32_t ifx = 1; ifx < static_cast<int32_t>(BRI_PORT_SLOTS); ++ifx)
        swport_get_raw_spcb(ifx)->mode %= 9;
    for (unsigned vid = 1; vid < BRI_VLAN_ENTRIES; ++vid)
        g_vl_mng.entries[vid].mode %= 5;
}

void fill_tables(Source &source) {
    for (const Segment &segment : g_segments)
        fill(segment, source);
    if (source.byte() % 2 != 0)
        make_modes_likely();
    choose_limits(source);
}

// --- what is done to them ---

// Nothing, everything, or noise, thinned out.
vlanset some_set(Source &source) {
    vlanset set{};
    const uint8_t kind = source.byte();
    const unsigned offset = source.byte();
    if (kind % 4 == 1)
        std::memset(&set, 0xff, sizeof set);
    if (kind % 4 >= 2)
        std::memcpy(&set, noise(static_cast<uint8_t>(offset)), sizeof set);
    for (uint32_t index = 0; index < std::size(set.words); ++index)
        if (kind % 4 == 3 && (index + offset) % (1U + kind / 4) != 0)
            set.words[index] = 0;
    return set;
}

int visited(int32_t ifx, void *arg) {
    (void)ifx;
    return *static_cast<int *>(arg);
}

void read_port(int32_t ifx, uint16_t vid) {
    uint32_t word = 0;
    uint16_t half = 0;
    spcb copy;
    swport_check_ifindex_valid(ifx);
    swport_get_raw_spcb(ifx);
    swport_get_spcb(ifx);
    vl_ifindex_to_swport(ifx);
    vl_clnt_ifindex_to_spcb(ifx);
    swport_check_exist(ifx);
    swport_get_spcb_copy(ifx, &copy);
    swport_get_version(ifx);
    if (swport_get_port_mode(ifx, &word) != 0)
        swport_vlan_mode_name(word);
    swport_get_port_default_mode(ifx, &word);
    swport_get_port_default_vid(ifx);
    swport_get_tag_vlan(ifx);
    swport_is_allow_vlan(ifx, vid);
    swport_get_vlan_tag_rule(ifx, vid);
    vl_clnt_is_allowvlan_mem(vid, ifx);
    vl_clnt_get_port_default_vid(ifx, &half);
    vl_clnt_get_portmode_by_index(ifx, &word);
    vl_clnt_get_member_info(vid, ifx, &word);
    bridge_get_port_instance_status(static_cast<uint32_t>(ifx), vid, &word);
    bridge_get_port_fwd_status(static_cast<uint32_t>(ifx), vid, &word);
    char text[24];
    bridge_coxmng_get_status(static_cast<uint32_t>(ifx), text, sizeof text);
    bridge_coxmng_get_status(static_cast<uint32_t>(ifx) * vid, text, sizeof text);
}

void read_vlan(uint16_t vid) {
    uint32_t word = 0;
    uint32_t pair[2];
    vle copy;
    vle *entry = nullptr;
    char name[BRI_VLAN_NAME_SIZE] = {};
    vl_check_vlanid_valid(vid);
    vl_get_raw_vlan_entry(vid);
    vl_get_vlan_entry(vid);
    vl_get_vle_from_vid(vid, &entry);
    vl_clnt_get_vle_from_vid(vid, &entry);
    vl_get_vlan_copy(vid, &copy);
    vl_exist(vid, BRI_VLAN_STATIC);
    vl_clnt_exist(vid, 0);
    vl_get_vlan_latest_version(vid);
    vl_get_vlan_private_version(vid);
    vl_get_vlan_mode(vid, &word);
    vl_clnt_get_vlan_mode(vid, &word);
    if (vl_get_vlan_name(vid, name) != 0 && strnlen(name, sizeof name) == sizeof name)
        abort();
    vl_clnt_get_vlan_name(vid, name, vid % sizeof name);
    vl_clnt_get_vid_from_svifx(vl_get_svi_ifx(vid));
    vl_clnt_get_manage_vid(vid);
    vl_get_vlan_up_mem(vid);
    vl_get_vlan_ref(vid);
    vl_is_created_by_cli(vid);
    vl_get_vswpt_num(vid);
    vl_clnt_is_subvlan(vid);
    vl_clnt_is_supervlan(vid);
    vl_is_vlan_have_port(vid);
    if (vl_get_vlan_port_count(vid) > static_cast<int>(BRI_PORT_SLOTS) - 1)
        abort();
    vl_clnt_get_vlan_port_cnt(vid, &word);
    vl_get_vlan_port_bmap(vid, pair);
    swport_get_stp_instance(vid);
    for (int verdict = 0; verdict < 5; ++verdict)
        vl_clnt_member_walk_through(vid, visited, &verdict, visited, &verdict);
}

void read_group(uint8_t id, uint16_t vid) {
    vlan_group_entry copy;
    vlanset set;
    uint16_t half = 0;
    uint8_t byte = 0;
    vlan_group_get_entry(id);
    vg_clnt_check_exist(id);
    vlan_group_get_default_vlan(id, &half);
    vlan_group_get_vlan_assign_mode(id, &byte);
    vlan_group_get_member_vlan_cnt(id, &byte);
    vlan_group_get_entry_copy(id, &copy);
    vlan_group_check_vlan_is_member_vlan(id, vid);
    vlan_group_get_member_vlan_bitmap(id, &set);
    vg_clnt_get_vlan_list(id, &set);
    vg_clnt_get_default_vid(id);
    vg_clnt_get_assign_mode(id);
    vg_clnt_is_member_of_any_group(vid, &byte);
}

void read_protocols(uint32_t proto) {
    bridge_proto_get_name(proto);
    bridge_proto_state_get(proto);
    bridge_proto_get_state_all();
}

void change_port(int32_t ifx, uint16_t vid, Source &source) {
    uint32_t word = 0;
    vlanset map = some_set(source);
    swport_tag_vlan_add(ifx, vid);
    swport_tag_vlan_del(ifx, static_cast<uint16_t>(vid + 1));
    swport_tag_vlan_merge_map(ifx, &map);
    map = some_set(source);
    swport_tag_vlan_rmv_map(ifx, &map);
    swport_tag_vlan_rmv_map(ifx, swport_get_tag_vlan(ifx));
    if (source.byte() % 2 == 0)
        swport_reset_tag_vlan(ifx);
    swport_set_attr_exclude(ifx, source.word(), vid, source.word(), &word);
    bridge_set_excflag(static_cast<uint32_t>(ifx), source.word(), source.word(), &word);
    bridge_unset_excflag(static_cast<uint32_t>(ifx), source.word());
}

void change_vlan(int32_t ifx, uint16_t vid, Source &source) {
    vl_set_vlan_mode(vid, source.byte() % 5U);
    vl_add_static_member(ifx, vid);
    vl_del_static_member(source.byte(), vid);
    vl_set_svi(vid, source.byte() % 3U);
    vl_increase_vlan_ref(vid);
    vl_decrease_vlan_ref(vid);
    vl_set_created_by_cli(vid);
    vl_clear_created_by_cli(vid);
    vl_set_vswpt_num(vid, source.byte());
    if (source.byte() % 2 == 0)
        vl_initial_vlan_entry(vid, source.byte() % 5U);
    else
        vl_clear_vlan_entry(vid);
}

void change_protocol(uint32_t proto, Source &source) {
    uint32_t conflict = 0;
    bridge_proto_set_prejudge(proto, source.word());
    bridge_proto_state_set(proto, &conflict);
    bridge_proto_state_unset(source.byte());
}

void change_group(uint8_t id, uint16_t vid, Source &source) {
    const vlanset set = some_set(source);
    vlanset added{};
    vlanset removed{};
    uint8_t counts[2] = {};
    if (source.byte() % 2 == 0)
        vlan_group_creat_entry(id);
    vlan_group_set_member_vlan(id, &set, &added, &removed, &counts[0], &counts[1]);
    vlan_group_set_default_vlan(id, vid);
    vlan_group_set_vlan_assign_mode(id, id);
    if (source.byte() % 2 == 0)
        vlan_group_free_entry(id);
}

// A run of the input's own bytes wherever it puts them.
void overwrite(Source &source) {
    const Segment &segment = g_segments[source.byte() % kSegments];
    size_t at = source.word() % segment.size;
    for (unsigned length = source.byte() % 64U; length != 0 && at < segment.size; --length)
        segment.bytes[at++] = source.byte();
}

void show_tables() {
    uint32_t key = 0;
    uint32_t shmid = 0;
    uint32_t size = 0;
    char name[64];
    vlanset set{};
    const uint32_t instances[3] = {1, 0, 0x80000000};
    if (swport_get_shm_head(&key, &shmid, &size, name) != 0 && strnlen(name, sizeof name) == sizeof name)
        abort();
    if (vldb_get_shm_head(&key, &shmid, &size, name) != 0 && strnlen(name, sizeof name) == sizeof name)
        abort();
    swport_get_total_port_num();
    vl_get_vlan_range(&key, &size);
    vl_check_vlan_capacity();
    vl_get_vlan_number();
    vl_get_total_del_times();
    bridge_get_vlan_from_instance(instances, &set);
    swport_show_status();
    vl_vlandb_show_status();
    bridge_proto_state_show();
}

// Each of these goes through whole tables.
void walk(Source &source) {
    vlanset set = some_set(source);
    vlanset missing{};
    switch (source.byte() % 10) {
    case 0:
        vl_clnt_show_vlan();
        break;
    case 1:
        vl_clnt_show_swport();
        break;
    case 2:
        vl_clnt_notify_origin_data();
        break;
    case 3:
        l2top_clnt_notify_origin_data();
        break;
    case 4:
        vl_clnt_get_enable_vlans(static_cast<int32_t>(source.byte() % BRI_PORT_SLOTS), &set);
        break;
    case 5:
        vl_clnt_show_vlanlist(&set, source.byte());
        break;
    case 6:
        vl_vlanset_exist(source.byte() % 5U, &set, &missing);
        break;
    case 7:
        vl_set_vlan_mode_batch(&set, source.byte() % 5U);
        break;
    case 8:
        vl_range_set_created_by_cli(&set);
        break;
    default:
        show_tables();
        break;
    }
}

// Edges, or the input's own number.
int32_t some_port(Source &source) {
    constexpr std::array kPorts{0, 1, 31, 32, 63, 64, 65, -1, INT_MAX, INT_MIN};
    const uint8_t choice = source.byte();
    return choice < kPorts.size() ? kPorts[choice] : choice % 80;
}
uint16_t some_vlan(Source &source) {
    constexpr std::array kVlans{0, 1, 31, 32, 64, 1023, 4062, 4063, 4064, 4093, 4094, 4095, 4096, 4128, 65535};
    const uint8_t choice = source.byte();
    return choice < kVlans.size() ? static_cast<uint16_t>(kVlans[choice]) : source.half();
}

void step(Source &source, bool &walked) {
    const uint8_t kind = source.byte();
    const int32_t ifx = some_port(source);
    const uint16_t vid = some_vlan(source);
    switch (kind % 10) {
    case 0:
        overwrite(source);
        break;
    case 1:
        read_port(ifx, vid);
        break;
    case 2:
        read_vlan(vid);
        break;
    case 3:
        read_group(source.byte(), vid);
        break;
    case 4:
        read_protocols(source.byte());
        break;
    case 5:
        change_port(ifx, vid, source);
        break;
    case 6:
        change_vlan(ifx, vid, source);
        break;
    case 7:
        change_protocol(source.byte() % 20U, source);
        break;
    case 8:
        change_group(source.byte(), vid, source);
        break;
    default:
        if (!std::exchange(walked, true))
            walk(source);
        break;
    }
}

int handled(uint32_t, void *payload, uint16_t length) {
    static uint8_t seen[UINT16_MAX];
    if (length != 0)
        std::memcpy(seen, payload, length);
    return 0;
}

// A host that takes every event, with all tables mapped.
void set_up() {
    static bri_clnt_ctx client;
    std::strcpy(client.name, "fuzz");
    for (bri_list *head : {&client.handlers, &client.conn_cbs, &client.oridata_cbs, &client.cache})
        bri::list::init(*head);
    g_bridge_client = &client;
    bri::client::g_state.sync_state = bri::client::kSyncEnded;
    event_set every;
    std::memset(&every, 0xff, sizeof every);
    bridge_client_reg_event(&every, handled);
    uint32_t conflict = 0;
    unsetenv("VSDID");
    if (bridge_portdb_init() != 1 || vl_vlandb_init() != 1 || vlan_group_shm_init() != 1 ||
        bridge_set_excflag(1, 0, 0, &conflict) != 0 || g_made != kSegments)
        abort();
}

} // namespace

// --- the calls that this program takes the place of ---

extern "C" {

int __wrap_shmget(key_t key, size_t size, int flags) {
    (void)flags;
    for (int id = 0; id < g_made; ++id)
        if (g_segments[id].key == key)
            return id;
    if (g_made == kSegments || size == 0) {
        errno = ENOENT;
        return -1;
    }
    g_segments[g_made] = {key, size, static_cast<uint8_t *>(std::calloc(1, size))};
    return g_made++;
}

void *__wrap_shmat(int id, const void *address, int flags) {
    (void)address;
    (void)flags;
    return g_segments[id].bytes;
}

int __wrap_shmctl(int id, int command, shmid_ds *status) {
    if (command != IPC_STAT)
        abort();
    *status = {};
    status->shm_segsz = g_segments[id].size;
    return 0;
}

int __wrap_semget(key_t key, int count, int flags) {
    (void)key;
    (void)count;
    (void)flags;
    return 1;
}

int __wrap_semctl(int id, int number, int command, ...) {
    (void)id;
    (void)number;
    return command == SETVAL ? 0 : -1;
}

int __wrap_semop(int id, sembuf *operations, size_t count) {
    (void)id;
    (void)operations;
    (void)count;
    return 0;
}

// Formats the line, as a log would: a text that does not end is seen here.
void printk_syslog_ext(int level, const char *module, const char *tag, int output, const char *format, ...) {
    (void)level;
    (void)module;
    (void)tag;
    (void)output;
    static char line[4096];
    va_list arguments;
    va_start(arguments, format);
    if (std::vsnprintf(line, sizeof line, format, arguments) < 0)
        abort();
    va_end(arguments);
}

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    constexpr unsigned kMostSteps = 24;
    if (g_made == 0)
        set_up();
    Source source(bytes, size);
    std::memset(g_bri_clnt_dbg, source.byte() % 2, BRI_DBG_DELAY);
    std::memset(g_vlan_private_version, source.byte(), sizeof g_vlan_private_version);
    fill_tables(source);
    bool walked = false;
    for (unsigned count = 0; count < kMostSteps && !source.empty(); ++count)
        step(source, walked);
    return 0;
}

} // extern "C"
