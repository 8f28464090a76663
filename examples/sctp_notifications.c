/* A one-to-many server that tells what happens to its associations from the messages on them, and a client for it. */
#include <arpa/inet.h>
#include <kel/kel_sctp.h>
#include <kel/kel_socket.h>
#include <stdio.h>

/* Returns whether the association has ended. */
static BOOL show_change(const struct sctp_assoc_change *change)
{
    switch (change->sac_state) {
    case SCTP_COMM_UP:
    case SCTP_RESTART:
        printf("up, with %d streams to send on\n", change->sac_outbound_streams);
        return KEL_FALSE;
    case SCTP_SHUTDOWN_COMP:
        puts("ended in order");
        return KEL_TRUE;
    default:
        puts("lost");
        return KEL_TRUE;
    }
}

static BOOL show_notification(const union sctp_notification *news)
{
    switch (news->sn_header.sn_type) {
    case SCTP_ASSOC_CHANGE:
        return show_change(&news->sn_assoc_change);
    case SCTP_SHUTDOWN_EVENT:
        puts("the peer sends no more");
        return KEL_FALSE;
    default:
        return KEL_FALSE; /* not subscribed to */
    }
}

static LONG serve(LONG server)
{
    union {
        CHAR text[2000]; /* longer than any notification that is subscribed to */
        union sctp_notification news;
    } received;
    for (BOOL ended = KEL_FALSE; !ended;) {
        kel_sockaddr_t peer;
        struct sctp_sndrcvinfo info;
        LONG flags;
        LONG count = kel_sctp_recvmsg(server, &received, sizeof(received), &peer, &info, &flags);
        if (count == KEL_ERROR) {
            perror("receive");
            return KEL_ERROR;
        }
        if (flags & MSG_NOTIFICATION) {
            ended = show_notification(&received.news);
        } else {
            printf("stream %d, protocol %u: %.*s\n", info.sinfo_stream, ntohl(info.sinfo_ppid), (int)count,
                   received.text);
        }
    }
    return KEL_OK;
}

int main(void)
{
    CHAR *addresses[] = {"127.0.0.1", "127.0.0.2"};
    struct sctp_initmsg init = {.sinit_num_ostreams = 4, .sinit_max_instreams = 4};
    struct sctp_event_subscribe events = {
        .sctp_data_io_event = 1, .sctp_association_event = 1, .sctp_shutdown_event = 1};
    LONG server = kel_sctp_server_one2many_str_create(KEL_AF_INET, addresses, 2, 9000, 5, &init, &events);
    if (server == KEL_ERROR) {
        return 1;
    }

    sctp_assoc_t id;
    LONG client = kel_sctp_client_one2one_str_create(KEL_AF_INET, addresses, 2, 9000, &init, NULL, &id);
    if (client == KEL_ERROR) {
        return 1;
    }
    struct sctp_sndrcvinfo first = {.sinfo_stream = 1, .sinfo_ppid = htonl(46)};
    struct sctp_sndrcvinfo second = {.sinfo_stream = 3, .sinfo_ppid = htonl(47)};
    kel_sctp_send(client, "hello", 5, &first, MSG_NOSIGNAL);
    kel_sctp_send(client, "hello again", 11, &second, MSG_NOSIGNAL);
    kel_close(client); /* ends the association when everything has arrived */

    LONG result = serve(server);
    kel_close(server);
    return result == KEL_OK ? 0 : 1;
}
