/* sctp: messages of one association, over a socket of either style. */
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>

#include "channel.h"
#include "paths.h"
#include "signals.h"

const char sctp_rule[] =
    "SCTP ends both ways at once and delivers what was sent. Who has sent data ends it, after the end of the input and "
    "0.5 s without an answer (--send-only: at once); who has not waits for the peer, a client 0.5 s for its first "
    "data; "
    "with --recv-only there is no such limit. --idle: as for streams.";

namespace
{

const double patience = 0.5;   /* with silence */
const double nap = 0.001;      /* until an association that ends is looked at again */
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

    int open() override;
    size_t send(const char *bytes, size_t size) override;
    void finish() override;
    size_t receive(char *buffer, size_t room) override;
    void tick() override;
    size_t unconfirmed() override;

  private:
    int listen(struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events);
    int connect(const struct sctp_initmsg &initmsg, const struct sctp_event_subscribe &events);
    bool try_connect(const Addresses &to, const struct sctp_initmsg &initmsg,
                     const struct sctp_event_subscribe &events);
    bool was_up();
    void widen();
    Addresses own_addresses() const;
    void begin(sctp_assoc_t association);
    void limit_packets();
    LONG send_flag(sctp_assoc_t association, uint16_t flag);
    bool ours(sctp_assoc_t association);
    void take_notification(const union sctp_notification &told);
    void take_change(const struct sctp_assoc_change &change);
    void peer_ends();
    void close(int why);

    Paths paths;
    sctp_assoc_t id = 0; /* a one-to-many listener's comes with the first message */
    uint16_t streams = 1;
    uint16_t stream = 0; /* of the next message */
    bool sent_any = false;
    bool received_any = false;
    double quiet_since = now_seconds();
};

/* ---- Opening ----------------------------------------------------------------------------------------------------- */

int Association::open()
{
    const LONG probe = kel_socket(KEL_AF_INET, KEL_SOCK_STREAM, IPPROTO_SCTP);
    if (probe == KEL_ERROR) {
        return errno == EPROTONOSUPPORT ? refuse("open", "this kernel has no SCTP; where it has the module, "
                                                         "`modprobe sctp` loads it")
                                        : cannot("open");
    }
    kel_close(probe);

    struct sctp_initmsg initmsg = {options.streams, options.streams, 0, 0};
    struct sctp_event_subscribe events = {};
    events.sctp_data_io_event = 1;
    events.sctp_association_event = 1;
    events.sctp_shutdown_event = 1;
    if (options.verbose) {
        memset(&events, 1, sizeof(events));
    }
    const int status = options.listen ? listen(&initmsg, &events) : connect(initmsg, events);
    if (status == 0) {
        fcntl((int)sockfd, F_SETFL, O_NONBLOCK); /* kel_sctp_recvmsg has no flags that go in */
        paths.watch(sockfd);
        ready = !options.one_to_many || id != 0;
        if (ready) {
            begin(id);
        }
        quiet_since = now_seconds();
    }
    return status;
}

int Association::listen(struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events)
{
    const std::vector<Addresses> addresses = resolve(options.place, AF_UNSPEC);
    if (addresses.empty()) {
        return 1;
    }
    auto create = options.one_to_many ? kel_sctp_server_one2many_create : kel_sctp_server_one2one_create;
    auto attempt = [&](Addresses at) {
        sockfd = create((kel_domain_t)at[0].sa.sa_family, at.data(), (LONG)at.size(), (SHORT)options.place.port, 1,
                        initmsg, events);
    };
    if (!one_of(addresses, attempt)) {
        return cannot("listen on");
    }
    ask_for_receive_buffer(4 << 20);
    show_listening(own_addresses());
    if (!options.one_to_many) {
        return accept_client();
    }
    const int status = wait_for_client();
    kel_listen(sockfd, 0); /* it carries the association itself, and lets nobody else in */
    return status;
}

int Association::connect(const struct sctp_initmsg &initmsg, const struct sctp_event_subscribe &events)
{
    const std::vector<Addresses> addresses =
        resolve(options.place, options.local.empty() ? AF_UNSPEC : options.local.front().sa.sa_family);
    if (addresses.empty()) {
        return 1;
    }
    SignalsExit while_connecting(options.endpoint, options.timeout);
    auto attempt = [&](const Addresses &to) {
        if (!try_connect(to, initmsg, events) && sockfd != KEL_ERROR) {
            give_back();
        }
    };
    if (!one_of(addresses, attempt)) {
        return cannot("connect to");
    }
    widen();
    return 0;
}

/* By the module's single calls, since its clients connect although the local addresses cannot be had. */
bool Association::try_connect(const Addresses &to, const struct sctp_initmsg &initmsg,
                              const struct sctp_event_subscribe &events)
{
    Addresses local = options.local;
    Addresses peers = to;
    sockfd = kel_socket((kel_domain_t)to[0].sa.sa_family, options.one_to_many ? KEL_SOCK_SEQPACKET : KEL_SOCK_STREAM,
                        IPPROTO_SCTP);
    if (sockfd == KEL_ERROR) {
        return false;
    }
    if (!local.empty() && kel_sctp_bindx(sockfd, local.data(), (LONG)local.size(), SCTP_BINDX_ADD_ADDR) == KEL_ERROR) {
        fail("cannot use --local %s: %s", options.local_text.c_str(), strerror(errno));
        return false;
    }
    return kel_setsockopt(sockfd, SOL_SCTP, SCTP_INITMSG, &initmsg, sizeof(initmsg)) == 0 &&
           kel_setsockopt(sockfd, SOL_SCTP, SCTP_EVENTS, &events, sizeof(events)) == 0 &&
           (kel_sctp_connectx(sockfd, peers.data(), (LONG)peers.size(), &id) != KEL_ERROR || was_up());
}

/* A one-to-many association that the peer has ended by now counts as refused: what it has brought waits nonetheless. */
bool Association::was_up()
{
    const int refusal = errno;
    struct pollfd queue = {(int)sockfd, POLLIN, 0};
    union sctp_notification told = {};
    kel_sockaddr_t from = {};
    struct sctp_sndrcvinfo info = {};
    LONG flags = 0;
    if (options.one_to_many && poll(&queue, 1, 0) > 0 &&
        kel_sctp_recvmsg(sockfd, &told, sizeof(told), &from, &info, &flags) != KEL_ERROR &&
        told.sn_header.sn_type == SCTP_ASSOC_CHANGE && told.sn_assoc_change.sac_state == SCTP_COMM_UP) {
        id = told.sn_assoc_change.sac_assoc_id;
        return true;
    }
    errno = refusal;
    return false;
}

/*
 * The association's window is half of the buffer and counts data alone, while the buffer holds the kernel's records
 * too. More than eight times the window, and the peer would not hear that there is room again.
 */
void Association::widen()
{
    int bytes = 0;
    socklen_t length = sizeof(bytes);
    kel_getsockopt(sockfd, SOL_SOCKET, SO_RCVBUF, &bytes, &length);
    ask_for_receive_buffer(bytes / 2 * 5); /* doubled by the system */
}

/* All that the socket is bound to, and the wildcard as such. */
Addresses Association::own_addresses() const
{
    Addresses own = own_address();
    kel_sockaddr_t *list = nullptr;
    if (!is_wildcard(own[0])) {
        const LONG count = kel_sctp_getladdrs(sockfd, 0, &list);
        if (count > 0) {
            own.assign(list, list + count);
        }
        kel_sctp_freeladdrs(list);
    }
    return own;
}

void Association::begin(sctp_assoc_t association)
{
    id = association;
    struct sctp_status now = {};
    if (association_status(sockfd, id, &now)) {
        id = now.sstat_assoc_id;
        streams = std::min(options.streams != 0 ? options.streams : (uint16_t)1, now.sstat_outstrms);
        if (now.sstat_primary.spinfo_mtu > jumbo) {
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
 * The receiver's buffer counts a packet whole for each message that shares it: on the loopback interface, whose packets
 * may have 64 KiB, a few of them fill it, the rest is dropped, and the association crawls.
 */
void Association::limit_packets()
{
    struct sctp_paddrparams params = {};
    params.spp_assoc_id = id;
    params.spp_pathmtu = ethernet;
    params.spp_flags = SPP_PMTUD_DISABLE;
    kel_setsockopt(sockfd, SOL_SCTP, SCTP_PEER_ADDR_PARAMS, &params, sizeof(params));
}

/* ---- Messages ---------------------------------------------------------------------------------------------------- */

/* One: the module reports a message for which there is no room, so poll is asked before each. */
size_t Association::send(const char *bytes, size_t size)
{
    struct sctp_sndrcvinfo info = {};
    info.sinfo_assoc_id = id;
    info.sinfo_stream = stream;
    info.sinfo_ppid = htonl(options.ppid);
    size = std::min(size, options.size);
    full = true;
    if (kel_sctp_send(sockfd, bytes, size, &info, MSG_DONTWAIT) == KEL_ERROR) {
        if (errno == EPIPE) {
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

size_t Association::receive(char *buffer, size_t)
{
    kel_sockaddr_t from = {};
    struct sctp_sndrcvinfo info = {};
    LONG flags = 0;
    const LONG length = kel_sctp_recvmsg(sockfd, buffer, piece, &from, &info, &flags);
    size_t got = 0;
    if (length == KEL_ERROR && errno != EAGAIN) {
        close(errno);
    } else if (length == 0) {
        struct sctp_status now = {};
        peer_ends();
        if (!association_status(sockfd, id, &now)) {
            close(0);
        }
    } else if (length > 0 && (flags & MSG_NOTIFICATION) != 0) {
        union sctp_notification told = {};
        memcpy(&told, buffer, std::min((size_t)length, sizeof(told)));
        take_notification(told);
    } else if (length > 0 && ours(info.sinfo_assoc_id)) {
        got = (size_t)length;
        received_any = true;
        quiet_since = now_seconds();
    }
    return got;
}

/* ---- Ends -------------------------------------------------------------------------------------------------------- */

/* The peer is asked for nothing more, so it may have an answer. */
void Association::finish()
{
    const double now = now_seconds();
    full = false;
    if (unconfirmed() != 0) {
        quiet_since = now;
    }
    const bool ours_to_end = sent_any || !(options.listen || received_any);
    if (!options.send_only && (!ours_to_end || now - quiet_since < patience)) {
        not_before = ours_to_end ? std::min(quiet_since + patience, now + patience / 10) : never;
        return;
    }
    sending = false;
    if (options.one_to_many) {
        send_flag(id, SCTP_EOF);
    } else {
        shutdown((int)sockfd, SHUT_WR); /* the module has no call for it */
    }
}

LONG Association::send_flag(sctp_assoc_t association, uint16_t flag)
{
    struct sctp_sndrcvinfo info = {};
    info.sinfo_assoc_id = association;
    info.sinfo_flags = flag;
    return kel_sctp_send(sockfd, "", 0, &info, MSG_DONTWAIT);
}

size_t Association::unconfirmed()
{
    struct sctp_status now = {};
    return association_status(sockfd, id, &now) ? now.sstat_unackdata : 0;
}

/* A one-to-many listener serves the first association that it hears of. */
bool Association::ours(sctp_assoc_t association)
{
    if (!ready) {
        ready = true;
        begin(association);
    }
    return !options.one_to_many || association == id;
}

void Association::take_notification(const union sctp_notification &told)
{
    switch (told.sn_header.sn_type) {
    case SCTP_ASSOC_CHANGE:
        if (ours(told.sn_assoc_change.sac_assoc_id)) {
            take_change(told.sn_assoc_change);
        } else if (told.sn_assoc_change.sac_state == SCTP_COMM_UP) {
            send_flag(told.sn_assoc_change.sac_assoc_id, SCTP_ABORT);
        }
        break;
    case SCTP_SHUTDOWN_EVENT:
        if (ours(told.sn_shutdown_event.sse_assoc_id)) {
            peer_ends();
        }
        break;
    default:
        break;
    }
    paths.notification(told);
}

void Association::take_change(const struct sctp_assoc_change &change)
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
    case SCTP_RESTART: /* another program has taken the peer's place, and knows nothing of what was sent */
        close(ECONNRESET);
        break;
    default:
        break;
    }
}

/* It takes nothing more. What it has sent still comes; until then poll calls the socket readable all the time. */
void Association::peer_ends()
{
    sending = false;
    polled = false;
}

/* why: 0, or what broke it. The first call counts. */
void Association::close(int why)
{
    if (receiving && why != 0) {
        broke(why);
    }
    sending = false;
    receiving = false;
}

void Association::tick()
{
    const double now = now_seconds();
    if (paths.due() <= now) {
        paths.look(now);
    }
    wake = std::min(paths.due(), polled ? never : now + nap);
}

} // namespace

std::unique_ptr<Channel> make_sctp(const Options &options)
{
    return std::make_unique<Association>(options);
}
