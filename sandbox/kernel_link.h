// The line between the server and the kernel's bridge module, which is a part of the server's process or one of its
// own (bridge-sandbox kernel) that outlives the server.
#pragma once

#include "sandbox/kernel.h"
#include "sandbox/trace.h"

#include <memory>
#include <string>

namespace sandbox {

class KernelLink {
  public:
    // `told` gets what the module tells; see Kernel.
    KernelLink(Loop &loop, std::string tmpdir, Trace &trace, Announce told);
    ~KernelLink();

    // To the module's process when there is one, which is looked for again whenever it has gone; else to a module in
    // this process. Throws std::runtime_error, as listen_at does.
    void open();
    // Says or asks something. What changes by it has been told when this returns. Throws std::invalid_argument when the
    // module's process has gone.
    KernelResult ask(uint32_t type, Bytes data = {});

  private:
    class Road;
    class Inside;
    class Beside;

    Loop &loop_;
    std::string tmpdir_;
    Trace &trace_;
    Announce told_;
    std::unique_ptr<Road> road_;
};

// The other end: `kernel` in a process of its own, for the servers that come and go.
class KernelService {
  public:
    KernelService(Loop &loop, const std::string &tmpdir);
    ~KernelService();
    KernelService(const KernelService &) = delete;
    KernelService &operator=(const KernelService &) = delete;

    void listen();
    [[nodiscard]] const std::string &path() const { return kernel_.path(); }

  private:
    void accept(evutil_socket_t descriptor);
    void take_requests();
    void send(uint32_t type, Bytes data);

    Loop &loop_;
    std::string path_;
    Kernel kernel_;
    Listener listener_;
    BufferEvent server_; // the one that came last
};

} // namespace sandbox
