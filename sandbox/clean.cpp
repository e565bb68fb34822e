// bridge-sandbox clean: what a world leaves that has ended.
#include "sandbox/output.h"
#include "sandbox/programs.h"
#include "wire/segments.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace sandbox {

int clean(int argc, char **argv) {
    CLI::App app("Removes the tables in shared memory of this VSDID. A process that has them open keeps them, but no "
                 "other one finds them any more.");
    if (const std::optional<int> status = parse_command_line(app, argc, argv))
        return *status;
    const int32_t vsd = wire::vsd_of_environment();
    const std::vector<wire::SystemObject> objects = wire::system_objects(vsd);
    for (const wire::SystemObject &object : objects)
        if (!wire::remove(object))
            throw std::runtime_error("cannot remove the " + wire::text_of(object) + ": " + std::strerror(errno));
    say("VSDID %d: %zu objects removed", vsd, objects.size());
    return EXIT_SUCCESS;
}

} // namespace sandbox
