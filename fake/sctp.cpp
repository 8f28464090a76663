/* SCTP inside the process: associations, messages with their labels, notifications, and the calls of libsctp. */
#include "network.h"

#include <algorithm>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "calls.h"
#include "kel_socket_fake.h"

namespace kel_fake_net
{

namespace
{

/* Who has one association: accepted, connected by itself, or peeled off. */
bool is_single(const Endpoint &endpoint)
{
    return endpoint.type == SOCK_STREAM || endpoint.peeled;
}

/* The association that a call names; a one-to-one socket has one, whatever the call says. */
AssociationPtr association(const Endpoint &endpoint, sctp_assoc_t id)
{
    if (is_single(endpoint)) {
        return endpoint.associations.empty() ? nullptr : endpoint.associations.begin()->second;
    }
    auto found = endpoint.associations.find(id);
    return found == endpoint.associations.end() ? nullptr : found->second;
}

Path *path(Association &of, const kel_sockaddr_t &address)
{
    for (Path &candidate : of.paths) {
        if (same_address(candidate.address, address) &&
            (port_of(address) == 0 || port_of(address) == port_of(candidate.address))) {
            return &candidate;
        }
    }
    return nullptr;
}

AssociationPtr association_with(const Endpoint &endpoint, const kel_sockaddr_t &peer)
{
    for (const auto &[id, candidate] : endpoint.associations) {
        if (path(*candidate, peer) != nullptr) {
            return candidate;
        }
    }
    return nullptr;
}

/* ---- Notifications ------------------------------------------------------------------------------------------------
 */

bool notify(const Endpoint &endpoint, const AssociationPtr &about, const void *record, size_t size)
{
    uint16_t type;
    memcpy(&type, record, sizeof(type));
    const size_t event = (size_t)type - SCTP_SN_TYPE_BASE;
    if (event >= sizeof(endpoint.events) || endpoint.events[event] == 0 || endpoint.inbox == -1) {
        return false;
    }
    Label label = {};
    label.flags = MSG_NOTIFICATION;
    if (about != nullptr) {
        label.from = about->source();
        label.info.sinfo_assoc_id = about->id;
    }
    const int before = errno;
    const bool delivered = deliver(endpoint.inbox, record, size, label, MSG_DONTWAIT) != -1;
    errno = before;
    return delivered;
}

void notify_change(const Endpoint &endpoint, const AssociationPtr &about, int change)
{
    struct sctp_assoc_change record = {};
    record.sac_type = SCTP_ASSOC_CHANGE;
    record.sac_length = sizeof(record);
    record.sac_state = (uint16_t)change;
    record.sac_assoc_id = about->id;
    if (change == SCTP_COMM_UP) {
        record.sac_outbound_streams = about->outbound;
        record.sac_inbound_streams = about->inbound;
    }
    notify(endpoint, about, &record, sizeof(record));
}

/* ---- The life of an association ------------------------------------------------------------------------------------
 */

/* An association is over for one end: a one-to-one descriptor finds error, once, and nothing behind it. */
void finish(const AssociationPtr &ended, int error)
{
    const EndpointPtr owner = ended->owner.lock();
    if (owner == nullptr || owner->associations.erase(ended->id) == 0) {
        return;
    }
    if (is_single(*owner)) {
        owner->connected = false;
        owner->error = error;
        shutdown(owner->inbox, SHUT_WR);
    }
}

/* The same, and the end hears of it. */
void end(const AssociationPtr &ended, int change, bool by_peer)
{
    const EndpointPtr owner = ended == nullptr ? nullptr : ended->owner.lock();
    if (owner == nullptr || owner->associations.count(ended->id) == 0) {
        return;
    }
    if (by_peer && change == SCTP_SHUTDOWN_COMP) {
        struct sctp_shutdown_event record = {};
        record.sse_type = SCTP_SHUTDOWN_EVENT;
        record.sse_length = sizeof(record);
        record.sse_assoc_id = ended->id;
        notify(*owner, ended, &record, sizeof(record));
    }
    notify_change(*owner, ended, change);
    finish(ended, by_peer && change == SCTP_COMM_LOST ? ECONNRESET : 0);
}

void end_both(const AssociationPtr &near, int change)
{
    end(near->peer.lock(), change, true);
    end(near, change, false);
}

AssociationPtr make_association(const EndpointPtr &owner, const std::vector<kel_sockaddr_t> &peers)
{
    static sctp_assoc_t last_id;
    auto made = std::make_shared<Association>();
    made->id = ++last_id;
    made->owner = owner;
    for (const kel_sockaddr_t &peer : peers) {
        made->paths.push_back({peer, SCTP_ACTIVE});
    }
    owner->associations[made->id] = made;
    owner->peer = peers[0];
    owner->connected = is_single(*owner);
    return made;
}

/* A wildcard stands for the addresses that the other end has used. */
std::vector<kel_sockaddr_t> offered(const Endpoint &endpoint, const std::vector<kel_sockaddr_t> &used)
{
    if (!is_wildcard(endpoint.local[0])) {
        return endpoint.local;
    }
    std::vector<kel_sockaddr_t> addresses = used;
    for (kel_sockaddr_t &address : addresses) {
        set_port(address, port_of(endpoint.local[0]));
    }
    return addresses;
}

/* Messages that have arrived for an association go to the descriptor that it gets. */
void move_messages(const Endpoint &from, const Endpoint &to, sctp_assoc_t id)
{
    struct Message {
        std::string bytes;
        Label label;
    };
    std::vector<Message> all;
    for (ssize_t size; (size = recv(from.fd, nullptr, 0, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT)) > 0;) {
        Message &message = all.emplace_back(Message{std::string((size_t)size, '\0'), {}});
        take(from.fd, message.bytes.data(), (size_t)size, MSG_DONTWAIT, message.label);
    }
    for (const Message &message : all) {
        const Endpoint &target = message.label.info.sinfo_assoc_id == id ? to : from;
        deliver(target.inbox, message.bytes.data(), message.bytes.size(), message.label, MSG_DONTWAIT);
    }
}

/* The records of a packed list, as libsctp takes it; errno says what is wrong with it. */
bool read_list(const Endpoint &endpoint, const struct sockaddr *list, int count, std::vector<kel_sockaddr_t> &addresses)
{
    const char *position = reinterpret_cast<const char *>(list);
    for (int i = 0; i < count; i++) {
        kel_sockaddr_t address = {};
        memcpy(&address.sa.sa_family, position, sizeof(address.sa.sa_family));
        if (address.sa.sa_family != endpoint.family) {
            errno = EINVAL;
            return false;
        }
        const size_t size = endpoint.family == AF_INET ? sizeof(struct sockaddr_in) : sizeof(struct sockaddr_in6);
        memcpy(&address, position, size);
        position += size;
        addresses.push_back(address);
    }
    errno = addresses.empty() ? EINVAL : errno;
    return !addresses.empty();
}

int write_list(const std::vector<kel_sockaddr_t> &addresses, struct sockaddr **list)
{
    if (addresses.empty()) {
        return 0;
    }
    const size_t size = addresses[0].sa.sa_family == AF_INET ? sizeof(struct sockaddr_in) : sizeof(struct sockaddr_in6);
    char *bytes = static_cast<char *>(malloc(addresses.size() * size));
    for (size_t i = 0; i < addresses.size(); i++) {
        memcpy(bytes + i * size, &addresses[i], size);
    }
    *list = reinterpret_cast<struct sockaddr *>(bytes);
    return (int)addresses.size();
}

/* The SCTP endpoint of a descriptor; errno says why there is none. */
EndpointPtr sctp_endpoint(int fd)
{
    const EndpointPtr found = find(fd);
    if (found == nullptr || !found->is_sctp()) {
        errno = fcntl(fd, F_GETFD) == -1 ? EBADF : found == nullptr ? ENOTSOCK : ENOPROTOOPT;
        return nullptr;
    }
    return found;
}

int add_addresses(Endpoint &endpoint, const std::vector<kel_sockaddr_t> &addresses)
{
    std::vector<kel_sockaddr_t> local = endpoint.local;
    for (kel_sockaddr_t address : addresses) {
        if (local.empty() && port_of(address) == 0) {
            set_port(address, free_port(endpoint));
        } else if (!local.empty() && port_of(address) == 0) {
            set_port(address, port_of(local[0]));
        }
        if (!local.empty() && port_of(address) != port_of(local[0])) {
            return fail(EINVAL);
        }
        if (is_taken(endpoint, address)) {
            return fail(EADDRINUSE);
        }
        local.push_back(address);
    }
    endpoint.local = local;
    return 0;
}

int remove_addresses(Endpoint &endpoint, const std::vector<kel_sockaddr_t> &addresses)
{
    std::vector<kel_sockaddr_t> local = endpoint.local;
    for (const kel_sockaddr_t &address : addresses) {
        auto found = std::find_if(local.begin(), local.end(),
                                  [&](const kel_sockaddr_t &own) { return same_address(own, address); });
        if (local.size() == 1 || found == local.end()) {
            return fail(local.size() == 1 ? EBUSY : EINVAL);
        }
        local.erase(found);
    }
    endpoint.local = local;
    return 0;
}

template <typename Record> int give(const Record &record, void *value, socklen_t *length)
{
    return copy_option({reinterpret_cast<const char *>(&record), sizeof(record)}, value, length);
}

template <typename Record> Record question(const void *value, socklen_t length)
{
    Record record = {};
    memcpy(&record, value, std::min<size_t>(length, sizeof(record)));
    return record;
}

kel_sockaddr_t from_storage(const struct sockaddr_storage &storage)
{
    kel_sockaddr_t address;
    memcpy(&address, &storage, sizeof(address));
    return address;
}

struct sctp_paddrinfo path_info(const Association &of, const Path &at)
{
    struct sctp_paddrinfo info = {};
    info.spinfo_assoc_id = of.id;
    memcpy(&info.spinfo_address, &at.address, sizeof(at.address));
    info.spinfo_state = at.state;
    info.spinfo_cwnd = 4380;
    info.spinfo_rto = 3000;
    info.spinfo_mtu = 1500;
    return info;
}

} // namespace

const kel_sockaddr_t &Association::source() const
{
    auto is_active = [](const Path &candidate) { return candidate.state == SCTP_ACTIVE; };
    auto found = std::find_if(paths.begin(), paths.end(), is_active);
    return is_active(paths[primary]) || found == paths.end() ? paths[primary].address : found->address;
}

AssociationPtr sctp_connect(const EndpointPtr &endpoint, int fd, std::vector<kel_sockaddr_t> addresses)
{
    EndpointPtr server;
    for (kel_sockaddr_t &address : addresses) {
        if (port_of(address) == 0 || port_of(address) != port_of(addresses[0])) {
            errno = EINVAL;
            return nullptr;
        }
        actual(address);
        server = server == nullptr ? reached(*endpoint, address, true) : server;
    }
    const bool is_connected = is_single(*endpoint) ? endpoint->listening || !endpoint->associations.empty()
                                                   : association_with(*endpoint, addresses[0]) != nullptr;
    if (is_connected || server == nullptr) {
        errno = is_connected ? EISCONN : ECONNREFUSED;
        return nullptr;
    }

    kel_sockaddr_t any = {};
    any.sa.sa_family = (sa_family_t)endpoint->family;
    bind_free(*endpoint, any);
    const std::vector<kel_sockaddr_t> here = offered(*endpoint, {addresses[0]});
    const std::vector<kel_sockaddr_t> there = offered(*server, addresses);
    EndpointPtr far_owner = server;
    if (is_single(*server)) {
        far_owner = std::make_shared<Endpoint>();
        far_owner->local = there;
        far_owner->init = server->init;
        memcpy(far_owner->events, server->events, sizeof(server->events));
        if (join_by_inbox(*server, far_owner) != 0) {
            return nullptr;
        }
    }
    if (is_single(*endpoint) && make_inbox(*endpoint, fd) != 0) {
        return nullptr;
    }

    const AssociationPtr near = make_association(endpoint, there);
    const AssociationPtr far = make_association(far_owner, here);
    near->peer = far;
    far->peer = near;
    near->outbound = far->inbound = std::min(endpoint->init.sinit_num_ostreams, server->init.sinit_max_instreams);
    far->outbound = near->inbound = std::min(server->init.sinit_num_ostreams, endpoint->init.sinit_max_instreams);
    notify_change(*endpoint, near, SCTP_COMM_UP);
    notify_change(*far_owner, far, SCTP_COMM_UP);
    return near;
}

void sctp_closed(const EndpointPtr &endpoint)
{
    const auto associations = endpoint->associations;
    endpoint->associations.clear();
    for (const auto &[id, ended] : associations) {
        end(ended->peer.lock(), SCTP_SHUTDOWN_COMP, true);
    }
}

/* ---- Messages -----------------------------------------------------------------------------------------------------
 */

ssize_t sctp_receive(const EndpointPtr &endpoint, int fd, void *buffer, size_t length, int flags, Label &label,
                     int &out)
{
    out = 0;
    label = {};
    for (;;) {
        const ssize_t size = recv(fd, nullptr, 0, flags | MSG_PEEK | MSG_TRUNC);
        const Lock lock(mutex);
        if (size <= 0) {
            const int error = size == 0 ? std::exchange(endpoint->error, 0) : 0;
            return error != 0 ? fail(error) : size;
        }
        std::string whole((size_t)size, '\0');
        if (take(fd, whole.data(), whole.size(), MSG_PEEK | MSG_DONTWAIT, label) != size) {
            continue; /* another thread has had it */
        }
        const size_t part = std::min(length, whole.size() - endpoint->taken);
        memcpy(buffer, whole.data() + endpoint->taken, part);
        const bool is_end = endpoint->taken + part == whole.size();
        if ((flags & MSG_PEEK) == 0) {
            endpoint->taken = is_end ? 0 : endpoint->taken + part;
            if (is_end) {
                recv(fd, nullptr, 0, MSG_DONTWAIT);
            }
        }
        out = label.flags | (is_end ? MSG_EOR : 0);
        return (ssize_t)part;
    }
}

ssize_t sctp_transmit(const EndpointPtr &endpoint, int fd, const void *message, size_t length, const kel_sockaddr_t *to,
                      const struct sctp_sndrcvinfo &info, int flags)
{
    Lock lock(mutex);
    const bool ends = (info.sinfo_flags & (SCTP_EOF | SCTP_ABORT)) != 0;
    if (length == 0 ? !ends : (info.sinfo_flags & SCTP_EOF) != 0) {
        return fail(EINVAL);
    }
    AssociationPtr near = to == nullptr || is_single(*endpoint) ? association(*endpoint, info.sinfo_assoc_id)
                                                                : association_with(*endpoint, *to);
    if (near == nullptr && to != nullptr && !ends && !endpoint->connected) {
        near = sctp_connect(endpoint, fd, {*to});
        if (near == nullptr) {
            return -1;
        }
    }
    const AssociationPtr far = near == nullptr ? nullptr : near->peer.lock();
    const EndpointPtr target = far == nullptr ? nullptr : far->owner.lock();
    if (target == nullptr) {
        if ((flags & MSG_NOSIGNAL) == 0) {
            raise(SIGPIPE);
        }
        return fail(EPIPE);
    }
    if (ends) {
        end_both(near, (info.sinfo_flags & SCTP_ABORT) != 0 ? SCTP_COMM_LOST : SCTP_SHUTDOWN_COMP);
        return 0;
    }
    int room = 0;
    socklen_t size = sizeof(room);
    getsockopt(fd, SOL_SOCKET, SO_SNDBUF, &room, &size);
    if (info.sinfo_stream >= near->outbound || length > (size_t)room) {
        return fail(length > (size_t)room ? EMSGSIZE : EINVAL);
    }

    Label label = {far->source(), {}, 0};
    label.info.sinfo_stream = info.sinfo_stream;
    label.info.sinfo_flags = info.sinfo_flags & SCTP_UNORDERED;
    label.info.sinfo_ssn = label.info.sinfo_flags != 0 ? (uint16_t)0 : near->next_ssn[info.sinfo_stream]++;
    label.info.sinfo_ppid = info.sinfo_ppid;
    label.info.sinfo_tsn = near->next_tsn++;
    label.info.sinfo_cumtsn = label.info.sinfo_flags != 0 ? label.info.sinfo_tsn : 0;
    label.info.sinfo_assoc_id = far->id;
    lock.unlock();
    return deliver(target->inbox, message, length, label, is_waiting(fd, flags) ? 0 : MSG_DONTWAIT);
}

/* ---- Options ------------------------------------------------------------------------------------------------------
 */

int sctp_get_option(Endpoint &endpoint, int option, void *value, socklen_t *length)
{
    const AssociationPtr of = association(endpoint, question<sctp_assoc_t>(value, *length));
    switch (option) {
    case SCTP_INITMSG:
        return give(endpoint.init, value, length);
    case SCTP_EVENTS:
        return give(endpoint.events, value, length);
    case SCTP_EVENT: {
        struct sctp_event event = question<struct sctp_event>(value, *length);
        event.se_on = endpoint.events[(event.se_type - SCTP_SN_TYPE_BASE) % (int)sizeof(endpoint.events)];
        return give(event, value, length);
    }
    case SCTP_STATUS: {
        if (of == nullptr) {
            return fail(EINVAL);
        }
        struct sctp_status status = {};
        status.sstat_assoc_id = of->id;
        status.sstat_state = SCTP_ESTABLISHED;
        status.sstat_rwnd = 106496;
        status.sstat_instrms = of->inbound;
        status.sstat_outstrms = of->outbound;
        status.sstat_fragmentation_point = 1452;
        status.sstat_primary = path_info(*of, of->paths[of->primary]);
        return give(status, value, length);
    }
    case SCTP_PRIMARY_ADDR: {
        if (of == nullptr) {
            return fail(EINVAL);
        }
        struct sctp_prim primary = {};
        primary.ssp_assoc_id = of->id;
        memcpy(&primary.ssp_addr, &of->paths[of->primary].address, sizeof(kel_sockaddr_t));
        return give(primary, value, length);
    }
    case SCTP_GET_PEER_ADDR_INFO: {
        auto asked = question<struct sctp_paddrinfo>(value, *length);
        Path *at = of == nullptr ? nullptr : path(*of, from_storage(asked.spinfo_address));
        return at == nullptr ? fail(EINVAL) : give(path_info(*of, *at), value, length);
    }
    case SCTP_GET_ASSOC_NUMBER:
        return give((uint32_t)endpoint.associations.size(), value, length);
    case SCTP_GET_ASSOC_ID_LIST: {
        std::vector<uint32_t> list = {(uint32_t)endpoint.associations.size()};
        for (const auto &[id, each] : endpoint.associations) {
            list.push_back((uint32_t)id);
        }
        return copy_option({reinterpret_cast<const char *>(list.data()), list.size() * sizeof(list[0])}, value, length);
    }
    default:
        return copy_option(endpoint.options[{SOL_SCTP, option}], value, length);
    }
}

int sctp_set_option(Endpoint &endpoint, int option, const void *value, socklen_t length)
{
    switch (option) {
    case SCTP_INITMSG: {
        auto set = [](uint16_t &field, uint16_t wanted) { field = wanted != 0 ? wanted : field; };
        const auto wanted = question<struct sctp_initmsg>(value, length);
        set(endpoint.init.sinit_num_ostreams, wanted.sinit_num_ostreams);
        set(endpoint.init.sinit_max_instreams, wanted.sinit_max_instreams);
        set(endpoint.init.sinit_max_attempts, wanted.sinit_max_attempts);
        set(endpoint.init.sinit_max_init_timeo, wanted.sinit_max_init_timeo);
        return 0;
    }
    case SCTP_EVENTS:
        memcpy(endpoint.events, value, std::min<size_t>(length, sizeof(endpoint.events)));
        return 0;
    case SCTP_EVENT: {
        const auto event = question<struct sctp_event>(value, length);
        endpoint.events[(event.se_type - SCTP_SN_TYPE_BASE) % (int)sizeof(endpoint.events)] = event.se_on;
        return 0;
    }
    case SCTP_PRIMARY_ADDR: {
        const auto primary = question<struct sctp_prim>(value, length);
        const AssociationPtr of = association(endpoint, primary.ssp_assoc_id);
        Path *at = of == nullptr ? nullptr : path(*of, from_storage(primary.ssp_addr));
        if (at == nullptr) {
            return fail(EINVAL);
        }
        of->primary = (size_t)(at - of->paths.data());
        return 0;
    }
    default:
        endpoint.options[{SOL_SCTP, option}].assign(static_cast<const char *>(value), length);
        return 0;
    }
}

} // namespace kel_fake_net

/* ---- Calls of libsctp ----------------------------------------------------------------------------------------------
 */

using namespace kel_fake_net;

extern "C" {

int kel_net_sctp_bindx(int sd, struct sockaddr *list, int count, int flags)
{
    if (kel_fake::fails("sctp_bindx")) {
        return -1;
    }
    const Lock lock(mutex);
    const EndpointPtr endpoint = sctp_endpoint(sd);
    std::vector<kel_sockaddr_t> addresses;
    if (endpoint == nullptr || !read_list(*endpoint, list, count, addresses)) {
        return -1;
    }
    switch (flags) {
    case SCTP_BINDX_ADD_ADDR:
        return add_addresses(*endpoint, addresses);
    case SCTP_BINDX_REM_ADDR:
        return remove_addresses(*endpoint, addresses);
    default:
        return fail(EINVAL);
    }
}

int kel_net_sctp_connectx(int sd, struct sockaddr *list, int count, sctp_assoc_t *id)
{
    if (kel_fake::fails("sctp_connectx")) {
        return -1;
    }
    const Lock lock(mutex);
    const EndpointPtr endpoint = sctp_endpoint(sd);
    std::vector<kel_sockaddr_t> addresses;
    if (endpoint == nullptr || !read_list(*endpoint, list, count, addresses)) {
        return -1;
    }
    const AssociationPtr made = sctp_connect(endpoint, sd, addresses);
    if (made == nullptr) {
        return -1;
    }
    if (id != nullptr) {
        *id = made->id;
    }
    return 0;
}

int kel_net_sctp_getpaddrs(int sd, sctp_assoc_t id, struct sockaddr **list)
{
    if (kel_fake::fails("sctp_getpaddrs")) {
        return -1;
    }
    const Lock lock(mutex);
    const EndpointPtr endpoint = sctp_endpoint(sd);
    const AssociationPtr of = endpoint == nullptr ? nullptr : association(*endpoint, id);
    if (of == nullptr) {
        return endpoint == nullptr ? -1 : fail(EINVAL);
    }
    std::vector<kel_sockaddr_t> addresses;
    for (const Path &each : of->paths) {
        addresses.push_back(each.address);
    }
    return write_list(addresses, list);
}

int kel_net_sctp_getladdrs(int sd, sctp_assoc_t id, struct sockaddr **list)
{
    if (kel_fake::fails("sctp_getladdrs")) {
        return -1;
    }
    const Lock lock(mutex);
    const EndpointPtr endpoint = sctp_endpoint(sd);
    if (endpoint == nullptr) {
        return -1;
    }
    const AssociationPtr of = association(*endpoint, id);
    if (of == nullptr && id != 0 && !is_single(*endpoint)) {
        return fail(EINVAL);
    }
    if (endpoint->local.empty()) {
        return 0;
    }
    kel_sockaddr_t used = endpoint->local[0];
    if (of != nullptr) {
        used = of->paths[0].address;
    }
    actual(used);
    return write_list(offered(*endpoint, {used}), list);
}

int kel_net_sctp_freepaddrs(struct sockaddr *list)
{
    free(list);
    return 0;
}

int kel_net_sctp_freeladdrs(struct sockaddr *list)
{
    free(list);
    return 0;
}

int kel_net_sctp_send(int sd, const void *message, size_t length, const struct sctp_sndrcvinfo *info, int flags)
{
    if (kel_fake::fails("sctp_send")) {
        return -1;
    }
    Lock lock(mutex);
    const EndpointPtr endpoint = sctp_endpoint(sd);
    lock.unlock();
    const struct sctp_sndrcvinfo none = {};
    return endpoint == nullptr
               ? -1
               : (int)sctp_transmit(endpoint, sd, message, length, nullptr, info == nullptr ? none : *info, flags);
}

int kel_net_sctp_sendmsg(int sd, const void *message, size_t length, struct sockaddr *to, socklen_t tolen,
                         uint32_t ppid, uint32_t flags, uint16_t stream, uint32_t timetolive, uint32_t context)
{
    if (kel_fake::fails("sctp_sendmsg")) {
        return -1;
    }
    Lock lock(mutex);
    const EndpointPtr endpoint = sctp_endpoint(sd);
    lock.unlock();
    std::vector<kel_sockaddr_t> address;
    if (endpoint == nullptr || (tolen != 0 && !read_list(*endpoint, to, 1, address))) {
        return -1;
    }
    struct sctp_sndrcvinfo info = {};
    info.sinfo_stream = stream;
    info.sinfo_flags = (uint16_t)flags;
    info.sinfo_ppid = ppid;
    info.sinfo_context = context;
    info.sinfo_timetolive = timetolive;
    return (int)sctp_transmit(endpoint, sd, message, length, address.empty() ? nullptr : address.data(), info, 0);
}

int kel_net_sctp_recvmsg(int sd, void *message, size_t length, struct sockaddr *from, socklen_t *fromlen,
                         struct sctp_sndrcvinfo *info, int *flags)
{
    if (kel_fake::fails("sctp_recvmsg")) {
        return -1;
    }
    Lock lock(mutex);
    const EndpointPtr endpoint = sctp_endpoint(sd);
    lock.unlock();
    if (endpoint == nullptr) {
        return -1;
    }
    Label label;
    const int count = (int)sctp_receive(endpoint, sd, message, length, *flags, label, *flags);
    if (count <= 0) {
        return count;
    }
    if (from != nullptr) {
        copy_address(label.from, from, fromlen);
    }
    if (info != nullptr && label.flags == 0 && endpoint->events[0] != 0) {
        *info = label.info;
    }
    return count;
}

int kel_net_sctp_peeloff(int sd, sctp_assoc_t id)
{
    if (kel_fake::fails("sctp_peeloff")) {
        return -1;
    }
    const Lock lock(mutex);
    const EndpointPtr endpoint = sctp_endpoint(sd);
    const AssociationPtr peeled = endpoint == nullptr || is_single(*endpoint) ? nullptr : association(*endpoint, id);
    if (peeled == nullptr) {
        return endpoint == nullptr ? -1 : fail(EINVAL);
    }
    auto owner = std::make_shared<Endpoint>();
    owner->family = endpoint->family;
    owner->type = endpoint->type;
    owner->protocol = endpoint->protocol;
    const int fd = make_pair(*owner, 0);
    if (fd == -1) {
        return -1;
    }
    owner->peeled = owner->connected = true;
    owner->local = endpoint->local;
    owner->peer = peeled->paths[peeled->primary].address;
    owner->options = endpoint->options;
    owner->init = endpoint->init;
    memcpy(owner->events, endpoint->events, sizeof(owner->events));
    add(owner, fd);
    peeled->owner = owner;
    owner->associations[id] = peeled;
    endpoint->associations.erase(id);
    move_messages(*endpoint, *owner, id);
    return fd;
}

int kel_net_sctp_opt_info(int sd, sctp_assoc_t id, int option, void *value, socklen_t *length)
{
    if (kel_fake::fails("sctp_opt_info")) {
        return -1;
    }
    const Lock lock(mutex);
    const EndpointPtr endpoint = sctp_endpoint(sd);
    if (endpoint == nullptr) {
        return -1;
    }
    memcpy(value, &id, sizeof(id));
    return sctp_get_option(*endpoint, option, value, length);
}

LONG kel_fake_sctp_notify(LONG sockfd, const void *notification, size_t size)
{
    const Lock lock(mutex);
    const EndpointPtr endpoint = find((int)sockfd);
    if (endpoint == nullptr || endpoint->associations.empty()) {
        return KEL_ERROR;
    }
    struct sctp_assoc_change change = {};
    memcpy(&change, notification, std::min(size, sizeof(change)));
    if (change.sac_type != SCTP_ASSOC_CHANGE || change.sac_state != SCTP_COMM_LOST) {
        return notify(*endpoint, endpoint->associations.begin()->second, notification, size) ? KEL_OK : KEL_ERROR;
    }
    const AssociationPtr lost = association(*endpoint, change.sac_assoc_id);
    if (lost == nullptr) {
        return KEL_ERROR;
    }
    const bool delivered = notify(*endpoint, lost, notification, size);
    finish(lost, ETIMEDOUT);
    end(lost->peer.lock(), SCTP_COMM_LOST, false);
    return delivered ? KEL_OK : KEL_ERROR;
}

LONG kel_fake_sctp_path(LONG sockfd, sctp_assoc_t assoc_id, const kel_sockaddr_t *address, LONG state)
{
    const Lock lock(mutex);
    const EndpointPtr endpoint = find((int)sockfd);
    const AssociationPtr of = endpoint == nullptr ? nullptr : association(*endpoint, assoc_id);
    Path *at = of == nullptr ? nullptr : path(*of, *address);
    if (at == nullptr) {
        return KEL_ERROR;
    }
    switch (state) {
    case SCTP_ADDR_UNREACHABLE:
        at->state = SCTP_INACTIVE;
        break;
    case SCTP_ADDR_POTENTIALLY_FAILED:
        at->state = SCTP_PF;
        break;
    case SCTP_ADDR_MADE_PRIM:
        of->primary = (size_t)(at - of->paths.data());
        break;
    default:
        at->state = SCTP_ACTIVE;
        break;
    }
    struct sctp_paddr_change record = {};
    record.spc_type = SCTP_PEER_ADDR_CHANGE;
    record.spc_length = sizeof(record);
    memcpy(&record.spc_aaddr, &at->address, sizeof(at->address));
    record.spc_state = (int)state;
    record.spc_assoc_id = of->id;
    notify(*endpoint, of, &record, sizeof(record));
    return KEL_OK;
}
}
