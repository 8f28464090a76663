/* A packet endpoint on an interface that is not there closes a file of another thread; one made by hand does not. */
#include <fcntl.h>
#include <kel/host.h>
#include <kel/kel_socket.h>
#include <pthread.h>
#include <stdio.h>

static int file;

static void *open_file(void *unused)
{
    file = open("/dev/null", O_RDONLY | O_CLOEXEC);
    return unused;
}

/* Asked about every report. The endpoint's own comes between its two closes: the other thread has its turn here. */
static int let_the_other_thread_run(int level, const char *name)
{
    (void)level, (void)name;
    pthread_t thread;
    host_filter_decide(NULL);
    pthread_create(&thread, NULL, open_file, NULL);
    pthread_join(thread, NULL);
    return 0;
}

static LONG raw_server(SHORT protocol, const CHAR *ifName)
{
    kel_sockaddr_t here;
    LONG sockfd = kel_socket(KEL_AF_PACKET, KEL_SOCK_RAW, 0); /* 0: nothing is received before the bind */
    if (sockfd == KEL_ERROR || kel_addr_fill(sockfd, &here, KEL_AF_PACKET, 0, NULL, protocol, ifName) == KEL_ERROR) {
        return KEL_ERROR; /* where the interface is unknown, kel_addr_fill() has closed the descriptor */
    }
    if (kel_bind(sockfd, &here) == KEL_ERROR) {
        kel_close(sockfd);
        return KEL_ERROR;
    }
    return sockfd;
}

int main(void)
{
    host_filter_decide(let_the_other_thread_run);
    LONG server = kel_raw_server_socket_create(3, "none");
    printf("\nthe file of the other thread is %s\n", fcntl(file, F_GETFD) == -1 ? "closed" : "open");

    LONG by_hand = raw_server(3, "none");
    perror("by hand");
    LONG loopback = raw_server(3, "lo");
    printf("by hand, on lo: %s\n", loopback == KEL_ERROR ? "failed" : "bound");
    return server == KEL_ERROR && by_hand == KEL_ERROR && kel_close(loopback) == 0 ? 0 : 1;
}
