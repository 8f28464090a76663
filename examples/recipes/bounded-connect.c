/* Gives up a peer that never answers after two more tries, and counts on the wire how often it was asked. */
#include <errno.h>
#include <kel/kel_sctp.h>
#include <kel/kel_socket.h>
#include <stdio.h>

int main(void)
{
    LONG wire = kel_raw_server_socket_create(3, "silent");
    CHAR *addresses[] = {"192.0.2.2"};
    struct sctp_initmsg init = {.sinit_max_attempts = 2, .sinit_max_init_timeo = 100};
    sctp_assoc_t id;
    LONG client = kel_sctp_client_one2one_str_create(KEL_AF_INET, addresses, 1, 9000, &init, NULL, &id);
    if (wire == KEL_ERROR || client != KEL_ERROR) {
        return 1;
    }
    int asked = 0;
    UCHAR frame[2000] = {0};
    while (kel_recv(wire, frame, sizeof(frame), MSG_DONTWAIT) != KEL_ERROR) {
        asked += frame[23] == IPPROTO_SCTP && frame[46] == 1; /* an INIT chunk */
    }
    printf("\nthe peer was asked %d times\n", asked);
    return kel_close(wire) == 0 ? 0 : 1;
}
