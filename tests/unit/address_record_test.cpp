/* Address records, over every value of their two bytes of family and of their two bytes of port or protocol. */
#include "records.h"

#include <arpa/inet.h>
#include <string.h>

namespace
{

LONG length_of(int family)
{
    switch (family) {
    case 1:
        return 110;
    case 2:
        return 16;
    case 10:
        return 28;
    case 17:
        return 20;
    default:
        return 0;
    }
}

bool same(const kel_sockaddr_t &left, const kel_sockaddr_t &right)
{
    return memcmp(&left, &right, sizeof(left)) == 0;
}

TEST(Families, AreKnownByAllOfTheirBits)
{
    for (int family = 0; family <= 0xffff; family++) {
        kel_sockaddr_t record = poisoned();
        record.sa.sa_family = (sa_family_t)family;
        ASSERT_EQ(kel_sizeof_socket(&record), length_of(family)) << family;

        if (length_of(family) == 0) {
            CHAR str[] = "untouched";
            kel_sockaddr_t filled = poisoned();
            ASSERT_STREQ(kel_addr_showstr(&record, str, sizeof(str)), "null") << family;
            ASSERT_STREQ(str, "untouched") << family;
            ASSERT_EQ(kel_addr_fill(5, &filled, (kel_domain_t)family, 80, "1.2.3.4", 3, "lo"), KEL_OK) << family;
            ASSERT_TRUE(same(filled, blank(0))) << family;
            ASSERT_EQ(kel_inet_pton(family, "1.2.3.4", &filled), KEL_ERROR) << family;
            ASSERT_EQ(kel_inet_ntop(family, &record, str, sizeof(str)), nullptr) << family;
        }
    }
}

TEST(Ports, AreFilledInAndShownOverTheirWholeRange)
{
    kel_sockaddr_t four = inet_address("10.1.2.3", 0), six = inet6_address("::1", 0), packet = blank(KEL_AF_PACKET);
    for (int port = 0; port <= 0xffff; port++) {
        const std::string number = std::to_string(port);
        char hexadecimal[8];
        snprintf(hexadecimal, sizeof(hexadecimal), "%x", (unsigned)port);
        kel_sockaddr_t filled_four, filled_six;
        CHAR str[100];
        four.sin.sin_port = six.sin6.sin6_port = packet.raw.sll_protocol = htons((uint16_t)port);

        ASSERT_EQ(kel_addr_fill(0, &filled_four, KEL_AF_INET, (SHORT)port, "10.1.2.3", 0, NULL), KEL_OK);
        ASSERT_EQ(kel_addr_fill(0, &filled_six, KEL_AF_INET6, (SHORT)port, "::1", 0, NULL), KEL_OK);

        ASSERT_TRUE(same(filled_four, four) && same(filled_six, six)) << port;
        ASSERT_EQ(kel_addr_showstr(&four, str, sizeof(str)), "ipv4 10.1.2.3:" + number);
        ASSERT_EQ(kel_addr_showstr(&six, str, sizeof(str)), "ipv6 ::1:" + number);
        ASSERT_EQ(kel_addr_showstr(&packet, str, sizeof(str)), std::string("ifindex 0,protocol 0x") + hexadecimal);
    }
}

} // namespace
