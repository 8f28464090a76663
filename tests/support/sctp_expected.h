/* What the SCTP tests have in common: lists of addresses, and the calls that carry them to the library. */
#ifndef TESTS_SUPPORT_SCTP_EXPECTED_H
#define TESTS_SUPPORT_SCTP_EXPECTED_H

#include "expected.h"

#include <string>
#include <vector>

#include "kel_sctp.h"

/* Addresses of one family: as texts, as the records that the texts make at a port, and as local records. */
struct AddressSet {
    kel_domain_t family;
    std::vector<CHAR *> texts;
    std::vector<kel_sockaddr_t> peers;
    std::vector<kel_sockaddr_t> locals;
};
constexpr int sctp_port = 40000; /* negative as a SHORT */
const std::vector<AddressSet> &address_sets();

/* Records of one IPv4 and one IPv6 address each, with port and bytes behind the family member that nobody cleared. */
kel_sockaddr_t stale_inet(const char *text, int port);
kel_sockaddr_t stale_inet6(const char *text, int port);

/* The list that the library gets: entries without gaps, each as long as the first one's family says. */
std::string packed(const std::vector<kel_sockaddr_t> &records);

/* Records become such a list, in a block that is the nth of the trace. */
sys::Trace packing(const std::vector<kel_sockaddr_t> &records, int block = 1);

/* Texts become records, in a block that is the nth of the trace. */
sys::Trace converting(kel_domain_t family, const std::vector<CHAR *> &texts, int block = 1);

std::string released(int block);

/* The library's call for a list: "sctp_bindx(70, 0200..., 2, 1) = 0" and "sctp_connectx(70, 0200..., 2, id) = 0". */
std::string bindx(const std::vector<kel_sockaddr_t> &records, const std::string &answer = "0");
std::string connectx(const std::vector<kel_sockaddr_t> &records, const std::string &answer = "0");

/* A list is packed, bound to descriptor 70 and released. */
sys::Trace bound(const std::vector<kel_sockaddr_t> &records, int block = 1);
sys::Trace connected(const std::vector<kel_sockaddr_t> &records, int block = 1);

/* The options of every endpoint, both on descriptor 70: from initial, and from a subscription of the test's or none. */
extern struct sctp_initmsg initial;
extern struct sctp_event_subscribe subscription; /* ten different flags */
std::string init_option(const std::string &answer = "0");
sys::Trace event_option(const struct sctp_event_subscribe *events, const std::string &answer = "0");

/* Leaves bytes of 0xa5 where the functions called next have their variables. */
void poison_stack();

#endif
