// A host daemon with a fault to be found: it registers only for the events that it is told, and with -f asks for more
// than a server takes. It prints what it is handed and, when it gets SIGUSR1, the library's counters.
#include "tools/counter_names.h"

extern "C" {
#include "examples/host.h"
}

#include <bridge/bridge.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

int g_asked = -1;

int print_counters(void *) {
    signalfd_siginfo signal{};
    if (read(g_asked, &signal, sizeof signal) != sizeof signal)
        return 0;
    bri_counters counters{};
    bridge_client_get_counters(&counters, sizeof counters);
    std::printf("counters:\n");
    for (const tools::CounterName &counter : tools::kCounterNames)
        if (counters.*counter.member != 0)
            std::printf("  %-35s %llu\n", counter.name, static_cast<unsigned long long>(counters.*counter.member));
    std::printf("that is all\n");
    qv_thread_add_read_withname(host_loop, print_counters, nullptr, g_asked, "planted-counters");
    return 0;
}

int print_event(uint32_t type, void *, uint16_t length) {
    std::printf("event %u, %u bytes\n", type, length);
    return 0;
}

// As much as a connection's cache can hold, again and again.
int flood(void *) {
    static const uint8_t bytes[BRI_PAYLOAD_MAX] = {};
    for (int i = 0; i < 400; ++i)
        bridge_client_send_message(bytes, sizeof bytes, VLAN_EVENT_SET_ADD_DYN_INTF);
    host_after_ms(50, flood, "planted-flood");
    return 0;
}

bool watch_signal() {
    sigset_t asked;
    sigemptyset(&asked);
    sigaddset(&asked, SIGUSR1);
    sigprocmask(SIG_BLOCK, &asked, nullptr);
    g_asked = signalfd(-1, &asked, SFD_CLOEXEC | SFD_NONBLOCK);
    return g_asked >= 0 && print_counters(nullptr) == 0 &&
           qv_thread_add_read_withname(host_loop, print_counters, nullptr, g_asked, "planted-counters") != nullptr;
}

} // namespace

int main(int argc, char **argv) {
    event_set events{};
    bool floods = false;
    for (int option; (option = getopt(argc, argv, "e:f")) != -1;) {
        if (option == 'f')
            floods = true;
        else if (option == 'e')
            bri_event_set_add(&events, static_cast<uint32_t>(std::strtoul(optarg, nullptr, 10)));
        else
            return 2;
    }
    if (!host_make_loop() || !watch_signal() || bridge_agent_init("my_daemon", host_loop) != 0 ||
        bridge_client_reg_event(&events, print_event) != 0)
        return 1;
    if (floods)
        host_after_ms(500, flood, "planted-flood");
    return host_run();
}
