// GoogleTest can stream its results to a host it looks up. Nothing here does, and a resolver does not fit into the
// statically linked programs of the cross builds: the look-up is replaced, on every target alike.
#include <netdb.h>

extern "C" {

int __wrap_getaddrinfo(const char *, const char *, const addrinfo *, addrinfo **);
int __wrap_getaddrinfo(const char *, const char *, const addrinfo *, addrinfo **) {
    return EAI_FAIL;
}

} // extern "C"
