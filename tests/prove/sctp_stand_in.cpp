// SCTP for a kernel that has none: its sockets are TCP's, and what the module hands over is read to the last byte.
#include <netinet/in.h>
#include <netinet/sctp.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

static int examine(const struct sockaddr *addrs, int count)
{
    const size_t entry = addrs->sa_family == AF_INET ? sizeof(struct sockaddr_in) : sizeof(struct sockaddr_in6);
    unsigned sum = 0;
    for (size_t i = 0; i < entry * (size_t)count; i++) {
        sum += reinterpret_cast<const unsigned char *>(addrs)[i];
    }
    return sum == 0 ? -1 : 0; // decides on every byte, which a sanitizer does not let pass for one that was never set
}

static int list_of(int (*name)(int, struct sockaddr *, socklen_t *), int sockfd, struct sockaddr **addrs)
{
    socklen_t length = sizeof(struct sockaddr_in6);
    *addrs = static_cast<struct sockaddr *>(calloc(1, length));
    return name(sockfd, *addrs, &length) == 0 ? 1 : -1;
}

extern "C" {

int socket(int domain, int type, int protocol)
{
    const bool sctp = protocol == IPPROTO_SCTP;
    return (int)syscall(SYS_socket, domain, sctp ? (int)SOCK_STREAM : type, sctp ? 0 : protocol);
}

int setsockopt(int sockfd, int level, int name, const void *value, socklen_t length)
{
    return level == SOL_SCTP ? 0 : (int)syscall(SYS_setsockopt, sockfd, level, name, value, length);
}

int sctp_bindx(int, struct sockaddr *addrs, int count, int)
{
    return examine(addrs, count);
}

int sctp_connectx(int sockfd, struct sockaddr *addrs, int count, sctp_assoc_t *id)
{
    *id = 1;
    return examine(addrs, count) == 0 ? connect(sockfd, addrs, sizeof(struct sockaddr_in6)) : -1;
}

int sctp_getpaddrs(int sockfd, sctp_assoc_t, struct sockaddr **addrs)
{
    return list_of(getpeername, sockfd, addrs);
}

int sctp_getladdrs(int sockfd, sctp_assoc_t, struct sockaddr **addrs)
{
    return list_of(getsockname, sockfd, addrs);
}

int sctp_freepaddrs(struct sockaddr *addrs)
{
    free(addrs);
    return 0;
}

int sctp_freeladdrs(struct sockaddr *addrs)
{
    free(addrs);
    return 0;
}

int sctp_opt_info(int, sctp_assoc_t, int, void *value, socklen_t *size)
{
    memset(value, 0, *size);
    return 0;
}

int sctp_send(int sockfd, const void *msg, size_t length, const struct sctp_sndrcvinfo *, int)
{
    return (int)send(sockfd, msg, length, 0);
}
}
