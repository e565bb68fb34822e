#include "tools/recording/recorder.h"

#include <bridge/client.h>

namespace recording {

namespace {

// A batch at the front of the bytes: its size, or 0 when there is not all of it, or `none` when it can be none.
constexpr size_t kNone = SIZE_MAX;

size_t batch_size(wire::Bytes bytes) {
    if (bytes.size() < sizeof(bri_batch_hdr))
        return 0;
    const auto head = wire::object_of<bri_batch_hdr>(bytes);
    if (head.msg_len > BRI_BATCH_MSG_MAX)
        return kNone;
    const size_t size = sizeof head + head.msg_len;
    return size <= bytes.size() ? size : 0;
}

} // namespace

Recorder::Recorder(const std::string &path, const std::string &program, int32_t vsd)
    : writer_(path, {program, vsd}), tables_(vsd) {
    tables_.look(writer_);
    writer_.flush();
}

void Recorder::pass(Stream &stream, wire::Bytes bytes) {
    const Head head{.way = stream.way, .client = stream.client};
    tables_.look(writer_);
    wire::append(stream.begun, bytes);
    wire::Bytes rest = stream.begun;
    for (size_t size = 0; !stream.broken && (size = batch_size(rest)) != 0;) {
        stream.broken = size == kNone;
        if (!stream.broken) {
            writer_.add(head, rest.first(size));
            rest = rest.subspan(size);
        }
    }
    if (stream.broken) {
        writer_.add(head, rest);
        rest = {};
    }
    stream.begun = wire::Buffer(rest.begin(), rest.end());
    writer_.flush();
}

void Recorder::end(Stream &stream) {
    if (!stream.begun.empty())
        writer_.add({.way = stream.way, .client = stream.client}, stream.begun);
    stream.begun.clear();
    writer_.flush();
}

void Recorder::kernel_message(uint32_t client, Way way, wire::Bytes bytes) {
    tables_.look(writer_);
    writer_.add({.way = way, .kind = Kind::kKernel, .client = client}, bytes);
    writer_.flush();
}

void Recorder::connection(uint32_t client, Change change) {
    const auto byte = static_cast<uint8_t>(change);
    tables_.look(writer_);
    writer_.add({.way = change == Change::kClosedByServer ? Way::kToClient : Way::kToServer,
                 .kind = Kind::kConnection,
                 .client = client},
                {&byte, 1});
    writer_.flush();
}

} // namespace recording
