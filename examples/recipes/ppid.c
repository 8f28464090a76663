/* Sends the payload protocol identifier 46 rightly and wrongly, and shows what travels. */
#include <arpa/inet.h>
#include <kel/kel_sctp.h>
#include <kel/kel_socket.h>
#include <stdio.h>

/* The next SCTP packet on the wire that begins with a DATA chunk. */
static void show_wire(LONG wire)
{
    UCHAR frame[2000];
    do {
        kel_recv(wire, frame, sizeof(frame), 0);
    } while (frame[23] != IPPROTO_SCTP || frame[46] != 0);
    printf("on the wire %02x %02x %02x %02x, ", frame[58], frame[59], frame[60], frame[61]);
}

static void show_received(LONG sockfd)
{
    CHAR text[100];
    kel_sockaddr_t from;
    struct sctp_sndrcvinfo info;
    LONG flags;
    kel_sctp_recvmsg(sockfd, text, sizeof(text), &from, &info, &flags);
    printf("received as %u\n", ntohl(info.sinfo_ppid));
}

int main(void)
{
    CHAR *address[] = {"127.0.0.1"};
    struct sctp_initmsg init = {.sinit_num_ostreams = 1};
    sctp_assoc_t id;
    kel_sockaddr_t peer;
    LONG wire = kel_raw_server_socket_create(0x0800, "lo");
    LONG server = kel_sctp_server_one2one_str_create(KEL_AF_INET, address, 1, 9000, 5, &init, NULL);
    LONG client = kel_sctp_client_one2one_str_create(KEL_AF_INET, address, 1, 9000, &init, NULL, &id);
    LONG accepted = kel_accept(server, &peer);

    struct sctp_sndrcvinfo info = {.sinfo_ppid = htonl(46)};
    kel_sctp_send(client, "right", 5, &info, MSG_NOSIGNAL);
    show_wire(wire);
    show_received(accepted);

    info.sinfo_ppid = 46;
    kel_sctp_send(client, "wrong", 5, &info, MSG_NOSIGNAL);
    show_wire(wire);
    show_received(accepted);

    kel_getpeername(client, &peer);
    kel_sctp_sendmsg(client, "right", 5, &peer, htonl(46), 0, 0, 0, 0);
    show_wire(wire);
    show_received(accepted);
    return (kel_close(client) | kel_close(accepted) | kel_close(server) | kel_close(wire)) == 0 ? 0 : 1;
}
