/* Connects, accepts and receives without a wait anywhere but in poll(2). */
#include <errno.h>
#include <fcntl.h>
#include <kel/kel_socket.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>

static void wait_for(LONG sockfd, short events)
{
    struct pollfd polled = {.fd = (int)sockfd, .events = events};
    poll(&polled, 1, -1);
}

int main(void)
{
    kel_sockaddr_t here;
    kel_sockaddr_t peer;
    LONG server = kel_tcp_server_socket_create(KEL_AF_INET, "127.0.0.1", 0, 5);
    if (server == KEL_ERROR || kel_getsockname(server, &here) == KEL_ERROR) {
        return 1;
    }
    fcntl((int)server, F_SETFL, O_NONBLOCK);
    if (kel_accept(server, &peer) == KEL_ERROR) {
        perror("accept");
    }

    LONG client = kel_socket(KEL_AF_INET, KEL_SOCK_STREAM, 0);
    fcntl((int)client, F_SETFL, O_NONBLOCK);
    if (kel_connect(client, &here) == KEL_ERROR && errno != EINPROGRESS) {
        return 1;
    }
    wait_for(client, POLLOUT);
    int error = 0;
    socklen_t size = sizeof(error);
    kel_getsockopt(client, SOL_SOCKET, SO_ERROR, &error, &size);
    printf("\nconnect: %s\n", strerror(error));

    wait_for(server, POLLIN);
    LONG accepted = kel_accept(server, &peer);
    printf("accept: the connection %s\n",
           (fcntl((int)accepted, F_GETFL) & O_NONBLOCK) == 0 ? "blocks" : "does not block");

    CHAR text[100];
    if (kel_recv(accepted, text, sizeof(text), MSG_DONTWAIT) == KEL_ERROR) {
        perror("recv");
    }
    kel_send(client, "hello", 5, MSG_NOSIGNAL);
    wait_for(accepted, POLLIN);
    LONG count = kel_recv(accepted, text, sizeof(text), MSG_DONTWAIT);
    printf("recv: %.*s\n", (int)count, text);
    return (kel_close(accepted) | kel_close(client) | kel_close(server)) == 0 ? 0 : 1;
}
