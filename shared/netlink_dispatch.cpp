// The hook for messages on the persistent channel, in a file of its own: a program that links the library statically
// may bring its own.
#include <bridge/netlink.h>

void bridge_lib_nlmsg_dispch(void *) {
    // What the kernel sends unasked is of no use to a client.
}
