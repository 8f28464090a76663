/* The network inside the process: sockets of every kind but for what SCTP alone knows. */
#include "network.h"

#include <algorithm>
#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "kel_socket_fake.h"

namespace kel_fake_net
{

std::recursive_mutex mutex;

namespace
{

struct Interface {
    std::string name;
    UCHAR mac[6];
    unsigned short kind; /* ARPHRD_... */
};

const std::vector<Interface> first_interfaces = {{"lo", {0}, ARPHRD_LOOPBACK},
                                                 {"eth0", {2, 0, 0, 0, 0, 2}, ARPHRD_ETHER}};

struct State {
    std::vector<EndpointPtr> endpoints;                   /* the newest last */
    std::map<std::string, EndpointPtr> backlog;           /* by the name of the client's socket */
    std::map<std::string, std::weak_ptr<Endpoint>> files; /* by path */
    std::vector<Interface> interfaces = first_interfaces; /* the first has index 1 */
    uint16_t last_port = 32767;
};

/* Never destroyed: other threads and destructors of the test may still call. */
State &state()
{
    static State &only = *new State;
    return only;
}

/* ---- Descriptors ------------------------------------------------------------------------------------------------- */

ino_t inode_of(int fd)
{
    struct stat file;
    return fstat(fd, &file) == 0 && S_ISSOCK(file.st_mode) ? file.st_ino : 0;
}

/* The name of a local socket, one that nobody else has: it gets it here, when it has none yet. */
std::string name_of(int fd)
{
    const KeepErrno keep;
    struct sockaddr_un address = {AF_UNIX, {}};
    socklen_t length = sizeof(sa_family_t);
    (void)::bind(fd, reinterpret_cast<struct sockaddr *>(&address), length);
    length = sizeof(address);
    (void)::getsockname(fd, reinterpret_cast<struct sockaddr *>(&address), &length);
    return std::string(address.sun_path, length - sizeof(sa_family_t));
}

void connect_to(int fd, const std::string &name)
{
    struct sockaddr_un address = {AF_UNIX, {}};
    memcpy(address.sun_path, name.data(), name.size());
    const socklen_t length = (socklen_t)(sizeof(sa_family_t) + name.size());
    require(::connect(fd, reinterpret_cast<struct sockaddr *>(&address), length) == 0, errno);
}

/* Who writes into an inbox decides whether to wait; there is as much room as there may be. */
int as_inbox(int fd)
{
    require(fd != -1, errno);
    const int room = 1 << 22;
    ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &room, sizeof(room));
    fcntl(fd, F_SETFD, FD_CLOEXEC);
    fcntl(fd, F_SETFL, 0);
    return fd;
}

std::string path_of(const kel_sockaddr_t &address)
{
    const char *path = address.un.sun_path;
    const size_t most = sizeof(address.un.sun_path);
    return std::string(path, path[0] == '\0' ? most : strnlen(path, most));
}

/* What a descriptor was is over: its peers hear of it, its address is free. */
void bury(const EndpointPtr &endpoint, bool at_once)
{
    sctp_close(endpoint, at_once);
    auto &endpoints = state().endpoints;
    endpoints.erase(std::remove(endpoints.begin(), endpoints.end(), endpoint), endpoints.end());
    if (endpoint->family == AF_UNIX && !endpoint->local.empty() && endpoint->local[0].un.sun_path[0] == '\0') {
        state().files.erase(path_of(endpoint->local[0])); /* a name, but no file */
    }
}

/* ---- Addresses --------------------------------------------------------------------------------------------------- */

socklen_t length_of(int family)
{
    const std::map<int, socklen_t> lengths = {{AF_INET, sizeof(struct sockaddr_in)},
                                              {AF_INET6, sizeof(struct sockaddr_in6)},
                                              {AF_PACKET, sizeof(struct sockaddr_ll)},
                                              {AF_UNIX, sizeof(sa_family_t) + 1}};
    return lengths.at(family);
}

kel_sockaddr_t read_address(const Endpoint &endpoint, const struct sockaddr *addr, socklen_t length)
{
    require(addr != nullptr, EFAULT);
    require(length >= length_of(endpoint.family), EINVAL);
    kel_sockaddr_t address = {};
    memcpy(&address, addr, std::min<size_t>(length, sizeof(address)));
    require(address.sa.sa_family == endpoint.family, endpoint.is_inet() ? EAFNOSUPPORT : EINVAL);
    const bool lacks_scope = endpoint.family == AF_INET6 && IN6_IS_ADDR_LINKLOCAL(&address.sin6.sin6_addr) &&
                             address.sin6.sin6_scope_id == 0;
    require(!lacks_scope, EINVAL);
    return address;
}

bool is_same_kind(const Endpoint &left, const Endpoint &right)
{
    return left.family == right.family && left.is_sctp() == right.is_sctp() &&
           (left.type == right.type || left.is_sctp());
}

/* The address that a peer at destination sees. */
kel_sockaddr_t source(const Endpoint &endpoint, const kel_sockaddr_t &destination)
{
    const kel_sockaddr_t &from = endpoint.local[0];
    return is_wildcard(from) ? with_port(destination, port_of(from)) : from;
}

/* The endpoint that owns a local path. */
EndpointPtr at_path(const kel_sockaddr_t &address, int type)
{
    auto found = state().files.find(path_of(address));
    require(found != state().files.end(), ENOENT);
    EndpointPtr owner = found->second.lock();
    require(owner != nullptr, ECONNREFUSED);
    require(owner->type == type, EPROTOTYPE);
    return owner;
}

/* ---- Connecting and sending -------------------------------------------------------------------------------------- */

void connect_stream(Endpoint &endpoint, int fd, const kel_sockaddr_t &address)
{
    require(!endpoint.connected && !endpoint.listening, EISCONN);
    const EndpointPtr server = endpoint.is_inet() ? reached(endpoint, address, true) : at_path(address, endpoint.type);
    require(server != nullptr && server->listening, ECONNREFUSED);
    auto accepted = std::make_shared<Endpoint>();
    accepted->local = {address};
    accepted->peer.sa.sa_family = AF_UNIX; /* and no name, unless there is one */
    if (endpoint.is_inet()) {
        bind_free(endpoint, address);
        endpoint.local[0] = source(endpoint, address);
    }
    if (!endpoint.local.empty()) {
        accepted->peer = endpoint.local[0];
    }
    join(fd, *server, accepted);
    endpoint.peer = address;
    endpoint.connected = true;
}

/* A datagram socket keeps the peer in mind: it need not be there. */
void connect_datagrams(Endpoint &endpoint, const kel_sockaddr_t &address)
{
    if (endpoint.is_inet()) {
        bind_free(endpoint, address);
        endpoint.local[0] = source(endpoint, address);
    } else {
        at_path(address, endpoint.type);
    }
    endpoint.peer = address;
    endpoint.connected = true;
}

/* An IP datagram that nobody waits for is lost, and so is one that finds a full queue. */
ssize_t send_ip(Lock &lock, Endpoint &endpoint, const void *message, size_t length, const kel_sockaddr_t &address)
{
    constexpr size_t largest = 65507;
    require(port_of(address) != 0, EINVAL);
    require(length <= largest, EMSGSIZE);
    const EndpointPtr target = reached(endpoint, address, false);
    const Label label = {source(endpoint, address), {}, 0, 0};
    const bool is_heard = target != nullptr && (!target->connected || (same_address(target->peer, label.from) &&
                                                                       port_of(target->peer) == port_of(label.from)));
    lock.unlock();
    if (is_heard) {
        const KeepErrno keep;
        deliver(target->inbox, message, length, label, MSG_DONTWAIT);
    }
    return (ssize_t)length;
}

ssize_t send_local(Lock &lock, const Endpoint &endpoint, const void *message, size_t length,
                   const kel_sockaddr_t &address, int flags)
{
    const EndpointPtr target = at_path(address, endpoint.type);
    const Label label = {endpoint.local.empty() ? kel_sockaddr_t{} : endpoint.local[0], {}, 0, 0};
    require(!target->connected || path_of(target->peer) == path_of(label.from), EPERM);
    lock.unlock();
    return deliver(target->inbox, message, length, label, flags);
}

/* How a frame is addressed, as seen from an interface. */
unsigned char kind_of_receiver(const UCHAR *frame, const UCHAR *mac)
{
    if (memcmp(frame, mac, 6) == 0) {
        return PACKET_HOST;
    }
    if ((frame[0] & 1) == 0) {
        return PACKET_OTHERHOST;
    }
    return memcmp(frame, "\xff\xff\xff\xff\xff\xff", 6) == 0 ? PACKET_BROADCAST : PACKET_MULTICAST;
}

/* A frame reaches everybody else on its interface who asks for its protocol. */
ssize_t send_frame(const Endpoint &endpoint, const void *frame, size_t length, int index)
{
    constexpr size_t header = 14;
    constexpr uint16_t every_protocol = 3;
    require(index > 0 && (size_t)index <= state().interfaces.size(), ENXIO);
    require(length >= header, EINVAL);
    const Interface &on = state().interfaces[(size_t)index - 1];
    const UCHAR *bytes = static_cast<const UCHAR *>(frame);
    Label label = {};
    struct sockaddr_ll &from = label.from.raw;
    from.sll_family = AF_PACKET;
    memcpy(&from.sll_protocol, bytes + 12, 2);
    from.sll_ifindex = index;
    from.sll_hatype = on.kind;
    from.sll_pkttype = kind_of_receiver(bytes, on.mac);
    from.sll_halen = 6;
    memcpy(from.sll_addr, bytes + 6, 6);
    const KeepErrno keep;
    for (const EndpointPtr &target : living()) {
        const int bound = target->local.empty() ? 0 : target->local[0].raw.sll_ifindex;
        if (target->family == AF_PACKET && target.get() != &endpoint && (bound == 0 || bound == index) &&
            (target->protocol == htons(every_protocol) || target->protocol == from.sll_protocol)) {
            deliver(target->inbox, frame, length, label, MSG_DONTWAIT);
        }
    }
    return (ssize_t)length;
}

ssize_t transmit(Lock &lock, int fd, const void *message, size_t length, int flags, const struct sockaddr *to,
                 socklen_t tolen)
{
    const EndpointPtr endpoint = find(fd);
    if (endpoint == nullptr || endpoint->is_stream()) {
        lock.unlock();
        const bool ignored = endpoint != nullptr && endpoint->is_inet(); /* TCP does not look at it */
        return ::sendto(fd, message, length, flags, ignored ? nullptr : to, ignored ? 0 : tolen);
    }
    require(to == nullptr || endpoint->family != AF_INET6 || to->sa_family != AF_INET, ENETUNREACH);
    const kel_sockaddr_t address = to == nullptr ? endpoint->peer : read_address(*endpoint, to, tolen);
    if (endpoint->is_sctp()) {
        return sctp_transmit(lock, endpoint, fd, message, length, to == nullptr ? nullptr : &address, {}, flags);
    }
    if (endpoint->family == AF_PACKET) {
        const int bound = endpoint->local.empty() ? 0 : endpoint->local[0].raw.sll_ifindex;
        return send_frame(*endpoint, message, length, to == nullptr ? bound : address.raw.sll_ifindex);
    }
    if (endpoint->is_inet()) {
        bind_free(*endpoint, wildcard(endpoint->family));
    }
    require(to != nullptr || endpoint->connected, endpoint->is_inet() ? EDESTADDRREQ : ENOTCONN);
    return endpoint->is_inet() ? send_ip(lock, *endpoint, message, length, actual(address))
                               : send_local(lock, *endpoint, message, length, address, waiting(fd, flags));
}

ssize_t receive(Lock &lock, int fd, void *buffer, size_t length, int flags, struct sockaddr *from, socklen_t *fromlen)
{
    const EndpointPtr endpoint = find(fd);
    if (endpoint == nullptr || endpoint->is_stream()) {
        lock.unlock();
        return endpoint == nullptr ? ::recvfrom(fd, buffer, length, flags, from, fromlen)
                                   : ::recv(fd, buffer, length, flags); /* a stream's sender is not told */
    }
    Label label;
    int out;
    ssize_t count;
    if (endpoint->is_sctp()) {
        count = sctp_receive(lock, *endpoint, fd, buffer, length, flags, label, out);
    } else {
        lock.unlock();
        count = take(fd, buffer, length, flags, label);
    }
    if (count >= 0 && from != nullptr && label.from.sa.sa_family != 0) {
        give_address(label.from, from, fromlen);
    }
    return count;
}

Interface &interface(const char *name)
{
    for (Interface &candidate : state().interfaces) {
        if (candidate.name == name) {
            return candidate;
        }
    }
    throw Error{ENODEV};
}

int index_of(const Interface &of)
{
    return (int)(&of - state().interfaces.data()) + 1;
}

} // namespace

/* ---- Endpoints --------------------------------------------------------------------------------------------------- */

Endpoint::~Endpoint()
{
    if (inbox != -1) {
        ::close(inbox);
    }
}

void add(const EndpointPtr &endpoint, int fd)
{
    endpoint->fd = fd;
    endpoint->inode = inode_of(fd);
    state().endpoints.push_back(endpoint);
}

std::vector<EndpointPtr> living()
{
    const KeepErrno keep;
    const std::vector<EndpointPtr> all = state().endpoints;
    std::vector<EndpointPtr> open;
    for (auto endpoint = all.rbegin(); endpoint != all.rend(); ++endpoint) {
        if (inode_of((*endpoint)->fd) == (*endpoint)->inode) {
            open.push_back(*endpoint);
        } else {
            bury(*endpoint, false); /* close(2) told nobody */
        }
    }
    return open;
}

EndpointPtr find(int fd)
{
    const KeepErrno keep;
    const ino_t inode = inode_of(fd);
    for (const EndpointPtr &endpoint : living()) {
        if (endpoint->inode == inode) {
            return endpoint;
        }
    }
    return nullptr;
}

EndpointPtr own(int fd)
{
    const EndpointPtr found = find(fd);
    require(found != nullptr, fcntl(fd, F_GETFD) == -1 ? EBADF : ENOTSOCK);
    return found;
}

int make_pair(Endpoint &endpoint, int flags)
{
    int pair[2];
    /* Packets have an end, which SCTP tells; datagrams may be empty. */
    const int type = endpoint.is_sctp() ? SOCK_SEQPACKET : SOCK_DGRAM;
    require(socketpair(AF_UNIX, type | flags, 0, pair) == 0, errno);
    endpoint.inbox = as_inbox(pair[1]);
    return pair[0];
}

void make_inbox(Endpoint &endpoint, int fd)
{
    Endpoint listener;
    listener.inbox = as_inbox(::socket(AF_UNIX, SOCK_SEQPACKET, 0));
    const std::string name = name_of(listener.inbox);
    require(::listen(listener.inbox, 1) == 0, errno);
    connect_to(fd, name);
    endpoint.inbox = as_inbox(::accept(listener.inbox, nullptr, nullptr));
}

void join(int fd, const Endpoint &server, const EndpointPtr &accepted)
{
    accepted->family = server.family;
    accepted->type = server.type;
    accepted->protocol = server.protocol;
    accepted->options = server.options;
    accepted->connected = true;
    const std::string name = name_of(fd);
    connect_to(fd, server.name);
    state().backlog[name] = accepted;
}

void join_by_inbox(const Endpoint &server, const EndpointPtr &accepted)
{
    accepted->inbox = as_inbox(::socket(AF_UNIX, SOCK_SEQPACKET, 0));
    join(accepted->inbox, server, accepted);
}

void reset()
{
    const Lock lock(mutex);
    for (const EndpointPtr &endpoint : living()) {
        endpoint->associations.clear(); /* nobody is left to hear of the end */
        ::close(endpoint->fd);
    }
    state().endpoints.clear();
    state().backlog.clear();
    state().files.clear();
    state().interfaces = first_interfaces;
}

/* ---- Addresses --------------------------------------------------------------------------------------------------- */

bool same_address(const kel_sockaddr_t &left, const kel_sockaddr_t &right)
{
    return left.sa.sa_family == right.sa.sa_family &&
           (left.sa.sa_family == AF_INET ? left.sin.sin_addr.s_addr == right.sin.sin_addr.s_addr
                                         : IN6_ARE_ADDR_EQUAL(&left.sin6.sin6_addr, &right.sin6.sin6_addr) != 0);
}

kel_sockaddr_t wildcard(int family)
{
    kel_sockaddr_t any = {};
    any.sa.sa_family = (sa_family_t)family;
    return any;
}

bool is_wildcard(const kel_sockaddr_t &address)
{
    return same_address(address, wildcard(address.sa.sa_family));
}

uint16_t port_of(const kel_sockaddr_t &address)
{
    return ntohs(address.sin.sin_port); /* at the same place in both families */
}

kel_sockaddr_t with_port(kel_sockaddr_t address, uint16_t port)
{
    address.sin.sin_port = htons(port);
    return address;
}

kel_sockaddr_t actual(const kel_sockaddr_t &address)
{
    if ((address.sa.sa_family != AF_INET && address.sa.sa_family != AF_INET6) || !is_wildcard(address)) {
        return address;
    }
    kel_sockaddr_t loopback = address;
    if (address.sa.sa_family == AF_INET) {
        loopback.sin.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    } else {
        loopback.sin6.sin6_addr = in6addr_loopback;
    }
    return loopback;
}

EndpointPtr reached(const Endpoint &from, const kel_sockaddr_t &address, bool listening)
{
    const kel_sockaddr_t destination = actual(address);
    EndpointPtr found;
    for (const EndpointPtr &candidate : living()) {
        if (!is_same_kind(*candidate, from) || (listening && !candidate->listening)) {
            continue;
        }
        for (const kel_sockaddr_t &local : candidate->local) {
            if (port_of(local) == port_of(destination) && same_address(local, destination)) {
                return candidate;
            }
            if (port_of(local) == port_of(destination) && is_wildcard(local) && found == nullptr) {
                found = candidate;
            }
        }
    }
    return found;
}

void require_free(const Endpoint &endpoint, const kel_sockaddr_t &address)
{
    for (const EndpointPtr &other : living()) {
        if (other.get() == &endpoint || !other->listening || !is_same_kind(*other, endpoint)) {
            continue;
        }
        for (const kel_sockaddr_t &local : other->local) {
            require(port_of(local) != port_of(address) ||
                        (!same_address(local, address) && !is_wildcard(local) && !is_wildcard(address)),
                    EADDRINUSE);
        }
    }
}

uint16_t free_port(const Endpoint &endpoint)
{
    const std::vector<EndpointPtr> all = living();
    for (;;) {
        uint16_t &port = state().last_port;
        port = std::max<uint16_t>((uint16_t)(port + 1), 32768);
        auto has_it = [&](const EndpointPtr &other) {
            return is_same_kind(*other, endpoint) && !other->local.empty() && port_of(other->local[0]) == port;
        };
        if (std::none_of(all.begin(), all.end(), has_it)) {
            return port;
        }
    }
}

void bind_free(Endpoint &endpoint, const kel_sockaddr_t &address)
{
    if (endpoint.local.empty()) {
        endpoint.local = {with_port(address, free_port(endpoint))};
    }
}

void give_address(const kel_sockaddr_t &from, struct sockaddr *addr, socklen_t *length)
{
    require(addr != nullptr && length != nullptr, EFAULT);
    socklen_t all = length_of(from.sa.sa_family);
    if (from.sa.sa_family == AF_UNIX) {
        const size_t path = strnlen(from.un.sun_path, sizeof(from.un.sun_path));
        all = (socklen_t)(sizeof(sa_family_t) + (path == 0 ? 0 : std::min(path + 1, sizeof(from.un.sun_path))));
    }
    memcpy(addr, &from, std::min(all, *length));
    *length = all;
}

/* ---- Messages ---------------------------------------------------------------------------------------------------- */

union Control {
    struct cmsghdr header;
    char bytes[CMSG_SPACE(sizeof(int))];
};

ssize_t deliver(int inbox, const void *message, size_t length, const Label &label, int flags)
{
    const int file = memfd_create("label", MFD_CLOEXEC);
    if (file == -1) {
        return -1;
    }
    (void)!write(file, &label, sizeof(label));
    struct iovec part = {const_cast<void *>(message), length};
    Control control = {};
    struct msghdr whole = {nullptr, 0, &part, 1, &control, sizeof(control), 0};
    struct cmsghdr *header = CMSG_FIRSTHDR(&whole);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    memcpy(CMSG_DATA(header), &file, sizeof(file));
    const ssize_t sent = sendmsg(inbox, &whole, (flags & MSG_DONTWAIT) | MSG_NOSIGNAL);
    const KeepErrno keep;
    ::close(file);
    return sent;
}

ssize_t take(int fd, void *buffer, size_t length, int flags, Label &label)
{
    struct iovec part = {buffer, length};
    Control control = {};
    struct msghdr whole = {nullptr, 0, &part, 1, &control, sizeof(control), 0};
    label = {};
    const ssize_t count = recvmsg(fd, &whole, flags | MSG_CMSG_CLOEXEC);
    struct cmsghdr *header = count < 0 ? nullptr : CMSG_FIRSTHDR(&whole);
    if (header != nullptr && header->cmsg_type == SCM_RIGHTS) {
        int file;
        memcpy(&file, CMSG_DATA(header), sizeof(file));
        (void)!pread(file, &label, sizeof(label), 0);
        ::close(file);
    }
    return count;
}

int waiting(int fd, int flags)
{
    return (fcntl(fd, F_GETFL) & O_NONBLOCK) != 0 ? MSG_DONTWAIT : flags & MSG_DONTWAIT;
}

int give_option(const std::string &bytes, void *value, socklen_t *length)
{
    if (bytes.empty()) {
        memset(value, 0, *length);
    } else {
        *length = std::min(*length, (socklen_t)bytes.size());
        memcpy(value, bytes.data(), *length);
    }
    return 0;
}

} // namespace kel_fake_net

/* ---- Calls of the system ----------------------------------------------------------------------------------------- */

using namespace kel_fake_net;

extern "C" {

int kel_net_socket(int domain, int type, int protocol)
{
    return call("socket", [&](Lock &) {
        const int flags = type & (SOCK_NONBLOCK | SOCK_CLOEXEC);
        auto endpoint = std::make_shared<Endpoint>();
        endpoint->family = domain;
        endpoint->type = type & ~flags;
        endpoint->protocol = protocol;
        require(domain == AF_UNIX || domain == AF_PACKET || endpoint->is_inet(), EAFNOSUPPORT);
        const bool is_packet = domain == AF_PACKET && (endpoint->type == SOCK_RAW || endpoint->type == SOCK_DGRAM);
        const bool is_datagram = domain != AF_PACKET && !endpoint->is_sctp() && endpoint->type == SOCK_DGRAM;
        const bool is_stream = (domain != AF_PACKET && endpoint->type == SOCK_STREAM) ||
                               (domain == AF_UNIX && endpoint->type == SOCK_SEQPACKET);
        const bool is_many = endpoint->is_sctp() && endpoint->type == SOCK_SEQPACKET;
        require(is_packet || is_datagram || is_stream || is_many, ESOCKTNOSUPPORT);
        const int below = endpoint->is_sctp() ? SOCK_SEQPACKET : endpoint->type;
        const int fd = is_stream ? ::socket(AF_UNIX, below | flags, 0) : make_pair(*endpoint, flags);
        require(fd != -1, errno);
        add(endpoint, fd);
        return fd;
    });
}

int kel_net_close(int fd)
{
    const Lock lock(mutex);
    const EndpointPtr endpoint = find(fd);
    if (endpoint != nullptr && endpoint->fd == fd) {
        struct linger linger = {};
        socklen_t length = sizeof(linger);
        ::getsockopt(fd, SOL_SOCKET, SO_LINGER, &linger, &length);
        bury(endpoint, linger.l_onoff != 0 && linger.l_linger == 0);
    }
    const int result = ::close(fd);
    return kel_fake::fails("close") ? -1 : result; /* the number is free, whatever the answer */
}

int kel_net_bind(int fd, const struct sockaddr *addr, socklen_t length)
{
    return call("bind", [&](Lock &) {
        const EndpointPtr endpoint = own(fd);
        const kel_sockaddr_t address = read_address(*endpoint, addr, length);
        if (endpoint->family == AF_PACKET) {
            require((size_t)address.raw.sll_ifindex <= state().interfaces.size(), ENODEV);
            endpoint->protocol = address.raw.sll_protocol != 0 ? address.raw.sll_protocol : endpoint->protocol;
            endpoint->local = {address};
            return 0;
        }
        require(endpoint->local.empty(), EINVAL);
        if (endpoint->family == AF_UNIX) {
            require(state().files.emplace(path_of(address), endpoint).second, EADDRINUSE);
        } else if (port_of(address) == 0) {
            bind_free(*endpoint, address);
            return 0;
        } else {
            require_free(*endpoint, address);
        }
        endpoint->local = {address};
        return 0;
    });
}

int kel_net_listen(int fd, int backlog)
{
    return call("listen", [&](Lock &) {
        const EndpointPtr endpoint = own(fd);
        require(endpoint->is_stream() || endpoint->is_sctp(), EOPNOTSUPP);
        require(!endpoint->connected && (endpoint->is_inet() || !endpoint->local.empty()), EINVAL);
        if (endpoint->is_sctp() && backlog == 0) {
            require(endpoint->listening, EINVAL);
            endpoint->listening = false;
            return 0;
        }
        if (endpoint->is_inet()) {
            bind_free(*endpoint, wildcard(endpoint->family));
            for (const kel_sockaddr_t &local : endpoint->local) {
                require_free(*endpoint, local);
            }
        }
        if (endpoint->inbox == -1) {
            endpoint->name = name_of(fd);
            require(::listen(fd, SOMAXCONN) == 0, errno); /* never full */
        }
        endpoint->listening = true;
        return 0;
    });
}

int kel_net_accept(int fd, struct sockaddr *addr, socklen_t *length)
{
    return call("accept", [&](Lock &lock) {
        require(own(fd)->type != SOCK_DGRAM, EOPNOTSUPP);
        struct sockaddr_un client = {};
        socklen_t size = sizeof(client);
        lock.unlock();
        const int accepted = ::accept(fd, reinterpret_cast<struct sockaddr *>(&client), &size);
        require(accepted != -1, errno);
        lock.lock();
        auto found = state().backlog.find(std::string(client.sun_path, size - sizeof(sa_family_t)));
        const EndpointPtr endpoint = found->second;
        state().backlog.erase(found);
        add(endpoint, accepted);
        give_address(endpoint->peer, addr, length);
        return accepted;
    });
}

int kel_net_connect(int fd, const struct sockaddr *addr, socklen_t length)
{
    return call("connect", [&](Lock &) {
        const EndpointPtr endpoint = own(fd);
        const kel_sockaddr_t address = actual(read_address(*endpoint, addr, length));
        require(endpoint->family != AF_PACKET, EOPNOTSUPP);
        if (endpoint->is_sctp()) {
            sctp_connect(endpoint, fd, {address});
        } else if (endpoint->is_stream()) {
            connect_stream(*endpoint, fd, address);
        } else {
            connect_datagrams(*endpoint, address);
        }
        return 0;
    });
}

int kel_net_getpeername(int fd, struct sockaddr *addr, socklen_t *length)
{
    return call("getpeername", [&](Lock &) {
        const EndpointPtr endpoint = own(fd);
        require(endpoint->family != AF_PACKET, EOPNOTSUPP);
        require(endpoint->connected, ENOTCONN);
        give_address(endpoint->peer, addr, length);
        return 0;
    });
}

int kel_net_getsockname(int fd, struct sockaddr *addr, socklen_t *length)
{
    return call("getsockname", [&](Lock &) {
        const EndpointPtr endpoint = own(fd);
        give_address(endpoint->local.empty() ? wildcard(endpoint->family) : endpoint->local[0], addr, length);
        return 0;
    });
}

ssize_t kel_net_recv(int fd, void *buffer, size_t length, int flags)
{
    return call("recv", [&](Lock &lock) { return receive(lock, fd, buffer, length, flags, nullptr, nullptr); });
}

ssize_t kel_net_recvfrom(int fd, void *buffer, size_t length, int flags, struct sockaddr *addr, socklen_t *addr_length)
{
    return call("recvfrom", [&](Lock &lock) { return receive(lock, fd, buffer, length, flags, addr, addr_length); });
}

ssize_t kel_net_send(int fd, const void *buffer, size_t length, int flags)
{
    return call("send", [&](Lock &lock) { return transmit(lock, fd, buffer, length, flags, nullptr, 0); });
}

ssize_t kel_net_sendto(int fd, const void *buffer, size_t length, int flags, const struct sockaddr *addr,
                       socklen_t addr_length)
{
    return call("sendto", [&](Lock &lock) { return transmit(lock, fd, buffer, length, flags, addr, addr_length); });
}

/* Options of the socket are the local socket's. Of a protocol that is not there, what was set is known. */
int kel_net_getsockopt(int fd, int level, int option, void *value, socklen_t *length)
{
    return call("getsockopt", [&](Lock &) {
        const EndpointPtr endpoint = find(fd);
        if (endpoint != nullptr && level == SOL_SCTP && endpoint->is_sctp()) {
            return sctp_get_option(*endpoint, option, value, length);
        }
        if (endpoint != nullptr && level != SOL_SOCKET) {
            return give_option(endpoint->options[{level, option}], value, length);
        }
        const int result = ::getsockopt(fd, level, option, value, length);
        if (endpoint != nullptr && result == 0) {
            const std::map<int, int> own = {{SO_DOMAIN, endpoint->family},
                                            {SO_TYPE, endpoint->type},
                                            {SO_PROTOCOL, endpoint->protocol},
                                            {SO_ACCEPTCONN, endpoint->listening}};
            auto found = own.find(option);
            if (found != own.end()) {
                give_option({reinterpret_cast<const char *>(&found->second), sizeof(int)}, value, length);
            }
        }
        return result;
    });
}

int kel_net_setsockopt(int fd, int level, int option, const void *value, socklen_t length)
{
    return call("setsockopt", [&](Lock &) {
        const EndpointPtr endpoint = find(fd);
        if (endpoint == nullptr || level == SOL_SOCKET) {
            return ::setsockopt(fd, level, option, value, length);
        }
        if (level == SOL_SCTP && endpoint->is_sctp()) {
            return sctp_set_option(*endpoint, option, value, length);
        }
        endpoint->options[{level, option}].assign(static_cast<const char *>(value), length);
        return 0;
    });
}

int kel_net_unlink(const char *path)
{
    return call("unlink", [&](Lock &) {
        require(path != nullptr, EFAULT);
        require(path[0] != '\0' && state().files.erase(path) == 1, ENOENT);
        return 0;
    });
}

int kel_net_ioctl(int fd, unsigned long request, struct ifreq *query)
{
    return call("ioctl", [&](Lock &) {
        own(fd);
        query->ifr_name[IFNAMSIZ - 1] = '\0';
        const Interface &found = interface(query->ifr_name);
        if (request == SIOCGIFINDEX) {
            query->ifr_ifindex = index_of(found);
        } else {
            query->ifr_hwaddr.sa_family = found.kind;
            memcpy(query->ifr_hwaddr.sa_data, found.mac, sizeof(found.mac));
        }
        return 0;
    });
}

unsigned int kel_net_if_nametoindex(const char *name)
{
    const int index = call("if_nametoindex", [&](Lock &) { return index_of(interface(name)); });
    return index == -1 ? 0 : (unsigned)index;
}

void *kel_net_tc_malloc(size_t size)
{
    return kel_fake::fails("tc_malloc") || size > PTRDIFF_MAX ? nullptr : malloc(size);
}

void kel_net_tc_free(void *block)
{
    free(block);
}

LONG kel_fake_open(void)
{
    const Lock lock(mutex);
    return (LONG)living().size();
}

void kel_fake_interface(const CHAR *name, const UCHAR *mac)
{
    const Lock lock(mutex);
    Interface made = {name, {}, ARPHRD_ETHER};
    memcpy(made.mac, mac, sizeof(made.mac));
    for (Interface &known : state().interfaces) {
        if (known.name == made.name) {
            known = made;
            return;
        }
    }
    state().interfaces.push_back(made);
}
}
