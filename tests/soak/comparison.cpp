#include "tests/soak/comparison.h"

#include <utility>

namespace soak {

namespace {

std::string text_of(char kind, uint32_t number) {
    switch (kind) {
    case 'e':
        return "event " + std::to_string(number);
    case 'q':
        return "a request that came back";
    case 'b':
        return "the begin of a switch-over";
    default:
        return "the end of the backup data";
    }
}

} // namespace

Comparison::Comparison(const Links &links, const std::vector<Seen> &seen, Same same)
    : links_(links), seen_(seen), same_(std::move(same)) {}

bool Comparison::at_match() const {
    const std::vector<Item> &items = links_[at_.link]->items;
    return !at_.leave && at_.item < items.size() && at_.seen < seen_.size() && same_(items[at_.item], seen_[at_.seen]);
}

bool Comparison::may_leave() const {
    const Link &link = *links_[at_.link];
    return at_.item == link.items.size() || (link.over && link.items[at_.item].end > link.written);
}

// Only events carry a number that says which one was seen. Anything else of a connection that is over may as well be
// lost, and what was seen the next connection's: whichever fits what follows.
void Comparison::take_item() {
    const Link &link = *links_[at_.link];
    if (link.items[at_.item].kind != 'e' && link.over)
        choices_.push_back({at_.link, at_.item, at_.seen, true});
    ++at_.item;
    ++at_.seen;
}

void Comparison::next_link() {
    delivered_.push_back(at_.item);
    at_ = {at_.link + 1, 0, at_.seen, false};
}

bool Comparison::take_back() {
    if (choices_.empty())
        return false;
    at_ = choices_.back();
    choices_.pop_back();
    delivered_.resize(at_.link);
    return true;
}

void Comparison::tell_difference() {
    if (!difference_.empty())
        return;
    const std::string has_come =
        at_.seen < seen_.size() ? text_of(seen_[at_.seen].kind, seen_[at_.seen].number) : "nothing more";
    if (at_.link == links_.size()) {
        difference_ = has_come + " has come, nothing more was sent";
        return;
    }
    const Link &link = *links_[at_.link];
    difference_ = "connection " + std::to_string(at_.link + 1) + " of " + std::to_string(links_.size()) + ": ";
    difference_ += has_come + " has come in place of item " + std::to_string(at_.item + 1) + " of " +
                   std::to_string(link.items.size());
    if (at_.item < link.items.size())
        difference_ += ", " + text_of(link.items[at_.item].kind, link.items[at_.item].number) +
                       (link.items[at_.item].end <= link.written ? ", which was written" : "");
}

bool Comparison::agree() {
    while (at_.link != links_.size() || at_.seen != seen_.size()) {
        if (at_.link != links_.size() && at_match()) {
            take_item();
            continue;
        }
        if (at_.link != links_.size() && may_leave()) {
            next_link();
            continue;
        }
        tell_difference();
        if (!take_back())
            return false;
    }
    return true;
}

} // namespace soak
