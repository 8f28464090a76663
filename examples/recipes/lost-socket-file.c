/* A second server on the path of a first one, and a lock that keeps the path to one of them. */
#include <fcntl.h>
#include <kel/kel_socket.h>
#include <poll.h>
#include <stdio.h>
#include <sys/file.h>
#include <unistd.h>

/* As the module's constructor, for whoever comes first. The lock ends with the process. */
static LONG only_server(const CHAR *path)
{
    CHAR lock[120];
    snprintf(lock, sizeof(lock), "%s.lock", path);
    int held = open(lock, O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    if (held == -1 || flock(held, LOCK_EX | LOCK_NB) == -1) {
        perror(lock);
        close(held);
        return KEL_ERROR;
    }
    return kel_unix_tcp_server_socket_create(path, 5);
}

int main(void)
{
    LONG first = kel_unix_tcp_server_socket_create("socket", 5);
    LONG second = kel_unix_tcp_server_socket_create("socket", 5);
    LONG client = kel_unix_tcp_client_socket_create("socket");
    if (first == KEL_ERROR || second == KEL_ERROR || client == KEL_ERROR) {
        return 1;
    }
    struct pollfd polled[] = {{.fd = (int)first, .events = POLLIN}, {.fd = (int)second, .events = POLLIN}};
    poll(polled, 2, -1);
    printf("the client came to the %s server\n", polled[1].revents != 0 ? "second" : "first");

    kel_close(second);
    LONG another = kel_unix_tcp_client_socket_create("socket");
    printf("\nafter the second has closed, the first is %s\n", another == KEL_ERROR ? "out of reach" : "back");
    kel_close(client);
    kel_close(first);

    first = only_server("socket");
    second = only_server("socket");
    printf("with a lock, the second %s\n", second == KEL_ERROR ? "is refused" : "starts");
    kel_close(first);
    return unlink("socket") | unlink("socket.lock");
}
