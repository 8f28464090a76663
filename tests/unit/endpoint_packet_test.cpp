/* Packet endpoint. */
#include "failure.h"

#include <errno.h>

namespace
{

constexpr const char *closed = "close(70) = 0";

sys::Trace interface_query(const std::string &answer)
{
    return {cleared, cleared, "KEL_MemSet(set, 0, 40)", "KEL_StrnCpy(eth0, 16)",
            "ioctl(70, SIOCGIFINDEX, eth0, zero) = " + answer};
}

LONG packet_socket()
{
    return kel_raw_server_socket_create(3, "eth0");
}

Report step(const char *text, int error)
{
    return failed_step("kel_raw_server_socket_create", text, error);
}

const sys::Trace socket_created = created(KEL_AF_PACKET, KEL_SOCK_RAW, 3);
constexpr const char *bound = "bind(70, 1100000307000000000000000000000000000000, 20) = ";

const std::vector<FailureCase> failures = {
    {"PacketWithoutPrivilege",
     packet_socket,
     {{"socket", sys::fail(EPERM)}},
     {"socket(17, 3, 3) = -1 errno 1"},
     step("create raw socket", EPERM),
     {}},
    {"PacketNoOption",
     packet_socket,
     {{"setsockopt", sys::fail(ENOPROTOOPT)}},
     in_order({"socket(17, 3, 3) = 70", "setsockopt(70, 1, 2, 01000000, 4) = -1 errno 92",
               unfiltered(failed_step("kel_socket", "setsockopt socket", ENOPROTOOPT)), closed}),
     step("create raw socket", ENOPROTOOPT),
     {}},
    {"PacketNullInterface",
     [] { return kel_raw_server_socket_create(3, NULL); },
     {},
     in_order({socket_created, cleared, cleared, unfiltered(null_check("kel_addr_fill", "ifName"))}),
     step("bind raw socket", 0),
     {closed}},
    /* Closed twice: by the interface query that failed, and by the endpoint. */
    {"PacketUnknownInterface",
     packet_socket,
     {{"ioctl", sys::fail(ENODEV)}},
     in_order({socket_created, interface_query("-1 errno 19"), closed}),
     step("bind raw socket", ENODEV),
     {closed}},
    {"PacketBindRefused",
     packet_socket,
     {{"bind", sys::fail(ENETDOWN)}},
     in_order({socket_created, interface_query("0"), std::string(bound) + "-1 errno 100"}),
     step("bind raw socket", ENETDOWN),
     {closed}},
};

INSTANTIATE_TEST_SUITE_P(PacketEndpoint, Failure, in_every_way(failures), filtered_name<FailureCase>);

TEST(PacketEndpoint, LeavesTheErrnoOfTheLastCallThatFailed)
{
    {
        sys::Recording recording(failing({{"bind", sys::fail(ENETDOWN)}, {"close", sys::fail(EIO)}}));
        EXPECT_EQ(packet_socket(), KEL_ERROR);
        EXPECT_EQ(errno, EIO);
    }
    {
        /* The second close fails as on the real system: its errno is left, while the report before it shows ENODEV. */
        sys::Recording recording(failing({{"ioctl", sys::fail(ENODEV)}, {"close", sys::fail(EBADF), 2}}));
        EXPECT_EQ(packet_socket(), KEL_ERROR);
        EXPECT_EQ(errno, EBADF);
        EXPECT_EQ(recording.trace(),
                  in_order({socket_created, interface_query("-1 errno 19"), closed,
                            step("bind raw socket", ENODEV).trace(Filtered::No), "close(70) = -1 errno 9"}));
    }
}

TEST(PacketEndpoint, TakesOnlyMinusOneForNoDescriptor)
{
    for (long descriptor : {0, -2}) {
        sys::Recording recording(sys::fail_first("socket", sys::ok(descriptor)));

        EXPECT_EQ(packet_socket(), descriptor);

        EXPECT_EQ(recording.open().count(0), descriptor == 0 ? 1u : 0u);
    }
}

TEST(PacketEndpoint, IsCreatedWithTheProtocolAsItIsAndBoundWithItInNetworkOrder)
{
    struct {
        int protocol;
        const char *created;
        const char *bound;
    } const rows[] = {{3, "3", "0003"},
                      {0x0800, "2048", "0800"},
                      {0, "0", "0000"},
                      {0x88cc, "-30516", "88cc"},
                      {0xffff, "-1", "ffff"}};
    for (const auto &row : rows) {
        sys::Recording recording;

        EXPECT_EQ(kel_raw_server_socket_create((SHORT)row.protocol, "eth0"), 70);

        EXPECT_EQ(recording.trace(),
                  in_order({std::string("socket(17, 3, ") + row.created + ") = 70",
                            "setsockopt(70, 1, 2, 01000000, 4) = 0", interface_query("0"),
                            std::string("bind(70, 1100") + row.bound + "07000000000000000000000000000000, 20) = 0"}));
        EXPECT_EQ(recording.open(), std::set<int>{70});
    }
}

} // namespace
