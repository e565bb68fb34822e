#include "tests/support/test.h"

#include <cstdlib>
#include <dirent.h>
#include <filesystem>
#include <fstream>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

namespace test {

namespace {

constexpr unsigned kKeyBases[] = {0x11110001, 0x22220001, 0x33330001, 0x5A5B7C3D};

void remove_ipc(int vsd) {
    const faults::Pause pause; // the calls here are not the test's
    for (const unsigned base : kKeyBases) {
        const auto key = static_cast<key_t>(base + static_cast<unsigned>(vsd));
        const int segment = shmget(key, 0, 0);
        if (segment >= 0)
            shmctl(segment, IPC_RMID, nullptr);
        const int semaphore = semget(key, 0, 0);
        if (semaphore >= 0)
            semctl(semaphore, 0, IPC_RMID);
    }
}

} // namespace

Env::Env() : vsd_(static_cast<int>(getpid())) {
    faults::clear();
    clear_log();
    char pattern[] = "/tmp/bri.XXXXXX";
    const char *made = mkdtemp(pattern);
    if (made == nullptr)
        throw std::runtime_error("no temporary directory");
    tmpdir_ = made;
    setenv("TMPDIR", made, 1);
    setenv("VSDID", std::to_string(vsd_).c_str(), 1);
    remove_ipc(vsd_); // what an earlier process of this number left when it was killed
}

Env::~Env() {
    faults::clear();
    remove_ipc(vsd_);
    std::error_code ignored;
    std::filesystem::remove_all(tmpdir_, ignored);
}

std::string Env::write_file(const std::string &name, const std::string &content) const {
    const std::string path = tmpdir_ + "/" + name;
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

int open_descriptors() {
    DIR *directory = opendir("/proc/self/fd");
    int count = 0;
    while (readdir(directory) != nullptr)
        ++count;
    closedir(directory);
    return count - 3; // ".", ".." and the directory itself
}

void expect_line(const std::string &text, const LogCategory &category, int times) {
    EXPECT_EQ(times_logged(text), times) << text << "in\n" << log_text();
    EXPECT_EQ(log_line(text).category(), category) << text;
}

} // namespace test
