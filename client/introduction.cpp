// Who may write to a new connection before the server knows this client.
#include "client/transport.h"

namespace bri::client {

namespace {

bool g_introducing;
pthread_t g_introducer;         // the loop's thread
const Run *g_with_registration; // the last run that waited when the registration was handed over

} // namespace

void introduction_begins() {
    g_introducing = true;
    g_introducer = pthread_self();
    g_with_registration = nullptr;
}

void introduction_ends(const bri_clnt_ctx &ctx) {
    const bool waits = ctx.cache.prev != &ctx.cache;
    g_with_registration = waits ? reinterpret_cast<const Run *>(ctx.cache.prev) : nullptr;
    g_introducing = waits;
}

void run_leaves(const Run &run) {
    if (&run == g_with_registration)
        g_introducing = false;
}

bool may_overtake() {
    return !g_introducing || pthread_equal(g_introducer, pthread_self()) != 0;
}

} // namespace bri::client
