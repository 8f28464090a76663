/*
 * The program around a peer's operations: PEER OPERATION COUNT does one of them COUNT times, between two system calls
 * that strace shows, and prints the nanoseconds that it took. PEER --list prints the names of the operations.
 */
#include "work.h"

#include <arpa/inet.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

void work_failed(const char *condition, const char *file, int line)
{
    fprintf(stderr, "%s:%d: does not hold: %s (%m)\n", file, line, condition);
    exit(1);
}

/* Waits for the client's end and answers with a reset, so that thousands of connections leave no port that waits. */
[[noreturn]]
static void accept_forever(int listener)
{
    const linger reset = {1, 0};
    for (;;) {
        char byte;
        int connection = accept(listener, nullptr, nullptr);
        while (recv(connection, &byte, 1, 0) > 0) {
        }
        setsockopt(connection, SOL_SOCKET, SO_LINGER, &reset, sizeof(reset));
        close(connection);
    }
}

unsigned short server_port;

void find_server()
{
    sockaddr_in address = {};
    socklen_t length = sizeof(address);
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int listener = socket(AF_INET, SOCK_STREAM, 0);
    REQUIRE(bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0);
    REQUIRE(listen(listener, SOMAXCONN) == 0);
    REQUIRE(getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length) == 0);

    pid_t parent = getpid();
    pid_t child = fork();
    REQUIRE(child >= 0);
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() == parent) {
            accept_forever(listener);
        }
        _exit(0);
    }
    close(listener);
    server_port = ntohs(address.sin_port);
}

static char folder[] = "/tmp/kel-bench-XXXXXX";
alignas(4096) static char local_path[sizeof(folder) + sizeof("/socket")]; /* for the same reason as the stack */
const char *path = local_path;

void choose_path()
{
    REQUIRE(mkdtemp(folder) != nullptr);
    snprintf(local_path, sizeof(local_path), "%s/socket", folder);
    atexit([] {
        unlink(path);
        rmdir(folder);
    });
}

/* Calls with the stack at the start of a page: string functions take other ways on other alignments. */
__attribute__((noinline)) static void repeat_aligned(const Operation &operation, long count)
{
    constexpr uintptr_t page = 4096;
    auto here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    auto *gap = static_cast<volatile char *>(__builtin_alloca(here % page + 1));
    *gap = 0;
    operation.repeat(count);
    *gap = 0;
}

static long long nanoseconds()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

/* A write that fails: nothing else in a peer makes this call. */
static void mark(const char *text)
{
    ssize_t written = write(-1, text, strlen(text));
    (void)written;
}

int main(int argc, char **argv)
{
    if (argc == 2 && strcmp(argv[1], "--list") == 0) {
        for (const Operation *operation = operations; operation->name != nullptr; operation++) {
            puts(operation->name);
        }
        return 0;
    }

    for (const Operation *operation = operations; argc == 3 && operation->name != nullptr; operation++) {
        if (strcmp(argv[1], operation->name) == 0) {
            long count = strtol(argv[2], nullptr, 10);
            if (operation->prepare != nullptr) {
                operation->prepare();
            }
            long long started = nanoseconds();
            repeat_aligned(*operation, count);
            long long taken = nanoseconds() - started;
            mark("once"); /* for strace: one repetition, without what the first ones may bring */
            operation->repeat(1);
            mark("end");
            printf("%lld\n", taken);
            return 0;
        }
    }

    fprintf(stderr, "usage: %s OPERATION COUNT | --list\n", argv[0]);
    return 2;
}
