// What makes the switch's word true for real frames, and tells of what happens to them: nothing, or a Linux bridge. The
// switch does not ask which.
#pragma once

#include "sandbox/message.h"

#include <memory>

namespace sandbox {

struct Sandbox; // everything that a back end can reach; see sandbox.h

class BackEnd {
  public:
    virtual ~BackEnd() = default;

    // The tables have changed so; the clients are told when this returns. Throws nothing.
    virtual void changed(uint32_t type, Bytes payload) noexcept = 0;
    // The device is to be the port of that number, which is about to come. Throws std::invalid_argument when it cannot
    // be.
    virtual void attach(uint32_t ifx, const std::string &device) = 0;
    // What was there before is there again.
    virtual void restore() = 0;
};

// Set by a program that has one. Throws std::runtime_error.
inline std::unique_ptr<BackEnd> (*open_back_end)(Sandbox &sandbox, const std::string &tmpdir,
                                                 const std::string &name) = nullptr;

} // namespace sandbox
