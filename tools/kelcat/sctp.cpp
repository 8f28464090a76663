/* sctp: messages of one association, over a socket of either style. */
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>

#include "channel.h"
#include "paths.h"

const char sctp_rule[] =
    "  SCTP ends both ways at once and delivers what was sent. Who has sent data ends it, after the end\n"
    "  of the input and 0.5 s without an answer (--send-only: at once); who has not waits for the peer, a\n"
    "  client 0.5 s for its first data; with --recv-only there is no such limit. --idle: as for streams.\n";

namespace
{

const double patience = 0.5;   /* with silence */
const size_t piece = 64 << 10; /* one read; a longer message comes in parts */
const uint32_t jumbo = 9000;   /* no Ethernet has larger packets */
const uint32_t ethernet = 1500;

class Association : public Channel
{
  public:
    explicit Association(const Options &given) : Channel(given), paths(given.verbose)
    {
        connection = true;
        full = true;
        unit = given.size;
    }

    int open() override
    {
        const LONG probe = kel_socket(KEL_AF_INET, KEL_SOCK_STREAM, IPPROTO_SCTP);
        if (probe == KEL_ERROR) {
            return errno == EPROTONOSUPPORT ? refuse("open", "this kernel has no SCTP; where it has the module, "
                                                             "`modprobe sctp` loads it")
                                            : cannot("open");
        }
        kel_close(probe);

        int status = open_socket();
        if (status == 0 && options.listen) {
            ask_for_receive_buffer(4 << 20);
            show_listening(own_addresses());
            status = options.one_to_many ? wait_for_client() : accept_client();
            if (options.one_to_many) {
                kel_listen(sockfd, 0); /* it carries the association itself, and lets nobody else in */
            }
        } else if (status == 0) {
            widen();
        }
        if (status == 0) {
            fcntl((int)sockfd, F_SETFL, O_NONBLOCK); /* kel_sctp_recvmsg has no flags that go in */
            begun = quiet_since = now_seconds();
            paths.watch(sockfd, begun);
            ready = !options.one_to_many || id != 0;
            if (ready) {
                begin(id);
            }
        }
        return status;
    }

    LONG listen_at(const Addresses &at) override
    {
        Addresses own = at;
        struct sctp_initmsg initmsg = first_message();
        struct sctp_event_subscribe events = wanted_events();
        auto create = options.one_to_many ? kel_sctp_server_one2many_create : kel_sctp_server_one2one_create;
        return create(family_of(at), own.data(), (LONG)own.size(), port_of(at), 1, &initmsg, &events);
    }

    /* By the module's single calls, since its clients connect although the local addresses cannot be had. */
    LONG connect_to(const Addresses &to) override
    {
        Addresses local = options.local;
        Addresses peers = to;
        const struct sctp_initmsg initmsg = first_message();
        const struct sctp_event_subscribe events = wanted_events();
        const LONG client =
            kel_socket(family_of(to), options.one_to_many ? KEL_SOCK_SEQPACKET : KEL_SOCK_STREAM, IPPROTO_SCTP);
        if (!local.empty() &&
            kel_sctp_bindx(client, local.data(), (LONG)local.size(), SCTP_BINDX_ADD_ADDR) == KEL_ERROR) {
            return no_local(client);
        }
        const bool up =
            kel_setsockopt(client, SOL_SCTP, SCTP_INITMSG, &initmsg, sizeof(initmsg)) == 0 &&
            kel_setsockopt(client, SOL_SCTP, SCTP_EVENTS, &events, sizeof(events)) == 0 &&
            (kel_sctp_connectx(client, peers.data(), (LONG)peers.size(), &id) != KEL_ERROR || was_up(client));
        return up ? client : given_back(client);
    }

    /* One message: the module reports one for which there is no room, so poll is asked before each. */
    size_t send(const char *bytes, size_t size) override
    {
        size = std::min(size, unit);
        full = true;
        if (hand_over(bytes, size, id, stream, 0) == KEL_ERROR) {
            if (errno == EPIPE || errno == ESHUTDOWN) {
                not_before = now_seconds() + nap; /* how it ended, what has come tells */
            } else if (errno != EAGAIN) {
                broke(errno);
                sending = false;
            }
            return 0;
        }
        stream = (uint16_t)((stream + 1) % streams);
        sent_any = true;
        quiet_since = now_seconds();
        return size;
    }

    /* The peer has been sent all, and may have an answer. */
    void finish() override
    {
        const double now = now_seconds();
        full = false;
        if (more_to_come()) {
            quiet_since = now;
        }
        const bool ours_to_end = sent_any || !(options.listen || received_any);
        if (!options.send_only && (!ours_to_end || now - quiet_since < patience)) {
            not_before = ours_to_end ? std::min(quiet_since + patience, now + patience / 10) : never;
            return;
        }
        sending = false;
        if (options.one_to_many) {
            hand_over("", 0, id, 0, SCTP_EOF);
        } else {
            shutdown((int)sockfd, SHUT_WR); /* the module has no call for it */
        }
    }

    size_t receive(char *buffer, size_t) override
    {
        kel_sockaddr_t from = {};
        struct sctp_sndrcvinfo info = {};
        struct sctp_status status = {};
        LONG flags = 0;
        const LONG length = kel_sctp_recvmsg(sockfd, buffer, piece, &from, &info, &flags);
        if (length == KEL_ERROR) {
            if (errno != EAGAIN) {
                close(errno);
            }
        } else if (length == 0) {
            peer_ends();
            if (!association_status(sockfd, id, &status)) {
                close(0);
            }
        } else if ((flags & MSG_NOTIFICATION) != 0) {
            union sctp_notification told = {};
            memcpy(&told, buffer, std::min((size_t)length, sizeof(told)));
            take_notification(told);
        } else if (ours(info.sinfo_assoc_id)) {
            received_any = true;
            quiet_since = now_seconds();
            return (size_t)length;
        }
        return 0;
    }

    void tick() override
    {
        const double now = now_seconds();
        if (paths.due() <= now) {
            paths.look(now);
        }
        wake = std::min(paths.due(), polled ? never : now + nap);
    }

    size_t unconfirmed() override
    {
        struct sctp_status status = {};
        return association_status(sockfd, id, &status) ? status.sstat_unackdata : 0;
    }

  private:
    /* An answer is no silence, however slowly standard output takes it, and what a gap in it lacks is on its way. */
    bool more_to_come() const
    {
        struct pollfd waiting = {(int)sockfd, POLLIN, 0};
        struct sctp_status status = {};
        return poll(&waiting, 1, 0) > 0 ||
               (association_status(sockfd, id, &status) && (status.sstat_unackdata != 0 || status.sstat_penddata != 0));
    }

    struct sctp_initmsg first_message() const
    {
        return {options.streams, options.streams, 0, 0};
    }

    struct sctp_event_subscribe wanted_events() const
    {
        struct sctp_event_subscribe events = {};
        memset(&events, options.verbose, sizeof(events));
        events.sctp_data_io_event = 1;
        events.sctp_association_event = 1;
        events.sctp_shutdown_event = 1;
        return events;
    }

    /* A one-to-many association that the peer has ended by now counts as refused: what it has brought waits. */
    bool was_up(LONG client)
    {
        const int refusal = errno;
        struct pollfd queue = {(int)client, POLLIN, 0};
        union sctp_notification told = {};
        kel_sockaddr_t from = {};
        struct sctp_sndrcvinfo info = {};
        LONG flags = 0;
        const bool up = options.one_to_many && poll(&queue, 1, 0) > 0 &&
                        kel_sctp_recvmsg(client, &told, sizeof(told), &from, &info, &flags) != KEL_ERROR &&
                        told.sn_header.sn_type == SCTP_ASSOC_CHANGE && told.sn_assoc_change.sac_state == SCTP_COMM_UP;
        id = up ? told.sn_assoc_change.sac_assoc_id : 0;
        errno = refusal;
        return up;
    }

    /*
     * The association's window is half of the buffer and counts data alone, while the buffer holds the kernel's records
     * too. More than eight times the window, and the peer would not hear that there is room again.
     */
    void widen()
    {
        int bytes = 0;
        socklen_t length = sizeof(bytes);
        kel_getsockopt(sockfd, SOL_SOCKET, SO_RCVBUF, &bytes, &length);
        ask_for_receive_buffer(bytes / 2 * 5); /* doubled by the system */
    }

    /* All that the socket is bound to, and the wildcard as such. */
    Addresses own_addresses() const
    {
        Addresses own = own_address();
        kel_sockaddr_t *list = nullptr;
        const LONG count = is_wildcard(own[0]) ? 0 : kel_sctp_getladdrs(sockfd, 0, &list);
        if (count > 0) {
            own.assign(list, list + count);
        }
        kel_sctp_freeladdrs(list);
        return own;
    }

    void begin(sctp_assoc_t association)
    {
        struct sctp_status status = {};
        id = association;
        if (association_status(sockfd, id, &status)) {
            id = status.sstat_assoc_id;
            streams = std::min(std::max(options.streams, (uint16_t)1), status.sstat_outstrms);
            if (status.sstat_primary.spinfo_mtu > jumbo) {
                limit_packets();
            }
        }
        kel_sockaddr_t *list = nullptr;
        const LONG count = options.verbose ? kel_sctp_getpaddrs(sockfd, id, &list) : 0;
        if (count > 0) {
            show_peer(Addresses(list, list + count), own_addresses());
        }
        kel_sctp_freepaddrs(list);
    }

    /*
     * The receiver's buffer counts a packet whole for each message that shares it: on the loopback interface, whose
     * packets may have 64 KiB, a few of them fill it, the rest is dropped, and the association crawls.
     */
    void limit_packets()
    {
        struct sctp_paddrparams params = {};
        params.spp_assoc_id = id;
        params.spp_pathmtu = ethernet;
        params.spp_flags = SPP_PMTUD_DISABLE;
        kel_setsockopt(sockfd, SOL_SCTP, SCTP_PEER_ADDR_PARAMS, &params, sizeof(params));
    }

    LONG hand_over(const char *bytes, size_t size, sctp_assoc_t association, uint16_t on, uint16_t flags)
    {
        struct sctp_sndrcvinfo info = {};
        info.sinfo_assoc_id = association;
        info.sinfo_stream = on;
        info.sinfo_flags = flags;
        info.sinfo_ppid = htonl(options.ppid);
        return kel_sctp_send(sockfd, bytes, size, &info, MSG_DONTWAIT);
    }

    /* A one-to-many listener serves the first association that it hears of. */
    bool ours(sctp_assoc_t association)
    {
        if (!ready) {
            ready = true;
            begin(association);
        }
        return !options.one_to_many || association == id;
    }

    void take_notification(const union sctp_notification &told)
    {
        if (told.sn_header.sn_type == SCTP_SHUTDOWN_EVENT && ours(told.sn_shutdown_event.sse_assoc_id)) {
            peer_ends();
        }
        if (told.sn_header.sn_type == SCTP_ASSOC_CHANGE) {
            const struct sctp_assoc_change &change = told.sn_assoc_change;
            if (ours(change.sac_assoc_id)) {
                take_change(change);
            } else if (change.sac_state == SCTP_COMM_UP) {
                hand_over("", 0, change.sac_assoc_id, 0, SCTP_ABORT);
            }
        }
        paths.notification(told);
    }

    void take_change(const struct sctp_assoc_change &change)
    {
        switch (change.sac_state) {
        case SCTP_COMM_UP:
            paths.up(change);
            break;
        case SCTP_SHUTDOWN_COMP:
            close(0);
            break;
        case SCTP_COMM_LOST:
        case SCTP_CANT_STR_ASSOC:
            /* Behind the record comes the peer's ABORT, if there was one. */
            close(change.sac_length > sizeof(change) ? ECONNRESET : ETIMEDOUT);
            break;
        default: /* SCTP_RESTART: another program has taken the peer's place, and knows nothing of what was sent */
            close(ECONNRESET);
            break;
        }
    }

    /* It takes nothing more. What it has sent still comes; until then poll calls the socket readable all the time. */
    void peer_ends()
    {
        sending = false;
        polled = false;
    }

    /* why: 0, or what broke it. The first call counts. */
    void close(int why)
    {
        if (receiving && why != 0) {
            broke(why);
        }
        sending = false;
        receiving = false;
    }

    Paths paths;
    sctp_assoc_t id = 0; /* a one-to-many listener's comes with the first message */
    uint16_t streams = 1;
    uint16_t stream = 0; /* of the next message */
    bool sent_any = false;
    bool received_any = false;
    double quiet_since = 0;
};

} // namespace

std::unique_ptr<Channel> make_sctp(const Options &options)
{
    return std::make_unique<Association>(options);
}
