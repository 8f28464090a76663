// Sixteen threads report through the module while another changes the filter and the log: for ThreadSanitizer and
// helgrind, which watch who touches what. threads N: reports of each thread.
#include <atomic>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <thread>
#include <vector>

#include "host.h"
#include "kel_lib.h"
#include "kel_socket.h"

namespace
{

// A report without arguments, one with an argument, an assertion, and the texts.
void report(long rounds)
{
    kel_sockaddr_t record;
    CHAR line[100];
    CHAR text[] = "::ffff:10.1.2.3";
    for (long round = 0; round < rounds; round++) {
        kel_getsockopt(0, 0, 0, nullptr, nullptr);
        kel_raw_sendto(-1, "none", "", 0, 0);
        kel_addr_fill(0, &record, KEL_AF_INET, 0, "no address", 0, nullptr);
        kel_addr_fill(0, &record, KEL_AF_INET6, 0, text, 0, nullptr);
        kel_addr_showstr(&record, line, sizeof(line));
        if (round % 64 == 0 && !kel_is_ipv6_addr(text)) {
            abort();
        }
        kel_warning_print("%s\n", line);
        kel_info_print("%ld\n", round);
    }
}

void change_settings(const std::atomic<bool> &ended)
{
    const char *const logs[] = {"threads.log", "stderr", "other.log"};
    for (int turn = 0; !ended; turn++) {
        host_filter_clear();
        host_filter_add(turn % 2 == 0 ? "*" : "kel_getsockopt", turn % 4 - 1);
        host_log_to(logs[turn % 3]);
        std::this_thread::yield();
    }
}

} // namespace

int main(int, char **argv)
{
    std::atomic<bool> ended{false};
    std::thread settings([&] { change_settings(ended); });
    std::vector<std::thread> reporters;
    for (int i = 0; i < 16; i++) {
        reporters.emplace_back(report, atol(argv[1]));
    }
    for (std::thread &reporter : reporters) {
        reporter.join();
    }
    ended = true;
    settings.join();
    return 0;
}
