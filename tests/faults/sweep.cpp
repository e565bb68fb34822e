#include "tests/faults/sweep.h"

#include "base/log.h"

#include <cstdio>
#include <fcntl.h>
#include <map>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace test {

namespace {

// How a call fails. Closing is not among them: the descriptor is gone whatever close reports.
struct Fault {
    const char *call;
    int error;
};
constexpr Fault kFaults[] = {
    {"malloc", ENOMEM},   {"calloc", ENOMEM},   {"realloc", ENOMEM},       {"socket", EMFILE},
    {"bind", EADDRINUSE}, {"setsockopt", EDOM}, {"connect", ECONNREFUSED}, {"connect", EINTR},
    {"send", EPIPE},      {"send", EAGAIN},     {"send", EINTR},           {"sendmsg", EPIPE},
    {"sendmsg", EAGAIN},  {"sendmsg", EINTR},   {"sendto", ENOBUFS},       {"sendto", EAGAIN},
    {"recv", EAGAIN},     {"recv", ECONNRESET}, {"recvfrom", EAGAIN},      {"recvfrom", ENOBUFS},
    {"read", EIO},        {"read", EINTR},      {"write", ENOSPC},         {"open", ENOENT},
    {"open", EMFILE},     {"fopen", ENOENT},    {"fopen", EMFILE},         {"mkdir", EACCES},
    {"chmod", EPERM},     {"access", ENOENT},   {"shmget", ENOSPC},        {"shmget", EACCES},
    {"shmat", ENOMEM},    {"shmdt", EINVAL},    {"shmctl", EACCES},        {"semget", ENOSPC},
    {"semget", EACCES},   {"semctl", EACCES},   {"semop", EINTR},          {"semop", EIDRM},
    {"sem_open", EMFILE}, {"sem_open", ENOENT}, {"sem_close", EINVAL},     {"sem_post", EOVERFLOW},
    {"sem_wait", EINTR},  {"sem_wait", EINVAL}, {"sem_getvalue", EINVAL},  {"sysinfo", EFAULT},
};

constexpr int kRounds = 4;

const char *text(Got got) {
    return got == Got::kSuccess ? "success" : got == Got::kFailure ? "failure" : "neither success nor failure";
}

// Runs in a process of its own; what it wrote to `out`, behind it how it ended when that was not in peace.
template <class Body> std::string in_child(Body &&body) {
    int ends[2];
    if (pipe(ends) != 0)
        return "no pipe";
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        ::close(ends[0]);
        // What start-up prints is not for the screen.
        const int nowhere = ::open("/dev/null", O_WRONLY);
        dup2(nowhere, STDOUT_FILENO);
        ::close(nowhere);
        alarm(30);
        FILE *out = fdopen(ends[1], "w");
        try {
            body(out);
        } catch (const std::exception &error) {
            std::fprintf(out, "%s; ", error.what());
        }
        std::fflush(out);
        _exit(0);
    }
    ::close(ends[1]);
    std::string written;
    char chunk[256];
    for (ssize_t got = 0; (got = ::read(ends[0], chunk, sizeof chunk)) > 0;)
        written.append(chunk, static_cast<size_t>(got));
    ::close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status))
        written += "ended by signal " + std::to_string(WTERMSIG(status)) + "; ";
    else if (WEXITSTATUS(status) != 0)
        written += "ended with " + std::to_string(WEXITSTATUS(status)) + "; ";
    return written;
}

Got attempt(const Row &row, SweptHost &host) {
    if (row.before)
        row.before(host);
    return row.attempt(host);
}

void clean_up(const Row &row, SweptHost &host) {
    if (row.after)
        row.after(host);
    host.settle();
}

bool works(const Row &row, SweptHost &host) {
    const Got got = attempt(row, host);
    const bool there = row.sends == 0 || host.arrived(static_cast<uint32_t>(row.sends)) == 1;
    clean_up(row, host);
    return got == Got::kSuccess && there;
}

// Those that a line can have; the delay behind them is not one.
void all_flags_off() {
    std::memset(g_bri_clnt_dbg, 0, BRI_DBG_DELAY);
    clear_log();
}

// What nobody asked for: with every flag off only prints and the one notice are written.
void report_unasked(FILE *out) {
    for (const LogLine &line : log_lines())
        if (line.output != bri::log::kShow && line.level != bri::log::kNotice)
            std::fprintf(out, "wrote %s; ", line.format.c_str());
}

// The calls of one attempt by kind, and whether it works at all.
struct Calls {
    std::map<std::string, int> count;
    std::string problem;
};
Calls count_calls(const Row &row) {
    Calls calls;
    const std::string report = in_child([&](FILE *out) {
        SweptHost host(row.level);
        clean_up(row, host);
        if (row.before)
            row.before(host);
        std::map<std::string, int> before;
        for (const Fault &fault : kFaults)
            before[fault.call] = faults::calls(fault.call);
        const Got got = row.attempt(host);
        std::map<std::string, int> made;
        for (const auto &[call, count] : before)
            made[call] = faults::calls(call) - count;
        if (got != Got::kSuccess)
            std::fprintf(out, "! ");
        for (const auto &[call, count] : made)
            if (count != 0)
                std::fprintf(out, "%s %d ", call.c_str(), count);
    });
    std::istringstream words(report);
    std::string call;
    while (words >> call) {
        if (call == "!")
            calls.problem = "does not work";
        else if (!(words >> calls.count[call]))
            calls.problem = report;
    }
    return calls;
}

const Effect *effect_of(const Row &row, const Fault &fault, int nth) {
    const Effect *best = nullptr;
    int most = -1;
    for (const Effect &effect : row.effects) {
        const bool fits = std::strcmp(effect.call, fault.call) == 0 &&
                          (effect.error == 0 || effect.error == fault.error) && (effect.nth == 0 || effect.nth == nth);
        const int says = (effect.error != 0 ? 1 : 0) + (effect.nth != 0 ? 1 : 0);
        if (fits && says > most) {
            best = &effect;
            most = says;
        }
    }
    return best;
}

// One failing call, several times over, the last time with all debug flags off, and then none.
void inject(const Row &row, const Fault &fault, int nth, const Effect &effect, FILE *out) {
    SweptHost host(row.level);
    clean_up(row, host);
    SweptHost::Holdings settled{};
    for (int round = 0; round < kRounds; ++round) {
        if (row.before)
            row.before(host);
        if (round == kRounds - 1)
            all_flags_off();
        const int injected = faults::injected();
        faults::fail(fault.call, nth, fault.error);
        const Got got = row.attempt(host);
        faults::fail(fault.call, 1, 0, 0); // disarmed
        const bool failed = faults::injected() != injected;
        const Got expected = failed ? effect.result : Got::kSuccess;
        if (round == 0 && !failed)
            std::fprintf(out, "nothing failed; ");
        if (round == kRounds - 1)
            report_unasked(out);
        if (got != expected)
            std::fprintf(out, "gave %s instead of %s; ", text(got), text(expected));
        // A socket that was only full takes the message later.
        if (row.sends != 0 && got == Got::kSuccess && (fault.error == EAGAIN || fault.error == EINTR)) {
            SweptHost::tick();
            if (host.arrived(static_cast<uint32_t>(row.sends)) != 1)
                std::fprintf(out, "the message did not arrive; ");
        }
        clean_up(row, host);
        const SweptHost::Holdings now = host.holdings();
        if (round == 1)
            settled = now;
        if (effect.keeps_mapping)
            settled.mappings = now.mappings;
        if (effect.keeps_handles)
            settled.blocks = now.blocks;
        if (round > 1 && now != settled)
            std::fprintf(out, "left %d blocks, %d descriptors, %d mappings; ", now.blocks - settled.blocks,
                         now.descriptors - settled.descriptors, now.mappings - settled.mappings);
    }
    if (!works(row, host))
        std::fprintf(out, "does not work afterwards; ");
}

int sweep_call(const Row &row, const std::string &call, int made) {
    int total = 0;
    for (const Fault &fault : kFaults)
        for (int nth = 1; call == fault.call && nth <= made; ++nth, ++total) {
            const Effect *effect = effect_of(row, fault, nth);
            if (effect == nullptr) {
                ADD_FAILURE() << row.operation << " calls " << call << " and its row says nothing of it";
                return total;
            }
            const std::string problems = in_child([&](FILE *out) { inject(row, fault, nth, *effect, out); });
            EXPECT_EQ(problems, "") << row.operation << ": " << call << " number " << nth << " fails with "
                                    << std::strerror(fault.error);
        }
    return total;
}

void sweep_row(const Row &row) {
    const Calls calls = count_calls(row);
    EXPECT_EQ(calls.problem, "") << row.operation;
    for (const Effect &effect : row.effects)
        EXPECT_TRUE(effect.optional || calls.count.contains(effect.call))
            << row.operation << " never calls " << effect.call;
    int total = 0;
    for (const auto &[call, made] : calls.count)
        total += sweep_call(row, call, made);
    std::printf("%-52s %4d failures injected\n", row.operation, total);
}

} // namespace

std::string calls_of(const Row &row) {
    const Calls calls = count_calls(row);
    std::string all = calls.problem;
    for (const auto &[call, count] : calls.count)
        all += call + " " + std::to_string(count) + ", ";
    return all;
}

std::string unasked_lines(const Row &row) {
    return in_child([&](FILE *out) {
        SweptHost host(row.level);
        clean_up(row, host);
        if (row.before)
            row.before(host);
        all_flags_off();
        row.attempt(host);
        report_unasked(out);
    });
}

void sweep(const std::vector<Row> &rows) {
    for (const Row &row : rows)
        sweep_row(row);
}

} // namespace test
