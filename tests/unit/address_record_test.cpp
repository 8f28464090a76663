/* The address record, the enumerations, and the length that belongs to each family. */
#include "failure.h"

#include <arpa/inet.h>
#include <stddef.h>
#include <string.h>
#include <type_traits>

namespace
{

TEST(Families, AreTheSystemsValues)
{
    EXPECT_EQ(KEL_AF_UNIX, 1);
    EXPECT_EQ(KEL_AF_INET, 2);
    EXPECT_EQ(KEL_AF_INET6, 10);
    EXPECT_EQ(KEL_AF_PACKET, 17);
    static_assert(std::is_same<kel_domain_t, enum kel_domain_e>::value);
}

TEST(SocketTypes, AreTheSystemsValues)
{
    EXPECT_EQ(KEL_SOCK_STREAM, 1);
    EXPECT_EQ(KEL_SOCK_DGRAM, 2);
    EXPECT_EQ(KEL_SOCK_RAW, 3);
    EXPECT_EQ(KEL_SOCK_SEQPACKET, 5);
    static_assert(std::is_same<kel_socktype_t, enum kel_socktype_e>::value);
}

TEST(AddressRecord, IsAUnionOfTheSystemsRecords)
{
    static_assert(std::is_same<kel_sockaddr_t, union kel_sockaddr_u>::value);
    static_assert(std::is_same<decltype(kel_sockaddr_t::sa), struct sockaddr>::value);
    static_assert(std::is_same<decltype(kel_sockaddr_t::sin), struct sockaddr_in>::value);
    static_assert(std::is_same<decltype(kel_sockaddr_t::sin6), struct sockaddr_in6>::value);
    static_assert(std::is_same<decltype(kel_sockaddr_t::un), struct sockaddr_un>::value);
    static_assert(std::is_same<decltype(kel_sockaddr_t::raw), struct sockaddr_ll>::value);

    EXPECT_EQ(sizeof(kel_sockaddr_t), 112u);
    EXPECT_EQ(offsetof(kel_sockaddr_t, sa), 0u);
    EXPECT_EQ(offsetof(kel_sockaddr_t, sin), 0u);
    EXPECT_EQ(offsetof(kel_sockaddr_t, sin6), 0u);
    EXPECT_EQ(offsetof(kel_sockaddr_t, un), 0u);
    EXPECT_EQ(offsetof(kel_sockaddr_t, raw), 0u);
}

TEST(AddressRecord, ReadsTheFamilyOfEveryMemberThroughOneField)
{
    kel_sockaddr_t record = poisoned();
    record.sin.sin_family = 2;
    EXPECT_EQ(record.sa.sa_family, 2);
    record.sin6.sin6_family = 10;
    EXPECT_EQ(record.sa.sa_family, 10);
    record.un.sun_family = 1;
    EXPECT_EQ(record.sa.sa_family, 1);
    record.raw.sll_family = 17;
    EXPECT_EQ(record.sa.sa_family, 17);
}

TEST(Wildcards, AreTheTextsOfTheAnyAddresses)
{
    EXPECT_STREQ(IPV4_ANY_STR, "0.0.0.0");
    EXPECT_STREQ(IPV6_ANY_STR, "::");
}

struct Length {
    const char *name;
    int family;
    LONG length;
};

class RecordLength : public testing::TestWithParam<Length>
{
};

TEST_P(RecordLength, DependsOnTheFamilyFieldAlone)
{
    for (int fill : {0x00, 0xa5}) {
        kel_sockaddr_t record;
        memset(&record, fill, sizeof(record));
        record.sa.sa_family = (sa_family_t)GetParam().family;
        const std::string before = bytes_of(record);
        sys::Recording recording;

        EXPECT_EQ(kel_sizeof_socket(&record), GetParam().length);

        EXPECT_EQ(recording.trace(), sys::Trace{});
        EXPECT_EQ(bytes_of(record), before);
    }
}

const Length lengths[] = {
    {"None", 0, 0},
    {"Three", 3, 0},
    {"Nine", 9, 0},
    {"Eleven", 11, 0},
    {"Sixteen", 16, 0},
    {"Eighteen", 18, 0},
    {"LowByteAlone", 0x0102, 0}, /* all 16 bits count */
    {"Highest", 0xffff, 0},
    {"Unix", KEL_AF_UNIX, 110},
    {"Inet", KEL_AF_INET, 16},
    {"Inet6", KEL_AF_INET6, 28},
    {"Packet", KEL_AF_PACKET, 20},
};

INSTANTIATE_TEST_SUITE_P(AddressRecord, RecordLength, testing::ValuesIn(lengths), row_name<Length>);

} // namespace
