/* Endpoints as text: read into what the module takes, and written so that kelcat can read them again. */
#ifndef KELCAT_ADDRESS_H
#define KELCAT_ADDRESS_H

#include <cstdint>
#include <string>
#include <vector>

#include "kel_socket.h"

enum Transport { Tcp = 1, Udp = 2, Sctp = 4, UnixStream = 8, UnixDatagram = 16, Packet = 32 };

/* As it stands in front of an endpoint's colon. */
const char *transport_name(unsigned transport);

const uint16_t every_protocol = 3; /* ETH_P_ALL */

/* One for each address of a peer or of this end, all of one family; of SCTP alone there may be several. */
using Addresses = std::vector<kel_sockaddr_t>;

/* Where a socket is to be, not resolved yet. */
struct Place {
    std::vector<std::string> hosts; /* numbers, those of IPv6 without brackets, or names */
    int family = AF_UNSPEC;         /* of the numbers among them */
    uint16_t port = 0;
    std::string path; /* of a local socket, instead */
};

/* Which part of [ADDR[,ADDR]...:]PORT must be there, and what it may be. */
struct Demands {
    bool host;
    bool port;
    unsigned long least_port;
    bool many;
    bool names;
};

/* Both end the program with one sentence on bad text. Numbers: in base 0, 0x and digits in base 16, too. */
Place parse_place(const std::string &text, const Demands &demands);
unsigned long parse_number(const std::string &text, int base, unsigned long least, unsigned long most,
                           const char *what);

/* One sentence, and the end of the program with status 2. */
[[noreturn]]
void bad_usage(const char *format, ...) __attribute__((format(printf, 1, 2)));

/*
 * What to try, in turn: of a name its addresses, of a list one address of each host. Only those of the local address's
 * family, if there is one. Nothing, after one sentence, where a name has no such address.
 */
std::vector<Addresses> resolve(const Place &place, const Addresses &local);

kel_domain_t family_of(const Addresses &addresses);
SHORT port_of(const Addresses &addresses);
bool is_wildcard(const kel_sockaddr_t &address);

/* The number, without brackets and port. */
std::string host_text(const kel_sockaddr_t &address);

/* The endpoint that reaches these addresses, such as tcp:[::1]:9000; empty: a local socket without a name. */
std::string endpoint_text(Transport transport, const Addresses &addresses);

#endif
