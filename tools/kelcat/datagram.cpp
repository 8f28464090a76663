/* udp and unix-dgram. */
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <netinet/udp.h>

#include "channel.h"
#include "pace.h"
#include "socket_file.h"
#include "udp_queue.h"

const char datagram_rule[] =
    "Datagrams: the same, with an empty datagram as the end mark, both ways (socat: null-eof, shut-null). A peer that "
    "sends no mark: --send-only, --count or --idle ends it, all with status 0.";

namespace
{

const double remote_rate = 8 << 20;
const double shortest_nap = 0.0001; /* until a full queue is looked at again; it doubles as long as that is in vain */
const double longest_nap = 0.01;
const int most_together = 64; /* datagrams that one call may send */
const int most_bytes = 65507; /* and all that they may hold */

class Datagram : public Channel
{
  public:
    explicit Datagram(const Options &given) : Channel(given), pace(given.rate)
    {
        unit = given.size;
    }

    int open() override;
    size_t send(const char *bytes, size_t size) override;
    void finish() override;
    size_t receive(char *buffer, size_t room) override;
    void sum_up() override;

  private:
    int open_udp();
    int open_unix();
    bool udp_port_free(const kel_sockaddr_t &at);
    void aim();
    bool unnamed_peer() const;
    size_t allowed();
    void nap();
    LONG send_to_peer(const char *bytes, size_t size);
    void sending_failed(size_t size);
    void end_sending();
    void give_up(const std::string &sentence);
    bool from_peer(const kel_sockaddr_t &from);

    Pace pace;
    UdpQueue queue;
    SocketFile file;
    bool watched = false;  /* the receiver's queue is looked at */
    bool together = false; /* one call may send several datagrams */
    double napped = 0;
    kel_sockaddr_t peer = {};
    bool sent_any = false;
    bool at_mark = false;
    unsigned long received = 0;
    unsigned long ignored = 0; /* of others */
};

/* ---- Opening ----------------------------------------------------------------------------------------------------- */

int Datagram::open()
{
    const int status = options.transport == Udp ? open_udp() : open_unix();
    if (status != 0) {
        return status;
    }
    ask_for_receive_buffer(4 << 20);
    /* What comes in one piece may be taken so, unless it is to be counted. */
    const int whole = options.transport == Udp && options.count == 0;
    kel_setsockopt(sockfd, IPPROTO_UDP, UDP_GRO, &whole, sizeof(whole));
    if (options.listen) {
        ready = false;
        show_listening(own_address());
    } else {
        show_peer(peer_address(), own_address());
        peer = peer_address()[0];
        aim();
    }
    return 0;
}

/*
 * Two UDP sockets that allow it, as the module's do, may share a port: the newer one would take what the older one
 * waits for. A socket that does not allow it finds out.
 */
bool Datagram::udp_port_free(const kel_sockaddr_t &at)
{
    const int off = 0;
    kel_sockaddr_t record = at;
    const LONG probe = kel_socket((kel_domain_t)at.sa.sa_family, KEL_SOCK_DGRAM, 0);
    kel_setsockopt(probe, SOL_SOCKET, SO_REUSEADDR, &off, sizeof(off));
    const bool free = kel_bind(probe, &record) == KEL_OK;
    kel_close(probe); /* keeps errno, which is the bind's */
    return free;
}

int Datagram::open_udp()
{
    const std::vector<Addresses> addresses =
        resolve(options.place, options.local.empty() ? AF_UNSPEC : options.local.front().sa.sa_family);
    if (addresses.empty()) {
        return 1;
    }
    const SHORT port = (SHORT)options.place.port;
    if (options.listen) {
        auto listen = [&](const Addresses &at) {
            if (udp_port_free(at[0])) {
                sockfd = kel_udp_server_socket_create((kel_domain_t)at[0].sa.sa_family, host_text(at[0]).c_str(), port);
            }
        };
        return one_of(addresses, listen) ? 0 : cannot("listen on");
    }

    auto connect = [&](const Addresses &to) {
        kel_sockaddr_t server = {};
        sockfd =
            kel_udp_client_socket_create((kel_domain_t)to[0].sa.sa_family, host_text(to[0]).c_str(), port, &server);
        if (sockfd == KEL_ERROR || !bind_local()) {
            return;
        }
        if (kel_connect(sockfd, &server) != KEL_OK) {
            give_back();
            return;
        }
        /* Of a name of this machine, the address at which somebody listens. */
        UdpQueue probe;
        if (&to != &addresses.back() && probe.watch(sockfd, server) && probe.ask() == UdpQueue::Nobody) {
            give_back();
        }
    };
    return one_of(addresses, connect) ? 0 : cannot("connect to");
}

int Datagram::open_unix()
{
    const std::string &own = options.listen ? options.path : options.local_text;
    if (!own.empty() && !SocketFile::free_path(own)) {
        return 1;
    }
    sockfd = kel_unix_udp_socket_create(own.empty() ? nullptr : own.c_str(), !own.empty());
    if (sockfd == KEL_ERROR && !options.listen && !own.empty()) {
        fail("cannot use --local %s: %s", own.c_str(), strerror(errno));
        return 1;
    }
    if (sockfd == KEL_ERROR) {
        return cannot(options.listen ? "listen on" : "open");
    }
    if (!own.empty()) {
        file.made(own);
    }
    /* Connected, so that poll tells when the receiver has room. */
    if (!options.listen && kel_connect_str(sockfd, KEL_AF_UNIX, 0, options.path.c_str()) != KEL_OK) {
        return cannot("connect to");
    }
    return 0;
}

/* The peer is known now. */
void Datagram::aim()
{
    const int size = (int)options.size;
    ready = true;
    if (options.transport == Udp) {
        watched = queue.watch(sockfd, peer);
        pace = Pace(watched || options.rate != 0 ? options.rate : remote_rate);
        together = watched && options.rate == 0 && 2 * size <= most_bytes &&
                   kel_setsockopt(sockfd, IPPROTO_UDP, UDP_SEGMENT, &size, sizeof(size)) == 0;
    }
}

/* ---- Sending ----------------------------------------------------------------------------------------------------- */

bool Datagram::unnamed_peer() const
{
    return options.transport == UnixDatagram && options.listen && peer.un.sun_path[0] == '\0';
}

void Datagram::nap()
{
    napped = std::min(std::max(2 * napped, shortest_nap), longest_nap);
    not_before = now_seconds() + napped;
}

/* How many datagrams may go now; if none, `not_before` is when to ask again. */
size_t Datagram::allowed()
{
    const double now = now_seconds();
    not_before = pace.due(now);
    if (not_before > now) {
        return 0;
    }
    if (!watched) {
        return 1;
    }
    if (queue.room(options.size) != 0) {
        return queue.room(options.size);
    }
    switch (queue.ask()) {
    case UdpQueue::Nobody:
        give_up("nothing listens on " + endpoint_text(Udp, {peer}));
        return 0;
    case UdpQueue::Unknown:
        watched = false;
        pace = Pace(options.rate != 0 ? options.rate : remote_rate);
        return 1;
    case UdpQueue::Known:
        break;
    }
    if (queue.lost()) {
        give_up("datagrams were lost: the receiver's queue was full");
    } else if (queue.room(options.size) == 0) {
        nap();
    } else {
        napped = 0;
    }
    return sending ? queue.room(options.size) : 0;
}

LONG Datagram::send_to_peer(const char *bytes, size_t size)
{
    return options.listen ? kel_sendto(sockfd, bytes, size, MSG_DONTWAIT, &peer)
                          : kel_send(sockfd, bytes, size, MSG_DONTWAIT);
}

size_t Datagram::send(const char *bytes, size_t size)
{
    if (unnamed_peer()) {
        give_up("the sender has no path and cannot be answered: give it --local PATH");
    }
    size_t gone = 0;
    while (sending && gone < size) {
        const size_t most =
            std::min(allowed(), together ? std::min<size_t>(most_together, most_bytes / options.size) : 1);
        if (most == 0) {
            break;
        }
        const size_t piece = std::min(size - gone, most * options.size);
        const LONG sent = send_to_peer(bytes + gone, piece);
        if (sent == KEL_ERROR) {
            sending_failed(piece);
            break;
        }
        sent_any = true;
        gone += (size_t)sent;
        pace.sent((double)sent, now_seconds());
        queue.sent((piece + options.size - 1) / options.size, options.size);
    }
    return gone;
}

/* With the end mark. Nobody need be there to take it: who has what was sent may go, and a sender need not wait for it.
 */
void Datagram::finish()
{
    at_mark = true;
    if (!unnamed_peer()) {
        if (allowed() == 0) {
            return;
        }
        if (send_to_peer("", 0) == KEL_ERROR) {
            sending_failed(0);
            return;
        }
    }
    end_sending();
    if (watched && queue.ask() == UdpQueue::Known && queue.lost()) {
        fail("datagrams were lost: the receiver's queue was full");
    }
}

void Datagram::end_sending()
{
    sending = false;
    receiving = receiving && !options.send_only;
}

/* Comes directly after the call that failed: errno is that call's. */
void Datagram::sending_failed(size_t size)
{
    if (errno == EINVAL && together) {
        const int none = 0; /* the loopback interface takes no such packets here */
        together = false;
        kel_setsockopt(sockfd, IPPROTO_UDP, UDP_SEGMENT, &none, sizeof(none));
    } else if (errno == EAGAIN && !options.listen) {
        full = true;
    } else if (errno == EAGAIN || errno == ENOBUFS) {
        nap(); /* of a socket that is not connected poll cannot tell when the receiver has room */
    } else {
        give_up("cannot send " + std::to_string(size) + " bytes to " + options.endpoint + ": " + strerror(errno));
    }
}

/* Nothing more can be sent. What the peer has sent by now is still received; a listener's may send on. */
void Datagram::give_up(const std::string &sentence)
{
    if (!at_mark || !(sent_any || options.listen || !receiving)) {
        fail("%s", sentence.c_str());
    }
    end_sending();
    if (!options.listen) {
        polled = false; /* what is there is looked for once */
        wake = 0;
    }
}

/* ---- Receiving --------------------------------------------------------------------------------------------------- */

size_t Datagram::receive(char *buffer, size_t room)
{
    const size_t most = options.transport == Udp ? 64 << 10 : largest;
    size_t got = 0;
    while (receiving && room - got >= most) {
        kel_sockaddr_t from = {};
        const LONG length = options.listen
                                ? kel_recvfrom(sockfd, buffer + got, room - got, MSG_DONTWAIT | MSG_TRUNC, &from)
                                : kel_recv(sockfd, buffer + got, room - got, MSG_DONTWAIT | MSG_TRUNC);
        if (length == KEL_ERROR) {
            receiving = errno == EAGAIN && polled;
            if (errno != EAGAIN) {
                broke(errno);
                sending = false;
            }
            break;
        }
        if (options.listen && !from_peer(from)) {
            ignored++;
        } else if (length == 0 || (size_t)length > room - got) {
            receiving = false;
            if (length != 0) {
                fail("a datagram of %ld bytes was cut: it is longer than the buffer", length);
            }
        } else {
            got += (size_t)length;
            received++;
            receiving = received != options.count;
        }
    }
    return got;
}

/* The first sender is the peer. Those without a name cannot be told apart. */
bool Datagram::from_peer(const kel_sockaddr_t &from)
{
    if (!ready) {
        peer = from;
        show_peer({peer}, own_address());
        aim();
    }
    return memcmp(&from, &peer, sizeof(peer)) == 0;
}

void Datagram::sum_up()
{
    if (ignored != 0) {
        say("ignored %lu datagram%s of %s", ignored, ignored == 1 ? "" : "s",
            ignored == 1 ? "another sender" : "other senders");
    }
}

} // namespace

std::unique_ptr<Channel> make_datagram(const Options &options)
{
    return std::make_unique<Datagram>(options);
}
