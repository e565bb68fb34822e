// Double of the thread-event library: jobs are kept until the test runs them.
#pragma once

#include <qv_thread.h>

#include <string>
#include <vector>

namespace test {

struct Job {
    enum class Kind { kEvent, kRead, kTimer, kTimerTimeval };
    int id; // in the order of adding, from 1
    Kind kind;
    qv_thread_func func;
    void *arg;
    int fd;    // read jobs
    long usec; // timers: the period in microseconds
    std::string name;
    qv_thread_master *master;
};

class Loop {
  public:
    static Loop &get();

    // A handle to give to the library; the double does not look at it.
    qv_thread_master *master();
    // That of another loop.
    qv_thread_master *other_master();

    std::vector<Job> pending;
    int refuse = 0;      // how many of the next adds are refused
    std::string refused; // every job of this name is

    [[nodiscard]] int count(const std::string &name) const;
    // The first pending job of that name, or null.
    [[nodiscard]] const Job *find(const std::string &name) const;
    // Takes the first pending job of that name out and runs it; its result, or -1000 when there is none.
    int run(const std::string &name);
    // Runs every read job whose descriptor is readable within the time-out; how many ran.
    int run_readable(int timeout_ms = 0);

    qv_thread *add(Job job);
    void cancel(const qv_thread_master *master, qv_thread_func func, void *arg);

  private:
    int next_id_ = 1;
};

} // namespace test
