// The first process of a lab machine: furnishes it, loads the modules that /lab/modules names, runs the programs of
// /lab/plan and powers off. What it says itself begins with "[lab]"; lab/result.sh reads that.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <net/if.h>
#include <sstream>
#include <string>
#include <sys/ioctl.h>
#include <sys/klog.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Words = std::vector<std::string>;

// A program of the plan: a line of fields with tabs between. The next one does not wait for one that runs beside the
// others, whose output is printed when they are through.
struct Program {
    std::string name;
    int seconds = 0; // after which it is killed
    bool beside = false;
    Words command;
    bool typed = false; // at the prompt: has the terminal, so that Ctrl-C ends it
};

struct Running {
    const Program *program;
    pid_t pid;
    Clock::time_point start;
};

struct Ended {
    int status; // as a shell gives it, 124 when its time was up
    double cpu; // seconds, with those of the processes that it has waited for
};

constexpr const char *kBeside = "beside";

Words split(const std::string &line, char separator) {
    Words words;
    std::istringstream in(line);
    for (std::string word; std::getline(in, word, separator);)
        if (!word.empty())
            words.push_back(word);
    return words;
}

std::vector<Program> read_plan() {
    std::vector<Program> plan;
    std::ifstream in("/lab/plan");
    for (std::string line; std::getline(in, line);) {
        const Words fields = split(line, '\t');
        if (fields.size() >= 4)
            plan.push_back(
                {fields[0], std::atoi(fields[1].c_str()), fields[2] == kBeside, {fields.begin() + 3, fields.end()}});
    }
    return plan;
}

std::string log_of(const Program &program) {
    return "/tmp/" + program.name + ".log";
}

void furnish() {
    constexpr struct {
        const char *type, *place;
    } kMounts[] = {{"proc", "/proc"},      {"sysfs", "/sys"},     {"devtmpfs", "/dev"},
                   {"devpts", "/dev/pts"}, {"tmpfs", "/dev/shm"}, {"tmpfs", "/run"}};
    for (const auto &[type, place] : kMounts) {
        mkdir(place, 0755);
        mount(type, place, type, 0, nullptr); // the small kernel lacks some
    }
    constexpr struct {
        const char *path;
        unsigned minor;
    } kDevices[] = {{"/dev/null", 3}, {"/dev/zero", 5}, {"/dev/full", 7}, {"/dev/urandom", 9}};
    for (const auto &[path, minor] : kDevices)
        mknod(path, S_IFCHR | 0666, makedev(1, minor)); // there already where the kernel makes them
    chmod("/tmp", 01777);
    constexpr struct {
        const char *name, *value;
    } kEnvironment[] = {{"PATH", "/lab/bin:/usr/sbin:/usr/bin:/sbin:/bin"},
                        {"HOME", "/root"},
                        {"TERM", "dumb"},
                        {"TMPDIR", "/tmp"},
                        {"VSDID", "0"},
                        {"BRIDGE_MODULE", "/lab/modules.d/ef_bridge.ko"}};
    for (const auto &[name, value] : kEnvironment)
        setenv(name, value, 1);
}

void raise_loopback() {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return; // a kernel without the internet
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP;
    ioctl(fd, SIOCSIFFLAGS, &request);
    close(fd);
}

void load_modules() {
    std::ifstream in("/lab/modules");
    for (std::string path; std::getline(in, path);) {
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0 || syscall(SYS_finit_module, fd, "", 0) != 0)
            std::printf("[lab] module %s: %s\n", path.c_str(), std::strerror(errno));
        close(fd);
    }
}

void introduce() {
    utsname name{};
    uname(&name);
    constexpr uint16_t kOne = 1;
    uint8_t first = 0;
    std::memcpy(&first, &kOne, sizeof first);
    std::printf("[lab] machine %s kernel %s %s-endian %zu bit\n", name.machine, name.release,
                first == 1 ? "little" : "big", sizeof(void *) * 8);
}

[[noreturn]] void become(const Program &program) {
    if (program.typed) {
        setpgid(0, 0);
        tcsetpgrp(STDIN_FILENO, getpid());
        signal(SIGTTOU, SIG_DFL);
    } else {
        setsid();
    }
    std::vector<char *> arguments;
    for (const std::string &word : program.command)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    if (program.beside) {
        const int log = open(log_of(program).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        dup2(log, STDOUT_FILENO);
        dup2(log, STDERR_FILENO);
    }
    execvp(arguments[0], arguments.data());
    std::perror(arguments[0]);
    _exit(127);
}

Running start(const Program &program) {
    if (!program.beside && !program.typed)
        std::printf("[lab] begin %s\n", program.name.c_str());
    std::fflush(stdout);
    const pid_t pid = fork();
    if (pid == 0)
        become(program);
    return {&program, pid, Clock::now()};
}

Ended ended(int status, bool late, const rusage &used) {
    const int own = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    const auto seconds = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return {late ? 124 : own, seconds(used.ru_utime) + seconds(used.ru_stime)};
}

Ended wait_for(const Running &running) {
    const auto end = running.start + std::chrono::seconds(running.program->seconds);
    for (bool late = false;;) {
        int status = 0;
        rusage used{};
        if (wait4(running.pid, &status, late ? 0 : WNOHANG, &used) == running.pid)
            return ended(status, late, used);
        late = Clock::now() >= end;
        if (late)
            kill(-running.pid, SIGKILL);
        else
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

void finish(const Running &running) {
    const auto [status, cpu] = wait_for(running);
    const std::chrono::duration<double> took = Clock::now() - running.start;
    const Program &program = *running.program;
    if (program.beside) {
        std::printf("[lab] begin %s\n", program.name.c_str());
        std::ifstream log(log_of(program));
        for (std::string line; std::getline(log, line);)
            std::puts(line.c_str());
    }
    std::printf("\n[lab] end %s status %d seconds %.1f cpu %.1f\n", program.name.c_str(), status, took.count(), cpu);
    std::fflush(stdout);
}

void run_plan() {
    const std::vector<Program> plan = read_plan();
    std::vector<Running> beside;
    for (const Program &program : plan)
        if (program.beside)
            beside.push_back(start(program));
        else
            finish(start(program));
    for (const Running &running : beside)
        finish(running);
}

// The kernel's complaints in its log are a program's result like any other.
void judge_kernel() {
    constexpr int kReadAll = 3;
    constexpr const char *kComplaints[] = {"BUG:",        "WARNING:",           "Oops",
                                           "Call Trace",  "general protection", "Unable to handle",
                                           "refcount_t:", "Out of memory",      "blocked for more than",
                                           "INFO: rcu"};
    std::vector<char> text(1 << 20);
    const int length = klogctl(kReadAll, text.data(), static_cast<int>(text.size()));
    int found = length <= 0 ? 1 : 0; // a log that cannot be read says nothing good
    std::printf("[lab] begin kernel\n");
    for (const std::string &line : split({text.data(), static_cast<size_t>(std::max(length, 0))}, '\n'))
        for (const char *complaint : kComplaints)
            if (line.find(complaint) != std::string::npos) {
                std::puts(line.c_str());
                ++found;
            }
    std::printf("\n[lab] end kernel status %d seconds 0 cpu 0\n", found != 0 ? 1 : 0);
}

// What programs have left in /lab/kept leaves the machine by its console.
void hand_out() {
    std::error_code none;
    for (const auto &entry : std::filesystem::directory_iterator("/lab/kept", none)) {
        std::ifstream file(entry.path(), std::ios::binary);
        std::printf("[lab] file %s ", entry.path().filename().c_str());
        for (char byte = 0; file.get(byte);)
            std::printf("%02X", static_cast<unsigned>(static_cast<unsigned char>(byte)));
        std::putchar('\n');
    }
}

Program typed(const Words &command) {
    return {command[0], 86400, false, command, true};
}

// For a machine without a shell of its own: runs what is typed. `cat` and `write FILE WORDS...` are its own.
void own_prompt() {
    for (std::string line; std::cout << "lab# " << std::flush && std::getline(std::cin, line) && line != "exit";) {
        const Words words = split(line, ' ');
        if (words.size() >= 2 && words[0] == "cat") {
            if (const std::ifstream file(words[1]); file)
                std::cout << file.rdbuf() << '\n';
            else
                std::cout << words[1] << ": cannot be read\n";
            std::cout.clear();
        } else if (words.size() >= 3 && words[0] == "write") {
            if (!(std::ofstream(words[1]) << line.substr(line.find(words[1]) + words[1].size() + 1) << std::flush))
                std::cout << words[1] << ": not taken\n";
        } else if (!words.empty()) {
            wait_for(start(typed(words)));
            tcsetpgrp(STDIN_FILENO, getpgrp());
        }
    }
}

// The terminal belongs to the prompt, not to a program there: at the end of its owner what was typed ahead is lost.
void prompt() {
    setsid();
    ioctl(STDIN_FILENO, TIOCSCTTY, 0);
    signal(SIGTTOU, SIG_IGN);
    if (access("/bin/bash", X_OK) == 0)
        wait_for(start(typed({"/bin/bash", "-i"})));
    else
        own_prompt();
}

int work() {
    furnish();
    raise_loopback();
    load_modules();
    introduce();
    std::ifstream in("/proc/cmdline");
    const std::string options{std::istreambuf_iterator<char>(in), {}};
    if (options.find("lab=shell") != std::string::npos) {
        prompt();
    } else {
        run_plan();
        judge_kernel();
        hand_out();
    }
    std::printf("[lab] done\n");
    std::fflush(stdout);
    tcdrain(STDOUT_FILENO);
    return 0;
}

} // namespace

// Orphans come to the first process, so it does nothing but take leave of them.
int main() {
    const pid_t worker = fork();
    if (worker == 0)
        return work();
    while (wait(nullptr) != worker) {
    }
    sync();
    reboot(RB_POWER_OFF);
    return 0;
}
