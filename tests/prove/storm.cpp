// A signal every 50 microseconds, during every constructor and every call that blocks, with and without SA_RESTART.
// storm [sctp]: with the argument SCTP's, which needs a kernel that has it, else all others.
#include <atomic>
#include <errno.h>
#include <functional>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <thread>
#include <time.h>
#include <unistd.h>

#include "constructors.h"
#include "kel_sctp.h"

namespace
{

std::atomic<long> signals;
bool restarts;
long interrupted;

void handle(int)
{
    signals++;
}

void set_handler(bool with_restart)
{
    restarts = with_restart;
    struct sigaction action = {};
    action.sa_handler = handle;
    action.sa_flags = with_restart ? SA_RESTART : 0;
    sigaction(SIGUSR1, &action, nullptr);
}

// Every 50 microseconds, to the main thread alone.
void start_signals()
{
    struct sigevent event = {};
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = SIGUSR1;
    event._sigev_un._tid = gettid();
    timer_t timer;
    const struct itimerspec period = {{0, 50000}, {0, 50000}};
    require(timer_create(CLOCK_MONOTONIC, &event, &timer) == 0 && timer_settime(timer, 0, &period, nullptr) == 0,
            "no timer", "storm");
}

// A constructor makes its endpoint or, where it was interrupted, says so and leaves nothing behind. The system
// restarts the set-up of an SCTP association as if it were another one, and finds the association there.
void storm_constructor(const Constructor &constructor)
{
    const long rounds = constructor.kind == cheap ? 2000 : 100;
    const auto interrupted_then = [&] {
        return (errno == EINTR && !restarts) || (constructor.kind == sctp && (errno == EISCONN || errno == EALREADY));
    };
    const int descriptor = next_descriptor();
    const long before = signals;
    long made = 0;
    for (long round = 0; round < rounds || signals - before < 20; round++) {
        const LONG sockfd = make_one(constructor, round % 2 == 0 ? KEL_AF_INET : KEL_AF_INET6);
        require(sockfd == descriptor || (sockfd == KEL_ERROR && interrupted_then()), "failed", constructor.name);
        made += sockfd == descriptor;
        end_one(sockfd);
        require(next_descriptor() == descriptor, "left a descriptor open", constructor.name);
    }
    require(made > 0 || constructor.kind == sctp, "made no endpoint", constructor.name);
    fprintf(stderr, "%s: %ld made, %ld signals, %s SA_RESTART\n", constructor.name, made, signals - before,
            restarts ? "with" : "without");
}

// A call that blocks until another thread lets it go on, after twenty signals or as many interruptions. With SA_RESTART
// the signals do not show; without, the call says EINTR and succeeds when it is made again.
void storm_call(const char *name, const std::function<LONG()> &call, const std::function<void()> &release,
                LONG expected)
{
    const long before = signals;
    const int descriptor = next_descriptor();
    std::atomic<long> refused{0};
    sigset_t all, old;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &old);
    std::thread releaser([&] {
        while ((restarts ? signals - before : refused.load()) < 20) {
            std::this_thread::yield();
        }
        release();
    });
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    LONG result;
    while ((result = call()) == KEL_ERROR && errno == EINTR) {
        // From twenty on, the other thread may open one.
        require(refused >= 19 || next_descriptor() == descriptor, "left a descriptor open", name);
        refused++;
    }
    releaser.join();
    require(result == expected || (expected < 0 && result >= 0), "did not end as without signals", name);
    require(!restarts || refused == 0, "was interrupted in spite of SA_RESTART", name);
    interrupted += refused;
    if (expected < 0) {
        end_one(result);
    }
    fprintf(stderr, "%s: %ld signals, %ld interruptions, %s SA_RESTART\n", name, signals - before, refused.load(),
            restarts ? "with" : "without");
}

const LONG a_descriptor = -2;
kel_sockaddr_t sender;
char byte;

void fill(int sockfd)
{
    char block[4096] = {};
    while (send(sockfd, block, sizeof(block), MSG_DONTWAIT) > 0 || errno == EINTR) {
    }
    while (send(sockfd, block, 1, MSG_DONTWAIT) > 0 || errno == EINTR) {
    }
}

void drain(int sockfd)
{
    char block[4096];
    while (recv(sockfd, block, sizeof(block), MSG_DONTWAIT) > 0) {
    }
}

void storm_transfers(int type)
{
    int pair[2];
    require(socketpair(AF_UNIX, type, 0, pair) == 0, "no pair", "storm");
    const auto send_byte = [&] { require(send(pair[1], "x", 1, 0) == 1, "cannot send", "storm"); };
    storm_call("kel_recv", [&] { return kel_recv(pair[0], &byte, 1, 0); }, send_byte, 1);
    storm_call("kel_recvfrom", [&] { return kel_recvfrom(pair[0], &byte, 1, 0, &sender); }, send_byte, 1);
    fill(pair[0]);
    storm_call("kel_send", [&] { return kel_send(pair[0], "y", 1, 0); }, [&] { drain(pair[1]); }, 1);
    close(pair[0]);
    close(pair[1]);
}

// A datagram to a receiver whose queue is full.
void storm_sendto()
{
    unlink("queue");
    const LONG receiver = kel_unix_udp_socket_create("queue", KEL_TRUE);
    const LONG sockfd = kel_unix_udp_socket_create(nullptr, KEL_FALSE);
    kel_sockaddr_t queue;
    kel_addr_fill(0, &queue, KEL_AF_UNIX, 0, "queue", 0, nullptr);
    while (kel_sendto(sockfd, "x", 1, MSG_DONTWAIT, &queue) == 1) {
    }
    storm_call("kel_sendto", [&] { return kel_sendto(sockfd, "y", 1, 0, &queue); }, [&] { drain((int)receiver); }, 1);
    kel_close(sockfd);
    kel_close(receiver);
}

void storm_accept()
{
    const LONG server = kel_tcp_server_socket_create(KEL_AF_INET, "127.0.0.1", 7010, 5);
    LONG client = -1;
    storm_call(
        "kel_accept", [&] { return kel_accept(server, &sender); },
        [&] { client = kel_tcp_client_socket_create(KEL_AF_INET, "127.0.0.1", 7010); }, a_descriptor);
    end_one(client);
    kel_close(server);
}

// Connecting waits where the server's queue is full.
void storm_connect()
{
    const LONG server = kel_unix_tcp_server_socket_create("full", 0);
    const LONG first = kel_unix_tcp_client_socket_create("full");
    const auto accept_first = [&] { kel_close(kel_accept(server, &sender)); };
    LONG sockfd = kel_socket(KEL_AF_UNIX, KEL_SOCK_STREAM, 0);
    storm_call("kel_connect_str", [&] { return kel_connect_str(sockfd, KEL_AF_UNIX, 0, "full"); }, accept_first, 0);
    storm_call(
        "kel_unix_tcp_client_socket_create", [&] { return kel_unix_tcp_client_socket_create("full"); }, accept_first,
        a_descriptor);
    kel_close(sockfd);
    kel_close(first);
    kel_close(server);
}

void storm_sctp()
{
    struct sctp_initmsg streams = {10, 10, 0, 0};
    const LONG server = kel_sctp_server_one2one_str_create(KEL_AF_INET, nullptr, 1, 7011, 5, &streams, nullptr);
    sctp_assoc_t association;
    CHAR text[] = "127.0.0.1";
    CHAR *texts[] = {text};
    LONG client = -1;
    LONG served = -1;
    storm_call(
        "kel_accept of SCTP", [&] { return served = kel_accept(server, &sender), served < 0 ? served : 0; },
        [&] {
            client = kel_sctp_client_one2one_str_create(KEL_AF_INET, texts, 1, 7011, &streams, nullptr, &association);
        },
        0);
    LONG flags;
    storm_call(
        "kel_sctp_recvmsg", [&] { return kel_sctp_recvmsg(served, &byte, 1, &sender, nullptr, &flags); },
        [&] { kel_sctp_send(client, "x", 1, nullptr, 0); }, 1);
    fill((int)client);
    struct sctp_sndrcvinfo info = {};
    storm_call(
        "kel_sctp_send", [&] { return kel_sctp_send(client, "y", 1, &info, 0); }, [&] { drain((int)served); }, 1);
    end_one(client);
    end_one(served);
    kel_close(server);
}

} // namespace

int main(int argc, char **)
{
    const bool with_sctp = argc > 1;
    require(freopen("/dev/null", "w", stdout) != nullptr, "no /dev/null", "storm"); // the reports go there
    start_peers(with_sctp);
    for (bool with_restart : {true, false}) {
        set_handler(with_restart);
        if (with_restart) {
            start_signals();
        }
        for (int i = 0; i < constructor_count; i++) {
            if ((constructors[i].kind == sctp) == with_sctp) {
                storm_constructor(constructors[i]);
            }
        }
        if (with_sctp) {
            storm_sctp();
        } else {
            storm_transfers(SOCK_STREAM);
            storm_transfers(SOCK_SEQPACKET);
            storm_sendto();
            storm_accept();
            storm_connect();
        }
    }
    fprintf(stderr, "storm: %ld signals, %ld interruptions\n", signals.load(), interrupted);
    return 0;
}
