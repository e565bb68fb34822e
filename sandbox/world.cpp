#include "sandbox/world.h"

#include "sandbox/programs.h"
#include "wire/segments.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <random>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace sandbox {

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::seconds kChildPatience{20};
constexpr const char *kSemaphores = "/dev/shm";
// The program's companions are beside it in a build tree, or in the tree that it is installed in.
constexpr const char *kPreload = "libef_bridge_sim.so"; // stands for the kernel's module in daemons
constexpr const char *kPreloads[] = {".", "../sandbox", ("../" BRIDGE_LIBDIR)};
constexpr const char *kScripts[] = {"scenarios", "../" BRIDGE_DATADIR "/scenarios"};
constexpr const char *kExamples[] = {"../examples", "../" BRIDGE_LIBEXECDIR};

fs::path own_path() {
    return fs::read_symlink("/proc/self/exe");
}

// The file in one of those directories, seen from the program's; empty when none has it.
std::string companion(const std::string &file, std::span<const char *const> directories) {
    for (const char *directory : directories)
        if (const fs::path path = own_path().parent_path() / directory / file; fs::exists(path))
            return path;
    return {};
}

// Puts the example daemons behind everything that PATH has.
void add_examples_to_path() {
    std::string path = environment("PATH");
    for (const char *directory : kExamples)
        if (const fs::path examples = own_path().parent_path() / directory; fs::is_directory(examples))
            path += ":" + fs::canonical(examples).string();
    setenv("PATH", path.c_str(), 1);
}

std::string make_directory() {
    char path[] = "/tmp/bri.XXXXXX"; // short: clients cut the path of a socket
    if (mkdtemp(path) == nullptr)
        fail_with("cannot make a directory in /tmp");
    return path;
}

// One that no other world has: nothing of its number stands.
int32_t unused_vsd() {
    std::random_device random;
    std::uniform_int_distribution<int32_t> numbers(1000, 99999999);
    int32_t vsd = numbers(random);
    while (!wire::system_objects(vsd).empty())
        vsd = numbers(random);
    return vsd;
}

std::vector<char *> pointers(std::vector<std::string> &texts) {
    std::vector<char *> result;
    result.reserve(texts.size() + 1);
    for (std::string &text : texts)
        result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

// Everything below this process: also what a program of the world left behind, which became its child by that.
void kill_children(std::initializer_list<pid_t> spared = {}) {
    for (;;) {
        std::ifstream children("/proc/self/task/" + std::to_string(getpid()) + "/children");
        pid_t child = 0;
        while (children >> child && std::ranges::find(spared, child) != spared.end()) {
        }
        if (!children)
            return;
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

// The preloaded library puts the world's directory in front of the names of POSIX semaphores.
void remove_semaphores(const std::string &world) {
    const std::string prefix = "sem." + fs::path(world).filename().string() + ".";
    std::error_code ignored;
    for (const fs::directory_entry &entry : fs::directory_iterator(kSemaphores, ignored))
        if (entry.path().filename().string().substr(0, prefix.size()) == prefix)
            fs::remove(entry.path(), ignored);
}

void remove_world(const std::string &directory, int32_t vsd) {
    for (const wire::SystemObject &object : wire::system_objects(vsd))
        static_cast<void>(wire::remove(object));
    remove_semaphores(directory);
    std::error_code ignored;
    fs::remove_all(directory, ignored);
}

// This process, which that one has forked, gets the signal when that one ends; at once if it has ended already.
void dies_with(pid_t parent, int number) {
    prctl(PR_SET_PDEATHSIG, number);
    if (getppid() != parent)
        raise(number);
}

// A process that removes the world when this one is killed, and its programs thereby; else it is one of the children,
// none of which outlives the world. In a session of its own: what a terminal tells everybody is not for it.
void watch_over(const std::string &directory, int32_t vsd) {
    constexpr std::chrono::milliseconds kDying{100}; // in which the programs leave the system calls that they are in
    const pid_t parent = getpid();
    if (fork() != 0)
        return;
    sigset_t told;
    sigemptyset(&told);
    sigaddset(&told, SIGUSR1);
    sigprocmask(SIG_BLOCK, &told, nullptr);
    setsid();
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) // whose readers wait for the end
        close(stream);
    dies_with(parent, SIGUSR1);
    int number = 0;
    sigwait(&told, &number);
    std::this_thread::sleep_for(kDying);
    remove_world(directory, vsd);
    _exit(0);
}

// In the child, up to its new program.
[[noreturn]] void become(char *const *words, char *const *entries, const std::string &output, pid_t parent,
                         int failure) {
    for (const int number : {SIGPIPE, SIGXFSZ}) // what this program ignores a daemon may die of, and must be seen to
        std::signal(number, SIG_DFL);
    dies_with(parent, SIGKILL);
    bool ready = true;
    if (!output.empty()) {
        const int in = open("/dev/null", O_RDONLY | O_CLOEXEC);
        const int out = open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        ready = dup2(in, STDIN_FILENO) >= 0 && dup2(out, STDOUT_FILENO) >= 0 && dup2(out, STDERR_FILENO) >= 0;
    }
    if (ready)
        execvpe(words[0], words, entries);
    const int error = errno;
    _exit(write(failure, &error, sizeof error) > 0 ? 127 : 126);
}

// Until it does or the process has ended.
template <class Try> void wait_until(pid_t pid, const char *what, Try &&happens) {
    const auto end = std::chrono::steady_clock::now() + kChildPatience;
    while (!happens()) {
        fail_if(waitpid(pid, nullptr, WNOHANG) != 0 || std::chrono::steady_clock::now() > end,
                std::string(what) + " does not start");
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}

int exit_status(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

volatile std::sig_atomic_t told_to_end = 0; // the signal
volatile pid_t waited_for = 0;              // gets it too

} // namespace

World::World(double time_scale, Log log, std::string recording)
    : log_(log), recording_(std::move(recording)), directory_(make_directory()), vsd_(unused_vsd()) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    setenv("TMPDIR", directory_.c_str(), 1);
    setenv("VSDID", std::to_string(vsd_).c_str(), 1);
    setenv("QV_THREAD_TIME_SCALE", std::to_string(time_scale).c_str(), 1);
    add_examples_to_path();
    watch_over(directory_, vsd_);
}

World::~World() {
    control_.reset();
    if (!recording_.empty() && kernel_ > 0) { // passes on and records what the daemons have left
        kill_children({kernel_, server_});
        kill(kernel_, SIGTERM);
        ended(kernel_, kChildPatience);
    }
    kill_children();
    remove_world(directory_, vsd_);
}

std::string find_script(const std::string &name) {
    const bool is_path = fs::exists(name) || name.find('/') != std::string::npos;
    const std::string found = is_path ? "" : companion(name + ".scenario", kScripts);
    return found.empty() ? name : found;
}

std::vector<std::string> environment_with(const std::vector<std::string> &entries) {
    std::vector<std::string> all = entries;
    for (char **entry = environ; *entry != nullptr; ++entry) {
        const std::string name = std::string(*entry).substr(0, std::string(*entry).find('=') + 1);
        if (std::ranges::none_of(entries, [&](const std::string &other) { return other.starts_with(name); }))
            all.emplace_back(*entry);
    }
    return all;
}

pid_t spawn(std::vector<std::string> words, std::vector<std::string> environment, const std::string &output) {
    const std::vector<char *> arguments = pointers(words);
    const std::vector<char *> entries = pointers(environment);
    const pid_t parent = getpid();
    int failure[2];
    if (pipe2(failure, O_CLOEXEC) != 0)
        fail_with("cannot start " + words[0]);
    const pid_t pid = fork();
    if (pid == 0)
        become(arguments.data(), entries.data(), output, parent, failure[1]);
    int error = pid < 0 ? errno : 0;
    close(failure[1]);
    if (pid > 0 && read(failure[0], &error, sizeof error) > 0) // it closes as soon as the program is there
        waitpid(pid, nullptr, 0);
    close(failure[0]);
    errno = error;
    if (error != 0)
        fail_with("cannot start " + words[0]);
    return pid;
}

pid_t World::start_own(std::vector<std::string> arguments, const std::string &output) const {
    arguments.insert(arguments.begin(), own_path());
    return spawn(std::move(arguments), environment_with({}), output);
}

void World::start_kernel() {
    std::vector<std::string> arguments = {"kernel"};
    if (!recording_.empty())
        arguments.insert(arguments.end(), {"--record", recording_});
    kernel_ = start_own(arguments, directory_ + "/kernel.log");
    wait_until(kernel_, "the kernel's bridge module",
               [this] { return fs::exists(directory_ + "/bridge/.kernel_socket"); });
}

void World::start_server() {
    fail_if(server_ > 0, "the server runs already");
    std::vector<std::string> arguments = {"--time"};
    if (log_ == Log::kRecords)
        arguments.insert(arguments.end(), {"--trace", log_file(servers_, Log::kRecords)});
    server_ = start_own(arguments, log_file(servers_++, Log::kLines));
    wait_until(server_, "the server", [this] {
        try {
            control_.emplace(directory_);
        } catch (const std::exception &) {
            return false;
        }
        return fs::exists(front() + "/bridge/.server_socket");
    });
}

void World::kill_server() {
    fail_if(server_ <= 0, "no server runs");
    control_.reset();
    kill(server_, SIGKILL);
    waitpid(server_, nullptr, 0);
    server_ = -1;
}

pid_t World::start(const std::vector<std::string> &command, const std::string &output) {
    const fs::path preload = companion(kPreload, kPreloads);
    fail_if(preload.empty(), std::string("cannot find ") + kPreload);
    const std::string libraries = environment("LD_LIBRARY_PATH");
    return spawn(command,
                 environment_with(
                     {std::string("LD_PRELOAD=") + kPreload, "TMPDIR=" + front(),
                      "LD_LIBRARY_PATH=" + preload.parent_path().string() + (libraries.empty() ? "" : ":") + libraries,
                      "BRIDGE_WORLD=" + fs::path(directory_).filename().string()}),
                 output);
}

void end_on_signals() {
    struct sigaction action {};
    action.sa_handler = [](int number) {
        told_to_end = number;
        if (waited_for > 0)
            kill(waited_for, number);
    };
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        sigaction(number, &action, nullptr); // without SA_RESTART: what waits for a server is interrupted
}

bool is_told_to_end() {
    return told_to_end != 0;
}

int World::wait(pid_t program) {
    waited_for = program;
    if (told_to_end != 0) // before there was anybody to hand it on to
        kill(program, told_to_end);
    int status = 0;
    while (waitpid(program, &status, 0) != program)
        if (errno != EINTR)
            fail_with("cannot wait for the command");
    waited_for = 0;
    return exit_status(status);
}

std::optional<int> World::ended(pid_t program, std::chrono::milliseconds patience) {
    const auto end = std::chrono::steady_clock::now() + patience;
    int status = 0;
    while (waitpid(program, &status, WNOHANG) != program) {
        if (std::chrono::steady_clock::now() >= end)
            return std::nullopt;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return exit_status(status);
}

ControlClient::Reply World::run(const std::string &command, bool json) {
    fail_if(!control_, "no server runs");
    return control_->run(command, json);
}

std::string World::log_file(unsigned server, Log log) const {
    return directory_ + "/server." + std::to_string(server) + (log == Log::kRecords ? ".trace" : ".log");
}

std::vector<std::string> read_lines(const std::string &path) {
    std::vector<std::string> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line) && !file.eof();)
        lines.push_back(line);
    return lines;
}

std::string last_of(const std::vector<std::string> &lines, size_t count) {
    std::string text;
    for (size_t i = lines.size() - std::min(count, lines.size()); i < lines.size(); ++i)
        text += lines[i] + "\n";
    return text;
}

// A server that was killed may have left a line without its end.
std::vector<std::string> World::lines(Log log) const {
    std::vector<std::string> all;
    for (unsigned server = 0; server < servers_; ++server) {
        const std::vector<std::string> lines = read_lines(log_file(server, log));
        all.insert(all.end(), lines.begin(), lines.end());
    }
    return all;
}

} // namespace sandbox
