/*
 * Calls that cost more than a caller may expect: patterns that are compiled for every text, and an interface that is
 * asked about for every frame. Frames need the raw-socket privilege; they go to loopback, where nobody takes them.
 */
#include "work.h"

#include "kel_socket.h"

#include <linux/if_ether.h>
#include <locale.h>

/* ---- Patterns: every text is of one family, and none of the other ---- */

static CHAR *const ipv4_text = const_cast<CHAR *>(IPV4_TEXT);
static CHAR *const ipv6_text = const_cast<CHAR *>(IPV6_TEXT);

static void is_ipv4_match()
{
    REQUIRE(kel_is_ipv4_addr(ipv4_text) == KEL_TRUE);
}

static void is_ipv4_mismatch()
{
    REQUIRE(kel_is_ipv4_addr(ipv6_text) == KEL_FALSE);
}

static void is_ipv6_match()
{
    REQUIRE(kel_is_ipv6_addr(ipv6_text) == KEL_TRUE);
}

static void is_ipv6_mismatch()
{
    REQUIRE(kel_is_ipv6_addr(ipv4_text) == KEL_FALSE);
}

/* The same in a locale whose characters may take several bytes. */
static void choose_utf8()
{
    REQUIRE(setlocale(LC_ALL, "C.UTF-8") != nullptr);
}

/* ---- Frames: by name of the interface, and with a record that was filled once ---- */

constexpr char INTERFACE[] = "lo";
constexpr SHORT PROTOCOL = (SHORT)0x88b5; /* for local experiments */

static LONG sender;
static kel_sockaddr_t receiver;
static const UCHAR frame[ETH_ZLEN] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x88, 0xb5}; /* from nobody to nobody */

static void open_sender()
{
    /* Of no protocol: it receives nothing, its own frames least of all. */
    sender = kel_socket(KEL_AF_PACKET, KEL_SOCK_RAW, 0);
    REQUIRE(sender != KEL_ERROR);
    REQUIRE(kel_addr_fill(sender, &receiver, KEL_AF_PACKET, 0, nullptr, PROTOCOL, INTERFACE) == KEL_OK);
}

static void raw_sendto()
{
    REQUIRE(kel_raw_sendto(sender, INTERFACE, frame, sizeof(frame), 0) == ETH_ZLEN);
}

static void raw_sendto_record()
{
    REQUIRE(kel_sendto(sender, frame, sizeof(frame), 0, &receiver) == ETH_ZLEN);
}

const Operation operations[] = {
    OPERATION(is_ipv4_match, nullptr),
    OPERATION(is_ipv4_mismatch, nullptr),
    OPERATION(is_ipv6_match, nullptr),
    OPERATION(is_ipv6_mismatch, nullptr),
    {"is_ipv4_match_utf8", choose_utf8, repeat<is_ipv4_match>},
    {"is_ipv4_mismatch_utf8", choose_utf8, repeat<is_ipv4_mismatch>},
    {"is_ipv6_match_utf8", choose_utf8, repeat<is_ipv6_match>},
    {"is_ipv6_mismatch_utf8", choose_utf8, repeat<is_ipv6_mismatch>},
    OPERATION(raw_sendto, open_sender),
    OPERATION(raw_sendto_record, open_sender),
    {nullptr, nullptr, nullptr},
};
