/* The network inside the process: sockets of every kind but for what SCTP alone knows. */
#include "network.h"

#include <algorithm>
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "calls.h"
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

struct State {
    std::vector<EndpointPtr> endpoints;                   /* the newest last */
    std::map<std::string, EndpointPtr> backlog;           /* by the name of the client's socket */
    std::map<std::string, std::weak_ptr<Endpoint>> files; /* by path */
    std::vector<Interface> interfaces;                    /* the first has index 1 */
    uint16_t last_port = 32767;
};

const std::vector<Interface> first_interfaces = {{"lo", {0}, ARPHRD_LOOPBACK},
                                                 {"eth0", {2, 0, 0, 0, 0, 2}, ARPHRD_ETHER}};

/* Never destroyed: other threads and destructors of the test may still call. */
State &state()
{
    static State &only = *new State{{}, {}, {}, first_interfaces};
    return only;
}

/* errno is the module's, but for what a failing call sets. */
class KeepErrno
{
  public:
    KeepErrno() = default;
    ~KeepErrno()
    {
        errno = saved;
    }
    KeepErrno(const KeepErrno &) = delete;
    KeepErrno &operator=(const KeepErrno &) = delete;

  private:
    int saved = errno;
};

ino_t inode_of(int fd)
{
    struct stat file;
    return fstat(fd, &file) == 0 && S_ISSOCK(file.st_mode) ? file.st_ino : 0;
}

std::string path_of(const kel_sockaddr_t &address)
{
    const char *path = address.un.sun_path;
    return std::string(path,
                       path[0] == '\0' ? sizeof(address.un.sun_path) : strnlen(path, sizeof(address.un.sun_path)));
}

/* What a descriptor was is over: its peers hear of it, its address is free. */
void bury(const EndpointPtr &endpoint)
{
    sctp_closed(endpoint);
    auto &endpoints = state().endpoints;
    endpoints.erase(std::remove(endpoints.begin(), endpoints.end(), endpoint), endpoints.end());
    auto &files = state().files;
    for (auto file = files.begin(); file != files.end();) { /* a name without a file ends with its socket */
        file = file->first[0] == '\0' && file->second.lock() == endpoint ? files.erase(file) : std::next(file);
    }
}

/* The length that goes with a family in bind, connect and sendto. */
socklen_t required_length(int family)
{
    switch (family) {
    case AF_INET:
        return sizeof(struct sockaddr_in);
    case AF_INET6:
        return sizeof(struct sockaddr_in6);
    case AF_PACKET:
        return sizeof(struct sockaddr_ll);
    default:
        return sizeof(sa_family_t) + 1;
    }
}

/* Reads the address that a call was given; errno says what is wrong with it. */
bool read_address(const Endpoint &endpoint, const struct sockaddr *addr, socklen_t length, kel_sockaddr_t &address)
{
    const bool is_inet = endpoint.family == AF_INET || endpoint.family == AF_INET6;
    if (addr == nullptr || length < required_length(endpoint.family)) {
        errno = addr == nullptr ? EFAULT : EINVAL;
        return false;
    }
    address = {};
    memcpy(&address, addr, std::min<size_t>(length, sizeof(address)));
    if (address.sa.sa_family != endpoint.family) {
        errno = is_inet ? EAFNOSUPPORT : EINVAL;
        return false;
    }
    if (endpoint.family == AF_INET6 && IN6_IS_ADDR_LINKLOCAL(&address.sin6.sin6_addr) &&
        address.sin6.sin6_scope_id == 0) {
        errno = EINVAL;
        return false;
    }
    return true;
}

bool is_same_kind(const Endpoint &left, const Endpoint &right)
{
    return left.family == right.family && left.is_sctp() == right.is_sctp() &&
           (left.type == right.type || left.is_sctp());
}

/* Whether what goes to an address reaches an endpoint: 2 for its own address, 1 for the wildcard, 0 if not. */
int reaches(const Endpoint &endpoint, const kel_sockaddr_t &address)
{
    int how = 0;
    for (const kel_sockaddr_t &local : endpoint.local) {
        if (port_of(local) == port_of(address)) {
            how = std::max(how, same_address(local, address) ? 2 : is_wildcard(local) ? 1 : 0);
        }
    }
    return how;
}

kel_sockaddr_t loopback(int family)
{
    kel_sockaddr_t address = {};
    address.sa.sa_family = (sa_family_t)family;
    if (family == AF_INET) {
        address.sin.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    } else {
        address.sin6.sin6_addr = in6addr_loopback;
    }
    return address;
}

bool is_inet(const Endpoint &endpoint)
{
    return endpoint.family == AF_INET || endpoint.family == AF_INET6;
}

/* The endpoint that owns a local path; errno says why there is none. */
EndpointPtr at_path(const kel_sockaddr_t &address, int type)
{
    living();
    auto found = state().files.find(path_of(address));
    if (found == state().files.end()) {
        errno = path_of(address)[0] == '\0' ? ECONNREFUSED : ENOENT;
        return nullptr;
    }
    EndpointPtr owner = found->second.lock();
    if (owner == nullptr) {
        errno = ECONNREFUSED;
        return nullptr;
    }
    if (owner->type != type) {
        errno = EPROTOTYPE;
        return nullptr;
    }
    return owner;
}

int connect_stream(const EndpointPtr &endpoint, int fd, kel_sockaddr_t address)
{
    if (endpoint->connected || endpoint->listening) {
        return fail(EISCONN);
    }
    const EndpointPtr server =
        is_inet(*endpoint) ? reached(*endpoint, address, true) : at_path(address, endpoint->type);
    if (server == nullptr || !server->listening) {
        return server == nullptr && !is_inet(*endpoint) ? -1 : fail(ECONNREFUSED);
    }
    if (is_inet(*endpoint)) {
        actual(address);
        bind_free(*endpoint, address);
        endpoint->local[0] = source(*endpoint, address);
    }
    auto accepted = std::make_shared<Endpoint>();
    accepted->peer = endpoint->local.empty() ? kel_sockaddr_t{{AF_UNIX, {}}} : endpoint->local[0];
    accepted->local = {address};
    if (join(fd, *server, accepted) != 0) {
        return -1;
    }
    endpoint->peer = address;
    endpoint->connected = true;
    return 0;
}

/* A datagram socket keeps the peer in mind: it need not be there. */
int connect_datagrams(Endpoint &endpoint, kel_sockaddr_t address)
{
    if (endpoint.family == AF_UNIX && at_path(address, endpoint.type) == nullptr) {
        return -1;
    }
    if (is_inet(endpoint)) {
        actual(address);
        bind_free(endpoint, address);
        endpoint.local[0] = source(endpoint, address);
    }
    endpoint.peer = address;
    endpoint.connected = true;
    return 0;
}

bool is_peer(const Endpoint &target, const kel_sockaddr_t &from)
{
    return !target.connected || (same_address(target.peer, from) && port_of(target.peer) == port_of(from));
}

/* An IP datagram that nobody waits for is lost, and so is one that finds a full queue. */
ssize_t send_ip(Lock &lock, const EndpointPtr &endpoint, const void *message, size_t length, kel_sockaddr_t address)
{
    constexpr size_t largest = 65507;
    if (port_of(address) == 0 || length > largest) {
        return fail(length > largest ? EMSGSIZE : EINVAL);
    }
    actual(address);
    kel_sockaddr_t any = {};
    any.sa.sa_family = address.sa.sa_family;
    bind_free(*endpoint, any);
    const EndpointPtr target = reached(*endpoint, address, false);
    const Label label = {source(*endpoint, address), {}, 0};
    lock.unlock();
    if (target != nullptr && is_peer(*target, label.from)) {
        const KeepErrno keep;
        deliver(target->inbox, message, length, label, MSG_DONTWAIT);
    }
    return (ssize_t)length;
}

ssize_t send_local(Lock &lock, const Endpoint &endpoint, const void *message, size_t length,
                   const kel_sockaddr_t &address, int flags)
{
    const EndpointPtr target = at_path(address, endpoint.type);
    if (target == nullptr) {
        return -1;
    }
    const Label label = {endpoint.local.empty() ? kel_sockaddr_t{} : endpoint.local[0], {}, 0};
    if (target->connected && (endpoint.local.empty() || path_of(target->peer) != path_of(label.from))) {
        return fail(EPERM);
    }
    lock.unlock();
    return deliver(target->inbox, message, length, label, flags);
}

/* A frame reaches everybody else on its interface who asks for its protocol. */
ssize_t send_frame(const EndpointPtr &endpoint, const void *frame, size_t length, int index)
{
    constexpr size_t header = 14;
    if (index < 1 || (size_t)index > state().interfaces.size()) {
        return fail(ENXIO);
    }
    if (length < header) {
        return fail(EINVAL);
    }
    const Interface &on = state().interfaces[(size_t)index - 1];
    const UCHAR *bytes = static_cast<const UCHAR *>(frame);
    Label label = {};
    struct sockaddr_ll &from = label.from.raw;
    from.sll_family = AF_PACKET;
    memcpy(&from.sll_protocol, bytes + 12, 2);
    from.sll_ifindex = index;
    from.sll_hatype = on.kind;
    from.sll_halen = 6;
    memcpy(from.sll_addr, bytes + 6, 6);
    from.sll_pkttype = (bytes[0] & 1) != 0             ? (memcmp(bytes, "\xff\xff\xff\xff\xff\xff", 6) == 0 ? 1 : 2)
                       : memcmp(bytes, on.mac, 6) == 0 ? 0
                                                       : 3;
    const KeepErrno keep;
    for (const EndpointPtr &target : living()) {
        const int bound = target->local.empty() ? 0 : target->local[0].raw.sll_ifindex;
        if (target->family == AF_PACKET && target != endpoint && (bound == 0 || bound == index) &&
            (target->protocol == htons(3) || target->protocol == from.sll_protocol)) {
            deliver(target->inbox, frame, length, label, MSG_DONTWAIT);
        }
    }
    return (ssize_t)length;
}

Interface *interface(const std::string &name)
{
    for (Interface &candidate : state().interfaces) {
        if (candidate.name == name) {
            return &candidate;
        }
    }
    return nullptr;
}

int bind_path(const EndpointPtr &endpoint, const kel_sockaddr_t &address)
{
    if (!state().files.emplace(path_of(address), endpoint).second) {
        return fail(EADDRINUSE);
    }
    endpoint->local = {address};
    return 0;
}

} // namespace

/* ---- Addresses ----------------------------------------------------------------------------------------------------
 */

bool same_address(const kel_sockaddr_t &left, const kel_sockaddr_t &right)
{
    if (left.sa.sa_family != right.sa.sa_family) {
        return false;
    }
    return left.sa.sa_family == AF_INET ? left.sin.sin_addr.s_addr == right.sin.sin_addr.s_addr
                                        : IN6_ARE_ADDR_EQUAL(&left.sin6.sin6_addr, &right.sin6.sin6_addr);
}

bool is_wildcard(const kel_sockaddr_t &address)
{
    return address.sa.sa_family == AF_INET ? address.sin.sin_addr.s_addr == htonl(INADDR_ANY)
                                           : IN6_IS_ADDR_UNSPECIFIED(&address.sin6.sin6_addr);
}

uint16_t port_of(const kel_sockaddr_t &address)
{
    return ntohs(address.sin.sin_port); /* at the same place in both families */
}

void set_port(kel_sockaddr_t &address, uint16_t port)
{
    address.sin.sin_port = htons(port);
}

void actual(kel_sockaddr_t &address)
{
    if (is_wildcard(address)) {
        const uint16_t port = port_of(address);
        address = loopback(address.sa.sa_family);
        set_port(address, port);
    }
}

kel_sockaddr_t source(const Endpoint &endpoint, const kel_sockaddr_t &destination)
{
    kel_sockaddr_t from = endpoint.local[0];
    if (is_wildcard(from)) {
        from = destination;
        set_port(from, port_of(endpoint.local[0]));
    }
    return from;
}

EndpointPtr reached(const Endpoint &from, const kel_sockaddr_t &address, bool listening)
{
    kel_sockaddr_t destination = address;
    actual(destination);
    EndpointPtr found;
    int best = 0;
    for (const EndpointPtr &candidate : living()) {
        if (is_same_kind(*candidate, from) && (candidate->listening || !listening) &&
            reaches(*candidate, destination) > best) {
            best = reaches(*candidate, destination);
            found = candidate;
        }
    }
    return found;
}

/* As with SO_REUSEADDR, which every socket has: only who listens keeps others off. */
bool is_taken(const Endpoint &endpoint, const kel_sockaddr_t &address)
{
    for (const EndpointPtr &other : living()) {
        if (other.get() == &endpoint || !other->listening || !is_same_kind(*other, endpoint)) {
            continue;
        }
        for (const kel_sockaddr_t &local : other->local) {
            if (port_of(local) == port_of(address) &&
                (same_address(local, address) || is_wildcard(local) || is_wildcard(address))) {
                return true;
            }
        }
    }
    return false;
}

uint16_t free_port(const Endpoint &endpoint)
{
    const std::vector<EndpointPtr> all = living();
    for (;;) {
        uint16_t &port = state().last_port;
        port = port == UINT16_MAX ? 32768 : (uint16_t)(port + 1);
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
        endpoint.local = {address};
        set_port(endpoint.local[0], free_port(endpoint));
    }
}

int copy_address(const kel_sockaddr_t &from, struct sockaddr *addr, socklen_t *length)
{
    if (addr == nullptr || length == nullptr) {
        return fail(EFAULT);
    }
    socklen_t own = required_length(from.sa.sa_family);
    if (from.sa.sa_family == AF_UNIX) {
        const size_t path = strnlen(from.un.sun_path, sizeof(from.un.sun_path));
        own = (socklen_t)(sizeof(sa_family_t) + (path == 0 ? 0 : std::min(path + 1, sizeof(from.un.sun_path))));
    }
    memcpy(addr, &from, std::min(own, *length));
    *length = own;
    return 0;
}

/* Of what was never set, zeros. */
int copy_option(const std::string &bytes, void *value, socklen_t *length)
{
    if (value == nullptr || length == nullptr) {
        return fail(EFAULT);
    }
    if (bytes.empty()) {
        memset(value, 0, *length);
        return 0;
    }
    *length = std::min(*length, (socklen_t)bytes.size());
    memcpy(value, bytes.data(), *length);
    return 0;
}

/* ---- Endpoints ----------------------------------------------------------------------------------------------------
 */

Endpoint::~Endpoint()
{
    if (inbox != -1) {
        ::close(inbox);
    }
}

bool Endpoint::is_sctp() const
{
    return protocol == IPPROTO_SCTP && is_inet(*this);
}

bool Endpoint::is_stream() const
{
    return !is_sctp() && (type == SOCK_STREAM || type == SOCK_SEQPACKET);
}

int fail(int error)
{
    errno = error;
    return -1;
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
            bury(*endpoint); /* close(2) told nobody */
        }
    }
    return open;
}

EndpointPtr find(int fd)
{
    const KeepErrno keep;
    const ino_t inode = inode_of(fd);
    for (const EndpointPtr &endpoint : living()) {
        if (inode != 0 && endpoint->inode == inode) {
            return endpoint;
        }
    }
    return nullptr;
}

/* The name of a local socket, one that nobody else has: it gets it here, when it has none yet. */
static std::string name_of(int fd)
{
    const KeepErrno keep;
    struct sockaddr_un address = {AF_UNIX, {}};
    socklen_t length = sizeof(sa_family_t);
    (void)::bind(fd, reinterpret_cast<struct sockaddr *>(&address), length);
    length = sizeof(address);
    (void)::getsockname(fd, reinterpret_cast<struct sockaddr *>(&address), &length);
    return std::string(address.sun_path, length - sizeof(sa_family_t));
}

static int connect_to(int fd, const std::string &name)
{
    struct sockaddr_un address = {AF_UNIX, {}};
    memcpy(address.sun_path, name.data(), name.size());
    return ::connect(fd, reinterpret_cast<struct sockaddr *>(&address), (socklen_t)(sizeof(sa_family_t) + name.size()));
}

int join(int fd, const Endpoint &server, const EndpointPtr &accepted)
{
    accepted->family = server.family;
    accepted->type = server.type;
    accepted->protocol = server.protocol;
    accepted->options = server.options;
    accepted->connected = true;
    const std::string name = name_of(fd);
    state().backlog[name] = accepted;
    if (connect_to(fd, server.name) != 0) {
        state().backlog.erase(name);
        return -1;
    }
    return 0;
}

/* Whoever writes into an inbox decides whether to wait; there is as much room as there may be. */
static int make_roomy(int inbox)
{
    const int room = 1 << 22;
    setsockopt(inbox, SOL_SOCKET, SO_SNDBUF, &room, sizeof(room));
    fcntl(inbox, F_SETFD, FD_CLOEXEC);
    fcntl(inbox, F_SETFL, 0);
    return inbox;
}

int make_pair(Endpoint &endpoint, int flags)
{
    int pair[2];
    /* Packets have an end, which SCTP tells; datagrams may be empty. */
    if (socketpair(AF_UNIX, (endpoint.is_sctp() ? SOCK_SEQPACKET : SOCK_DGRAM) | flags, 0, pair) != 0) {
        return -1;
    }
    endpoint.inbox = make_roomy(pair[1]);
    return pair[0];
}

int join_by_inbox(const Endpoint &server, const EndpointPtr &accepted)
{
    accepted->inbox = make_roomy(::socket(AF_UNIX, SOCK_SEQPACKET, 0));
    return join(accepted->inbox, server, accepted);
}

int make_inbox(Endpoint &endpoint, int fd)
{
    const int listener = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    const std::string name = name_of(listener);
    if (::listen(listener, 1) == 0 && connect_to(fd, name) == 0) {
        endpoint.inbox = make_roomy(::accept(listener, nullptr, nullptr));
    }
    const KeepErrno keep;
    ::close(listener);
    return endpoint.inbox == -1 ? -1 : 0;
}

int listen_locally(Endpoint &endpoint, int fd)
{
    endpoint.name = name_of(fd);
    return ::listen(fd, SOMAXCONN); /* never full */
}

void reset()
{
    const Lock lock(mutex);
    for (const EndpointPtr &endpoint : living()) {
        endpoint->associations.clear(); /* nobody is left to hear of the end */
        ::close(endpoint->fd);
    }
    living();
    state().backlog.clear();
    state().files.clear();
    state().interfaces = first_interfaces;
}

/* ---- Messages -----------------------------------------------------------------------------------------------------
 */

union Control {
    struct cmsghdr header;
    char bytes[CMSG_SPACE(sizeof(int))];
};

ssize_t deliver(int inbox, const void *message, size_t length, const Label &label, int flags)
{
    const int file = memfd_create("label", MFD_CLOEXEC);
    if (file == -1 || write(file, &label, sizeof(label)) != (ssize_t)sizeof(label)) {
        return -1;
    }
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
        if (pread(file, &label, sizeof(label), 0) != (ssize_t)sizeof(label)) {
            label = {};
        }
        ::close(file);
    }
    return count;
}

bool is_waiting(int fd, int flags)
{
    return (flags & MSG_DONTWAIT) == 0 && (fcntl(fd, F_GETFL) & O_NONBLOCK) == 0;
}

static ssize_t receive(int fd, void *buffer, size_t length, int flags, struct sockaddr *from, socklen_t *fromlen)
{
    Lock lock(mutex);
    const EndpointPtr endpoint = find(fd);
    lock.unlock();
    if (endpoint == nullptr || endpoint->is_stream()) {
        return endpoint == nullptr && from != nullptr ? ::recvfrom(fd, buffer, length, flags, from, fromlen)
                                                      : ::recv(fd, buffer, length, flags);
    }
    Label label;
    int out;
    const ssize_t count = endpoint->is_sctp() ? sctp_receive(endpoint, fd, buffer, length, flags, label, out)
                                              : take(fd, buffer, length, flags, label);
    if (count >= 0 && from != nullptr && label.from.sa.sa_family != 0) {
        copy_address(label.from, from, fromlen);
    }
    return count;
}

static ssize_t transmit(int fd, const void *message, size_t length, int flags, const struct sockaddr *to,
                        socklen_t tolen)
{
    Lock lock(mutex);
    const EndpointPtr endpoint = find(fd);
    if (endpoint == nullptr || endpoint->is_stream()) {
        lock.unlock();
        const bool ignored = endpoint != nullptr && is_inet(*endpoint); /* TCP does not look at it */
        return ::sendto(fd, message, length, flags, ignored ? nullptr : to, ignored ? 0 : tolen);
    }
    kel_sockaddr_t address = endpoint->peer;
    if (to != nullptr && !read_address(*endpoint, to, tolen, address)) {
        return -1;
    }
    if (endpoint->is_sctp()) {
        lock.unlock();
        return sctp_transmit(endpoint, fd, message, length, to == nullptr ? nullptr : &address, {}, flags);
    }
    if (endpoint->family == AF_PACKET) {
        const int bound = endpoint->local.empty() ? 0 : endpoint->local[0].raw.sll_ifindex;
        return send_frame(endpoint, message, length, to == nullptr ? bound : address.raw.sll_ifindex);
    }
    if (to == nullptr && !endpoint->connected) {
        return fail(is_inet(*endpoint) ? EDESTADDRREQ : ENOTCONN);
    }
    return is_inet(*endpoint) ? send_ip(lock, endpoint, message, length, address)
                              : send_local(lock, *endpoint, message, length, address,
                                           is_waiting(fd, flags) ? flags : flags | MSG_DONTWAIT);
}

} // namespace kel_fake_net

/* ---- Calls of the system -------------------------------------------------------------------------------------------
 */

using namespace kel_fake_net;

extern "C" {

int kel_net_socket(int domain, int type, int protocol)
{
    if (kel_fake::fails("socket")) {
        return -1;
    }
    const int flags = type & (SOCK_NONBLOCK | SOCK_CLOEXEC);
    auto endpoint = std::make_shared<Endpoint>();
    endpoint->family = domain;
    endpoint->type = type & ~flags;
    endpoint->protocol = protocol;
    if (domain != AF_UNIX && domain != AF_PACKET && !is_inet(*endpoint)) {
        return fail(EAFNOSUPPORT);
    }
    const bool is_known = domain == AF_PACKET   ? endpoint->type == SOCK_RAW || endpoint->type == SOCK_DGRAM
                          : endpoint->is_sctp() ? endpoint->type == SOCK_STREAM || endpoint->type == SOCK_SEQPACKET
                                                : endpoint->type == SOCK_STREAM || endpoint->type == SOCK_DGRAM ||
                                                      (domain == AF_UNIX && endpoint->type == SOCK_SEQPACKET);
    if (!is_known) {
        return fail(ESOCKTNOSUPPORT);
    }

    const bool is_connected = endpoint->is_stream() || (endpoint->is_sctp() && endpoint->type == SOCK_STREAM);
    const int fd = is_connected ? ::socket(AF_UNIX, (endpoint->is_sctp() ? SOCK_SEQPACKET : endpoint->type) | flags, 0)
                                : make_pair(*endpoint, flags);
    if (fd != -1) {
        const Lock lock(mutex);
        add(endpoint, fd);
    }
    return fd;
}

int kel_net_close(int fd)
{
    {
        const Lock lock(mutex);
        const EndpointPtr endpoint = find(fd);
        if (endpoint != nullptr && endpoint->fd == fd) {
            bury(endpoint);
        }
        const int result = ::close(fd);
        return kel_fake::fails("close") ? -1 : result;
    }
}

int kel_net_bind(int fd, const struct sockaddr *addr, socklen_t length)
{
    if (kel_fake::fails("bind")) {
        return -1;
    }
    const Lock lock(mutex);
    const EndpointPtr endpoint = find(fd);
    if (endpoint == nullptr) {
        return ::bind(fd, addr, length);
    }
    kel_sockaddr_t address;
    if (!read_address(*endpoint, addr, length, address)) {
        return -1;
    }
    if (endpoint->family == AF_PACKET) {
        if ((size_t)address.raw.sll_ifindex > state().interfaces.size()) {
            return fail(ENODEV);
        }
        endpoint->protocol = address.raw.sll_protocol != 0 ? address.raw.sll_protocol : endpoint->protocol;
        endpoint->local = {address};
        return 0;
    }
    if (!endpoint->local.empty()) {
        return fail(EINVAL);
    }
    if (endpoint->family == AF_UNIX) {
        return bind_path(endpoint, address);
    }
    if (port_of(address) == 0) {
        bind_free(*endpoint, address);
        return 0;
    }
    if (is_taken(*endpoint, address)) {
        return fail(EADDRINUSE);
    }
    endpoint->local = {address};
    return 0;
}

int kel_net_listen(int fd, int backlog)
{
    if (kel_fake::fails("listen")) {
        return -1;
    }
    const Lock lock(mutex);
    const EndpointPtr endpoint = find(fd);
    if (endpoint == nullptr) {
        return ::listen(fd, backlog);
    }
    if (!endpoint->is_stream() && !endpoint->is_sctp()) {
        return fail(EOPNOTSUPP);
    }
    if (endpoint->connected || (endpoint->family == AF_UNIX && endpoint->local.empty())) {
        return fail(EINVAL);
    }
    if (endpoint->is_sctp() && backlog == 0) {
        const bool ended = endpoint->listening;
        endpoint->listening = false;
        return ended ? 0 : fail(EINVAL);
    }
    if (is_inet(*endpoint)) {
        kel_sockaddr_t any = {};
        any.sa.sa_family = (sa_family_t)endpoint->family;
        bind_free(*endpoint, any);
        for (const kel_sockaddr_t &local : endpoint->local) {
            if (is_taken(*endpoint, local)) {
                return fail(EADDRINUSE);
            }
        }
    }
    if (endpoint->inbox == -1 && listen_locally(*endpoint, fd) != 0) {
        return -1;
    }
    endpoint->listening = true;
    return 0;
}

int kel_net_accept(int fd, struct sockaddr *addr, socklen_t *length)
{
    if (kel_fake::fails("accept")) {
        return -1;
    }
    {
        const Lock lock(mutex);
        if (find(fd) == nullptr) {
            return ::accept(fd, addr, length);
        }
    }
    struct sockaddr_un client = {};
    socklen_t client_length = sizeof(client);
    const int accepted = ::accept(fd, reinterpret_cast<struct sockaddr *>(&client), &client_length);
    if (accepted == -1) {
        return -1;
    }
    const Lock lock(mutex);
    auto found = state().backlog.find(std::string(client.sun_path, client_length - sizeof(sa_family_t)));
    const EndpointPtr endpoint = found->second;
    state().backlog.erase(found);
    add(endpoint, accepted);
    copy_address(endpoint->peer, addr, length);
    return accepted;
}

int kel_net_connect(int fd, const struct sockaddr *addr, socklen_t length)
{
    if (kel_fake::fails("connect")) {
        return -1;
    }
    Lock lock(mutex);
    const EndpointPtr endpoint = find(fd);
    if (endpoint == nullptr) {
        lock.unlock();
        return ::connect(fd, addr, length);
    }
    kel_sockaddr_t address;
    if (!read_address(*endpoint, addr, length, address)) {
        return -1;
    }
    if (endpoint->is_sctp()) {
        return sctp_connect(endpoint, fd, {address}) == nullptr ? -1 : 0;
    }
    if (endpoint->family == AF_PACKET) {
        return fail(EOPNOTSUPP);
    }
    return endpoint->is_stream() ? connect_stream(endpoint, fd, address) : connect_datagrams(*endpoint, address);
}

int kel_net_getpeername(int fd, struct sockaddr *addr, socklen_t *length)
{
    if (kel_fake::fails("getpeername")) {
        return -1;
    }
    const Lock lock(mutex);
    const EndpointPtr endpoint = find(fd);
    if (endpoint == nullptr) {
        return ::getpeername(fd, addr, length);
    }
    if (endpoint->family == AF_PACKET) {
        return fail(EOPNOTSUPP);
    }
    return endpoint->connected ? copy_address(endpoint->peer, addr, length) : fail(ENOTCONN);
}

int kel_net_getsockname(int fd, struct sockaddr *addr, socklen_t *length)
{
    if (kel_fake::fails("getsockname")) {
        return -1;
    }
    const Lock lock(mutex);
    const EndpointPtr endpoint = find(fd);
    if (endpoint == nullptr) {
        return ::getsockname(fd, addr, length);
    }
    kel_sockaddr_t none = {};
    none.sa.sa_family = (sa_family_t)endpoint->family;
    return copy_address(endpoint->local.empty() ? none : endpoint->local[0], addr, length);
}

ssize_t kel_net_recv(int fd, void *buffer, size_t length, int flags)
{
    return kel_fake::fails("recv") ? -1 : receive(fd, buffer, length, flags, nullptr, nullptr);
}

ssize_t kel_net_recvfrom(int fd, void *buffer, size_t length, int flags, struct sockaddr *addr, socklen_t *addr_length)
{
    return kel_fake::fails("recvfrom") ? -1 : receive(fd, buffer, length, flags, addr, addr_length);
}

ssize_t kel_net_send(int fd, const void *buffer, size_t length, int flags)
{
    return kel_fake::fails("send") ? -1 : transmit(fd, buffer, length, flags, nullptr, 0);
}

ssize_t kel_net_sendto(int fd, const void *buffer, size_t length, int flags, const struct sockaddr *addr,
                       socklen_t addr_length)
{
    return kel_fake::fails("sendto") ? -1 : transmit(fd, buffer, length, flags, addr, addr_length);
}

/* Options of the socket are the local socket's; of what is not there only what was set is known. */
int kel_net_getsockopt(int fd, int level, int option, void *value, socklen_t *length)
{
    if (kel_fake::fails("getsockopt")) {
        return -1;
    }
    const Lock lock(mutex);
    const EndpointPtr endpoint = find(fd);
    if (endpoint == nullptr) {
        return ::getsockopt(fd, level, option, value, length);
    }
    if (level == SOL_SCTP && endpoint->is_sctp()) {
        return sctp_get_option(*endpoint, option, value, length);
    }
    if (level == SOL_SOCKET) {
        const std::map<int, int> own = {{SO_DOMAIN, endpoint->family},
                                        {SO_TYPE, endpoint->type},
                                        {SO_PROTOCOL, endpoint->protocol},
                                        {SO_ACCEPTCONN, endpoint->listening}};
        auto found = own.find(option);
        if (found == own.end()) {
            return ::getsockopt(fd, level, option, value, length);
        }
        return copy_option({reinterpret_cast<const char *>(&found->second), sizeof(int)}, value, length);
    }
    return copy_option(endpoint->options[{level, option}], value, length);
}

int kel_net_setsockopt(int fd, int level, int option, const void *value, socklen_t length)
{
    if (kel_fake::fails("setsockopt")) {
        return -1;
    }
    const Lock lock(mutex);
    const EndpointPtr endpoint = find(fd);
    if (endpoint == nullptr || level == SOL_SOCKET) {
        return ::setsockopt(fd, level, option, value, length);
    }
    if (value == nullptr) {
        return fail(EFAULT);
    }
    if (level == SOL_SCTP && endpoint->is_sctp()) {
        return sctp_set_option(*endpoint, option, value, length);
    }
    endpoint->options[{level, option}].assign(static_cast<const char *>(value), length);
    return 0;
}

int kel_net_unlink(const char *path)
{
    if (kel_fake::fails("unlink")) {
        return -1;
    }
    if (path == nullptr) {
        return fail(EFAULT);
    }
    const Lock lock(mutex);
    return path[0] != '\0' && state().files.erase(path) == 1 ? 0 : fail(ENOENT);
}

int kel_net_ioctl(int fd, unsigned long request, struct ifreq *query)
{
    if (kel_fake::fails("ioctl")) {
        return -1;
    }
    const Lock lock(mutex);
    if (find(fd) == nullptr) {
        return ::ioctl(fd, request, query);
    }
    const Interface *found = interface(std::string(query->ifr_name, strnlen(query->ifr_name, IFNAMSIZ - 1)));
    if (found == nullptr) {
        return fail(ENODEV);
    }
    if (request == SIOCGIFINDEX) {
        query->ifr_ifindex = (int)(found - state().interfaces.data()) + 1;
    } else {
        query->ifr_hwaddr.sa_family = found->kind;
        memcpy(query->ifr_hwaddr.sa_data, found->mac, sizeof(found->mac));
    }
    return 0;
}

unsigned int kel_net_if_nametoindex(const char *name)
{
    if (kel_fake::fails("if_nametoindex")) {
        return 0;
    }
    const Lock lock(mutex);
    const Interface *found = interface(name);
    if (found == nullptr) {
        errno = ENODEV;
        return 0;
    }
    return (unsigned)(found - state().interfaces.data()) + 1;
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
    Interface *found = interface(name);
    if (found == nullptr) {
        found = &state().interfaces.emplace_back(Interface{name, {}, ARPHRD_ETHER});
    }
    memcpy(found->mac, mac, sizeof(found->mac));
}
}
