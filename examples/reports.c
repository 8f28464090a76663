/* Fails in every way that is reported differently; tools/console draws what a terminal shows of it. */
#include <kel/host.h>
#include <kel/kel_lib.h>
#include <kel/kel_socket.h>

static SHORT port_of(LONG sockfd)
{
    kel_sockaddr_t local = {0};
    kel_getsockname(sockfd, &local);
    return (SHORT)ntohs(local.sin.sin_port);
}

int main(void)
{
    kel_raw_print("A port that is taken: the endpoint reports the step.\n");
    LONG server = kel_tcp_server_socket_create(KEL_AF_INET, "127.0.0.1", 0, 5);
    SHORT port = port_of(server);
    kel_tcp_server_socket_create(KEL_AF_INET, "127.0.0.1", port, 5);

    kel_raw_print("\n\nNobody listens: the call reports, then the endpoint.\n");
    kel_close(server);
    kel_tcp_client_socket_create(KEL_AF_INET, "127.0.0.1", port);

    kel_raw_print("\n\nA name is no address: no call fails, and the words are those of the failure before.\n");
    kel_tcp_client_socket_create(KEL_AF_INET, "localhost", port);

    kel_raw_print("\n\nA null pointer: no words of errno.\n");
    kel_accept(server, NULL);

    kel_raw_print("\nA failed send is silent: the program says it, with the same macros.\n");
    if (kel_send(server, "hello", 5, MSG_NOSIGNAL) == KEL_ERROR) { /* it has been closed */
        kel_perror("say hello");
    }

    kel_raw_print("\n\nThe other levels: the module never uses them.\n");
    kel_warning_print("%d of %d peers answer\r\n", 1, 2);
    kel_info_print("ready\r\n");

    kel_raw_print("\nNobody listens, and the filter suppresses what kel_connect says.\n");
    host_filter_add("kel_connect", HOST_EVERY_LEVEL);
    kel_tcp_client_socket_create(KEL_AF_INET, "127.0.0.1", port);
    kel_raw_print("\n");
    return 0;
}
