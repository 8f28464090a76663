/* A server that answers whichever client speaks, and three clients that speak in an order of their own. */
#include <fcntl.h>
#include <kel/kel_socket.h>
#include <poll.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

enum { MOST = 100 };

/* Sends back what comes, until the last client has gone. */
static void serve(LONG server)
{
    struct pollfd polled[1 + MOST] = {{.fd = (int)server, .events = POLLIN}};
    nfds_t count = 1;
    fcntl((int)server, F_SETFL, O_NONBLOCK); /* a client may have gone between poll and accept */
    do {
        polled[0].events = count > MOST ? 0 : POLLIN;
        poll(polled, count, -1);
        for (nfds_t i = count - 1; i > 0; i--) {
            CHAR text[100];
            LONG length = 0;
            if (polled[i].revents != 0 && (length = kel_recv(polled[i].fd, text, sizeof(text), MSG_DONTWAIT)) > 0) {
                kel_send(polled[i].fd, text, (size_t)length, MSG_NOSIGNAL | MSG_DONTWAIT);
            } else if (polled[i].revents != 0) {
                kel_close(polled[i].fd);
                polled[i] = polled[--count];
            }
        }
        kel_sockaddr_t peer;
        LONG client = polled[0].revents == 0 ? KEL_ERROR : kel_accept(server, &peer);
        if (client != KEL_ERROR) {
            polled[count++] = (struct pollfd){.fd = (int)client, .events = POLLIN};
        }
    } while (count > 1);
}

int main(void)
{
    kel_sockaddr_t here;
    LONG server = kel_tcp_server_socket_create(KEL_AF_INET, "127.0.0.1", 0, 5);
    if (server == KEL_ERROR || kel_getsockname(server, &here) == KEL_ERROR) {
        return 1;
    }
    if (fork() == 0) {
        serve(server);
        _exit(0);
    }

    LONG clients[3];
    for (int i = 0; i < 3; i++) {
        clients[i] = kel_tcp_client_socket_create(KEL_AF_INET, "127.0.0.1", (SHORT)ntohs(here.sin.sin_port));
    }
    const CHAR *words[] = {"third", "first", "second"};
    int speakers[] = {2, 0, 1};
    for (int i = 0; i < 3; i++) {
        CHAR text[100] = "";
        kel_send(clients[speakers[i]], words[i], 6, MSG_NOSIGNAL);
        kel_recv(clients[speakers[i]], text, sizeof(text) - 1, 0);
        printf("client %d has its answer: %s\n", speakers[i] + 1, text);
    }
    for (int i = 0; i < 3; i++) {
        kel_close(clients[i]);
    }
    wait(NULL);
    puts("the server has ended");
    return kel_close(server) == 0 ? 0 : 1;
}
