#include "tools/recording/writer.h"

#include "tools/recording/blocks.h"
#include "wire/segments.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <stdexcept>
#include <string_view>
#include <unistd.h>

namespace recording {

namespace {

constexpr size_t kGathered = size_t{256} << 10; // bytes that wait for a flush at most

constexpr Interface interface_of(Kind kind) {
    return kind == Kind::kTable ? Interface::kTables : kind == Kind::kKernel ? Interface::kKernel : Interface::kServer;
}

uint64_t nanoseconds_now() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
}

wire::Bytes bytes_of_text(std::string_view text) {
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

std::string comment_of(const Origin &origin) {
    nlohmann::ordered_json comment{{"byte_order", wire::is_big(origin.order) ? "big" : "little"},
                                   {"word_size", origin.word_size},
                                   {"library", BRIDGE_VERSION},
                                   {"vsdid", origin.vsd},
                                   {"tables", nlohmann::ordered_json::array()}};
    for (const wire::Segment *segment : wire::all_segments())
        comment["tables"].push_back({{"name", segment->name}, {"size", segment->size}});
    return comment.dump();
}

} // namespace

Writer::Writer(std::string path, Origin origin)
    : path_(std::move(path)), origin_(std::move(origin)),
      fd_(open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)) {
    if (fd_ < 0)
        throw std::runtime_error("cannot write " + path_ + ": " + std::strerror(errno));
    std::signal(SIGXFSZ, SIG_IGN); // a limit ends the recording as a full disk does
    add_section();
    for (const char *name : kInterfaceNames)
        add_interface(name);
    flush();
}

Writer::~Writer() {
    flush();
    close(fd_);
}

void Writer::add_section() {
    begin_block(kSection);
    put(kByteOrderMagic);
    put(1, sizeof(uint16_t)); // version 1.0
    put(0, sizeof(uint16_t));
    put(UINT32_MAX); // of a length that is not told
    put(UINT32_MAX);
    put_option(kComment, bytes_of_text(comment_of(origin_)));
    put_option(kUserProgram, bytes_of_text(origin_.program + " " BRIDGE_VERSION));
    put_option(kEnd, {});
    end_block();
}

void Writer::add_interface(const char *name) {
    begin_block(kInterface);
    put(kLinkType, sizeof(uint16_t));
    put(0, sizeof(uint16_t));
    put(0); // packets of any length
    put_option(kInterfaceName, bytes_of_text(name));
    put_option(kTimeResolution, {&kNanoseconds, 1});
    put_option(kEnd, {});
    end_block();
}

void Writer::add(Head head, wire::Bytes bytes) {
    if (ended_)
        return;
    head.big_endian = wire::is_big(origin_.order);
    const auto front = bytes_of_head(head);
    const auto size = static_cast<uint32_t>(front.size() + bytes.size());
    const uint64_t time = nanoseconds_now();
    begin_block(kPacket);
    put(static_cast<uint32_t>(interface_of(head.kind)));
    put(static_cast<uint32_t>(time >> 32));
    put(static_cast<uint32_t>(time));
    put(size); // here
    put(size); // on the line
    wire::append(blocks_, front);
    put_padded(bytes);
    end_block();
    if (blocks_.size() > kGathered)
        flush();
}

// The length stands at both ends of a block, and is known behind it.
void Writer::begin_block(uint32_t type) {
    block_ = blocks_.size();
    put(type);
    put(0);
}

void Writer::end_block() {
    const auto size = static_cast<uint32_t>(blocks_.size() - block_ + sizeof(uint32_t));
    wire::store(blocks_, block_ + sizeof(uint32_t), sizeof size, origin_.order, size);
    put(size);
}

void Writer::put(uint32_t value, size_t width) {
    const size_t at = blocks_.size();
    blocks_.resize(at + width);
    wire::store(blocks_, at, width, origin_.order, value);
}

void Writer::put_padded(wire::Bytes bytes) {
    wire::append(blocks_, bytes);
    blocks_.resize((blocks_.size() + 3) / 4 * 4);
}

void Writer::put_option(uint16_t code, wire::Bytes bytes) {
    put(code, sizeof code);
    put(static_cast<uint32_t>(bytes.size()), sizeof(uint16_t));
    put_padded(bytes);
}

void Writer::flush() {
    for (size_t at = 0; at < blocks_.size() && !ended_;) {
        const ssize_t length = write(fd_, blocks_.data() + at, blocks_.size() - at);
        if (length > 0)
            at += static_cast<size_t>(length);
        else if (length == 0 || errno != EINTR)
            give_up();
    }
    written_ += ended_ ? 0 : blocks_.size();
    blocks_.clear();
}

// What can be read stays: the blocks of earlier flushes.
void Writer::give_up() {
    std::fprintf(stderr, "%s: %s: %s: the recording ends here, the connections go on\n", origin_.program.c_str(),
                 path_.c_str(), std::strerror(errno));
    ended_ = true;
    static_cast<void>(ftruncate(fd_, static_cast<off_t>(written_)) == 0); // a pipe has nothing to cut
}

} // namespace recording
