#include "sandbox/traffic.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace sandbox {

namespace {

Seen outcome_of(const FramesSeen &seen) {
    const auto *const found = std::find(std::begin(seen.times), std::end(seen.times), 1U);
    return static_cast<Seen>(found - std::begin(seen.times));
}

} // namespace

Traffic::Traffic(Loop &loop, Addresses &addresses)
    : loop_(loop), addresses_(addresses), timer_(loop, [this] { send_due(); }) {}

Seen Traffic::send(const bri_mac_entry &frame) {
    if (const std::string reason = addresses_.refusal(frame); !reason.empty())
        throw std::invalid_argument(reason);
    return outcome_of(addresses_.see({frame}));
}

Seen Traffic::start(const bri_mac_entry &frame, Microseconds period) {
    const Seen seen = send(frame);
    const Name name{std::to_array(frame.mac), frame.bcast_id};
    if (const auto known = sources_.find(name); known != sources_.end())
        due_.erase({known->second.due, name});
    const Microseconds due = loop_.now() + period;
    sources_[name] = {frame, period, due};
    due_.emplace(due, name);
    wait_for_next();
    return seen;
}

size_t Traffic::stop(const uint8_t (&mac)[6]) {
    return std::erase_if(sources_, [&](const auto &item) {
        if (item.first.first != std::to_array(mac))
            return false;
        due_.erase({item.second.due, item.first});
        return true;
    });
}

size_t Traffic::stop_all() {
    due_.clear();
    return std::exchange(sources_, {}).size();
}

void Traffic::send_due() {
    std::vector<bri_mac_entry> frames;
    while (!due_.empty() && due_.begin()->first <= loop_.now()) {
        const Name name = due_.begin()->second;
        due_.erase(due_.begin());
        Source &source = sources_.at(name);
        source.due = loop_.now() + source.period;
        due_.emplace(source.due, name);
        if (addresses_.refusal(source.frame).empty())
            frames.push_back(source.frame);
    }
    try {
        addresses_.see(frames);
    } catch (const std::invalid_argument &) { // the kernel has gone and sees nothing
    }
    wait_for_next();
}

void Traffic::wait_for_next() {
    if (!due_.empty())
        timer_.start(std::max(due_.begin()->first - loop_.now(), Microseconds(1)));
}

} // namespace sandbox
