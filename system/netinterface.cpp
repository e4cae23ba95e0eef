#include "system/netinterface.h"

#include "system/net_interf.h"

namespace vpnfc {

namespace {

// The records of the layer below. The destructor frees them, also those of a thread that is
// cancelled while it collects them.
class Records {
public:
    Records() = default;
    Records(const Records&) = delete;
    Records& operator=(const Records&) = delete;

    ~Records() {
        if (isOwner_)
            sys_network_interfaces_destroy(&found_);
    }

    // Returns false after a failure, which has freed everything.
    bool collect() {
        isOwner_ = get_system_network_interfaces(&found_) == 0;
        return isOwner_;
    }

    const system_network_interfaces& found() const { return found_; }

private:
    system_network_interfaces found_{};
    bool isOwner_ = true;
};

void append(std::vector<std::uint32_t>& out, const net_addresses* addresses) {
    if (addresses != nullptr)
        out.insert(out.end(), addresses->values, addresses->values + addresses->count);
}

void _add_itf(std::vector<NetInterfaceInfo>& out, const char* name, std::uint32_t mtu,
              const char* aux_text, const net_addresses* addresses,
              const net_addresses* broadcasts) {
    NetInterfaceInfo info;
    info.name = name;
    if (aux_text != nullptr)
        info.auxText = aux_text;
    info.mtu = mtu;
    out.push_back(info);
    append(out.back().addresses, addresses);
    append(out.back().broadcasts, broadcasts);
}

template<class Record>
void addRecord(std::vector<NetInterfaceInfo>& out, const Record& record) {
    _add_itf(out, record.name, record.mtu, record.aux_text, record.addresses, record.broadcasts);
}

} // namespace

bool CollectNetInterfaceInfo(std::vector<NetInterfaceInfo>& out) {
    Records records;
    if (!records.collect())
        return false;
    const system_network_interfaces& found = records.found();
    for (const lan_interface* record = found.list; record != nullptr; record = record->next) {
        addRecord(out, *record);
        out.back().index = record->ifindex;
    }
    if (found.extra_interface != nullptr)
        addRecord(out, *found.extra_interface);
    return true;
}

} // namespace vpnfc
