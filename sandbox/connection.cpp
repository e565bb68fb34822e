#include "sandbox/connection.h"

#include "wire/batch.h"

#include <bridge/sets.h>

#include <algorithm>

namespace sandbox {

namespace {

// A client that has left this much unread is given up.
constexpr size_t kQueueLimit = size_t{64} << 20;
// From here on its owner looks how much is queued for everybody.
constexpr size_t kFallingBehind = size_t{1} << 20;

} // namespace

bool Registration::take(const bri_reg_msg &message) {
    const bool whole = message.pid != 0; // only a full registration carries the process id
    for (size_t i = 0; i < std::size(types.words); ++i) {
        const uint32_t word = message.event_set.words[i];
        types.words[i] = whole ? word : message.op != 0 ? types.words[i] | word : types.words[i] & ~word;
    }
    if (!whole)
        return false;
    pid = message.pid;
    name.assign(message.name, strnlen(message.name, sizeof message.name));
    fresh = message.fresh != 0;
    return complete = true;
}

Connection::Connection(Loop &loop, evutil_socket_t descriptor, unsigned id, ConnectionOwner &owner)
    : channel_(bufferevent_socket_new(loop.base(), descriptor, BEV_OPT_CLOSE_ON_FREE)), sent_now_(evbuffer_new()),
      flush_(event_new(
          loop.base(), -1, 0, [](evutil_socket_t, short, void *self) { static_cast<Connection *>(self)->flush(); },
          this)),
      id_(id), party_(std::make_shared<const Party>(Party{id, {}})), owner_(owner) {
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

bool Connection::take_registration(const bri_reg_msg &message) {
    const bool whole = registration.take(message);
    party_ = std::make_shared<const Party>(Party{id_, registration.name});
    return whole;
}

size_t Connection::queued() const {
    return open() ? evbuffer_get_length(sent_now_.get()) + evbuffer_get_length(bufferevent_get_output(channel_.get()))
                  : 0;
}

Fields Connection::fields() const {
    static constexpr const char *kSyncStates[] = {"none", "begun", "ended", "done"};
    Fields state = Fields::array();
    if (registration.fresh)
        state.push_back("fresh");
    if (stalled_)
        state.push_back("stalled");
    return {{"id", id_},
            {"name", registration.complete ? registration.name : "(not registered)"},
            {"pid", registration.pid},
            {"events", bri_event_set_count(&registration.types)},
            {"messages", received_},
            {"sent", sent_},
            {"queue", queued()},
            {"registered", registration.complete},
            {"sync", kSyncStates[std::min(sync_step, kSynchronised)]},
            {"state", state}};
}

void Connection::send(Bytes bytes, size_t messages) {
    sent_ += messages;
    if (!open())
        return;
    const size_t before = queued();
    if (before + bytes.size() > kQueueLimit)
        return lose("reads too slowly");
    evbuffer_add(sent_now_.get(), bytes.data(), bytes.size());
    event_active(flush_.get(), EV_WRITE, 0);
    if (before + bytes.size() > kFallingBehind)
        owner_.on_falling_behind();
}

// A failure is met again, and told of, by the channel.
void Connection::flush() {
    if (!open())
        return;
    if (!stalled_ && evbuffer_get_length(bufferevent_get_output(channel_.get())) == 0)
        evbuffer_write(sent_now_.get(), bufferevent_getfd(channel_.get()));
    if (evbuffer_get_length(sent_now_.get()) != 0)
        bufferevent_write_buffer(channel_.get(), sent_now_.get());
    else
        owner_.on_drained();
}

void Connection::close() {
    channel_.reset();
    evbuffer_drain(sent_now_.get(), evbuffer_get_length(sent_now_.get()));
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

void Connection::lose(const std::string &why) {
    close();
    owner_.on_lost(*this, why);
}

void Connection::on_readable() {
    // A message's consequences may stall or close this very connection.
    bri_batch_hdr head{};
    while (open() && !stalled_) {
        evbuffer *input = bufferevent_get_input(channel_.get());
        if (evbuffer_copyout(input, &head, sizeof head) < static_cast<ssize_t>(sizeof head))
            return;
        if (head.msg_len > BRI_BATCH_MSG_MAX)
            return lose("sent a batch header of " + std::to_string(head.msg_len) + " bytes");
        Buffer batch(sizeof head + head.msg_len);
        if (evbuffer_get_length(input) < batch.size())
            return;
        evbuffer_remove(input, batch.data(), batch.size());
        take_messages(batch);
    }
}

void Connection::take_messages(Bytes bytes) {
    const wire::Batch batch = wire::split(bytes);
    for (const wire::Message &message : batch.messages) {
        if (!open())
            return;
        if (!message.whole())
            return lose("sent a message that runs past its batch");
        ++received_;
        owner_.on_message(*this, message.type, message.payload);
    }
    if (open() && batch.messages.size() < batch.msg_cnt && !batch.rest.empty())
        lose("sent a message that runs past its batch");
}

} // namespace sandbox
