/* Address text: what the two checks accept, beside a recogniser that shares nothing with the patterns, and the lines.
 */
#include "recogniser.h"
#include "records.h"
#include "trace.h"

#include <algorithm>
#include <arpa/inet.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

namespace
{

/* ---- The checks, in bulk ---------------------------------------------------------------------------------------- */

bool converts(int family, const std::string &text)
{
    unsigned char binary[sizeof(struct in6_addr)];
    return inet_pton(family, text.c_str(), binary) == 1;
}

/* The system refuses leading zeros, which the check accepts. */
void expect_ipv4_as_recognised(std::string text)
{
    const bool expected = is_ipv4_text(text);
    if (kel_is_ipv4_addr(text.data()) != (expected ? KEL_TRUE : KEL_FALSE) || (converts(AF_INET, text) && !expected)) {
        ADD_FAILURE() << '"' << text << "\" is " << (expected ? "an" : "no") << " address";
    }
}

void expect_ipv6_as_recognised(std::string text)
{
    const bool expected = is_ipv6_text(text);
    if (kel_is_ipv6_addr(text.data()) != (expected ? KEL_TRUE : KEL_FALSE) ||
        (converts(AF_INET6, text) != expected && text != "::")) {
        ADD_FAILURE() << '"' << text << "\" is " << (expected ? "an" : "no") << " address";
    }
}

/*
 * 2,375 fields: every text of up to three digits (1, 10, 100 and 1,000), every one of three with a zero in front, and
 * five numbers with 22 characters in place of each of their 12 digits.
 */
std::vector<std::string> fields()
{
    std::vector<std::string> all{""};
    for (int digits = 1, end = 10; digits <= 4; digits++, end = std::min(10 * end, 1000)) {
        for (int number = 0; number < end; number++) {
            all.push_back(sys::text("%0*d", digits, number));
        }
    }
    for (const std::string number : {"1", "22", "199", "249", "255"}) {
        for (size_t i = 0; i < number.size(); i++) {
            for (char character : std::string("/:;. ,+-xXaAfFgG%\t\n@`_")) {
                all.push_back(number);
                all.back()[i] = character;
            }
        }
    }
    return all;
}

/* A text of four fields, one of which is given. */
std::string dotted(size_t position, const std::string &field)
{
    const char *const others[] = {"1", "22", "255", "0"};
    std::string text;
    for (size_t i = 0; i < 4; i++) {
        text += (i == 0 ? "" : ".") + (i == position ? field : others[i]);
    }
    return text;
}

TEST(Ipv4Check, AcceptsTheFieldsThatAreRecognised)
{
    EXPECT_EQ(4 * fields().size(), 9500u);
    for (const std::string &field : fields()) {
        for (size_t position = 0; position < 4; position++) {
            expect_ipv4_as_recognised(dotted(position, field));
        }
    }
}

TEST(Ipv4Check, AcceptsFourFields)
{
    for (const char *text : {"", "1", "1.2", "1.2.3", "1.2.3.4.5", ".1.2.3.4", "1.2.3.4.", "1,2,3,4", "::1"}) {
        expect_ipv4_as_recognised(text);
    }
}

/*
 * Texts of 0 to 9 groups, with a dotted tail or without, each part joined to the next by one colon or two, and with
 * none, one or two of them in front and behind: 9 * (1 + 511 without a tail + 1,023 with one) = 13,815.
 */
std::vector<std::string> ipv6_shapes()
{
    const std::string tail = "1.22.255.0";
    std::vector<std::string> parts{"", tail}, texts{"0"};
    for (const char *next : {"1f", "aBc", "FFFF", "9", "0000", "1a2", "12", "Cd", "a tenth"}) {
        std::vector<std::string> longer;
        for (const std::string &text : texts) {
            parts.insert(parts.end(), {text, text + ":" + tail, text + "::" + tail});
            longer.insert(longer.end(), {text + ":" + next, text + "::" + next});
        }
        texts = longer;
    }

    std::vector<std::string> shapes;
    for (const std::string &text : parts) {
        for (const char *front : {"", ":", "::"}) {
            for (const char *behind : {"", ":", "::"}) {
                shapes.push_back(front + text + behind);
            }
        }
    }
    return shapes;
}

TEST(Ipv6Check, AcceptsTheShapesThatAreRecognised)
{
    const std::vector<std::string> shapes = ipv6_shapes();
    EXPECT_EQ(shapes.size(), 13815u);
    for (const std::string &shape : shapes) {
        expect_ipv6_as_recognised(shape);
    }
}

/* In every shape of an address, each character replaced by each of these, by none, and by more digits. */
TEST(Ipv6Check, AcceptsTheCharactersThatAreRecognised)
{
    const char *const replacements[] = {"",  "0", "9", "a", "f", "A", "F", "g", "G",  "/",    "@",  "`",
                                        ":", ";", "%", "[", "]", " ", "-", ".", "\n", "0000", "1.2"};
    size_t addresses = 0;
    for (const std::string &shape : ipv6_shapes()) {
        if (is_ipv6_text(shape)) {
            addresses++;
            for (size_t i = 0; i <= shape.size(); i++) {
                for (const char *replacement : replacements) {
                    expect_ipv6_as_recognised(std::string(shape).replace(i, 1, replacement));
                }
            }
        }
    }
    EXPECT_EQ(addresses, 58u); /* one compression or none: 1 + 35, and 1 + 21 with a dotted tail */
}

TEST(Ipv6Check, AcceptsTheDottedTailsThatAreRecognised)
{
    for (const std::string &field : fields()) {
        for (size_t position = 0; position < 4; position++) {
            expect_ipv6_as_recognised("1:2:3:4:5:6:" + dotted(position, field));
            expect_ipv6_as_recognised("::" + dotted(position, field));
        }
    }
}

TEST(AddressChecks, AreEachOfOneFamily)
{
    CHAR ipv4[] = "10.1.2.3", ipv6[] = "fe80::1";

    EXPECT_EQ(kel_is_ipv4_addr(ipv4), KEL_TRUE);
    EXPECT_EQ(kel_is_ipv4_addr(ipv6), KEL_FALSE);
    EXPECT_EQ(kel_is_ipv6_addr(ipv4), KEL_FALSE);
    EXPECT_EQ(kel_is_ipv6_addr(ipv6), KEL_TRUE);
}

/* ---- Records as lines ------------------------------------------------------------------------------------------- */

std::string shown(kel_sockaddr_t record, size_t size = 128)
{
    CHAR str[128];
    memset(str, 'x', sizeof(str));
    EXPECT_EQ(kel_addr_showstr(&record, str, (LONG)size), str);
    EXPECT_EQ(std::string(str + size, sizeof(str) - size), std::string(sizeof(str) - size, 'x'));
    return std::string(str, strnlen(str, size));
}

kel_sockaddr_t with_path(const std::string &path)
{
    kel_sockaddr_t record = blank(KEL_AF_UNIX);
    memcpy(record.un.sun_path, path.data(), path.size());
    return record;
}

kel_sockaddr_t with_index(int index)
{
    kel_sockaddr_t record = blank(KEL_AF_PACKET);
    record.raw.sll_ifindex = index;
    return record;
}

TEST(Showstr, ShowsEveryKindOfAddress)
{
    EXPECT_EQ(shown(inet_address("255.255.255.255", 80)), "ipv4 255.255.255.255:80");
    EXPECT_EQ(shown(inet6_address("::", 80)), "ipv6 :::80");
    EXPECT_EQ(shown(inet6_address("1111:2222:3333:4444:5555:6666:7777:8888", 65535)),
              "ipv6 1111:2222:3333:4444:5555:6666:7777:8888:65535");
    EXPECT_EQ(shown(with_path("/run/%s%n")), "file /run/%s%n");
    EXPECT_EQ(shown(with_index(-1)), "ifindex -1,protocol 0x0");
    EXPECT_EQ(shown(with_index(2147483647)), "ifindex 2147483647,protocol 0x0");
}

TEST(Showstr, CutsAPathFrom95CharactersOn)
{
    for (size_t length = 0; length <= 108; length++) {
        const std::string path(length, 'p');
        EXPECT_EQ(shown(with_path(path)), "file " + path.substr(0, 94));
    }
}

TEST(Showstr, CopiesLikeStrncpyIntoTheCallersSize)
{
    const std::string line = "ipv4 10.1.2.3:5000";
    for (size_t size = 0; size <= 128; size++) {
        EXPECT_EQ(shown(inet_address("10.1.2.3", 5000), size), line.substr(0, size));
    }
}

/* A path without NUL at the end of readable memory: a reader that looked for one would fault. */
TEST(Showstr, ReadsNotBeyondAPathWithoutNul)
{
    const size_t page = (size_t)sysconf(_SC_PAGESIZE);
    char *memory =
        static_cast<char *>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(memory, MAP_FAILED);
    ASSERT_EQ(mprotect(memory + page, page, PROT_NONE), 0);
    kel_sockaddr_t *record = reinterpret_cast<kel_sockaddr_t *>(memory + page - sizeof(kel_sockaddr_t));
    memset(record, 'X', sizeof(*record)); /* also the two bytes behind the path */
    record->sa.sa_family = KEL_AF_UNIX;
    memset(record->un.sun_path, 'p', sizeof(record->un.sun_path));
    CHAR str[128];

    EXPECT_STREQ(kel_addr_showstr(record, str, sizeof(str)), ("file " + std::string(94, 'p')).c_str());

    munmap(memory, 2 * page);
}

} // namespace
