#include "tests/tools/inspect_fixture.h"

#include <sys/sem.h>
#include <sys/shm.h>

namespace {

using namespace test;

class InspectFailure : public Inspect {
  protected:
    static constexpr const char *kCommands[] = {"ports",      "vlans",    "groups", "protocols",
                                                "exclusions", "segments", "check"};
    [[nodiscard]] key_t key(uint32_t base) const { return static_cast<key_t>(base + static_cast<uint32_t>(vsd())); }
    void expect_nothing_made() const {
        for (const uint32_t base : {0x11110001U, 0x22220001U, 0x33330001U, 0x5A5B7C3DU}) {
            EXPECT_EQ(shmget(key(base), 0, 0), -1);
            EXPECT_EQ(semget(key(base), 0, 0), -1);
        }
    }
};

TEST_F(InspectFailure, missing_segment_is_told_and_never_made) {
    const std::pair<const char *, const char *> rows[] = {{"ports", "SWPORT-SHM"},
                                                          {"vlans", "VLAN-SHM"},
                                                          {"groups", "VLAN-GROUP-SHM"},
                                                          {"protocols", "VLAN-SHM"},
                                                          {"exclusions", "Port-Function-Mutex"}};
    for (const auto &[command, segment] : rows)
        for (const char *form : {"--watch", "--json", "--looks=1"}) {
            const Ran ran = run({command, form});
            EXPECT_EQ(ran.status, 2) << command;
            EXPECT_EQ(ran.out, "") << command;
            EXPECT_EQ(ran.err.substr(0, ran.err.find(" (key")), "bridge-inspect: segment " + std::string(segment));
            EXPECT_NE(ran.err.find("VSDID " + std::to_string(vsd()) + ") does not exist\n"), std::string::npos);
        }
    expect_nothing_made();
}

TEST_F(InspectFailure, segments_and_check_tell_each_missing_segment_and_show_the_others) {
    const Ran none = run({"segments"});
    EXPECT_EQ(none.status, 2);
    EXPECT_EQ(none.out, "no segments\n");
    EXPECT_EQ(std::count(none.err.begin(), none.err.end(), '\n'), 4) << none.err;
    const Ran unchecked = run({"check"});
    EXPECT_EQ(unchecked.status, 2);
    EXPECT_EQ(unchecked.out, "nothing to check\n");
    expect_nothing_made();
    make_groups();
    vlan_group_base_entry()[9].member_count = 1;
    const Ran some = run({"segments", "--json"});
    EXPECT_EQ(some.status, 2);
    EXPECT_EQ(std::count(some.err.begin(), some.err.end(), '\n'), 2) << some.err;
    EXPECT_EQ(some.json().at("rows").size(), 1U);
    const Ran check = run({"check"});
    EXPECT_EQ(check.status, 2);
    EXPECT_NE(check.out.find("group 9 is free, but its entry is not clear"), std::string::npos) << check.out;
    EXPECT_EQ(check.err.find("VLAN-GROUP-SHM"), std::string::npos) << check.err;
}

TEST_F(InspectFailure, exclusion_segment_that_alone_is_missing_is_no_error) {
    make_ports();
    make_vlans();
    make_groups();
    for (const Args &args : {Args{"segments"}, Args{"exclusions"}, Args{"check"}}) {
        const Ran ran = run(args);
        EXPECT_EQ(ran.status, 0) << args[0];
        EXPECT_EQ(ran.err, "") << args[0];
    }
    EXPECT_EQ(run({"exclusions"}).out, "no exclusions\n");
}

TEST_F(InspectFailure, segments_are_removed_only_when_that_is_confirmed) {
    make_all();
    const Ran asked = run({"segments", "--remove"});
    EXPECT_EQ(asked.status, 64);
    EXPECT_EQ(asked.err, "bridge-inspect: nothing was removed; with --yes these are\n");
    EXPECT_EQ(std::count(asked.out.begin(), asked.out.end(), '\n'), 9) << asked.out;
    EXPECT_EQ(run({"segments"}).status, 0) << "nothing is gone";

    const Ran removed = run({"segments", "--remove", "--yes", "--json"});
    EXPECT_EQ(removed.status, 0) << removed.err;
    ASSERT_EQ(removed.json().at("rows").size(), 8U);
    EXPECT_EQ(removed.json().at("rows")[0].at("object"), "segment of SWPORT-SHM");
    EXPECT_EQ(removed.json().at("rows")[0].at("removed"), true);
    expect_nothing_made();
    const Ran again = run({"segments", "--remove", "--yes"});
    EXPECT_EQ(again.status, 0);
    EXPECT_EQ(again.out, "nothing to remove\n");
}

TEST_F(InspectFailure, objects_of_other_devices_stay) {
    make_vlans();
    EXPECT_EQ(run({"segments", "--remove", "--yes", "--vsd", std::to_string(vsd() + 1)}).out, "nothing to remove\n");
    EXPECT_EQ(run({"vlans"}).status, 0);
}

TEST_F(InspectFailure, vsdid_that_is_no_number_is_refused) {
    const std::string own = std::to_string(vsd());
    for (const char *text : {"abc", "1x", "-1", "", "\x1b[2J"}) {
        setenv("VSDID", text, 1);
        const Ran ran = run({"segments"});
        EXPECT_EQ(ran.status, 64) << text;
        EXPECT_EQ(ran.out, "");
        EXPECT_EQ(ran.err.substr(0, 22), "bridge-inspect: VSDID=") << ran.err;
        EXPECT_EQ(ran.err.find('\x1b'), std::string::npos);
        EXPECT_EQ(run({"segments", "--vsd", own}).status, 2) << "the command line stands above it";
    }
    setenv("VSDID", own.c_str(), 1);
}

TEST_F(InspectFailure, word_that_is_not_understood_is_named) {
    const std::pair<Args, const char *> rows[] = {
        {{"everything"}, "everything"},          {{"vlans", "--colour"}, "--colour"},
        {{"vlans", "ports"}, "ports"},           {{"vlans", "--vlan", "1,x"}, "\"x\""},
        {{"vlans", "--vlan", "5-3"}, "\"5-3\""}, {{"vlans", "--vsd", "one"}, "one"},
        {{"segments", "--yes"}, "--yes"},        {{"segments", "--remove", "--watch"}, "--remove"}};
    for (const auto &[args, word] : rows) {
        const Ran ran = run(args);
        EXPECT_EQ(ran.status, 64) << word;
        EXPECT_NE(ran.err.find(word), std::string::npos) << ran.err;
    }
}

TEST_F(InspectFailure, segment_that_is_too_small_is_not_read) {
    const struct {
        const char *command;
        uint32_t base;
        size_t needed;
    } rows[] = {{"ports", 0x22220001, 135668},
                {"vlans", 0x11110001, 328272},
                {"protocols", 0x11110001, 328272},
                {"exclusions", 0x33330001, 32848},
                {"groups", 0x5A5B7C3D, 67156}};
    for (const auto &row : rows)
        for (const size_t size : {size_t{1}, size_t{75}, row.needed - 1}) {
            const int id = shmget(key(row.base), size, IPC_CREAT | 0777);
            ASSERT_GE(id, 0);
            const Ran ran = run({row.command});
            shmctl(id, IPC_RMID, nullptr);
            EXPECT_EQ(ran.status, 2) << row.command;
            EXPECT_NE(ran.err.find("is too small: " + std::to_string(size) + " bytes instead of " +
                                   std::to_string(row.needed)),
                      std::string::npos)
                << ran.err;
        }
}

TEST_F(InspectFailure, key_0_names_no_segment) {
    const Ran ran = run({"vlans", "--vsd", std::to_string(-0x11110001)});
    EXPECT_EQ(ran.status, 2);
    EXPECT_NE(ran.err.find("cannot exist: the key 0 names nothing"), std::string::npos) << ran.err;
}

TEST_F(InspectFailure, looking_changes_nothing) {
    make_all();
    vl_mng &vlans = g_vl_mng;
    vl_initial_vlan_entry(10, 1);
    vlans.shm->hdr->shmid = 12345; // an attachment for writing would put this right
    const auto *start = reinterpret_cast<const uint8_t *>(vlans.shm->hdr);
    const ByteVec before(start, start + 328272);
    for (const char *command : kCommands)
        for (const Args &form : {Args{command}, Args{command, "--json", "--watch", "--looks=2", "--interval=0.01"}})
            EXPECT_EQ(run(form).status, 0) << command;
    EXPECT_EQ(ByteVec(start, start + 328272), before);
    shmid_ds status{};
    shmctl(shmget(key(0x11110001), 0, 0), IPC_STAT, &status);
    EXPECT_EQ(status.shm_nattch, 1U);
}

TEST_F(InspectFailure, segment_without_write_permission_is_read) {
    make_vlans();
    shmid_ds status{};
    const int id = shmget(key(0x11110001), 0, 0);
    shmctl(id, IPC_STAT, &status);
    status.shm_perm.mode = 0444;
    ASSERT_EQ(shmctl(id, IPC_SET, &status), 0);
    EXPECT_EQ(run({"vlans"}).status, 0);
}

TEST_F(InspectFailure, usage_errors_have_a_status_of_their_own) {
    make_all();
    const std::vector<Args> wrong = {{},
                                     {"everything"},
                                     {"vlans", "--colour"},
                                     {"vlans", "ports"},
                                     {"vlans", "--vlan", "0"},
                                     {"vlans", "--vlan", "4095"},
                                     {"vlans", "--vlan", "5-3"},
                                     {"vlans", "--vlan", "1,,2"},
                                     {"vlans", "--vlan", "1-"},
                                     {"vlans", "--vlan", "x"},
                                     {"vlans", "--vlan", "99999999999999"},
                                     {"vlans", "--vlan", ""},
                                     {"vlans", "--port", "64"},
                                     {"ports", "--port", "0"},
                                     {"exclusions", "--port", "8193"},
                                     {"exclusions", "--vlan", "1"},
                                     {"protocols", "--port", "1"},
                                     {"vlans", "--interval", "0"},
                                     {"vlans", "--vsd", "one"}};
    for (const Args &args : wrong) {
        const Ran ran = run(args);
        EXPECT_EQ(ran.status, 64) << (args.empty() ? "" : args.back());
        EXPECT_NE(ran.err, "");
        EXPECT_EQ(ran.out, "");
    }
}

TEST_F(InspectFailure, help_names_every_command) {
    const Ran ran = run({"--help"});
    EXPECT_EQ(ran.status, 0);
    for (const char *command : kCommands)
        EXPECT_NE(ran.out.find("\n  " + std::string(command) + " "), std::string::npos) << command;
}

TEST_F(InspectFailure, output_that_cannot_be_written_is_a_failure) {
    make_vlans();
    EXPECT_EQ(run({"vlans"}, "/dev/full").status, 74);
    EXPECT_EQ(run({"vlans", "--watch", "--interval", "0.01"}, "/dev/full").status, 74);
}

struct InspectSlow : InspectFailure {};

// Whatever stands in the segments, every command ends and its JSON is JSON.
TEST_F(InspectSlow, arbitrary_bytes_are_shown_by_every_command) {
    make_all();
    uint32_t conflict = 0;
    bridge_set_excflag(1, 1, 0, &conflict);
    struct Area {
        bri_shm_hdr *header;
        size_t size;
    };
    bri_shm_handle *exclusions = bridge_shm_attach(key(0x33330001));
    bri_shm_handle *ports = bridge_shm_attach(key(0x22220001));
    const Area areas[] = {
        {g_vl_mng.shm->hdr, 328272}, {vlan_group_mng.shm->hdr, 67156}, {exclusions->hdr, 32848}, {ports->hdr, 135668}};
    uint32_t state = 99;
    for (int round = 0; round < 2; ++round) {
        for (const Area &area : areas)
            for (size_t index = 0; index < area.size; ++index) {
                state = state * 1664525 + 1013904223;
                reinterpret_cast<uint8_t *>(area.header)[index] =
                    round == 0 ? static_cast<uint8_t>(state >> 24) : uint8_t{0xFF};
            }
        for (const char *command : kCommands) {
            const Ran table = run({command});
            EXPECT_EQ(table.status, std::string(command) == "check" ? 1 : 0) << command << table.err;
            if (round != 0) // that output is of the same kind and takes seconds
                continue;
            const Ran json = run({command, "--json"});
            EXPECT_TRUE(Json::accept(json.out)) << command;
        }
    }
    bridge_shm_dettach(exclusions);
    bridge_shm_dettach(ports);
}

} // namespace
