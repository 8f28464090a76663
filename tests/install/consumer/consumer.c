/* Has two functions report, one of them of SCTP, by an installed library and its stand-ins. */
#include <kel/host.h>
#include <kel/kel_lib.h>
#include <kel/kel_sctp.h>
#include <kel/kel_socket.h>

int main(void)
{
    if (host_log_to("stderr") != KEL_OK) {
        return 1;
    }
#ifndef WITHOUT_SCTP
    kel_sctp_freepaddrs(NULL);
#endif
    return kel_tcp_client_socket_create(KEL_AF_INET, "no address", 9000) == KEL_ERROR ? 0 : 1;
}
