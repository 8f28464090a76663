/* Asks the kernel how many connections may wait at a server until they are accepted. */
#include <kel/kel_socket.h>
#include <netinet/tcp.h>
#include <stdio.h>

static unsigned int backlog(LONG server)
{
    struct tcp_info info = {.tcpi_sacked = 0};
    socklen_t size = sizeof(info);
    kel_getsockopt(server, IPPROTO_TCP, TCP_INFO, &info, &size);
    return info.tcpi_sacked; /* of a socket that listens, this is the backlog */
}

int main(void)
{
    LONG server = kel_tcp_server_socket_create(KEL_AF_INET, "127.0.0.1", 0, 100);
    if (server == KEL_ERROR) {
        return 1;
    }
    printf("a server with maxClient 100: %u may wait\n", backlog(server));

    if (kel_listen(server, 100) == KEL_ERROR) {
        return 1;
    }
    printf("after a listen with 100: %u may wait\n", backlog(server));
    return kel_close(server) == 0 ? 0 : 1;
}
