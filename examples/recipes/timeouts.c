/* Waits a tenth of a second, and no longer, for a connection, a peer, data, and room to send. */
#include <kel/kel_socket.h>
#include <stdio.h>
#include <sys/time.h>

static void limit(LONG sockfd, LONG option)
{
    struct timeval tenth = {.tv_usec = 100000};
    kel_setsockopt(sockfd, SOL_SOCKET, option, &tenth, sizeof(tenth));
}

int main(void)
{
    kel_sockaddr_t here;
    kel_sockaddr_t peer;
    LONG server = kel_tcp_server_socket_create(KEL_AF_INET, "127.0.0.1", 0, 5);
    if (server == KEL_ERROR || kel_getsockname(server, &here) == KEL_ERROR) {
        return 1;
    }
    limit(server, SO_RCVTIMEO);
    if (kel_accept(server, &peer) == KEL_ERROR) {
        perror("accept");
    }

    kel_listen(server, 0); /* one connection may wait, and the server does not answer a second one */
    LONG first = kel_tcp_client_socket_create(KEL_AF_INET, "127.0.0.1", (SHORT)ntohs(here.sin.sin_port));
    LONG second = kel_socket(KEL_AF_INET, KEL_SOCK_STREAM, 0);
    limit(second, SO_SNDTIMEO);
    kel_connect(second, &here);
    puts("");

    CHAR block[10000] = "";
    limit(first, SO_RCVTIMEO);
    if (kel_recv(first, block, sizeof(block), 0) == KEL_ERROR) {
        perror("recv");
    }
    limit(first, SO_SNDTIMEO);
    while (kel_send(first, block, sizeof(block), MSG_NOSIGNAL) != KEL_ERROR) {
    }
    perror("send");
    return (kel_close(second) | kel_close(first) | kel_close(server)) == 0 ? 0 : 1;
}
