// The local stream socket to the bridge server: create, connect, reset.
#include "base/counters.h"
#include "base/log.h"
#include "base/raii.h"
#include "base/text.h"
#include "client/state.h"
#include "client/transport.h"

#include <qv_thread.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>

namespace bri::client {

namespace {

constexpr time_t kSendSeconds = 10;

uint32_t g_connection_number;
char g_server_path[64];

void set_timeout(int fd, int option, time_t seconds) {
    const timeval limit{seconds, 0};
    setsockopt(fd, SOL_SOCKET, option, &limit, sizeof limit);
}

// `sock` is written under the send lock and only on the loop's thread, which therefore reads it without.
void publish_socket(bri_clnt_ctx &ctx, int fd) {
    const MutexLock lock(g_bglib_send_lock);
    ctx.sock = fd;
}

// A thread that blocks in a write holds the lock: ending the stream sends it home.
void lock_out_writers(const bri_clnt_ctx &ctx) {
    if (pthread_mutex_trylock(&g_bglib_send_lock) == 0)
        return;
    end_stream(ctx);
    pthread_mutex_lock(&g_bglib_send_lock);
}

void close_socket(bri_clnt_ctx &ctx) {
    if (ctx.master != nullptr)
        qv_thread_cancel_by_arg_func(ctx.master, &ctx, read_job);
    lock_out_writers(ctx);
    close(ctx.sock);
    ctx.sock = 0;
    rewind_cache(ctx);
    pthread_mutex_unlock(&g_bglib_send_lock);
}

void reset(bri_clnt_ctx &ctx) {
    if (ctx.sock > 0)
        close_socket(ctx);
    word::store(ctx.connected, uint8_t{0});
    ctx.conn_done = 0;
    ctx.fresh = 1;
    ++g_connection_number;
}

// The directory may exist already, and the server makes both; whatever is missing shows when we connect.
void prepare_path(const char *tmpdir) {
    char directory[PATH_MAX];
    std::snprintf(directory, sizeof directory, "%s/bridge/", tmpdir);
    mkdir(directory, 0777);
    std::snprintf(g_server_path, sizeof g_server_path, "%s/bridge/.server_socket", tmpdir);
}

struct FileType {
    mode_t type;
    const char *name;
};
constexpr FileType kFileTypes[] = {
    {S_IFREG, "regular file"}, {S_IFDIR, "directory"},        {S_IFLNK, "symbolic link"},
    {S_IFIFO, "fifo"},         {S_IFCHR, "character device"}, {S_IFBLK, "block device"},
};

const char *type_name(mode_t mode) {
    for (const FileType &known : kFileTypes)
        if ((mode & S_IFMT) == known.type)
            return known.name;
    return "unknown file";
}

// Whoever may write below TMPDIR can put anything there, and a path that was cut is another file's: nothing but a
// socket is opened to all, and no link is followed, also not one that comes between the look and the change.
void open_path_to_all(const bri_clnt_ctx &ctx) {
    const Fd path(open(g_server_path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status;
    if (!path.ok() || fstat(path.get(), &status) != 0)
        return; // connecting says why
    if (!S_ISSOCK(status.st_mode)) {
        BRI_LOG(log::kClient, "[%s] server path is a %s, no socket, left alone.\n", ctx.name,
                type_name(status.st_mode));
        return;
    }
    char same[32];
    std::snprintf(same, sizeof same, "/proc/self/fd/%d", path.get());
    chmod(same, 0777);
}

void set_blocking(int fd, bool blocking) {
    int without = blocking ? 0 : 1;
    ioctl(fd, FIONBIO, &without);
}

int connect_at_once(int fd) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    copy_text(address.sun_path, g_server_path);
    const auto length = static_cast<socklen_t>(sizeof address.sun_family + std::strlen(g_server_path));
    return connect(fd, reinterpret_cast<const sockaddr *>(&address), length);
}

// A server whose queue is full must not hold the loop: that fails with EAGAIN. Under the send lock, so that nobody
// writes to the new connection before it is closed to other threads.
bool connect_to_server(bri_clnt_ctx &ctx) {
    const MutexLock lock(g_bglib_send_lock);
    set_blocking(ctx.sock, false);
    const bool connected = connect_at_once(ctx.sock) == 0;
    const int error = errno;
    set_blocking(ctx.sock, true);
    errno = error;
    if (!connected)
        return false;
    introduction_begins();
    word::store(ctx.connected, uint8_t{1});
    return true;
}

} // namespace

uint32_t connection_number() {
    return g_connection_number;
}

void reset_connection(uint64_t &cause) {
    if (g_bridge_client == nullptr) {
        BRI_LOG(log::kClient, "Bridge client connect-reset: client is not init.\n");
        return;
    }
    cause += g_bridge_client->connected;
    BRI_PROBE(reset, static_cast<int>(&cause - &counters::g_loop.reset_by_peer), g_bridge_client->connected);
    reset(*g_bridge_client);
}

} // namespace bri::client

using namespace bri;
using namespace bri::client;

int bridge_client_socket_create(struct bri_clnt_ctx *ctx) {
    if (ctx == nullptr) {
        BRI_LOG(log::kClient, "Bridge client sock create failed: client is not init.\n");
        return -1;
    }
    if (ctx->sock > 0) // the old connection would leak, and the new socket would pass for connected
        reset(*ctx);
    const int fd = above_zero(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int error = errno;
    publish_socket(*ctx, fd);
    if (fd < 0) {
        BRI_LOG(log::kClient, "[%s] create sock failed: %s\n", ctx->name, strerror(error));
        return -1;
    }
    set_timeout(fd, SO_SNDTIMEO, kSendSeconds);
    set_timeout(fd, SO_RCVTIMEO, kReceiveSeconds);
    BRI_LOG(log::kClient, "[%s] sock[%d] create SUCC.\n", ctx->name, fd);
    return fd;
}

int bridge_client_socket_connect(struct bri_clnt_ctx *ctx) {
    if (ctx == nullptr || ctx->sock <= 0) {
        BRI_LOG(log::kClient, "Bridge client sock conn failed: client is not init.\n");
        return -1;
    }
    if (ctx->connected == 1) {
        BRI_LOG(log::kClient, "Bridge client sock is connected.\n");
        return 0;
    }
    const char *tmpdir = std::getenv("TMPDIR");
    if (tmpdir == nullptr) {
        BRI_LOG(log::kClient, "Connect failed: Make sock-file-path failed.\n");
        return -1;
    }
    prepare_path(tmpdir);
    open_path_to_all(*ctx);
    if (!connect_to_server(*ctx)) {
        ++counters::g_loop.connect_failed;
        BRI_PROBE(connect_failed, errno);
        BRI_LOG(log::kClient, "[%s] connect failed: %s\n", ctx->name, strerror(errno));
        return -1;
    }
    ++counters::g_loop.connections;
    BRI_PROBE(connected, ctx->sock);
    BRI_LOG(log::kClient, "Bridge client sock conn SUCC.\n");
    return 0;
}

void bridge_client_connect_reset(void) {
    reset_connection(counters::g_loop.reset_asked);
}
