// The order in which the doubles see what the library does, for tests where it matters.
#pragma once

#include <functional>
#include <string>

namespace test {

// Called with each log line's text, with "add NAME" and "refuse NAME" for jobs that are added to the loop, and with
// "cancel NAME" for pending ones that are cancelled. Unset: nobody listens.
inline std::function<void(const std::string &effect)> on_effect;

inline void tell_effect(const std::string &effect) {
    if (on_effect)
        on_effect(effect);
}

} // namespace test
