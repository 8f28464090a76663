/*
 * The network inside the process: what the module's calls of the system find. An endpoint is a local socket. Streams
 * are connected to each other, and nothing comes between. Everything else has an inbox, the other end of its local
 * socket: who sends to it writes there.
 *
 * With every message that is no stream's travels a label, as a descriptor of a file in memory: so the label of a
 * message that read(2) takes is gone with it, and none is mixed up.
 */
#ifndef FAKE_NETWORK_H
#define FAKE_NETWORK_H

#include <errno.h>
#include <map>
#include <memory>
#include <mutex>
#include <stdint.h>
#include <string>
#include <sys/types.h>
#include <vector>

#include "calls.h"
#include "kel_sctp.h"
#include "kel_socket.h"

namespace kel_fake_net
{

struct Endpoint;
using EndpointPtr = std::shared_ptr<Endpoint>;

struct Path {
    kel_sockaddr_t address;
    int state; /* enum sctp_spinfo_state */
};

/* One end of an SCTP association. */
struct Association {
    sctp_assoc_t id;
    std::weak_ptr<Endpoint> owner;
    std::weak_ptr<Association> peer;
    std::vector<Path> paths; /* the peer's addresses */
    size_t primary = 0;
    uint16_t outbound = 0;
    uint16_t inbound = 0;
    uint32_t next_tsn = 1;
    std::map<uint16_t, uint16_t> next_ssn; /* of each stream */
};
using AssociationPtr = std::shared_ptr<Association>;

struct Endpoint {
    int fd = -1;     /* none before it is accepted */
    ino_t inode = 0; /* the socket that the number stands for, unless it was closed meanwhile */
    int inbox = -1;
    int family = 0;
    int type = 0;
    int protocol = 0;
    std::vector<kel_sockaddr_t> local; /* several with SCTP */
    kel_sockaddr_t peer = {};
    bool connected = false;
    bool listening = false;
    bool peeled = false; /* off a one-to-many socket, whose type it keeps */
    std::string name;    /* of the local socket, where it listens */
    std::map<std::pair<int, int>, std::string> options;

    struct sctp_initmsg init = {10, UINT16_MAX, 8, 60000};
    uint8_t events[sizeof(struct sctp_event_subscribe)] = {};
    std::map<sctp_assoc_t, AssociationPtr> associations;
    size_t taken = 0; /* bytes of the first message in the queue */

    Endpoint() = default;
    ~Endpoint();
    Endpoint(const Endpoint &) = delete;
    Endpoint &operator=(const Endpoint &) = delete;

    bool is_inet() const
    {
        return family == AF_INET || family == AF_INET6;
    }
    bool is_sctp() const
    {
        return protocol == IPPROTO_SCTP && is_inet();
    }
    bool is_stream() const /* and no SCTP: what is written is what is read */
    {
        return !is_sctp() && (type == SOCK_STREAM || type == SOCK_SEQPACKET);
    }
};

/* What goes with a message. */
struct Label {
    kel_sockaddr_t from;
    struct sctp_sndrcvinfo info;
    int flags; /* MSG_NOTIFICATION */
    int error; /* of a message that is none, but the end of the association */
};

/* ---- Calls of the system ----------------------------------------------------------------------------------------- */

extern std::recursive_mutex mutex; /* guards everything here; never held while a call may block */
using Lock = std::unique_lock<std::recursive_mutex>;

struct Error {
    int number;
};

inline void require(bool condition, int error)
{
    if (!condition) {
        throw Error{error};
    }
}

/* A call fails when a script says so, or with the errno of what its body throws. */
template <typename Body> auto call(const char *name, Body body) -> decltype(body(std::declval<Lock &>()))
{
    if (kel_fake::fails(name)) {
        return -1;
    }
    Lock lock(mutex);
    try {
        return body(lock);
    } catch (const Error &error) {
        errno = error.number;
        return -1;
    }
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

/* ---- Endpoints --------------------------------------------------------------------------------------------------- */

void reset();

EndpointPtr find(int fd);          /* none for descriptors of others */
EndpointPtr own(int fd);           /* throws for them */
std::vector<EndpointPtr> living(); /* whose descriptor is open, the newest first */

void add(const EndpointPtr &endpoint, int fd);

/* Makes the socket of an endpoint, and its inbox. */
int make_pair(Endpoint &endpoint, int flags);

/* Connects the socket of an endpoint to an inbox of its own. */
void make_inbox(Endpoint &endpoint, int fd);

/* Connects a local socket to that of a server, which accepts it as accepted; or that one's inbox. */
void join(int fd, const Endpoint &server, const EndpointPtr &accepted);
void join_by_inbox(const Endpoint &server, const EndpointPtr &accepted);

/* ---- Addresses --------------------------------------------------------------------------------------------------- */

bool same_address(const kel_sockaddr_t &left, const kel_sockaddr_t &right); /* ports apart */
bool is_wildcard(const kel_sockaddr_t &address);
uint16_t port_of(const kel_sockaddr_t &address); /* host byte order */
kel_sockaddr_t with_port(kel_sockaddr_t address, uint16_t port);
kel_sockaddr_t wildcard(int family);
void give_address(const kel_sockaddr_t &from, struct sockaddr *addr, socklen_t *length);

/* Where the system sends what goes to the wildcard: to loopback. */
kel_sockaddr_t actual(const kel_sockaddr_t &address);

/* The endpoint that an address leads to, its own address before the wildcard; none: nullptr. */
EndpointPtr reached(const Endpoint &from, const kel_sockaddr_t &address, bool listening);

/* Throws when somebody listens there: as with SO_REUSEADDR, which every socket has, nobody else keeps others off. */
void require_free(const Endpoint &endpoint, const kel_sockaddr_t &address);
uint16_t free_port(const Endpoint &endpoint);

/* Binds an endpoint that is bound to nothing yet, at a port of its own. */
void bind_free(Endpoint &endpoint, const kel_sockaddr_t &address);

/* ---- Messages ---------------------------------------------------------------------------------------------------- */

/* Writes into an inbox. Of flags, MSG_DONTWAIT counts. */
ssize_t deliver(int inbox, const void *message, size_t length, const Label &label, int flags);

/* Reads from a descriptor, flags as for recv(2). The label stays zero for what has none. */
ssize_t take(int fd, void *buffer, size_t length, int flags, Label &label);

/* Flags for deliver(), of a call that sends on fd. */
int waiting(int fd, int flags);

/* Hands out the bytes of an option; of one that was never set, zeros. */
int give_option(const std::string &bytes, void *value, socklen_t *length);

/* ---- SCTP -------------------------------------------------------------------------------------------------------- */

AssociationPtr sctp_connect(const EndpointPtr &endpoint, int fd, std::vector<kel_sockaddr_t> addresses);
void sctp_close(const EndpointPtr &endpoint, bool at_once);
ssize_t sctp_receive(Lock &lock, Endpoint &endpoint, int fd, void *buffer, size_t length, int flags, Label &label,
                     int &out);
ssize_t sctp_transmit(Lock &lock, const EndpointPtr &endpoint, int fd, const void *message, size_t length,
                      const kel_sockaddr_t *to, const struct sctp_sndrcvinfo &info, int flags);
int sctp_get_option(Endpoint &endpoint, int option, void *value, socklen_t *length);
int sctp_set_option(Endpoint &endpoint, int option, const void *value, socklen_t length);

} // namespace kel_fake_net

#endif
