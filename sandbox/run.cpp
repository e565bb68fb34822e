#include "sandbox/programs.h"
namespace sandbox {
int run(int, char **) {
    return kBadUsage;
}
} // namespace sandbox
