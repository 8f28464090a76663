/* Whole reports as their reader sees them, one of each kind of endpoint: console, standard error and log. */
#include <gtest/gtest.h>

#include <errno.h>
#include <fstream>
#include <regex>
#include <unistd.h>

#include "host.h"
#include "kel_sctp.h"
#include "system.h"

namespace
{

/* Line numbers move: LINE stands for each. */
std::string without_lines(const std::string &text)
{
    static const std::regex line(R"((\w\.|\.cpp:)\d+)");
    return std::regex_replace(text, line, "$1LINE");
}

struct Transcript {
    std::string console, error, log;
};

/* What is said during a call that fails. Of each line of the log the time in front is left out. */
template <typename Call> Transcript transcript(const sys::Script &script, Call call)
{
    char path[] = "/tmp/transcript.XXXXXX";
    close(mkstemp(path));
    EXPECT_EQ(host_log_to(path), KEL_OK);
    testing::internal::CaptureStderr();
    Transcript seen;
    {
        sys::Recording recording(script);
        EXPECT_EQ(call(), KEL_ERROR);
        for (const std::string &line : recording.trace()) {
            if (line.compare(0, 7, "printf(") == 0) {
                seen.console += line.substr(line.find('|') + 1);
            }
        }
    }
    host_log_to("/dev/null");

    std::ifstream log(path);
    for (std::string line; std::getline(log, line);) {
        seen.log += line.substr(line.find(' ') + 1) + "\n";
    }
    unlink(path);
    return {without_lines(seen.console), without_lines(testing::internal::GetCapturedStderr()),
            without_lines(seen.log)};
}

TEST(Transcript, OfATcpClientThatIsRefused)
{
    const Transcript seen = transcript(sys::fail_first("connect", sys::fail(ECONNREFUSED)),
                                       [] { return kel_tcp_client_socket_create(KEL_AF_INET, "10.1.2.3", 9000); });

    EXPECT_EQ(seen.console, "\033[1;31mkel_connect.LINE:connect :: Connection refused\033[m"
                            "\033[1;31mkel_tcp_client_socket_create.LINE:connet tcp socket: Connection refused\033[m");
    EXPECT_EQ(seen.error, "");
    EXPECT_EQ(seen.log, "err module 200 platform/kel/socket/kel_socket.cpp:LINE kel_connect: connect :\n"
                        "err module 200 platform/kel/socket/kel_socket.cpp:LINE kel_tcp_client_socket_create: "
                        "connet tcp socket\n");
}

TEST(Transcript, OfAUdpServerWhoseAddressIsNone)
{
    const Transcript seen =
        transcript(nullptr, [] { return kel_udp_server_socket_create(KEL_AF_INET6, "localhost", 53); });

    EXPECT_EQ(seen.console, "\033[1;31mkel_udp_server_socket_create.LINE:bind tcp socket: Success\033[m");
    EXPECT_EQ(seen.error, "platform/kel/socket/kel_socket.cpp:LINE: assertion failed (code 0)\n");
    EXPECT_EQ(seen.log, "err module 200 platform/kel/socket/kel_socket.cpp:LINE kel_udp_server_socket_create: "
                        "bind tcp socket\n");
}

TEST(Transcript, OfALocalClientWithoutAPath)
{
    const Transcript seen = transcript(nullptr, [] { return kel_unix_tcp_client_socket_create(NULL); });

    EXPECT_EQ(seen.console, "\033[1;31mkel_connect_str.LINE:addrStr is null\r\n\033[m"
                            "\033[1;31mkel_unix_tcp_client_socket_create.LINE:connect failed: Success\033[m");
    EXPECT_EQ(seen.log, "err module 200 platform/kel/socket/kel_socket.cpp:LINE kel_connect_str: addrStr is null\n"
                        "err module 200 platform/kel/socket/kel_socket.cpp:LINE kel_unix_tcp_client_socket_create: "
                        "connect failed\n");
}

TEST(Transcript, OfAFrameWithoutAnInterface)
{
    const Transcript seen = transcript(sys::fail_first("if_nametoindex", {0, ENODEV}),
                                       [] { return kel_raw_sendto(5, "eth0", "frame", 5, 0); });

    EXPECT_EQ(seen.console, "\033[1;31mkel_raw_sendto.LINE:get eth0 index\r\n: No such device\033[m");
    EXPECT_EQ(seen.log, "err module 200 platform/kel/socket/kel_socket.cpp:LINE kel_raw_sendto: get eth0 index\n");
}

TEST(Transcript, OfAPacketSocketWithoutPrivilege)
{
    const Transcript seen =
        transcript(sys::fail_first("socket", sys::fail(EPERM)), [] { return kel_raw_server_socket_create(3, "eth0"); });

    EXPECT_EQ(seen.console, "\033[1;31mkel_raw_server_socket_create.LINE:create raw socket: Operation not permitted"
                            "\033[m");
    EXPECT_EQ(seen.log, "err module 200 platform/kel/socket/kel_socket.cpp:LINE kel_raw_server_socket_create: "
                        "create raw socket\n");
}

TEST(Transcript, OfAnSctpClientWhosePeerIsOutOfReach)
{
    const Transcript seen = transcript(sys::fail_first("sctp_connectx", sys::fail(ENETUNREACH)), [] {
        struct sctp_initmsg initmsg = {};
        sctp_assoc_t id;
        CHAR address[] = "10.1.2.3", *addresses[] = {address};
        return kel_sctp_client_one2one_str_create(KEL_AF_INET, addresses, 1, 9000, &initmsg, NULL, &id);
    });

    EXPECT_EQ(seen.console,
              "\033[1;31mkel_sctp_connectx.LINE:sctp connectx : Network is unreachable\033[m"
              "\033[1;31m__sctp_one2one_client_create.LINE:sctp_connectx : Network is unreachable\033[m"
              "\033[1;31mkel_sctp_client_one2one_create.LINE:create sctp socket : Network is unreachable\033[m");
    EXPECT_EQ(seen.log,
              "err module 200 platform/kel/socket/kel_socket.cpp:LINE kel_sctp_connectx: sctp connectx \n"
              "err module 200 platform/kel/socket/kel_socket.cpp:LINE __sctp_one2one_client_create: sctp_connectx \n"
              "err module 200 platform/kel/socket/kel_socket.cpp:LINE kel_sctp_client_one2one_create: "
              "create sctp socket \n");
}

} // namespace
