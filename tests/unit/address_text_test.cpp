/* Address text: the two checks and their patterns, the conversions, and the line that describes a record. */
#include "failure.h"

#include <arpa/inet.h>
#include <errno.h>
#include <regex.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include "kel_prv_socket.h"

namespace
{

/* ---- The patterns, spelled out ---------------------------------------------------------------------------------- */

const std::string ipv4_pattern =
    "^(25[0-5]|2[0-4][0-9]|[0-1]?[0-9]?[0-9])(\\.(25[0-5]|2[0-4][0-9]|[0-1]?[0-9]?[0-9])){3}$";

// clang-format off
const char *const ipv6_alternatives[] = {
    "(([0-9A-Fa-f]{1,4}:){7}[0-9A-Fa-f]{1,4})",
    "(([0-9A-Fa-f]{1,4}:){1,7}:)",
    "(([0-9A-Fa-f]{1,4}:){6}:[0-9A-Fa-f]{1,4})",
    "(([0-9A-Fa-f]{1,4}:){5}(:[0-9A-Fa-f]{1,4}){1,2})",
    "(([0-9A-Fa-f]{1,4}:){4}(:[0-9A-Fa-f]{1,4}){1,3})",
    "(([0-9A-Fa-f]{1,4}:){3}(:[0-9A-Fa-f]{1,4}){1,4})",
    "(([0-9A-Fa-f]{1,4}:){2}(:[0-9A-Fa-f]{1,4}){1,5})",
    "([0-9A-Fa-f]{1,4}:(:[0-9A-Fa-f]{1,4}){1,6})",
    "(:(:[0-9A-Fa-f]{1,4}){1,7})",
    "(([0-9A-Fa-f]{1,4}:){6}([0-9]|[1-9][0-9]|1[0-9]{2}|2[0-4][0-9]|25[0-5])(\\.([0-9]|[1-9][0-9]|1[0-9]{2}|2[0-4][0-9]|25[0-5])){3})",
    "(([0-9A-Fa-f]{1,4}:){5}:([0-9]|[1-9][0-9]|1[0-9]{2}|2[0-4][0-9]|25[0-5])(\\.([0-9]|[1-9][0-9]|1[0-9]{2}|2[0-4][0-9]|25[0-5])){3})",
    "(([0-9A-Fa-f]{1,4}:){4}(:[0-9A-Fa-f]{1,4}){0,1}:([0-9]|[1-9][0-9]|1[0-9]{2}|2[0-4][0-9]|25[0-5])(\\.([0-9]|[1-9][0-9]|1[0-9]{2}|2[0-4][0-9]|25[0-5])){3})",
    "(([0-9A-Fa-f]{1,4}:){3}(:[0-9A-Fa-f]{1,4}){0,2}:([0-9]|[1-9][0-9]|1[0-9]{2}|2[0-4][0-9]|25[0-5])(\\.([0-9]|[1-9][0-9]|1[0-9]{2}|2[0-4][0-9]|25[0-5])){3})",
    "(([0-9A-Fa-f]{1,4}:){2}(:[0-9A-Fa-f]{1,4}){0,3}:([0-9]|[1-9][0-9]|1[0-9]{2}|2[0-4][0-9]|25[0-5])(\\.([0-9]|[1-9][0-9]|1[0-9]{2}|2[0-4][0-9]|25[0-5])){3})",
    "([0-9A-Fa-f]{1,4}:(:[0-9A-Fa-f]{1,4}){0,4}:([0-9]|[1-9][0-9]|1[0-9]{2}|2[0-4][0-9]|25[0-5])(\\.([0-9]|[1-9][0-9]|1[0-9]{2}|2[0-4][0-9]|25[0-5])){3})",
    "(:(:[0-9A-Fa-f]{1,4}){0,5}:([0-9]|[1-9][0-9]|1[0-9]{2}|2[0-4][0-9]|25[0-5])(\\.([0-9]|[1-9][0-9]|1[0-9]{2}|2[0-4][0-9]|25[0-5])){3})",
};
// clang-format on

std::string ipv6_pattern()
{
    std::string pattern;
    for (const char *alternative : ipv6_alternatives) {
        pattern += (pattern.empty() ? "^(" : "|") + std::string(alternative);
    }
    return pattern + ")$";
}

TEST(Patterns, AreTheseCharacters)
{
    EXPECT_EQ(PATTERN_IPV4, ipv4_pattern);
    EXPECT_EQ(ipv4_pattern.size(), 87u);
    EXPECT_EQ(PATTERN_IPV6, ipv6_pattern());
    EXPECT_EQ(ipv6_pattern().size(), 1378u);
}

/* ---- The checks and what they ask of the matcher ---------------------------------------------------------------- */

struct Check {
    const char *name;
    BOOL (*check)(CHAR *);
    std::string pattern;
    const char *address;
};

class AddressCheck : public testing::TestWithParam<Check>
{
  protected:
    std::string text = GetParam().address;
    std::string compiled = "regcomp(" + GetParam().pattern + ", 3) = ";
    std::string executed = "regexec(" + text + ", 1, set, 0) = ";
};

TEST_P(AddressCheck, MakesNoCallForNull)
{
    sys::Recording recording;

    EXPECT_EQ(GetParam().check(nullptr), KEL_FALSE);

    EXPECT_EQ(recording.trace(), sys::Trace{});
}

TEST_P(AddressCheck, FreesNothingWhenThePatternDoesNotCompile)
{
    for (int error : {(int)REG_ESPACE, (int)REG_BADPAT, -1}) {
        sys::Recording recording(sys::fail_first("regcomp", sys::ok(error)));

        EXPECT_EQ(GetParam().check(text.data()), KEL_FALSE);

        EXPECT_EQ(recording.trace(), sys::Trace{compiled + std::to_string(error)});
    }
}

TEST_P(AddressCheck, TakesEveryOtherResultForNoMatchAndFreesThePattern)
{
    for (int result : {(int)REG_NOMATCH, (int)REG_ESPACE, (int)REG_BADPAT, -1}) {
        sys::Recording recording(sys::fail_first("regexec", sys::ok(result)));

        EXPECT_EQ(GetParam().check(text.data()), KEL_FALSE);

        EXPECT_EQ(recording.trace(), (sys::Trace{compiled + "0", executed + std::to_string(result), "regfree() = 0"}));
    }
}

TEST_P(AddressCheck, CompilesItsPatternOnEveryCall)
{
    sys::Recording recording;

    EXPECT_EQ(GetParam().check(text.data()), KEL_TRUE);
    EXPECT_EQ(GetParam().check(text.data()), KEL_TRUE);

    const sys::Trace once{compiled + "0", executed + "0", "regfree() = 0"};
    EXPECT_EQ(recording.trace(), in_order({once, once}));
}

const Check checks[] = {{"Ipv4", kel_is_ipv4_addr, ipv4_pattern, "10.1.2.3"},
                        {"Ipv6", kel_is_ipv6_addr, ipv6_pattern(), "fe80::1"}};

INSTANTIATE_TEST_SUITE_P(AddressText, AddressCheck, testing::ValuesIn(checks), row_name<Check>);

/* ---- What the checks accept ------------------------------------------------------------------------------------- */

BOOL is_ipv4(std::string text)
{
    return kel_is_ipv4_addr(text.data());
}

BOOL is_ipv6(std::string text)
{
    return kel_is_ipv6_addr(text.data());
}

TEST(Ipv4Check, RefusesWhatIsNoAddress)
{
    for (const char *text :
         {"",           "1",          "1.2.3",     "1.2.3.4.5",      ".1.2.3",    "1.2.3.",    "1..2.3",
          "256.1.1.1",  "1.256.1.1",  "1.1.256.1", "1.1.1.256",      "300.1.1.1", "999.1.1.1", "1.2.3.1000",
          "0000.1.2.3", "1.2.3.0001", "-1.2.3.4",  "+1.2.3.4",       " 1.2.3.4",  "1.2.3.4 ",  "1.2. 3.4",
          "1.2.3.4\n",  "\t1.2.3.4",  "1.2.3.x",   "0x1.2.3.4",      "a.b.c.d",   "1,2,3,4",   "1a2a3a4",
          "1.2.3.4/8",  "1.2.3.4:80", "::1",       "::ffff:1.2.3.4", "localhost"}) {
        EXPECT_EQ(is_ipv4(text), KEL_FALSE) << '"' << text << '"';
    }
}

TEST(Ipv4Check, AcceptsLeadingZerosUpToThreeDigits)
{
    for (const char *text :
         {"192.168.001.010", "001.002.003.004", "00.00.00.00", "000.000.000.000", "09.08.07.06", "099.199.019.000"}) {
        EXPECT_EQ(is_ipv4(text), KEL_TRUE) << text;
    }
}

TEST(Ipv4Check, AcceptsZeroTo255InEveryField)
{
    for (int value = 0; value <= 300; value++) {
        const std::string field = std::to_string(value);
        for (const std::string &text :
             {field + ".0.0.0", "0." + field + ".0.0", "0.0." + field + ".0", "0.0.0." + field}) {
            EXPECT_EQ(is_ipv4(text), value <= 255 ? KEL_TRUE : KEL_FALSE) << text;
        }
    }
}

TEST(Ipv6Check, RefusesWhatIsNoAddress)
{
    for (const char *text : {"",
                             ":",
                             "::",
                             ":::",
                             "::::",
                             "1",
                             "1:",
                             ":1",
                             "1:2",
                             "1:2:3:4:5:6:7",
                             "1:2:3:4:5:6:7:",
                             ":1:2:3:4:5:6:7",
                             "1:2:3:4:5:6:7:8:",
                             ":1:2:3:4:5:6:7:8",
                             "1:2:3:4:5:6:7:8:9",
                             "1:2:3:4:5:6:7:8::",
                             "::1:2:3:4:5:6:7:8",
                             "1::2::3",
                             "1:::2",
                             ":1::2",
                             "1::2:",
                             "12345::",
                             "::12345",
                             "1::12345",
                             "g::",
                             "::g",
                             "1::g",
                             " ::1",
                             "::1 ",
                             "1: :2",
                             "::1\n",
                             "fe80::1%eth0",
                             "fe80::1%2",
                             "[::1]",
                             "[::1]:80",
                             "::1/64",
                             "1.2.3.4",
                             "0x1::2"}) {
        EXPECT_EQ(is_ipv6(text), KEL_FALSE) << '"' << text << '"';
    }
}

TEST(Ipv6Check, RefusesDottedTailsWithLeadingZerosOrAboveTheirRange)
{
    for (const char *head :
         {"1:2:3:4:5:6:", "1:2:3:4:5::", "1:2:3:4::5:", "1:2:3::", "1:2::", "1::2:", "::ffff:", "::"}) {
        for (const char *tail : {"192.168.01.1", "01.2.3.4", "1.02.3.4", "1.2.3.04", "00.0.0.0", "1.2.3.000",
                                 "001.2.3.4", "256.2.3.4", "1.260.3.4", "1.2.300.4", "1.2.3.256", "1.2.3.1000", "1.2.3",
                                 "1.2.3.4.5", "1.2.3.", "1.2.3.4:5", "1.2.3.4::", "1.2.3.f"}) {
            EXPECT_EQ(is_ipv6(std::string(head) + tail), KEL_FALSE) << head << tail;
        }
    }
}

TEST(Ipv6Check, AcceptsOrdinaryAddresses)
{
    for (const char *text : {"::1", "fe80::1", "2001:db8::", "2001:DB8::Ff", "::ffff:192.168.1.1", "ABCD::EF",
                             "0:0:0:0:0:0:0:0", "0000::0000", "ffff:FFFF:ffff:FFFF:ffff:FFFF:ffff:FFFF",
                             "64:ff9b::255.255.255.255", "::0.0.0.0", "1:2:3:4:5:6:1.2.3.4"}) {
        EXPECT_EQ(is_ipv6(text), KEL_TRUE) << text;
    }
}

TEST(Ipv6Check, AcceptsZeroTo255InEveryFieldOfADottedTail)
{
    for (int value : {0, 9, 10, 99, 100, 199, 200, 249, 250, 255, 256, 260, 300, 999}) {
        const std::string field = std::to_string(value);
        for (const std::string &tail :
             {field + ".0.0.0", "0." + field + ".0.0", "0.0." + field + ".0", "0.0.0." + field}) {
            EXPECT_EQ(is_ipv6("::" + tail), value <= 255 ? KEL_TRUE : KEL_FALSE) << tail;
        }
    }
}

/* Groups, each with a colon in front but for the first. */
std::string groups(int count)
{
    std::string text;
    for (int i = 1; i <= count; i++) {
        text += (i == 1 ? "" : ":") + std::to_string(i);
    }
    return text;
}

TEST(Ipv6Check, NeedsEightGroupsWithoutCompression)
{
    for (int count = 1; count <= 10; count++) {
        EXPECT_EQ(is_ipv6(groups(count)), count == 8 ? KEL_TRUE : KEL_FALSE) << count;
        EXPECT_EQ(is_ipv6(groups(count) + ":1.2.3.4"), count == 6 ? KEL_TRUE : KEL_FALSE) << count << " and a tail";
    }
}

/* A compression stands for one group or more, and a dotted tail for two: every place of both, at its borders. */
TEST(Ipv6Check, AcceptsACompressionOfOneGroupOrMoreAnywhere)
{
    for (int lead = 0; lead <= 8; lead++) {
        for (int trail = 0; lead + trail <= 9; trail++) {
            const std::string text = groups(lead) + "::" + groups(trail);
            EXPECT_EQ(is_ipv6(text), lead + trail >= 1 && lead + trail <= 7 ? KEL_TRUE : KEL_FALSE) << text;

            const std::string dotted = text + (trail > 0 ? ":" : "") + "1.2.3.4";
            EXPECT_EQ(is_ipv6(dotted), lead + trail <= 5 ? KEL_TRUE : KEL_FALSE) << dotted;
        }
    }
}

/* ---- Text into a record ----------------------------------------------------------------------------------------- */

kel_sockaddr_t converted;

const std::vector<FailureCase> conversions = {
    null_argument("PtonNullText", null_check("kel_inet_pton", "src"), {},
                  [] { return kel_inet_pton(KEL_AF_INET, NULL, &converted); }),
    null_argument("PtonNullRecord", null_check("kel_inet_pton", "dst"), {},
                  [] { return kel_inet_pton(KEL_AF_INET6, "::1", NULL); }),
    null_argument("PtonNullTextFirst", null_check("kel_inet_pton", "src"), {},
                  [] { return kel_inet_pton(KEL_AF_UNIX, NULL, NULL); }),
};

INSTANTIATE_TEST_SUITE_P(AddressText, Failure, in_every_way(conversions), filtered_name<FailureCase>);

TEST(Pton, RefusesOtherFamiliesInSilence)
{
    for (LONG family : {0L, (LONG)KEL_AF_UNIX, 3L, (LONG)KEL_AF_PACKET, -1L, 0x100000002L, 0x10000000aL}) {
        kel_sockaddr_t record = poisoned();
        sys::Recording recording;

        EXPECT_EQ(kel_inet_pton(family, "1.2.3.4", &record), KEL_ERROR) << family;

        EXPECT_EQ(recording.trace(), sys::Trace{});
        EXPECT_EQ(bytes_of(record), bytes_of(poisoned()));
    }
}

TEST(Pton, TakesEveryResultButOneForAFailure)
{
    for (LONG family : {KEL_AF_INET, KEL_AF_INET6}) {
        for (long result : {0, -1, 2}) {
            kel_sockaddr_t record;
            sys::Recording recording(sys::fail_first("inet_pton", {result, result == -1 ? EAFNOSUPPORT : 0}));

            EXPECT_EQ(kel_inet_pton(family, "::1", &record), KEL_ERROR);

            EXPECT_EQ(recording.trace().size(), 1u); /* silent */
            EXPECT_EQ(errno, result == -1 ? EAFNOSUPPORT : 0);
        }
    }
}

TEST(Pton, RefusesBadTextInSilence)
{
    struct {
        LONG family;
        const char *text;
    } const rows[] = {{KEL_AF_INET, "1.2.3.256"}, {KEL_AF_INET, "::1"},      {KEL_AF_INET, ""},
                      {KEL_AF_INET6, "1.2.3.4"},  {KEL_AF_INET6, "fe80::g"}, {KEL_AF_INET6, "fe80::1%lo"}};
    for (const auto &row : rows) {
        kel_sockaddr_t record = poisoned();
        sys::Recording recording;

        EXPECT_EQ(kel_inet_pton(row.family, row.text, &record), KEL_ERROR);

        EXPECT_EQ(recording.trace(), sys::Trace{"inet_pton(" + std::to_string(row.family) + ", " + row.text + ") = 0"});
        EXPECT_EQ(bytes_of(record), bytes_of(poisoned()));
    }
}

TEST(Pton, WritesTheAddressFieldAlone)
{
    kel_sockaddr_t record = poisoned();
    sys::Recording recording;

    EXPECT_EQ(kel_inet_pton(KEL_AF_INET, "1.2.3.4", &record), KEL_OK);
    EXPECT_EQ(bytes_of(record), "a5a5a5a5"
                                "01020304" +
                                    bytes_of(poisoned()).substr(16));

    record = poisoned();
    EXPECT_EQ(kel_inet_pton(KEL_AF_INET6, "2001:db8::7", &record), KEL_OK);
    EXPECT_EQ(bytes_of(record), "a5a5a5a5a5a5a5a5"
                                "20010db8000000000000000000000007" +
                                    bytes_of(poisoned()).substr(48));

    EXPECT_EQ(recording.trace(), (sys::Trace{"inet_pton(2, 1.2.3.4) = 1", "inet_pton(10, 2001:db8::7) = 1"}));
}

/* ---- A record into text ----------------------------------------------------------------------------------------- */

TEST(Ntop, ReturnsNullForOtherFamiliesInSilence)
{
    const kel_sockaddr_t record = inet_address("1.2.3.4", 80);
    for (LONG family : {0L, (LONG)KEL_AF_UNIX, 3L, (LONG)KEL_AF_PACKET, -1L, 0x100000002L, 0x10000000aL}) {
        CHAR text[46] = "untouched";
        sys::Recording recording;

        EXPECT_EQ(kel_inet_ntop(family, &record, text, sizeof(text)), nullptr) << family;

        EXPECT_EQ(recording.trace(), sys::Trace{});
        EXPECT_STREQ(text, "untouched");
    }
}

TEST(Ntop, ReturnsNullForTooSmallABufferInSilence)
{
    const kel_sockaddr_t four = inet_address("10.1.2.3", 80);
    const kel_sockaddr_t six = inet6_address("fe80::1", 80);
    CHAR text[46];
    sys::Recording recording;

    EXPECT_EQ(kel_inet_ntop(KEL_AF_INET, &four, text, 8), nullptr);
    EXPECT_EQ(errno, ENOSPC);
    errno = 0;
    EXPECT_EQ(kel_inet_ntop(KEL_AF_INET6, &six, text, 7), nullptr);
    EXPECT_EQ(errno, ENOSPC);

    EXPECT_EQ(recording.trace(), (sys::Trace{"inet_ntop(2, 8) = 0", "inet_ntop(10, 7) = 0"}));
}

TEST(Ntop, GoesByTheFamilyOfTheArgumentNotOfTheRecord)
{
    kel_sockaddr_t record = inet_address("10.1.2.3", 80);
    record.sa.sa_family = KEL_AF_INET6;
    CHAR text[46];
    sys::Recording recording;

    EXPECT_STREQ(kel_inet_ntop(KEL_AF_INET, &record, text, sizeof(text)), "10.1.2.3");

    EXPECT_EQ(recording.trace(), sys::Trace{"inet_ntop(2, 46) = 0"});
}

TEST(Ntop, WritesTheTextAndReturnsTheBuffer)
{
    const kel_sockaddr_t four = inet_address("255.255.255.255", 80);
    const kel_sockaddr_t six = inet6_address("2001:db8::7", 80);
    CHAR text[46];
    sys::Recording recording;

    EXPECT_EQ(kel_inet_ntop(KEL_AF_INET, &four, text, 16), text);
    EXPECT_STREQ(text, "255.255.255.255");
    EXPECT_EQ(kel_inet_ntop(KEL_AF_INET6, &six, text, 46), text);
    EXPECT_STREQ(text, "2001:db8::7");

    EXPECT_EQ(recording.trace(), (sys::Trace{"inet_ntop(2, 16) = 0", "inet_ntop(10, 46) = 0"}));
}

/* ---- A record as a line ----------------------------------------------------------------------------------------- */

kel_sockaddr_t unix_address(const std::string &path)
{
    kel_sockaddr_t record = blank(KEL_AF_UNIX);
    memcpy(record.un.sun_path, path.data(), path.size());
    return record;
}

kel_sockaddr_t packet_address(int index, int protocol)
{
    kel_sockaddr_t record = blank(KEL_AF_PACKET);
    record.raw.sll_protocol = htons((uint16_t)protocol);
    record.raw.sll_ifindex = index;
    return record;
}

TEST(Showstr, ReturnsAConstantForOtherFamiliesAndLeavesTheBuffer)
{
    for (int family : {0, 3, 16, 0x0102, 0xffff}) {
        kel_sockaddr_t record = inet_address("10.1.2.3", 80);
        record.sa.sa_family = (sa_family_t)family;
        CHAR str[16];
        memset(str, 'x', sizeof(str));
        sys::Recording recording;

        CHAR *shown = kel_addr_showstr(&record, str, sizeof(str));

        EXPECT_STREQ(shown, "null");
        EXPECT_NE(shown, str);
        EXPECT_EQ(std::string(str, sizeof(str)), std::string(sizeof(str), 'x'));
        EXPECT_EQ(recording.trace(), sys::Trace{});
    }
}

/* A path without NUL at the end of readable memory: a reader that looked for one would fault. */
TEST(Showstr, CutsAPathWithoutNulAndReadsNotBeyondIt)
{
    size_t page = (size_t)sysconf(_SC_PAGESIZE);
    char *memory =
        static_cast<char *>(mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(memory, MAP_FAILED);
    ASSERT_EQ(mprotect(memory + page, page, PROT_NONE), 0);
    kel_sockaddr_t *record = reinterpret_cast<kel_sockaddr_t *>(memory + page - sizeof(kel_sockaddr_t));
    memset(record, 'X', sizeof(*record)); /* also the two bytes behind the path */
    record->sa.sa_family = KEL_AF_UNIX;
    memset(record->un.sun_path, 'p', sizeof(record->un.sun_path));

    const std::string line = "file " + std::string(94, 'p');
    CHAR str[128];
    memset(str, 'x', sizeof(str));
    sys::Recording recording;
    EXPECT_EQ(kel_addr_showstr(record, str, sizeof(str)), str);

    EXPECT_EQ(std::string(str, sizeof(str)), line + std::string(sizeof(str) - line.size(), '\0'));
    EXPECT_EQ(recording.trace(), (sys::Trace{"KEL_Snprintf(100, file %.*s)", "KEL_StrnCpy(" + line + ", 128)"}));
    munmap(memory, 2 * page);
}

TEST(Showstr, CutsAPathFrom95CharactersOn)
{
    for (size_t length : {93, 94, 95, 107, 108}) {
        const std::string path(length, 'p');
        kel_sockaddr_t record = unix_address(path);
        CHAR str[128];
        sys::Recording recording;

        EXPECT_STREQ(kel_addr_showstr(&record, str, sizeof(str)), ("file " + path.substr(0, 94)).c_str());
    }
}

TEST(Showstr, CopiesLikeStrncpyIntoTheCallersSize)
{
    kel_sockaddr_t record = inet_address("10.1.2.3", 5000);
    const std::string line = "ipv4 10.1.2.3:5000"; /* 18 characters */
    for (size_t size : {0, 1, 4, 17, 18, 19, 30}) {
        CHAR str[32];
        memset(str, 'x', sizeof(str));
        sys::Recording recording;

        EXPECT_EQ(kel_addr_showstr(&record, str, (LONG)size), str);

        std::string expected = line.substr(0, size);
        expected += std::string(size - expected.size(), '\0') + std::string(sizeof(str) - size, 'x');
        EXPECT_EQ(std::string(str, sizeof(str)), expected) << size;
        EXPECT_EQ(recording.trace(), (sys::Trace{"inet_ntop(2, 100) = 0", "KEL_Sprintf(ipv4 %s:%ld)",
                                                 "KEL_StrnCpy(" + line + ", " + std::to_string(size) + ")"}));
    }
}

struct Line {
    const char *name;
    kel_sockaddr_t address;
    const char *line;
    sys::Trace formatted;
};

class Showstr : public testing::TestWithParam<Line>
{
};

TEST_P(Showstr, WritesTheLineAndReadsTheRecordOnly)
{
    kel_sockaddr_t record = GetParam().address;
    CHAR str[100];
    sys::Recording recording;

    EXPECT_EQ(kel_addr_showstr(&record, str, sizeof(str)), str);

    EXPECT_STREQ(str, GetParam().line);
    EXPECT_EQ(recording.trace(),
              in_order({GetParam().formatted, std::string("KEL_StrnCpy(") + GetParam().line + ", 100)"}));
    EXPECT_EQ(bytes_of(record), bytes_of(GetParam().address));
}

const sys::Trace as_ipv4{"inet_ntop(2, 100) = 0", "KEL_Sprintf(ipv4 %s:%ld)"};
const sys::Trace as_ipv6{"inet_ntop(10, 100) = 0", "KEL_Sprintf(ipv6 %s:%ld)"};
const sys::Trace as_file{"KEL_Snprintf(100, file %.*s)"};
const sys::Trace as_packet{"KEL_Sprintf(ifindex %ld,protocol 0x%lx)"};

const Line shown_lines[] = {
    {"Ipv4", inet_address("10.1.2.3", 5000), "ipv4 10.1.2.3:5000", as_ipv4},
    {"Ipv4HighestPort", inet_address("255.255.255.255", 65535), "ipv4 255.255.255.255:65535", as_ipv4},
    {"Ipv4Zero", inet_address("0.0.0.0", 0), "ipv4 0.0.0.0:0", as_ipv4},
    {"Ipv6", inet6_address("::1", 80), "ipv6 ::1:80", as_ipv6},
    {"Ipv6Longest", inet6_address("1111:2222:3333:4444:5555:6666:7777:8888", 65535),
     "ipv6 1111:2222:3333:4444:5555:6666:7777:8888:65535", as_ipv6},
    {"Ipv6Zero", inet6_address("::", 32768), "ipv6 :::32768", as_ipv6},
    {"Path", unix_address("/run/app"), "file /run/app", as_file},
    {"PathEmpty", unix_address(""), "file ", as_file},
    {"PathWithPercent", unix_address("/run/%s%n"), "file /run/%s%n", as_file},
    {"Packet", packet_address(2, 3), "ifindex 2,protocol 0x3", as_packet},
    {"PacketNegativeIndex", packet_address(-1, 0x88cc), "ifindex -1,protocol 0x88cc", as_packet},
    {"PacketHighest", packet_address(2147483647, 0xffff), "ifindex 2147483647,protocol 0xffff", as_packet},
    {"PacketZero", packet_address(0, 0), "ifindex 0,protocol 0x0", as_packet},
};

INSTANTIATE_TEST_SUITE_P(AddressText, Showstr, testing::ValuesIn(shown_lines), row_name<Line>);

} // namespace
