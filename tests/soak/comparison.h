// Whether what one host has seen is what was sent to it: connection by connection all items in order, or, when the
// connection is over, all but some last ones that the server may not have written.
#pragma once

#include "tests/soak/link.h"

#include <functional>
#include <string>
#include <vector>

namespace soak {

class Comparison {
  public:
    using Same = std::function<bool(const Item &item, const Seen &seen)>;
    Comparison(const Links &links, const std::vector<Seen> &seen, Same same);

    bool agree();
    // How many items of each link were seen, when they agree.
    [[nodiscard]] const std::vector<size_t> &delivered() const { return delivered_; }
    // The first difference, when they do not.
    [[nodiscard]] const std::string &difference() const { return difference_; }

  private:
    // What comes next in the two lists.
    struct Place {
        size_t link;
        size_t item;
        size_t seen;
        bool leave; // the item was not seen although it might be
    };

    [[nodiscard]] bool at_match() const;
    [[nodiscard]] bool may_leave() const;
    void take_item();
    void next_link();
    bool take_back();
    void tell_difference();

    const Links &links_;
    const std::vector<Seen> &seen_;
    Same same_;
    Place at_{0, 0, 0, false};
    std::vector<size_t> delivered_; // of the links before the place
    std::vector<Place> choices_;
    std::string difference_;
};

} // namespace soak
