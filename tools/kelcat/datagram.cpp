/* udp and unix-dgram. */
#include <cerrno>
#include <cstring>
#include <netinet/udp.h>

#include "channel.h"
#include "pace.h"
#include "udp_queue.h"

const char datagram_rule[] =
    "  Datagrams: the same, with an empty datagram as the end mark, both ways (socat: null-eof,\n"
    "  shut-null). A peer that sends no mark: --send-only, --count or --idle ends it, all with status 0.\n";

namespace
{

const double remote_rate = 8 << 20;
const size_t most_together = 64; /* datagrams that one call may send */
const size_t most_bytes = 65507; /* and all that they may hold */
const char lost[] = "datagrams were lost: the receiver's queue was full";

class Datagram : public Channel
{
  public:
    explicit Datagram(const Options &given) : Channel(given), pace{given.rate}
    {
        unit = given.size;
    }

    int open() override
    {
        if (const int status = open_socket()) {
            return status;
        }
        ask_for_receive_buffer(4 << 20);
        if (options.transport == Udp && options.count == 0) {
            set(UDP_GRO, 1); /* what comes together is taken together, for nobody counts it */
        }
        if (options.listen) {
            ready = false;
            show_listening(own_address());
        } else {
            show_peer(peer_address(), own_address());
            aim(peer_address()[0]);
        }
        return 0;
    }

    LONG listen_at(const Addresses &at) override
    {
        if (options.transport == Udp) {
            return port_free(at[0]) ? kel_udp_server_socket_create(family_of(at), host_text(at[0]).c_str(), port_of(at))
                                    : KEL_ERROR;
        }
        return local_socket(options.place.path);
    }

    LONG connect_to(const Addresses &to) override
    {
        if (options.transport == UnixDatagram) {
            return connected(local_socket(options.local_text), to[0]); /* poll then tells when the peer has room */
        }
        kel_sockaddr_t server = {};
        const LONG client = connected(
            bound(kel_udp_client_socket_create(family_of(to), host_text(to[0]).c_str(), port_of(to), &server)), to[0]);
        /* Of a name of this machine, the address at which somebody listens. */
        UdpQueue probe;
        const bool vain =
            client != KEL_ERROR && more_places && probe.watch(client, to[0]) && probe.ask() == UdpQueue::Nobody;
        return vain ? given_back(client) : client;
    }

    size_t send(const char *bytes, size_t size) override
    {
        if (nameless_peer()) {
            give_up("the sender has no path and cannot be answered: give it --local PATH");
        }
        size_t gone = 0;
        while (sending && gone < size) {
            const size_t most = std::min(allowed(), together ? std::min(most_together, most_bytes / unit) : 1);
            const size_t piece = std::min(size - gone, most * unit);
            if (piece == 0 || !hand_over(bytes + gone, piece)) {
                break;
            }
            gone += piece;
            sent_any = true;
        }
        return gone;
    }

    /* With the end mark. Nobody need take it: who has what was sent may go, and a sender need not wait for it. */
    void finish() override
    {
        at_mark = true;
        if (nameless_peer() || (allowed() != 0 && hand_over("", 0))) {
            end_sending();
            if (watched && queue.ask() == UdpQueue::Known && queue.lost()) {
                fail(lost);
            }
        }
    }

    size_t receive(char *buffer, size_t room) override
    {
        const size_t most = options.transport == Udp ? 64 << 10 : largest;
        size_t got = 0;
        while (receiving && room - got >= most) {
            kel_sockaddr_t from = {};
            const LONG length = kel_recvfrom(sockfd, buffer + got, room - got, MSG_DONTWAIT | MSG_TRUNC, &from);
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
            } else if (length == 0) {
                receiving = false;
            } else if ((size_t)length > room - got) {
                fail("a datagram of %ld bytes was cut: it is longer than the buffer", length);
                receiving = false;
            } else {
                got += (size_t)length;
                receiving = ++received != options.count;
            }
        }
        return got;
    }

    void sum_up() const override
    {
        if (ignored != 0) {
            say("ignored %lu datagram%s sender%s", ignored, ignored == 1 ? " of another" : "s of other",
                ignored == 1 ? "" : "s");
        }
    }

  private:
    bool set(int option, int value)
    {
        return kel_setsockopt(sockfd, IPPROTO_UDP, option, &value, sizeof(value)) == 0;
    }

    /*
     * Two UDP sockets that allow it, as the module's do, may share a port: the newer one would take what the older one
     * waits for. A socket that does not allow it finds out.
     */
    static bool port_free(kel_sockaddr_t at)
    {
        const int off = 0;
        const LONG probe = kel_socket((kel_domain_t)at.sa.sa_family, KEL_SOCK_DGRAM, 0);
        kel_setsockopt(probe, SOL_SOCKET, SO_REUSEADDR, &off, sizeof(off));
        const bool free = kel_bind(probe, &at) == KEL_OK;
        given_back(probe);
        return free;
    }

    LONG local_socket(const std::string &path)
    {
        if (!path.empty() && !claim_file(path)) {
            return KEL_ERROR;
        }
        const LONG created = kel_unix_udp_socket_create(path.empty() ? nullptr : path.c_str(), !path.empty());
        if (created == KEL_ERROR) {
            return options.listen || path.empty() ? KEL_ERROR : no_local(created);
        }
        made_file(path);
        return created;
    }

    /* The peer is known now. */
    void aim(const kel_sockaddr_t &to)
    {
        peer = to;
        ready = true;
        if (options.transport == Udp) {
            watched = queue.watch(sockfd, peer);
            pace.rate = watched || options.rate != 0 ? options.rate : remote_rate;
            together = watched && options.rate == 0 && 2 * unit <= most_bytes && set(UDP_SEGMENT, (int)unit);
        }
    }

    bool nameless_peer() const
    {
        return options.transport == UnixDatagram && options.listen && peer.un.sun_path[0] == '\0';
    }

    /* The first sender is the peer. Those without a name cannot be told apart. */
    bool from_peer(kel_sockaddr_t &from)
    {
        if (!ready) {
            aim(from);
            show_peer({peer}, {});
        }
        const bool nameless = from.sa.sa_family == AF_UNSPEC && peer.sa.sa_family == AF_UNSPEC;
        return nameless || kel_sock_addr_cmp(&from, &peer, KEL_FALSE) == KEL_OK;
    }

    /* How many datagrams may go now; if none, `not_before` is when to ask again. */
    size_t allowed()
    {
        const double now = now_seconds();
        not_before = pace.due(now);
        if (not_before > now || !watched) {
            return not_before > now ? 0 : 1;
        }
        if (queue.room(unit) != 0) {
            return queue.room(unit);
        }
        const UdpQueue::Answer answer = queue.ask();
        if (answer == UdpQueue::Unknown) {
            watched = false;
            pace.rate = options.rate != 0 ? options.rate : remote_rate;
            return 1;
        }
        if (answer == UdpQueue::Nobody) {
            give_up("nothing listens on " + endpoint_text(Udp, {peer}));
        } else if (queue.lost()) {
            give_up(lost);
        } else if (queue.room(unit) == 0) {
            not_before = now + nap;
        }
        return sending ? queue.room(unit) : 0;
    }

    /* True: it has gone. */
    bool hand_over(const char *bytes, size_t size)
    {
        const LONG sent = options.listen ? kel_sendto(sockfd, bytes, size, MSG_DONTWAIT, &peer)
                                         : kel_send(sockfd, bytes, size, MSG_DONTWAIT);
        if (sent != KEL_ERROR) {
            pace.sent(size, now_seconds());
            queue.sent(size / unit + 1, unit);
        } else if (errno == EINVAL && together) {
            set(UDP_SEGMENT, 0);
            together = false; /* the loopback interface takes no such packets here */
        } else if (errno == EAGAIN && !options.listen) {
            full = true;
        } else if (errno == EAGAIN || errno == ENOBUFS) {
            /* Of a socket that is not connected poll cannot tell when the receiver has room. */
            not_before = now_seconds() + nap;
        } else {
            give_up("cannot send " + std::to_string(size) + " bytes to " + options.endpoint + ": " + strerror(errno));
        }
        return sent != KEL_ERROR;
    }

    void end_sending()
    {
        sending = false;
        receiving = receiving && !options.send_only;
    }

    /* Nothing more can be sent. What the peer has sent by now is still received; a listener's may send on. */
    void give_up(const std::string &sentence)
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

    Pace pace;
    UdpQueue queue;
    bool watched = false;  /* the receiver's queue is looked at */
    bool together = false; /* one call may send several datagrams */
    kel_sockaddr_t peer = {};
    bool sent_any = false;
    bool at_mark = false;
    unsigned long received = 0;
    unsigned long ignored = 0; /* of others */
};

} // namespace

std::unique_ptr<Channel> make_datagram(const Options &options)
{
    return std::make_unique<Datagram>(options);
}
