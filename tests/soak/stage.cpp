#include "tests/soak/stage.h"

#include "tests/support/bytes.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <unistd.h>

namespace soak {

namespace {

// For what must happen by itself. A lab machine is emulated, and slow.
Milliseconds patience() {
    return Milliseconds(std::getenv("BRIDGE_MODULE") == nullptr ? 60000 : 300000);
}

// Freed memory goes back to where it came from at once, and what is large never lies between what is small. Otherwise
// memory that is kept at hand, or cannot be given back for a small piece on top of it, would pass for memory in use.
constexpr char kFlatHeap[] = "GLIBC_TUNABLES=glibc.malloc.tcache_count=0:glibc.malloc.trim_threshold=65536:"
                             "glibc.malloc.mmap_threshold=2048";

// The event's words, then the bytes that the host expects.
std::string hex_payload(uint32_t number, uint32_t type, size_t size) {
    const soak_event event{number, type};
    test::ByteVec bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<uint8_t>(number + i);
    std::memcpy(bytes.data(), &event, sizeof event);
    std::string text;
    for (const uint8_t byte : bytes) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

std::string at(int host) {
    return host == kAll ? "" : "@h" + std::to_string(host) + " ";
}

} // namespace

Place::Place() : vsd_(static_cast<int>(getpid())) {
    char pattern[] = "/tmp/bridge-soak.XXXXXX";
    if (mkdtemp(pattern) == nullptr)
        throw std::runtime_error("no temporary directory");
    directory_ = pattern;
    remove_shared_tables(vsd_);
}

Place::~Place() {
    remove_shared_tables(vsd_);
    std::error_code error;
    std::filesystem::remove_all(directory_, error);
}

int Place::files() const {
    int count = 0;
    for (const auto &entry : std::filesystem::recursive_directory_iterator(directory_))
        count += entry.is_directory() ? 0 : 1;
    return count;
}

Stage::Stage(const Place &place)
    : place_(place), environment_{"TMPDIR=" + place.directory(), "VSDID=" + std::to_string(place.vsd()),
                                  "QV_SYSLOG_LEVEL=6", kFlatHeap} {}

void Stage::start_hosts() {
    std::vector<std::string> environment = environment_;
    environment.push_back(std::string("LD_LIBRARY_PATH=").append(SOAK_KERNEL_SIM_DIR)); // LD_PRELOAD takes no blank
    environment.push_back(std::string("LD_PRELOAD=").append(SOAK_KERNEL_SIM));
    for (unsigned host = 0; host < kHosts; ++host) {
        std::vector<std::string> command{SOAK_HOST, std::to_string(host)};
        if (has_layer(static_cast<int>(host)))
            command.emplace_back("layer");
        const auto enter = [this, host](const std::string &line) { books.host_line(host, line); };
        hosts_.push_back(std::make_unique<Child>(command, environment, enter));
        pids_.push_back(hosts_.back()->pid());
    }
}

void Stage::start_server() {
    const unsigned before = books.starts();
    const std::vector<std::string> command{SOAK_SANDBOX};
    server_ =
        std::make_unique<Child>(command, environment_, [this](const std::string &line) { books.server_line(line); });
    pids_.push_back(server_->pid());
    run_until("the server to listen", [&] { return books.starts() != before; });
}

void Stage::kill_server() {
    server_->signal(SIGKILL);
    server_->wait(); // with everything that it has said
    server_.reset();
    books.server_died();
}

void Stage::send_event(int host, uint32_t type, size_t size) {
    ++events_;
    books.event_told(type, events_, size, host);
    command("event " + at(host) + std::to_string(type) + " " + hex_payload(events_, type, size));
}

void Stage::debug(unsigned host, const std::string &words, size_t size) {
    books.debug_told(size, static_cast<int>(host));
    command("debug h" + std::to_string(host) + " " + words);
}

void Stage::drop(int host) {
    books.drop_told(host);
    command("drop " + at(host));
}

void Stage::ask_list() {
    books.list_told();
    command("clients");
}

bool Stage::list() {
    ask_list();
    return run_until("a list of connections", [&] { return books.all_listed(); });
}

void Stage::move_bytes(Milliseconds time) {
    std::vector<Child *> children;
    for (const auto &host : hosts_) {
        if (host->ended())
            throw std::runtime_error("a host has ended with status " + std::to_string(host->wait()));
        children.push_back(host.get());
    }
    if (server_ != nullptr) {
        if (server_->ended())
            throw std::runtime_error("the server has ended with status " + std::to_string(server_->wait()));
        children.push_back(server_.get());
    }
    Child::move_bytes(children, static_cast<int>(time.count()));
}

void Stage::run(Milliseconds time) {
    const Clock::time_point end = Clock::now() + time;
    do
        move_bytes(std::max(Milliseconds(0), std::chrono::duration_cast<Milliseconds>(end - Clock::now())));
    while (Clock::now() < end);
}

bool Stage::run_until(const std::string &what, const std::function<bool()> &condition) {
    const Clock::time_point end = Clock::now() + patience();
    while (!condition()) {
        if (Clock::now() >= end) {
            books.faults.push_back("waited in vain for " + what);
            return false;
        }
        move_bytes(Milliseconds(20));
    }
    return true;
}

void Stage::end() {
    books.ending = true;
    for (unsigned host = 0; host < kHosts; ++host) {
        hosts_[host]->end_input();
        if (const int status = hosts_[host]->wait(); status != 0)
            books.faults.push_back("h" + std::to_string(host) + " ended with status " + std::to_string(status));
    }
    hosts_.clear();
    command("quit");
    if (const int status = server_->wait(); status != 0)
        books.faults.push_back("the server ended with status " + std::to_string(status));
    server_.reset();
}

} // namespace soak
