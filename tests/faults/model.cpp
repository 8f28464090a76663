#include "model.h"

#include <arpa/inet.h>
#include <errno.h>
#include <map>
#include <regex.h>
#include <string.h>
#include <tuple>
#include <type_traits>

#include "answers.h"
#include "expected.h"
#include "kel_prv_socket.h"
#include "positions.h"

namespace
{

/* ---- Text of the trace ------------------------------------------------------------------------------------------- */

template <typename Item> std::string shown(const Item &item)
{
    if constexpr (std::is_convertible_v<Item, std::string>) {
        return item;
    } else {
        return std::to_string(item);
    }
}

/* Arguments as the trace shows them. */
template <typename First, typename... Rest> std::string list(const First &first, const Rest &...rest)
{
    std::string text = shown(first);
    ((text += ", ", text += shown(rest)), ...);
    return text;
}

std::string or_null(const char *text)
{
    return text == nullptr ? "null" : text;
}

std::string as_line(const std::string &call, const std::string &arguments, const sys::Answer &answer)
{
    std::string line = call + "(" + arguments + ") = " + std::to_string(answer.result);
    return answer.error == 0 ? line : line + " errno " + std::to_string(answer.error);
}

/* ---- Records, as bytes in the order in which they lie ------------------------------------------------------------ */

unsigned char *bytes(kel_sockaddr_t *record)
{
    return reinterpret_cast<unsigned char *>(record);
}

const unsigned char *bytes(const kel_sockaddr_t *record)
{
    return reinterpret_cast<const unsigned char *>(record);
}

/* Family in this host's order, port or protocol in the network's. */
void begin_record(kel_sockaddr_t *record, int family, int number)
{
    bytes(record)[0] = (unsigned char)family;
    bytes(record)[2] = (unsigned char)(number >> 8);
    bytes(record)[3] = (unsigned char)number;
}

int number_of(const kel_sockaddr_t *record)
{
    return bytes(record)[2] << 8 | bytes(record)[3];
}

int family_of(const kel_sockaddr_t *record)
{
    return bytes(record)[0] | bytes(record)[1] << 8;
}

/* Where the address lies in a record of an IP family, and its size. */
struct Field {
    size_t offset;
    size_t size;
};
Field address_field(LONG family)
{
    return family == 2 ? Field{4, 4} : Field{8, 16};
}

bool is_ip(LONG family)
{
    return family == 2 || family == 10;
}

/* Which of the texts in the cases match: what the patterns accept in general is not the model's to know. */
bool matches(const std::string &pattern, const std::string &text)
{
    return (pattern == PATTERN_IPV4 && text == "10.1.2.3") || (pattern == PATTERN_IPV6 && text == "fe80::1");
}

} // namespace

Model::Model(const Path &outcomes) : path(outcomes)
{
}

const kel_sockaddr_t &Model::peer()
{
    static const kel_sockaddr_t record = [] {
        kel_sockaddr_t filled;
        memset(&filled, 0x5a, sizeof(filled));
        begin_record(&filled, 10, 4711);
        return filled;
    }();
    return record;
}

/* ---- Calls ------------------------------------------------------------------------------------------------------- */

/* Names are literals: their addresses tell whether a place is a new one. */
void Model::reached(const char *function, const char *use, int nth, size_t outcome)
{
    static std::set<std::tuple<const char *, const char *, int, size_t>> known;
    if (known.emplace(function, use, nth, outcome).second) {
        taken_at[position(function, use, nth)].insert(outcome);
    }
}

/* The outcome that the run of the module had. Where it made another call here, the traces will differ. */
Choice Model::take(const char *call)
{
    const bool same = at < path.size() && path[at].call == call;
    at++;
    return same ? path[at - 1] : Choice{call, 0, 0, {0}};
}

long Model::calls(const char *function, const char *call, const std::string &arguments, long usual, int nth)
{
    const Choice choice = take(call);
    const sys::Answer answer = choice.taken == 0 ? sys::Answer{usual} : choice.answer;
    reached(function, call, nth, choice.taken);
    trace.push_back(as_line(call, arguments, answer));
    if (answer.error != 0) {
        error = answer.error;
    }
    return answer.result;
}

/* A call that makes a descriptor. */
long Model::makes(const char *function, const char *call, const std::string &arguments)
{
    const long fd = calls(function, call, arguments, next_descriptor);
    if (fd >= 0) {
        next_descriptor++;
        open.insert((int)fd);
    }
    return fd;
}

long Model::closes(const char *function, LONG fd, int nth)
{
    open.erase((int)fd);
    return calls(function, "close", list((int)fd), 0, nth);
}

/* Options are set to the int 1. */
long Model::sets_option(const char *function, LONG fd, int level, int option, int nth)
{
    return calls(function, "setsockopt", list((int)fd, level, option, "01000000", 4), 0, nth);
}

/* An interface query, on a request that is zero but for the name. */
long Model::queries(const char *function, LONG fd, const char *request, const std::string &name)
{
    return calls(function, "ioctl", list((int)fd, request, name, "zero"), 0);
}

/* The system knows an address of 28 bytes. */
void Model::filled_in(kel_sockaddr_t *addr)
{
    if (addr != nullptr) {
        memcpy(addr, &peer(), 28);
    }
}

/* ---- Reports ----------------------------------------------------------------------------------------------------- */

namespace
{

/* The macro as the source has it. */
std::string source_of(const Model::Report &report)
{
    if (report.prints == 1) {
        return std::string("NULL_CHECK(") + report.text + ")";
    }
    return report.ifName == nullptr ? std::string("kel_perror(\"") + report.text + "\")"
                                    : R"(kel_perror("get %s index\r\n", ifName))";
}

sys::Trace lines_of(const Model::Report &report, int shown_error, Filtered filtered)
{
    if (report.prints == 1) {
        return null_report(report.function, report.text, filtered, report.nth);
    }
    if (report.ifName == nullptr) {
        return perror_report(report.function, report.text, shown_error, filtered, report.nth);
    }
    char printed[100];
    snprintf(printed, sizeof(printed), report.text, report.ifName);
    return perror_report_with(report.function, source_of(report), report.text, printed, shown_error, filtered,
                              report.nth);
}

} // namespace

void Model::reports(const Report &report)
{
    const Reported how = take("filter").taken != 0    ? SuppressedByLine
                         : take("filter").taken != 0  ? SuppressedByName
                         : take("console").taken != 0 ? PrintedNoisily
                                                      : Printed;
    /* The text of errno is read behind the second print of four. */
    const int shown_error = how == PrintedNoisily ? console_error + 2 : how == Printed ? error : 0;
    const Filtered filtered = how == SuppressedByLine   ? Filtered::ByLine
                              : how == SuppressedByName ? Filtered::ByName
                                                        : Filtered::No;

    /* Looking up a line means to read the source: once is enough. */
    using Key = std::tuple<const char *, const char *, int, const CHAR *, Reported, int>;
    static std::map<Key, sys::Trace> known;
    auto [place, is_new] =
        known.try_emplace(Key(report.function, report.text, report.nth, report.ifName, how, shown_error));
    if (is_new) {
        place->second = lines_of(report, shown_error, filtered);
        taken_at[position(report.function, source_of(report), report.nth)].insert(how);
    }
    trace.insert(trace.end(), place->second.begin(), place->second.end());
    if (how == PrintedNoisily) {
        error = console_error + report.prints;
    }
}

bool Model::is_null(const char *function, const char *argument, const void *pointer, int nth)
{
    if (pointer == nullptr) {
        reports({function, argument, nth, 1, nullptr});
    }
    return pointer == nullptr;
}

void Model::perror(const char *function, const char *text, int nth)
{
    reports({function, text, nth, 4, nullptr});
}

void Model::asserts(const char *function, int nth)
{
    reached(function, "KEL_ASSERT(0)", nth, 0);
    const sys::Trace report = assert_report(function, nth);
    trace.insert(trace.end(), report.begin(), report.end());
}

/* ---- Registration ------------------------------------------------------------------------------------------------ */

LONG Model::socket_module_init()
{
    const long result = calls(__func__, "KEL_module_register", "KEL_socket, zero", 0);
    if (result != 0) {
        trace.push_back("KEL_Printf(module socket register error \r\n)");
        console = "module socket register error \r\n";
    }
    return result;
}

/* ---- Address record ---------------------------------------------------------------------------------------------- */

LONG Model::kel_sizeof_socket(const kel_sockaddr_t *addr)
{
    switch (family_of(addr)) {
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

/* ---- Address text ------------------------------------------------------------------------------------------------ */

int Model::Match_RegExpPattern(const char *inputpattern, char *inputbuf, int matchmode)
{
    if (inputpattern == nullptr || inputbuf == nullptr) {
        return 0;
    }
    if (calls(__func__, "regcomp", list(inputpattern, matchmode), 0) != 0) {
        return 0;
    }
    const long result =
        calls(__func__, "regexec", list(inputbuf, 1, "set", 0), matches(inputpattern, inputbuf) ? 0 : REG_NOMATCH);
    calls(__func__, "regfree", "", 0);
    return result == 0 ? 1 : 0;
}

BOOL Model::kel_is_ipv4_addr(CHAR *str)
{
    return Match_RegExpPattern(PATTERN_IPV4, str, 3);
}

BOOL Model::kel_is_ipv6_addr(char *str)
{
    return Match_RegExpPattern(PATTERN_IPV6, str, 3);
}

LONG Model::kel_inet_pton(LONG af, const CHAR *src, kel_sockaddr_t *dst)
{
    if (is_null(__func__, "src", src) || is_null(__func__, "dst", dst) || !is_ip(af)) {
        return KEL_ERROR;
    }
    /* The system has converted the text even where its answer is another. */
    const int converted = inet_pton((int)af, src, bytes(dst) + address_field(af).offset);
    return calls(__func__, "inet_pton", list(af, src), converted, af == 2 ? 1 : 2) == 1 ? KEL_OK : KEL_ERROR;
}

const CHAR *Model::kel_inet_ntop(LONG af, const kel_sockaddr_t *src, CHAR *dst, socklen_t size)
{
    if (!is_ip(af)) {
        return nullptr;
    }
    calls(__func__, "inet_ntop", list(af, size), 0, af == 2 ? 1 : 2);
    const CHAR *text = inet_ntop((int)af, bytes(src) + address_field(af).offset, dst, size);
    if (text == nullptr) {
        error = errno;
    }
    return text;
}

const CHAR *Model::kel_addr_showstr(kel_sockaddr_t *addr, CHAR *str, LONG size)
{
    const int family = family_of(addr);
    char address[100];
    char index[32];
    std::string line;
    if (is_ip(family)) {
        const std::string kind = family == 2 ? "ipv4" : "ipv6";
        line = kind + " " + kel_inet_ntop(family, addr, address, sizeof(address)) + ":" + shown(number_of(addr));
        trace.push_back("KEL_Sprintf(" + kind + " %s:%ld)");
    } else if (family == 1) {
        const char *text = reinterpret_cast<const char *>(bytes(addr)) + 2;
        line = "file " + std::string(text, strnlen(text, 108)).substr(0, 94);
        trace.push_back("KEL_Snprintf(100, file %.*s)");
    } else if (family == 17) {
        snprintf(index, sizeof(index), "%x", number_of(addr));
        line = "ifindex " + shown((int)bytes(addr)[4]) + ",protocol 0x" + index;
        trace.push_back("KEL_Sprintf(ifindex %ld,protocol 0x%lx)");
    } else {
        return "null";
    }
    trace.push_back("KEL_StrnCpy(" + list(line, size) + ")");
    strncpy(str, line.c_str(), (size_t)size);
    return str;
}

/* ---- Address comparison ------------------------------------------------------------------------------------------ */

LONG Model::kel_sock_addr_cmp(kel_sockaddr_t *addr1, kel_sockaddr_t *addr2, BOOL ignPort)
{
    if (is_null(__func__, "addr1", addr1) || is_null(__func__, "addr2", addr2) ||
        family_of(addr1) != family_of(addr2)) {
        return KEL_ERROR;
    }
    const int family = family_of(addr1);
    if (is_ip(family)) {
        const auto [offset, size] = address_field(family);
        if (ignPort == 0 && number_of(addr1) != number_of(addr2)) {
            return KEL_ERROR;
        }
        trace.push_back("KEL_MemCmp(set, set, " + shown(size) + ")");
        return memcmp(bytes(addr1) + offset, bytes(addr2) + offset, size) == 0 ? KEL_OK : KEL_ERROR;
    }
    if (family == 1) {
        const std::string first = reinterpret_cast<const char *>(bytes(addr1)) + 2;
        const std::string second = reinterpret_cast<const char *>(bytes(addr2)) + 2;
        trace.push_back("KEL_StrCmp(" + list(first, second) + ")");
        return first == second ? KEL_OK : KEL_ERROR;
    }
    /* Protocol and interface index lie side by side. */
    return family == 17 && memcmp(bytes(addr1) + 2, bytes(addr2) + 2, 6) == 0 ? KEL_OK : KEL_ERROR;
}

/* ---- Address construction ---------------------------------------------------------------------------------------- */

bool Model::interface_index(LONG fd, const CHAR *ifName, int *index)
{
    trace.push_back("KEL_MemSet(set, 0, 40)");
    trace.push_back("KEL_StrnCpy(" + list(ifName, 16) + ")");
    if (queries("__interface_index", fd, "SIOCGIFINDEX", std::string(ifName).substr(0, 16)) == -1) {
        closes("__interface_index", fd);
        return false;
    }
    *index = sys::interface_index;
    return true;
}

LONG Model::kel_addr_fill(LONG socket, kel_sockaddr_t *my_addr, kel_domain_t family, SHORT port, const CHAR *addrStr,
                          SHORT protocol, const CHAR *ifName)
{
    trace.push_back(std::string("KEL_MemSet(") + (my_addr == nullptr ? "null" : "set") + ", 0, 112)");
    if (is_null(__func__, "my_addr", my_addr)) {
        return KEL_ERROR;
    }
    memset(my_addr, 0, 112);

    if (is_ip(family)) {
        const int nth = family == 2 ? 1 : 2;
        if (is_null(__func__, "addrStr", addrStr, nth)) {
            return KEL_ERROR;
        }
        begin_record(my_addr, family, port);
        if (kel_inet_pton(family, addrStr, my_addr) != KEL_OK) {
            asserts(__func__, nth);
            return KEL_ERROR;
        }
    } else if (family == 1) {
        if (is_null(__func__, "addrStr", addrStr, 3)) {
            return KEL_ERROR;
        }
        begin_record(my_addr, family, 0);
        trace.push_back("KEL_StrnCpy(" + list(addrStr, 108) + ")");
        memcpy(bytes(my_addr) + 2, addrStr, strnlen(addrStr, 108));
    } else if (family == 17) {
        int index = 0;
        if (is_null(__func__, "ifName", ifName) || !interface_index(socket, ifName, &index)) {
            return KEL_ERROR;
        }
        begin_record(my_addr, family, protocol);
        bytes(my_addr)[4] = (unsigned char)index;
    }
    return KEL_OK;
}

LONG Model::kel_get_if_mac_addr(const CHAR *ifName, UCHAR *addr)
{
    if (is_null(__func__, "ifName", ifName) || is_null(__func__, "addr", addr)) {
        return KEL_ERROR;
    }
    trace.push_back("KEL_MemSet(set, 0, 40)");
    const long query = makes(__func__, "socket", "17, 3, 0");
    if (query < 0) {
        perror(__func__, "socket() failed to get socket descriptor for using ioctl() ");
        return KEL_ERROR;
    }
    trace.push_back("KEL_Snprintf(16, %s)");
    if (queries(__func__, query, "SIOCGIFHWADDR", std::string(ifName).substr(0, 15)) < 0) {
        perror(__func__, "ioctl() failed to get source MAC address ");
        closes(__func__, query, 1);
        return KEL_ERROR;
    }
    closes(__func__, query, 2);
    trace.push_back("KEL_MemCpy(set, set, 6)");
    memcpy(addr, sys::interface_mac, 6);
    return KEL_OK;
}

/* ---- Descriptors and options ------------------------------------------------------------------------------------- */

LONG Model::kel_socket(kel_domain_t domain, kel_socktype_t type, LONG protocol)
{
    const long fd = makes(__func__, "socket", list((int)domain, (int)type, (int)protocol));
    if (fd == -1) {
        return KEL_ERROR;
    }
    const int options[][2] = {{1, 2}, {41, 26}}; /* reuse of the address; IPv6 alone */
    for (int i = 0; i < (domain == 10 ? 2 : 1); i++) {
        if (sets_option(__func__, fd, options[i][0], options[i][1], i + 1) < 0) {
            perror(__func__, "setsockopt socket", i + 1);
            closes(__func__, fd, i + 1);
            return KEL_ERROR;
        }
    }
    return fd;
}

LONG Model::kel_getsockopt(LONG sockfd, LONG level, LONG optname, void *optval, socklen_t *optlen)
{
    if (is_null(__func__, "optval", optval) || is_null(__func__, "optlen", optlen)) {
        return KEL_ERROR;
    }
    return calls(__func__, "getsockopt", list((int)sockfd, (int)level, (int)optname, name_of(optval), name_of(optlen)),
                 0);
}

LONG Model::kel_setsockopt(LONG sockfd, LONG level, LONG optname, const void *optval, socklen_t optlen)
{
    if (is_null(__func__, "optval", optval)) {
        return KEL_ERROR;
    }
    return calls(__func__, "setsockopt", list((int)sockfd, (int)level, (int)optname, sys::hex(optval, optlen), optlen),
                 0);
}

LONG Model::kel_close(LONG sockfd)
{
    return closes(__func__, sockfd);
}

/* ---- Bind, listen, accept, connect, names ------------------------------------------------------------------------ */

LONG Model::kel_bind(LONG sockfd, kel_sockaddr_t *my_addr)
{
    if (is_null(__func__, "my_addr", my_addr)) {
        return KEL_ERROR;
    }
    const LONG length = kel_sizeof_socket(my_addr);
    const std::string arguments = list((int)sockfd, sys::hex(my_addr, (size_t)length), length);
    return calls(__func__, "bind", arguments, 0) == 0 ? KEL_OK : KEL_ERROR;
}

LONG Model::kel_bind_str(LONG sockfd, kel_domain_t family, SHORT port, const CHAR *addrStr, SHORT protocol,
                         const CHAR *ifName)
{
    trace.push_back("KEL_MemSet(set, 0, 112)");
    const CHAR *wildcard = family == 2 ? "0.0.0.0" : family == 10 ? "::" : nullptr;
    kel_sockaddr_t record;
    if (kel_addr_fill(sockfd, &record, family, port, addrStr == nullptr ? wildcard : addrStr, protocol, ifName) != 0) {
        return KEL_ERROR;
    }
    return kel_bind(sockfd, &record);
}

LONG Model::kel_listen(LONG sockfd, LONG maxClient)
{
    return calls(__func__, "listen", list((int)sockfd, (int)maxClient), 0) == 0 ? KEL_OK : KEL_ERROR;
}

LONG Model::kel_accept(LONG sockfd, kel_sockaddr_t *addr)
{
    if (is_null(__func__, "addr", addr)) {
        return KEL_ERROR;
    }
    const long accepted = makes(__func__, "accept", list((int)sockfd, name_of(addr), 112));
    if (accepted != -1) {
        filled_in(addr);
    }
    return accepted;
}

LONG Model::kel_connect(LONG sockfd, kel_sockaddr_t *con_addr)
{
    if (is_null(__func__, "con_addr", con_addr)) {
        return KEL_ERROR;
    }
    const LONG length = kel_sizeof_socket(con_addr);
    const std::string arguments = list((int)sockfd, sys::hex(con_addr, (size_t)length), length);
    if (calls(__func__, "connect", arguments, 0) != 0) {
        perror(__func__, "connect :");
        return KEL_ERROR;
    }
    return KEL_OK;
}

LONG Model::kel_connect_str(LONG sockfd, kel_domain_t family, SHORT port, const CHAR *addrStr)
{
    if (is_null(__func__, "addrStr", addrStr)) {
        return KEL_ERROR;
    }
    trace.push_back("KEL_MemSet(set, 0, 112)");
    kel_sockaddr_t record;
    if (kel_addr_fill(sockfd, &record, family, port, addrStr, 0, nullptr) != 0) {
        return KEL_ERROR;
    }
    return kel_connect(sockfd, &record);
}

LONG Model::kel_getpeername(LONG sockfd, kel_sockaddr_t *addr)
{
    if (calls(__func__, "getpeername", list((int)sockfd, name_of(addr), 112), 0) == -1) {
        return KEL_ERROR;
    }
    filled_in(addr);
    return KEL_OK;
}

LONG Model::kel_getsockname(LONG sockfd, kel_sockaddr_t *addr)
{
    if (calls(__func__, "getsockname", list((int)sockfd, name_of(addr), 112), 0) == -1) {
        return KEL_ERROR;
    }
    filled_in(addr);
    return KEL_OK;
}

/* ---- Data transfer ----------------------------------------------------------------------------------------------- */

LONG Model::kel_recv(LONG sockfd, VOID *buf, size_t len, LONG flags)
{
    return calls(__func__, "recv", list((int)sockfd, name_of(buf), len, (int)flags), (long)len);
}

LONG Model::kel_send(LONG sockfd, const VOID *buf, size_t len, LONG flags)
{
    return calls(__func__, "send", list((int)sockfd, name_of(buf), len, (int)flags), (long)len);
}

LONG Model::kel_recvfrom(LONG sockfd, void *buf, size_t len, LONG flags, kel_sockaddr_t *src_addr)
{
    if (is_null(__func__, "buf", buf) || is_null(__func__, "src_addr", src_addr)) {
        return KEL_ERROR;
    }
    const long count = calls(__func__, "recvfrom",
                             list((int)sockfd, name_of(buf), len, (int)flags, name_of(src_addr), 112), (long)len);
    if (count != -1) {
        filled_in(src_addr);
    }
    return (int32_t)count;
}

LONG Model::kel_sendto(LONG sockfd, const void *buf, size_t len, LONG flags, const kel_sockaddr_t *dest_addr)
{
    if (is_null(__func__, "buf", buf) || is_null(__func__, "dest_addr", dest_addr)) {
        return KEL_ERROR;
    }
    const LONG length = kel_sizeof_socket(dest_addr);
    const std::string record = sys::hex(dest_addr, (size_t)length);
    return (int32_t)calls(__func__, "sendto", list((int)sockfd, name_of(buf), len, (int)flags, record, length),
                          (long)len);
}

LONG Model::kel_raw_sendto(LONG sockfd, const CHAR *ifName, const void *buf, size_t len, LONG flags)
{
    UCHAR mac[6];
    if (kel_get_if_mac_addr(ifName, mac) == KEL_ERROR) {
        perror(__func__, "get mac addr");
        return KEL_ERROR;
    }
    const int index = (int)calls(__func__, "if_nametoindex", or_null(ifName), sys::interface_index);
    if (index == 0) {
        reports({__func__, "get %s index\r\n", 1, 4, ifName});
        return KEL_ERROR;
    }
    kel_sockaddr_t record;
    memset(&record, 0, sizeof(record));
    begin_record(&record, 17, 0);
    memcpy(bytes(&record) + 4, &index, 4);
    memcpy(bytes(&record) + 12, mac, 6);
    return kel_sendto(sockfd, buf, len, flags, &record);
}

/* ---- Endpoints --------------------------------------------------------------------------------------------------- */

/* A step that fails is reported, and then the descriptor closed if there is one. */
bool Model::step(const char *function, const char *text, LONG result, LONG fd)
{
    if (result == KEL_ERROR) {
        perror(function, text);
        if (fd != KEL_ERROR) {
            kel_close(fd);
        }
    }
    return result != KEL_ERROR;
}

/* Only with a port, and it may fail. */
void Model::binds_local(LONG fd, kel_sockaddr_t *my_addr)
{
    if (my_addr != nullptr && number_of(my_addr) != 0) {
        kel_bind(fd, my_addr);
    }
}

LONG Model::kel_tcp_server_socket_create(kel_domain_t family, const CHAR *addrStr, SHORT port, LONG)
{
    const LONG fd = kel_socket(family, KEL_SOCK_STREAM, 0);
    const bool ready = step(__func__, "create tcp socket", fd, fd) &&
                       step(__func__, "bind tcp socket", kel_bind_str(fd, family, port, addrStr, 0, nullptr), fd) &&
                       step(__func__, "listen tcp socket", kel_listen(fd, 5), fd);
    return ready ? fd : KEL_ERROR;
}

LONG Model::kel_tcp_client_socket_create(kel_domain_t family, const CHAR *addrStr, SHORT port)
{
    const LONG fd = kel_socket(family, KEL_SOCK_STREAM, 0);
    const bool ready = step(__func__, "create tcp socket", fd, fd) &&
                       step(__func__, "connet tcp socket", kel_connect_str(fd, family, port, addrStr), fd);
    return ready ? fd : KEL_ERROR;
}

LONG Model::kel_tcp_client_socket_create_bind(kel_domain_t family, const CHAR *addrStr, SHORT port,
                                              kel_sockaddr_t *my_addr)
{
    const LONG fd = kel_socket(family, KEL_SOCK_STREAM, 0);
    if (!step(__func__, "create tcp socket", fd, fd)) {
        return KEL_ERROR;
    }
    binds_local(fd, my_addr);
    return step(__func__, "connet tcp socket", kel_connect_str(fd, family, port, addrStr), fd) ? fd : KEL_ERROR;
}

LONG Model::kel_udp_server_socket_create(kel_domain_t family, const CHAR *addrStr, SHORT port)
{
    const LONG fd = kel_socket(family, KEL_SOCK_DGRAM, 0);
    const bool ready = step(__func__, "create tcp socket", fd, fd) &&
                       step(__func__, "bind tcp socket", kel_bind_str(fd, family, port, addrStr, 0, nullptr), fd);
    return ready ? fd : KEL_ERROR;
}

LONG Model::kel_udp_client_socket_create(kel_domain_t family, const CHAR *s_addrStr, SHORT s_port,
                                         kel_sockaddr_t *s_addr)
{
    const LONG fd = kel_socket(family, KEL_SOCK_DGRAM, 0);
    const bool ready = step(__func__, "create tcp socket", fd, fd) &&
                       (s_addr == nullptr || step(__func__, "bind tcp socket",
                                                  kel_addr_fill(0, s_addr, family, s_port, s_addrStr, 0, nullptr), fd));
    return ready ? fd : KEL_ERROR;
}

LONG Model::kel_udp_client_socket_create_bind(kel_domain_t family, const CHAR *s_addrStr, SHORT s_port,
                                              kel_sockaddr_t *s_addr, kel_sockaddr_t *my_addr)
{
    const LONG fd = kel_socket(family, KEL_SOCK_DGRAM, 0);
    if (!step(__func__, "create tcp socket", fd, fd)) {
        return KEL_ERROR;
    }
    binds_local(fd, my_addr);
    const bool ready = s_addr == nullptr || step(__func__, "bind tcp socket",
                                                 kel_addr_fill(0, s_addr, family, s_port, s_addrStr, 0, nullptr), fd);
    return ready ? fd : KEL_ERROR;
}

LONG Model::kel_unix_tcp_server_socket_create(const CHAR *local_path, LONG maxClient)
{
    const LONG fd = kel_socket(KEL_AF_UNIX, KEL_SOCK_STREAM, 0);
    if (!step(__func__, "create unix socket", fd, fd)) {
        return KEL_ERROR;
    }
    calls(__func__, "unlink", or_null(local_path), 0);
    const bool ready =
        step(__func__, "bind unix socket", kel_bind_str(fd, KEL_AF_UNIX, 0, local_path, 0, nullptr), fd) &&
        step(__func__, "listen unix socket", kel_listen(fd, maxClient), fd);
    return ready ? fd : KEL_ERROR;
}

LONG Model::kel_unix_udp_socket_create(const CHAR *local_path, BOOL isbind)
{
    const LONG fd = kel_socket(KEL_AF_UNIX, KEL_SOCK_DGRAM, 0);
    const bool ready = step(__func__, "create unix socket", fd, fd) &&
                       (isbind == 0 || step(__func__, "bind unix socket",
                                            kel_bind_str(fd, KEL_AF_UNIX, 0, local_path, 0, nullptr), fd));
    return ready ? fd : KEL_ERROR;
}

LONG Model::kel_unix_tcp_client_socket_create(const CHAR *local_path)
{
    const LONG fd = kel_socket(KEL_AF_UNIX, KEL_SOCK_STREAM, 0);
    const bool ready = step(__func__, "socket failed", fd, fd) &&
                       step(__func__, "connect failed", kel_connect_str(fd, KEL_AF_UNIX, 0, local_path), fd);
    return ready ? fd : KEL_ERROR;
}

/* Where the interface query has closed the descriptor, the last step closes its number again. */
LONG Model::kel_raw_server_socket_create(SHORT protocol, const CHAR *ifName)
{
    const LONG fd = kel_socket(KEL_AF_PACKET, KEL_SOCK_RAW, protocol);
    const bool ready =
        step(__func__, "create raw socket", fd, fd) &&
        step(__func__, "bind raw socket", kel_bind_str(fd, KEL_AF_PACKET, 0, nullptr, protocol, ifName), fd);
    return ready ? fd : KEL_ERROR;
}
