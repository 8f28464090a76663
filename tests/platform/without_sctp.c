/* Calls every SCTP function where the kernel has no SCTP: endpoints as a program would, the others on what these give.
 */
#include <errno.h>
#include <kel/kel_sctp.h>
#include <stdio.h>

#define SHOW(function, ...)                                                                                            \
    do {                                                                                                               \
        errno = 0;                                                                                                     \
        LONG result = function(__VA_ARGS__);                                                                           \
        const int left = errno;                                                                                        \
        printf("\n%s = %ld, errno %d\n", #function, result, left);                                                     \
    } while (0)

int main(void)
{
    CHAR *texts[] = {"127.0.0.1", "127.0.0.2"};
    kel_sockaddr_t records[2];
    struct sctp_initmsg init = {.sinit_num_ostreams = 4};
    struct sctp_status status;
    struct sctp_sndrcvinfo info = {.sinfo_stream = 0};
    socklen_t size = sizeof(status);
    sctp_assoc_t id = 0;
    CHAR text[8] = "text";
    LONG flags;
    kel_sockaddr_t *list = NULL;
    for (int i = 0; i < 2; i++) {
        kel_addr_fill(0, &records[i], KEL_AF_INET, 9000, texts[i], 0, NULL);
    }

    SHOW(kel_socket, KEL_AF_INET, KEL_SOCK_STREAM, IPPROTO_SCTP);
    SHOW(kel_sctp_server_one2one_create, KEL_AF_INET, records, 2, 9000, 5, &init, NULL);
    SHOW(kel_sctp_server_one2many_create, KEL_AF_INET, records, 2, 9000, 5, &init, NULL);
    SHOW(kel_sctp_server_one2one_str_create, KEL_AF_INET, texts, 2, 9000, 5, &init, NULL);
    SHOW(kel_sctp_server_one2many_str_create, KEL_AF_INET, texts, 2, 9000, 5, &init, NULL);
    SHOW(kel_sctp_client_one2one_create, KEL_AF_INET, records, 2, 9000, &init, NULL, &id);
    SHOW(kel_sctp_client_one2one_create_bind, KEL_AF_INET, records, 2, 9000, &init, NULL, &id, records, 2);
    SHOW(kel_sctp_client_one2one_str_create, KEL_AF_INET, texts, 2, 9000, &init, NULL, &id);
    SHOW(kel_sctp_client_one2many_create, KEL_AF_INET, records, 2, 9000, &init, NULL);
    SHOW(kel_sctp_client_one2many_create_bind, KEL_AF_INET, records, 2, 9000, &init, NULL, records, 2);
    SHOW(kel_sctp_client_one2many_str_create, KEL_AF_INET, texts, 2, 9000, &init, NULL);

    const LONG none = KEL_ERROR;
    SHOW(kel_sctp_bindx, none, records, 2, SCTP_BINDX_ADD_ADDR);
    SHOW(kel_sctp_bindx_str, none, KEL_AF_INET, 9000, texts, 2, SCTP_BINDX_ADD_ADDR);
    SHOW(kel_sctp_connectx, none, records, 2, &id);
    SHOW(kel_sctp_connectx_str, none, KEL_AF_INET, 9000, texts, 2, &id);
    SHOW(kel_sctp_send, none, text, 4, &info, MSG_NOSIGNAL);
    SHOW(kel_sctp_sendmsg, none, text, 4, records, 0, 0, 0, 0, 0);
    SHOW(kel_sctp_recvmsg, none, text, sizeof(text), records, &info, &flags);
    SHOW(kel_sctp_peeloff, none, id);
    SHOW(kel_sctp_opt_info, none, id, SCTP_STATUS, &status, &size);
    SHOW(kel_sctp_getpaddrs, none, id, &list);
    SHOW(kel_sctp_getladdrs, none, id, &list);
    SHOW(kel_sctp_freepaddrs, list);
    SHOW(kel_sctp_freeladdrs, list);
    return 0;
}
