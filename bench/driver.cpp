/*
 * The program around a peer's operations: PEER OPERATION FEW COUNT does one of them FEW times, FEW times again and then
 * COUNT times, with a mark in front of each and at the end, and prints the nanoseconds that the last ones took. The
 * first ones bring what comes but once. PEER --list prints a line for each: "+" or "-" where there is none, name, note.
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

/* A stream socket on 127.0.0.1, and the port that the system chose for it. */
static int bound_socket(unsigned short *port)
{
    sockaddr_in address = {};
    socklen_t length = sizeof(address);
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    REQUIRE(bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0);
    REQUIRE(getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) == 0);
    *port = ntohs(address.sin_port);
    return fd;
}

unsigned short free_port;

void choose_port()
{
    close(bound_socket(&free_port));
}

unsigned short server_port;

void find_server()
{
    int listener = bound_socket(&server_port);
    REQUIRE(listen(listener, SOMAXCONN) == 0);

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

/* Seen by callgrind as a function that is entered, and by strace as a write that fails: no peer makes such a call. */
extern "C" __attribute__((noinline)) void bench_mark()
{
    ssize_t written = write(-1, "mark", 4);
    (void)written;
}

static long long measure(const Operation &operation, long few, long count)
{
    const long parts[] = {few, few, count};
    long long taken = 0;

    if (operation.prepare != nullptr) {
        operation.prepare();
    }
    for (long repetitions : parts) {
        bench_mark();
        long long started = nanoseconds();
        repeat_aligned(operation, repetitions);
        taken = nanoseconds() - started;
    }
    bench_mark();
    return taken;
}

int main(int argc, char **argv)
{
    bool list = argc == 2 && strcmp(argv[1], "--list") == 0;

    for (const Operation *operation = operations; operation->name != nullptr; operation++) {
        if (list) {
            const char *note = operation->note == nullptr ? "" : operation->note;
            printf("%c\t%s\t%s\n", operation->repeat == nullptr ? '-' : '+', operation->name, note);
        } else if (argc == 4 && strcmp(argv[1], operation->name) == 0 && operation->repeat != nullptr) {
            printf("%lld\n", measure(*operation, strtol(argv[2], nullptr, 10), strtol(argv[3], nullptr, 10)));
            return 0;
        }
    }
    if (list) {
        return 0;
    }

    fprintf(stderr, "usage: %s OPERATION FEW COUNT | --list\n", argv[0]);
    return 2;
}
