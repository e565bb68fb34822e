// The syslog library of a workstation: lines to standard error or syslog(3), shown lines to standard output.
#include <qv_syslog.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <syslog.h>

namespace {

constexpr int kShow = 2;
constexpr const char *kLevels[] = {"emerg", "alert", "crit", "err", "warning", "notice", "info", "debug"};
constexpr int kLowest = 7;

struct Settings {
    bool to_syslog;
    int threshold;
};
Settings g_settings;
pthread_once_t g_once = PTHREAD_ONCE_INIT;

void read_environment() {
    const char *where = std::getenv("QV_SYSLOG");
    g_settings.to_syslog = where != nullptr && std::strcmp(where, "syslog") == 0;
    const char *level = std::getenv("QV_SYSLOG_LEVEL");
    const bool valid = level != nullptr && level[0] >= '0' && level[0] <= '7' && level[1] == '\0';
    g_settings.threshold = valid ? level[0] - '0' : kLowest;
}

// A text of any length: on the stack when it is short, otherwise on the heap, cut when memory is short.
class Text {
  public:
    __attribute__((format(printf, 2, 0))) Text(const char *format, va_list values) {
        va_list again;
        va_copy(again, values);
        const int length = std::vsnprintf(short_, sizeof short_, format, values);
        if (length >= static_cast<int>(sizeof short_)) {
            const size_t size = static_cast<size_t>(length) + 1;
            long_ = static_cast<char *>(std::malloc(size));
            if (long_ != nullptr)
                std::vsnprintf(long_, size, format, again);
        }
        va_end(again);
    }
    ~Text() { std::free(long_); }
    Text(const Text &) = delete;
    Text &operator=(const Text &) = delete;

    [[nodiscard]] const char *get() const { return long_ != nullptr ? long_ : short_; }

  private:
    char short_[512] = "";
    char *long_ = nullptr;
};

// Calls fn(line, length) for each line of a text; its last line end ends a line and does not begin another.
template <class Fn> void for_each_line(const char *text, Fn &&fn) {
    do {
        const size_t length = std::strcspn(text, "\n");
        fn(text, static_cast<int>(length));
        text += length;
        if (*text == '\n')
            ++text;
    } while (*text != '\0');
}

void show(const char *module, const char *text) {
    const size_t length = std::strlen(text);
    const bool ended = length != 0 && text[length - 1] == '\n';
    flockfile(stdout);
    std::printf("%s%s%s", module[0] == '\n' ? "\n" : "", text, ended ? "" : "\n");
    std::fflush(stdout);
    funlockfile(stdout);
}

void log_to_syslog(int level, const char *module, const char *tag, const char *text) {
    for_each_line(text, [&](const char *line, int length) {
        if (length != 0)
            syslog(level, "%s/%s: %.*s", module, tag, length, line);
    });
}

void log_to_stderr(int level, const char *module, const char *tag, const char *text) {
    for_each_line(text, [&](const char *line, int length) {
        const char *separator = length != 0 ? ": " : ":";
        std::fprintf(stderr, "%s %s/%s%s%.*s\n", kLevels[level], module, tag, separator, length, line);
    });
}

void log(int level, const char *module, const char *tag, const char *text) {
    const bool set_off = module[0] == '\n';
    const char *name = set_off ? module + 1 : module;
    if (g_settings.to_syslog)
        return log_to_syslog(level, name, tag, text);
    flockfile(stderr);
    if (set_off)
        std::fputc('\n', stderr);
    log_to_stderr(level, name, tag, text);
    funlockfile(stderr);
}

int bounded(int level) {
    return level < 0 ? 0 : level > kLowest ? kLowest : level;
}

} // namespace

void printk_syslog_ext(int level, const char *module, const char *tag, int output, const char *format, ...) {
    if (format == nullptr)
        return;
    const int error = errno;
    pthread_once(&g_once, read_environment);
    const int known = bounded(level);
    if (output == kShow || known <= g_settings.threshold) {
        errno = error; // for a %m
        va_list values;
        va_start(values, format);
        const Text text(format, values);
        va_end(values);
        module = module != nullptr ? module : "-";
        if (output == kShow)
            show(module, text.get());
        else
            log(known, module, tag != nullptr ? tag : "-", text.get());
    }
    errno = error;
}
