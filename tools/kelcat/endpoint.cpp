#include "endpoint.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <net/if.h>
#include <unistd.h>

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

    if (!arguments.stream()) {
        ask_for_receive_buffer();
    }
    if (arguments.listen || arguments.transport == Transport::Packet) {
        kel_sockaddr_t own = {};
        kel_getsockname(sockfd, &own);
        show_address(arguments, "listening on", &own);
    }
    if (arguments.listen && arguments.stream()) {
        status = accept_one();
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

int Endpoint::open_tcp()
{
    if (arguments.listen) {
        sockfd =
            kel_tcp_server_socket_create(arguments.family, text_or_null(arguments.address), (SHORT)arguments.port, 1);
        return sockfd == KEL_ERROR ? cannot("listen on") : 0;
    }

    kel_sockaddr_t local = arguments.local;
    {
        SignalsExit while_connecting;
        sockfd = arguments.local_text.empty()
                     ? kel_tcp_client_socket_create(arguments.family, arguments.address.c_str(), (SHORT)arguments.port)
                     : kel_tcp_client_socket_create_bind(arguments.family, arguments.address.c_str(),
                                                         (SHORT)arguments.port, &local);
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
    bool free = kel_bind_str(probe, arguments.family, (SHORT)arguments.port, text_or_null(arguments.address), 0,
                             nullptr) == KEL_OK;
    kel_close(probe); /* keeps errno, which is the bind's */
    return free;
}

int Endpoint::open_udp()
{
    kel_sockaddr_t address = {};
    if (arguments.listen) {
        if (!udp_port_free()) {
            return cannot("listen on");
        }
        sockfd = kel_udp_server_socket_create(arguments.family, text_or_null(arguments.address), (SHORT)arguments.port);
        return sockfd == KEL_ERROR ? cannot("listen on") : 0;
    }

    kel_sockaddr_t local = arguments.local;
    sockfd =
        arguments.local_text.empty()
            ? kel_udp_client_socket_create(arguments.family, arguments.address.c_str(), (SHORT)arguments.port, &address)
            : kel_udp_client_socket_create_bind(arguments.family, arguments.address.c_str(), (SHORT)arguments.port,
                                                &address, &local);
    if (sockfd == KEL_ERROR) {
        return cannot("open");
    }
    int status = check_local();
    if (status == 0 && kel_connect(sockfd, &address) != KEL_OK) {
        return cannot("connect to");
    }
    return status;
}

/* The constructors do not tell whether the local address could be had: the socket's name does. */
int Endpoint::check_local()
{
    kel_sockaddr_t wanted = arguments.local;
    kel_sockaddr_t own = {};
    if (arguments.local_text.empty()) {
        return 0;
    }
    kel_getsockname(sockfd, &own);
    const struct in6_addr any = IN6ADDR_ANY_INIT;
    bool wildcard = wanted.sa.sa_family == KEL_AF_INET ? wanted.sin.sin_addr.s_addr == INADDR_ANY
                                                       : memcmp(&wanted.sin6.sin6_addr, &any, sizeof(any)) == 0;
    bool same = wildcard ? own.sin.sin_port == wanted.sin.sin_port /* the system chose the address */
                         : kel_sock_addr_cmp(&own, &wanted, KEL_FALSE) == KEL_OK;
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
void Endpoint::ask_for_receive_buffer()
{
    const int bytes = 4 << 20;
    if (kel_setsockopt(sockfd, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof(bytes)) != 0) {
        kel_setsockopt(sockfd, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof(bytes));
    }
}

/* ---- What -v shows ----------------------------------------------------------------------------------------------- */

void Endpoint::show_names()
{
    kel_sockaddr_t address = {};
    if (kel_getsockname(sockfd, &address) == KEL_OK) {
        show_address(arguments, "local", &address);
    }
    address = {};
    if (kel_getpeername(sockfd, &address) == KEL_OK) {
        show_address(arguments, "peer", &address);
    }
}

void show_address(const Arguments &arguments, const char *what, kel_sockaddr_t *address)
{
    bool nameless =
        address->sa.sa_family == AF_UNSPEC || (address->sa.sa_family == KEL_AF_UNIX && address->un.sun_path[0] == '\0');
    if (arguments.verbose && !nameless) {
        char text[128];
        say("%s %s", what, kel_addr_showstr(address, text, sizeof(text)));
    }
}
