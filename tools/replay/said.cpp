#include "tools/replay/said.h"

#include "wire/batch.h"
#include "wire/kernel_message.h"
#include "wire/text.h"

#include <algorithm>
#include <deque>

namespace replay {

namespace {

using recording::Kind;
using recording::Packet;
using recording::Way;
using wire::Direction;

Direction direction_of(Said::To to) {
    return to == Said::To::kServer ? Direction::kToServer : Direction::kToKernel;
}

bool is_turned(const Packet &packet) {
    return wire::is_big(packet.order()) != wire::is_big(wire::Order::kNative);
}

wire::Buffer buffer_of(wire::Bytes bytes) {
    return {bytes.begin(), bytes.end()};
}

std::vector<Said> said_to_server(const Packet &packet) {
    const wire::Buffer batch = native_body(packet);
    std::vector<Said> all;
    for (const wire::Message &message : wire::split(batch).messages)
        all.push_back({Said::To::kServer, message.type, buffer_of(message.payload)});
    return all;
}

std::vector<Said> said_to_kernel(const Packet &packet) {
    const wire::KernelMessage message = read_kernel_message(packet.body, Direction::kToKernel, packet.order());
    if (message.what != wire::KernelMessage::What::kRequest)
        return {};
    Said said{Said::To::kKernel, message.type, buffer_of(message.data)};
    if (is_turned(packet))
        wire::swap(wire::payload_of(said.type, Direction::kToKernel), said.payload);
    return {said};
}

} // namespace

wire::Buffer native_body(const Packet &packet) {
    wire::Buffer bytes = buffer_of(packet.body);
    if (packet.head.kind == Kind::kBatch && is_turned(packet))
        wire::swap_batch(bytes, packet.head.way == Way::kToClient ? Direction::kToClient : Direction::kToServer,
                         packet.order());
    return bytes;
}

std::vector<Said> said_in(const Packet &packet) {
    if (packet.head.way == Way::kToClient)
        return {};
    switch (packet.head.kind) {
    case Kind::kBatch:
        return said_to_server(packet);
    case Kind::kKernel:
        return said_to_kernel(packet);
    default:
        return {};
    }
}

std::string Said::text() const {
    return (to == To::kKernel ? "kernel: " : "") + wire::message_text(type, direction_of(to), payload);
}

// A process id that is not 0 tells that a registration is a full one.
Said Said::normal() const {
    Said normal = *this;
    if (type != BRIDGE_EVENT_REG_MSG || payload.size() != sizeof(bri_reg_msg))
        return normal;
    auto message = wire::object_of<bri_reg_msg>(payload);
    message.pid = message.pid != 0 ? 1 : 0;
    normal.payload = buffer_of(wire::bytes_of(message));
    return normal;
}

void Dialogue::expect(size_t packet, std::vector<Said> messages) {
    for (Said &message : messages) {
        const Dialogue::Kind kind{message.to, message.type};
        if (ahead_[kind] > 0)
            --ahead_[kind];
        else
            ++awaited_[kind];
        expected_.push_back({packet, std::move(message)});
    }
}

void Dialogue::hear(Said message) {
    const Dialogue::Kind kind{message.to, message.type};
    if (awaited_[kind] > 0)
        --awaited_[kind];
    else
        ++ahead_[kind];
    heard_.push_back(std::move(message));
}

std::string Dialogue::awaited() const {
    std::string names;
    for (const auto &[kind, count] : awaited_)
        if (count > 0 && !given_up_.contains(kind))
            names += (names.empty() ? "" : ", ") + wire::event_name(kind.second);
    return names;
}

void Dialogue::wait_no_more() {
    for (const auto &[kind, count] : awaited_)
        if (count > 0)
            given_up_.insert(kind);
}

// Each expected message is paired with the first equal one that has not been taken.
std::vector<std::string> Dialogue::differences(bool part, std::vector<std::string> &moved) const {
    std::map<Said, std::deque<size_t>> places;
    for (size_t i = 0; i < heard_.size(); ++i)
        places[heard_[i].normal()].push_back(i);
    std::vector<std::string> lines;
    std::vector<bool> taken(heard_.size());
    size_t furthest = 0;
    for (const Expected &expected : expected_) {
        std::deque<size_t> &equal = places[expected.message.normal()];
        const std::string where = "packet " + std::to_string(expected.packet) + ": ";
        if (equal.empty()) {
            lines.push_back(where + "not sent: " + expected.message.text());
            continue;
        }
        if (equal.front() < furthest)
            moved.push_back(where + "sent earlier: " + expected.message.text());
        furthest = std::max(furthest, equal.front());
        taken[equal.front()] = true;
        equal.pop_front();
    }
    for (size_t i = 0; i < heard_.size(); ++i)
        if (!taken[i] && (!part || i < furthest))
            lines.push_back("not in the recording: " + heard_[i].text());
    return lines;
}

} // namespace replay
