// The switch's word becomes the bridge's, and the bridge's the switch's.
//
// What the kernel was seen to have stands in `links_` and `fdb_`. A change of the switch's tables is compared with
// that, and what differs is asked of the kernel. What the kernel tells is compared with that, too: what is another than
// before and not what the switch wants has been done by a frame, a cable or a person, and becomes an operation on the
// switch. What the switch refuses is taken back.
#pragma once

#include "frames/memory.h"
#include "frames/view.h"
#include "sandbox/sandbox.h"

namespace frames {

class LinuxBridge : public sandbox::BackEnd, sandbox::Pinned {
  public:
    LinuxBridge(sandbox::Sandbox &sandbox, const std::string &tmpdir, const std::string &name);

    void changed(uint32_t type, Bytes payload) noexcept override;
    void attach(uint32_t ifx, const std::string &device) override;
    void restore() override;

  private:
    using Hosts = std::map<Host, FdbChange>; // the last word about each
    struct ChangeRow;
    static const ChangeRow kChanges[];

    // To the kernel. Each asks for what differs from what is there already.
    void carry_port(uint32_t ifx);
    void carry_port_of(Bytes record) { carry_port(object_of<uint32_t>(record)); }
    void carry_vlans(Bytes record);
    void carry_ports(Bytes record);
    void carry_svi(Bytes record);
    void carry_addresses(Bytes records);
    void carry_ageing(Bytes record);
    void carry_learning(Bytes record);
    void carry_states(uint32_t ifx, uint32_t index, const PortVlans &vlans);
    void carry_link(uint32_t ifx, uint32_t index);
    void release(uint32_t ifx);
    bool ask(const Request &request, const std::string &what);
    bool ask_all(const Requests &requests, const std::string &what);
    void complain(const std::string &text); // once for each text

    // From the kernel.
    void look();
    void take_links(Links now, bool first);
    void take_port(uint32_t ifx, const Link *seen, const Link &now);
    void take_vlans(uint32_t ifx, const PortVlans &vlans);
    [[nodiscard]] bool is_by_hand(const Link *seen, const Link &now);
    void take_states(uint32_t ifx, const Link *seen, const Link &now);
    void take_bridge(const Link *seen, const Link &now);
    void take_devices(const Links &seen, bool first);
    void take_hosts(const Hosts &hosts);
    void put_back(const std::vector<bri_mac_msg> &records);
    void adopt(uint32_t index, const Link &link, uint32_t ifx);
    void create_vlans(const vlanset &vlans);
    // What the switch refuses of it is told, and what the kernel tells besides is taken all the same.
    template <class Step> void attempt(Step &&step) {
        try {
            step();
        } catch (const std::invalid_argument &refusal) {
            complain(refusal.what());
        }
    }
    void list(const Request &request, const Take &take);
    [[nodiscard]] Links list();
    [[nodiscard]] Hosts list_hosts();

    void begin(const Memory *known);
    void begin_hosts();
    void remove_entries();
    void restore_entries();
    void restore_bridge();
    void restore_links();
    [[nodiscard]] bool is_own(const Mac &mac) const;
    [[nodiscard]] uint32_t link_of(uint32_t ifx) const; // 0: no device
    [[nodiscard]] uint32_t port_of(uint32_t link) const;
    [[nodiscard]] uint32_t free_number() const;
    [[nodiscard]] bool learns(uint32_t ifx);
    void follow_names() {
        if (frames::follow_names(memory_, links_))
            remember();
        name_ = links_[bridge_].name;
    }
    void remember_link(uint32_t index, bool bridged) {
        const Link &link = links_[index];
        memory_.links.try_emplace(link.name, before_of(index, link, bridged)).first->second.link = index;
    }
    void remember() const { write_memory(memory_, file_); }
    void note(const std::string &text) { sandbox_.trace.note("bridge " + name_ + ": " + text); }
    sandbox::Bridge &model() { return sandbox_.bridge; }

    sandbox::Sandbox &sandbox_;
    std::string name_;
    std::string file_;
    Channel kernel_;
    Channel monitor_;
    sandbox::Event readable_; // behind monitor_: released before the descriptor closes
    uint32_t bridge_ = 0;
    Links links_;
    Fdb fdb_;                            // of hosts: without the addresses of the bridge and its ports themselves
    std::map<uint32_t, uint32_t> ports_; // links by the ports' numbers
    Memory memory_;
    std::set<std::string> said_;
    bool taking_ = false; // operations are under way that the kernel has told of
    bool behind_ = false; // something that the kernel has told is not taken
};

} // namespace frames
