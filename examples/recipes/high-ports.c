/* Takes port 40000 through the 16 signed bits of a SHORT, and out again. */
#include <kel/kel_socket.h>
#include <stdio.h>

int main(void)
{
    SHORT port = (SHORT)40000;
    kel_sockaddr_t here;
    LONG server = kel_udp_server_socket_create(KEL_AF_INET, "127.4.0.0", port);
    if (server == KEL_ERROR || kel_getsockname(server, &here) == KEL_ERROR) {
        return 1;
    }
    CHAR line[100];
    printf("bound to      %s\n", kel_addr_showstr(&here, line, sizeof(line)));
    printf("as a SHORT    %d\n", port);
    printf("as a port     %d\n", (unsigned short)port);

    SHORT same = (SHORT)ntohs(here.sin.sin_port);
    printf("from a record %s\n", same == port ? "the same" : "another one");
    printf("above 1023    %s\n", port > 1023 ? "yes" : "no, says the SHORT");
    return kel_close(server) == 0 ? 0 : 1;
}
