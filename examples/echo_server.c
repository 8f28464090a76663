/* Sends back what one client says, on 127.0.0.1:9000 or the port that is given. */
#include "kel_socket.h"
#include <stdlib.h>

int main(int argc, char **argv)
{
    LONG server = kel_tcp_server_socket_create(KEL_AF_INET, "127.0.0.1", (SHORT)(argc > 1 ? atoi(argv[1]) : 9000), 5);
    if (server == KEL_ERROR) {
        return 1; /* already reported, with the step that failed */
    }

    kel_sockaddr_t peer;
    LONG client = kel_accept(server, &peer);
    char text[100];
    LONG count;
    while ((count = kel_recv(client, text, sizeof(text), 0)) > 0) {
        kel_send(client, text, (size_t)count, 0);
    }

    kel_close(client);
    kel_close(server);
    return count == 0 ? 0 : 1;
}
