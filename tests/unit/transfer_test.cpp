/* Data transfer. */
#include "failure.h"

#include <errno.h>
#include <string.h>

namespace
{

char buffer[16];
kel_sockaddr_t partner = inet_address("10.1.2.3", 40000);

/* kel_raw_sendto up to the interface's hardware address, and to its index. */
const sys::Trace mac_found{"KEL_MemSet(set, 0, 40)", "socket(17, 3, 0) = 70",
                           "KEL_Snprintf(16, %s)",   "ioctl(70, SIOCGIFHWADDR, eth0, zero) = 0",
                           "close(70) = 0",          "KEL_MemCpy(set, set, 6)"};
const sys::Trace index_found = in_order({mac_found, "if_nametoindex(eth0) = 7"});

/* Family, protocol 0, index 7; hardware type, packet type and length 0; the interface's own address. */
constexpr const char *raw_record = "11000000070000000000000002005e1020300000";

LONG send_frame()
{
    return kel_raw_sendto(5, "eth0", buffer, 16, 0);
}

Report index_step(int error)
{
    const char *function = "kel_raw_sendto";
    const char *use = "kel_perror(\"get %s index\\r\\n\", ifName);";
    return {function, use, 1,
            [=](Filtered filtered) {
                return perror_report_with(function, use, "get %s index\r\n", "get eth0 index\r\n", error, filtered);
            },
            error};
}

const std::vector<FailureCase> failures = {
    null_argument("RecvfromNullBuffer", null_check("kel_recvfrom", "buf"), {},
                  [] { return kel_recvfrom(5, NULL, 16, 0, &partner); }),
    null_argument("RecvfromNullSender", null_check("kel_recvfrom", "src_addr"), {},
                  [] { return kel_recvfrom(5, buffer, 16, 0, NULL); }),
    null_argument("RecvfromNullBufferFirst", null_check("kel_recvfrom", "buf"), {},
                  [] { return kel_recvfrom(5, NULL, 16, 0, NULL); }),
    null_argument("SendtoNullBuffer", null_check("kel_sendto", "buf"), {},
                  [] { return kel_sendto(5, NULL, 16, 0, &partner); }),
    null_argument("SendtoNullReceiver", null_check("kel_sendto", "dest_addr"), {},
                  [] { return kel_sendto(5, buffer, 16, 0, NULL); }),
    null_argument("SendtoNullBufferFirst", null_check("kel_sendto", "buf"), {},
                  [] { return kel_sendto(5, NULL, 16, 0, NULL); }),

    {"FrameNullInterface",
     [] { return kel_raw_sendto(5, NULL, buffer, 16, 0); },
     {},
     unfiltered(null_check("kel_get_if_mac_addr", "ifName")),
     failed_step("kel_raw_sendto", "get mac addr", 0),
     {}},
    {"FrameWithoutPrivilege",
     send_frame,
     {{"socket", sys::fail(EPERM)}},
     in_order({"KEL_MemSet(set, 0, 40)", "socket(17, 3, 0) = -1 errno 1",
               unfiltered(failed_step("kel_get_if_mac_addr",
                                      "socket() failed to get socket descriptor for using ioctl() ", EPERM))}),
     failed_step("kel_raw_sendto", "get mac addr", EPERM),
     {}},
    {"FrameUnknownInterface",
     send_frame,
     {{"ioctl", sys::fail(ENODEV)}},
     in_order({"KEL_MemSet(set, 0, 40)", "socket(17, 3, 0) = 70", "KEL_Snprintf(16, %s)",
               "ioctl(70, SIOCGIFHWADDR, eth0, zero) = -1 errno 19",
               unfiltered(failed_step("kel_get_if_mac_addr", "ioctl() failed to get source MAC address ", ENODEV)),
               "close(70) = 0"}),
     failed_step("kel_raw_sendto", "get mac addr", ENODEV),
     {}},
    {"FrameInterfaceWithoutIndex",
     send_frame,
     {{"if_nametoindex", {0, ENODEV}}},
     in_order({mac_found, "if_nametoindex(eth0) = 0 errno 19"}),
     index_step(ENODEV),
     {}},
    {"FrameNullBuffer",
     [] { return kel_raw_sendto(5, "eth0", NULL, 16, 0); },
     {},
     index_found,
     null_check("kel_sendto", "buf"),
     {}},
};

INSTANTIATE_TEST_SUITE_P(Transfer, Failure, in_every_way(failures), filtered_name<FailureCase>);

/* ---- Connected sockets: 64-bit counts --------------------------------------------------------------------------- */

struct Count {
    const char *name;
    long counted;
    LONG result;
};

class WideCount : public testing::TestWithParam<Count>
{
};

TEST_P(WideCount, IsReturnedAsItIsInSilence)
{
    sys::name_pointer(buffer, "buffer");
    const std::string answer = ") = " + std::to_string(GetParam().counted) + " errno 104";
    sys::Recording recording(
        failing({{"recv", {GetParam().counted, ECONNRESET}}, {"send", {GetParam().counted, ECONNRESET}}}));

    EXPECT_EQ(kel_recv(5, buffer, 16, 0), GetParam().result);
    EXPECT_EQ(kel_send(5, buffer, 16, 0), GetParam().result);

    EXPECT_EQ(errno, ECONNRESET);
    EXPECT_EQ(recording.trace(), (sys::Trace{"recv(5, buffer, 16, 0" + answer, "send(5, buffer, 16, 0" + answer}));
}

const Count wide_counts[] = {{"Failure", -1, KEL_ERROR},
                             {"MinusTwo", -2, -2},
                             {"MinusOneIn32Bits", 4294967295, 4294967295},
                             {"BeyondTheSignOf32Bits", 0x80000000, 2147483648},
                             {"Beyond32Bits", 0x100000005, 4294967301},
                             {"EndOfStream", 0, 0},
                             {"Some", 7, 7}};

INSTANTIATE_TEST_SUITE_P(Transfer, WideCount, testing::ValuesIn(wide_counts), row_name<Count>);

TEST(ConnectedTransfer, PassesANullBufferToTheSystem)
{
    sys::Recording recording(failing({{"recv", sys::fail(EFAULT)}, {"send", sys::fail(EFAULT)}}));

    EXPECT_EQ(kel_recv(0, NULL, 16, 0), KEL_ERROR);
    EXPECT_EQ(kel_send(0, NULL, 16, 0), KEL_ERROR);

    EXPECT_EQ(recording.trace(),
              (sys::Trace{"recv(0, null, 16, 0) = -1 errno 14", "send(0, null, 16, 0) = -1 errno 14"}));
}

TEST(ConnectedTransfer, CutsDescriptorAndFlagsTo32BitsAndKeepsTheLength)
{
    sys::name_pointer(buffer, "buffer");
    sys::Recording recording;

    EXPECT_EQ(kel_recv(0x100000005, buffer, 0x100000010, 0x100000040), 0x100000010);
    EXPECT_EQ(kel_send(0x100000005, buffer, 0x100000010, 0x80004000), 0x100000010);

    EXPECT_EQ(recording.trace(), (sys::Trace{"recv(5, buffer, 4294967312, 64) = 4294967312",
                                             "send(5, buffer, 4294967312, -2147467264) = 4294967312"}));
}

/* ---- Datagrams: 32-bit counts ----------------------------------------------------------------------------------- */

class NarrowCount : public testing::TestWithParam<Count>
{
};

TEST_P(NarrowCount, PassesThrough32BitsInSilence)
{
    kel_sockaddr_t sender;
    sys::name_pointer(buffer, "buffer");
    sys::name_pointer(&sender, "sender");
    const std::string answer = ") = " + std::to_string(GetParam().counted) + " errno 90";
    sys::Recording recording(
        failing({{"recvfrom", {GetParam().counted, EMSGSIZE}}, {"sendto", {GetParam().counted, EMSGSIZE}}}));

    EXPECT_EQ(kel_recvfrom(5, buffer, 16, 0, &sender), GetParam().result);
    EXPECT_EQ(kel_sendto(5, buffer, 16, 0, &partner), GetParam().result);

    EXPECT_EQ(errno, EMSGSIZE);
    EXPECT_EQ(recording.trace(),
              (sys::Trace{"recvfrom(5, buffer, 16, 0, sender, 112" + answer,
                          "sendto(5, buffer, 16, 0, 02009c400a0102030000000000000000, 16" + answer}));
}

const Count narrow_counts[] = {{"Failure", -1, KEL_ERROR},
                               {"MinusTwo", -2, -2},
                               {"MinusOneIn32Bits", 4294967295, KEL_ERROR},
                               {"BeyondTheSignOf32Bits", 0x80000000, -2147483648},
                               {"Beyond32Bits", 0x100000005, 5},
                               {"ZeroIn32Bits", 0x100000000, 0},
                               {"Highest", 0x7fffffff, 2147483647},
                               {"Empty", 0, 0},
                               {"Some", 7, 7}};

INSTANTIATE_TEST_SUITE_P(Transfer, NarrowCount, testing::ValuesIn(narrow_counts), row_name<Count>);

TEST(Datagrams, LeaveTheSendersRecordWhenNothingIsReceived)
{
    kel_sockaddr_t sender = poisoned();
    sys::Recording recording(sys::fail_first("recvfrom", sys::fail(EAGAIN)));

    EXPECT_EQ(kel_recvfrom(5, buffer, 16, 0, &sender), KEL_ERROR);

    EXPECT_EQ(bytes_of(sender), bytes_of(poisoned()));
}

TEST(Datagrams, FillTheSendersRecord)
{
    kel_sockaddr_t sender = poisoned();
    sys::name_pointer(buffer, "buffer");
    sys::name_pointer(&sender, "sender");
    sys::set_peer(inet_address("10.9.8.7", 65535), 16);
    sys::Recording recording;

    EXPECT_EQ(kel_recvfrom(0x100000005, buffer, 16, 0x100000040, &sender), 16);

    EXPECT_EQ(recording.trace(), sys::Trace{"recvfrom(5, buffer, 16, 64, sender, 112) = 16"});
    EXPECT_EQ(bytes_of(sender), "0200ffff0a0908070000000000000000" + bytes_of(poisoned()).substr(32));
}

TEST(Datagrams, PassTheReceiverWithTheLengthOfItsFamily)
{
    struct {
        int family;
        size_t length;
    } const rows[] = {{1, 110}, {2, 16}, {10, 28}, {17, 20}, {3, 0}};
    sys::name_pointer(buffer, "buffer");
    for (const auto &row : rows) {
        kel_sockaddr_t receiver = poisoned();
        receiver.sa.sa_family = (sa_family_t)row.family;
        const std::string before = bytes_of(receiver);
        sys::Recording recording;

        EXPECT_EQ(kel_sendto(0x100000005, buffer, 16, 0x100000040, &receiver), 16);

        EXPECT_EQ(recording.trace(), sys::Trace{"sendto(5, buffer, 16, 64, " + before.substr(0, 2 * row.length) + ", " +
                                                std::to_string(row.length) + ") = 16"});
        EXPECT_EQ(bytes_of(receiver), before);
    }
}

/* ---- Frames ----------------------------------------------------------------------------------------------------- */

TEST(Frames, FailInSilenceWhenTheSystemRefusesThem)
{
    sys::name_pointer(buffer, "buffer");
    sys::Recording recording(sys::fail_first("sendto", sys::fail(ENETDOWN)));

    EXPECT_EQ(send_frame(), KEL_ERROR);

    EXPECT_EQ(errno, ENETDOWN);
    EXPECT_EQ(recording.trace(),
              in_order({index_found, std::string("sendto(5, buffer, 16, 0, ") + raw_record + ", 20) = -1 errno 100"}));
    EXPECT_TRUE(recording.open().empty());
}

TEST(Frames, AskForTheInterfaceOnEveryCall)
{
    sys::name_pointer(buffer, "buffer");
    sys::Recording recording;

    EXPECT_EQ(send_frame(), 16);
    EXPECT_EQ(send_frame(), 16);

    long queries = 0;
    for (const std::string &call : recording.trace()) {
        queries += call.compare(0, 6, "ioctl(") == 0 || call.compare(0, 15, "if_nametoindex(") == 0;
    }
    EXPECT_EQ(queries, 4);
}

TEST(Frames, GoOutOfTheInterfaceFromItsOwnAddress)
{
    sys::name_pointer(buffer, "buffer");
    sys::Recording recording;

    EXPECT_EQ(kel_raw_sendto(0x100000005, "eth0", buffer, 16, 0x100000040), 16);

    EXPECT_EQ(recording.trace(),
              in_order({index_found, std::string("sendto(5, buffer, 16, 64, ") + raw_record + ", 20) = 16"}));
    EXPECT_TRUE(recording.open().empty());
}

} // namespace
