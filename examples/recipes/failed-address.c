/* Tries the servers of a list, and says which of them is meant by a report. */
#include <kel/kel_lib.h>
#include <kel/kel_socket.h>
#include <stdio.h>

static LONG connect_to(const CHAR *address, SHORT port)
{
    LONG sockfd = kel_tcp_client_socket_create(KEL_AF_INET, address, port);
    if (sockfd == KEL_ERROR) {
        kel_err_print(" (%s, port %d)\n", address, (unsigned short)port);
    }
    return sockfd;
}

int main(void)
{
    kel_sockaddr_t here;
    LONG server = kel_tcp_server_socket_create(KEL_AF_INET, "127.0.0.1", 0, 5);
    if (server == KEL_ERROR || kel_getsockname(server, &here) == KEL_ERROR) {
        return 1;
    }
    const CHAR *addresses[] = {"127.0.0.2", "127.0.0.1"};
    SHORT ports[] = {1, (SHORT)ntohs(here.sin.sin_port)};
    LONG client = KEL_ERROR;
    for (int i = 0; i < 2 && client == KEL_ERROR; i++) {
        client = connect_to(addresses[i], ports[i]);
    }
    puts(client == KEL_ERROR ? "no server" : "the second one answers");
    return (kel_close(client) | kel_close(server)) == 0 ? 0 : 1;
}
