// A daemon on the host layer: its callbacks and handlers write down what they are told, the test plays the server.
#pragma once

#include "client/state.h"
#include "tests/support/kernel.h"
#include "tests/support/server.h"
#include "tests/support/started_host.h"

#include <bridge/host.h>
#include <bridge/sets.h>

#include <deque>
#include <functional>
#include <string>
#include <vector>

namespace test {

using Told = std::vector<std::string>;

class Layer : public StartedHost {
  public:
    void write(const std::string &line) {
        const faults::Pause pause;
        told.push_back(line);
        if (during)
            during(line);
    }

  protected:
    Layer() {
        config.size = sizeof config;
        config.name = "unit";
        config.master = loop().master();
        config.context = this;
        config.on_connection = [](int up, void *self) { tell(self, up != 0 ? "up" : "down"); };
        config.on_role = [](enum bridge_host_role role, void *self) {
            static const char *const names[] = {"unknown", "slave", "master"};
            tell(self, names[role]);
        };
        config.on_resync_begin = [](uint32_t submod, void *self) { tell(self, "begin " + std::to_string(submod)); };
        config.on_resync_end = [](uint32_t submod, int complete, void *self) {
            tell(self, (complete != 0 ? "end " : "cut ") + std::to_string(submod));
        };
        config.on_vanished = [](const bridge_host_vanished *what, void *self) {
            tell(self, "vanished " + text_of(*what));
        };
    }

    bridge_host_config config{};
    std::vector<bridge_host_handler> rows;
    Told told;
    std::function<void(const std::string &)> during; // what a callback or handler does beside writing down

    // Adds a row for an event, whose handler writes "event TYPE" down and keeps the record.
    void follow(uint32_t event, uint16_t least = 0) {
        contexts_.push_back({this, event});
        rows.push_back({event, least, on_event, &contexts_.back()});
    }
    struct Record {
        ByteVec bytes;
        bool null;
        bool aligned; // to 4 bytes
    };
    std::vector<Record> records;

    int start_layer() {
        config.handlers = rows.data();
        config.handler_count = static_cast<uint32_t>(rows.size());
        testing::internal::CaptureStdout();
        const int result = bridge_host_start(&config);
        testing::internal::GetCapturedStdout();
        faults::clear();
        return result;
    }
    // Started, connected, master, past the backup data; what was told on the way is forgotten.
    void start_synchronised() {
        ASSERT_EQ(start_layer(), 0);
        connect();
        synchronise();
        sent();
        told.clear();
    }

    // A connection stands: the connect callbacks have run.
    void connect() {
        peer_ = attach_pair();
        bri::client::run_callbacks(ctx().conn_cbs);
        ctx().conn_done = 1;
    }
    void lose_connection() {
        bridge_client_connect_reset();
        peer_.close();
    }
    Peer &peer() { return peer_; }
    std::vector<Message> sent() {
        bri::client::flush_job(nullptr);
        loop().pending.erase(std::find_if(loop().pending.begin(), loop().pending.end(),
                                          [](const Job &job) { return job.name == "bri-msg-timer"; }));
        return peer_.read_messages();
    }
    [[nodiscard]] std::vector<uint32_t> types_sent() {
        std::vector<uint32_t> types;
        for (const Message &message : sent())
            types.push_back(message.type);
        return types;
    }
    static void tick(int times = 1) {
        while (times-- > 0)
            ASSERT_NE(loop().run("host-tick"), -1000);
    }

    static void deliver(uint32_t type, const ByteVec &payload = {}) {
        test::deliver(bridge_client_msg_dspch, type, payload);
    }
    static void set_role(bool slave) { deliver(BRIDGE_EVEVT_SERVER_STAT, {static_cast<uint8_t>(slave)}); }
    static void backup() {
        deliver(BRIDGE_EVENT_BKUP_DATA_BEGIN);
        deliver(BRIDGE_EVENT_BKUP_DATA_END);
    }
    static void synchronise() {
        set_role(false);
        backup();
        deliver(BRIDGE_EVENT_SYNC_DATA_END);
    }
    // The server's answer when it is asked for the addresses.
    static void answer_addresses(const std::vector<bri_mac_msg> &records) {
        deliver(MAC_EVENT_SYNC_DATA_BEGIN);
        for (const bri_mac_msg &record : records)
            deliver(MAC_EVENT_NOTIFY_ADDR, bytes_of(record));
        deliver(MAC_EVENT_SYNC_DATA_END);
    }
    static bri_mac_msg address(uint8_t last, uint32_t oper = BRI_MAC_ADD, uint16_t vid = 10, uint32_t ifx = 3) {
        bri_mac_msg record{};
        record.oper = oper;
        record.entry.field = BRI_MAC_FIELD_MAC | BRI_MAC_FIELD_IFX | BRI_MAC_FIELD_TYPE | BRI_MAC_FIELD_BCAST_ID;
        record.entry.mac[5] = last;
        record.entry.bcast_id = vid;
        record.entry.ifx = ifx;
        record.entry.type = BRI_MAC_TYPE_DYNAMIC;
        return record;
    }

    // The tables.
    static void range() { vl_set_vlan_range(1, 4094); }
    static void add_port(int32_t ifx, uint32_t mode = BRI_PORT_TRUNK) {
        swport_get_raw_spcb(ifx)->mode = mode;
        swport_get_raw_spcb(ifx)->ifx = static_cast<uint32_t>(ifx);
    }
    static void remove_port(int32_t ifx) { *swport_get_raw_spcb(ifx) = spcb{}; }

  private:
    struct RowContext {
        Layer *layer;
        uint32_t event;
    };
    static void on_event(const void *record, uint16_t size, void *context) {
        const auto &row = *static_cast<const RowContext *>(context);
        const auto *bytes = static_cast<const uint8_t *>(record);
        {
            const faults::Pause pause;
            row.layer->records.push_back({record != nullptr ? ByteVec(bytes, bytes + size) : ByteVec(),
                                          record == nullptr, reinterpret_cast<uintptr_t>(record) % 4 == 0});
        }
        row.layer->write("event " + std::to_string(row.event));
    }
    static void tell(void *self, const std::string &line) { static_cast<Layer *>(self)->write(line); }
    static std::string text_of(const bridge_host_vanished &what) {
        char mac[BRI_MAC_TEXT_SIZE];
        switch (what.kind) {
        case BRIDGE_HOST_VLAN:
            return "vlan " + std::to_string(what.vid);
        case BRIDGE_HOST_PORT:
            return "port " + std::to_string(what.ifx);
        case BRIDGE_HOST_ADDRESS:
            bri_mac_to_text(what.address.mac, mac, sizeof mac);
            return std::string(mac) + " " + std::to_string(what.vid) + " " + std::to_string(what.ifx);
        }
        return "?";
    }
    Peer peer_;
    std::deque<RowContext> contexts_;
};

} // namespace test
