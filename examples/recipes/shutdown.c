/* Says that the question is complete, and receives the answer on the same connection. */
#include <kel/kel_socket.h>
#include <stdio.h>

int main(void)
{
    kel_sockaddr_t here;
    kel_sockaddr_t peer;
    LONG server = kel_tcp_server_socket_create(KEL_AF_INET, "127.0.0.1", 0, 5);
    if (server == KEL_ERROR || kel_getsockname(server, &here) == KEL_ERROR) {
        return 1;
    }
    LONG client = kel_tcp_client_socket_create(KEL_AF_INET, "127.0.0.1", (SHORT)ntohs(here.sin.sin_port));
    LONG accepted = kel_accept(server, &peer);

    kel_send(client, "one two", 7, MSG_NOSIGNAL);
    kel_send(client, " three", 6, MSG_NOSIGNAL);
    shutdown((int)client, SHUT_WR); /* the server reads 0 behind the last byte */

    CHAR text[100] = "";
    size_t length = 0;
    for (LONG count; (count = kel_recv(accepted, text + length, sizeof(text) - 1 - length, 0)) > 0;) {
        length += (size_t)count;
    }
    printf("the server has read \"%s\" and the end\n", text);

    kel_send(accepted, "13 bytes", 8, MSG_NOSIGNAL);
    LONG count = kel_recv(client, text, sizeof(text), 0);
    printf("the client has the answer, \"%.*s\"\n", (int)count, text);
    return (kel_close(accepted) | kel_close(client) | kel_close(server)) == 0 ? 0 : 1;
}
