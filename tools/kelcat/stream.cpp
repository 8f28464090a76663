/* tcp and unix: bytes over one connection. */
#include <algorithm>
#include <cerrno>
#include <linux/sockios.h>
#include <sys/ioctl.h>

#include "channel.h"

const char stream_rule[] =
    "  Streams: the end of the input closes the sending side; it is over when the peer has ended, too.\n"
    "  Input that is no terminal is sent until it ends; a terminal's ends with the peer. --send-only: it\n"
    "  is over at the end of the input. Ended by --idle before, it is broken (status 3).\n";

namespace
{

class Stream : public Channel
{
  public:
    explicit Stream(const Options &given) : Channel(given)
    {
        connection = true;
    }

    int open() override
    {
        int status = open_socket();
        if (status == 0 && options.listen) {
            show_listening(own_address());
            status = accept_client();
        }
        if (status == 0) {
            show_peer(peer_address(), own_address());
        }
        return status;
    }

    LONG listen_at(const Addresses &at) override
    {
        if (options.transport == Tcp) {
            return kel_tcp_server_socket_create(family_of(at), host_text(at[0]).c_str(), port_of(at), 1);
        }
        if (!claim_file(options.place.path)) {
            return KEL_ERROR;
        }
        const LONG server = kel_unix_tcp_server_socket_create(options.place.path.c_str(), 1);
        if (server != KEL_ERROR) {
            made_file(options.place.path);
        }
        return server;
    }

    LONG connect_to(const Addresses &to) override
    {
        if (options.transport == UnixStream) {
            return kel_unix_tcp_client_socket_create(options.place.path.c_str());
        }
        if (!options.local.empty()) {
            return connected(bound(kel_socket(family_of(to), KEL_SOCK_STREAM, 0)), to[0]);
        }
        return kel_tcp_client_socket_create(family_of(to), host_text(to[0]).c_str(), port_of(to));
    }

    size_t send(const char *bytes, size_t size) override
    {
        const LONG sent = kel_send(sockfd, bytes, size, MSG_DONTWAIT);
        if (sent == KEL_ERROR && errno != EAGAIN) {
            broke(errno);
            sending = false;
        }
        full = sent < (LONG)size;
        return sent == KEL_ERROR ? 0 : (size_t)sent;
    }

    void finish() override
    {
        shutdown((int)sockfd, SHUT_WR); /* the module has no call for it */
        sending = false;
        receiving = receiving && !options.send_only;
    }

    size_t receive(char *buffer, size_t room) override
    {
        const LONG length = kel_recv(sockfd, buffer, std::min(room, largest), MSG_DONTWAIT);
        if (length == KEL_ERROR && errno == EAGAIN) {
            return 0;
        }
        if (length == KEL_ERROR) {
            broke(errno);
            sending = false;
        }
        receiving = length > 0;
        return receiving ? (size_t)length : 0;
    }

    size_t unconfirmed() override
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
};

} // namespace

std::unique_ptr<Channel> make_stream(const Options &options)
{
    return std::make_unique<Stream>(options);
}
