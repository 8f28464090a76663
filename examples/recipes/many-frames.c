/* Sends frames through one record that is filled once; with the argument "each", kel_raw_sendto() looks up the rest. */
#include <kel/kel_socket.h>
#include <stdio.h>

enum { PROTOCOL = 0x88b5, FRAMES = 20 }; /* the protocol is one for experiments */

int main(int argc, char **argv)
{
    (void)argv;
    LONG receiver = kel_raw_server_socket_create((SHORT)PROTOCOL, "lo");
    LONG sender = kel_raw_server_socket_create((SHORT)PROTOCOL, "lo");
    if (receiver == KEL_ERROR || sender == KEL_ERROR) {
        return 1;
    }
    kel_sockaddr_t to;
    kel_addr_fill(sender, &to, KEL_AF_PACKET, 0, NULL, (SHORT)PROTOCOL, "lo");

    UCHAR frame[60] = {[12] = PROTOCOL >> 8, [13] = PROTOCOL & 0xff};
    UCHAR received[60];
    int right = 0;
    for (int i = 0; i < FRAMES; i++) {
        frame[14] = (UCHAR)i;
        if (argc == 1) {
            kel_sendto(sender, frame, sizeof(frame), 0, &to);
        } else {
            kel_raw_sendto(sender, "lo", frame, sizeof(frame), 0);
        }
        right += kel_recv(receiver, received, sizeof(received), 0) == sizeof(frame) && received[14] == frame[14];
    }
    printf("%d of %d frames arrived\n", right, FRAMES);
    return (kel_close(sender) | kel_close(receiver)) == 0 ? 0 : 1;
}
