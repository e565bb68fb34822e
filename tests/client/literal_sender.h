// Sending in its plainest form, to hold the library's against: the whole buffer is cleared behind each flush, and each
// run that waits is written by a call of its own. What it does not do as the library is speed alone.
#pragma once

#include "tests/client/transport_fixture.h"

#include <deque>

namespace test {

// A socket that takes `room` bytes and then gives `error`.
class Wire {
  public:
    void set(size_t room, int error) {
        room_ = room;
        error_ = error;
    }
    ssize_t take(const uint8_t *bytes, size_t size) {
        const size_t taken = std::min(size, room_);
        room_ -= taken;
        seen_.insert(seen_.end(), bytes, bytes + taken);
        if (taken != 0 || size == 0)
            return static_cast<ssize_t>(taken);
        errno = error_;
        return -1;
    }
    [[nodiscard]] const ByteVec &seen() const { return seen_; }

  private:
    ByteVec seen_;
    size_t room_ = SIZE_MAX;
    int error_ = EAGAIN;
};

class LiteralSender {
  public:
    LiteralSender(std::string name, size_t cache_max) : name_(std::move(name)), cache_max_(cache_max) {}

    int send(const void *data, uint32_t len, uint32_t type) {
        if (len > BRI_PAYLOAD_MAX)
            return refuse("Client send msg failed: msg-len[" + number(len) + "] is too large.\n");
        if (msg_len() + 8 + len > BRI_BATCH_MSG_MAX)
            flush();
        uint8_t *place = buffer_.data() + 8 + msg_len();
        put_at(place, 0, type);
        put_at(place, 4, len);
        if (data != nullptr && len != 0)
            std::memcpy(place + 8, data, len);
        put_at(buffer_.data(), 0, msg_len() + 8 + len);
        put_at(buffer_.data(), 4, msg_cnt() + 1);
        if (type >> 7 == 1 || type >> 7 == 5 || type == MAC_EVENT_DYN_FLUSH || type == MVLAN_EVENT_NOTIFY_ENTRY)
            flush();
        return 0;
    }

    int send_ontime(const void *data, uint32_t len, uint32_t type) {
        if (len > BRI_PAYLOAD_MAX)
            return refuse("Client send msg failed!\n");
        ByteVec payload(len);
        if (data != nullptr && len != 0)
            std::memcpy(payload.data(), data, len);
        Waiting own{batch_of({{type, payload}}), 0, false};
        const bool memory = !std::exchange(memory_short, false);
        if (memory && complete_half_written() && write_all(own))
            return 0;
        if (own.written != 0) {
            own.given_up = true;
            cache_.push_front(own);
            ++cached;
        }
        return refuse("Client send msg failed!\n");
    }

    void flush() {
        if (drain())
            write_batch();
        else if (msg_len() != 0) {
            say("[" + name_ + "] Failed to send cached msg and try to enqueue again.\n");
            keep(0);
        }
        buffer_ = ByteVec(BRI_BATCH_BUFFER_SIZE);
    }

    bool drain() {
        while (!cache_.empty()) {
            Waiting &run = cache_.front();
            const ssize_t sent = wire.take(run.bytes.data() + run.written, run.bytes.size() - run.written);
            if (sent > 0)
                run.written += static_cast<uint32_t>(sent);
            if (run.written == run.bytes.size()) {
                leave(run);
                continue;
            }
            say("[" + name_ + "] Socket send FAIL, ret " + bri_strerror(sent < 0 && !would_block() ? -5 : -6) +
                ", written_len " + number(sent > 0 ? sent : 0) + ", left_len.\n");
            return false;
        }
        return true;
    }

    // The connection is lost: what was cut starts anew, unless its sender knows that it failed.
    void reset() {
        if (cache_.empty() || cache_.front().written == 0)
            return;
        if (cache_.front().given_up)
            cache_.pop_front();
        else
            cache_.front().written = 0;
    }

    [[nodiscard]] std::vector<std::pair<uint32_t, uint32_t>> waiting() const {
        std::vector<std::pair<uint32_t, uint32_t>> all;
        for (const Waiting &run : cache_)
            all.emplace_back(static_cast<uint32_t>(run.bytes.size()), run.written);
        return all;
    }

    Wire wire;
    bool memory_short = false; // for the next run
    std::vector<std::string> lines;
    uint64_t batches = 0, messages = 0, bytes = 0, cached = 0, dropped = 0, refused = 0;

  private:
    struct Waiting {
        ByteVec bytes;
        uint32_t written;
        bool given_up;
    };

    template <class T> static std::string number(T value) { return std::to_string(static_cast<int>(value)); }
    static bool would_block() { return errno == EAGAIN || errno == EINTR; }
    [[nodiscard]] uint32_t msg_len() const { return value_at<uint32_t>(buffer_.data(), 0); }
    [[nodiscard]] uint32_t msg_cnt() const { return value_at<uint32_t>(buffer_.data(), 4); }
    void say(const std::string &line) { lines.push_back(line); }
    int refuse(const std::string &line) {
        ++refused;
        say(line);
        return -1;
    }

    void count(const ByteVec &batch) {
        ++batches;
        messages += value_at<uint32_t>(batch.data(), 4);
        bytes += 8 + value_at<uint32_t>(batch.data(), 0);
    }
    void leave(const Waiting &run) {
        count(run.bytes);
        cache_.pop_front();
    }
    void keep(uint32_t written) {
        if (written == 0 && cache_.size() >= cache_max_)
            say("Failed to create msg node, reach maximun cache msg.\n");
        else if (std::exchange(memory_short, false))
            say("Failed to create msg node.\n");
        else {
            cache_.push_back({part_of(buffer_, 0, 8 + msg_len()), written, false});
            ++cached;
            return;
        }
        ++dropped;
    }
    void write_batch() {
        if (msg_len() == 0)
            return;
        const uint32_t size = 8 + msg_len();
        const ssize_t sent = wire.take(buffer_.data(), size);
        if (sent == static_cast<ssize_t>(size)) {
            count(buffer_);
            say("[" + name_ + "] Msg send SUCC: msg-cnt " + number(msg_cnt()) + ", msg-len " + number(msg_len()) +
                ".\n");
        } else if (sent > 0 || would_block())
            keep(sent > 0 ? static_cast<uint32_t>(sent) : 0);
        else
            say("[" + name_ + "] Msg send FAIL: error socket.\n");
    }
    // Five attempts that move nothing end it, or one whose failure lasts.
    bool write_all(Waiting &run) {
        for (int failures = 0; run.written < run.bytes.size();) {
            const ssize_t sent = wire.take(run.bytes.data() + run.written, run.bytes.size() - run.written);
            if (sent > 0)
                run.written += static_cast<uint32_t>(sent);
            else if (!would_block() || ++failures == 5)
                return false;
        }
        count(run.bytes);
        return true;
    }
    bool complete_half_written() {
        if (cache_.empty() || cache_.front().written == 0)
            return true;
        if (!write_all(cache_.front()))
            return false;
        cache_.pop_front();
        return true;
    }

    std::string name_;
    size_t cache_max_;
    ByteVec buffer_ = ByteVec(BRI_BATCH_BUFFER_SIZE);
    std::deque<Waiting> cache_;
};

} // namespace test
