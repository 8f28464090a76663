/* Starts a program that looks whether it has inherited a descriptor. */
#include <fcntl.h>
#include <kel/kel_socket.h>
#include <stdio.h>
#include <stdlib.h>

static int started_program_has(const CHAR *what, LONG sockfd)
{
    CHAR command[200];
    snprintf(command, sizeof(command), "[ -e /proc/self/fd/%ld ] && echo '%s: inherited' || echo '%s: not inherited'",
             sockfd, what, what);
    return system(command);
}

int main(void)
{
    kel_sockaddr_t here;
    kel_sockaddr_t peer;
    LONG server = kel_tcp_server_socket_create(KEL_AF_INET, "127.0.0.1", 0, 5);
    if (server == KEL_ERROR || kel_getsockname(server, &here) == KEL_ERROR) {
        return 1;
    }
    int status = started_program_has("server, as it comes", server);

    fcntl((int)server, F_SETFD, FD_CLOEXEC);
    status |= started_program_has("server with FD_CLOEXEC", server);

    LONG client = kel_tcp_client_socket_create(KEL_AF_INET, "127.0.0.1", (SHORT)ntohs(here.sin.sin_port));
    LONG accepted = kel_accept(server, &peer);
    status |= started_program_has("connection that it has accepted", accepted);
    return (status | kel_close(accepted) | kel_close(client) | kel_close(server)) == 0 ? 0 : 1;
}
