/* Descriptors and options. */
#include "failure.h"

#include <errno.h>

namespace
{

int value;
socklen_t value_length = sizeof(value);

constexpr const char *reuse_failed = "setsockopt(70, 1, 2, 01000000, 4) = -1 errno 92";

constexpr const char *reused = "setsockopt(70, 1, 2, 01000000, 4) = 0";
constexpr const char *step = "setsockopt socket"; /* of both options */

const std::vector<FailureCase> failures = {
    {"SocketReuseOption",
     [] { return kel_socket(KEL_AF_INET, KEL_SOCK_STREAM, 0); },
     {{"setsockopt", sys::fail(ENOPROTOOPT)}},
     {"socket(2, 1, 0) = 70", reuse_failed},
     failed_step("kel_socket", step, ENOPROTOOPT),
     {"close(70) = 0"}},
    {"SocketReuseOptionOfIpv6",
     [] { return kel_socket(KEL_AF_INET6, KEL_SOCK_STREAM, 0); },
     {{"setsockopt", sys::fail(ENOPROTOOPT)}},
     {"socket(10, 1, 0) = 70", reuse_failed},
     failed_step("kel_socket", step, ENOPROTOOPT),
     {"close(70) = 0"}},
    {"SocketReuseOptionAnyNegativeResult",
     [] { return kel_socket(KEL_AF_INET, KEL_SOCK_STREAM, 0); },
     {{"setsockopt", sys::ok(-2)}},
     {"socket(2, 1, 0) = 70", "setsockopt(70, 1, 2, 01000000, 4) = -2"},
     failed_step("kel_socket", step, 0),
     {"close(70) = 0"}},
    {"SocketIpv6Option",
     [] { return kel_socket(KEL_AF_INET6, KEL_SOCK_DGRAM, 0); },
     {{"setsockopt", sys::fail(ENOPROTOOPT), 2}},
     {"socket(10, 2, 0) = 70", reused, "setsockopt(70, 41, 26, 01000000, 4) = -1 errno 92"},
     failed_step("kel_socket", step, ENOPROTOOPT),
     {"close(70) = 0"}},
    {"SocketIpv6OptionAnyNegativeResult",
     [] { return kel_socket(KEL_AF_INET6, KEL_SOCK_DGRAM, 0); },
     {{"setsockopt", sys::ok(-2), 2}},
     {"socket(10, 2, 0) = 70", reused, "setsockopt(70, 41, 26, 01000000, 4) = -2"},
     failed_step("kel_socket", step, 0),
     {"close(70) = 0"}},

    null_argument("GetsockoptNullValue", null_check("kel_getsockopt", "optval"), {},
                  [] { return kel_getsockopt(5, 1, 2, NULL, &value_length); }),
    null_argument("GetsockoptNullLength", null_check("kel_getsockopt", "optlen"), {},
                  [] { return kel_getsockopt(5, 1, 2, &value, NULL); }),
    null_argument("GetsockoptNullValueFirst", null_check("kel_getsockopt", "optval"), {},
                  [] { return kel_getsockopt(5, 1, 2, NULL, NULL); }),
    null_argument("SetsockoptNullValue", null_check("kel_setsockopt", "optval"), {},
                  [] { return kel_setsockopt(5, 1, 2, NULL, 4); }),
};

INSTANTIATE_TEST_SUITE_P(Descriptors, Failure, in_every_way(failures), filtered_name<FailureCase>);

TEST(Socket, IsSilentWhenTheSystemRefusesIt)
{
    sys::Recording recording(sys::fail_first("socket", sys::fail(EAFNOSUPPORT)));

    EXPECT_EQ(kel_socket((kel_domain_t)99, (kel_socktype_t)77, 0), KEL_ERROR);

    EXPECT_EQ(errno, EAFNOSUPPORT);
    EXPECT_EQ(recording.trace(), sys::Trace{"socket(99, 77, 0) = -1 errno 97"});
}

TEST(Socket, LeavesTheErrnoOfACloseThatFailsAfterAnOption)
{
    for (int nth : {1, 2}) {
        sys::Recording recording(failing({{"setsockopt", sys::fail(ENOPROTOOPT), nth}, {"close", sys::fail(EIO)}}));

        EXPECT_EQ(kel_socket(KEL_AF_INET6, KEL_SOCK_STREAM, 0), KEL_ERROR);

        EXPECT_EQ(errno, EIO);
    }
}

TEST(Socket, TakesOnlyMinusOneForAFailedSocketAndOnlyNegativesForAFailedOption)
{
    sys::Recording recording(
        failing({{"socket", sys::ok(-2)}, {"setsockopt", sys::ok(1)}, {"setsockopt", sys::ok(7), 2}}));

    EXPECT_EQ(kel_socket(KEL_AF_INET6, KEL_SOCK_STREAM, 0), -2);

    EXPECT_EQ(recording.trace(), (sys::Trace{"socket(10, 1, 0) = -2", "setsockopt(-2, 1, 2, 01000000, 4) = 1",
                                             "setsockopt(-2, 41, 26, 01000000, 4) = 7"}));
}

TEST(Socket, MayBeDescriptorZero)
{
    sys::Recording recording(sys::fail_first("socket", sys::ok(0)));

    EXPECT_EQ(kel_socket(KEL_AF_INET, KEL_SOCK_STREAM, 0), 0);

    EXPECT_EQ(recording.trace(), (sys::Trace{"socket(2, 1, 0) = 0", "setsockopt(0, 1, 2, 01000000, 4) = 0"}));
}

TEST(Socket, CutsItsProtocolTo32Bits)
{
    for (const auto &row : {std::make_pair(0x100000084L, "132"), std::make_pair(-1L, "-1")}) {
        sys::Recording recording;

        EXPECT_EQ(kel_socket(KEL_AF_INET, KEL_SOCK_STREAM, row.first), 70);

        EXPECT_EQ(recording.trace().front(), std::string("socket(2, 1, ") + row.second + ") = 70");
    }
}

TEST(Socket, CarriesItsOptionsForEveryFamilyAndType)
{
    for (int family : {1, 2, 10, 17, 3}) {
        for (int type : {1, 2, 3, 5}) {
            sys::Recording recording;

            EXPECT_EQ(kel_socket((kel_domain_t)family, (kel_socktype_t)type, 6), 70);

            EXPECT_EQ(recording.trace(), created(family, type, 6));
            EXPECT_EQ(recording.open(), std::set<int>{70});
        }
    }
}

TEST(Options, ReturnTheSystemsResultInSilence)
{
    sys::name_pointer(&value, "value");
    sys::name_pointer(&value_length, "length");
    for (long result : {-1, -2, 0, 3}) {
        sys::Recording recording(failing({{"getsockopt", {result, ENOPROTOOPT}}, {"setsockopt", {result, EINVAL}}}));
        const std::string answer = ") = " + std::to_string(result);
        value = 1;

        EXPECT_EQ(kel_getsockopt(5, 1, 99, &value, &value_length), result);
        EXPECT_EQ(errno, ENOPROTOOPT);
        EXPECT_EQ(kel_setsockopt(5, 1, 99, &value, 4), result);
        EXPECT_EQ(errno, EINVAL);

        EXPECT_EQ(recording.trace(), (sys::Trace{"getsockopt(5, 1, 99, value, length" + answer + " errno 92",
                                                 "setsockopt(5, 1, 99, 01000000, 4" + answer + " errno 22"}));
    }
}

TEST(Options, CutDescriptorLevelAndNameTo32Bits)
{
    sys::name_pointer(&value, "value");
    sys::name_pointer(&value_length, "length");
    sys::Recording recording;
    value = 2;

    EXPECT_EQ(kel_getsockopt(0x100000005, 0x100000006, 0x100000007, &value, &value_length), 0);
    EXPECT_EQ(kel_setsockopt(0x100000005, 0x100000006, 0x100000007, &value, 2), 0);
    EXPECT_EQ(kel_setsockopt(0, -1, -2, &value, 0), 0);

    EXPECT_EQ(recording.trace(), (sys::Trace{"getsockopt(5, 6, 7, value, length) = 0",
                                             "setsockopt(5, 6, 7, 0200, 2) = 0", "setsockopt(0, -1, -2, , 0) = 0"}));
}

TEST(Close, ReturnsTheSystemsResultInSilence)
{
    for (long result : {-1, -2, 0, 3}) {
        sys::Recording recording(sys::fail_first("close", {result, EBADF}));

        EXPECT_EQ(kel_close(5), result);

        EXPECT_EQ(errno, EBADF);
        EXPECT_EQ(recording.trace(), sys::Trace{"close(5) = " + std::to_string(result) + " errno 9"});
    }
}

TEST(Close, PassesAnyDescriptorCutTo32Bits)
{
    sys::Recording recording;

    EXPECT_EQ(kel_close(0), 0);
    EXPECT_EQ(kel_close(-1), 0);
    EXPECT_EQ(kel_close(0x100000005), 0);

    EXPECT_EQ(recording.trace(), (sys::Trace{"close(0) = 0", "close(-1) = 0", "close(5) = 0"}));
}

} // namespace
