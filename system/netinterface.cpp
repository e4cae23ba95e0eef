#include "system/netinterface.h"

#include "system/net_interf.h"

namespace vpnfc {

namespace {

// The records of the layer below, freed at the end.
class Records {
public:
    explicit Records(system_network_interfaces& records) : records_(records) {}
    Records(const Records&) = delete;
    Records& operator=(const Records&) = delete;
    ~Records() { sys_network_interfaces_destroy(&records_); }

private:
    system_network_interfaces& records_;
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
    system_network_interfaces found{};
    if (get_system_network_interfaces(&found) != 0)
        return false;
    const Records records(found);
    for (const lan_interface* record = found.list; record != nullptr; record = record->next) {
        addRecord(out, *record);
        out.back().index = record->ifindex;
    }
    if (found.extra_interface != nullptr)
        addRecord(out, *found.extra_interface);
    return true;
}

} // namespace vpnfc
