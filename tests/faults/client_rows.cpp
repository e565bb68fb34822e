// Start-up, connection, reading, sending, registration.
#include "client/state.h"
#include "tests/faults/rows.h"

#include <sys/socket.h>
#include <unistd.h>

namespace test {

namespace {

constexpr uint32_t kPlain = VLAN_EVENT_RENAME;    // waits for the timer
constexpr uint32_t kUrgent = MAC_EVENT_DYN_FLUSH; // does not

constexpr uint8_t kBytes[4] = {1, 2, 3, 4};
uint8_t g_bytes[4];
bri_batch_hdr *g_batch;
int g_ends[2]; // a pair of sockets, or the ends of a pipe
uint32_t g_before;

void callback() {}
int extra_handler(uint32_t, void *, uint16_t) {
    return 0;
}

// A process that was started stays started; from then on the row looks whether that client can be used.
Got start(SweptHost &) {
    if (g_bridge_client == nullptr)
        return zero(bridge_agent_init("unit", SweptHost::loop().master()));
    return zero(bridge_client_thread_event(BRI_CLNT_EVT_CONNECT));
}

int length_of(const bri_list &head) {
    int length = 0;
    for (const bri_list *link = head.next; link != &head; link = link->next)
        ++length;
    return length;
}

Got append(void (*set)(bri_clnt_cb), const bri_list &callbacks) {
    const int before = length_of(callbacks);
    set(callback);
    return length_of(callbacks) > before ? Got::kSuccess : Got::kFailure;
}

void disconnect(SweptHost &) {
    bridge_client_connect_reset();
}

void new_socket(SweptHost &host) {
    disconnect(host);
    bridge_client_socket_create(&SweptHost::ctx());
}

void all_down(SweptHost &host) {
    disconnect(host);
    bridge_lib_nlclient_deinit(&SweptHost::ctx());
    bridge_client_thread_event(BRI_CLNT_EVT_CONNECT);
}

// A failed step is tried again in a second.
Got connect_job(SweptHost &host) {
    SweptHost::loop().run("bri-conn");
    host.accept();
    const bri_clnt_ctx &ctx = SweptHost::ctx();
    if (ctx.connected != 0 && ctx.conn_done != 0 && ctx.nl_ready != 0 && SweptHost::loop().count("bri-read") == 1)
        return Got::kSuccess;
    return SweptHost::loop().count("bri-reconn") == 1 ? Got::kFailure : Got::kElse;
}

void batch_comes(SweptHost &host) {
    host.peer.send({{VG_EVENT_MEM_VLAN, ByteVec(4)}, {VG_EVENT_MEM_VLAN, ByteVec(4)}});
    g_before = host.handled;
}

Got read_job(SweptHost &host) {
    SweptHost::loop().run("bri-read");
    if (host.handled == g_before + 2 && SweptHost::loop().count("bri-read") == 1)
        return Got::kSuccess;
    return SweptHost::loop().count("bri-reconn") == 1 ? Got::kFailure : Got::kElse;
}

void pair_with_bytes(SweptHost &) {
    const faults::Pause pause;
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, g_ends) != 0 || write(g_ends[1], kBytes, sizeof kBytes) != sizeof kBytes)
        throw std::runtime_error("no pair");
}
void open_pipe(SweptHost &) {
    const faults::Pause pause;
    if (pipe(g_ends) != 0)
        throw std::runtime_error("no pipe");
}
void close_ends(SweptHost &) {
    for (const int fd : g_ends)
        faults::real_close(fd);
}

Got write_once(SweptHost &) {
    uint32_t written = 0;
    const int result = bridge_writen_dontwait(g_ends[0], kBytes, sizeof kBytes, &written);
    if (result == 0)
        return written == sizeof kBytes ? Got::kSuccess : Got::kElse;
    return (result == 5 || result == 6) && written == 0 ? Got::kFailure : Got::kElse;
}

void collect(SweptHost &) {
    bridge_client_send_message(kBytes, sizeof kBytes, kPlain);
}

void collect_for_full_socket(SweptHost &host) {
    collect(host);
    faults::hooks.send = [](int, const void *, size_t, int) {
        errno = EAGAIN;
        return ssize_t{-1};
    };
}
void socket_takes_again(SweptHost &) {
    faults::hooks.send = nullptr;
}

Got flush_into_cache(SweptHost &) {
    const uint32_t before = SweptHost::ctx().cache_cnt;
    SweptHost::tick();
    return SweptHost::ctx().cache_cnt == before + 1 ? Got::kSuccess : Got::kFailure;
}

void run_waits(SweptHost &host) {
    collect_for_full_socket(host);
    SweptHost::tick();
    socket_takes_again(host);
}
void send_what_waits(SweptHost &) {
    SweptHost::tick();
}

Got drain(SweptHost &) {
    SweptHost::tick();
    return SweptHost::ctx().cache_cnt == 0 ? Got::kSuccess : Got::kFailure;
}

event_set one_type() {
    event_set set{};
    set.words[kPlain / 32] = 1U << kPlain % 32;
    return set;
}

Got dispatch(uint32_t type, uint32_t len = 0) {
    alignas(4) uint8_t message[16] = {};
    put_at(message, 0, type);
    put_at(message, 4, len);
    bridge_client_msg_dspch(reinterpret_cast<bri_msg_hdr *>(message));
    return done();
}

} // namespace

std::vector<Row> client_rows() {
    return {
        {"bridge_agent_init",
         Level::kBare,
         start,
         {{"calloc", Got::kSuccess}, // a table that cannot be had does without its lock
          {"calloc", Got::kFailure, 0, 1},
          {"calloc", Got::kFailure, 0, 2},
          {"calloc", Got::kFailure, 0, 3},
          {"malloc", Got::kSuccess},
          {"fopen", Got::kSuccess},
          {"access", Got::kSuccess},
          {"socket", Got::kFailure},
          {"setsockopt", Got::kSuccess},
          {"semget", Got::kSuccess},
          {"semctl", Got::kSuccess},
          {"shmget", Got::kSuccess},
          {"shmctl", Got::kSuccess},
          {"shmat", Got::kSuccess}}},
        {"bridge_agent_set_connect_callback",
         Level::kStarted,
         [](SweptHost &) { return append(bridge_agent_set_connect_callback, SweptHost::ctx().conn_cbs); },
         {{"malloc", Got::kFailure}}},
        {"bridge_agent_set_oridata_callback",
         Level::kStarted,
         [](SweptHost &) { return append(bridge_agent_set_oridata_callback, SweptHost::ctx().oridata_cbs); },
         {{"malloc", Got::kFailure}}},
        {"bridge_client_socket_create",
         Level::kStarted,
         [](SweptHost &) {
             const int result = bridge_client_socket_create(&SweptHost::ctx());
             return result > 0 ? Got::kSuccess : result == -1 ? Got::kFailure : Got::kElse;
         },
         {{"socket", Got::kFailure}, {"setsockopt", Got::kSuccess}}},
        {"bridge_client_socket_connect",
         Level::kConnected,
         [](SweptHost &) { return zero(bridge_client_socket_connect(&SweptHost::ctx())); },
         {{"mkdir", Got::kSuccess}, {"open", Got::kSuccess}, {"chmod", Got::kSuccess}, {"connect", Got::kFailure}},
         0,
         new_socket},
        {"job bri-conn",
         Level::kConnected,
         connect_job,
         {{"socket", Got::kFailure},
          {"setsockopt", Got::kSuccess},
          {"mkdir", Got::kSuccess},
          {"open", Got::kSuccess},
          {"chmod", Got::kSuccess},
          {"connect", Got::kFailure},
          {"send", Got::kSuccess},
          {"bind", Got::kFailure},
          {"sendto", Got::kFailure},
          {"sendto", Got::kSuccess, EAGAIN},
          {"recv", Got::kFailure}},
         BRIDGE_EVENT_REG_MSG,
         all_down},
        {"job bri-read",
         Level::kConnected,
         read_job,
         {{"read", Got::kFailure}, {"read", Got::kSuccess, EINTR}},
         0,
         batch_comes},
        {"bridge_client_read_msg",
         Level::kConnected,
         [](SweptHost &) { return zero(bridge_client_read_msg(SweptHost::ctx().sock, &g_batch)); },
         {{"read", Got::kFailure}, {"read", Got::kSuccess, EINTR}},
         0,
         batch_comes,
         disconnect},
        {"job bri-msg-timer", Level::kConnected,
         [](SweptHost &) {
             SweptHost::tick();
             return done();
         },
         kBatched, kPlain, collect},
        {"job bri-msg-timer, the socket being full",
         Level::kConnected,
         flush_into_cache,
         {{"malloc", Got::kFailure},
          {"send", Got::kFailure}, // a broken socket loses the batch
          {"send", Got::kSuccess, EAGAIN},
          {"send", Got::kSuccess, EINTR}},
         0,
         collect_for_full_socket,
         socket_takes_again},
        {"job bri-msg-timer, a run waiting",
         Level::kConnected,
         drain,
         {{"sendmsg", Got::kFailure}}, // the run still waits
         kPlain,
         run_waits,
         send_what_waits},
        {"bridge_readn",
         Level::kBare,
         [](SweptHost &) { return whole(bridge_readn(g_ends[0], g_bytes, sizeof g_bytes), sizeof g_bytes); },
         {{"read", Got::kFailure}, {"read", Got::kSuccess, EINTR}},
         0,
         pair_with_bytes,
         close_ends},
        {"bridge_writen",
         Level::kBare,
         [](SweptHost &) { return whole(bridge_writen(g_ends[0], kBytes, sizeof kBytes), sizeof kBytes); },
         {{"send", Got::kFailure}, {"send", Got::kSuccess, EAGAIN}, {"send", Got::kSuccess, EINTR}},
         0,
         pair_with_bytes,
         close_ends},
        {"bridge_writen, to a pipe",
         Level::kBare,
         [](SweptHost &) { return whole(bridge_writen(g_ends[1], kBytes, sizeof kBytes), sizeof kBytes); },
         {{"send", Got::kFailure},
          {"send", Got::kSuccess, EAGAIN},
          {"send", Got::kSuccess, EINTR},
          {"write", Got::kFailure}},
         0,
         open_pipe,
         close_ends},
        {"bridge_writen_dontwait", Level::kBare, write_once, {{"send", Got::kFailure}}, 0, pair_with_bytes, close_ends},
        {"bridge_client_send_message", Level::kConnected,
         [](SweptHost &) { return zero(bridge_client_send_message(kBytes, sizeof kBytes, kUrgent)); }, kBatched,
         kUrgent},
        {"bridge_client_send_message_ontime", Level::kConnected,
         [](SweptHost &) { return zero(bridge_client_send_message_ontime(kBytes, sizeof kBytes, kPlain)); },
         kWrittenAtOnce, kPlain},
        {"bridge_client_reg_event",
         Level::kConnected,
         [](SweptHost &) {
             const event_set set = one_type();
             return zero(bridge_client_reg_event(&set, extra_handler));
         },
         {{"calloc", Got::kFailure}, {"send", Got::kSuccess}},
         BRIDGE_EVENT_REG_MSG},
        {"bridge_client_unreg_event", Level::kConnected,
         [](SweptHost &) {
             event_set set = one_type();
             return zero(bridge_client_unreg_event(&set, extra_handler));
         },
         kBatched, BRIDGE_EVENT_REG_MSG},
        {"bridge_client_msg_dspch, origin data asked for", Level::kConnected,
         [](SweptHost &) { return dispatch(BRIDGE_EVENT_ORI_DATA_REQUEST); }, kBatched, BRIDGE_EVENT_ORI_DATA_OVER},
        {"bridge_client_msg_dspch, end of the backup data",
         Level::kConnected,
         [](SweptHost &) { return dispatch(BRIDGE_EVENT_BKUP_DATA_END); },
         {{"send", Got::kSuccess}, {"calloc", Got::kSuccess}},
         BRIDGE_EVENT_ORI_DATA_REQUEST,
         [](SweptHost &) { bri::client::g_state.oridata_state = bri::client::kOridataNone; }},
        {"bridge_client_msg_dspch, a question", Level::kConnected,
         [](SweptHost &) { return dispatch(RESEARCH_EVENT_SWPORT_PREJUDGE, 8); }, kAnswered, RESEARCH_EVENT_FAILED},
        {"bridge_client_msg_dspch, a print",
         Level::kConnected,
         [](SweptHost &) { return dispatch(DEBUG_EVENT_SHOW_VLAN); },
         {{"malloc", Got::kSuccess}}},
    };
}

} // namespace test
