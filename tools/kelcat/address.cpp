#include "address.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <net/if.h>
#include <netdb.h>

#include "say.h"

const char *transport_name(unsigned transport)
{
    static const char *const names[] = {"tcp", "udp", "sctp", "unix", "unix-dgram", "packet"};
    return names[__builtin_ctz(transport)];
}

/* ---- From text --------------------------------------------------------------------------------------------------- */

void bad_usage(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    say_list(format, args);
    va_end(args);
    exit(2);
}

unsigned long parse_number(const std::string &text, int base, unsigned long least, unsigned long most, const char *what)
{
    char *end;
    errno = 0;
    const bool hexadecimal = base == 0 && text.compare(0, 2, "0x") == 0;
    const unsigned long value = strtoul(text.c_str(), &end, hexadecimal ? 16 : 10);
    if (!isdigit((unsigned char)text[0]) || *end != '\0' || errno != 0 || value < least || value > most) {
        bad_usage("\"%s\" is no %s: give a number from %lu to %lu", text.c_str(), what, least, most);
    }
    return value;
}

static int numeric_family(const std::string &host)
{
    kel_sockaddr_t record;
    return kel_inet_pton(KEL_AF_INET, host.c_str(), &record) == KEL_OK    ? AF_INET
           : kel_inet_pton(KEL_AF_INET6, host.c_str(), &record) == KEL_OK ? AF_INET6
                                                                          : AF_UNSPEC;
}

/* Of digits and dots alone a name server would be asked in vain. */
static bool is_name(const std::string &text)
{
    auto belongs = [](unsigned char c) { return isalnum(c) || c == '-' || c == '.' || c == '_'; };
    return std::all_of(text.begin(), text.end(), belongs) && text.find_first_not_of("0123456789.") != std::string::npos;
}

static void add_host(const std::string &text, std::string host, bool names, Place *place)
{
    const bool brackets = host.size() >= 2 && host.front() == '[' && host.back() == ']';
    host = brackets ? host.substr(1, host.size() - 2) : host;
    if (host.find('%') != std::string::npos) {
        bad_usage("\"%s\" has a zone: the module has none, and reaches no link-local address", text.c_str());
    }
    const int family = numeric_family(host);
    if (family != (brackets ? AF_INET6 : AF_INET) && (brackets || family != AF_UNSPEC || !names || !is_name(host))) {
        bad_usage("\"%s\" is no %saddress: give ADDR:PORT such as 127.0.0.1:9000%s", text.c_str(),
                  names ? "" : "numeric ", names ? ", [::1]:9000 or localhost:9000" : " or [::1]:9000");
    }
    if (family != AF_UNSPEC && place->family != AF_UNSPEC && family != place->family) {
        bad_usage("\"%s\" has addresses of two families: give all as IPv4 or all as IPv6", text.c_str());
    }
    place->hosts.push_back(host);
    place->family = family != AF_UNSPEC ? family : place->family;
}

Place parse_place(const std::string &text, const Demands &demands)
{
    Place place;
    size_t colon = text.find_last_of(":]");
    if (colon != std::string::npos && text[colon] == ']') {
        colon = std::string::npos; /* there are those of an IPv6 address alone */
    }
    if (colon != std::string::npos || demands.host) {
        std::string list = text.substr(0, colon);
        for (size_t comma; demands.many && (comma = list.find(',')) != std::string::npos; list.erase(0, comma + 1)) {
            add_host(text, list.substr(0, comma), demands.names, &place);
        }
        add_host(text, list, demands.names, &place);
        if (colon == std::string::npos && demands.port) {
            bad_usage("\"%s\" has no port: give ADDR:PORT such as 127.0.0.1:9000 or [::1]:9000", text.c_str());
        }
    }
    if (colon != std::string::npos || !demands.host) {
        const std::string port = colon == std::string::npos ? text : text.substr(colon + 1);
        place.port = (uint16_t)parse_number(port, 10, demands.least_port, 65535, "port");
    }
    return place;
}

/* ---- Names ------------------------------------------------------------------------------------------------------- */

/* All addresses of a host, in the order in which the system prefers them; none after one sentence. */
static Addresses look_up(const std::string &host, uint16_t port)
{
    Addresses found;
    struct addrinfo hints = {};
    struct addrinfo *list = nullptr;
    hints.ai_socktype = SOCK_STREAM; /* each address once, not once for every kind of socket */
    if (const int error = getaddrinfo(host.c_str(), nullptr, &hints, &list)) {
        say("cannot resolve \"%s\": %s", host.c_str(), error == EAI_SYSTEM ? strerror(errno) : gai_strerror(error));
        return found;
    }
    for (const struct addrinfo *info = list; info != nullptr; info = info->ai_next) {
        kel_sockaddr_t record = {};
        if (info->ai_family == AF_INET || info->ai_family == AF_INET6) {
            memcpy(&record, info->ai_addr, info->ai_addrlen);
            record.sin.sin_port = htons(port); /* as sin6_port */
            found.push_back(record);
        }
    }
    freeaddrinfo(list);
    return found;
}

std::vector<Addresses> resolve(const Place &place, const Addresses &local)
{
    std::vector<Addresses> attempts;
    if (!place.path.empty()) {
        attempts.emplace_back(1);
        kel_addr_fill(0, attempts[0].data(), KEL_AF_UNIX, 0, place.path.c_str(), 0, nullptr);
        return attempts;
    }
    std::vector<Addresses> found;
    for (const std::string &host : place.hosts) {
        found.push_back(look_up(host, place.port));
        if (found.back().empty()) {
            return attempts;
        }
    }
    for (const kel_sockaddr_t &first : found.front()) {
        auto fits = [&](const kel_sockaddr_t &address) { return address.sa.sa_family == first.sa.sa_family; };
        Addresses attempt = {first};
        for (size_t i = 1; i < found.size(); i++) {
            auto other = std::find_if(found[i].begin(), found[i].end(), fits);
            if (other != found[i].end()) {
                attempt.push_back(*other);
            }
        }
        if (attempt.size() == found.size() && (local.empty() || fits(local.front()))) {
            attempts.push_back(attempt);
        }
    }
    if (attempts.empty()) {
        say("cannot resolve \"%s\": no address of the family that the others have", place.hosts.front().c_str());
    }
    return attempts;
}

/* ---- To text ----------------------------------------------------------------------------------------------------- */

kel_domain_t family_of(const Addresses &addresses)
{
    return (kel_domain_t)addresses.front().sa.sa_family;
}

SHORT port_of(const Addresses &addresses)
{
    return (SHORT)ntohs(addresses.front().sin.sin_port); /* IPv6 has its port at the same place */
}

bool is_wildcard(const kel_sockaddr_t &address)
{
    return address.sa.sa_family == KEL_AF_INET ? address.sin.sin_addr.s_addr == INADDR_ANY
                                               : IN6_IS_ADDR_UNSPECIFIED(&address.sin6.sin6_addr);
}

std::string host_text(const kel_sockaddr_t &address)
{
    char text[INET6_ADDRSTRLEN] = "";
    kel_inet_ntop(address.sa.sa_family, &address, text, sizeof(text));
    return text;
}

std::string endpoint_text(Transport transport, const Addresses &addresses)
{
    const kel_sockaddr_t &first = addresses.front();
    std::string list;
    std::string port;
    switch (first.sa.sa_family) {
    case KEL_AF_INET:
    case KEL_AF_INET6:
        for (const kel_sockaddr_t &address : addresses) {
            list += list.empty() ? "" : ",";
            list += address.sa.sa_family == KEL_AF_INET ? host_text(address) : "[" + host_text(address) + "]";
        }
        port = ":" + std::to_string((uint16_t)port_of(addresses));
        break;
    case KEL_AF_UNIX:
        list.assign(first.un.sun_path, strnlen(first.un.sun_path, sizeof(first.un.sun_path)));
        break;
    case KEL_AF_PACKET: {
        char name[IF_NAMESIZE] = "";
        char protocol[16];
        snprintf(protocol, sizeof(protocol), ",0x%04x", ntohs(first.raw.sll_protocol));
        if_indextoname((unsigned)first.raw.sll_ifindex, name);
        list = name;
        port = ntohs(first.raw.sll_protocol) == every_protocol ? "" : protocol;
        break;
    }
    default:
        break;
    }
    return list.empty() ? "" : transport_name(transport) + (":" + list + port);
}
