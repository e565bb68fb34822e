// A host that keeps a picture of ports and VLANs from its events alone, and prints it when a mark comes by among them.
// It also sends requests, one for each line of its standard input.
//
// Renames and memberships carry no version, so a replay must not overtake such events that are still on their way. It
// runs when the server has just answered the registration, and the server announces nothing between that answer and the
// line "replayed".
#include "base/bits.h"
#include "tests/system/picture.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <unistd.h>

extern "C" {
#include "examples/host.h"
}

namespace {

const char *name = "picture";
long slow_us = 0;     // pause at each event
unsigned refused = 0; // VLANs of which it refuses each multiple; 0: it is not asked
test::Picture picture;
std::string input;

vlanset list_of(const std::string &text) {
    vlanset set{};
    char error[128];
    if (vl_clnt_vlist_str_to_map(text.c_str(), &set, error, sizeof error) != 0)
        std::printf("%s: not a list: %s\n", name, text.c_str());
    return set;
}

struct Request {
    const char *word;
    void (*send)(int ifx, const vlanset &set, uint16_t vid);
};
// "native 3 10": the word, the port, and VLANs of which some requests take the first only.
constexpr Request kRequests[] = {
    {"create", [](int, const vlanset &, uint16_t vid) { vl_clnt_create_vlan_entry(vid); }},
    {"delete", [](int, const vlanset &, uint16_t vid) { vl_clnt_delete_vlan_entry(vid); }},
    {"rollback", [](int, const vlanset &set, uint16_t) { bridge_client_vlanset_rollback(&set); }},
    {"native", [](int ifx, const vlanset &, uint16_t vid) { vl_clnt_set_native_vlan(ifx, vid); }},
    {"allow", [](int ifx, const vlanset &set, uint16_t) { vl_clnt_swport_add_allow_vlanset(ifx, &set); }},
    {"disallow", [](int ifx, const vlanset &set, uint16_t) { vl_clnt_swport_rmv_allow_vlanset(ifx, &set); }},
    {"join", [](int ifx, const vlanset &, uint16_t vid) { vl_clnt_add_dyn_member(ifx, vid); }},
    {"join-set", [](int ifx, const vlanset &set, uint16_t) { vl_clnt_dyn_member_add_rang(ifx, &set); }},
    {"leave-set", [](int ifx, const vlanset &set, uint16_t) { vl_clnt_dyn_member_del_rang(ifx, &set); }},
    // Comes back to those who want it; behind it the server has all that was asked before.
    {"mark", [](int, const vlanset &, uint16_t) { bridge_client_send_message(nullptr, 0, VLAN_EVENT_DEFAULT_INTF); }},
};

void run(const std::string &line) {
    std::istringstream words(line);
    std::string word;
    int ifx = 0;
    std::string list;
    words >> word >> ifx >> list;
    const vlanset set = list_of(list);
    unsigned vid = 0;
    while (vid < BRI_VID_MAX && !bri::bits::test(set.words, vid))
        ++vid;
    for (const Request &request : kRequests)
        if (word == request.word)
            return request.send(ifx, set, static_cast<uint16_t>(vid));
    std::printf("%s: no such request: %s\n", name, line.c_str());
}

// Job: lines have come.
int on_input(void *) {
    char piece[4096];
    const ssize_t length = read(STDIN_FILENO, piece, sizeof piece);
    if (length <= 0)
        return 0;
    input.append(piece, static_cast<size_t>(length));
    for (size_t end = 0; (end = input.find('\n')) != std::string::npos; input.erase(0, end + 1))
        run(input.substr(0, end));
    qv_thread_add_read_withname(host_loop, on_input, nullptr, STDIN_FILENO, "picture-input");
    return 0;
}

void judge(uint32_t type, bri::Bytes payload) {
    vl_vlanset_reply reply{};
    if (type == VLAN_EVENT_CREATE_PREJ) {
        reply.failure = bri::load_at<uint16_t>(payload, 0) % refused == 0;
        return bridge_client_vlan_reply(&reply.failure);
    }
    const auto asked = bri::load_at<vlanset>(payload, 0);
    for (unsigned vid = refused; vid <= BRI_VID_MAX; vid += refused)
        if (bri::bits::test(asked.words, vid)) {
            bri::bits::set(reply.failed.words, vid);
            reply.failure = 1;
        }
    bridge_client_vlanset_reply(&reply);
}

int on_event(uint32_t type, void *data, uint16_t len) {
    const bri::Bytes payload{static_cast<const uint8_t *>(data), len};
    if (type == BRIDGE_EVENT_BKUP_DATA_END) {
        bridge_client_request_submod_oridata(BRI_SUBMOD_VLAN);
        std::printf("%s: replayed\n", name);
    } else if (type == VLAN_EVENT_CREATE_PREJ || type == VLAN_EVENT_CREATE_RANGE_PREJ) {
        judge(type, payload);
    } else if (type == VLAN_EVENT_INTF_STATE) {
        std::printf("%s: picture\n%send of picture\n", name, picture.text().c_str());
    } else {
        usleep(static_cast<useconds_t>(slow_us));
        picture.apply(type, payload);
    }
    return 0;
}

int register_events() {
    event_set events{};
    for (uint32_t type = VLAN_EVENT_CREATE_INDEX; type <= VLAN_EVENT_SVI_CREATE_DESTROY; ++type)
        if (type != VLAN_EVENT_DEFAULT_INTF && type != VLAN_EVENT_CREATE_PREJ && type != VLAN_EVENT_CREATE_RANGE_PREJ)
            bri_event_set_add(&events, type);
    bri_event_set_add(&events, BRIDGE_EVENT_BKUP_DATA_END);
    if (refused != 0) {
        bri_event_set_add(&events, VLAN_EVENT_CREATE_PREJ);
        bri_event_set_add(&events, VLAN_EVENT_CREATE_RANGE_PREJ);
    }
    return bridge_client_reg_event(&events, on_event);
}

} // namespace

int main(int argc, char **argv) {
    for (int option; (option = getopt(argc, argv, "n:s:r:")) != -1;) {
        if (option == 'n')
            name = optarg;
        else if (option == 's')
            slow_us = host_number(optarg, 0, 1000000);
        else if (option == 'r')
            refused = static_cast<unsigned>(host_number(optarg, 1, BRI_VID_MAX));
        else
            return 2;
    }
    if (!host_start(name) || register_events() != 0)
        return 1;
    qv_thread_add_read_withname(host_loop, on_input, nullptr, STDIN_FILENO, "picture-input");
    return host_run();
}
