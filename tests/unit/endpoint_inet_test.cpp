/* TCP and UDP endpoints. */
#include "failure.h"

#include <errno.h>
#include <string.h>

namespace
{

constexpr const char *server_text = "10.1.2.3";
constexpr int port = 40000;

/* The server's record, 10.1.2.3 port 40000, and what fills it. */
constexpr const char *server_bytes = "02009c400a0102030000000000000000";
constexpr const char *converted = "inet_pton(2, 10.1.2.3) = 1";
const sys::Trace filled{cleared, cleared, converted};
constexpr const char *closed = "close(70) = 0";

kel_sockaddr_t server_record;
kel_sockaddr_t local;

std::string with_server(const char *call, const char *answer)
{
    return std::string(call) + "(70, " + server_bytes + ", 16) = " + answer;
}

/* ---- The endpoints, to one server ------------------------------------------------------------------------------- */

struct Endpoint {
    const char *function;
    int type;
    LONG (*create)(kel_domain_t family, const CHAR *text);
};

const Endpoint tcp_server = {"kel_tcp_server_socket_create", KEL_SOCK_STREAM,
                             [](kel_domain_t family, const CHAR *text) {
                                 return kel_tcp_server_socket_create(family, text, (SHORT)port, 1000);
                             }};
const Endpoint tcp_client = {
    "kel_tcp_client_socket_create", KEL_SOCK_STREAM,
    [](kel_domain_t family, const CHAR *text) { return kel_tcp_client_socket_create(family, text, (SHORT)port); }};
const Endpoint tcp_client_bind = {"kel_tcp_client_socket_create_bind", KEL_SOCK_STREAM,
                                  [](kel_domain_t family, const CHAR *text) {
                                      return kel_tcp_client_socket_create_bind(family, text, (SHORT)port, NULL);
                                  }};
const Endpoint udp_server = {"kel_udp_server_socket_create", KEL_SOCK_DGRAM, [](kel_domain_t family, const CHAR *text) {
                                 return kel_udp_server_socket_create(family, text, (SHORT)port);
                             }};
const Endpoint udp_client = {"kel_udp_client_socket_create", KEL_SOCK_DGRAM, [](kel_domain_t family, const CHAR *text) {
                                 server_record = poisoned();
                                 return kel_udp_client_socket_create(family, text, (SHORT)port, &server_record);
                             }};
const Endpoint udp_client_bind = {
    "kel_udp_client_socket_create_bind", KEL_SOCK_DGRAM, [](kel_domain_t family, const CHAR *text) {
        server_record = poisoned();
        return kel_udp_client_socket_create_bind(family, text, (SHORT)port, &server_record, NULL);
    }};

const Endpoint endpoints[] = {tcp_server, tcp_client, tcp_client_bind, udp_server, udp_client, udp_client_bind};

/* ---- Every step that fails -------------------------------------------------------------------------------------- */

/* A step of an endpoint to 10.1.2.3; before is what comes between kel_socket and the step's report. */
FailureCase failing_step(const char *name, const Endpoint &endpoint, kel_domain_t family, const char *text,
                         std::vector<Fault> faults, const sys::Trace &before, const char *report, int error)
{
    auto create = endpoint.create;
    return {name,
            [=] { return create(family, text); },
            faults,
            in_order({created(family, endpoint.type), before}),
            failed_step(endpoint.function, report, error),
            {closed}};
}

/* No socket, or none with its options: the same words in the whole family. */
std::vector<FailureCase> without_a_socket()
{
    std::vector<FailureCase> cases;
    struct {
        const char *refused;
        const char *no_option;
        const Endpoint *endpoint;
    } const rows[] = {{"TcpServerNoSocket", "TcpServerNoOption", &tcp_server},
                      {"TcpClientNoSocket", "TcpClientNoOption", &tcp_client},
                      {"TcpClientBindNoSocket", "TcpClientBindNoOption", &tcp_client_bind},
                      {"UdpServerNoSocket", "UdpServerNoOption", &udp_server},
                      {"UdpClientNoSocket", "UdpClientNoOption", &udp_client},
                      {"UdpClientBindNoSocket", "UdpClientBindNoOption", &udp_client_bind}};
    for (const auto &row : rows) {
        const std::string socket = "socket(2, " + std::to_string(row.endpoint->type) + ", 0) = ";
        auto create = row.endpoint->create;
        auto call = [=] { return create(KEL_AF_INET, server_text); };
        cases.push_back({row.refused,
                         call,
                         {{"socket", sys::fail(EMFILE)}},
                         {socket + "-1 errno 24"},
                         failed_step(row.endpoint->function, "create tcp socket", EMFILE),
                         {}});
        cases.push_back({row.no_option,
                         call,
                         {{"setsockopt", sys::fail(ENOPROTOOPT)}},
                         in_order({socket + "70", "setsockopt(70, 1, 2, 01000000, 4) = -1 errno 92",
                                   unfiltered(failed_step("kel_socket", "setsockopt socket", ENOPROTOOPT)), closed}),
                         failed_step(row.endpoint->function, "create tcp socket", ENOPROTOOPT),
                         {}});
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(InetWithoutASocket, Failure, in_every_way(without_a_socket()), filtered_name<FailureCase>);

const sys::Trace bad_text = in_order({"inet_pton(2, here) = 0", assert_report("kel_addr_fill")});

const std::vector<FailureCase> server_steps = {
    failing_step("TcpServerBind", tcp_server, KEL_AF_INET, server_text, {{"bind", sys::fail(EADDRINUSE)}},
                 in_order({filled, with_server("bind", "-1 errno 98")}), "bind tcp socket", EADDRINUSE),
    failing_step("TcpServerBindOfBadText", tcp_server, KEL_AF_INET, "here", {}, in_order({cleared, cleared, bad_text}),
                 "bind tcp socket", 0),
    failing_step("TcpServerBindOfPath", tcp_server, KEL_AF_UNIX, NULL, {},
                 in_order({cleared, cleared, unfiltered(null_check("kel_addr_fill", "addrStr", 2))}), "bind tcp socket",
                 0),
    failing_step("TcpServerBindOfInterface", tcp_server, KEL_AF_PACKET, NULL, {},
                 in_order({cleared, cleared, unfiltered(null_check("kel_addr_fill", "ifName"))}), "bind tcp socket", 0),
    failing_step("TcpServerListen", tcp_server, KEL_AF_INET, server_text, {{"listen", sys::fail(EADDRINUSE)}},
                 in_order({filled, with_server("bind", "0"), "listen(70, 5) = -1 errno 98"}), "listen tcp socket",
                 EADDRINUSE),
    failing_step("UdpServerBind", udp_server, KEL_AF_INET, server_text, {{"bind", sys::fail(EACCES)}},
                 in_order({filled, with_server("bind", "-1 errno 13")}), "bind tcp socket", EACCES),
    failing_step("UdpServerBindOfBadText", udp_server, KEL_AF_INET, "here", {}, in_order({cleared, cleared, bad_text}),
                 "bind tcp socket", 0),
};

INSTANTIATE_TEST_SUITE_P(InetServers, Failure, in_every_way(server_steps), filtered_name<FailureCase>);

const sys::Trace refused = in_order({filled, with_server("connect", "-1 errno 111"),
                                     unfiltered(failed_step("kel_connect", "connect :", ECONNREFUSED))});
const std::vector<Fault> refusal{{"connect", sys::fail(ECONNREFUSED)}};

const std::vector<FailureCase> tcp_client_steps = {
    failing_step("TcpClientRefused", tcp_client, KEL_AF_INET, server_text, refusal, refused, "connet tcp socket",
                 ECONNREFUSED),
    failing_step("TcpClientNullText", tcp_client, KEL_AF_INET6, NULL, {},
                 unfiltered(null_check("kel_connect_str", "addrStr")), "connet tcp socket", 0),
    failing_step("TcpClientBadText", tcp_client, KEL_AF_INET, "here", {}, in_order({cleared, cleared, bad_text}),
                 "connet tcp socket", 0),
    failing_step("TcpClientBindRefused", tcp_client_bind, KEL_AF_INET, server_text, refusal, refused,
                 "connet tcp socket", ECONNREFUSED),
    failing_step("TcpClientBindNullText", tcp_client_bind, KEL_AF_INET6, NULL, {},
                 unfiltered(null_check("kel_connect_str", "addrStr")), "connet tcp socket", 0),
    failing_step("TcpClientBindBadText", tcp_client_bind, KEL_AF_INET, "here", {},
                 in_order({cleared, cleared, bad_text}), "connet tcp socket", 0),
};

INSTANTIATE_TEST_SUITE_P(InetTcpClients, Failure, in_every_way(tcp_client_steps), filtered_name<FailureCase>);

std::vector<FailureCase> udp_client_steps()
{
    std::vector<FailureCase> cases;
    struct {
        const char *no_text;
        const char *bad_text;
        const char *no_interface;
        const Endpoint *endpoint;
    } const rows[] = {{"UdpClientNullText", "UdpClientBadText", "UdpClientInterface", &udp_client},
                      {"UdpClientBindNullText", "UdpClientBindBadText", "UdpClientBindInterface", &udp_client_bind}};
    for (const auto &row : rows) {
        cases.push_back(failing_step(row.no_text, *row.endpoint, KEL_AF_INET, NULL, {},
                                     in_order({cleared, unfiltered(null_check("kel_addr_fill", "addrStr", 1))}),
                                     "bind tcp socket", 0));
        cases.push_back(failing_step(row.bad_text, *row.endpoint, KEL_AF_INET, "here", {},
                                     in_order({cleared, bad_text}), "bind tcp socket", 0));
        cases.push_back(failing_step(row.no_interface, *row.endpoint, KEL_AF_PACKET, "eth0", {},
                                     in_order({cleared, unfiltered(null_check("kel_addr_fill", "ifName"))}),
                                     "bind tcp socket", 0));
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(InetUdpClients, Failure, in_every_way(udp_client_steps()), filtered_name<FailureCase>);

TEST(InetEndpoints, LeaveTheErrnoOfACloseThatFailsAfterTheStep)
{
    for (const Endpoint &endpoint : endpoints) {
        sys::Recording recording(sys::fail_first("close", sys::fail(EIO)));

        EXPECT_EQ(endpoint.create(KEL_AF_INET, "here"), KEL_ERROR) << endpoint.function;

        EXPECT_EQ(errno, EIO);
        EXPECT_EQ(recording.trace().back(), "close(70) = -1 errno 5");
    }
}

TEST(TcpServer, LeavesTheErrnoOfACloseThatFailsAfterListen)
{
    sys::Recording recording(failing({{"listen", sys::fail(EADDRINUSE)}, {"close", sys::fail(EIO)}}));

    EXPECT_EQ(tcp_server.create(KEL_AF_INET, server_text), KEL_ERROR);

    EXPECT_EQ(errno, EIO);
}

TEST(UdpClients, KeepFamilyAndPortOfABadTextInTheCallersRecord)
{
    for (const Endpoint &endpoint : {udp_client, udp_client_bind}) {
        sys::Recording recording;

        EXPECT_EQ(endpoint.create(KEL_AF_INET6, "10.1.2.3"), KEL_ERROR);

        EXPECT_EQ(bytes_of(server_record), record("0a009c40"));
    }
}

/* ---- Only -1 is no descriptor ------------------------------------------------------------------------------- */

TEST(InetEndpoints, TakeOnlyMinusOneForNoDescriptor)
{
    for (const Endpoint &endpoint : endpoints) {
        for (long descriptor : {0, -2}) {
            sys::Recording recording(sys::fail_first("socket", sys::ok(descriptor)));

            EXPECT_EQ(endpoint.create(KEL_AF_INET, server_text), descriptor) << endpoint.function;

            EXPECT_EQ(recording.open().count(0), descriptor == 0 ? 1u : 0u);
        }
    }
}

/* ---- Servers ---------------------------------------------------------------------------------------------------- */

struct Server {
    const char *name;
    kel_domain_t family;
    int port;
    const char *text;
    const char *conversion;
    std::string bound; /* bytes of the record */
    size_t length;
};

class Servers : public testing::TestWithParam<Server>
{
  protected:
    sys::Trace expected(int type) const
    {
        sys::Trace conversion = GetParam().conversion != nullptr ? sys::Trace{GetParam().conversion} : sys::Trace{};
        return in_order({created(GetParam().family, type), cleared, cleared, conversion,
                         "bind(70, " + record(GetParam().bound, GetParam().length) + ", " +
                             std::to_string(GetParam().length) + ") = 0"});
    }
};

TEST_P(Servers, OfTcpListenWithABacklogOfFiveWhateverTheCallerSays)
{
    for (LONG maxClient : {1000L, 1L, 0L, -1L}) {
        sys::Recording recording;

        EXPECT_EQ(kel_tcp_server_socket_create(GetParam().family, GetParam().text, (SHORT)GetParam().port, maxClient),
                  70);

        EXPECT_EQ(recording.trace(), in_order({expected(KEL_SOCK_STREAM), "listen(70, 5) = 0"}));
        EXPECT_EQ(recording.open(), std::set<int>{70});
    }
}

TEST_P(Servers, OfUdpAreBound)
{
    sys::Recording recording;

    EXPECT_EQ(kel_udp_server_socket_create(GetParam().family, GetParam().text, (SHORT)GetParam().port), 70);

    EXPECT_EQ(recording.trace(), expected(KEL_SOCK_DGRAM));
    EXPECT_EQ(recording.open(), std::set<int>{70});
}

const Server servers[] = {
    {"Ipv4Wildcard", KEL_AF_INET, 9000, nullptr, "inet_pton(2, 0.0.0.0) = 1", "02002328", 16},
    {"Ipv6Wildcard", KEL_AF_INET6, 9000, nullptr, "inet_pton(10, ::) = 1", "0a002328", 28},
    {"Ipv4AnyPort", KEL_AF_INET, 0, "127.0.0.1", "inet_pton(2, 127.0.0.1) = 1", "020000007f000001", 16},
    {"Ipv4HighestPort", KEL_AF_INET, 65535, "127.0.0.1", "inet_pton(2, 127.0.0.1) = 1", "0200ffff7f000001", 16},
    {"Ipv6", KEL_AF_INET6, 32768, "fe80::1", "inet_pton(10, fe80::1) = 1",
     "0a00800000000000fe800000000000000000000000000001", 28},
    {"UnknownFamily", (kel_domain_t)3, 9000, nullptr, nullptr, "", 0},
};

INSTANTIATE_TEST_SUITE_P(InetEndpoints, Servers, testing::ValuesIn(servers), row_name<Server>);

/* ---- Clients ---------------------------------------------------------------------------------------------------- */

TEST(TcpClients, AreConnected)
{
    for (const Endpoint &endpoint : {tcp_client, tcp_client_bind}) {
        sys::Recording recording;

        EXPECT_EQ(endpoint.create(KEL_AF_INET, server_text), 70);

        EXPECT_EQ(recording.trace(),
                  in_order({created(KEL_AF_INET, KEL_SOCK_STREAM), filled, with_server("connect", "0")}));
        EXPECT_EQ(recording.open(), std::set<int>{70});
    }
}

TEST(TcpClients, AreConnectedOverIpv6)
{
    for (const Endpoint &endpoint : {tcp_client, tcp_client_bind}) {
        sys::Recording recording;

        EXPECT_EQ(endpoint.create(KEL_AF_INET6, "::1"), 70);

        EXPECT_EQ(recording.trace(),
                  in_order({created(KEL_AF_INET6, KEL_SOCK_STREAM), cleared, cleared, "inet_pton(10, ::1) = 1",
                            "connect(70, 0a009c40000000000000000000000000000000000000000100000000, 28) = 0"}));
    }
}

TEST(UdpClients, AreNeitherBoundNorConnectedAndFillTheServersRecord)
{
    for (const Endpoint &endpoint : {udp_client, udp_client_bind}) {
        sys::Recording recording;

        EXPECT_EQ(endpoint.create(KEL_AF_INET, server_text), 70);

        EXPECT_EQ(recording.trace(), in_order({created(KEL_AF_INET, KEL_SOCK_DGRAM), cleared, converted}));
        EXPECT_EQ(bytes_of(server_record), record(server_bytes));
        EXPECT_EQ(recording.open(), std::set<int>{70});
    }
}

TEST(UdpClients, FillARecordOfAnyFamilyThatNeedsNoInterface)
{
    struct {
        kel_domain_t family;
        const char *text;
        std::string bytes;
    } const rows[] = {{KEL_AF_INET6, "::1", "0a009c400000000000000000000000000000000000000001"},
                      {KEL_AF_UNIX, "/run/app", "01002f72756e2f617070"},
                      {(kel_domain_t)3, NULL, ""}};
    for (const Endpoint &endpoint : {udp_client, udp_client_bind}) {
        for (const auto &row : rows) {
            sys::Recording recording;

            EXPECT_EQ(endpoint.create(row.family, row.text), 70);

            EXPECT_EQ(bytes_of(server_record), record(row.bytes));
        }
    }
}

TEST(UdpClients, WithoutARecordAreBareDescriptors)
{
    sys::Recording recording;

    EXPECT_EQ(kel_udp_client_socket_create(KEL_AF_INET, NULL, 53, NULL), 70);
    EXPECT_EQ(kel_udp_client_socket_create_bind(KEL_AF_INET, "here", 53, NULL, NULL), 71);

    EXPECT_EQ(recording.trace(), in_order({created(KEL_AF_INET, KEL_SOCK_DGRAM), "socket(2, 2, 0) = 71",
                                           "setsockopt(71, 1, 2, 01000000, 4) = 0"}));
}

/* ---- Clients with a local address ------------------------------------------------------------------------------- */

const Endpoint tcp_client_from = {"kel_tcp_client_socket_create_bind", KEL_SOCK_STREAM,
                                  [](kel_domain_t family, const CHAR *text) {
                                      return kel_tcp_client_socket_create_bind(family, text, (SHORT)port, &local);
                                  }};
const Endpoint udp_client_from = {
    "kel_udp_client_socket_create_bind", KEL_SOCK_DGRAM, [](kel_domain_t family, const CHAR *text) {
        server_record = poisoned();
        return kel_udp_client_socket_create_bind(family, text, (SHORT)port, &server_record, &local);
    }};

struct LocalAddress {
    const char *name;
    kel_sockaddr_t address;
    size_t length; /* 0: not bound */
};

class LocalBind : public testing::TestWithParam<LocalAddress>
{
  protected:
    void SetUp() override
    {
        local = GetParam().address;
    }

    sys::Trace binding(const std::string &answer) const
    {
        size_t length = GetParam().length;
        if (length == 0) {
            return {};
        }
        return {"bind(70, " + bytes_of(local).substr(0, 2 * length) + ", " + std::to_string(length) + ") = " + answer};
    }

    void expect_bound_first(const std::vector<Fault> &faults, const std::string &answer)
    {
        {
            sys::Recording recording(failing(faults));
            EXPECT_EQ(tcp_client_from.create(KEL_AF_INET, server_text), 70);
            EXPECT_EQ(recording.trace(), in_order({created(KEL_AF_INET, KEL_SOCK_STREAM), binding(answer), filled,
                                                   with_server("connect", "0")}));
        }
        {
            sys::Recording recording(failing(faults));
            EXPECT_EQ(udp_client_from.create(KEL_AF_INET, server_text), 70);
            EXPECT_EQ(recording.trace(),
                      in_order({created(KEL_AF_INET, KEL_SOCK_DGRAM), binding(answer), cleared, converted}));
            EXPECT_EQ(bytes_of(server_record), record(server_bytes));
        }
        EXPECT_EQ(bytes_of(local), bytes_of(GetParam().address));
    }
};

TEST_P(LocalBind, ThatFailsIsIgnoredInSilence)
{
    expect_bound_first({{"bind", sys::fail(EADDRINUSE)}}, "-1 errno 98");
    EXPECT_EQ(errno, GetParam().length == 0 ? 0 : EADDRINUSE); /* as the local bind left it */
}

TEST_P(LocalBind, ComesBeforeEverythingElse)
{
    expect_bound_first({}, "0");
}

kel_sockaddr_t local_path()
{
    kel_sockaddr_t address = blank(KEL_AF_UNIX);
    strcpy(address.un.sun_path, "/run/client");
    return address;
}

const LocalAddress local_addresses[] = {
    {"Ipv4Port0IsNoBind", inet_address("10.0.0.9", 0), 0},
    {"Ipv6Port0IsNoBind", inet6_address("fe80::9", 0), 0},
    {"Ipv4", inet_address("10.0.0.9", 5000), 16},
    {"Ipv4Port256", inet_address("10.0.0.9", 256), 16}, /* one byte of the two is 0 */
    {"Ipv4Port1", inet_address("10.0.0.9", 1), 16},
    {"Ipv4HighestPort", inet_address("10.0.0.9", 65535), 16},
    {"Ipv6", inet6_address("fe80::9", 5000), 28},
    {"PathWhereThePortStands", local_path(), 110},
};

INSTANTIATE_TEST_SUITE_P(InetEndpoints, LocalBind, testing::ValuesIn(local_addresses), row_name<LocalAddress>);

TEST(LocalBind, WithoutAServersRecordLeavesABoundDescriptor)
{
    local = inet_address("10.0.0.9", 5000);
    sys::Recording recording;

    EXPECT_EQ(kel_udp_client_socket_create_bind(KEL_AF_INET, NULL, 53, NULL, &local), 70);

    EXPECT_EQ(recording.trace(),
              in_order({created(KEL_AF_INET, KEL_SOCK_DGRAM), "bind(70, 020013880a0000090000000000000000, 16) = 0"}));
}

} // namespace
