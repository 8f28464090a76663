/* TCP and UDP endpoints. */
#include "expected.h"

#include <arpa/inet.h>
#include <errno.h>

namespace
{

constexpr const char *reuse = "setsockopt(70, 1, 2, 01000000, 4) = 0";
constexpr const char *clear = "KEL_MemSet(set, 0, 112)";

TEST(TcpServer, ListensWithABacklogOfFiveWhateverTheCallerSays)
{
    sys::Recording recording;

    EXPECT_EQ(kel_tcp_server_socket_create(KEL_AF_INET, "127.0.0.1", (SHORT)40000, 1000), 70);

    EXPECT_EQ(recording.trace(), in_order({"socket(2, 1, 0) = 70", reuse, clear, clear, "inet_pton(2, 127.0.0.1) = 1",
                                           "bind(70, 02009c407f0000010000000000000000, 16) = 0", "listen(70, 5) = 0"}));
}

TEST(TcpServer, ReportsAFailedBindAndClosesTheDescriptor)
{
    sys::Recording recording(sys::fail_first("bind", sys::fail(EADDRINUSE)));

    EXPECT_EQ(kel_tcp_server_socket_create(KEL_AF_INET, NULL, 9000, 5), KEL_ERROR);

    EXPECT_EQ(recording.trace(), in_order({"socket(2, 1, 0) = 70", reuse, clear, clear, "inet_pton(2, 0.0.0.0) = 1",
                                           "bind(70, 02002328000000000000000000000000, 16) = -1 errno 98",
                                           perror_report("kel_tcp_server_socket_create", "bind tcp socket", EADDRINUSE),
                                           "close(70) = 0"}));
    EXPECT_TRUE(recording.open().empty());
}

TEST(UdpClient, ReportsANullTextAndThenTheStep)
{
    kel_sockaddr_t server;
    sys::Recording recording;

    EXPECT_EQ(kel_udp_client_socket_create(KEL_AF_INET, NULL, 53, &server), KEL_ERROR);

    EXPECT_EQ(recording.trace(),
              in_order({"socket(2, 2, 0) = 70", reuse, clear, null_report("kel_addr_fill", "addrStr"),
                        perror_report("kel_udp_client_socket_create", "bind tcp socket", 0), "close(70) = 0"}));
}

} // namespace
