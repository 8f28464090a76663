/* tcp and unix: bytes over one connection. */
#include <algorithm>
#include <cerrno>
#include <linux/sockios.h>
#include <sys/ioctl.h>

#include "channel.h"
#include "signals.h"
#include "socket_file.h"

const char stream_rule[] =
    "Streams: the end of the input closes the sending side; it is over when the peer has ended, too. Input that is no "
    "terminal is sent until it ends; a terminal's ends with the peer. --send-only: it is over at the end of the input. "
    "Ended by --idle before, it is broken (status 3).";

namespace
{

class Stream : public Channel
{
  public:
    explicit Stream(const Options &given) : Channel(given)
    {
        connection = true;
    }

    int open() override;
    size_t send(const char *bytes, size_t size) override;
    void finish() override;
    size_t receive(char *buffer, size_t room) override;
    size_t unconfirmed() override;

  private:
    int open_tcp();
    int open_unix();

    SocketFile file;
};

int Stream::open()
{
    int status = options.transport == Tcp ? open_tcp() : open_unix();
    if (status == 0 && options.listen) {
        show_listening(own_address());
        status = accept_client();
        file.remove();
    }
    if (status == 0) {
        show_peer(peer_address(), own_address());
    }
    return status;
}

int Stream::open_tcp()
{
    const std::vector<Addresses> addresses =
        resolve(options.place, options.local.empty() ? AF_UNSPEC : options.local.front().sa.sa_family);
    if (addresses.empty()) {
        return 1;
    }
    const SHORT port = (SHORT)options.place.port;
    if (options.listen) {
        auto listen = [&](const Addresses &at) {
            sockfd = kel_tcp_server_socket_create((kel_domain_t)at[0].sa.sa_family, host_text(at[0]).c_str(), port, 1);
        };
        return one_of(addresses, listen) ? 0 : cannot("listen on");
    }

    SignalsExit while_connecting(options.endpoint, options.timeout);
    auto connect = [&](const Addresses &to) {
        const kel_domain_t family = (kel_domain_t)to[0].sa.sa_family;
        if (options.local.empty()) {
            sockfd = kel_tcp_client_socket_create(family, host_text(to[0]).c_str(), port);
            return;
        }
        sockfd = kel_socket(family, KEL_SOCK_STREAM, 0);
        kel_sockaddr_t peer = to[0];
        if (bind_local() && kel_connect(sockfd, &peer) != KEL_OK) {
            give_back();
        }
    };
    return one_of(addresses, connect) ? 0 : cannot("connect to");
}

int Stream::open_unix()
{
    if (!options.listen) {
        SignalsExit while_connecting(options.endpoint, options.timeout);
        sockfd = kel_unix_tcp_client_socket_create(options.path.c_str());
        return sockfd == KEL_ERROR ? cannot("connect to") : 0;
    }
    if (!SocketFile::free_path(options.path)) {
        return 1;
    }
    sockfd = kel_unix_tcp_server_socket_create(options.path.c_str(), 1);
    if (sockfd == KEL_ERROR) {
        return cannot("listen on");
    }
    file.made(options.path);
    return 0;
}

size_t Stream::send(const char *bytes, size_t size)
{
    const LONG sent = kel_send(sockfd, bytes, size, MSG_DONTWAIT);
    if (sent == KEL_ERROR && errno != EAGAIN) {
        broke(errno);
        sending = false;
        return 0;
    }
    full = sent < (LONG)size;
    return sent == KEL_ERROR ? 0 : (size_t)sent;
}

void Stream::finish()
{
    shutdown((int)sockfd, SHUT_WR); /* the module has no call for it */
    sending = false;
    receiving = receiving && !options.send_only;
}

size_t Stream::receive(char *buffer, size_t room)
{
    const LONG length = kel_recv(sockfd, buffer, std::min(room, largest), MSG_DONTWAIT);
    if (length == KEL_ERROR && errno != EAGAIN) {
        broke(errno);
        sending = false;
    }
    receiving = length > 0 || (length == KEL_ERROR && errno == EAGAIN);
    return length > 0 ? (size_t)length : 0;
}

size_t Stream::unconfirmed()
{
    int error = 0;
    socklen_t length = sizeof(error);
    if (kel_getsockopt(sockfd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error != 0) {
        broke(error);
    }
    int bytes = 0;
    const bool known = options.transport == Tcp && ioctl((int)sockfd, SIOCOUTQ, &bytes) == 0; /* nor for this */
    return known && !failed ? (size_t)bytes : 0;
}

} // namespace

std::unique_ptr<Channel> make_stream(const Options &options)
{
    return std::make_unique<Stream>(options);
}
