/* Bind, listen, accept, connect, names. */
#include "failure.h"

#include <errno.h>
#include <string.h>

namespace
{

/* 10.1.2.3, port 40000, as the caller has it and as the system gets it. */
kel_sockaddr_t address = inet_address("10.1.2.3", 40000);
constexpr const char *inet_bytes = "02009c400a0102030000000000000000";

const sys::Trace filled{cleared, cleared, "inet_pton(2, 10.1.2.3) = 1"};

/* ---- What is reported: null arguments and a failed connect ------------------------------------------------------ */

std::string connecting(const char *answer)
{
    return std::string("connect(5, ") + inet_bytes + ", 16) = " + answer;
}

const std::vector<FailureCase> failures = {
    null_argument("BindNull", null_check("kel_bind", "my_addr"), {}, [] { return kel_bind(5, NULL); }),
    null_argument("BindStrPathNull", null_check("kel_addr_fill", "addrStr", 2), {cleared, cleared},
                  [] { return kel_bind_str(5, KEL_AF_UNIX, 0, NULL, 0, NULL); }),
    null_argument("BindStrInterfaceNull", null_check("kel_addr_fill", "ifName"), {cleared, cleared},
                  [] { return kel_bind_str(5, KEL_AF_PACKET, 0, NULL, 3, NULL); }),
    null_argument("AcceptNull", null_check("kel_accept", "addr"), {}, [] { return kel_accept(5, NULL); }),
    null_argument("ConnectNull", null_check("kel_connect", "con_addr"), {}, [] { return kel_connect(5, NULL); }),
    {"ConnectRefused",
     [] { return kel_connect(5, &address); },
     {{"connect", sys::fail(ECONNREFUSED)}},
     {connecting("-1 errno 111")},
     failed_step("kel_connect", "connect :", ECONNREFUSED),
     {}},
    {"ConnectAnyResultButZero",
     [] { return kel_connect(5, &address); },
     {{"connect", sys::ok(1)}},
     {connecting("1")},
     failed_step("kel_connect", "connect :", 0),
     {}},
    null_argument("ConnectStrNull", null_check("kel_connect_str", "addrStr"), {},
                  [] { return kel_connect_str(5, KEL_AF_INET, 80, NULL); }),
    null_argument("ConnectStrNullOfUnknownFamily", null_check("kel_connect_str", "addrStr"), {},
                  [] { return kel_connect_str(5, (kel_domain_t)3, 80, NULL); }),
    null_argument("ConnectStrHasNoInterface", null_check("kel_addr_fill", "ifName"), {cleared, cleared},
                  [] { return kel_connect_str(5, KEL_AF_PACKET, 80, "eth0"); }),
    {"ConnectStrRefused",
     [] { return kel_connect_str(5, KEL_AF_INET, (SHORT)40000, "10.1.2.3"); },
     {{"connect", sys::fail(ECONNREFUSED)}},
     in_order({filled, connecting("-1 errno 111")}),
     failed_step("kel_connect", "connect :", ECONNREFUSED),
     {}},
};

INSTANTIATE_TEST_SUITE_P(BindAndConnect, Failure, in_every_way(failures), filtered_name<FailureCase>);

TEST(Connect, ShowsTwoColonsInARowAndNoLineEnd)
{
    sys::Recording recording(sys::fail_first("connect", sys::fail(ECONNREFUSED)));

    EXPECT_EQ(kel_connect(5, &address), KEL_ERROR);

    std::string console;
    for (const std::string &call : recording.trace()) {
        if (call.compare(0, 7, "printf(") == 0) {
            console += call.substr(call.find("|") + 1);
        }
    }
    int line = source_line("kel_connect", "kel_perror");
    EXPECT_EQ(console, "\033[1;31mkel_connect." + std::to_string(line) + ":connect :: Connection refused\033[m");
}

/* ---- What fails in silence -------------------------------------------------------------------------------------- */

TEST(Bind, TakesAnyResultButZeroForAFailureInSilence)
{
    for (long result : {-1, -2, 1}) {
        sys::Recording recording(sys::fail_first("bind", {result, EADDRINUSE}));

        EXPECT_EQ(kel_bind(5, &address), KEL_ERROR);

        EXPECT_EQ(errno, EADDRINUSE);
        EXPECT_EQ(recording.trace(),
                  sys::Trace{std::string("bind(5, ") + inet_bytes + ", 16) = " + std::to_string(result) + " errno 98"});
    }
}

TEST(BindStr, IsSilentWhenTheSystemRefusesTheAddress)
{
    sys::Recording recording(sys::fail_first("bind", sys::fail(EADDRNOTAVAIL)));

    EXPECT_EQ(kel_bind_str(5, KEL_AF_INET, (SHORT)40000, "10.1.2.3", 0, NULL), KEL_ERROR);

    EXPECT_EQ(errno, EADDRNOTAVAIL);
    EXPECT_EQ(recording.trace(), in_order({filled, std::string("bind(5, ") + inet_bytes + ", 16) = -1 errno 99"}));
}

TEST(BindStr, OnlyAssertsWhenTheTextIsBad)
{
    sys::Recording recording;

    EXPECT_EQ(kel_bind_str(5, KEL_AF_INET, 80, "localhost", 0, NULL), KEL_ERROR);

    EXPECT_EQ(recording.trace(),
              in_order({cleared, cleared, "inet_pton(2, localhost) = 0", assert_report("kel_addr_fill")}));
}

TEST(BindStr, HasClosedTheDescriptorWhenTheInterfaceIsUnknown)
{
    sys::Recording recording(sys::fail_first("ioctl", sys::fail(ENODEV)));

    EXPECT_EQ(kel_bind_str(5, KEL_AF_PACKET, 0, NULL, 3, "nosuch0"), KEL_ERROR);

    EXPECT_EQ(errno, ENODEV);
    EXPECT_EQ(recording.trace(), (sys::Trace{cleared, cleared, "KEL_MemSet(set, 0, 40)", "KEL_StrnCpy(nosuch0, 16)",
                                             "ioctl(5, SIOCGIFINDEX, nosuch0, zero) = -1 errno 19", "close(5) = 0"}));
}

TEST(ConnectStr, OnlyAssertsWhenTheTextIsBad)
{
    sys::Recording recording;

    EXPECT_EQ(kel_connect_str(5, KEL_AF_INET6, 80, "1.2.3.4"), KEL_ERROR);

    EXPECT_EQ(recording.trace(),
              in_order({cleared, cleared, "inet_pton(10, 1.2.3.4) = 0", assert_report("kel_addr_fill")}));
}

TEST(Listen, TakesAnyResultButZeroForAFailureInSilence)
{
    for (long result : {-1, -2, 1}) {
        sys::Recording recording(sys::fail_first("listen", {result, EOPNOTSUPP}));

        EXPECT_EQ(kel_listen(5, 3), KEL_ERROR);

        EXPECT_EQ(errno, EOPNOTSUPP);
        EXPECT_EQ(recording.trace(), sys::Trace{"listen(5, 3) = " + std::to_string(result) + " errno 95"});
    }
}

TEST(Accept, IsSilentWhenTheSystemRefusesAndLeavesTheRecord)
{
    kel_sockaddr_t peer = poisoned();
    sys::name_pointer(&peer, "peer");
    sys::Recording recording(sys::fail_first("accept", sys::fail(ECONNABORTED)));

    EXPECT_EQ(kel_accept(5, &peer), KEL_ERROR);

    EXPECT_EQ(errno, ECONNABORTED);
    EXPECT_EQ(recording.trace(), sys::Trace{"accept(5, peer, 112) = -1 errno 103"});
    EXPECT_EQ(bytes_of(peer), bytes_of(poisoned()));
}

TEST(Accept, TakesOnlyMinusOneForAFailure)
{
    for (long result : {-2, 0}) {
        kel_sockaddr_t peer;
        sys::name_pointer(&peer, "peer");
        sys::Recording recording(sys::fail_first("accept", sys::ok(result)));

        EXPECT_EQ(kel_accept(5, &peer), result);

        EXPECT_EQ(recording.trace(), sys::Trace{"accept(5, peer, 112) = " + std::to_string(result)});
    }
}

/* ---- The names: two functions of one shape ---------------------------------------------------------------------- */

struct Name {
    const char *name;
    LONG (*get)(LONG, kel_sockaddr_t *);
};

class Names : public testing::TestWithParam<Name>
{
  protected:
    void SetUp() override
    {
        peer = poisoned();
        sys::name_pointer(&peer, "peer");
        sys::set_peer(inet_address("10.9.8.7", 1234), 16);
    }

    std::string call(const std::string &arguments) const
    {
        return std::string(GetParam().name) + "(" + arguments;
    }

    kel_sockaddr_t peer;
};

TEST_P(Names, PassANullRecordToTheSystem)
{
    sys::Recording recording(sys::fail_first(GetParam().name, sys::fail(EFAULT)));

    EXPECT_EQ(GetParam().get(5, NULL), KEL_ERROR);

    EXPECT_EQ(errno, EFAULT);
    EXPECT_EQ(recording.trace(), sys::Trace{call("5, null, 112) = -1 errno 14")});
}

TEST_P(Names, AreSilentWhenTheSystemRefuses)
{
    sys::Recording recording(sys::fail_first(GetParam().name, sys::fail(ENOTCONN)));

    EXPECT_EQ(GetParam().get(5, &peer), KEL_ERROR);

    EXPECT_EQ(errno, ENOTCONN);
    EXPECT_EQ(recording.trace(), sys::Trace{call("5, peer, 112) = -1 errno 107")});
    EXPECT_EQ(bytes_of(peer), bytes_of(poisoned()));
}

TEST_P(Names, TakeOnlyMinusOneForAFailure)
{
    for (long result : {-2, 1}) {
        sys::Recording recording(sys::fail_first(GetParam().name, sys::ok(result)));

        EXPECT_EQ(GetParam().get(5, &peer), KEL_OK);

        EXPECT_EQ(recording.trace(), sys::Trace{call("5, peer, 112) = " + std::to_string(result))});
    }
}

TEST_P(Names, FillTheRecordAndCutTheDescriptorTo32Bits)
{
    sys::Recording recording;

    EXPECT_EQ(GetParam().get(0x100000005, &peer), KEL_OK);

    EXPECT_EQ(recording.trace(), sys::Trace{call("5, peer, 112) = 0")});
    EXPECT_EQ(bytes_of(peer), "020004d20a0908070000000000000000" + bytes_of(poisoned()).substr(32));
}

const Name names[] = {{"getpeername", kel_getpeername}, {"getsockname", kel_getsockname}};

INSTANTIATE_TEST_SUITE_P(BindAndConnect, Names, testing::ValuesIn(names), row_name<Name>);

/* ---- What succeeds ---------------------------------------------------------------------------------------------- */

/* The length that goes with each family, for the two calls that take a record. */
struct Passed {
    const char *name;
    int family;
    size_t length;
};

class PassedRecord : public testing::TestWithParam<Passed>
{
};

TEST_P(PassedRecord, HasTheLengthOfItsFamilyAndIsOnlyRead)
{
    kel_sockaddr_t given = poisoned();
    given.sa.sa_family = (sa_family_t)GetParam().family;
    const std::string before = bytes_of(given);
    const std::string arguments =
        "(5, " + before.substr(0, 2 * GetParam().length) + ", " + std::to_string(GetParam().length) + ") = 0";
    sys::Recording recording;

    EXPECT_EQ(kel_bind(0x100000005, &given), KEL_OK);
    EXPECT_EQ(kel_connect(0x100000005, &given), KEL_OK);

    EXPECT_EQ(recording.trace(), (sys::Trace{"bind" + arguments, "connect" + arguments}));
    EXPECT_EQ(bytes_of(given), before);
}

const Passed passed_records[] = {
    {"Unix", 1, 110}, {"Inet", 2, 16}, {"Inet6", 10, 28}, {"Packet", 17, 20}, {"Unknown", 3, 0}};

INSTANTIATE_TEST_SUITE_P(BindAndConnect, PassedRecord, testing::ValuesIn(passed_records), row_name<Passed>);

TEST(Listen, PassesTheBacklogUnclampedCutTo32Bits)
{
    struct {
        LONG given;
        const char *passed;
    } const rows[] = {{0, "0"},   {1, "1"},           {100000, "100000"},
                      {-1, "-1"}, {0x100000007, "7"}, {0x80000000, "-2147483648"}};
    for (const auto &row : rows) {
        sys::Recording recording;

        EXPECT_EQ(kel_listen(0x100000005, row.given), KEL_OK);

        EXPECT_EQ(recording.trace(), sys::Trace{std::string("listen(5, ") + row.passed + ") = 0"});
    }
}

TEST(Accept, FillsThePeerAndReturnsTheNewDescriptor)
{
    kel_sockaddr_t peer = poisoned();
    sys::name_pointer(&peer, "peer");
    sys::set_peer(inet6_address("2001:db8::7", 65535), 28);
    sys::Recording recording;

    EXPECT_EQ(kel_accept(0x100000005, &peer), 70);

    EXPECT_EQ(recording.trace(), sys::Trace{"accept(5, peer, 112) = 70"});
    EXPECT_EQ(bytes_of(peer),
              "0a00ffff0000000020010db800000000000000000000000700000000" + bytes_of(poisoned()).substr(56));
    EXPECT_EQ(recording.open(), std::set<int>{70});
}

TEST(Accept, LeavesWhatAShortPeerAddressDoesNotFill)
{
    kel_sockaddr_t peer = poisoned();
    sys::set_peer(blank(KEL_AF_UNIX), 2); /* as for a local peer without a path */
    sys::Recording recording;

    EXPECT_EQ(kel_accept(5, &peer), 70);

    EXPECT_EQ(bytes_of(peer), "0100" + bytes_of(poisoned()).substr(4));
}

struct FromParts {
    const char *name;
    kel_domain_t family;
    int port;
    const char *text;
    const char *ifName;
    sys::Trace trace;
};

class BindFromParts : public testing::TestWithParam<FromParts>
{
};

TEST_P(BindFromParts, FillsARecordAndBindsToIt)
{
    const FromParts &row = GetParam();
    sys::Recording recording;

    EXPECT_EQ(kel_bind_str(0x100000005, row.family, (SHORT)row.port, row.text, (SHORT)0x88cc, row.ifName), KEL_OK);

    EXPECT_EQ(recording.trace(), in_order({cleared, cleared, row.trace}));
}

const std::string path_record = record("01002f72756e2f617070", 110); /* /run/app */

const FromParts bound[] = {
    {"Ipv4Wildcard",
     KEL_AF_INET,
     8080,
     nullptr,
     nullptr,
     {"inet_pton(2, 0.0.0.0) = 1", "bind(5, 02001f90000000000000000000000000, 16) = 0"}},
    {"Ipv6Wildcard",
     KEL_AF_INET6,
     8080,
     nullptr,
     nullptr,
     {"inet_pton(10, ::) = 1", "bind(5, " + record("0a001f90", 28) + ", 28) = 0"}},
    {"Ipv4",
     KEL_AF_INET,
     65535,
     "10.1.2.3",
     "eth0",
     {"inet_pton(2, 10.1.2.3) = 1", "bind(5, 0200ffff0a0102030000000000000000, 16) = 0"}},
    {"Ipv6",
     KEL_AF_INET6,
     32768,
     "::1",
     "eth0",
     {"inet_pton(10, ::1) = 1", "bind(5, 0a0080000000000000000000000000000000000000000001"
                                "00000000, 28) = 0"}},
    {"Path",
     KEL_AF_UNIX,
     80,
     "/run/app",
     "eth0",
     {"KEL_StrnCpy(/run/app, 108)", "bind(5, " + path_record + ", 110) = 0"}},
    {"Packet",
     KEL_AF_PACKET,
     80,
     nullptr,
     "eth0",
     {"KEL_MemSet(set, 0, 40)", "KEL_StrnCpy(eth0, 16)", "ioctl(5, SIOCGIFINDEX, eth0, zero) = 0",
      "bind(5, 110088cc07000000000000000000000000000000, 20) = 0"}},
    {"UnknownFamily", (kel_domain_t)3, 80, nullptr, nullptr, {"bind(5, , 0) = 0"}},
};

INSTANTIATE_TEST_SUITE_P(BindAndConnect, BindFromParts, testing::ValuesIn(bound), row_name<FromParts>);

class ConnectFromParts : public testing::TestWithParam<FromParts>
{
};

TEST_P(ConnectFromParts, FillsARecordAndConnectsToIt)
{
    const FromParts &row = GetParam();
    sys::Recording recording;

    EXPECT_EQ(kel_connect_str(0x100000005, row.family, (SHORT)row.port, row.text), KEL_OK);

    EXPECT_EQ(recording.trace(), in_order({cleared, cleared, row.trace}));
}

const FromParts connected[] = {
    {"Ipv4",
     KEL_AF_INET,
     40000,
     "10.1.2.3",
     nullptr,
     {"inet_pton(2, 10.1.2.3) = 1", "connect(5, 02009c400a0102030000000000000000, 16) = 0"}},
    {"Ipv6",
     KEL_AF_INET6,
     65535,
     "::1",
     nullptr,
     {"inet_pton(10, ::1) = 1", "connect(5, 0a00ffff0000000000000000000000000000000000000001"
                                "00000000, 28) = 0"}},
    {"Path",
     KEL_AF_UNIX,
     80,
     "/run/app",
     nullptr,
     {"KEL_StrnCpy(/run/app, 108)", "connect(5, " + path_record + ", 110) = 0"}},
    {"UnknownFamily", (kel_domain_t)3, 80, "text", nullptr, {"connect(5, , 0) = 0"}},
};

INSTANTIATE_TEST_SUITE_P(BindAndConnect, ConnectFromParts, testing::ValuesIn(connected), row_name<FromParts>);

} // namespace
