#include "sandbox/kernel_link.h"
#include "sandbox/output.h"
#include "sandbox/programs.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace sandbox {

int kernel_main(int argc, char **argv) {
    std::string tmpdir = environment("TMPDIR");
    double time_scale = environment_time_scale();
    CLI::App app("The kernel's bridge module of a workstation, in a process of its own: it keeps its addresses when "
                 "the server ends. Start it before the server.");
    app.add_option("--tmpdir", tmpdir, "Where clients look for it; TMPDIR by default")->type_name("DIR");
    app.add_option("--time-scale", time_scale, "How many times as fast as the wall's clock its time runs")
        ->check(CLI::Range(0.001, 100000.0));
    if (const std::optional<int> status = parse_command_line(app, argc, argv))
        return *status;
    if (tmpdir.empty())
        throw std::runtime_error("TMPDIR is not set");
    Loop loop(time_scale);
    const auto end = [](evutil_socket_t, short, void *subject) { static_cast<Loop *>(subject)->end(); };
    const Event interrupted(evsignal_new(loop.base(), SIGINT, end, &loop));
    const Event terminated(evsignal_new(loop.base(), SIGTERM, end, &loop));
    event_add(interrupted.get(), nullptr);
    event_add(terminated.get(), nullptr);
    KernelService kernel(loop, tmpdir);
    kernel.listen();
    say("listening at %s", kernel.path().c_str());
    loop.run();
    return EXIT_SUCCESS;
}

} // namespace sandbox
