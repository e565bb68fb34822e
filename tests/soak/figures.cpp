#include "tests/soak/figures.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/sem.h>
#include <sys/shm.h>

namespace soak {

namespace {

constexpr unsigned kKeys[] = {0x11110001, 0x22220001, 0x33330001, 0x5A5B7C3D};

template <class Fn> void for_each_key(int vsd, Fn &&fn) {
    for (const unsigned base : kKeys)
        fn(static_cast<key_t>(base + static_cast<unsigned>(vsd)));
}

} // namespace

Figures figures_of(pid_t pid) {
    Figures figures;
    const std::string directory = "/proc/" + std::to_string(pid);
    std::ifstream status(directory + "/status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:")
            status >> figures.rss_kb;
        else if (word == "VmData:")
            status >> figures.data_kb;
    }
    std::error_code error;
    for ([[maybe_unused]] const auto &entry : std::filesystem::directory_iterator(directory + "/fd", error))
        ++figures.descriptors;
    return figures;
}

SharedTables shared_tables(int vsd) {
    SharedTables tables;
    for_each_key(vsd, [&](key_t key) {
        shmid_ds segment{};
        if (const int id = shmget(key, 0, 0); id >= 0 && shmctl(id, IPC_STAT, &segment) == 0) {
            ++tables.segments;
            tables.attached += static_cast<int>(segment.shm_nattch);
        }
        tables.semaphores += semget(key, 0, 0) >= 0 ? 1 : 0;
    });
    return tables;
}

void remove_shared_tables(int vsd) {
    for_each_key(vsd, [](key_t key) {
        if (const int id = shmget(key, 0, 0); id >= 0)
            shmctl(id, IPC_RMID, nullptr);
        if (const int id = semget(key, 0, 0); id >= 0)
            semctl(id, 0, IPC_RMID);
    });
}

int segments_made_by(const std::vector<pid_t> &pids) {
    std::ifstream list("/proc/sysvipc/shm");
    std::string row;
    int count = 0;
    for (std::getline(list, row); std::getline(list, row);) {
        std::istringstream words(row);
        long key = 0;
        long id = 0;
        long mode = 0;
        long size = 0;
        pid_t maker = 0;
        words >> key >> id >> mode >> size >> maker;
        count += static_cast<int>(std::count(pids.begin(), pids.end(), maker));
    }
    return count;
}

} // namespace soak
