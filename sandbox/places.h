// Where the program's companions are: beside it in a build tree, or in the tree that it is installed in.
#pragma once

#include <filesystem>
#include <string>

namespace sandbox {

inline constexpr const char *kPreload = "libef_bridge_sim.so"; // stands for the kernel's module in daemons
std::filesystem::path preload_directory();
// A script by its path, or one of those that come with the program by its name: "start".
std::filesystem::path find_script(const std::string &name);
// Puts the example daemons behind everything that PATH has.
void add_examples_to_path();

} // namespace sandbox
