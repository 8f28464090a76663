/* Says hello to the multi-homed server, and names the addresses of the peer. */
#include <arpa/inet.h>
#include <kel/kel_sctp.h>
#include <kel/kel_socket.h>
#include <stdio.h>

int main(void)
{
    CHAR *addresses[] = {"127.0.0.1", "127.0.0.2"};
    struct sctp_initmsg init = {.sinit_num_ostreams = 4, .sinit_max_instreams = 4};
    sctp_assoc_t id;
    LONG server = kel_sctp_client_one2one_str_create(KEL_AF_INET, addresses, 2, 9000, &init, NULL, &id);
    if (server == KEL_ERROR) {
        return 1;
    }

    kel_sockaddr_t *peers = NULL;
    LONG count = kel_sctp_getpaddrs(server, id, &peers);
    for (LONG i = 0; i < count; i++) {
        CHAR line[100] = "";
        kel_addr_showstr(&peers[i], line, sizeof(line));
        puts(line);
    }
    kel_sctp_freepaddrs(peers);

    CHAR text[100] = "";
    kel_sockaddr_t peer;
    struct sctp_sndrcvinfo info = {.sinfo_stream = 1, .sinfo_ppid = htonl(46)};
    LONG flags;
    kel_sctp_send(server, "hello", 5, &info, MSG_NOSIGNAL);
    kel_sctp_recvmsg(server, text, sizeof(text) - 1, &peer, &info, &flags);
    printf("%s on stream %d\n", text, info.sinfo_stream);
    return kel_close(server) == 0 ? 0 : 1;
}
