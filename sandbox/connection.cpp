#include "sandbox/connection.h"

#include <event2/buffer.h>

#include <cstring>

namespace sandbox {

namespace {

// A client that has left this much unread is given up.
constexpr size_t kQueueLimit = size_t{64} << 20;
// From here on its owner looks how much is queued for everybody.
constexpr size_t kFallingBehind = size_t{1} << 20;

} // namespace

Connection::Connection(Loop &loop, evutil_socket_t descriptor, unsigned id, ConnectionOwner &owner)
    : channel_(bufferevent_socket_new(loop.base(), descriptor, BEV_OPT_CLOSE_ON_FREE)), id_(id), owner_(owner) {
    const auto on_read = [](bufferevent *, void *self) { static_cast<Connection *>(self)->on_readable(); };
    const auto on_end = [](bufferevent *, short what, void *self) {
        const int error = evutil_socket_geterror(-1);
        static_cast<Connection *>(self)->lose((what & BEV_EVENT_EOF) != 0 ? "closed by the client"
                                                                          : evutil_socket_error_to_string(error));
    };
    const auto on_drained = [](bufferevent *, void *self) { static_cast<Connection *>(self)->owner_.on_drained(); };
    bufferevent_setcb(channel_.get(), on_read, on_drained, on_end, this);
    bufferevent_enable(channel_.get(), EV_READ | EV_WRITE);
}

const Client &Connection::party() const {
    if (party_ == nullptr || party_->name != registration.name())
        party_ = std::make_shared<const Party>(Party{id_, registration.name()});
    return party_;
}

size_t Connection::queued() const {
    return open() ? evbuffer_get_length(bufferevent_get_output(channel_.get())) : 0;
}

void Connection::send(Bytes bytes) {
    if (!open())
        return;
    if (queued() + bytes.size > kQueueLimit)
        return lose("reads too slowly");
    bufferevent_write(channel_.get(), bytes.data, bytes.size);
    if (queued() > kFallingBehind)
        owner_.on_falling_behind();
}

void Connection::send(const Batch &batch) {
    sent_ += batch.messages();
    send(batch.bytes());
}

void Connection::stall() {
    stalled_ = true;
    if (open())
        bufferevent_disable(channel_.get(), EV_READ | EV_WRITE);
}

void Connection::resume() {
    stalled_ = false;
    if (!open())
        return;
    bufferevent_enable(channel_.get(), EV_READ | EV_WRITE);
    on_readable(); // what had come in before the stall
}

void Connection::close() {
    channel_.reset();
}

void Connection::lose(const std::string &why) {
    close();
    owner_.on_lost(*this, why);
}

void Connection::on_readable() {
    // A message's consequences may stall or close this very connection.
    while (open() && !stalled_) {
        evbuffer *input = bufferevent_get_input(channel_.get());
        const Incoming next = peek_batch(input);
        if (next.state == Incoming::State::kIncomplete)
            return;
        if (next.state == Incoming::State::kOversized)
            return lose("sent a batch header of " + std::to_string(next.size) + " bytes");
        std::vector<uint8_t> batch(next.size);
        evbuffer_remove(input, batch.data(), batch.size());
        take_messages(batch);
    }
}

void Connection::take_messages(std::vector<uint8_t> &batch) {
    auto messages = messages_of({batch.data(), batch.size()});
    for (; messages.ok() && open(); messages.next()) {
        ++received_;
        owner_.on_message(*this, messages.message().type(), messages.message().payload);
    }
    if (messages.cut() && open())
        lose("sent a message that runs past its batch");
}

} // namespace sandbox
