/* Two UDP servers on one port: who gets what is sent there. */
#include <kel/kel_socket.h>
#include <poll.h>
#include <stdio.h>

static void send_one(const CHAR *when, kel_sockaddr_t *port, LONG older, LONG newer)
{
    struct pollfd polled[] = {{.fd = (int)older, .events = POLLIN}, {.fd = (int)newer, .events = POLLIN}};
    CHAR byte;
    LONG client = kel_udp_client_socket_create(KEL_AF_INET, NULL, 0, NULL);
    kel_sendto(client, "x", 1, 0, port);
    poll(polled, 2, -1);
    kel_recv(polled[0].revents != 0 ? older : newer, &byte, 1, 0);
    kel_close(client);
    printf("%s: the %s server has it\n", when, polled[0].revents != 0 ? "older" : "newer");
}

int main(void)
{
    kel_sockaddr_t here;
    LONG older = kel_udp_server_socket_create(KEL_AF_INET, "127.0.0.1", 0);
    if (older == KEL_ERROR || kel_getsockname(older, &here) == KEL_ERROR) {
        return 1;
    }
    SHORT port = (SHORT)ntohs(here.sin.sin_port);
    LONG newer = kel_udp_server_socket_create(KEL_AF_INET, "127.0.0.1", port);
    send_one("the same address", &here, older, newer);
    kel_close(newer);
    send_one("the newer one closed", &here, older, KEL_ERROR);
    newer = kel_udp_server_socket_create(KEL_AF_INET, NULL, port);
    send_one("the newer one on every address", &here, older, newer);
    kel_close(newer);
    kel_close(older);

    int off = 0;
    LONG alone = kel_socket(KEL_AF_INET, KEL_SOCK_DGRAM, 0);
    kel_setsockopt(alone, SOL_SOCKET, SO_REUSEADDR, &off, sizeof(off));
    if (kel_bind(alone, &here) == KEL_ERROR) {
        return 1;
    }
    newer = kel_udp_server_socket_create(KEL_AF_INET, "127.0.0.1", port);
    puts("");
    return newer == KEL_ERROR && kel_close(alone) == 0 ? 0 : 1;
}
