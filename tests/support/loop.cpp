#include "tests/support/loop.h"

#include "tests/support/effects.h"
#include "tests/support/faults.h"

#include <algorithm>
#include <cstdint>
#include <poll.h>

namespace test {

Loop &Loop::get() {
    static Loop loop;
    return loop;
}

qv_thread_master *Loop::master() {
    return reinterpret_cast<qv_thread_master *>(this);
}

qv_thread_master *Loop::other_master() {
    return reinterpret_cast<qv_thread_master *>(&next_id_);
}

int Loop::count(const std::string &name) const {
    return static_cast<int>(
        std::count_if(pending.begin(), pending.end(), [&](const Job &job) { return job.name == name; }));
}

const Job *Loop::find(const std::string &name) const {
    const auto found = std::find_if(pending.begin(), pending.end(), [&](const Job &job) { return job.name == name; });
    return found == pending.end() ? nullptr : &*found;
}

int Loop::run(const std::string &name) {
    const auto found = std::find_if(pending.begin(), pending.end(), [&](const Job &job) { return job.name == name; });
    if (found == pending.end())
        return -1000;
    const Job job = *found;
    pending.erase(found);
    return job.func(job.arg);
}

int Loop::run_readable(int timeout_ms) {
    std::vector<pollfd> descriptors;
    for (const Job &job : pending)
        if (job.kind == Job::Kind::kRead)
            descriptors.push_back({job.fd, POLLIN, 0});
    if (descriptors.empty() || poll(descriptors.data(), descriptors.size(), timeout_ms) <= 0)
        return 0;
    int ran = 0;
    for (const pollfd &descriptor : descriptors) {
        if (descriptor.revents == 0)
            continue;
        const auto found = std::find_if(pending.begin(), pending.end(), [&](const Job &job) {
            return job.kind == Job::Kind::kRead && job.fd == descriptor.fd;
        });
        if (found == pending.end())
            continue;
        const Job job = *found;
        pending.erase(found);
        job.func(job.arg);
        ++ran;
    }
    return ran;
}

qv_thread *Loop::add(Job job) {
    const faults::Pause pause;
    const bool taken = refuse == 0 && job.name != refused;
    tell_effect((taken ? "add " : "refuse ") + job.name);
    refuse -= refuse > 0 ? 1 : 0;
    if (!taken)
        return nullptr;
    job.id = next_id_++;
    pending.push_back(job);
    return reinterpret_cast<qv_thread *>(static_cast<uintptr_t>(job.id));
}

void Loop::cancel(const qv_thread_master *master, qv_thread_func func, void *arg) {
    const faults::Pause pause;
    std::erase_if(pending, [&](const Job &job) {
        const bool found = job.master == master && job.func == func && job.arg == arg;
        if (found)
            tell_effect("cancel " + job.name);
        return found;
    });
}

} // namespace test

using test::Job;
using test::Loop;

qv_thread *qv_thread_add_event_withname(qv_thread_master *master, qv_thread_func func, void *arg, const char *name) {
    return Loop::get().add({0, Job::Kind::kEvent, func, arg, -1, 0, name, master});
}

qv_thread *qv_thread_add_read_withname(qv_thread_master *master, qv_thread_func func, void *arg, int fd,
                                       const char *name) {
    return Loop::get().add({0, Job::Kind::kRead, func, arg, fd, 0, name, master});
}

qv_thread *qv_thread_add_timer_withname(qv_thread_master *master, qv_thread_func func, void *arg, long seconds,
                                        const char *name) {
    return Loop::get().add({0, Job::Kind::kTimer, func, arg, -1, seconds * 1000000, name, master});
}

qv_thread *qv_thread_add_timer_timeval_withname(qv_thread_master *master, qv_thread_func func, void *arg,
                                                const timeval *after, const char *name) {
    const long usec = static_cast<long>(after->tv_sec) * 1000000 + static_cast<long>(after->tv_usec);
    return Loop::get().add({0, Job::Kind::kTimerTimeval, func, arg, -1, usec, name, master});
}

void qv_thread_cancel_by_arg_func(qv_thread_master *master, void *arg, qv_thread_func func) {
    Loop::get().cancel(master, func, arg);
}
