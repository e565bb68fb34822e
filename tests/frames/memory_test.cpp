// What is kept of a bridge follows its devices' names.
#include "frames/memory.h"
#include "tests/support/test.h"

namespace {

using namespace frames;

Memory memory_of(const std::string &name, uint32_t link) {
    Memory memory;
    memory.links[name].link = link;
    memory.links["other"].link = 9;
    memory.entries[name][{{}, 10}] = {};
    memory.ports[1] = name;
    return memory;
}

Links links_of(std::initializer_list<std::pair<uint32_t, std::string>> names) {
    Links links;
    for (const auto &[index, name] : names)
        links[index].name = name;
    return links;
}

TEST(FramesMemory, device_is_found_under_another_name) {
    Memory memory = memory_of("eth1", 5);
    EXPECT_TRUE(follow_names(memory, links_of({{5, "lan1"}, {9, "other"}})));
    EXPECT_TRUE(memory.links.contains("lan1"));
    EXPECT_FALSE(memory.links.contains("eth1"));
    EXPECT_TRUE(memory.entries.contains("lan1"));
    EXPECT_EQ(memory.ports[1], "lan1");
    EXPECT_FALSE(follow_names(memory, links_of({{5, "lan1"}, {9, "other"}})));
}

TEST(FramesMemory, devices_that_have_changed_names_are_told_apart) {
    Memory memory = memory_of("eth1", 5);
    EXPECT_TRUE(follow_names(memory, links_of({{5, "other"}, {9, "eth1"}})));
    EXPECT_EQ(memory.links["other"].link, 5U);
    EXPECT_EQ(memory.links["eth1"].link, 9U);
    EXPECT_EQ(memory.ports[1], "other");
}

TEST(FramesMemory, device_that_has_come_anew_is_known_by_its_name) {
    Memory memory = memory_of("eth1", 5);
    EXPECT_FALSE(follow_names(memory, links_of({{12, "eth1"}})));
    EXPECT_EQ(memory.ports[1], "eth1");
}

} // namespace
