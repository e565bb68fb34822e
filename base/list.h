// Intrusive circular doubly linked list: a self-pointing head, append at the tail, walk head to tail.
#pragma once

#include <bridge/base.h>

namespace bri::list {

inline void init(bri_list &head) {
    head.next = head.prev = &head;
}

[[nodiscard]] inline bool empty(const bri_list &head) {
    return head.next == &head;
}

inline void append(bri_list &head, bri_list &node) {
    node.next = &head;
    node.prev = head.prev;
    head.prev->next = &node;
    head.prev = &node;
}

inline void unlink(bri_list &node) {
    node.prev->next = node.next;
    node.next->prev = node.prev;
    init(node);
}

// Calls fn(Node&) for each node; Node's first member is a bri_list. Nodes that fn appends are visited too; fn does not
// free nodes.
template <class Node, class Fn> inline void for_each(bri_list &head, Fn &&fn) {
    for (bri_list *link = head.next; link != &head; link = link->next)
        fn(*reinterpret_cast<Node *>(link));
}

// The oldest node, or null. `while (Node *node = first<Node>(head))` drains a list whose nodes are unlinked on the way.
template <class Node> [[nodiscard]] inline Node *first(bri_list &head) {
    // NOLINTNEXTLINE(clang-analyzer-unix.Malloc): a drained node was unlinked before it was freed
    return empty(head) ? nullptr : reinterpret_cast<Node *>(head.next);
}

} // namespace bri::list
