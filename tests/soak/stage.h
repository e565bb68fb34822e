// The processes of a soak: a server that may be killed and started again, and hosts that live through all of it.
#pragma once

#include "tests/soak/books.h"
#include "tests/soak/child.h"
#include "tests/soak/figures.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace soak {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

constexpr int kAll = -1; // instead of a host's number

// Makes the directory and takes the virtual switch device of this soak; removes what is left of both.
class Place {
  public:
    Place();
    ~Place();
    Place(const Place &) = delete;
    Place &operator=(const Place &) = delete;

    [[nodiscard]] const std::string &directory() const { return directory_; }
    [[nodiscard]] int vsd() const { return vsd_; }
    // Files and sockets below the directory.
    [[nodiscard]] int files() const;

  private:
    std::string directory_;
    int vsd_;
};

class Stage {
  public:
    explicit Stage(const Place &place);

    void start_hosts();
    void start_server();
    void kill_server();
    // Asks everybody to end; what is wrong with how they do goes into the faults.
    void end();

    void command(const std::string &line) { server_->tell(line); }
    void send_event(int host, uint32_t type, size_t size);
    void debug(unsigned host, const std::string &words, size_t size);
    void drop(int host);
    // Asks for the list of connections.
    void ask_list();
    // The same, and waits for it: with it the server has answered all that it was told before.
    bool list();
    void tell_host(unsigned host, const std::string &line) { hosts_[host]->tell(line); }
    void signal_host(unsigned host, int number) const { hosts_[host]->signal(number); }

    // Lets the processes talk for that long; until then or the condition, which must hold before the limit.
    void run(Milliseconds time);
    bool run_until(const std::string &what, const std::function<bool()> &condition);

    [[nodiscard]] Figures server_figures() const { return figures_of(server_->pid()); }
    [[nodiscard]] Figures host_figures(unsigned host) const { return figures_of(hosts_[host]->pid()); }
    [[nodiscard]] uint32_t last_event() const { return events_; }
    [[nodiscard]] std::vector<pid_t> pids() const { return pids_; }

    Books books;

  private:
    void move_bytes(Milliseconds time);

    const Place &place_;
    std::vector<std::string> environment_;
    std::unique_ptr<Child> server_;
    std::vector<std::unique_ptr<Child>> hosts_;
    std::vector<pid_t> pids_;
    uint32_t events_ = 0; // sent, of all types
};

} // namespace soak
