#include "tools/replay/kernel_answers.h"

#include "tools/replay/said.h"
#include "wire/batch.h"
#include "wire/kernel_message.h"

namespace replay {

namespace {

using recording::Packet;
using recording::Way;
using wire::Direction;
using wire::KernelMessage;
using What = KernelMessage::What;

// A message to the kernel.
struct Asked {
    size_t packet;
    bool family; // it looks for the module
    Said said;
    size_t answered_at;           // a packet; 0 while there is no answer
    sandbox::KernelResult result; // empty without one
};

std::vector<Asked> asked_in(const Packet &packet, const KernelMessage &message) {
    if (message.what == What::kFamilyAsked)
        return {{packet.number, true, {}, 0, {}}};
    std::vector<Asked> all;
    for (Said &said : said_in(packet))
        all.push_back({packet.number, false, std::move(said), 0, {}});
    return all;
}

bool wants_answer(const Asked &asked) {
    return asked.answered_at == 0 &&
           (asked.family || wire::payload_of(asked.said.type, Direction::kFromKernel).shape != wire::Shape::kNever);
}

void take_answer(Asked &asked, const Packet &packet, const KernelMessage &message) {
    asked.answered_at = packet.number;
    asked.result = {message.error, {message.data.begin(), message.data.end()}};
    if (wire::is_big(packet.order()) != wire::is_big(wire::Order::kNative))
        wire::swap(wire::payload_of(asked.said.type, Direction::kFromKernel), asked.result.answer);
}

} // namespace

// A client asks one question at a time, so an answer belongs to its last one that wants any.
KernelAnswers::KernelAnswers(const std::vector<Packet> &packets) {
    std::map<uint32_t, std::vector<Asked>> clients;
    for (const Packet &packet : packets) {
        if (packet.head.kind != recording::Kind::kKernel)
            continue;
        known_ = known_ || packet.head.client != 0;
        const bool asks = packet.head.way == Way::kToServer;
        const KernelMessage message =
            read_kernel_message(packet.body, asks ? Direction::kToKernel : Direction::kFromKernel, packet.order());
        std::vector<Asked> &all = clients[packet.head.client];
        for (Asked &each : asks ? asked_in(packet, message) : std::vector<Asked>())
            all.push_back(std::move(each));
        if (message.what == What::kFamilyGone)
            module_[packet.number] = false;
        else if (!asks && !all.empty() && wants_answer(all.back())) {
            take_answer(all.back(), packet, message);
            if (all.back().family)
                module_[all.back().packet] = message.what == What::kFamily;
        }
    }
    for (auto &[client, all] : clients)
        for (Asked &each : all) {
            taken_.insert(each.answered_at != 0 ? each.answered_at : each.packet);
            if (!each.family)
                answers_[{each.said.type, std::move(each.said.payload)}].push_back(std::move(each.result));
        }
}

std::optional<sandbox::KernelResult> KernelAnswers::answer(uint32_t type, wire::Bytes data) {
    const auto found = answers_.find({type, {data.begin(), data.end()}});
    if (found == answers_.end())
        return std::nullopt;
    sandbox::KernelResult result = found->second.front();
    if (found->second.size() > 1)
        found->second.pop_front();
    return result;
}

std::optional<bool> KernelAnswers::is_there_from(size_t packet) const {
    const auto found = module_.find(packet);
    return found == module_.end() ? std::nullopt : std::optional(found->second);
}

} // namespace replay
