// bridge-sandbox kernel: the kernel's bridge module in a process of its own, for servers that come and go.
#pragma once

namespace sandbox {

// Runs until SIGINT or SIGTERM. Throws std::exception when it cannot begin.
int kernel_main(int argc, char **argv);

} // namespace sandbox
