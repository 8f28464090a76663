#include "endpoint.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <net/if.h>
#include <unistd.h>

#include "kel_sctp.h"
#include "progress.h"
#include "signals.h"

/* ---- The socket's file ------------------------------------------------------------------------------------------- */

SocketFile::~SocketFile()
{
    remove();
}

void SocketFile::made(const std::string &name)
{
    if (lstat(name.c_str(), &status) == 0) {
        path = name;
    }
}

void SocketFile::remove()
{
    struct stat present;
    if (!path.empty() && lstat(path.c_str(), &present) == 0 && present.st_dev == status.st_dev &&
        present.st_ino == status.st_ino) {
        unlink(path.c_str());
    }
    path.clear();
}

/* ---- Failures: one sentence each --------------------------------------------------------------------------------- */

int Endpoint::refuse(const char *what, const char *why)
{
    say("cannot %s %s: %s", what, arguments.endpoint.c_str(), why);
    return 1;
}

/* Comes directly after the call that failed: errno is that call's. */
int Endpoint::cannot(const char *what)
{
    return refuse(what, strerror(errno));
}

/* ---- Opening ----------------------------------------------------------------------------------------------------- */

Endpoint::~Endpoint()
{
    if (sockfd != KEL_ERROR) {
        kel_close(sockfd);
    }
}

int Endpoint::open()
{
    int status = 0;
    switch (arguments.transport) {
    case Transport::Tcp:
        status = open_tcp();
        break;
    case Transport::Udp:
        status = open_udp();
        break;
    case Transport::Sctp:
        status = open_sctp();
        break;
    case Transport::UnixStream:
        status = open_unix_stream();
        break;
    case Transport::UnixDatagram:
        status = open_unix_datagram();
        break;
    case Transport::Packet:
        status = open_packet();
        break;
    }
    if (status != 0) {
        return status;
    }

    const bool sctp = arguments.transport == Transport::Sctp;
    if (!arguments.stream() || (sctp && arguments.listen)) {
        ask_for_receive_buffer(4 << 20);
    }
    if (arguments.listen || arguments.transport == Transport::Packet) {
        show_own("listening on");
    }
    if (arguments.listen && arguments.stream()) {
        status = accept_one();
    }
    if (sctp) {
        fcntl((int)sockfd, F_SETFL, O_NONBLOCK); /* kel_sctp_recvmsg has no flags that go in */
    }
    if (status == 0 && (arguments.stream() || !arguments.listen) && arguments.transport != Transport::Packet) {
        show_names();
    }
    return status;
}

static const char *text_or_null(const std::string &text)
{
    return text.empty() ? nullptr : text.c_str();
}

/* The one address of TCP and UDP, or null for every address. */
static const char *address_of(const Arguments &arguments)
{
    return arguments.addresses.empty() ? nullptr : arguments.addresses[0].c_str();
}

int Endpoint::open_tcp()
{
    const char *address = address_of(arguments);
    if (arguments.listen) {
        sockfd = kel_tcp_server_socket_create(arguments.family, address, (SHORT)arguments.port, 1);
        return sockfd == KEL_ERROR ? cannot("listen on") : 0;
    }

    std::vector<kel_sockaddr_t> local = arguments.local;
    {
        SignalsExit while_connecting;
        sockfd = local.empty() ? kel_tcp_client_socket_create(arguments.family, address, (SHORT)arguments.port)
                               : kel_tcp_client_socket_create_bind(arguments.family, address, (SHORT)arguments.port,
                                                                   local.data());
    }
    return sockfd == KEL_ERROR ? cannot("connect to") : check_local();
}

/*
 * Two UDP sockets that allow it, as the module's do, may share a port: the newer one would take what the older one
 * waits for. A socket that does not allow it finds out.
 */
bool Endpoint::udp_port_free()
{
    const int off = 0;
    LONG probe = kel_socket(arguments.family, KEL_SOCK_DGRAM, 0);
    kel_setsockopt(probe, SOL_SOCKET, SO_REUSEADDR, &off, sizeof(off));
    bool free =
        kel_bind_str(probe, arguments.family, (SHORT)arguments.port, address_of(arguments), 0, nullptr) == KEL_OK;
    kel_close(probe); /* keeps errno, which is the bind's */
    return free;
}

int Endpoint::open_udp()
{
    kel_sockaddr_t peer = {};
    const char *address = address_of(arguments);
    if (arguments.listen) {
        if (!udp_port_free()) {
            return cannot("listen on");
        }
        sockfd = kel_udp_server_socket_create(arguments.family, address, (SHORT)arguments.port);
        return sockfd == KEL_ERROR ? cannot("listen on") : 0;
    }

    std::vector<kel_sockaddr_t> local = arguments.local;
    sockfd = local.empty() ? kel_udp_client_socket_create(arguments.family, address, (SHORT)arguments.port, &peer)
                           : kel_udp_client_socket_create_bind(arguments.family, address, (SHORT)arguments.port, &peer,
                                                               local.data());
    if (sockfd == KEL_ERROR) {
        return cannot("open");
    }
    int status = check_local();
    if (status == 0 && kel_connect(sockfd, &peer) != KEL_OK) {
        return cannot("connect to");
    }
    return status;
}

int Endpoint::open_sctp()
{
    LONG probe = kel_socket(arguments.family, KEL_SOCK_STREAM, IPPROTO_SCTP);
    if (probe == KEL_ERROR) {
        return errno == EPROTONOSUPPORT ? refuse("open", "this kernel has no SCTP; where it has the module, "
                                                         "`modprobe sctp` loads it")
                                        : cannot("open");
    }
    kel_close(probe);

    struct sctp_initmsg initmsg = {arguments.streams, arguments.streams, 0, 0};
    struct sctp_event_subscribe events = {};
    events.sctp_data_io_event = 1;
    events.sctp_association_event = 1;
    events.sctp_shutdown_event = 1;
    if (arguments.verbose) {
        memset(&events, 1, sizeof(events));
    }
    if (arguments.listen) {
        return listen_sctp(&initmsg, &events);
    }
    int status = connect_sctp(&initmsg, &events);
    if (status == 0) {
        /* The association's window is half of the buffer and counts data alone, while the buffer holds the kernel's
         * records too. More than eight times the window, and the peer would not hear that there is room again. */
        int bytes = 0;
        socklen_t length = sizeof(bytes);
        kel_getsockopt(sockfd, SOL_SOCKET, SO_RCVBUF, &bytes, &length);
        ask_for_receive_buffer(bytes / 2 * 5); /* doubled by the system */
    }
    return status;
}

/* As the module's calls take them. */
static std::vector<CHAR *> texts_of(const Arguments &arguments)
{
    std::vector<CHAR *> texts;
    texts.reserve(arguments.addresses.size());
    for (const std::string &address : arguments.addresses) {
        texts.push_back(const_cast<CHAR *>(address.c_str()));
    }
    return texts;
}

int Endpoint::listen_sctp(struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events)
{
    std::vector<CHAR *> texts = texts_of(arguments);
    auto create = arguments.one_to_many ? kel_sctp_server_one2many_str_create : kel_sctp_server_one2one_str_create;
    sockfd = create(arguments.family, texts.empty() ? nullptr : texts.data(), (LONG)texts.size(), (SHORT)arguments.port,
                    1, initmsg, events);
    return sockfd == KEL_ERROR ? cannot("listen on") : 0;
}

int Endpoint::connect_sctp(struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events)
{
    std::vector<CHAR *> texts = texts_of(arguments);
    std::vector<kel_sockaddr_t> peers;
    for (CHAR *text : texts) {
        peers.emplace_back();
        kel_addr_fill(0, &peers.back(), arguments.family, (SHORT)arguments.port, text, 0, nullptr);
    }
    std::vector<kel_sockaddr_t> local = arguments.local;
    LONG count = (LONG)texts.size();
    LONG locals = (LONG)local.size();
    SHORT port = (SHORT)arguments.port;

    SignalsExit while_connecting;
    if (!arguments.one_to_many) {
        sockfd = local.empty()
                     ? kel_sctp_client_one2one_str_create(arguments.family, texts.data(), count, port, initmsg, events,
                                                          &association)
                     : kel_sctp_client_one2one_create_bind(arguments.family, peers.data(), count, port, initmsg, events,
                                                           &association, local.data(), locals);
        return sockfd == KEL_ERROR ? cannot("connect to") : check_local();
    }

    sockfd = local.empty()
                 ? kel_sctp_client_one2many_str_create(arguments.family, texts.data(), count, port, initmsg, events)
                 : kel_sctp_client_one2many_create_bind(arguments.family, peers.data(), count, port, initmsg, events,
                                                        local.data(), locals);
    int status = sockfd == KEL_ERROR ? cannot("open") : check_local();
    if (status == 0 &&
        kel_sctp_connectx_str(sockfd, arguments.family, port, texts.data(), count, &association) == KEL_ERROR &&
        !was_up()) {
        return cannot("connect to");
    }
    return status;
}

/* A one-to-many association that the peer has ended by now counts as refused: what it has brought waits nonetheless. */
bool Endpoint::was_up()
{
    const int refusal = errno;
    struct pollfd queue = {(int)sockfd, POLLIN, 0};
    union sctp_notification told = {};
    kel_sockaddr_t from = {};
    struct sctp_sndrcvinfo info = {};
    LONG flags = 0;
    if (poll(&queue, 1, 0) > 0 && kel_sctp_recvmsg(sockfd, &told, sizeof(told), &from, &info, &flags) != KEL_ERROR &&
        told.sn_header.sn_type == SCTP_ASSOC_CHANGE && told.sn_assoc_change.sac_state == SCTP_COMM_UP) {
        association = told.sn_assoc_change.sac_assoc_id;
        return true;
    }
    errno = refusal;
    return false;
}

static bool is_wildcard(const kel_sockaddr_t &address)
{
    const struct in6_addr any = IN6ADDR_ANY_INIT;
    return address.sa.sa_family == KEL_AF_INET ? address.sin.sin_addr.s_addr == INADDR_ANY
                                               : memcmp(&address.sin6.sin6_addr, &any, sizeof(any)) == 0;
}

/* The socket's own addresses: of SCTP all that it is bound to, and the wildcard as such. */
std::vector<kel_sockaddr_t> Endpoint::own_addresses()
{
    std::vector<kel_sockaddr_t> own(1);
    kel_getsockname(sockfd, own.data());
    kel_sockaddr_t *list = nullptr;
    if (arguments.transport == Transport::Sctp && !is_wildcard(own[0])) {
        LONG count = kel_sctp_getladdrs(sockfd, 0, &list);
        if (count > 0) {
            own.assign(list, list + count);
        }
        kel_sctp_freeladdrs(list);
    }
    return own;
}

/* The constructors do not tell whether the local addresses could be had: the socket's names do. */
int Endpoint::check_local()
{
    if (arguments.local.empty()) {
        return 0;
    }
    std::vector<kel_sockaddr_t> own = own_addresses();
    bool same = true;
    for (kel_sockaddr_t wanted : arguments.local) {
        bool any_port = wanted.sin.sin_port == 0;
        bool found = false;
        for (kel_sockaddr_t &address : own) {
            found = found || (is_wildcard(wanted) ? any_port || address.sin.sin_port == wanted.sin.sin_port
                                                  : kel_sock_addr_cmp(&address, &wanted, any_port) == KEL_OK);
        }
        same = same && found;
    }
    if (!same) {
        say("cannot use --local %s: the address is in use, or not this machine's", arguments.local_text.c_str());
        return 1;
    }
    return 0;
}

/*
 * A path is free when nothing stands there, or a socket whose owner has gone. The module's stream server would remove
 * anything that does.
 */
int Endpoint::check_path(const std::string &path)
{
    struct stat present;
    if (lstat(path.c_str(), &present) != 0) {
        return 0; /* what else may be wrong with the path, the bind reports */
    }
    if (!S_ISSOCK(present.st_mode)) {
        say("cannot listen on %s: a file that is no socket stands there; choose another path", path.c_str());
        return 1;
    }

    /* A datagram socket's connect disturbs nobody: a stream server answers EPROTOTYPE, an abandoned file refuses. The
     * system's connect, since kel_connect would report the refusal that is hoped for. */
    LONG probe = kel_socket(KEL_AF_UNIX, KEL_SOCK_DGRAM, 0);
    kel_sockaddr_t address;
    kel_addr_fill(0, &address, KEL_AF_UNIX, 0, path.c_str(), 0, nullptr);
    bool abandoned =
        connect((int)probe, &address.sa, (socklen_t)kel_sizeof_socket(&address)) != 0 && errno == ECONNREFUSED;
    kel_close(probe);
    if (!abandoned) {
        say("cannot listen on %s: another program's socket stands there; choose another path", path.c_str());
        return 1;
    }
    unlink(path.c_str());
    return 0;
}

int Endpoint::open_unix_stream()
{
    if (!arguments.listen) {
        {
            SignalsExit while_connecting;
            sockfd = kel_unix_tcp_client_socket_create(arguments.path.c_str());
        }
        return sockfd == KEL_ERROR ? cannot("connect to") : 0;
    }

    int status = check_path(arguments.path);
    if (status != 0) {
        return status;
    }
    sockfd = kel_unix_tcp_server_socket_create(arguments.path.c_str(), 1);
    if (sockfd == KEL_ERROR) {
        return cannot("listen on");
    }
    file.made(arguments.path);
    return 0;
}

int Endpoint::open_unix_datagram()
{
    const std::string &own = arguments.listen ? arguments.path : arguments.local_text;
    int status = own.empty() ? 0 : check_path(own);
    if (status != 0) {
        return status;
    }
    sockfd = kel_unix_udp_socket_create(text_or_null(own), !own.empty());
    if (sockfd == KEL_ERROR && !arguments.listen && !own.empty()) {
        say("cannot use --local %s: %s", own.c_str(), strerror(errno));
        return 1;
    }
    if (sockfd == KEL_ERROR) {
        return cannot(arguments.listen ? "listen on" : "open");
    }
    if (!own.empty()) {
        file.made(own);
    }
    /* Connected, so that poll tells when the receiver has room. */
    if (!arguments.listen && kel_connect_str(sockfd, KEL_AF_UNIX, 0, arguments.path.c_str()) != KEL_OK) {
        return cannot("connect to");
    }
    return 0;
}

int Endpoint::open_packet()
{
    /* Asked first: for an interface that does not exist the module closes a descriptor twice. */
    if (if_nametoindex(arguments.interface.c_str()) == 0) {
        return refuse("open", "there is no such interface; `ip link` lists them");
    }
    /* Protocol 0 receives nothing. */
    sockfd = kel_raw_server_socket_create((SHORT)(arguments.send_only ? 0 : arguments.protocol),
                                          arguments.interface.c_str());
    if (sockfd == KEL_ERROR) {
        return errno == EPERM ? refuse("open", "it needs the raw-socket privilege (CAP_NET_RAW)") : cannot("open");
    }
    return 0;
}

/* Takes the one connection; then neither the listening socket nor its file is needed. */
int Endpoint::accept_one()
{
    /* Not blocking (the module has no call for it): a client may be gone before it is accepted. */
    fcntl((int)sockfd, F_SETFL, O_NONBLOCK);

    for (;;) {
        struct pollfd listening = {(int)sockfd, POLLIN, 0};
        int ready = signals_poll(&listening, 1, arguments.idle != 0 ? arguments.idle : -1);
        if (int signal = signals_take()) {
            return 128 + signal;
        }
        if (ready == 0) {
            say("nobody connected to %s within %g s", arguments.endpoint.c_str(), arguments.idle);
            return 1;
        }
        if (ready < 0) {
            continue; /* stopped for a while */
        }
        if (arguments.one_to_many) {
            kel_listen(sockfd, 0); /* it carries the association itself, and lets nobody else in */
            return 0;
        }
        kel_sockaddr_t peer = {};
        LONG connection = kel_accept(sockfd, &peer);
        if (connection != KEL_ERROR) {
            kel_close(sockfd);
            sockfd = connection;
            file.remove();
            return 0;
        }
        if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) {
            return cannot("accept on");
        }
    }
}

/* As large as it may be: with the privilege past the system's limit, or else up to it. */
void Endpoint::ask_for_receive_buffer(int bytes)
{
    if (kel_setsockopt(sockfd, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof(bytes)) != 0) {
        kel_setsockopt(sockfd, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof(bytes));
    }
}

/* ---- What -v shows ----------------------------------------------------------------------------------------------- */

void Endpoint::show_own(const char *what)
{
    std::vector<kel_sockaddr_t> own = own_addresses();
    show_address(arguments, what, own.data(), (LONG)own.size());
}

void Endpoint::show_names()
{
    show_own("local");
    if (arguments.transport == Transport::Sctp) {
        if (arguments.one_to_many && association == 0) {
            return; /* not known yet */
        }
        kel_sockaddr_t *peers = nullptr;
        LONG count = kel_sctp_getpaddrs(sockfd, association, &peers);
        if (count > 0) {
            show_address(arguments, "peer", peers, count);
        }
        kel_sctp_freepaddrs(peers);
        return;
    }
    kel_sockaddr_t peer = {};
    if (kel_getpeername(sockfd, &peer) == KEL_OK) {
        show_address(arguments, "peer", &peer);
    }
}

/* The module's text of an address ends in its port: in front of the last one's stand the others, without theirs. */
void show_address(const Arguments &arguments, const char *what, kel_sockaddr_t *address, LONG count)
{
    bool nameless =
        address->sa.sa_family == AF_UNSPEC || (address->sa.sa_family == KEL_AF_UNIX && address->un.sun_path[0] == '\0');
    if (!arguments.verbose || nameless) {
        return;
    }
    std::string list;
    for (LONG i = 0; i < count; i++) {
        char text[128];
        std::string one = kel_addr_showstr(&address[i], text, sizeof(text));
        one.resize(i + 1 < count ? one.rfind(':') : one.size());
        list += i == 0 ? one : "," + one.substr(one.find(' ') + 1);
    }
    say("%s %s", what, list.c_str());
}
