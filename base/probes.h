// Static probes: places where a tracer (bpftrace, perf, gdb) may look in while the daemon runs. One instruction that
// does nothing each, where sys/sdt.h was there at build time (BRIDGE_PROBES); else nothing, and no argument is looked
// at. Arguments are what is at hand anyway.
//
// tools/probes/ has scripts that use them. A test holds this list against the built library.
//
//     connected       socket                      the server took the connection
//     connect_failed  errno                       it did not, or there is none
//     reset           cause, connected            cause: 0 peer, 1 bad frame, 2 time-out, 3 error, 4 asked for
//     batch_in        messages, bytes             read whole, bytes with its header
//     batch_out       messages, bytes             its last byte has gone
//     handed_on       type, length                an event to the handlers that want it
//     dropped         reason, type                reason: counters::Drop; type 0 where it is not known
//     refused                                     a send that gives -1
//     cache_in        runs                        a batch waits for the socket, with those that wait then
//     cache_out       runs                        one less
//     cache_drop      runs                        a batch that is lost: no room or no memory
//     lookup_begin    type                        the kernel is asked
//     lookup_end      type, answered, microseconds
#pragma once

#if defined(BRI_HAVE_PROBES)
#define SDT_USE_VARIADIC // STAP_PROBEV, for any number of arguments
#include <sys/sdt.h>
// NOLINTNEXTLINE(cppcoreguidelines-macro-usage): the name becomes part of a section
#define BRI_PROBE(...) STAP_PROBEV(bridge_client, __VA_ARGS__)
#else
// NOLINTNEXTLINE(cppcoreguidelines-macro-usage): its arguments are not evaluated
#define BRI_PROBE(...) static_cast<void>(0)
#endif
