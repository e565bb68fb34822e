#include "tools/recording/reader.h"

#include "tools/recording/blocks.h"
#include "wire/value.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace recording {

namespace {

using wire::Bytes;
using wire::Order;

constexpr size_t kWord = sizeof(uint32_t);
constexpr size_t kBlockFrame = 3 * kWord; // type, size, and the size again
constexpr size_t kOptionHead = 4;
constexpr size_t kSectionFields = 16;
constexpr size_t kInterfaceFields = 8;
constexpr size_t kPacketFields = 20;
constexpr unsigned kUsualResolution = 6;      // microseconds, when a block says nothing
constexpr uint64_t kMostTime = INT64_MAX / 2; // nanoseconds: leaves room to add and subtract

constexpr size_t padded(size_t size) {
    return (size + kWord - 1) / kWord * kWord;
}

class Parser {
  public:
    Parser(Bytes bytes, std::string_view name) : left_(bytes), name_(wire::printable(name)) {}

    Recording parse(size_t most);

  private:
    struct Block {
        uint32_t type;
        Bytes body;
    };

    [[noreturn]] void fail(const std::string &what) const { throw std::runtime_error(name_ + ' ' + what); }
    [[nodiscard]] std::string here() const { return "packet " + std::to_string(packets_.size() + 1); }
    [[noreturn]] void damaged(const std::string &what) const { fail("is damaged at " + here() + ": " + what); }
    [[noreturn]] void cut() const;

    [[nodiscard]] uint32_t word(Bytes bytes, size_t at, size_t width = kWord) const {
        return wire::load(bytes, at, width, order_);
    }
    void take_section();
    Block next_block();
    [[nodiscard]] Bytes option(Bytes options, uint16_t wanted) const;
    void take_interface(Bytes body);
    void take_packet(Bytes body);
    [[nodiscard]] Head head_of(Bytes packet) const;
    [[nodiscard]] Time time_of(Bytes body, unsigned digits) const;

    Bytes left_;
    std::string name_;
    Order order_ = Order::kLittle;
    std::vector<unsigned> interfaces_; // the digits of each one's times
    std::vector<Packet> packets_;
};

void Parser::cut() const {
    const std::string whole = std::to_string(packets_.size());
    fail("is cut behind packet " + whole +
         (packets_.empty() ? std::string() : "; --until " + whole + " plays what is whole"));
}

// The first block tells the order in which all numbers are.
void Parser::take_section() {
    constexpr size_t least = kBlockFrame + kSectionFields;
    const bool begins = left_.size() >= least && wire::load(left_, 0, kWord, Order::kBig) == kSection;
    const std::string foreign = "is no recording of the bridge service";
    if (!begins)
        fail(foreign);
    if (wire::load(left_, 2 * kWord, kWord, Order::kLittle) != kByteOrderMagic) {
        order_ = Order::kBig;
        if (word(left_, 2 * kWord) != kByteOrderMagic)
            fail(foreign);
    }
    const Bytes body = next_block().body;
    const Bytes comment = body.size() < kSectionFields ? Bytes() : option(body.subspan(kSectionFields), kComment);
    if (!nlohmann::json::parse(comment.begin(), comment.end(), nullptr, false).contains("vsdid"))
        fail(foreign);
}

Parser::Block Parser::next_block() {
    if (left_.size() < kBlockFrame)
        cut();
    const uint32_t type = word(left_, 0);
    const uint32_t size = word(left_, kWord);
    if (size < kBlockFrame || size % kWord != 0)
        damaged("a block of " + std::to_string(size) + " bytes");
    if (size > left_.size())
        cut();
    if (word(left_, size - kWord) != size)
        damaged("a block whose two sizes differ");
    const Bytes body = left_.subspan(2 * kWord, size - kBlockFrame);
    left_ = left_.subspan(size);
    return {type, body};
}

// The value of the first option of that code; nothing without one.
Bytes Parser::option(Bytes options, uint16_t wanted) const {
    while (options.size() >= kOptionHead) {
        const uint32_t code = word(options, 0, 2);
        const size_t size = word(options, 2, 2);
        options = options.subspan(kOptionHead);
        if (code == kEnd || size > options.size())
            return {};
        if (code == wanted)
            return options.first(size);
        options = options.subspan(std::min(padded(size), options.size()));
    }
    return {};
}

void Parser::take_interface(Bytes body) {
    if (body.size() < kInterfaceFields)
        damaged("an interface without its fields");
    const uint32_t link_type = word(body, 0, 2);
    if (link_type != kLinkType)
        fail("has packets of another kind: link type " + std::to_string(link_type));
    const Bytes resolution = option(body.subspan(kInterfaceFields), kTimeResolution);
    interfaces_.push_back(resolution.empty() ? kUsualResolution : resolution[0]);
    if (interfaces_.back() > kNanoseconds)
        damaged("times in a unit of its own");
}

Time Parser::time_of(Bytes body, unsigned digits) const {
    uint64_t time = uint64_t{word(body, kWord)} << 32 | word(body, 2 * kWord);
    for (; digits < kNanoseconds; ++digits)
        time = time > kMostTime / 10 ? kMostTime : time * 10;
    return Time(static_cast<int64_t>(std::min(time, kMostTime)));
}

Head Parser::head_of(Bytes packet) const {
    if (packet.size() < kHeadSize)
        damaged(std::to_string(packet.size()) + " bytes, which is less than a head");
    if (packet[0] != kVersion)
        damaged("a head of version " + std::to_string(packet[0]));
    if (packet[1] > 1 || packet[2] > 1 || packet[3] > static_cast<uint8_t>(Kind::kConnection))
        damaged("a head that says nothing");
    if (packet[3] == static_cast<uint8_t>(Kind::kConnection) &&
        (packet.size() == kHeadSize || packet[kHeadSize] > static_cast<uint8_t>(Change::kClosedByServer)))
        damaged("a connection that neither opens nor closes");
    return {static_cast<Way>(packet[1]),
            packet[2] == 1,
            static_cast<Kind>(packet[3]),
            wire::load(packet, 4, kWord, Order::kBig),
            static_cast<Table>(packet[8]),
            packet[9],
            wire::load(packet, 12, kWord, Order::kBig)};
}

void Parser::take_packet(Bytes body) {
    const size_t size = body.size() < kPacketFields ? 0 : word(body, 3 * kWord);
    if (body.size() < kPacketFields || size > body.size() - kPacketFields)
        damaged("it runs past its block");
    if (word(body, 0) >= interfaces_.size())
        damaged("an interface that the file does not have");
    const Bytes packet = body.subspan(kPacketFields, size);
    const Head head = head_of(packet);
    packets_.push_back(
        {packets_.size() + 1, time_of(body, interfaces_[word(body, 0)]), head, packet.subspan(kHeadSize)});
}

Recording Parser::parse(size_t most) {
    take_section();
    while (!left_.empty() && packets_.size() < most) {
        const Block block = next_block();
        if (block.type == kSection)
            fail("is several recordings in one");
        if (block.type == kInterface)
            take_interface(block.body);
        else if (block.type == kPacket)
            take_packet(block.body);
    }
    return {{}, std::move(packets_)};
}

} // namespace

Recording read(wire::Buffer bytes, std::string_view name, size_t most) {
    Recording recording = Parser(bytes, name).parse(most);
    recording.bytes = std::move(bytes); // the packets' bytes stay where they are
    return recording;
}

Recording read_file(const std::string &path, size_t most) {
    std::ifstream file(path, std::ios::binary);
    wire::Buffer bytes(std::istreambuf_iterator<char>(file), {});
    if (!file.is_open() || file.bad())
        throw std::runtime_error("cannot read " + wire::printable(path) + ": " + std::strerror(errno));
    return read(std::move(bytes), path, most);
}

} // namespace recording
