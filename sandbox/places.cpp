#include "sandbox/places.h"

#include "sandbox/programs.h"

#include <cstdlib>
#include <initializer_list>
#include <optional>
#include <stdexcept>

namespace sandbox {

namespace fs = std::filesystem;

namespace {

constexpr const char *kExampleDirectories[] = {"../examples", "../" BRIDGE_LIBEXECDIR};

// The directory, one of those seen from the program's, that has the file.
std::optional<fs::path> directory_of(const fs::path &file, std::initializer_list<const char *> directories) {
    const fs::path here = fs::read_symlink("/proc/self/exe").parent_path();
    for (const char *directory : directories)
        if (fs::exists(here / directory / file))
            return here / directory;
    return std::nullopt;
}

} // namespace

fs::path preload_directory() {
    if (const std::optional<fs::path> found = directory_of(kPreload, {".", "../sandbox", "../" BRIDGE_LIBDIR}))
        return *found;
    throw std::runtime_error(std::string("cannot find ") + kPreload);
}

fs::path find_script(const std::string &name) {
    const std::string file = name + ".scenario";
    if (fs::exists(name) || name.find('/') != std::string::npos)
        return name;
    const std::optional<fs::path> found = directory_of(file, {"scenarios", "../" BRIDGE_DATADIR "/scenarios"});
    return found ? *found / file : fs::path(name);
}

void add_examples_to_path() {
    const fs::path here = fs::read_symlink("/proc/self/exe").parent_path();
    std::string path = environment("PATH");
    for (const char *directory : kExampleDirectories)
        if (fs::is_directory(here / directory))
            path += ":" + fs::canonical(here / directory).string();
    setenv("PATH", path.c_str(), 1);
}

} // namespace sandbox
