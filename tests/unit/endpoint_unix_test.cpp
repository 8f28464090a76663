/* Local endpoints. */
#include "failure.h"

#include <errno.h>

namespace
{

constexpr const char *path = "/run/app";
const std::string path_bytes = record("01002f72756e2f617070", 110);
const sys::Trace filled{cleared, cleared, "KEL_StrnCpy(/run/app, 108)"};
const sys::Trace stream = created(KEL_AF_UNIX, KEL_SOCK_STREAM);
const sys::Trace datagram = created(KEL_AF_UNIX, KEL_SOCK_DGRAM);
constexpr const char *unlinked = "unlink(/run/app) = 0";
constexpr const char *closed = "close(70) = 0";

std::string with_path(const char *call, const char *answer)
{
    return std::string(call) + "(70, " + path_bytes + ", 110) = " + answer;
}

LONG stream_server()
{
    return kel_unix_tcp_server_socket_create(path, 7);
}

LONG stream_client()
{
    return kel_unix_tcp_client_socket_create(path);
}

LONG bound_datagram()
{
    return kel_unix_udp_socket_create(path, KEL_TRUE);
}

/* ---- Every step that fails -------------------------------------------------------------------------------------- */

Report server_step(const char *text, int error)
{
    return failed_step("kel_unix_tcp_server_socket_create", text, error);
}

Report datagram_step(const char *text, int error)
{
    return failed_step("kel_unix_udp_socket_create", text, error);
}

Report client_step(const char *text, int error)
{
    return failed_step("kel_unix_tcp_client_socket_create", text, error);
}

const std::vector<Fault> no_socket{{"socket", sys::fail(EMFILE)}};
const std::vector<Fault> no_option{{"setsockopt", sys::fail(ENOPROTOOPT)}};

sys::Trace option_refused(int type)
{
    return in_order({"socket(1, " + std::to_string(type) + ", 0) = 70",
                     "setsockopt(70, 1, 2, 01000000, 4) = -1 errno 92",
                     unfiltered(failed_step("kel_socket", "setsockopt socket", ENOPROTOOPT)), closed});
}

const sys::Trace null_path = in_order({cleared, cleared, unfiltered(null_check("kel_addr_fill", "addrStr", 2))});

const std::vector<FailureCase> failures = {
    {"StreamServerNoSocket",
     stream_server,
     no_socket,
     {"socket(1, 1, 0) = -1 errno 24"},
     server_step("create unix socket", EMFILE),
     {}},
    {"StreamServerNoOption",
     stream_server,
     no_option,
     option_refused(1),
     server_step("create unix socket", ENOPROTOOPT),
     {}},
    {"StreamServerBind",
     stream_server,
     {{"bind", sys::fail(EACCES)}},
     in_order({stream, unlinked, filled, with_path("bind", "-1 errno 13")}),
     server_step("bind unix socket", EACCES),
     {closed}},
    /* unlink gets the null path first; the check behind it refuses it all the same. */
    {"StreamServerNullPath",
     [] { return kel_unix_tcp_server_socket_create(NULL, 7); },
     {{"unlink", sys::fail(EFAULT)}},
     in_order({stream, "unlink(null) = -1 errno 14", null_path}),
     server_step("bind unix socket", EFAULT),
     {closed}},
    {"StreamServerListen",
     stream_server,
     {{"listen", sys::fail(EADDRINUSE)}},
     in_order({stream, unlinked, filled, with_path("bind", "0"), "listen(70, 7) = -1 errno 98"}),
     server_step("listen unix socket", EADDRINUSE),
     {closed}},

    {"DatagramNoSocket",
     bound_datagram,
     no_socket,
     {"socket(1, 2, 0) = -1 errno 24"},
     datagram_step("create unix socket", EMFILE),
     {}},
    {"DatagramNoOption",
     bound_datagram,
     no_option,
     option_refused(2),
     datagram_step("create unix socket", ENOPROTOOPT),
     {}},
    {"DatagramBind",
     bound_datagram,
     {{"bind", sys::fail(EADDRINUSE)}},
     in_order({datagram, filled, with_path("bind", "-1 errno 98")}),
     datagram_step("bind unix socket", EADDRINUSE),
     {closed}},
    {"DatagramNullPath",
     [] { return kel_unix_udp_socket_create(NULL, KEL_TRUE); },
     {},
     in_order({datagram, null_path}),
     datagram_step("bind unix socket", 0),
     {closed}},

    {"StreamClientNoSocket",
     stream_client,
     no_socket,
     {"socket(1, 1, 0) = -1 errno 24"},
     client_step("socket failed", EMFILE),
     {}},
    {"StreamClientNoOption",
     stream_client,
     no_option,
     option_refused(1),
     client_step("socket failed", ENOPROTOOPT),
     {}},
    {"StreamClientRefused",
     stream_client,
     {{"connect", sys::fail(ECONNREFUSED)}},
     in_order({stream, filled, with_path("connect", "-1 errno 111"),
               unfiltered(failed_step("kel_connect", "connect :", ECONNREFUSED))}),
     client_step("connect failed", ECONNREFUSED),
     {closed}},
    {"StreamClientNullPath",
     [] { return kel_unix_tcp_client_socket_create(NULL); },
     {},
     in_order({stream, unfiltered(null_check("kel_connect_str", "addrStr"))}),
     client_step("connect failed", 0),
     {closed}},
};

INSTANTIATE_TEST_SUITE_P(LocalEndpoints, Failure, in_every_way(failures), filtered_name<FailureCase>);

TEST(LocalEndpoints, LeaveTheErrnoOfACloseThatFailsAfterTheStep)
{
    struct {
        LONG (*create)();
        const char *step;
    } const rows[] = {
        {stream_server, "bind"}, {stream_server, "listen"}, {bound_datagram, "bind"}, {stream_client, "connect"}};
    for (const auto &row : rows) {
        sys::Recording recording(failing({{row.step, sys::fail(EACCES)}, {"close", sys::fail(EIO)}}));

        EXPECT_EQ(row.create(), KEL_ERROR);

        EXPECT_EQ(errno, EIO);
        EXPECT_EQ(recording.trace().back(), "close(70) = -1 errno 5");
    }
}

/* ---- What succeeds ---------------------------------------------------------------------------------------------- */

TEST(LocalEndpoints, TakeOnlyMinusOneForNoDescriptor)
{
    for (auto create : {stream_server, bound_datagram, stream_client}) {
        for (long descriptor : {0, -2}) {
            sys::Recording recording(sys::fail_first("socket", sys::ok(descriptor)));

            EXPECT_EQ(create(), descriptor);

            EXPECT_EQ(recording.open().count(0), descriptor == 0 ? 1u : 0u);
        }
    }
}

TEST(LocalStreamServer, IgnoresAnUnlinkThatFails)
{
    sys::Recording recording(sys::fail_first("unlink", sys::fail(ENOENT)));

    EXPECT_EQ(stream_server(), 70);

    EXPECT_EQ(errno, ENOENT); /* as unlink left it */
    EXPECT_EQ(recording.trace(),
              in_order({stream, "unlink(/run/app) = -1 errno 2", filled, with_path("bind", "0"), "listen(70, 7) = 0"}));
}

TEST(LocalStreamServer, RemovesTheFileAndListensWithTheCallersBacklog)
{
    struct {
        LONG given;
        const char *passed;
    } const rows[] = {{1, "1"}, {0, "0"}, {100000, "100000"}, {-1, "-1"}, {0x100000007, "7"}};
    for (const auto &row : rows) {
        sys::Recording recording;

        EXPECT_EQ(kel_unix_tcp_server_socket_create(path, row.given), 70);

        EXPECT_EQ(recording.trace(), in_order({stream, unlinked, filled, with_path("bind", "0"),
                                               std::string("listen(70, ") + row.passed + ") = 0"}));
        EXPECT_EQ(recording.open(), std::set<int>{70});
    }
}

TEST(LocalDatagram, IsUnboundAndUsesNoPathWhenToldNotToBind)
{
    for (const char *given : {path, (const char *)nullptr}) {
        sys::Recording recording;

        EXPECT_EQ(kel_unix_udp_socket_create(given, KEL_FALSE), 70);

        EXPECT_EQ(recording.trace(), datagram);
        EXPECT_EQ(recording.open(), std::set<int>{70});
    }
}

TEST(LocalDatagram, IsBoundWithoutRemovingTheFile)
{
    for (BOOL isbind : {KEL_TRUE, 2, -1, 0x100}) {
        sys::Recording recording;

        EXPECT_EQ(kel_unix_udp_socket_create(path, isbind), 70);

        EXPECT_EQ(recording.trace(), in_order({datagram, filled, with_path("bind", "0")}));
        EXPECT_EQ(recording.open(), std::set<int>{70});
    }
}

TEST(LocalStreamClient, IsConnected)
{
    sys::Recording recording;

    EXPECT_EQ(stream_client(), 70);

    EXPECT_EQ(recording.trace(), in_order({stream, filled, with_path("connect", "0")}));
    EXPECT_EQ(recording.open(), std::set<int>{70});
}

TEST(LocalEndpoints, CutAPathOf109CharactersTo108)
{
    const std::string longer(109, 'p');
    std::string bytes = "0100";
    for (int i = 0; i < 108; i++) {
        bytes += "70";
    }
    sys::Recording recording;

    EXPECT_EQ(kel_unix_tcp_client_socket_create(longer.c_str()), 70);

    EXPECT_EQ(recording.trace().back(), "connect(70, " + bytes + ", 110) = 0");
}

} // namespace
