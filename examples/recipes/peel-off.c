/* Gives one association of a one-to-many server a descriptor of its own, and follows it to its end. */
#include <fcntl.h>
#include <kel/kel_sctp.h>
#include <kel/kel_socket.h>
#include <poll.h>
#include <stdio.h>

/* Receives the next message or notification, and tells the association of a message. */
static sctp_assoc_t show_next(const CHAR *what, LONG sockfd)
{
    union {
        CHAR text[200];
        struct sctp_assoc_change change;
    } got;
    kel_sockaddr_t from;
    struct sctp_sndrcvinfo info = {.sinfo_assoc_id = 0};
    LONG flags = 0;
    struct pollfd polled = {.fd = (int)sockfd, .events = POLLIN};
    poll(&polled, 1, -1);
    LONG count = kel_sctp_recvmsg(sockfd, &got, sizeof(got), &from, &info, &flags);
    if ((flags & MSG_NOTIFICATION) != 0) {
        printf("%s: the association %s\n", what, got.change.sac_state == SCTP_COMM_UP ? "is up" : "has ended");
    } else {
        printf("%s: \"%.*s\"\n", what, (int)count, got.text);
    }
    return info.sinfo_assoc_id;
}

int main(void)
{
    CHAR *address[] = {"127.0.0.1"};
    struct sctp_initmsg init = {.sinit_num_ostreams = 1};
    struct sctp_event_subscribe events = {.sctp_data_io_event = 1, .sctp_association_event = 1};
    sctp_assoc_t id;
    LONG server = kel_sctp_server_one2many_str_create(KEL_AF_INET, address, 1, 9000, 5, &init, &events);
    LONG client = kel_sctp_client_one2one_str_create(KEL_AF_INET, address, 1, 9000, &init, NULL, &id);
    fcntl((int)server, F_SETFL, O_NONBLOCK);
    kel_sctp_send(client, "one", 3, NULL, MSG_NOSIGNAL);
    kel_sctp_send(client, "two", 3, NULL, MSG_NOSIGNAL);
    show_next("server", server);
    LONG peeled = kel_sctp_peeloff(server, show_next("server", server));
    if (peeled == KEL_ERROR) {
        return 1;
    }
    show_next("peeled", peeled);
    printf("peeled: %s\n", (fcntl((int)peeled, F_GETFL) & O_NONBLOCK) == 0 ? "blocks" : "does not block");
    kel_send(peeled, "answer", 6, MSG_NOSIGNAL);
    show_next("client", client);

    kel_close(client);
    show_next("peeled", peeled);
    CHAR byte;
    if (kel_recv(peeled, &byte, 1, 0) == KEL_ERROR) {
        perror("peeled");
    }
    return (kel_close(peeled) | kel_close(server)) == 0 ? 0 : 1;
}
