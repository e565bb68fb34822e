// VLAN sets as compressed text: lines in the log, and lines in a caller's buffer.
#include "base/bits.h"
#include "base/log.h"

#include <bridge/vlan_db.h>
#include <bridge/vlan_list.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace bri::vlan {

namespace {

constexpr int kMostItems = 20; // of one line in a caller's buffer

// A caller's line holds 129 characters and a last item. It never gets that far: 20 items of at most 5 characters, and
// one more where the last item ends a run.
static_assert(4 + kMostItems * 5 < 129);

// Calls fn(first, last) for each run of neighbouring ids from `start` on, rising, while it gives true.
template <class Fn> void for_each_run(const vlanset &set, unsigned start, Fn &&fn) {
    unsigned first = 0;
    unsigned last = 0;
    bool open = false;
    bool go_on = true;
    bits::for_each(set.words, start, BRI_VID_MAX, [&](unsigned vid) {
        if (open && vid == last + 1) {
            last = vid;
            return true;
        }
        go_on = !open || fn(first, last);
        first = last = vid;
        open = true;
        return go_on;
    });
    if (open && go_on)
        fn(first, last);
}

// One line of the log, filled item by item.
class LogLine {
  public:
    // Lines are cut to what the buffer holds.
    explicit LogLine(uint32_t width) : width_(std::min<size_t>(width, sizeof text_ - 1)) {}

    void add(unsigned first, unsigned last) {
        char item[sizeof "4094-4094"];
        if (first == BRI_VID_MIN && last == BRI_VID_MAX)
            std::snprintf(item, sizeof item, "ALL");
        else if (first == last)
            std::snprintf(item, sizeof item, "%d", static_cast<int>(first));
        else
            std::snprintf(item, sizeof item, "%d-%d", static_cast<int>(first), static_cast<int>(last));
        append(item);
    }

    void write() const { BRI_LOG(log::kPrint, "%-25s %s\n", " ", text_); }

  private:
    // A first item stands on its line however narrow that is.
    void append(const char *item) {
        const size_t size = std::strlen(item);
        if (length_ != 0 && length_ + size + 1 > width_) {
            write();
            length_ = 0;
        }
        if (length_ != 0)
            text_[length_++] = ',';
        std::memcpy(text_ + length_, item, size + 1);
        length_ += size;
    }

    char text_[256] = {};
    size_t length_ = 0;
    size_t width_;
};

} // namespace

} // namespace bri::vlan

using namespace bri;
using namespace bri::vlan;

void vl_clnt_show_vlanlist(const struct vlanset *set, uint32_t width) {
    if (set == nullptr)
        return;
    vlan::LogLine line(width);
    vlan::for_each_run(*set, BRI_VID_MIN, [&](unsigned first, unsigned last) {
        line.add(first, last);
        return true;
    });
    line.write();
}

int vl_clnt_vlist_vlan_line_format(char *buf, const struct vlanset *set, int start_vid, int max_items) {
    if (buf == nullptr || set == nullptr)
        return 0;
    const int limit = std::min(max_items, vlan::kMostItems);
    *buf = '\0';
    int count = 0;
    int next = 0;
    vlan::for_each_run(*set, static_cast<unsigned>(std::max(start_vid, 0)), [&](unsigned first, unsigned last) {
        buf += std::sprintf(buf, count == 0 ? "%d" : ",%d", static_cast<int>(first));
        const bool cut = ++count > 1 && count >= limit;
        if (cut) {
            next = static_cast<int>(first);
        } else if (last != first) {
            buf += std::sprintf(buf, "-%d", static_cast<int>(last));
            ++count;
        }
        return !cut;
    });
    return next;
}
