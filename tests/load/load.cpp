// load SANDBOX [RATE [SECONDS [CLIENTS]]]: 64 clients of a server, and one more that offers so many events a second
// (100000, for 2 seconds). Each client has registered a quarter of the types and must get every event of those, in
// order, and no other; status 1 if one does not. Prints what came, how fast, and how late.
#include "wire/batch.h"
#include "wire/segments.h"

#include <bridge/client.h>
#include <bridge/events.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <exception>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kMostClients = 64;
constexpr unsigned kTypes = 16;
constexpr uint32_t kFirstType = 480; // requests of the VLAN submodule that nobody knows come back as events
constexpr unsigned kBatch = 200;     // messages
constexpr int kPatienceMs = 20000;

struct Payload {
    uint32_t number;
    uint32_t reserved;
    int64_t sent; // nanoseconds
};

// Neighbours differ, so that no client gets a plain every-fourth.
uint32_t type_of(uint32_t number) {
    return kFirstType + (number * 2654435761U >> 16) % kTypes;
}

[[noreturn]] void give_up(const std::string &what) {
    throw std::runtime_error(what);
}

template <class Record> wire::Bytes bytes_of(const Record &record) {
    return {reinterpret_cast<const uint8_t *>(&record), sizeof record};
}

class Connection {
  public:
    explicit Connection(const std::string &path) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        if (connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
            give_up("cannot connect to " + path);
    }
    [[nodiscard]] int fd() const { return fd_; }

    void queue(const std::vector<wire::Message> &messages) {
        const wire::Buffer bytes = wire::join(messages);
        output_.insert(output_.end(), bytes.begin(), bytes.end());
    }
    [[nodiscard]] bool waiting() const { return !output_.empty(); }
    void write() {
        const ssize_t length = send(fd_, output_.data(), output_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (length > 0)
            output_.erase(output_.begin(), output_.begin() + length);
    }
    // Calls `take` with each message that has come.
    template <class Take> void read(Take take) {
        uint8_t piece[65536];
        const ssize_t length = recv(fd_, piece, sizeof piece, MSG_DONTWAIT);
        if (length == 0)
            give_up("the server has closed a connection");
        if (length < 0)
            return;
        input_.insert(input_.end(), piece, piece + length);
        size_t begin = 0;
        for (bri_batch_hdr header; input_.size() - begin >= sizeof header;) {
            std::memcpy(&header, input_.data() + begin, sizeof header);
            const size_t size = sizeof header + header.msg_len;
            if (input_.size() - begin < size)
                break;
            for (const wire::Message &message : wire::split(wire::Bytes(input_.data() + begin, size)).messages)
                take(message);
            begin += size;
        }
        input_.erase(input_.begin(), input_.begin() + static_cast<ptrdiff_t>(begin));
    }

  private:
    int fd_;
    wire::Buffer output_;
    wire::Buffer input_;
};

class Client {
  public:
    Client(const std::string &path, unsigned index) : connection_(path) {
        bri_reg_msg message{};
        for (unsigned i = 0; i < kTypes; ++i)
            if (i % 4 == index % 4)
                message.event_set.words[(kFirstType + i) / 32] |= 1U << ((kFirstType + i) % 32);
        events_ = message.event_set;
        message.op = 1;
        message.pid = 1000 + index;
        std::snprintf(message.name, sizeof message.name, "load%u", index);
        connection_.queue({{BRIDGE_EVENT_REG_MSG, bytes_of(message), sizeof message}});
        connection_.write();
    }
    [[nodiscard]] int fd() const { return connection_.fd(); }
    [[nodiscard]] bool registered() const { return registered_; }
    [[nodiscard]] uint64_t count() const { return count_; }
    [[nodiscard]] bool has_all(uint32_t end) const { return wanted_from(next_) >= end; }

    void read(std::vector<int64_t> &delays) {
        const int64_t now = Clock::now().time_since_epoch().count();
        connection_.read([&](const wire::Message &message) {
            if (message.type == BRIDGE_EVENT_SYNC_DATA_END)
                registered_ = true;
            if (message.type < kFirstType)
                return;
            Payload payload;
            std::memcpy(&payload, message.payload.data(), sizeof payload);
            if (payload.number != wanted_from(next_) || type_of(payload.number) != message.type)
                give_up("got event " + std::to_string(payload.number) + " instead of " +
                        std::to_string(wanted_from(next_)));
            next_ = payload.number + 1;
            ++count_;
            delays.push_back(now - payload.sent);
        });
    }

  private:
    [[nodiscard]] uint32_t wanted_from(uint32_t number) const {
        for (;; ++number)
            if (const uint32_t type = type_of(number); (events_.words[type / 32] >> type % 32 & 1) != 0)
                return number;
    }

    Connection connection_;
    event_set events_{};
    bool registered_ = false;
    uint32_t next_ = 0;
    uint64_t count_ = 0;
};

// A server of its own, gone with this.
class World {
  public:
    explicit World(const char *sandbox) {
        if (mkdtemp(directory_) == nullptr)
            give_up("no directory");
        setenv("TMPDIR", directory_, 1);
        setenv("VSDID", std::to_string(getpid()).c_str(), 1);
        pid_ = fork();
        if (pid_ == 0) {
            execl(sandbox, sandbox, "--quiet", "--script", "/dev/null", nullptr);
            _exit(127);
        }
        for (int i = 0; access(path().c_str(), F_OK) != 0;
             ++i, std::this_thread::sleep_for(std::chrono::milliseconds(10)))
            if (i == kPatienceMs / 10) {
                end();
                give_up("the server does not come");
            }
    }
    ~World() { end(); }
    World(const World &) = delete;
    World &operator=(const World &) = delete;
    [[nodiscard]] std::string path() const { return std::string(directory_) + "/bridge/.server_socket"; }

  private:
    void end() const {
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
        for (const wire::SystemObject &object : wire::system_objects(getpid()))
            static_cast<void>(wire::remove(object));
        const std::string directory = directory_;
        rmdir((directory + "/bridge").c_str());
        rmdir(directory_);
    }

    char directory_[32] = "/tmp/bridge-load.XXXXXX";
    pid_t pid_ = -1;
};

class Load {
  public:
    Load(const std::string &path, unsigned rate, double seconds, unsigned clients)
        : sender_(path), rate_(rate), total_(static_cast<uint32_t>(rate * seconds)) {
        for (unsigned i = 0; i < clients; ++i)
            clients_.emplace_back(path, i);
        wait_for([](const Client &client) { return client.registered(); });
    }

    void run() {
        const Clock::time_point start = Clock::now();
        while (sent_ < total_ || sender_.waiting()) {
            const std::chrono::duration<double> passed = Clock::now() - start;
            offer(std::min(total_, static_cast<uint32_t>(passed.count() * rate_) + 1));
            turn();
        }
        const std::chrono::duration<double> offered = Clock::now() - start;
        wait_for([this](const Client &client) { return client.has_all(total_); });
        const std::chrono::duration<double> taken = Clock::now() - start;
        show(offered.count(), taken.count());
    }

  private:
    // Those that are due, in batches; what does not fit into the socket waits here.
    void offer(uint32_t due) {
        while (sent_ < due && !sender_.waiting()) {
            std::vector<Payload> payloads;
            for (; sent_ < due && payloads.size() < kBatch; ++sent_)
                payloads.push_back({sent_, 0, Clock::now().time_since_epoch().count()});
            std::vector<wire::Message> messages;
            for (const Payload &payload : payloads)
                messages.push_back({type_of(payload.number), bytes_of(payload), sizeof payload});
            sender_.queue(messages);
            sender_.write();
        }
    }
    void turn() {
        std::vector<pollfd> polled{{sender_.fd(), static_cast<short>(sender_.waiting() ? POLLOUT : 0), 0}};
        for (const Client &client : clients_)
            polled.push_back({client.fd(), POLLIN, 0});
        poll(polled.data(), polled.size(), 1);
        if (sender_.waiting())
            sender_.write();
        for (unsigned i = 0; i < clients_.size(); ++i)
            if (polled[i + 1].revents != 0)
                clients_[i].read(delays_);
    }
    template <class Done> void wait_for(Done done) {
        const Clock::time_point end = Clock::now() + std::chrono::milliseconds(kPatienceMs);
        while (!std::all_of(clients_.begin(), clients_.end(), done)) {
            if (Clock::now() > end)
                give_up("waited in vain");
            turn();
        }
    }
    void show(double offered, double taken) {
        std::sort(delays_.begin(), delays_.end());
        const auto late = [&](double share) {
            return static_cast<double>(delays_[static_cast<size_t>(share * static_cast<double>(delays_.size() - 1))]) /
                   1e6;
        };
        std::printf(
            "%u events offered in %.2f s, %.0f a second; %zu clients got %zu, all of theirs in order, in %.2f s: "
            "%.0f a second\n",
            total_, offered, total_ / offered, clients_.size(), delays_.size(), taken,
            static_cast<double>(delays_.size()) / taken);
        std::printf("late by %.1f ms (half of them), %.1f ms (99 of 100), %.1f ms (all)\n", late(0.5), late(0.99),
                    late(1));
    }

    Connection sender_;
    std::deque<Client> clients_;
    std::vector<int64_t> delays_;
    unsigned rate_;
    uint32_t total_;
    uint32_t sent_ = 0;
};

void run(int argc, char **argv) {
    if (argc < 2 || argc > 5)
        give_up("usage: load SANDBOX [RATE [SECONDS [CLIENTS]]]");
    const double rate = argc > 2 ? std::atof(argv[2]) : 100000;
    const double seconds = argc > 3 ? std::atof(argv[3]) : 2;
    const int clients = argc > 4 ? std::atoi(argv[4]) : static_cast<int>(kMostClients);
    if (clients < 1 || clients > static_cast<int>(kMostClients))
        give_up("1 to 64 clients");
    if (!(rate >= 1 && rate <= 1e7 && seconds > 0 && rate * seconds < 1e8))
        give_up("a rate up to 10000000 and some seconds");
    const World world(argv[1]);
    Load(world.path(), static_cast<unsigned>(rate), seconds, static_cast<unsigned>(clients)).run();
}

} // namespace

int main(int argc, char **argv) {
    try {
        run(argc, argv);
        return EXIT_SUCCESS;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "load: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
