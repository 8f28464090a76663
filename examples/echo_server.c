/* Sends back what one client says. */
#include <kel/kel_socket.h>

int main(void)
{
    LONG server = kel_tcp_server_socket_create(KEL_AF_INET, "127.0.0.1", 9000, 5);
    if (server == KEL_ERROR) {
        return 1; /* reported already, with the step that failed */
    }
    kel_sockaddr_t peer;
    LONG client = kel_accept(server, &peer);
    CHAR text[100];
    for (LONG count; (count = kel_recv(client, text, sizeof(text), 0)) > 0;) {
        kel_send(client, text, (size_t)count, MSG_NOSIGNAL);
    }
    return (kel_close(client) | kel_close(server)) == 0 ? 0 : 1;
}
