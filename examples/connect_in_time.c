/* A TCP connection that is given up after a while: the module's record and descriptor, the system's connect and poll.
 */
#include <errno.h>
#include <kel/kel_socket.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>

/* Returns 0 or the errno of what failed. */
static int connect_in_time(LONG sockfd, const kel_sockaddr_t *server, int milliseconds)
{
    if (connect((int)sockfd, &server->sa, (socklen_t)kel_sizeof_socket(server)) == 0) {
        return 0;
    }
    if (errno != EINPROGRESS) {
        return errno;
    }
    struct pollfd writable = {.fd = (int)sockfd, .events = POLLOUT};
    switch (poll(&writable, 1, milliseconds)) {
    case -1:
        return errno;
    case 0:
        return ETIMEDOUT;
    default:
        break;
    }
    int error = 0;
    socklen_t length = sizeof(error);
    return kel_getsockopt(sockfd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 ? error : errno;
}

static void show(const char *what, const kel_sockaddr_t *server)
{
    kel_socktype_t type = (kel_socktype_t)(KEL_SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC);
    LONG client = kel_socket(KEL_AF_INET, type, 0);
    printf("%s: %s\n", what, strerror(connect_in_time(client, server, 60000)));
    kel_close(client);
}

int main(void)
{
    kel_sockaddr_t address = {0};
    LONG server = kel_tcp_server_socket_create(KEL_AF_INET, "127.0.0.1", 0, 5);
    kel_getsockname(server, &address);
    show("a server that listens", &address);
    kel_close(server);
    show("one that has gone", &address);
    return 0;
}
