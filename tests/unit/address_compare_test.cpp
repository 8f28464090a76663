/* Address comparison: which bytes of two records make them differ, and in which order they are looked at. */
#include "failure.h"

#include <string.h>

namespace
{

kel_sockaddr_t any_record;

const std::vector<FailureCase> null_records = {
    null_argument("FirstNull", null_check("kel_sock_addr_cmp", "addr1"), {},
                  [] { return kel_sock_addr_cmp(NULL, &any_record, 0); }),
    null_argument("SecondNull", null_check("kel_sock_addr_cmp", "addr2"), {},
                  [] { return kel_sock_addr_cmp(&any_record, NULL, 0); }),
    null_argument("BothNull", null_check("kel_sock_addr_cmp", "addr1"), {},
                  [] { return kel_sock_addr_cmp(NULL, NULL, 1); }),
};

INSTANTIATE_TEST_SUITE_P(AddressComparison, Failure, in_every_way(null_records), filtered_name<FailureCase>);

/* ---- Byte by byte ----------------------------------------------------------------------------------------------- */

struct Family {
    const char *name;
    int family;
    size_t end;      /* bytes 2 to here are compared, and no others */
    size_t port_end; /* of those, bytes 2 to here are the port that can be ignored */
    const char *call;
};

class ComparedBytes : public testing::TestWithParam<Family>
{
  protected:
    ComparedBytes()
    {
        first = blank(GetParam().family);
        memcpy(first.un.sun_path, "/run/app", 8); /* the bytes of the other families' fields as well */
        second = first;
    }

    kel_sockaddr_t first, second;
};

TEST_P(ComparedBytes, AloneMakeADifference)
{
    for (BOOL ignPort : {0, 1, -256}) {
        for (size_t byte = 0; byte < sizeof(second); byte++) {
            sys::Recording recording;
            const bool ignored = byte >= 2 && (byte >= GetParam().end || (ignPort != 0 && byte < GetParam().port_end));
            char &changed = reinterpret_cast<char *>(&second)[byte];
            changed ^= 1;

            EXPECT_EQ(kel_sock_addr_cmp(&first, &second, ignPort), ignored ? KEL_OK : KEL_ERROR) << byte;
            EXPECT_EQ(kel_sock_addr_cmp(&second, &first, ignPort), ignored ? KEL_OK : KEL_ERROR) << byte;

            changed ^= 1;
        }
    }
}

TEST_P(ComparedBytes, AreOnlyRead)
{
    const std::string before = bytes_of(first);
    sys::Recording recording;

    EXPECT_EQ(kel_sock_addr_cmp(&first, &second, 0), KEL_OK);

    EXPECT_EQ(recording.trace(), GetParam().call != nullptr ? sys::Trace{GetParam().call} : sys::Trace{});
    EXPECT_EQ(bytes_of(first), before);
    EXPECT_EQ(bytes_of(second), before);
}

const Family families[] = {
    {"Ipv4", KEL_AF_INET, 8, 4, "KEL_MemCmp(set, set, 4)"},
    {"Path", KEL_AF_UNIX, 11, 0, "KEL_StrCmp(/run/app, /run/app)"}, /* up to its NUL */
    {"Packet", KEL_AF_PACKET, 8, 0, nullptr},                       /* its protocol is no port */
};

INSTANTIATE_TEST_SUITE_P(AddressComparison, ComparedBytes, testing::ValuesIn(families), row_name<Family>);

/* The bytes of an IPv6 record that count are in two pieces: the flow is between port and address. */
TEST(Ipv6Comparison, LooksAtPortAndAddressButNotAtFlowOrScope)
{
    for (BOOL ignPort : {0, 1, -256}) {
        for (size_t byte = 0; byte < sizeof(kel_sockaddr_t); byte++) {
            kel_sockaddr_t first = inet6_address("2001:db8::7", 80);
            kel_sockaddr_t second = first;
            reinterpret_cast<char *>(&second)[byte] ^= 1;
            const bool port = byte == 2 || byte == 3;
            const bool counts = byte < 2 || (port && ignPort == 0) || (byte >= 8 && byte < 24);
            sys::Recording recording;

            EXPECT_EQ(kel_sock_addr_cmp(&first, &second, ignPort), counts ? KEL_ERROR : KEL_OK) << byte;
        }
    }
}

/* ---- In order, in silence --------------------------------------------------------------------------------------- */

TEST(AddressComparison, HoldsRecordsOfNoKnownFamilyForDifferent)
{
    for (int family : {0, 3, 16, 0x0102, 0xffff}) {
        kel_sockaddr_t record = blank(family);
        sys::Recording recording;

        EXPECT_EQ(kel_sock_addr_cmp(&record, &record, 1), KEL_ERROR);

        EXPECT_EQ(recording.trace(), sys::Trace{});
    }
}

TEST(AddressComparison, HoldsAnIpv4AddressAndItsMappedFormForDifferent)
{
    kel_sockaddr_t four = inet_address("10.0.0.1", 80);
    kel_sockaddr_t mapped = inet6_address("::ffff:10.0.0.1", 80);
    sys::Recording recording;

    EXPECT_EQ(kel_sock_addr_cmp(&four, &mapped, 1), KEL_ERROR);

    EXPECT_EQ(recording.trace(), sys::Trace{});
}

TEST(AddressComparison, HoldsAnyTwoAbstractLocalNamesForTheSame)
{
    kel_sockaddr_t first = blank(KEL_AF_UNIX), second = first;
    strcpy(first.un.sun_path + 1, "one");
    strcpy(second.un.sun_path + 1, "two");

    EXPECT_EQ(kel_sock_addr_cmp(&first, &second, 0), KEL_OK);
}

TEST(AddressComparison, LooksAtThePortFirstUnlessToldToIgnoreIt)
{
    struct {
        kel_sockaddr_t first, second;
        const char *call;
    } rows[] = {{inet_address("10.0.0.1", 80), inet_address("10.0.0.1", 81), "KEL_MemCmp(set, set, 4)"},
                {inet6_address("::1", 80), inet6_address("::1", 81), "KEL_MemCmp(set, set, 16)"}};
    for (auto &row : rows) {
        sys::Recording recording;

        EXPECT_EQ(kel_sock_addr_cmp(&row.first, &row.second, 0), KEL_ERROR);
        EXPECT_EQ(recording.trace(), sys::Trace{});

        EXPECT_EQ(kel_sock_addr_cmp(&row.first, &row.second, 1), KEL_OK);
        EXPECT_EQ(recording.trace(), sys::Trace{row.call});
    }
}

TEST(AddressComparison, TakesRecordsThatAreFilledAlikeForTheSame)
{
    kel_sockaddr_t first = inet6_address("fe80::1", 80);
    kel_sockaddr_t second = inet6_address("fe80::1", 80);
    sys::Recording recording;

    EXPECT_EQ(kel_sock_addr_cmp(&first, &second, 0), KEL_OK);

    EXPECT_EQ(recording.trace(), sys::Trace{"KEL_MemCmp(set, set, 16)"});
}

} // namespace
