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

#include <map>
#include <memory>
#include <mutex>
#include <stdint.h>
#include <string>
#include <sys/types.h>
#include <vector>

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

    /* Where messages come from: the primary path, or the first one that is reachable. */
    const kel_sockaddr_t &source() const;
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
    bool peeled = false; /* off a one-to-many socket, whose type it keeps */
    bool listening = false;
    std::string name; /* of the local socket, where it listens */
    std::map<std::pair<int, int>, std::string> options;

    struct sctp_initmsg init = {10, UINT16_MAX, 8, 60000};
    uint8_t events[sizeof(struct sctp_event_subscribe)] = {};
    std::map<sctp_assoc_t, AssociationPtr> associations;
    size_t taken = 0; /* bytes of the first message in the queue */
    int error = 0;    /* told once, behind the last message */

    Endpoint() = default;
    ~Endpoint();
    Endpoint(const Endpoint &) = delete;
    Endpoint &operator=(const Endpoint &) = delete;

    bool is_sctp() const;
    bool is_stream() const; /* and no SCTP: what is written is what is read */
};

/* What goes with a message. */
struct Label {
    kel_sockaddr_t from;
    struct sctp_sndrcvinfo info;
    int flags; /* MSG_NOTIFICATION */
};

extern std::recursive_mutex mutex; /* guards everything here; never held while a call may block */
using Lock = std::unique_lock<std::recursive_mutex>;

void reset();

/* The endpoint of a descriptor; none for descriptors of others. */
EndpointPtr find(int fd);

/* Every endpoint whose descriptor is open, the newest first. */
std::vector<EndpointPtr> living();

int fail(int error);

/* Makes a socket with an inbox; -1 with errno. */
int make_pair(Endpoint &endpoint, int flags);
void add(const EndpointPtr &endpoint, int fd);

bool same_address(const kel_sockaddr_t &left, const kel_sockaddr_t &right); /* ports apart */
bool is_wildcard(const kel_sockaddr_t &address);
uint16_t port_of(const kel_sockaddr_t &address); /* host byte order */
void set_port(kel_sockaddr_t &address, uint16_t port);
int copy_address(const kel_sockaddr_t &from, struct sockaddr *addr, socklen_t *length);
int copy_option(const std::string &bytes, void *value, socklen_t *length);

/* Makes the loopback address of the wildcard: that is where the system sends to. */
void actual(kel_sockaddr_t &address);

/* The address that a peer at destination sees. */
kel_sockaddr_t source(const Endpoint &endpoint, const kel_sockaddr_t &destination);

/* The endpoint that an address leads to, its own address before the wildcard; none: nullptr. */
EndpointPtr reached(const Endpoint &from, const kel_sockaddr_t &address, bool listening);

bool is_taken(const Endpoint &endpoint, const kel_sockaddr_t &address);
uint16_t free_port(const Endpoint &endpoint);

/* Binds an endpoint that is bound to nothing yet, at a port of its own. */
void bind_free(Endpoint &endpoint, const kel_sockaddr_t &address);

int listen_locally(Endpoint &endpoint, int fd);

/* Connects a local socket to that of a server, which accepts it as accepted; or that one's inbox. */
int join(int fd, const Endpoint &server, const EndpointPtr &accepted);
int join_by_inbox(const Endpoint &server, const EndpointPtr &accepted);

/* Connects the socket of an endpoint to an inbox of its own. */
int make_inbox(Endpoint &endpoint, int fd);

/* Writes into an inbox or, of connected sockets, into the other end. Of flags, MSG_DONTWAIT counts. */
ssize_t deliver(int inbox, const void *message, size_t length, const Label &label, int flags);

/* Reads from a descriptor, flags as for recv(2). The label stays zero for what has none. */
ssize_t take(int fd, void *buffer, size_t length, int flags, Label &label);

/* Whether a call with these flags waits. */
bool is_waiting(int fd, int flags);

/* The SCTP side of calls that every socket knows. */
AssociationPtr sctp_connect(const EndpointPtr &endpoint, int fd, std::vector<kel_sockaddr_t> addresses);
void sctp_closed(const EndpointPtr &endpoint);
ssize_t sctp_receive(const EndpointPtr &endpoint, int fd, void *buffer, size_t length, int flags, Label &label,
                     int &out);
ssize_t sctp_transmit(const EndpointPtr &endpoint, int fd, const void *message, size_t length, const kel_sockaddr_t *to,
                      const struct sctp_sndrcvinfo &info, int flags);
int sctp_get_option(Endpoint &endpoint, int option, void *value, socklen_t *length);
int sctp_set_option(Endpoint &endpoint, int option, const void *value, socklen_t length);

} // namespace kel_fake_net

#endif
