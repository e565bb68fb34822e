#include "sandbox/registration.h"

#include "base/bits.h"

#include <cstring>

namespace sandbox {

namespace bits = bri::bits;

bool Registration::apply(const bri_reg_msg &message) {
    // Only a full registration carries the process id.
    if (message.pid == 0) {
        for (unsigned i = 0; i < bits::kSetWords; ++i) {
            const uint32_t word = message.event_set.words[i];
            types_.words[i] = message.op != 0 ? types_.words[i] | word : types_.words[i] & ~word;
        }
        return false;
    }
    types_ = message.event_set;
    pid_ = message.pid;
    name_.assign(message.name, strnlen(message.name, sizeof message.name));
    fresh_ = message.fresh != 0;
    complete_ = true;
    return true;
}

bool Registration::wants(uint32_t type) const {
    return type < bits::kSetBits && bits::test(types_.words, type);
}

unsigned Registration::count() const {
    return bits::count(types_.words, bits::kSetWords);
}

} // namespace sandbox
