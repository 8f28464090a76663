#include "sctp_expected.h"

#include <arpa/inet.h>
#include <string.h>

namespace
{

size_t entry_length(const std::vector<kel_sockaddr_t> &records)
{
    return records.at(0).sa.sa_family == KEL_AF_INET6 ? sizeof(struct sockaddr_in6) : sizeof(struct sockaddr_in);
}

std::string list_call(const char *name, const std::vector<kel_sockaddr_t> &records, const std::string &last,
                      const std::string &answer)
{
    return std::string(name) + "(70, " + packed(records) + ", " + std::to_string(records.size()) + ", " + last +
           ") = " + answer;
}

kel_sockaddr_t stale(const kel_sockaddr_t &address, size_t length)
{
    kel_sockaddr_t record = poisoned();
    memcpy(&record, &address, length);
    return record;
}

CHAR text[][16] = {"10.0.1.2", "10.0.2.2", "fd00:1::2", "fd00:2::2"};

} // namespace

struct sctp_initmsg initial = {10, 20, 3, 300};
struct sctp_event_subscribe subscription = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};

const std::vector<AddressSet> &address_sets()
{
    static const std::vector<AddressSet> sets = {
        {KEL_AF_INET,
         {text[0], text[1]},
         {inet_address(text[0], sctp_port), inet_address(text[1], sctp_port)},
         {stale_inet("10.0.1.1", 0), stale_inet("10.0.2.1", 0), stale_inet("10.0.3.1", 0)}},
        {KEL_AF_INET6,
         {text[2], text[3]},
         {inet6_address(text[2], sctp_port), inet6_address(text[3], sctp_port)},
         {stale_inet6("fd00:1::1", 0), stale_inet6("fd00:2::1", 0), stale_inet6("fd00:3::1", 0)}}};
    return sets;
}

kel_sockaddr_t stale_inet(const char *address, int port)
{
    return stale(inet_address(address, port), sizeof(struct sockaddr_in));
}

kel_sockaddr_t stale_inet6(const char *address, int port)
{
    return stale(inet6_address(address, port), sizeof(struct sockaddr_in6));
}

std::string packed(const std::vector<kel_sockaddr_t> &records)
{
    std::string bytes;
    for (const kel_sockaddr_t &record : records) {
        bytes += sys::hex(&record, entry_length(records));
    }
    return bytes;
}

sys::Trace packing(const std::vector<kel_sockaddr_t> &records, int block)
{
    const std::string entry = std::to_string(entry_length(records));
    sys::Trace trace{"tc_malloc(" + std::to_string(records.size() * entry_length(records)) +
                     ") = " + std::to_string(block)};
    trace.insert(trace.end(), records.size(), "KEL_MemCpy(set, set, " + entry + ")");
    return trace;
}

sys::Trace converting(kel_domain_t family, const std::vector<CHAR *> &texts, int block)
{
    sys::Trace trace{"tc_malloc(" + std::to_string(texts.size() * sizeof(kel_sockaddr_t)) +
                     ") = " + std::to_string(block)};
    for (const CHAR *address : texts) {
        trace.push_back(cleared);
        trace.push_back("inet_pton(" + std::to_string(family) + ", " + address + ") = 1");
    }
    return trace;
}

std::string released(int block)
{
    return "tc_free(block " + std::to_string(block) + ") = 0";
}

std::string bindx(const std::vector<kel_sockaddr_t> &records, const std::string &answer)
{
    return list_call("sctp_bindx", records, "1", answer);
}

std::string connectx(const std::vector<kel_sockaddr_t> &records, const std::string &answer)
{
    return list_call("sctp_connectx", records, "id", answer);
}

sys::Trace bound(const std::vector<kel_sockaddr_t> &records, int block)
{
    return in_order({packing(records, block), bindx(records), released(block)});
}

sys::Trace connected(const std::vector<kel_sockaddr_t> &records, int block)
{
    return in_order({packing(records, block), connectx(records), released(block)});
}

std::string init_option(const std::string &answer)
{
    return "setsockopt(70, 132, 2, 0a00140003002c01, 8) = " + answer;
}

sys::Trace event_option(const struct sctp_event_subscribe *events, const std::string &answer)
{
    return {std::string("setsockopt(70, 132, 11, ") +
            (events != nullptr ? sys::hex(events, 10) : "01000000000000000000") + ", 10) = " + answer};
}

void poison_stack()
{
    volatile unsigned char area[16384];
    for (volatile unsigned char &byte : area) {
        byte = 0xa5;
    }
}
