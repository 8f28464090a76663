#include "channel.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>

#include "signals.h"

Channel::Channel(const Options &given) : sending(!given.recv_only), options(given)
{
}

Channel::~Channel()
{
    if (sockfd != KEL_ERROR) {
        kel_close(sockfd);
    }
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

void Channel::give_back()
{
    const int error = errno;
    kel_close(sockfd);
    sockfd = KEL_ERROR;
    errno = error;
}

bool Channel::bind_local()
{
    kel_sockaddr_t local = options.local.empty() ? kel_sockaddr_t{} : options.local.front();
    if (options.local.empty() || kel_bind(sockfd, &local) == KEL_OK) {
        return true;
    }
    fail("cannot use --local %s: %s", options.local_text.c_str(), strerror(errno));
    give_back();
    return false;
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
    fcntl((int)sockfd, F_SETFL,
          O_NONBLOCK); /* the module has no call for it; a client may be gone before it is let in */
    for (;;) {
        if (const int status = wait_for_client()) {
            return status;
        }
        kel_sockaddr_t peer = {};
        const LONG accepted = kel_accept(sockfd, &peer);
        if (accepted != KEL_ERROR) {
            kel_close(sockfd);
            sockfd = accepted;
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
    const std::string self = endpoint_text(options.transport, own);
    if (!options.verbose || other.empty()) {
        return;
    }
    if (options.listen) {
        say("peer %s", other.c_str());
    } else {
        say("connected to %s%s%s", other.c_str(), self.empty() ? "" : " from ", self.c_str());
    }
}
