// The line between the server and the kernel's bridge module, which is a part of the server's process or one of its
// own (bridge-sandbox kernel) that outlives the server.
#pragma once

#include "sandbox/kernel.h"
#include "sandbox/trace.h"

namespace sandbox {

class KernelLink {
  public:
    // `told` gets what the module tells; see Kernel.
    KernelLink(Loop &loop, std::string tmpdir, Trace &trace, Announce told);

    // To the module's process when there is one, which is looked for again whenever it has gone; else to a module in
    // this process. Throws std::runtime_error, as Acceptor does.
    void open();
    // Says or asks something. What changes by it has been told when this returns. Throws std::invalid_argument when the
    // module's process has gone.
    KernelResult ask(uint32_t type, Bytes data = {});

  private:
    bool connect();
    bool read_all(void *bytes, size_t size);
    // The next message on the line; nothing when it has ended or hangs.
    std::optional<Message> read_message();
    void deliver();
    void take_news();
    void lose();
    void look_again();

    Loop &loop_;
    std::string tmpdir_;
    Trace &trace_;
    Announce told_;
    std::optional<Kernel> inside_;
    std::optional<Fd> fd_;
    Event readable_; // behind fd_: released before the descriptor closes
    Timer again_;
    std::deque<Message> news_; // told while an answer was waited for
};

// The other end: `kernel` in a process of its own, for the servers that come and go.
class KernelService {
  public:
    KernelService(Loop &loop, const std::string &tmpdir);

    void listen();
    [[nodiscard]] const std::string &path() const { return kernel_.path(); }

  private:
    void accept(evutil_socket_t descriptor);
    void take_requests();
    void send(uint32_t type, Bytes data);

    Loop &loop_;
    std::string path_;
    Kernel kernel_;
    std::optional<Acceptor> acceptor_;
    BufferEvent server_; // the one that came last
};

} // namespace sandbox
