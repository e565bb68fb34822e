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

struct Asked {
    std::pair<uint32_t, wire::Buffer> question;
    sandbox::KernelResult result; // empty where nothing came
};

// A client asks one question at a time, so an answer belongs to its last one that wants any.
struct Client {
    size_t family_asked = 0; // the packet; 0 when that is answered
    size_t question = SIZE_MAX;
};

sandbox::KernelResult result_of(const Packet &packet, const KernelMessage &message, uint32_t type) {
    sandbox::KernelResult result{message.error, {message.data.begin(), message.data.end()}};
    if (wire::is_big(packet.order()) != wire::is_big(wire::Order::kNative))
        wire::swap(wire::payload_of(type, Direction::kFromKernel), result.answer);
    return result;
}

} // namespace

KernelAnswers::KernelAnswers(const std::vector<Packet> &packets) {
    std::vector<Asked> asked;
    std::map<uint32_t, Client> clients;
    for (const Packet &packet : packets) {
        if (packet.head.kind != recording::Kind::kKernel)
            continue;
        const bool asks = packet.head.way == Way::kToServer;
        const KernelMessage message =
            read_kernel_message(packet.body, asks ? Direction::kToKernel : Direction::kFromKernel, packet.order());
        Client &client = clients[packet.head.client];
        for (const Said &said : said_in(packet)) {
            if (wire::payload_of(said.type, Direction::kFromKernel).shape != wire::Shape::kNever)
                client.question = asked.size();
            asked.push_back({{said.type, said.payload}, {}});
        }
        const bool answers = message.what == What::kAnswer || message.what == What::kError;
        if (message.what == What::kFamilyAsked)
            client.family_asked = packet.number;
        else if (message.what == What::kFamilyGone)
            module_[packet.number] = false;
        else if (client.family_asked != 0 && (message.what == What::kFamily || message.what == What::kError))
            module_[std::exchange(client.family_asked, 0)] = message.what == What::kFamily;
        else if (answers && client.question < asked.size()) {
            Asked &question = asked[std::exchange(client.question, SIZE_MAX)];
            question.result = result_of(packet, message, question.question.first);
        }
    }
    for (Asked &each : asked)
        answers_[std::move(each.question)].push_back(std::move(each.result));
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
