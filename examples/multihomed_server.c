/* Sends back what one client says, on whichever of two addresses reaches it. */
#include <kel/kel_sctp.h>
#include <kel/kel_socket.h>

int main(void)
{
    CHAR *addresses[] = {"127.0.0.1", "127.0.0.2"};
    struct sctp_initmsg init = {.sinit_num_ostreams = 4, .sinit_max_instreams = 4};
    LONG server = kel_sctp_server_one2one_str_create(KEL_AF_INET, addresses, 2, 9000, 5, &init, NULL);
    if (server == KEL_ERROR) {
        return 1; /* reported already, with the step that failed */
    }
    kel_sockaddr_t peer;
    LONG client = kel_accept(server, &peer);
    CHAR text[100];
    struct sctp_sndrcvinfo info;
    LONG flags;
    for (LONG count; (count = kel_sctp_recvmsg(client, text, sizeof(text), &peer, &info, &flags)) > 0;) {
        kel_sctp_send(client, text, (size_t)count, &info, MSG_NOSIGNAL); /* on the stream that it came on */
    }
    return (kel_close(client) | kel_close(server)) == 0 ? 0 : 1;
}
