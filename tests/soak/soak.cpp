// soak: a bridge server and eight host daemons under everything that may happen to them, for as long as one likes.
// Ends with status 1 when a figure is wrong.
#include "tests/soak/actions.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <random>

namespace {

using namespace soak;

// What may be more at the end than behind the warm-up. The heap in use is exact but for jobs that come and go; resident
// and data pages depend on how the heap is cut up as well. The server's include the history of what happened, which
// grows to 2048 records with up to 512 KiB of payload and stays there.
constexpr long kHeapAllowance = 4096;
constexpr long kHostAllowanceKb = 1024;
constexpr long kServerAllowanceKb = 2048;

volatile std::sig_atomic_t g_interrupted = 0;

struct Measures {
    Figures figures;
    unsigned long heap = 0; // of a host, in use
};

// The first and the last measurement of a process, and the most in between.
struct Course {
    std::optional<Measures> first;
    Measures last;
    Measures most;

    void add(const Measures &now) {
        if (!first)
            first = most = now;
        last = now;
        most.figures.rss_kb = std::max(most.figures.rss_kb, now.figures.rss_kb);
        most.figures.data_kb = std::max(most.figures.data_kb, now.figures.data_kb);
        most.figures.descriptors = std::max(most.figures.descriptors, now.figures.descriptors);
        most.heap = std::max(most.heap, now.heap);
    }
};

unsigned long long number(uint64_t value) {
    return value;
}

void print_course(const std::string &name, const Course &course) {
    if (!course.first)
        return;
    const Measures &first = *course.first;
    const Measures &last = course.last;
    const Measures &most = course.most;
    std::printf("  %-6s  VmRSS %ld -> %ld (%ld) kB, VmData %ld -> %ld (%ld) kB, descriptors %d -> %d (%d)",
                name.c_str(), first.figures.rss_kb, last.figures.rss_kb, most.figures.rss_kb, first.figures.data_kb,
                last.figures.data_kb, most.figures.data_kb, first.figures.descriptors, last.figures.descriptors,
                most.figures.descriptors);
    if (first.heap != 0)
        std::printf(", heap in use %lu -> %lu (%lu) B", first.heap, last.heap, most.heap);
    std::puts("");
}

class Soak {
  public:
    explicit Soak(uint64_t seed) : stage_(place_), actions_(stage_, seed) {}

    // False when something is wrong, which has been printed.
    bool run(Clock::duration time);

  private:
    void start();
    void checkpoint();
    void await_events();
    void await_requests();
    void await_reports();
    void await_kernel();
    void await_writing();
    void check_requests();
    void check_flood(unsigned host);
    void measure();
    void measure_tables();
    void end();
    void check(bool good, const char *format, ...) __attribute__((format(printf, 3, 4)));
    void print() const;
    void print_events() const;
    void print_requests() const;
    void print_memory() const;

    struct Before {
        unsigned registrations = 0;
        uint64_t lost = 0;
    };
    Place place_;
    Stage stage_;
    Actions actions_;
    std::array<Course, kHosts> hosts_;
    Course server_; // of the server that lives
    unsigned servers_ = 0;
    long server_growth_kb_ = 0;
    int server_descriptors_ = 0;
    unsigned checkpoints_ = 0;
    std::array<Before, kHosts> flood_;
    uint64_t flood_lost_ = 0;
    SharedTables tables_;
};

void Soak::check(bool good, const char *format, ...) {
    if (good)
        return;
    char text[256];
    va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof text, format, values);
    va_end(values);
    stage_.books.faults.emplace_back(text);
}

void Soak::start() {
    stage_.start_server();
    stage_.start_hosts();
    stage_.run_until("all hosts to be registered", [this] { return stage_.books.all_registered(); });
    await_events(); // behind which the library has sent all that it sends by itself
    actions_.warm_up();
    checkpoint();
}

void Soak::await_reports() {
    std::array<unsigned, kHosts> before{};
    for (unsigned i = 0; i < kHosts; ++i) {
        before[i] = stage_.books.hosts[i].reports;
        stage_.tell_host(i, "report");
    }
    stage_.run_until("the reports of all hosts", [&] {
        for (unsigned i = 0; i < kHosts; ++i)
            if (stage_.books.hosts[i].reports == before[i])
                return false;
        return true;
    });
}

// One more event to all, which comes behind everything else.
void Soak::await_events() {
    stage_.send_event(kAll, soak_events[0], sizeof(soak_event));
    stage_.run_until("the last event to reach all hosts", [this] {
        return std::all_of(stage_.books.hosts.begin(), stage_.books.hosts.end(),
                           [this](const HostBooks &host) { return host.last_event == stage_.last_event(); });
    });
    for (unsigned i = 0; i < kHosts; ++i)
        check(stage_.books.hosts[i].last_event == stage_.last_event(), "h%u: event %u was the last, not %u", i,
              stage_.books.hosts[i].last_event, stage_.last_event());
}

// One more request of each host, likewise.
void Soak::await_requests() {
    for (unsigned i = 0; i < kHosts; ++i)
        stage_.tell_host(i, "send 1");
    await_reports();
    stage_.run_until("the last requests to come back to all hosts", [this] {
        for (const HostBooks &host : stage_.books.hosts)
            for (unsigned i = 0; i < kHosts; ++i)
                if (host.last_request[i] != stage_.books.hosts[i].report.requests)
                    return false;
        return true;
    });
}

void Soak::await_kernel() {
    stage_.run_until("the kernel's bridge module to be found by all hosts", [this] {
        stage_.command("kernel");
        stage_.run(Milliseconds(50));
        return stage_.list() && stage_.books.kernel_listeners() == kHosts;
    });
}

void Soak::await_writing() {
    stage_.run_until("everything to be written", [this] { return stage_.list() && stage_.books.all_written(); });
}

// A full cache also drops what the layer asks the server by itself; so with the layer a few of the dropped ones are
// none of the urgent requests.
void Soak::check_flood(unsigned i) {
    constexpr uint64_t kQuestions = 64;
    const HostBooks &host = stage_.books.hosts[i];
    const uint64_t known = host.report.dropped + host.flood;
    const uint64_t others = has_layer(static_cast<int>(i)) ? kQuestions : 0;
    check(host.report.flood + others >= known, "h%u: %lu urgent requests, dropped %lu, received %llu", i,
          host.report.flood, host.report.dropped, number(host.flood));
    const uint64_t lost = host.report.flood > known ? host.report.flood - known : 0;
    const bool as_before = others != 0 ? lost <= flood_[i].lost : lost == flood_[i].lost;
    check(as_before || host.registrations != flood_[i].registrations,
          "h%u: lost %llu urgent requests without losing its connection", i, number(lost - flood_[i].lost));
    flood_[i] = {host.registrations, lost};
    flood_lost_ += lost;
}

void Soak::check_requests() {
    const Books &books = stage_.books;
    uint64_t accepted = 0;
    uint64_t dropped = 0;
    uint64_t late = 0;
    flood_lost_ = 0;
    for (unsigned i = 0; i < kHosts; ++i) {
        const HostBooks &host = books.hosts[i];
        const Report &report = host.report;
        accepted += report.requests;
        dropped += report.dropped;
        late += report.late;
        check(report.bad == 0, "h%u: %lu events with wrong contents", i, report.bad);
        check(report.cached == 0 && report.delayed == 0, "h%u: still cached %lu, delayed %lu", i, report.cached,
              report.delayed);
        check(host.last_request_sent == report.requests, "h%u: request %lu was the last, %u came", i, report.requests,
              host.last_request_sent);
        check_flood(i);
    }
    check(dropped != 0, "no cache was ever full");
    check(late != 0, "no event was ever delayed");
    const Totals &totals = books.totals;
    check(accepted == totals.requests - totals.unknown + totals.gaps, "%llu requests, but received %llu, lost %llu",
          number(accepted), number(totals.requests), number(totals.gaps));
}

void Soak::measure() {
    for (unsigned i = 0; i < kHosts; ++i) {
        Course &course = hosts_[i];
        course.add({stage_.host_figures(i), stage_.books.hosts[i].report.heap});
        const Measures &first = *course.first;
        const auto heap_growth = static_cast<long>(course.last.heap) - static_cast<long>(first.heap);
        check(heap_growth <= kHeapAllowance, "h%u: %ld bytes more in use on the heap", i, heap_growth);
        check(course.last.figures.rss_kb - first.figures.rss_kb <= kHostAllowanceKb, "h%u: VmRSS from %ld to %ld kB", i,
              first.figures.rss_kb, course.last.figures.rss_kb);
        check(course.last.figures.data_kb - first.figures.data_kb <= kHostAllowanceKb, "h%u: VmData from %ld to %ld kB",
              i, first.figures.data_kb, course.last.figures.data_kb);
        check(course.last.figures.descriptors == first.figures.descriptors, "h%u: %d descriptors instead of %d", i,
              course.last.figures.descriptors, first.figures.descriptors);
    }
    const unsigned kills = actions_.counts().count("kills") != 0 ? actions_.counts().at("kills") : 0;
    if (kills != servers_)
        server_ = Course();
    servers_ = kills;
    server_.add({stage_.server_figures(), 0});
    const Figures &first = server_.first->figures;
    const Figures &last = server_.last.figures;
    server_descriptors_ = server_descriptors_ == 0 ? last.descriptors : server_descriptors_;
    check(last.descriptors == server_descriptors_, "server: %d descriptors instead of %d", last.descriptors,
          server_descriptors_);
    check(last.data_kb - first.data_kb <= kServerAllowanceKb, "server: VmData from %ld to %ld kB", first.data_kb,
          last.data_kb);
    check(last.rss_kb - first.rss_kb <= kServerAllowanceKb, "server: VmRSS from %ld to %ld kB", first.rss_kb,
          last.rss_kb);
    server_growth_kb_ = std::max(server_growth_kb_, last.data_kb - first.data_kb);
    measure_tables();
}

void Soak::measure_tables() {
    const SharedTables now = shared_tables(place_.vsd());
    if (tables_.segments == 0)
        tables_ = now;
    check(now.segments != 0 && now.segments == tables_.segments && now.semaphores == tables_.semaphores &&
              now.attached == tables_.attached,
          "%d segments, %d semaphores, %d attachments instead of %d, %d, %d", now.segments, now.semaphores,
          now.attached, tables_.segments, tables_.semaphores, tables_.attached);
}

void Soak::checkpoint() {
    stage_.command("resume");
    actions_.settle();
    await_events();
    await_requests();
    await_kernel();
    await_writing();
    await_reports();
    stage_.books.verify();
    check_requests();
    measure();
    ++checkpoints_;
}

void Soak::end() {
    stage_.end();
    check(place_.files() == 0, "%d files left in %s", place_.files(), place_.directory().c_str());
    check(shared_tables(place_.vsd()).attached == 0, "segments that are still attached");
    remove_shared_tables(place_.vsd());
    const SharedTables left = shared_tables(place_.vsd());
    const int strangers = segments_made_by(stage_.pids());
    check(left.segments == 0 && left.semaphores == 0 && strangers == 0, "left: %d segments, %d semaphores, %d others",
          left.segments, left.semaphores, strangers);
}

void Soak::print() const {
    std::printf("\nDone at random moments:\n");
    for (const auto &[name, count] : actions_.counts())
        std::printf("  %6u %s\n", count, name.c_str());
    std::printf("  %6u checkpoints\n", checkpoints_);
    print_events();
    print_requests();
    print_memory();
    std::printf("Shared tables:  %d segments and %d semaphores, attached %d times at every checkpoint; removed\n",
                tables_.segments, tables_.semaphores, tables_.attached);
}

void Soak::print_events() const {
    const Totals &totals = stage_.books.totals;
    uint64_t late = 0;
    std::printf("Events of the server for handlers, over %llu connections:\n", number(totals.connections));
    for (unsigned i = 0; i < kHosts; ++i) {
        const HostBooks &host = stage_.books.hosts[i];
        late += host.report.late;
        std::printf("  h%u  connections %3u  sent %9llu  delivered %9llu  not written when a connection ended %7llu\n",
                    i, host.registrations, number(host.sent), number(host.delivered), number(host.lost));
    }
    std::printf("  %llu of those delivered were held back by a delay\n", number(late));
    std::printf("  and %llu that came to a slave, for no handler\n", number(totals.held));
}

void Soak::print_requests() const {
    const Totals &totals = stage_.books.totals;
    Report sum;
    for (const HostBooks &host : stage_.books.hosts) {
        sum.requests += host.report.requests;
        sum.flood += host.report.flood;
        sum.dropped += host.report.dropped;
    }
    std::printf("Requests of the hosts, which came back to all:\n"
                "  sent %lu, received %llu, lost with a connection %llu\n",
                sum.requests, number(totals.requests), number(totals.gaps));
    std::printf("Urgent requests, to fill the caches:\n"
                "  sent %lu, received %llu, dropped by full caches %lu, lost with a connection %llu\n",
                sum.flood, number(totals.flood), sum.dropped, number(flood_lost_));
}

void Soak::print_memory() const {
    std::printf("Memory and descriptors behind the warm-up -> at the end (most):\n");
    for (unsigned i = 0; i < kHosts; ++i)
        print_course("h" + std::to_string(i), hosts_[i]);
    print_course("server", server_);
    std::printf("  (the last server of %u; the most that one's VmData grew: %ld kB)\n", servers_ + 1,
                server_growth_kb_);
}

bool Soak::run(Clock::duration time) {
    const Clock::time_point end_time = Clock::now() + time;
    try {
        start();
        while (Clock::now() < end_time && stage_.books.faults.empty() && g_interrupted == 0) {
            actions_.run(Milliseconds(4000));
            checkpoint();
            std::printf("%4lld s to go, %llu events delivered\n",
                        static_cast<long long>(std::max<long long>(
                            0, std::chrono::duration_cast<std::chrono::seconds>(end_time - Clock::now()).count())),
                        number(stage_.books.totals.delivered));
            std::fflush(stdout);
        }
        end();
    } catch (const std::exception &error) {
        stage_.books.faults.emplace_back(error.what());
    }
    print();
    for (const std::string &fault : stage_.books.faults)
        std::printf("WRONG: %s\n", fault.c_str());
    return stage_.books.faults.empty();
}

// "5" is minutes, "30s" seconds.
std::optional<std::chrono::seconds> parse_time(const std::string &text) {
    char *end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (value <= 0 || value > 100000)
        return std::nullopt;
    if (std::string(end) == "s")
        return std::chrono::seconds(value);
    return *end == '\0' ? std::optional(std::chrono::seconds(60 * value)) : std::nullopt;
}

} // namespace

int main(int argc, char **argv) {
    const std::string time_text = argc > 1 ? argv[1] : "3";
    const auto time = parse_time(time_text);
    if (!time || argc > 3) {
        std::fprintf(stderr, "usage: soak [MINUTES|SECONDSs] [SEED]\n");
        return 2;
    }
    const uint64_t seed = argc > 2 ? std::strtoull(argv[2], nullptr, 0) : std::random_device()();
    std::signal(SIGPIPE, SIG_IGN);
    for (const int number : {SIGINT, SIGTERM})
        std::signal(number, [](int) { g_interrupted = 1; });
    std::printf("One server and %u hosts for %lld s; soak %s %llu makes the same choices again.\n", kHosts,
                static_cast<long long>(time->count()), time_text.c_str(), number(seed));
    std::fflush(stdout);
    const bool good = Soak(seed).run(*time);
    std::puts(good ? "All figures are right." : "Figures are WRONG.");
    return good ? 0 : 1;
}
