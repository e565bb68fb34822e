// The plain forms of the roads of a message: every batch into a cleared buffer, every line asked for one by one, every
// handler looked at for every event.
#pragma once

#include "base/log.h"
#include "client/state.h"
#include "client/transport.h"

#include <bridge/bridge.h>

#include <cstring>

namespace reference {

inline int number(uint32_t value) {
    return static_cast<int>(value);
}

// A node of the list of handlers, as it lies there.
struct Handler {
    bri_list link;
    event_set set;
    bri_event_handler func;
};

inline bool admits(uint32_t type, const char *name) {
    const uint32_t bit = type & 0xFFFF;
    if (bri::client::g_state.slave != 0)
        return false;
    if (bit >= 4096 || (g_bridge_client->event_set.words[bit >> 5] >> (bit & 31) & 1) == 0) {
        BRI_LOG(bri::log::kClient, "[%s] dose not care this event[%s, %d].\n", name, bri_msg_type_name(type),
                number(type));
        return false;
    }
    if (bri::client::g_state.sync_state != 2 && type >> 7 != 1) {
        BRI_LOG(bri::log::kClient, "[%s] data-sync is not end, ignored[%d].\n", name, number(type));
        return false;
    }
    return true;
}

inline void call_event_handlers(uint32_t type, void *data, uint32_t len) {
    const char *name = g_bridge_client->name;
    if (!admits(type, name))
        return;
    const uint32_t bit = type & 0xFFFF;
    const bri_list &head = g_bridge_client->handlers;
    for (const bri_list *link = head.next; link != &head; link = link->next) {
        const auto *node = reinterpret_cast<const Handler *>(link);
        if ((node->set.words[bit >> 5] >> (bit & 31) & 1) == 0 || node->func == nullptr)
            continue;
        node->func(type, data, static_cast<uint16_t>(len));
        BRI_LOG(bri::log::kClient, "[%s] event[%s, %d] is handled.\n", name, bri_msg_type_name(type), number(type));
    }
}

inline void take_message(bri_msg_hdr *message) {
    bri_msg_hdr header;
    std::memcpy(&header, message, sizeof header);
    BRI_LOG(bri::log::kClient, "A msg Start...\n");
    BRI_LOG(bri::log::kClient, "[%s] recv msg: type[%s, %d], len[%d].\n", g_bridge_client->name,
            bri_msg_type_name(header.type), number(header.type), number(header.len));
    if (bri_clnt_msg_delay_process(message) != 0)
        BRI_LOG(bri::log::kClient, "Msg received is delayed to process.\n");
    else
        bridge_client_msg_dspch(message);
    BRI_LOG(bri::log::kClient, "\n");
    BRI_LOG(bri::log::kClient, "\n");
}

// False when host code reset the connection on the way.
inline bool take_messages(uint8_t *messages, uint32_t size, uint32_t count) {
    const uint32_t connection = bri::client::connection_number();
    uint32_t offset = 0;
    for (; count != 0 && offset < size; --count) {
        bri_msg_hdr header{};
        const bool cut = size - offset < sizeof header;
        if (!cut)
            std::memcpy(&header, messages + offset, sizeof header);
        if (cut || uint64_t{offset} + sizeof header + header.len > size) {
            BRI_LOG(bri::log::kClient, "[%s] batch-msg ends inside a msg, rest discarded.\n", g_bridge_client->name);
            return true;
        }
        take_message(reinterpret_cast<bri_msg_hdr *>(messages + offset));
        if (bri::client::connection_number() != connection)
            return false;
        offset += static_cast<uint32_t>(sizeof header) + header.len;
    }
    return true;
}

// Read errors are told of by the library's own lines; here none is written.
inline bool read_batch() {
    uint8_t *buffer = g_bglib_recvbuf;
    std::memset(buffer, 0, BRI_BATCH_BUFFER_SIZE);
    bri_batch_hdr batch{};
    if (bridge_readn(g_bridge_client->sock, buffer, sizeof batch) != static_cast<int>(sizeof batch))
        return false;
    std::memcpy(&batch, buffer, sizeof batch);
    return batch.msg_len <= BRI_BATCH_MSG_MAX &&
           bridge_readn(g_bridge_client->sock, buffer + sizeof batch, batch.msg_len) == static_cast<int>(batch.msg_len);
}

inline int read_job(void *) {
    if (!read_batch()) {
        bridge_client_connect_reset();
        bri::client::reconnect();
        return -1;
    }
    bri_batch_hdr batch{};
    std::memcpy(&batch, g_bglib_recvbuf, sizeof batch);
    BRI_LOG(bri::log::kClient, "[%s] batch-msg received: msg-cnt %d, msg-len %d.\n", g_bridge_client->name,
            number(batch.msg_cnt), number(batch.msg_len));
    return take_messages(g_bglib_recvbuf + sizeof batch, batch.msg_len, batch.msg_cnt)
               ? bridge_client_thread_event(BRI_CLNT_EVT_READ)
               : bri::client::reconnect();
}

} // namespace reference
