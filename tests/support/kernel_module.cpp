#include "tests/support/kernel_module.h"

#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/syscall.h>
#include <unistd.h>

namespace test {

namespace {

constexpr const char *kControl = "/proc/ef_bridge";

} // namespace

bool module_loaded() {
    return std::ifstream(kControl).is_open();
}

bool load_module() {
    const char *path = std::getenv("BRIDGE_MODULE");
    const int fd = path != nullptr ? open(path, O_RDONLY | O_CLOEXEC) : -1;
    if (fd < 0)
        return false;
    const bool loaded = syscall(SYS_finit_module, fd, "", 0) == 0;
    close(fd);
    return loaded;
}

bool unload_module() {
    return std::getenv("BRIDGE_MODULE") != nullptr && syscall(SYS_delete_module, "ef_bridge", 0) == 0;
}

bool tell_module(const std::string &command) {
    std::ofstream file(kControl);
    file << command << std::flush;
    return file.good();
}

std::string module_text() {
    std::ifstream file(kControl);
    return {std::istreambuf_iterator<char>(file), {}};
}

long module_figure(const std::string &word) {
    std::istringstream text(module_text());
    for (std::string line; std::getline(text, line);)
        if (line.starts_with(word + " "))
            return std::stol(line.substr(word.size() + 1));
    return -1;
}

} // namespace test
