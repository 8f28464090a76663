#include "channel.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "signals.h"

Channel::~Channel()
{
    if (sockfd != KEL_ERROR) {
        kel_close(sockfd);
    }
    remove_file();
}

/* ---- Failures: one sentence each --------------------------------------------------------------------------------- */

void Channel::fail(const char *format, ...)
{
    if (!failed) {
        va_list args;
        va_start(args, format);
        say_list(format, args);
        va_end(args);
    }
    failed = true;
}

void Channel::broke(int error)
{
    fail("the transfer with %s broke: %s", options.endpoint.c_str(), strerror(error));
}

int Channel::refuse(const char *what, const char *why)
{
    fail("cannot %s %s: %s", what, options.endpoint.c_str(), why);
    return 1;
}

int Channel::cannot(const char *what)
{
    return refuse(what, strerror(errno));
}

/* ---- Opening ----------------------------------------------------------------------------------------------------- */

int Channel::open_socket()
{
    const std::vector<Addresses> places = resolve(options.place, options.local);
    if (places.empty()) {
        return 1;
    }
    const bool may_last = connection && !options.listen;
    if (may_last) {
        signals_end_at_once(options.endpoint, options.timeout);
    }
    for (size_t i = 0; i < places.size() && sockfd == KEL_ERROR && !failed; i++) {
        more_places = i + 1 < places.size();
        show_reports(); /* a timeout leaves no time for them */
        sockfd = options.listen ? listen_at(places[i]) : connect_to(places[i]);
    }
    const int status = sockfd != KEL_ERROR ? 0 : cannot(options.listen ? "listen on" : "connect to");
    if (may_last) {
        signals_wait_again();
    }
    return status;
}

LONG Channel::given_back(LONG socket)
{
    const int error = errno;
    kel_close(socket);
    errno = error;
    return KEL_ERROR;
}

LONG Channel::bound(LONG socket)
{
    kel_sockaddr_t local = options.local.empty() ? kel_sockaddr_t{} : options.local.front();
    if (socket == KEL_ERROR || options.local.empty() || kel_bind(socket, &local) == KEL_OK) {
        return socket;
    }
    return no_local(socket);
}

LONG Channel::no_local(LONG socket)
{
    fail("cannot use --local %s: %s", options.local_text.c_str(), strerror(errno));
    return given_back(socket);
}

LONG Channel::connected(LONG socket, kel_sockaddr_t to)
{
    return socket == KEL_ERROR || kel_connect(socket, &to) == KEL_OK ? socket : given_back(socket);
}

int Channel::wait_for_client()
{
    for (;;) {
        struct pollfd listening = {(int)sockfd, POLLIN, 0};
        const int events = signals_poll(&listening, 1, options.idle != 0 ? options.idle : -1);
        if (const int signal = signals_take()) {
            return 128 + signal;
        }
        if (events > 0) {
            return 0;
        }
        if (events == 0) {
            fail("nobody connected to %s within %g s", options.endpoint.c_str(), options.idle);
            return 1;
        }
    }
}

int Channel::accept_client()
{
    fcntl((int)sockfd, F_SETFL, O_NONBLOCK); /* the module has no call for it; a client may be gone by then */
    for (;;) {
        if (const int status = wait_for_client()) {
            return status;
        }
        kel_sockaddr_t peer = {};
        const LONG accepted = kel_accept(sockfd, &peer);
        if (accepted != KEL_ERROR) {
            kel_close(sockfd);
            sockfd = accepted;
            remove_file();
            return 0;
        }
        if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED) {
            return cannot("accept on");
        }
    }
}

/* As large as it may be: with the privilege past the system's limit, or else up to it. */
void Channel::ask_for_receive_buffer(int bytes)
{
    if (kel_setsockopt(sockfd, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof(bytes)) != 0) {
        kel_setsockopt(sockfd, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof(bytes));
    }
}

/* ---- Files of local sockets -------------------------------------------------------------------------------------- */

/*
 * A path is free when nothing stands there, or a socket whose owner has gone. The module's stream server would remove
 * anything that does.
 */
bool Channel::claim_file(const std::string &path)
{
    struct stat present;
    if (lstat(path.c_str(), &present) != 0) {
        return true; /* what else may be wrong with the path, the bind reports */
    }
    if (!S_ISSOCK(present.st_mode)) {
        fail("cannot listen on %s: a file that is no socket stands there; choose another path", path.c_str());
        return false;
    }
    /* A datagram socket's connect disturbs nobody: a stream server answers EPROTOTYPE, an abandoned file refuses. The
     * system's connect, since kel_connect would report the refusal that is hoped for. */
    const LONG probe = kel_socket(KEL_AF_UNIX, KEL_SOCK_DGRAM, 0);
    kel_sockaddr_t address;
    kel_addr_fill(0, &address, KEL_AF_UNIX, 0, path.c_str(), 0, nullptr);
    const bool abandoned =
        connect((int)probe, &address.sa, (socklen_t)kel_sizeof_socket(&address)) != 0 && errno == ECONNREFUSED;
    kel_close(probe);
    if (abandoned) {
        unlink(path.c_str());
    } else {
        fail("cannot listen on %s: another program's socket stands there; choose another path", path.c_str());
    }
    return abandoned;
}

void Channel::made_file(const std::string &path)
{
    if (lstat(path.c_str(), &file_status) == 0) {
        file = path;
    }
}

void Channel::remove_file()
{
    struct stat present;
    if (!file.empty() && lstat(file.c_str(), &present) == 0 && present.st_dev == file_status.st_dev &&
        present.st_ino == file_status.st_ino) {
        unlink(file.c_str());
    }
    file.clear();
}

/* ---- What -v shows ----------------------------------------------------------------------------------------------- */

Addresses Channel::own_address() const
{
    Addresses own(1);
    kel_getsockname(sockfd, own.data());
    return own;
}

Addresses Channel::peer_address() const
{
    Addresses peer(1);
    kel_getpeername(sockfd, peer.data());
    return peer;
}

void Channel::show_listening(const Addresses &own) const
{
    if (options.verbose) {
        say("listening on %s", endpoint_text(options.transport, own).c_str());
    }
}

void Channel::show_peer(const Addresses &peer, const Addresses &own) const
{
    const std::string other = endpoint_text(options.transport, peer);
    const std::string self = options.listen ? "" : endpoint_text(options.transport, own);
    if (options.verbose && !other.empty()) {
        say("%s %s%s%s", options.listen ? "peer" : "connected to", other.c_str(), self.empty() ? "" : " from ",
            self.c_str());
    }
}
