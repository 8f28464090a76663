/* Connects to a server by the name of its host. */
#include <kel/kel_socket.h>
#include <netdb.h>
#include <stdio.h>
#include <string.h>

/* Tries one address of the name after the other. */
static LONG connect_to_name(const CHAR *name, const CHAR *port, kel_sockaddr_t *addr)
{
    struct addrinfo wanted = {.ai_family = KEL_AF_INET, .ai_socktype = SOCK_STREAM}; /* AF_UNSPEC: of either version */
    struct addrinfo *found;
    int error = getaddrinfo(name, port, &wanted, &found);
    if (error != 0) {
        fprintf(stderr, "%s: %s\n", name, gai_strerror(error));
        return KEL_ERROR;
    }
    LONG connected = KEL_ERROR;
    for (struct addrinfo *each = found; each != NULL && connected == KEL_ERROR; each = each->ai_next) {
        memcpy(addr, each->ai_addr, each->ai_addrlen);
        LONG sockfd = kel_socket((kel_domain_t)each->ai_family, KEL_SOCK_STREAM, 0);
        if (sockfd != KEL_ERROR && kel_connect(sockfd, addr) == KEL_OK) {
            connected = sockfd;
        } else if (sockfd != KEL_ERROR) {
            kel_close(sockfd);
        }
    }
    freeaddrinfo(found);
    return connected;
}

int main(void)
{
    kel_sockaddr_t addr;
    LONG server = kel_tcp_server_socket_create(KEL_AF_INET, "127.0.0.1", 0, 5);
    if (server == KEL_ERROR || kel_getsockname(server, &addr) == KEL_ERROR) {
        return 1;
    }
    SHORT port = (SHORT)ntohs(addr.sin.sin_port);
    LONG refused = kel_tcp_client_socket_create(KEL_AF_INET, "localhost", port);
    puts("");

    CHAR text[INET_ADDRSTRLEN];
    snprintf(text, sizeof(text), "%u", (unsigned short)port);
    LONG client = connect_to_name("localhost", text, &addr);
    if (refused != KEL_ERROR || client == KEL_ERROR) {
        return 1;
    }
    printf("connected to localhost, which is %s\n", kel_inet_ntop(KEL_AF_INET, &addr, text, sizeof(text)));
    return (kel_close(client) | kel_close(server)) == 0 ? 0 : 1;
}
