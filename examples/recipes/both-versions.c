/* Serves one port over IPv4 and IPv6. */
#include <kel/kel_socket.h>
#include <poll.h>
#include <stdio.h>

/* Takes one connection from whichever of the two servers it comes to. */
static void accept_one(LONG server4, LONG server6)
{
    struct pollfd polled[] = {{.fd = (int)server4, .events = POLLIN}, {.fd = (int)server6, .events = POLLIN}};
    poll(polled, 2, -1);
    kel_sockaddr_t peer;
    LONG client = kel_accept(polled[0].revents != 0 ? server4 : server6, &peer);
    CHAR text[INET6_ADDRSTRLEN];
    printf("%s came to the IPv%d server\n", kel_inet_ntop(peer.sa.sa_family, &peer, text, sizeof(text)),
           polled[0].revents != 0 ? 4 : 6);
    kel_close(client);
}

int main(void)
{
    LONG server6 = kel_tcp_server_socket_create(KEL_AF_INET6, NULL, 9000, 5);
    LONG client4 = kel_tcp_client_socket_create(KEL_AF_INET, "127.0.0.1", 9000);
    puts("");

    LONG server4 = kel_tcp_server_socket_create(KEL_AF_INET, NULL, 9000, 5);
    if (server6 == KEL_ERROR || client4 != KEL_ERROR || server4 == KEL_ERROR) {
        return 1;
    }
    client4 = kel_tcp_client_socket_create(KEL_AF_INET, "127.0.0.1", 9000);
    accept_one(server4, server6);
    LONG client6 = kel_tcp_client_socket_create(KEL_AF_INET6, "::1", 9000);
    accept_one(server4, server6);
    return (kel_close(client6) | kel_close(client4) | kel_close(server6) | kel_close(server4)) == 0 ? 0 : 1;
}
