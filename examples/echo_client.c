/* Says hello to the echo server and prints the answer. */
#include <kel/kel_socket.h>
#include <stdio.h>

int main(void)
{
    LONG server = kel_tcp_client_socket_create(KEL_AF_INET, "127.0.0.1", 9000);
    if (server == KEL_ERROR) {
        return 1;
    }
    CHAR text[100] = "";
    kel_send(server, "hello", 5, MSG_NOSIGNAL);
    kel_recv(server, text, sizeof(text) - 1, 0);
    puts(text);
    return kel_close(server) == 0 ? 0 : 1;
}
