#include "system/net_interf.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <new>
#include <optional>
#include <pthread.h>
#include <span>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>
#include <unordered_map>

namespace {

constexpr std::size_t kFirstBufferSize = 4096;
constexpr std::uint32_t kUsualMtu = 1500;
constexpr std::uint32_t kFirstSequenceNumber = 1;

using Bytes = std::span<const unsigned char>;

// Keeps errno through the cleanup that follows a failure.
class ErrnoKeeper {
public:
    ErrnoKeeper() = default;
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;
    ~ErrnoKeeper() { errno = errno_; }

private:
    const int errno_ = errno;
};

// Defers a cancellation of the thread. One that arrived in a destructor would end the process.
class NoCancellation {
public:
    NoCancellation() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    NoCancellation(const NoCancellation&) = delete;
    NoCancellation& operator=(const NoCancellation&) = delete;
    ~NoCancellation() { pthread_setcancelstate(before_, nullptr); }

private:
    int before_ = 0;
};

// The value at the beginning of `bytes`, which must hold it. What the kernel sends need not be
// aligned for its type.
template<class Value>
Value load(Bytes bytes) {
    Value value;
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

std::size_t lengthOf(const nlmsghdr& header) {
    return header.nlmsg_len;
}

std::size_t lengthOf(const rtattr& header) {
    return header.rta_len;
}

// A header that tells its own length, and what it heads: a message of a datagram or an attribute of
// a message.
template<class Header>
struct Item {
    Header header;
    Bytes payload;
};

using Message = Item<nlmsghdr>;
using Attribute = Item<rtattr>;

// Items start at multiples of four. The macros for that lose a length near 2^32.
std::size_t align(std::size_t length) {
    static_assert(NLMSG_ALIGNTO == 4 && RTA_ALIGNTO == 4);
    return (length + 3) / 4 * 4;
}

// Cuts the first item off `rest`. False when no whole one is there.
template<class Header>
bool takeItem(Bytes& rest, Item<Header>& item) {
    if (rest.size() < sizeof(Header))
        return false;
    item.header = load<Header>(rest);
    const std::size_t length = lengthOf(item.header);
    if (length < sizeof(Header) || length > rest.size())
        return false;
    item.payload = rest.subspan(sizeof(Header), length - sizeof(Header));
    rest = rest.subspan(std::min(align(length), rest.size()));
    return true;
}

int _add_addr(net_addresses** a, std::uint32_t value) {
    const std::uint32_t count = *a == nullptr ? 0 : (*a)->count;
    const std::size_t size =
        offsetof(net_addresses, values) + sizeof value * (count + std::size_t{1});
    void* const block = *a == nullptr ? std::malloc(size) : std::realloc(*a, size);
    if (block == nullptr)
        return -1;
    *a = static_cast<net_addresses*>(block);
    (*a)->values[count] = value;
    (*a)->count = count + 1;
    return 0;
}

// Frees a record of either kind.
template<class Record>
void freeRecord(Record* record) {
    std::free(record->addresses);
    std::free(record->broadcasts);
    std::free(record->aux_text);
    std::free(record);
}

void free_lan_interfaces(lan_interface* list) {
    while (list != nullptr) {
        lan_interface* const next = list->next;
        freeRecord(list);
        list = next;
    }
}

// Puts a new record at the head of a list; null when there is no memory for it.
lan_interface* prepend(lan_interface*& list, std::string_view name, std::uint32_t mtu,
                       std::uint32_t index) {
    constexpr std::size_t fixedPart = offsetof(lan_interface, name);
    auto* const block = static_cast<char*>(std::malloc(fixedPart + name.size() + 1));
    if (block == nullptr)
        return nullptr;
    std::copy(name.begin(), name.end(), block + fixedPart);
    block[fixedPart + name.size()] = '\0';
    auto* const record = reinterpret_cast<lan_interface*>(block);
    record->next = list;
    record->addresses = nullptr;
    record->broadcasts = nullptr;
    record->mtu = mtu;
    record->ifindex = index;
    record->aux_text = nullptr;
    list = record;
    return record;
}

// The records of the caller's list. Once there are many, an index tells where they are; without
// memory for one the list is walked, so that no call fails for it.
class Interfaces {
public:
    explicit Interfaces(lan_interface*& list) : list_(list) {}

    lan_interface* find(std::string_view name) const {
        return find(byName_, name,
                    [name](const lan_interface& record) { return name == record.name; });
    }

    // The newest of those with this index.
    lan_interface* find(std::uint32_t index) const {
        return find(byIndex_, index,
                    [index](const lan_interface& record) { return index == record.ifindex; });
    }

    // Null when there is no memory for it.
    lan_interface* add(std::string_view name, std::uint32_t mtu, std::uint32_t index) {
        lan_interface* const record = prepend(list_, name, mtu, index);
        if (record != nullptr && (indexed_ || ++walked_ == kMany))
            enterNewRecords();
        return record;
    }

    void clear() {
        byName_.clear();
        byIndex_.clear();
        indexed_ = false;
        walked_ = 0;
        free_lan_interfaces(list_);
        list_ = nullptr;
    }

private:
    static constexpr std::size_t kMany = 64;

    template<class Key>
    using Index = std::unordered_map<Key, lan_interface*>;

    template<class Key, class Matches>
    lan_interface* find(const Index<Key>& known, Key key, Matches matches) const {
        if (indexed_) {
            const auto found = known.find(key);
            return found == known.end() ? nullptr : found->second;
        }
        lan_interface* record = list_;
        while (record != nullptr && !matches(*record))
            record = record->next;
        return record;
    }

    // The newest record when there is an index already, else all of them.
    void enterNewRecords() {
        const ErrnoKeeper keeper;
        try {
            if (indexed_)
                byIndex_.erase(list_->ifindex);
            lan_interface* const known = indexed_ ? list_->next : nullptr;
            for (lan_interface* record = list_; record != known; record = record->next) {
                byName_.emplace(record->name, record);
                byIndex_.emplace(record->ifindex, record);
            }
            indexed_ = true;
        } catch (const std::bad_alloc&) {
            indexed_ = false;
        }
    }

    lan_interface*& list_;
    std::size_t walked_ = 0; // records that were added without an index
    bool indexed_ = false;
    Index<std::string_view> byName_; // of the records' own names
    Index<std::uint32_t> byIndex_;
};

// The interface's name in an attribute: up to its terminator, or to the `:` of an alias label. The
// attribute ends a name that has neither.
std::string_view nameIn(Bytes payload) {
    const std::string_view text(reinterpret_cast<const char*>(payload.data()), payload.size());
    return text.substr(0, std::min(text.find('\0'), text.find(':')));
}

// Takes what one RTM_NEWLINK message says into the list. False when it makes the enumeration fail.
bool takeLink(Bytes body, Interfaces& interfaces) {
    if (body.size() < sizeof(ifinfomsg))
        return true;
    const auto info = load<ifinfomsg>(body);
    if ((info.ifi_flags & IFF_LOOPBACK) != 0)
        return true;
    std::uint32_t mtu = kUsualMtu;
    lan_interface* current = nullptr;
    Bytes rest = body.subspan(sizeof info);
    for (Attribute attribute; takeItem(rest, attribute);) {
        if (attribute.header.rta_type == IFLA_MTU) {
            if (attribute.payload.size() != sizeof mtu)
                return false;
            mtu = load<std::uint32_t>(attribute.payload);
            if (current != nullptr)
                current->mtu = mtu;
        } else if (attribute.header.rta_type == IFLA_IFNAME && current == nullptr) {
            const std::string_view name = nameIn(attribute.payload);
            current = interfaces.find(name);
            if (current == nullptr)
                current = interfaces.add(name, mtu, static_cast<std::uint32_t>(info.ifi_index));
            if (current == nullptr)
                return false;
        }
    }
    return true;
}

// Takes what one RTM_NEWADDR message says into the list. False when there is no memory for it.
bool takeAddress(Bytes body, Interfaces& interfaces) {
    if (body.size() < sizeof(ifaddrmsg))
        return true;
    const auto info = load<ifaddrmsg>(body);
    lan_interface* const owner = interfaces.find(info.ifa_index);
    if (owner == nullptr)
        return true;
    Bytes rest = body.subspan(sizeof info);
    for (Attribute attribute; takeItem(rest, attribute);) {
        const bool isLocal = attribute.header.rta_type == IFA_LOCAL;
        if (!isLocal && attribute.header.rta_type != IFA_BROADCAST)
            continue;
        if (attribute.payload.size() < sizeof(std::uint32_t))
            continue;
        net_addresses** const addresses = isLocal ? &owner->addresses : &owner->broadcasts;
        if (_add_addr(addresses, load<std::uint32_t>(attribute.payload)) != 0)
            return false;
    }
    return true;
}

// How a step of the conversation has ended.
enum class Outcome {
    goesOn,
    complete,
    failed,
    cut, // a datagram did not fit into the buffer
};

// The socket, and the buffer that it receives into.
class Channel {
public:
    Channel() = default;
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    ~Channel() {
        const ErrnoKeeper keeper;
        const NoCancellation uncancelled;
        std::free(larger_);
        if (socket_ != kNoSocket)
            close(socket_);
    }

    bool open() {
        socket_ = socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE);
        sockaddr_nl address{};
        address.nl_family = AF_NETLINK;
        address.nl_pid = port_;
        return socket_ != kNoSocket &&
               bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }

    // Asks the kernel for everything of a kind.
    template<class Body>
    bool request(std::uint16_t type, std::uint32_t sequenceNumber, const Body& body) {
        unsigned char bytes[sizeof(nlmsghdr) + sizeof body];
        nlmsghdr header{};
        header.nlmsg_len = sizeof bytes;
        header.nlmsg_type = type;
        header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
        header.nlmsg_seq = sequenceNumber;
        header.nlmsg_pid = port_;
        std::memcpy(bytes, &header, sizeof header);
        std::memcpy(bytes + sizeof header, &body, sizeof body);

        sockaddr_nl kernel{};
        kernel.nl_family = AF_NETLINK;
        iovec vector{bytes, sizeof bytes};
        msghdr message = messageFor(vector);
        message.msg_name = &kernel;
        message.msg_namelen = sizeof kernel;
        return sendmsg(socket_, &message, 0) == sizeof bytes;
    }

    // Receives one datagram, which stays valid until the next call.
    Outcome receive(Bytes& datagram) {
        iovec vector{buffer(), size_};
        msghdr message = messageFor(vector);
        const ssize_t length = recvmsg(socket_, &message, MSG_TRUNC);
        if (length < 0 || length > std::numeric_limits<std::uint32_t>::max())
            return Outcome::failed;
        if (length == 0)
            return Outcome::complete;
        wanted_ = static_cast<std::size_t>(length);
        if (wanted_ > size_)
            return Outcome::cut;
        datagram = Bytes(buffer(), wanted_);
        return Outcome::goesOn;
    }

    // Makes room for the datagram that was cut. When there is no memory for it, the socket is given
    // up, and stays open.
    bool enlarge() {
        std::free(larger_);
        larger_ = static_cast<unsigned char*>(std::malloc(wanted_));
        size_ = wanted_;
        if (larger_ != nullptr)
            return true;
        socket_ = kNoSocket;
        return false;
    }

private:
    static msghdr messageFor(iovec& vector) {
        msghdr message{};
        message.msg_iov = &vector;
        message.msg_iovlen = 1;
        return message;
    }

    unsigned char* buffer() { return larger_ == nullptr ? first_ : larger_; }

    static constexpr int kNoSocket = -1;

    const std::uint32_t port_ = static_cast<std::uint32_t>(getpid());
    int socket_ = kNoSocket;
    unsigned char* larger_ = nullptr;
    std::size_t size_ = kFirstBufferSize;
    std::size_t wanted_ = 0;
    unsigned char first_[kFirstBufferSize];
};

// What takes a message of the kind that was asked for.
using Take = bool (*)(Bytes body, Interfaces& interfaces);

Outcome takeMessages(Bytes datagram, std::uint16_t type, Take take, Interfaces& interfaces) {
    for (Message message; takeItem(datagram, message);) {
        if (message.header.nlmsg_type == NLMSG_DONE)
            return Outcome::complete;
        if (message.header.nlmsg_type == NLMSG_NOOP)
            continue;
        if (message.header.nlmsg_type != type || !take(message.payload, interfaces))
            return Outcome::failed;
    }
    return Outcome::goesOn;
}

Outcome takeReplies(Channel& channel, std::uint16_t type, Take take, Interfaces& interfaces) {
    Bytes datagram;
    Outcome outcome = channel.receive(datagram);
    while (outcome == Outcome::goesOn) {
        outcome = takeMessages(datagram, type, take, interfaces);
        if (outcome == Outcome::goesOn)
            outcome = channel.receive(datagram);
    }
    return outcome;
}

Outcome askLinks(Channel& channel, Interfaces& interfaces) {
    const rtgenmsg body{AF_PACKET};
    if (!channel.request(RTM_GETLINK, kFirstSequenceNumber, body))
        return Outcome::failed;
    return takeReplies(channel, RTM_NEWLINK, takeLink, interfaces);
}

Outcome askAddresses(Channel& channel, Interfaces& interfaces) {
    ifaddrmsg body{};
    body.ifa_family = AF_INET;
    if (!channel.request(RTM_GETADDR, kFirstSequenceNumber + 1, body))
        return Outcome::failed;
    return takeReplies(channel, RTM_NEWADDR, takeAddress, interfaces);
}

int _get_system_network_interfaces(Interfaces& interfaces) {
    Channel channel;
    if (!channel.open())
        return -1;
    for (;;) {
        Outcome outcome = askLinks(channel, interfaces);
        if (outcome == Outcome::complete)
            outcome = askAddresses(channel, interfaces);
        if (outcome != Outcome::cut)
            return outcome == Outcome::complete ? 0 : -1;
        if (!channel.enlarge())
            return -1;
        interfaces.clear();
    }
}

} // namespace

int get_system_network_interfaces(system_network_interfaces* c) {
    std::optional<Interfaces> interfaces(c->list);
    const int result = _get_system_network_interfaces(*interfaces);
    const ErrnoKeeper keeper;
    interfaces.reset();
    if (result != 0)
        sys_network_interfaces_destroy(c);
    return result;
}

void sys_network_interfaces_destroy(system_network_interfaces* c) {
    free_lan_interfaces(c->list);
    if (c->extra_interface != nullptr)
        freeRecord(c->extra_interface);
}
