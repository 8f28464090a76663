/* Address construction: records from their parts, and the hardware address of an interface. */
#include "failure.h"

#include <errno.h>
#include <string.h>

namespace
{

/* ---- Failures of kel_addr_fill ---------------------------------------------------------------------------------- */

kel_sockaddr_t filled;

const std::vector<FailureCase> failures = {
    null_argument("FillNullRecord", null_check("kel_addr_fill", "my_addr"), {"KEL_MemSet(null, 0, 112)"},
                  [] { return kel_addr_fill(5, NULL, KEL_AF_INET, 80, "1.2.3.4", 0, NULL); }),
    null_argument("FillNullRecordOfUnknownFamily", null_check("kel_addr_fill", "my_addr"), {"KEL_MemSet(null, 0, 112)"},
                  [] { return kel_addr_fill(5, NULL, (kel_domain_t)3, 80, NULL, 0, NULL); }),
    null_argument("FillIpv4NullText", null_check("kel_addr_fill", "addrStr", 1), {cleared},
                  [] { return kel_addr_fill(5, &filled, KEL_AF_INET, 80, NULL, 3, "eth0"); }),
    null_argument("FillIpv6NullText", null_check("kel_addr_fill", "addrStr", 1), {cleared},
                  [] { return kel_addr_fill(5, &filled, KEL_AF_INET6, 80, NULL, 3, "eth0"); }),
    null_argument("FillPathNull", null_check("kel_addr_fill", "addrStr", 2), {cleared},
                  [] { return kel_addr_fill(5, &filled, KEL_AF_UNIX, 80, NULL, 3, "eth0"); }),
    null_argument("FillPacketNullInterface", null_check("kel_addr_fill", "ifName"), {cleared},
                  [] { return kel_addr_fill(5, &filled, KEL_AF_PACKET, 0, "text", 3, NULL); }),
};

INSTANTIATE_TEST_SUITE_P(AddressConstruction, Failure, in_every_way(failures), filtered_name<FailureCase>);

TEST(AddressFill, LeavesTheRecordClearedWhenAnArgumentIsNull)
{
    for (kel_domain_t family : {KEL_AF_INET, KEL_AF_INET6, KEL_AF_UNIX, KEL_AF_PACKET}) {
        kel_sockaddr_t address = poisoned();
        sys::Recording recording;

        EXPECT_EQ(kel_addr_fill(5, &address, family, 80, NULL, 3, NULL), KEL_ERROR);

        EXPECT_EQ(bytes_of(address), record(""));
    }
}

TEST(AddressFill, KeepsFamilyAndPortWhenTheTextIsBadAndOnlyAsserts)
{
    struct {
        kel_domain_t family;
        const char *text;
        const char *left;
    } const rows[] = {{KEL_AF_INET, "::1", "02001f90"},
                      {KEL_AF_INET, "", "02001f90"},
                      {KEL_AF_INET, "1.2.3.256", "02001f90"},
                      {KEL_AF_INET6, "1.2.3.4", "0a001f90"},
                      {KEL_AF_INET6, "fe80::1%lo", "0a001f90"}};
    for (const auto &row : rows) {
        kel_sockaddr_t address = poisoned();
        sys::Recording recording;

        EXPECT_EQ(kel_addr_fill(5, &address, row.family, 8080, row.text, 3, "eth0"), KEL_ERROR);

        EXPECT_EQ(recording.trace(),
                  in_order({cleared, "inet_pton(" + std::to_string(row.family) + ", " + row.text + ") = 0",
                            assert_report("kel_addr_fill")}));
        EXPECT_EQ(bytes_of(address), record(row.left));
    }
}

TEST(AddressFill, ClosesTheCallersDescriptorWhenTheInterfaceIsUnknownAndSaysNothing)
{
    kel_sockaddr_t address = poisoned();
    sys::Recording recording(sys::fail_first("ioctl", sys::fail(ENODEV)));

    EXPECT_EQ(kel_addr_fill(5, &address, KEL_AF_PACKET, 80, NULL, 3, "nosuch0"), KEL_ERROR);

    EXPECT_EQ(errno, ENODEV);
    EXPECT_EQ(recording.trace(), in_order({cleared, "KEL_MemSet(set, 0, 40)", "KEL_StrnCpy(nosuch0, 16)",
                                           "ioctl(5, SIOCGIFINDEX, nosuch0, zero) = -1 errno 19", "close(5) = 0"}));
    EXPECT_EQ(bytes_of(address), record(""));
}

TEST(AddressFill, LeavesTheErrnoOfACloseThatFailsAfterTheQuery)
{
    kel_sockaddr_t address;
    sys::Recording recording(failing({{"ioctl", sys::fail(ENODEV)}, {"close", sys::fail(EBADF)}}));

    EXPECT_EQ(kel_addr_fill(0, &address, KEL_AF_PACKET, 80, NULL, 3, "nosuch0"), KEL_ERROR);

    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(recording.trace().back(), "close(0) = -1 errno 9");
}

TEST(AddressFill, TakesOnlyMinusOneForAFailedInterfaceQuery)
{
    for (long result : {-2, 1}) {
        kel_sockaddr_t address;
        sys::Recording recording(sys::fail_first("ioctl", sys::ok(result)));

        EXPECT_EQ(kel_addr_fill(5, &address, KEL_AF_PACKET, 0, NULL, 3, "eth0"), KEL_OK);

        EXPECT_EQ(recording.trace().back(), "ioctl(5, SIOCGIFINDEX, eth0, zero) = " + std::to_string(result));
        EXPECT_EQ(address.raw.sll_ifindex, sys::interface_index);
    }
}

/* ---- Records of kel_addr_fill ----------------------------------------------------------------------------------- */

struct Filling {
    const char *name;
    kel_domain_t family;
    int port;
    std::string text;
    int protocol;
    const char *ifName;
    std::string expected; /* bytes of the record, zeros follow */
    sys::Trace trace;
};

class AddressFill : public testing::TestWithParam<Filling>
{
};

TEST_P(AddressFill, WritesTheWholeRecord)
{
    const Filling &row = GetParam();
    kel_sockaddr_t address = poisoned();
    sys::Recording recording;

    EXPECT_EQ(
        kel_addr_fill(5, &address, row.family, (SHORT)row.port, row.text.c_str(), (SHORT)row.protocol, row.ifName),
        KEL_OK);

    EXPECT_EQ(recording.trace(), in_order({cleared, row.trace}));
    EXPECT_EQ(bytes_of(address), record(row.expected));
}

std::string path_digits(const std::string &path)
{
    return "0100" + sys::hex(path.data(), path.size());
}

sys::Trace interface_query(const std::string &argument, const std::string &seen)
{
    return {"KEL_MemSet(set, 0, 40)", "KEL_StrnCpy(" + argument + ", 16)",
            "ioctl(5, SIOCGIFINDEX, " + seen + ", zero) = 0"};
}

const std::string path_107(107, 'p');
const std::string path_108(108, 'p');

const Filling fillings[] = {
    {"FamilyZero", (kel_domain_t)0, 80, "1.2.3.4", 3, "eth0", "", {}},
    {"UnknownFamily", (kel_domain_t)3, 80, "1.2.3.4", 3, "eth0", "", {}},
    {"NegativeFamily", (kel_domain_t)-1, 80, "1.2.3.4", 3, "eth0", "", {}},
    {"FamilyAbove16Bits", (kel_domain_t)0x10002, 80, "1.2.3.4", 3, "eth0", "", {}},

    {"Ipv4", KEL_AF_INET, 8080, "127.0.0.1", 3, "eth0", "02001f907f000001", {"inet_pton(2, 127.0.0.1) = 1"}},
    {"Ipv4Any", KEL_AF_INET, 0, "0.0.0.0", 0, nullptr, "02000000", {"inet_pton(2, 0.0.0.0) = 1"}},
    {"Ipv4Port32768", KEL_AF_INET, 32768, "1.2.3.4", 0, nullptr, "0200800001020304", {"inet_pton(2, 1.2.3.4) = 1"}},
    {"Ipv4HighestPort", KEL_AF_INET, 65535, "1.2.3.4", 0, nullptr, "0200ffff01020304", {"inet_pton(2, 1.2.3.4) = 1"}},

    {"Ipv6",
     KEL_AF_INET6,
     8080,
     "2001:db8::7",
     3,
     "eth0",
     "0a001f900000000020010db8000000000000000000000007",
     {"inet_pton(10, 2001:db8::7) = 1"}},
    {"Ipv6Any", KEL_AF_INET6, 0, "::", 0, nullptr, "0a00", {"inet_pton(10, ::) = 1"}},
    {"Ipv6LinkLocalWithoutScope",
     KEL_AF_INET6,
     40000,
     "fe80::1",
     0,
     nullptr,
     "0a009c4000000000fe800000000000000000000000000001",
     {"inet_pton(10, fe80::1) = 1"}},

    {"Path", KEL_AF_UNIX, 80, "/run/app", 3, "eth0", path_digits("/run/app"), {"KEL_StrnCpy(/run/app, 108)"}},
    {"PathEmpty", KEL_AF_UNIX, 0, "", 0, nullptr, "0100", {"KEL_StrnCpy(, 108)"}},
    {"PathOf107", KEL_AF_UNIX, 0, path_107, 0, nullptr, path_digits(path_107), {"KEL_StrnCpy(" + path_107 + ", 108)"}},
    {"PathOf108WithoutNul",
     KEL_AF_UNIX,
     0,
     path_108,
     0,
     nullptr,
     path_digits(path_108),
     {"KEL_StrnCpy(" + path_108 + ", 108)"}},
    {"PathOf109IsCut",
     KEL_AF_UNIX,
     0,
     path_108 + "q",
     0,
     nullptr,
     path_digits(path_108),
     {"KEL_StrnCpy(" + path_108 + "q, 108)"}},

    /* The hardware address length, the twelfth byte, is 0: the low byte of 6 in network order. */
    {"Packet", KEL_AF_PACKET, 80, "text", 3, "eth0", "1100000307000000", interface_query("eth0", "eth0")},
    {"PacketProtocolAbove32767", KEL_AF_PACKET, 0, "", 0x88cc, "eth0", "110088cc07000000",
     interface_query("eth0", "eth0")},
    {"PacketHighestProtocol", KEL_AF_PACKET, 0, "", 0xffff, "eth0", "1100ffff07000000",
     interface_query("eth0", "eth0")},
    {"PacketInterfaceOf15", KEL_AF_PACKET, 0, "", 0, "interface012345", "1100000007000000",
     interface_query("interface012345", "interface012345")},
    {"PacketInterfaceOf16WithoutNul", KEL_AF_PACKET, 0, "", 0, "interface0123456", "1100000007000000",
     interface_query("interface0123456", "interface0123456")},
    {"PacketInterfaceOf17IsCut", KEL_AF_PACKET, 0, "", 0, "interface01234567", "1100000007000000",
     interface_query("interface01234567", "interface0123456")},
};

INSTANTIATE_TEST_SUITE_P(AddressConstruction, AddressFill, testing::ValuesIn(fillings), row_name<Filling>);

TEST(AddressFill, UsesNoTextForPacketsAndNoInterfaceForTheOthers)
{
    kel_sockaddr_t address;
    sys::Recording recording;

    EXPECT_EQ(kel_addr_fill(5, &address, KEL_AF_PACKET, 0, NULL, 3, "eth0"), KEL_OK);
    EXPECT_EQ(kel_addr_fill(5, &address, KEL_AF_INET, 0, "1.2.3.4", 0, NULL), KEL_OK);
    EXPECT_EQ(kel_addr_fill(5, &address, KEL_AF_INET6, 0, "::1", 0, NULL), KEL_OK);
    EXPECT_EQ(kel_addr_fill(5, &address, KEL_AF_UNIX, 0, "/run/app", 0, NULL), KEL_OK);
    EXPECT_EQ(kel_addr_fill(5, &address, (kel_domain_t)3, 0, NULL, 0, NULL), KEL_OK);
}

TEST(AddressFill, CutsTheDescriptorTo32Bits)
{
    kel_sockaddr_t address;
    sys::Recording recording;

    EXPECT_EQ(kel_addr_fill(0x100000005, &address, KEL_AF_PACKET, 0, NULL, 3, "eth0"), KEL_OK);

    EXPECT_EQ(recording.trace().back(), "ioctl(5, SIOCGIFINDEX, eth0, zero) = 0");
}

/* ---- The hardware address --------------------------------------------------------------------------------------- */

UCHAR hardware[6];

constexpr const char *query_socket = "socket(17, 3, 0) = 70";
constexpr const char *no_socket = "socket() failed to get socket descriptor for using ioctl() ";
constexpr const char *no_address = "ioctl() failed to get source MAC address ";

const std::vector<FailureCase> hardware_failures = {
    null_argument("HardwareNullInterface", null_check("kel_get_if_mac_addr", "ifName"), {},
                  [] { return kel_get_if_mac_addr(NULL, hardware); }),
    null_argument("HardwareNullAddress", null_check("kel_get_if_mac_addr", "addr"), {},
                  [] { return kel_get_if_mac_addr("eth0", NULL); }),
    null_argument("HardwareNullInterfaceFirst", null_check("kel_get_if_mac_addr", "ifName"), {},
                  [] { return kel_get_if_mac_addr(NULL, NULL); }),
    {"HardwareWithoutPrivilege",
     [] { return kel_get_if_mac_addr("eth0", hardware); },
     {{"socket", sys::fail(EPERM)}},
     {"KEL_MemSet(set, 0, 40)", "socket(17, 3, 0) = -1 errno 1"},
     failed_step("kel_get_if_mac_addr", no_socket, EPERM),
     {}},
    {"HardwareAnyNegativeSocket",
     [] { return kel_get_if_mac_addr("eth0", hardware); },
     {{"socket", sys::ok(-2)}},
     {"KEL_MemSet(set, 0, 40)", "socket(17, 3, 0) = -2"},
     failed_step("kel_get_if_mac_addr", no_socket, 0),
     {}},
    {"HardwareUnknownInterface",
     [] { return kel_get_if_mac_addr("nosuch0", hardware); },
     {{"ioctl", sys::fail(ENODEV)}},
     {"KEL_MemSet(set, 0, 40)", query_socket, "KEL_Snprintf(16, %s)",
      "ioctl(70, SIOCGIFHWADDR, nosuch0, zero) = -1 errno 19"},
     failed_step("kel_get_if_mac_addr", no_address, ENODEV),
     {"close(70) = 0"}},
    {"HardwareAnyNegativeQuery",
     [] { return kel_get_if_mac_addr("eth0", hardware); },
     {{"ioctl", sys::ok(-2)}},
     {"KEL_MemSet(set, 0, 40)", query_socket, "KEL_Snprintf(16, %s)", "ioctl(70, SIOCGIFHWADDR, eth0, zero) = -2"},
     failed_step("kel_get_if_mac_addr", no_address, 0),
     {"close(70) = 0"}},
};

INSTANTIATE_TEST_SUITE_P(HardwareAddress, Failure, in_every_way(hardware_failures), filtered_name<FailureCase>);

TEST(HardwareAddress, IsUntouchedByAFailure)
{
    for (const char *call : {"socket", "ioctl"}) {
        UCHAR address[8];
        memset(address, 0xa5, sizeof(address));
        sys::Recording recording(sys::fail_first(call, sys::fail(EPERM)));

        EXPECT_EQ(kel_get_if_mac_addr("eth0", address), KEL_ERROR);

        EXPECT_EQ(sys::hex(address, sizeof(address)), "a5a5a5a5a5a5a5a5");
    }
}

TEST(HardwareAddress, LeavesTheErrnoOfACloseThatFailsAfterTheQuery)
{
    sys::Recording recording(failing({{"ioctl", sys::fail(ENODEV)}, {"close", sys::fail(EIO)}}));

    EXPECT_EQ(kel_get_if_mac_addr("nosuch0", hardware), KEL_ERROR);

    EXPECT_EQ(errno, EIO);
}

TEST(HardwareAddress, TakesAnInterfaceNameCutTo15Characters)
{
    for (const char *name : {"interface012345", "interface0123456", "interface01234567"}) {
        sys::Recording recording;

        EXPECT_EQ(kel_get_if_mac_addr(name, hardware), KEL_OK);

        EXPECT_EQ(recording.trace().at(3), "ioctl(70, SIOCGIFHWADDR, interface012345, zero) = 0");
    }
}

TEST(HardwareAddress, ComesThroughDescriptorZeroAsWellAsAnyOther)
{
    sys::Recording recording(failing({{"socket", sys::ok(0)}, {"ioctl", sys::ok(1)}}));

    EXPECT_EQ(kel_get_if_mac_addr("eth0", hardware), KEL_OK);

    EXPECT_EQ(recording.trace(),
              (sys::Trace{"KEL_MemSet(set, 0, 40)", "socket(17, 3, 0) = 0", "KEL_Snprintf(16, %s)",
                          "ioctl(0, SIOCGIFHWADDR, eth0, zero) = 1", "close(0) = 0", "KEL_MemCpy(set, set, 6)"}));
    EXPECT_TRUE(recording.open().empty());
}

TEST(HardwareAddress, IsCopiedAfterTheQuerySocketIsClosed)
{
    UCHAR address[8];
    memset(address, 0xa5, sizeof(address));
    sys::Recording recording;

    EXPECT_EQ(kel_get_if_mac_addr("eth%s", address), KEL_OK);

    EXPECT_EQ(recording.trace(),
              (sys::Trace{"KEL_MemSet(set, 0, 40)", query_socket, "KEL_Snprintf(16, %s)",
                          "ioctl(70, SIOCGIFHWADDR, eth%s, zero) = 0", "close(70) = 0", "KEL_MemCpy(set, set, 6)"}));
    EXPECT_EQ(sys::hex(address, sizeof(address)), "02005e102030a5a5");
    EXPECT_TRUE(recording.open().empty());
}

} // namespace
