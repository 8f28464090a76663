/* The same server made twice, by plain calls of the system and by the module. */
#include <arpa/inet.h>
#include <kel/kel_socket.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

static int failed(const char *step, int server)
{
    perror(step);
    close(server);
    return -1;
}

static int server_by_plain_calls(const char *text, uint16_t port)
{
    struct sockaddr_in local = {.sin_family = AF_INET, .sin_port = htons(port)};
    const int on = 1;
    int server = socket(AF_INET, SOCK_STREAM, 0);
    if (server == -1) {
        perror("socket");
        return -1;
    }
    if (setsockopt(server, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) == -1) {
        return failed("setsockopt", server);
    }
    if (inet_pton(AF_INET, text, &local.sin_addr) != 1) {
        return failed(text, server);
    }
    if (bind(server, (struct sockaddr *)&local, sizeof(local)) == -1) {
        return failed("bind", server);
    }
    if (listen(server, 5) == -1) {
        return failed("listen", server);
    }
    return server;
}

/* The result of either is a descriptor of the system, and goes with the calls of both. */
static void show(const char *made_by, LONG server)
{
    int listens = 0, reuses = 0;
    socklen_t length = sizeof(int);
    kel_getsockopt(server, SOL_SOCKET, SO_ACCEPTCONN, &listens, &length);
    getsockopt((int)server, SOL_SOCKET, SO_REUSEADDR, &reuses, &length);
    printf("%-11s  listens %d, SO_REUSEADDR %d\n", made_by, listens, reuses);
}

int main(void)
{
    int plain = server_by_plain_calls("127.0.0.1", 0);
    show("plain calls", plain);

    LONG server = kel_tcp_server_socket_create(KEL_AF_INET, "127.0.0.1", 0, 5);
    show("the module", server);

    return (close(plain) | kel_close(server)) == 0 ? 0 : 1;
}
