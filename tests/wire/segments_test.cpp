#include "tests/support/test.h"
#include "wire/segments.h"

#include <sys/sem.h>
#include <sys/shm.h>

namespace {

using namespace wire;

class WireSegments : public test::Env {};

TEST_F(WireSegments, objects_of_the_device_are_found_and_removed) {
    EXPECT_TRUE(system_objects(vsd()).empty());
    ASSERT_EQ(vl_vlandb_init(), 1);
    ASSERT_EQ(bridge_portdb_init(), 1);
    ASSERT_EQ(vlan_group_shm_init(), 1);
    ASSERT_EQ(bridge_unset_excflag(1, 1), 0);
    const auto objects = system_objects(vsd());
    ASSERT_EQ(objects.size(), 8U);
    EXPECT_EQ(text_of(objects[0]), "segment of SWPORT-SHM");
    EXPECT_EQ(text_of(objects[1]), "semaphore of SWPORT-SHM");
    for (const SystemObject &object : objects)
        EXPECT_TRUE(remove(object)) << text_of(object);
    EXPECT_TRUE(system_objects(vsd()).empty());
    for (const SystemObject &object : objects)
        EXPECT_TRUE(remove(object)) << "gone already: " << text_of(object);
}

TEST_F(WireSegments, keys_and_sizes_are_those_that_the_library_makes) {
    ASSERT_EQ(vl_vlandb_init(), 1);
    ASSERT_EQ(bridge_portdb_init(), 1);
    ASSERT_EQ(vlan_group_shm_init(), 1);
    ASSERT_EQ(bridge_unset_excflag(1, 1), 0);
    for (const Segment *segment : all_segments()) {
        shmid_ds status{};
        ASSERT_EQ(shmctl(shmget(key_of(*segment, vsd()), 0, 0), IPC_STAT, &status), 0) << segment->name;
        EXPECT_EQ(status.shm_segsz, sizeof(bri_shm_hdr) + segment->size) << segment->name;
    }
}

TEST_F(WireSegments, objects_of_other_devices_are_left_alone) {
    ASSERT_EQ(vl_vlandb_init(), 1);
    EXPECT_TRUE(system_objects(vsd() + 1).empty());
    EXPECT_TRUE(system_objects(-0x11110001).empty()) << "key 0 names nothing";
    EXPECT_EQ(system_objects(vsd()).size(), 2U);
}

TEST_F(WireSegments, vsdid_is_a_number_or_refused) {
    for (const char *text : {"abc", "1x", "-1", "", " 1", "+1", "0x1", "2147483648", "-0"}) {
        setenv("VSDID", text, 1);
        EXPECT_THROW((void)vsd_of_environment(), std::invalid_argument) << text;
    }
    const std::pair<const char *, int32_t> numbers[] = {{"0", 0}, {"7", 7}, {"2147483647", 2147483647}};
    for (const auto &[text, number] : numbers) {
        setenv("VSDID", text, 1);
        EXPECT_EQ(vsd_of_environment(), number);
    }
    unsetenv("VSDID");
    EXPECT_EQ(vsd_of_environment(), 0);
}

} // namespace
