/*
 * What threads that make endpoints at the same time cost each other. An operation's name ends in their number, and
 * each of them does the repetitions: the cost of one endpoint is the operation's, divided by the threads.
 */
#include "work.h"

#include "kel_socket.h"

#include <thread>

static void tcp_servers(long count)
{
    for (long i = 0; i < count; i++) {
        LONG fd = kel_tcp_server_socket_create(KEL_AF_INET, IPV4_LOOPBACK, 0, BACKLOG);
        REQUIRE(fd != KEL_ERROR);
        kel_close(fd);
    }
}

template <int Threads> static void in_threads(long count)
{
    std::thread threads[Threads];
    for (std::thread &thread : threads) {
        thread = std::thread(tcp_servers, count);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

const Operation operations[] = {
    {"threads_1", nullptr, in_threads<1>},   {"threads_2", nullptr, in_threads<2>},
    {"threads_4", nullptr, in_threads<4>},   {"threads_8", nullptr, in_threads<8>},
    {"threads_16", nullptr, in_threads<16>}, {nullptr, nullptr, nullptr},
};
