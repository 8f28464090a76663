/* SCTP inside the process: associations, messages with their labels, notifications, and the calls of libsctp. */
#include "network.h"

#include <algorithm>
#include <arpa/inet.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

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

EndpointPtr sctp_endpoint(int fd)
{
    const EndpointPtr found = own(fd);
    require(found->is_sctp(), ENOPROTOOPT);
    return found;
}

/* The association that a call names, or none; a one-to-one socket has one, whatever the call says. */
AssociationPtr association(const Endpoint &endpoint, sctp_assoc_t id)
{
    auto found = is_single(endpoint) ? endpoint.associations.begin() : endpoint.associations.find(id);
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

/* Where messages come from: the primary path, or the first one that is reachable. */
const kel_sockaddr_t &source(const Association &of)
{
    auto is_active = [](const Path &candidate) { return candidate.state == SCTP_ACTIVE; };
    auto found = std::find_if(of.paths.begin(), of.paths.end(), is_active);
    const Path &primary = of.paths[of.primary];
    return is_active(primary) || found == of.paths.end() ? primary.address : found->address;
}

kel_sockaddr_t from_storage(const struct sockaddr_storage &storage)
{
    kel_sockaddr_t address;
    memcpy(&address, &storage, sizeof(address));
    return address;
}

struct sockaddr_storage to_storage(const kel_sockaddr_t &address)
{
    struct sockaddr_storage storage = {};
    memcpy(&storage, &address, sizeof(address));
    return storage;
}

/* ---- Notifications ----------------------------------------------------------------------------------------------- */

/* Delivers what the end of an association has subscribed to. */
bool notify(const Association &about, const void *record, size_t size)
{
    const EndpointPtr owner = about.owner.lock();
    uint16_t type;
    memcpy(&type, record, sizeof(type));
    const size_t event = (size_t)type - SCTP_SN_TYPE_BASE;
    if (owner == nullptr || event >= sizeof(owner->events) || owner->events[event] == 0) {
        return false;
    }
    Label label = {source(about), {}, MSG_NOTIFICATION, 0};
    label.info.sinfo_assoc_id = about.id;
    const KeepErrno keep;
    return deliver(owner->inbox, record, size, label, MSG_DONTWAIT) != -1;
}

template <typename Record> std::string bytes_of(const Record &record)
{
    return std::string(reinterpret_cast<const char *>(&record), sizeof(record));
}

void notify_change(const Association &about, int change, uint16_t error = 0, const std::string &info = "")
{
    struct sctp_assoc_change record = {};
    record.sac_type = SCTP_ASSOC_CHANGE;
    record.sac_length = (uint32_t)(sizeof(record) + info.size());
    record.sac_state = (uint16_t)change;
    record.sac_error = error;
    record.sac_assoc_id = about.id;
    if (change == SCTP_COMM_UP) {
        record.sac_outbound_streams = about.outbound;
        record.sac_inbound_streams = about.inbound;
    }
    const std::string whole = bytes_of(record) + info;
    notify(about, whole.data(), whole.size());
}

void notify_unsent(const Association &about, const struct sctp_sndrcvinfo &info, const void *message, size_t length)
{
    struct sctp_send_failed record = {};
    record.ssf_type = SCTP_SEND_FAILED;
    record.ssf_flags = SCTP_DATA_UNSENT;
    record.ssf_length = (uint32_t)(sizeof(record) + length);
    record.ssf_info = info;
    record.ssf_info.sinfo_assoc_id = record.ssf_assoc_id = about.id;
    const std::string whole = bytes_of(record) + std::string(static_cast<const char *>(message), length);
    notify(about, whole.data(), whole.size());
}

/* ---- The life of an association ---------------------------------------------------------------------------------- */

AssociationPtr make_association(const EndpointPtr &owner, const std::vector<kel_sockaddr_t> &peers)
{
    static sctp_assoc_t last_id;
    auto made = std::make_shared<Association>();
    made->id = ++last_id;
    made->owner = owner;
    for (const kel_sockaddr_t &peer : peers) {
        made->paths.push_back({peer, SCTP_ACTIVE});
    }
    return made;
}

void establish(const AssociationPtr &made)
{
    const EndpointPtr owner = made->owner.lock();
    owner->associations[made->id] = made;
    owner->peer = made->paths[0].address;
    owner->connected = is_single(*owner);
    notify_change(*made, SCTP_COMM_UP);
}

/* An association is over for one end: a one-to-one descriptor finds the error, or else the end of its messages. */
void finish(const Association &ended, int error)
{
    const EndpointPtr owner = ended.owner.lock();
    if (owner == nullptr || owner->associations.erase(ended.id) == 0) {
        return;
    }
    owner->connected = false;
    if (owner->type == SOCK_STREAM && error != 0) {
        Label label = {};
        label.error = error;
        deliver(owner->inbox, "", 0, label, MSG_DONTWAIT);
    } else if (owner->type == SOCK_STREAM) {
        shutdown(owner->inbox, SHUT_WR);
    }
}

void shut_down(const AssociationPtr &near)
{
    if (const AssociationPtr far = near->peer.lock()) {
        const struct sctp_shutdown_event record = {SCTP_SHUTDOWN_EVENT, 0, sizeof(record), far->id};
        notify(*far, &record, sizeof(record));
        notify_change(*far, SCTP_SHUTDOWN_COMP);
        finish(*far, 0);
    }
    notify_change(*near, SCTP_SHUTDOWN_COMP);
    finish(*near, 0);
}

/* The peer gets the cause as it is on the wire, with the reason that the user gives. */
void abort(const AssociationPtr &near, const std::string &reason)
{
    const uint16_t by_user = htons(12);
    if (const AssociationPtr far = near->peer.lock()) {
        const uint16_t length = htons((uint16_t)(sizeof(by_user) + sizeof(length) + reason.size()));
        notify_change(*far, SCTP_COMM_LOST, by_user, bytes_of(by_user) + bytes_of(length) + reason);
        finish(*far, ECONNRESET);
    }
    notify_change(*near, SCTP_COMM_LOST, by_user);
    finish(*near, 0);
}

/* A wildcard stands for the addresses that the other end has used. */
std::vector<kel_sockaddr_t> offered(const Endpoint &endpoint, std::vector<kel_sockaddr_t> used)
{
    if (!is_wildcard(endpoint.local[0])) {
        return endpoint.local;
    }
    for (kel_sockaddr_t &address : used) {
        address = with_port(address, port_of(endpoint.local[0]));
    }
    return used;
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

/* ---- Lists, as libsctp packs them -------------------------------------------------------------------------------- */

size_t entry_size(int family)
{
    return family == AF_INET ? sizeof(struct sockaddr_in) : sizeof(struct sockaddr_in6);
}

std::vector<kel_sockaddr_t> read_list(const Endpoint &endpoint, const struct sockaddr *list, int count)
{
    require(count > 0 && list->sa_family == endpoint.family, EINVAL);
    std::vector<kel_sockaddr_t> addresses((size_t)count);
    const char *position = reinterpret_cast<const char *>(list);
    for (kel_sockaddr_t &address : addresses) {
        memcpy(&address, position, entry_size(endpoint.family));
        require(address.sa.sa_family == endpoint.family, EINVAL);
        position += entry_size(endpoint.family);
    }
    return addresses;
}

int write_list(const std::vector<kel_sockaddr_t> &addresses, struct sockaddr **list)
{
    const size_t size = entry_size(addresses[0].sa.sa_family);
    char *bytes = static_cast<char *>(malloc(addresses.size() * size));
    for (size_t i = 0; i < addresses.size(); i++) {
        memcpy(bytes + i * size, &addresses[i], size);
    }
    *list = reinterpret_cast<struct sockaddr *>(bytes);
    return (int)addresses.size();
}

bool contains(const std::vector<kel_sockaddr_t> &list, const kel_sockaddr_t &address)
{
    return std::any_of(list.begin(), list.end(), [&](const kel_sockaddr_t &own) { return same_address(own, address); });
}

void add_addresses(Endpoint &endpoint, const std::vector<kel_sockaddr_t> &addresses)
{
    std::vector<kel_sockaddr_t> local = endpoint.local;
    for (const kel_sockaddr_t &address : addresses) {
        const uint16_t usual = local.empty() ? free_port(endpoint) : port_of(local[0]);
        const uint16_t port = port_of(address) == 0 ? usual : port_of(address);
        require(!contains(local, address) && (local.empty() || port == usual), EINVAL);
        require_free(endpoint, with_port(address, port));
        local.push_back(with_port(address, port));
    }
    endpoint.local = local;
}

void remove_addresses(Endpoint &endpoint, const std::vector<kel_sockaddr_t> &addresses)
{
    for (const kel_sockaddr_t &address : addresses) {
        std::vector<kel_sockaddr_t> &local = endpoint.local;
        require(local.size() > 1, EBUSY);
        require(contains(local, address), EINVAL);
        local.erase(std::find_if(local.begin(), local.end(),
                                 [&](const kel_sockaddr_t &own) { return same_address(own, address); }));
    }
}

/* ---- Option records ---------------------------------------------------------------------------------------------- */

template <typename Record> int give(const Record &record, void *value, socklen_t *length)
{
    return give_option(bytes_of(record), value, length);
}

template <typename Record> Record question(const void *value, socklen_t length)
{
    Record record = {};
    memcpy(&record, value, std::min<size_t>(length, sizeof(record)));
    return record;
}

struct sctp_paddrinfo path_info(const Association &of, const Path &at)
{
    struct sctp_paddrinfo info = {};
    info.spinfo_assoc_id = of.id;
    info.spinfo_address = to_storage(at.address);
    info.spinfo_state = at.state;
    info.spinfo_cwnd = 4380;
    info.spinfo_rto = 3000;
    info.spinfo_mtu = 1500;
    return info;
}

uint8_t &event_flag(Endpoint &endpoint, const struct sctp_event &event)
{
    const size_t index = (size_t)event.se_type - SCTP_SN_TYPE_BASE;
    require(index < sizeof(endpoint.events), EINVAL);
    return endpoint.events[index];
}

} // namespace

/* ---- Associations ------------------------------------------------------------------------------------------------ */

AssociationPtr sctp_connect(const EndpointPtr &endpoint, int fd, std::vector<kel_sockaddr_t> addresses)
{
    EndpointPtr server;
    for (kel_sockaddr_t &address : addresses) {
        require(port_of(address) != 0 && port_of(address) == port_of(addresses[0]), EINVAL);
        address = actual(address);
        server = server == nullptr ? reached(*endpoint, address, true) : server;
    }
    require(is_single(*endpoint) ? !endpoint->listening && endpoint->associations.empty()
                                 : association_with(*endpoint, addresses[0]) == nullptr,
            EISCONN);
    require(server != nullptr, ECONNREFUSED);
    bind_free(*endpoint, wildcard(endpoint->family));
    const std::vector<kel_sockaddr_t> here = offered(*endpoint, {addresses[0]});
    const std::vector<kel_sockaddr_t> there = offered(*server, addresses);

    EndpointPtr far_owner = server;
    if (is_single(*server)) {
        far_owner = std::make_shared<Endpoint>();
        far_owner->local = there;
        far_owner->init = server->init;
        memcpy(far_owner->events, server->events, sizeof(server->events));
        join_by_inbox(*server, far_owner);
    }
    if (is_single(*endpoint)) {
        make_inbox(*endpoint, fd);
    }

    const AssociationPtr near = make_association(endpoint, there);
    const AssociationPtr far = make_association(far_owner, here);
    near->peer = far;
    far->peer = near;
    near->outbound = far->inbound = std::min(endpoint->init.sinit_num_ostreams, server->init.sinit_max_instreams);
    far->outbound = near->inbound = std::min(server->init.sinit_num_ostreams, endpoint->init.sinit_max_instreams);
    establish(near);
    establish(far);
    return near;
}

void sctp_close(const EndpointPtr &endpoint, bool at_once)
{
    memset(endpoint->events, 0, sizeof(endpoint->events)); /* nobody reads here any more */
    for (const auto &[id, ended] : std::map(endpoint->associations)) {
        at_once ? abort(ended, "") : shut_down(ended);
    }
}

/* ---- Messages ---------------------------------------------------------------------------------------------------- */

ssize_t sctp_receive(Lock &lock, Endpoint &endpoint, int fd, void *buffer, size_t length, int flags, Label &label,
                     int &out)
{
    out = 0;
    label = {};
    for (;;) {
        lock.unlock();
        const ssize_t size = recv(fd, nullptr, 0, flags | MSG_PEEK | MSG_TRUNC);
        lock.lock();
        if (size <= 0) {
            if (size == 0 && take(fd, nullptr, 0, MSG_DONTWAIT, label) == 0) {
                require(label.error == 0, label.error);
            }
            return size;
        }
        std::string whole((size_t)size, '\0');
        if (take(fd, whole.data(), whole.size(), MSG_PEEK | MSG_DONTWAIT, label) != size) {
            continue; /* another thread has had it */
        }
        const size_t part = std::min(length, whole.size() - endpoint.taken);
        memcpy(buffer, whole.data() + endpoint.taken, part);
        const bool is_end = endpoint.taken + part == whole.size();
        out = label.flags | (is_end ? MSG_EOR : 0);
        if ((flags & MSG_PEEK) == 0) {
            endpoint.taken = is_end ? 0 : endpoint.taken + part;
            if (is_end) {
                recv(fd, nullptr, 0, MSG_DONTWAIT);
            }
        }
        return (ssize_t)part;
    }
}

ssize_t sctp_transmit(Lock &lock, const EndpointPtr &endpoint, int fd, const void *message, size_t length,
                      const kel_sockaddr_t *to, const struct sctp_sndrcvinfo &info, int flags)
{
    const bool is_eof = (info.sinfo_flags & SCTP_EOF) != 0;
    const bool is_abort = (info.sinfo_flags & SCTP_ABORT) != 0;
    const bool is_end = is_eof || is_abort;
    require(endpoint->type != SOCK_STREAM || !is_end, EINVAL);
    require(length == 0 ? is_end : !is_eof, EINVAL);
    AssociationPtr near = to == nullptr || is_single(*endpoint) ? association(*endpoint, info.sinfo_assoc_id)
                                                                : association_with(*endpoint, *to);
    if (near == nullptr && to != nullptr && !is_end && !endpoint->peeled) {
        if (!is_single(*endpoint) && reached(*endpoint, *to, true) == nullptr) {
            const AssociationPtr failed = make_association(endpoint, {*to});
            notify_change(*failed, SCTP_CANT_STR_ASSOC);
            notify_unsent(*failed, info, message, length);
            return (ssize_t)length;
        }
        near = sctp_connect(endpoint, fd, {*to});
    }
    const AssociationPtr far = near == nullptr ? nullptr : near->peer.lock();
    const EndpointPtr target = far == nullptr ? nullptr : far->owner.lock();
    if (target == nullptr && (flags & MSG_NOSIGNAL) == 0) {
        raise(SIGPIPE);
    }
    require(target != nullptr, EPIPE);
    if (is_end) {
        is_abort ? abort(near, std::string(static_cast<const char *>(message), length)) : shut_down(near);
        return 0;
    }
    int room = 0;
    socklen_t size = sizeof(room);
    getsockopt(fd, SOL_SOCKET, SO_SNDBUF, &room, &size);
    require(length <= (size_t)room, EMSGSIZE);
    require(info.sinfo_stream < near->outbound, EINVAL);

    Label label = {source(*far), {}, 0, 0};
    label.info.sinfo_stream = info.sinfo_stream;
    label.info.sinfo_flags = info.sinfo_flags & SCTP_UNORDERED;
    label.info.sinfo_ppid = info.sinfo_ppid;
    label.info.sinfo_tsn = near->next_tsn++;
    label.info.sinfo_assoc_id = far->id;
    if (label.info.sinfo_flags == 0) {
        label.info.sinfo_ssn = near->next_ssn[info.sinfo_stream]++;
    } else {
        label.info.sinfo_cumtsn = label.info.sinfo_tsn;
    }
    lock.unlock();
    return deliver(target->inbox, message, length, label, waiting(fd, flags));
}

/* ---- Options ----------------------------------------------------------------------------------------------------- */

int sctp_get_option(Endpoint &endpoint, int option, void *value, socklen_t *length)
{
    const AssociationPtr of = association(endpoint, question<sctp_assoc_t>(value, *length));
    require(of != nullptr ||
                (option != SCTP_STATUS && option != SCTP_PRIMARY_ADDR && option != SCTP_GET_PEER_ADDR_INFO),
            EINVAL);
    switch (option) {
    case SCTP_INITMSG:
        return give(endpoint.init, value, length);
    case SCTP_EVENTS:
        return give(endpoint.events, value, length);
    case SCTP_EVENT: {
        struct sctp_event event = question<struct sctp_event>(value, *length);
        event.se_on = event_flag(endpoint, event);
        return give(event, value, length);
    }
    case SCTP_STATUS: {
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
    case SCTP_PRIMARY_ADDR:
        return give(sctp_prim{of->id, to_storage(of->paths[of->primary].address)}, value, length);
    case SCTP_GET_PEER_ADDR_INFO: {
        const auto asked = question<struct sctp_paddrinfo>(value, *length);
        const Path *at = path(*of, from_storage(asked.spinfo_address));
        require(at != nullptr, EINVAL);
        return give(path_info(*of, *at), value, length);
    }
    case SCTP_GET_ASSOC_NUMBER:
        return give((uint32_t)endpoint.associations.size(), value, length);
    case SCTP_GET_ASSOC_ID_LIST: {
        std::vector<uint32_t> list = {(uint32_t)endpoint.associations.size()};
        for (const auto &[id, each] : endpoint.associations) {
            list.push_back((uint32_t)id);
        }
        return give_option({reinterpret_cast<const char *>(list.data()), list.size() * sizeof(list[0])}, value, length);
    }
    default:
        return give_option(endpoint.options[{SOL_SCTP, option}], value, length);
    }
}

int sctp_set_option(Endpoint &endpoint, int option, const void *value, socklen_t length)
{
    switch (option) {
    case SCTP_INITMSG: {
        const auto wanted = question<struct sctp_initmsg>(value, length);
        auto set = [](uint16_t &field, uint16_t number) { field = number != 0 ? number : field; };
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
        event_flag(endpoint, event) = event.se_on;
        return 0;
    }
    case SCTP_PRIMARY_ADDR: {
        const auto primary = question<struct sctp_prim>(value, length);
        const AssociationPtr of = association(endpoint, primary.ssp_assoc_id);
        const Path *at = of == nullptr ? nullptr : path(*of, from_storage(primary.ssp_addr));
        require(at != nullptr, EINVAL);
        of->primary = (size_t)(at - of->paths.data());
        return 0;
    }
    default:
        endpoint.options[{SOL_SCTP, option}].assign(static_cast<const char *>(value), length);
        return 0;
    }
}

} // namespace kel_fake_net

/* ---- Calls of libsctp -------------------------------------------------------------------------------------------- */

using namespace kel_fake_net;

extern "C" {

int kel_net_sctp_bindx(int sd, struct sockaddr *list, int count, int flags)
{
    return call("sctp_bindx", [&](Lock &) {
        const EndpointPtr endpoint = sctp_endpoint(sd);
        require(flags == SCTP_BINDX_ADD_ADDR || flags == SCTP_BINDX_REM_ADDR, EINVAL);
        (flags == SCTP_BINDX_ADD_ADDR ? add_addresses : remove_addresses)(*endpoint, read_list(*endpoint, list, count));
        return 0;
    });
}

int kel_net_sctp_connectx(int sd, struct sockaddr *list, int count, sctp_assoc_t *id)
{
    return call("sctp_connectx", [&](Lock &) {
        const EndpointPtr endpoint = sctp_endpoint(sd);
        const AssociationPtr made = sctp_connect(endpoint, sd, read_list(*endpoint, list, count));
        if (id != nullptr) {
            *id = made->id;
        }
        return 0;
    });
}

int kel_net_sctp_getpaddrs(int sd, sctp_assoc_t id, struct sockaddr **list)
{
    return call("sctp_getpaddrs", [&](Lock &) {
        const AssociationPtr of = association(*sctp_endpoint(sd), id);
        require(of != nullptr, EINVAL);
        std::vector<kel_sockaddr_t> addresses;
        for (const Path &each : of->paths) {
            addresses.push_back(each.address);
        }
        return write_list(addresses, list);
    });
}

int kel_net_sctp_getladdrs(int sd, sctp_assoc_t id, struct sockaddr **list)
{
    return call("sctp_getladdrs", [&](Lock &) {
        const EndpointPtr endpoint = sctp_endpoint(sd);
        const AssociationPtr of = association(*endpoint, id);
        require(of != nullptr || id == 0 || is_single(*endpoint), EINVAL);
        if (endpoint->local.empty()) {
            return 0;
        }
        const kel_sockaddr_t used = of == nullptr ? actual(endpoint->local[0]) : of->paths[0].address;
        return write_list(offered(*endpoint, {used}), list);
    });
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
    return call("sctp_send", [&](Lock &lock) {
        const struct sctp_sndrcvinfo none = {};
        return (int)sctp_transmit(lock, sctp_endpoint(sd), sd, message, length, nullptr, info == nullptr ? none : *info,
                                  flags);
    });
}

int kel_net_sctp_sendmsg(int sd, const void *message, size_t length, struct sockaddr *to, socklen_t tolen,
                         uint32_t ppid, uint32_t flags, uint16_t stream, uint32_t timetolive, uint32_t context)
{
    return call("sctp_sendmsg", [&](Lock &lock) {
        const EndpointPtr endpoint = sctp_endpoint(sd);
        const struct sctp_sndrcvinfo info = {stream, 0, (uint16_t)flags, ppid, context, timetolive, 0, 0, 0};
        const kel_sockaddr_t address = tolen == 0 ? kel_sockaddr_t{} : read_list(*endpoint, to, 1)[0];
        return (int)sctp_transmit(lock, endpoint, sd, message, length, tolen == 0 ? nullptr : &address, info, 0);
    });
}

int kel_net_sctp_recvmsg(int sd, void *message, size_t length, struct sockaddr *from, socklen_t *fromlen,
                         struct sctp_sndrcvinfo *info, int *flags)
{
    return call("sctp_recvmsg", [&](Lock &lock) {
        const EndpointPtr endpoint = sctp_endpoint(sd);
        Label label;
        const ssize_t count = sctp_receive(lock, *endpoint, sd, message, length, *flags, label, *flags);
        if (count > 0 && from != nullptr) {
            give_address(label.from, from, fromlen);
        }
        if (count > 0 && info != nullptr && label.flags == 0 && endpoint->events[0] != 0) {
            *info = label.info;
        }
        return (int)count;
    });
}

int kel_net_sctp_peeloff(int sd, sctp_assoc_t id)
{
    return call("sctp_peeloff", [&](Lock &) {
        const EndpointPtr endpoint = sctp_endpoint(sd);
        const AssociationPtr peeled = is_single(*endpoint) ? nullptr : association(*endpoint, id);
        require(peeled != nullptr, EINVAL);
        auto owner = std::make_shared<Endpoint>();
        owner->family = endpoint->family;
        owner->type = endpoint->type;
        owner->protocol = endpoint->protocol;
        owner->peeled = owner->connected = true;
        owner->local = endpoint->local;
        owner->peer = peeled->paths[0].address;
        owner->options = endpoint->options;
        owner->init = endpoint->init;
        memcpy(owner->events, endpoint->events, sizeof(owner->events));
        const int fd = make_pair(*owner, 0);
        add(owner, fd);
        peeled->owner = owner;
        owner->associations[id] = peeled;
        endpoint->associations.erase(id);
        move_messages(*endpoint, *owner, id);
        return fd;
    });
}

int kel_net_sctp_opt_info(int sd, sctp_assoc_t id, int option, void *value, socklen_t *length)
{
    return call("sctp_opt_info", [&](Lock &) {
        memcpy(value, &id, sizeof(id));
        return sctp_get_option(*sctp_endpoint(sd), option, value, length);
    });
}

LONG kel_fake_sctp_notify(LONG sockfd, const void *notification, size_t size)
{
    const Lock lock(mutex);
    const EndpointPtr endpoint = find((int)sockfd);
    if (endpoint == nullptr || endpoint->associations.empty()) {
        return KEL_ERROR;
    }
    const auto change = question<struct sctp_assoc_change>(notification, (socklen_t)size);
    if (change.sac_type != SCTP_ASSOC_CHANGE || change.sac_state != SCTP_COMM_LOST) {
        return notify(*endpoint->associations.begin()->second, notification, size) ? KEL_OK : KEL_ERROR;
    }
    const AssociationPtr lost = association(*endpoint, change.sac_assoc_id);
    if (lost == nullptr) {
        return KEL_ERROR;
    }
    const bool delivered = notify(*lost, notification, size);
    finish(*lost, ETIMEDOUT);
    if (const AssociationPtr far = lost->peer.lock()) {
        notify_change(*far, SCTP_COMM_LOST);
        finish(*far, ETIMEDOUT);
    }
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
    const std::map<LONG, int> states = {{SCTP_ADDR_UNREACHABLE, SCTP_INACTIVE},
                                        {SCTP_ADDR_POTENTIALLY_FAILED, SCTP_PF},
                                        {SCTP_ADDR_MADE_PRIM, at->state}};
    auto found = states.find(state);
    at->state = found == states.end() ? (int)SCTP_ACTIVE : found->second;
    of->primary = state == SCTP_ADDR_MADE_PRIM ? (size_t)(at - of->paths.data()) : of->primary;
    const struct sctp_paddr_change record = {
        SCTP_PEER_ADDR_CHANGE, 0, sizeof(record), to_storage(at->address), (int)state, 0, of->id};
    notify(*of, &record, sizeof(record));
    return KEL_OK;
}
}
