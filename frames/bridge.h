// A Linux bridge as the switch's back end.
#pragma once

#include "sandbox/back_end.h"

namespace frames {

// Takes the bridge over as it is. Throws std::runtime_error when there is none of that name, or no right to it.
std::unique_ptr<sandbox::BackEnd> open_bridge(sandbox::Sandbox &sandbox, const std::string &tmpdir,
                                              const std::string &name);

} // namespace frames
