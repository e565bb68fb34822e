#include "tests/soak/books.h"

#include "tests/soak/comparison.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace soak {

namespace {

constexpr size_t kFraming = sizeof(bri_batch_hdr) + sizeof(bri_msg_hdr);
constexpr size_t kSyncMessages = 4; // role, begin and end of the backup data, end of the synchronisation, in one batch
constexpr size_t kSyncBytes = sizeof(bri_batch_hdr) + kSyncMessages * sizeof(bri_msg_hdr) + 1;
constexpr size_t kOriginMessages = 2; // begin and end of the addresses, in one batch
constexpr size_t kOriginBytes = sizeof(bri_batch_hdr) + kOriginMessages * sizeof(bri_msg_hdr);
constexpr size_t kMostFaults = 20;

bool starts_with(const std::string &text, const char *beginning) {
    return text.compare(0, std::strlen(beginning), beginning) == 0;
}

// 407 of "VLAN_EVENT_MODIFY_INTF_MODE(407)" and of "407".
uint32_t type_of(const std::string &text) {
    const size_t bracket = text.find('(');
    return static_cast<uint32_t>(
        std::strtoul(text.c_str() + (bracket == std::string::npos ? 0 : bracket + 1), nullptr, 10));
}

// "h3" is 3.
int host_of(const std::string &name) {
    const int host = name.size() == 2 && name[0] == 'h' ? name[1] - '0' : -1;
    return host < static_cast<int>(kHosts) ? host : -1;
}

} // namespace

void Books::fault(const std::string &text) {
    if (faults.size() < kMostFaults)
        faults.push_back(text);
}

void Books::event_told(uint32_t type, uint32_t number, size_t size, int host) {
    told_.push_back({'e', type, number, size, host});
}

void Books::debug_told(size_t size, int host) {
    told_.push_back({'d', 0, 0, size, host});
}

void Books::drop_told(int host) {
    told_.push_back({'x', 0, 0, 0, host});
}

std::shared_ptr<Link> Books::find(unsigned id) {
    const auto found = std::find_if(links_.rbegin(), links_.rend(), [&](const auto &link) { return link->id == id; });
    return found == links_.rend() ? nullptr : *found;
}

template <class Fn> unsigned Books::for_open(int host, Fn &&fn) {
    unsigned count = 0;
    for (const auto &link : links_) {
        if (link->over || !link->registered || (host >= 0 && link->host != host))
            continue;
        fn(*link);
        ++count;
    }
    return count;
}

void Books::message(Link &link, size_t size) {
    link.bytes += kFraming + size;
    ++link.messages;
}

void Books::item(Link &link, char kind, uint32_t number) {
    if (link.slave)
        ++totals.held;
    else
        link.items.push_back({kind, number, link.bytes});
}

void Books::server_line(const std::string &line) {
    unsigned id = 0;
    int name_at = 0;
    if (starts_with(line, "client ") && std::sscanf(line.c_str(), "client %u%n", &id, &name_at) == 1) {
        const size_t colon = line.find(": ");
        const size_t bracket = line.find('(');
        const bool named = bracket != std::string::npos && bracket < colon;
        return client_line(id, line.substr(colon + 2), named ? line.substr(bracket + 1, colon - bracket - 2) : "");
    }
    if (starts_with(line, "  "))
        return listed(line);
    if (starts_with(line, "the tables of VSDID "))
        return; // left by a server that was killed, and used
    if (starts_with(line, "event ") && line.find(": to ") == std::string::npos)
        return; // what goes out, of whatever cause; the books follow the causes
    if (starts_with(line, "event ") || starts_with(line, "debug ") || starts_with(line, "drop: "))
        return told_line(line[0], line);
    if (starts_with(line, "error: stall: ") || starts_with(line, "error: resume: "))
        return; // the host has just been dropped
    if (starts_with(line, "error: no such client: "))
        return told_line('d', line);
    if (starts_with(line, "role: "))
        return role(starts_with(line, "role: slave"));
    if (starts_with(line, "switchover: "))
        return switchover(line.find("begin") != std::string::npos, line.find("end") != std::string::npos);
    if (starts_with(line, "restart: "))
        return end_links(-1);
    if (starts_with(line, "clients: ")) {
        if (lists_due_ == 0)
            return fault("nobody asked the server for: " + line);
        --lists_due_;
        all_written_ = listing_written_;
        listing_written_ = true;
        return;
    }
    if (starts_with(line, "listening "))
        ++starts_;
    else if (std::sscanf(line.c_str(), "kernel: up, %*u sockets, %u listen", &kernel_listeners_) == 1)
        return;
    else if (!line.ends_with(": done") && !starts_with(line, "stall: ") && !starts_with(line, "resume: "))
        fault("the server says: " + line);
}

void Books::client_line(unsigned id, const std::string &rest, const std::string &name) {
    if (rest == "connected") {
        links_.push_back(std::make_shared<Link>());
        links_.back()->id = id;
        ++totals.connections;
        return;
    }
    const std::shared_ptr<Link> link = find(id);
    if (link == nullptr || link->over)
        return fault("nobody knows client " + std::to_string(id) + ": " + rest);
    if (starts_with(rest, "registered, ")) {
        ++link->received;
        register_link(*link, name);
    } else if (starts_with(rest, "sent ")) {
        request_line(link, rest);
    } else if (ending && rest == "lost, closed by the client") {
        link->over = true;
    } else if (ending && has_layer(link->host) && rest.find(" events, now ") != std::string::npos) {
        ++link->received; // the layer's last registrations
    } else {
        fault("client " + std::to_string(id) + " (" + name + "): " + rest);
        link->over = true;
    }
}

void Books::register_link(Link &link, const std::string &name) {
    link.host = host_of(name);
    if (link.host < 0)
        return fault("a client named " + name);
    link.registered = true;
    link.slave = slave_;
    link.bytes += kSyncBytes;
    link.messages += kSyncMessages;
    HostBooks &host = hosts[static_cast<size_t>(link.host)];
    if (!host.links.empty())
        host.links.back()->over = true; // the host has left it
    host.links.push_back(find(link.id));
    ++host.registrations;
    host.flood += link.flood;
    item(link, 'u', 0);
}

void Books::request_line(const std::shared_ptr<Link> &link, const std::string &rest) {
    const uint32_t type = type_of(rest.substr(5));
    if (type == BRIDGE_EVENT_REG_MSG)
        return; // entered when the server has registered the client
    ++link->received;
    if (type == SOAK_FLOOD) {
        ++totals.flood;
        ++(link->host < 0 ? link->flood : hosts[static_cast<size_t>(link->host)].flood);
        return;
    }
    if (type == BRIDGE_EVENT_ORI_DATA_REQUEST)
        return origin_request(*link);
    if (type != SOAK_REQUEST)
        return fault("client " + std::to_string(link->id) + " " + rest);
    ++totals.requests;
    const auto place = static_cast<uint32_t>(requests_.size());
    requests_.push_back({link, 0});
    for_open(-1, [&](Link &to) {
        message(to, sizeof(soak_request));
        item(to, 'q', place);
    });
}

// The library's own, once a process, and the layer's on every connection. There are no addresses, and only the layer
// has registered the events around them.
void Books::origin_request(Link &link) {
    if (!has_layer(link.host))
        return;
    link.bytes += kOriginBytes;
    link.messages += kOriginMessages;
}

// The answer to what was told first of what has not been answered yet.
void Books::told_line(char what, const std::string &line) {
    if (what == 'd' && line[0] == 'd' && line[1] == 'r')
        what = 'x';
    if (told_.empty() || told_.front().what != what)
        return fault("nobody asked the server for: " + line);
    const Told told = told_.front();
    told_.pop_front();
    if (what == 'x')
        return end_links(told.host);
    const unsigned count = for_open(told.host, [&](Link &link) {
        message(link, told.size);
        if (what == 'e')
            item(link, 'e', told.number);
    });
    const size_t to = line.rfind(": to ");
    const unsigned said = to == std::string::npos ? 0 : static_cast<unsigned>(std::stoul(line.substr(to + 5)));
    if (said != count)
        fault("sent to " + std::to_string(said) + " clients instead of " + std::to_string(count) + ": " + line);
    if (what == 'e' && type_of(line.substr(6)) != told.type)
        fault("not the event that was asked for: " + line);
}

void Books::role(bool slave) {
    slave_ = slave;
    for_open(-1, [&](Link &link) {
        message(link, 1);
        link.slave = slave;
    });
}

void Books::switchover(bool begin, bool end) {
    slave_ = slave_ && !begin;
    for_open(-1, [&](Link &link) {
        if (begin) {
            message(link, 0);
            link.slave = false;
            item(link, 'b', 0);
        }
        if (end)
            message(link, 0);
    });
}

// "  3 h1 pid 4711 events 6 messages 20 sent 90 queued 17 fresh stalled": what the server itself counts.
void Books::listed(const std::string &row) {
    unsigned id = 0;
    unsigned long long received = 0;
    unsigned long long sent = 0;
    unsigned long long queued = 0;
    const size_t pid = row.rfind(" pid ");
    if (pid == std::string::npos || std::sscanf(row.c_str(), "%u", &id) != 1 ||
        std::sscanf(row.c_str() + pid, " pid %*u events %*u messages %llu sent %llu queued %llu", &received, &sent,
                    &queued) != 3)
        return fault("the server says: " + row);
    const std::shared_ptr<Link> link = find(id);
    if (link == nullptr || sent != link->messages || received != link->received || queued > link->bytes)
        return fault("the server counts otherwise than the books: " + row + ", not sent " +
                     std::to_string(link == nullptr ? 0 : link->messages) + ", messages " +
                     std::to_string(link == nullptr ? 0 : link->received));
    link->written = link->bytes - queued;
    listing_written_ = listing_written_ && queued == 0;
}

void Books::end_links(int host) {
    for (const auto &link : links_)
        if (host < 0 || link->host == host)
            link->over = true;
    std::erase_if(links_, [](const auto &link) { return link->over; });
}

void Books::server_died() {
    end_links(-1);
    told_.clear();
    lists_due_ = 0;
    slave_ = false;
    listing_written_ = true;
}

void Books::host_line(unsigned host, const std::string &line) {
    HostBooks &books = hosts[host];
    const char *text = line.c_str();
    uint32_t sender = 0;
    uint32_t first = 0;
    uint32_t last = 0;
    Report &r = books.report;
    if (line == "u" || line == "b") {
        books.seen.push_back({line[0], 0, 0});
    } else if (std::sscanf(text, "e %u %u", &first, &last) == 2) {
        for (uint32_t number = first; number <= last; ++number)
            books.seen.push_back({'e', 0, number});
        books.last_event = last;
    } else if (std::sscanf(text, "q %u %u %u", &sender, &first, &last) == 3) {
        for (uint32_t number = first; number <= last; ++number)
            books.seen.push_back({'q', sender, number});
        if (sender < kHosts)
            books.last_request[sender] = last;
    } else if (std::sscanf(text,
                           "report requests %lu flood %lu refused %lu dropped %lu cached %lu delayed %lu connects %lu "
                           "bad %lu late %lu heap %lu",
                           &r.requests, &r.flood, &r.refused, &r.dropped, &r.cached, &r.delayed, &r.connects, &r.bad,
                           &r.late, &r.heap) == 10) {
        ++books.reports;
    } // everything else is what the library prints when it is asked to
}

bool Books::all_registered() const {
    unsigned open = 0;
    for (const auto &link : links_)
        open += link->over ? 0U : 1U;
    return open == kHosts && std::all_of(hosts.begin(), hosts.end(), [](const HostBooks &host) {
               return !host.links.empty() && !host.links.back()->over && host.links.back()->registered;
           });
}

void Books::verify_host(unsigned host) {
    HostBooks &books = hosts[host];
    const auto same = [this](const Item &item, const Seen &seen) {
        if (item.kind != 'q' || seen.kind != 'q')
            return item.kind == seen.kind && item.number == seen.number;
        const int sender = requests_[item.number].sender->host;
        return sender < 0 || sender == static_cast<int>(seen.host);
    };
    Comparison comparison(books.links, books.seen, same);
    if (!comparison.agree())
        return fault("h" + std::to_string(host) + ", " + comparison.difference());
    size_t seen = 0;
    for (size_t i = 0; i < books.links.size(); ++i) {
        const size_t delivered = comparison.delivered()[i];
        note_requests(host, i, delivered, seen);
        seen += delivered;
        books.sent += books.links[i]->items.size();
        books.delivered += delivered;
        books.lost += books.links[i]->items.size() - delivered;
        totals.delivered += delivered;
    }
}

// The numbers under which requests came back: the same for every host.
void Books::note_requests(unsigned host, size_t link, size_t items, size_t first_seen) {
    const HostBooks &books = hosts[host];
    for (size_t i = 0; i < items; ++i) {
        const Item &item = books.links[link]->items[i];
        if (item.kind != 'q')
            continue;
        const Seen &seen = books.seen[first_seen + i];
        Request &request = requests_[item.number];
        if (request.number != 0 && request.number != seen.number)
            fault("h" + std::to_string(host) + " has seen request " + std::to_string(seen.number) +
                  " where others saw request " + std::to_string(request.number));
        request.number = seen.number;
    }
}

// On one connection the requests of a host have consecutive numbers, and those of the next one begin higher.
void Books::verify_request(const Request &request) {
    Link &link = *request.sender;
    const uint32_t place = link.requests++;
    if (link.host < 0)
        return;
    HostBooks &sender = hosts[static_cast<size_t>(link.host)];
    const std::string name = " of h" + std::to_string(link.host);
    if (request.number != 0 && link.first_request == 0) {
        link.first_request = request.number - place;
        if (link.first_request <= sender.last_request_sent)
            return fault("request " + std::to_string(link.first_request) + name + " comes again");
        totals.gaps += link.first_request - sender.last_request_sent - 1;
    } else if (request.number != 0 && request.number != link.first_request + place) {
        fault("request " + std::to_string(request.number) + name + " comes in place of " +
              std::to_string(link.first_request + place));
    }
    if (link.first_request != 0)
        sender.last_request_sent = link.first_request + place;
}

void Books::verify() {
    for (unsigned host = 0; host < kHosts; ++host)
        verify_host(host);
    for (const Request &request : requests_)
        verify_request(request);
    for (const Request &request : requests_)
        totals.unknown += request.sender->over && request.sender->first_request == 0 ? 1U : 0U;
    requests_.clear();
    for (HostBooks &host : hosts) {
        host.seen.clear();
        std::erase_if(host.links, [](const auto &link) { return link->over; });
        for (const auto &link : host.links)
            link->items.clear();
    }
}

} // namespace soak
