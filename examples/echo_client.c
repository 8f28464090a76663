/* Says hello to the echo server and prints what comes back. */
#include "kel_socket.h"
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char **argv)
{
    LONG server = kel_tcp_client_socket_create(KEL_AF_INET, "127.0.0.1", (SHORT)(argc > 1 ? atoi(argv[1]) : 9000));
    if (server == KEL_ERROR) {
        return 1;
    }

    char text[100];
    kel_send(server, "hello", 5, 0);
    LONG count = kel_recv(server, text, sizeof(text), 0);
    printf("%.*s\n", (int)(count > 0 ? count : 0), text);

    kel_close(server);
    return count > 0 ? 0 : 1;
}
