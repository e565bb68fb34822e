#include "sandbox/check_story.h"

namespace sandbox {

namespace {

constexpr Story kStories[] = {
    {"start", "a switch that runs; VLANs, links and addresses come and go",
     "begin\n"
     "learn 3001\n"
     "idle 3\n"
     "stops\n"},
    {"questions", "VLANs and the mode of a port are asked about before they change",
     "begin\n"
     "answers 3100\n"},
    {"killed", "the server is killed, and another one finds its tables",
     "begin\n"
     "server kill\n"
     "idle 3\n"
     "server start\n"
     "again\n"
     "do 3201\n"
     "acts\n"
     "server kill\n"
     "stops\n"},
    {"changed", "the server is away for a while, and its tables change meanwhile",
     "begin\n"
     "restart 3\n"
     "vlan create 3301\n"
     "vlan delete 20\n"
     "port add 62 trunk 1\n"
     "again\n"
     "asks 3301\n"},
    {"slave", "the daemon is a slave from its start",
     "role slave\n"
     "begin\n"
     "do 3401\n"
     "silent sends nothing as a slave\n"},
    {"late", "a slave that has all of the server's data takes over",
     "role slave\n"
     "begin\n"
     "vlan create 3501\n"
     "port add 62 trunk 1\n"
     "switchover begin\n"
     "silent waits for the end of the switch-over\n"
     "switchover end\n"
     "asks 3501\n"
     "do 3511\n"
     "acts\n"},
    {"early", "a slave takes over before it has all of the server's data",
     "role slave\n"
     "sync hold\n"
     "begin\n"
     "vlan create 3601\n"
     "port add 62 trunk 1\n"
     "switchover\n"
     "do 3611\n"
     "silent waits for the server's data\n"
     "sync go\n"
     "asks 3601\n"
     "do 3621\n"
     "acts\n"},
    {"kernel", "the kernel's bridge module goes and comes back empty",
     "begin\n"
     "kernel down\n"
     "idle 3\n"
     "kernel up\n"
     "addresses\n"
     "do 3701\n"
     "acts\n"},
    {"delay", "the daemon is told to hold its events back, and gets them together",
     "begin\n"
     "vlan patience 10000\n"
     "debug $ delay 3\n"
     "do 3801\n"
     "acts\n"
     "debug $ delay -1\n"
     "do 3811\n"
     "acts\n"},
    {"slow", "the server neither reads nor writes for a while",
     "begin\n"
     "stall\n"
     "do 3901\n"
     "idle 3\n"
     "resume\n"
     "acts\n"
     "do 3911\n"
     "acts\n"
     "stall\n"
     "stops\n"},
};

} // namespace

std::span<const Story> all_stories() {
    return kStories;
}

} // namespace sandbox
