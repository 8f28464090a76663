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

bool has_text(const Model::Report &report)
{
    return strcmp(report.macro, "kel_perror") == 0;
}

/* The macro as the source has it. */
std::string source_of(const Model::Report &report)
{
    if (!has_text(report)) {
        return std::string(report.macro) + "(" + report.text + ")";
    }
    return report.ifName == nullptr ? std::string("kel_perror(\"") + report.text + "\")"
                                    : R"(kel_perror("get %s index\r\n", ifName))";
}

sys::Trace lines_of(const Model::Report &report, int shown_error, Filtered filtered)
{
    if (!has_text(report)) {
        return null_report(report.function, report.text, filtered, report.nth, report.macro);
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

    /* Kept, since looking up a line reads the whole source. */
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
        error = console_error + (has_text(report) ? 4 : 1); /* as many prints */
    }
}

bool Model::is_null(const char *function, const char *argument, const void *pointer, int nth, const char *check)
{
    if (pointer == nullptr) {
        reports({function, check, argument, nth, nullptr});
    }
    return pointer == nullptr;
}

void Model::perror(const char *function, const char *text, int nth)
{
    reports({function, "kel_perror", text, nth, nullptr});
}

void Model::asserts(const char *function)
{
    reached(function, "KEL_ASSERT(0)", 1, 0);
    const sys::Trace report = assert_report(function);
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
    return calls(__func__, "inet_pton", list(af, src), converted) == 1 ? KEL_OK : KEL_ERROR;
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
        if (is_null(__func__, "addrStr", addrStr)) {
            return KEL_ERROR;
        }
        begin_record(my_addr, family, port);
        if (kel_inet_pton(family, addrStr, my_addr) != KEL_OK) {
            asserts(__func__);
            return KEL_ERROR;
        }
    } else if (family == 1) {
        if (is_null(__func__, "addrStr", addrStr, 2)) {
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
            perror(__func__, "setsockopt socket");
            closes(__func__, fd);
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
        reports({__func__, "kel_perror", "get %s index\r\n", 1, ifName});
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

/* The local bind of the clients: only with a port. Its result makes no difference. */
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

/* ---- SCTP address lists ------------------------------------------------------------------------------------------ */

/* Requests are signed products; below zero or beyond 64 bits nobody can have them. The allocator has 16 megabytes. */
Model::Block Model::takes(const char *function, LONG count, int element)
{
    const __int128 product = (__int128)count * element;
    const LONG size = (LONG)product == product ? (LONG)product : -1;
    const long number = calls(function, "tc_malloc", list(size), size < 0 || size > 1 << 24 ? 0 : blocks + 1);
    if (number == 0) {
        return "";
    }
    blocks++;
    return *held.insert("block " + std::to_string(number)).first;
}

void Model::gives_back(const char *function, const Block &block)
{
    held.erase(block);
    calls(function, "tc_free", block, 0);
}

/* The first record tells how much is copied of every one. */
Model::Block Model::packs(kel_sockaddr_t *addrs, LONG addrcnt, std::string *digits)
{
    constexpr const char *function = "__kel_addr_transfer2_addr";
    if (is_null(function, "addrs", addrs, 1, "NULL_CHECK_RP") || !is_ip(family_of(addrs))) {
        return "";
    }
    const int length = family_of(addrs) == 2 ? 16 : 28;
    Block block = takes(function, addrcnt, length);
    for (LONG i = 0; !block.empty() && i < addrcnt; i++) {
        trace.push_back("KEL_MemCpy(set, set, " + shown(length) + ")");
        *digits += sys::hex(addrs + i, (size_t)length);
    }
    return block;
}

/* No texts are one wildcard, of no text at all in a family that has none. */
Model::Block Model::reads(LONG sockfd, kel_domain_t family, SHORT port, CHAR **addrStr, LONG addrcnt,
                          std::vector<kel_sockaddr_t> *records)
{
    constexpr const char *function = "__str_transfer2kel_addr";
    const std::string wildcard = family == 2 ? "0.0.0.0" : family == 10 ? "::" : "";
    if (addrStr == nullptr && !wildcard.empty()) {
        trace.push_back("KEL_StrCpy(" + wildcard + ")");
    }
    const LONG count = addrStr == nullptr ? 1 : addrcnt;
    Block block = takes(function, count, 112);
    for (LONG i = 0; !block.empty() && i < count; i++) {
        kel_sockaddr_t record;
        const CHAR *text = addrStr == nullptr ? wildcard.c_str() : addrStr[i];
        if (kel_addr_fill(sockfd, &record, family, port, text, 0, nullptr) != KEL_OK) {
            gives_back(function, block);
            return "";
        }
        records->push_back(record);
    }
    return block;
}

/* The records of texts, for as long as they are used; one where there are no texts. */
LONG Model::with_texts(const char *function, LONG sockfd, kel_domain_t family, SHORT port, CHAR **addrStr, LONG addrcnt,
                       const std::function<LONG(kel_sockaddr_t *addrs, LONG addrcnt)> &use)
{
    std::vector<kel_sockaddr_t> records;
    const Block block = reads(sockfd, family, port, addrStr, addrcnt, &records);
    if (block.empty()) {
        return KEL_ERROR;
    }
    const LONG result = use(records.data(), (LONG)records.size());
    gives_back(function, block);
    return result;
}

/* The array goes to the caller. What its records have no member for is as the allocator left it. */
kel_sockaddr_t *Model::unpacks(const kel_sockaddr_t *addrs, LONG addrcnt)
{
    constexpr const char *function = "__addr_transfer2_kel_addr";
    if (is_null(function, "addrs", addrs, 1, "NULL_CHECK_RP")) {
        return nullptr;
    }
    fetched_block = takes(function, addrcnt, 112);
    if (fetched_block.empty()) {
        return nullptr;
    }
    const int family = family_of(addrs);
    if (!is_ip(family)) {
        gives_back(function, fetched_block);
        return nullptr;
    }
    fetched.resize((size_t)addrcnt);
    memset(static_cast<void *>(fetched.data()), 0xa5, fetched.size() * 112);
    for (size_t i = 0; i < fetched.size(); i++) {
        memcpy(bytes(&fetched[i]), bytes(&addrs[i]), family == 2 ? 16 : 28);
    }
    return fetched.data();
}

/* libsctp's list goes back whatever became of it; the caller's pointer changes only where there are addresses. */
LONG Model::lists(const char *function, const char *call, const char *release, LONG sockfd, sctp_assoc_t assoc_id,
                  kel_sockaddr_t **addrs)
{
    if (is_null(function, "addrs", addrs)) {
        return KEL_ERROR;
    }
    long count = calls(function, call, list((int)sockfd, assoc_id, "null"), (long)caller.listed_count);
    if (count == -1) {
        perror(function, "sctp_opt_info ");
        return KEL_ERROR;
    }
    const bool has_list = caller.listed_count != 0;
    if (count != 0) {
        *addrs = unpacks(has_list ? caller.listed : nullptr, count);
        count = *addrs == nullptr ? KEL_ERROR : count;
    }
    if (has_list) {
        calls(function, release, "list 1", 0);
    }
    return count;
}

/* The pointer goes to the allocator unchecked. */
LONG Model::unlists(const char *function, kel_sockaddr_t *addrs)
{
    gives_back(function, addrs != nullptr && addrs == fetched.data() ? fetched_block : name_of(addrs));
    return KEL_OK;
}

LONG Model::kel_sctp_getpaddrs(LONG sockfd, sctp_assoc_t assoc_id, kel_sockaddr_t **addrs)
{
    return lists(__func__, "sctp_getpaddrs", "sctp_freepaddrs", sockfd, assoc_id, addrs);
}

LONG Model::kel_sctp_getladdrs(LONG sockfd, sctp_assoc_t assoc_id, kel_sockaddr_t **addrs)
{
    return lists(__func__, "sctp_getladdrs", "sctp_freeladdrs", sockfd, assoc_id, addrs);
}

LONG Model::kel_sctp_freepaddrs(kel_sockaddr_t *addrs)
{
    return unlists(__func__, addrs);
}

LONG Model::kel_sctp_freeladdrs(kel_sockaddr_t *addrs)
{
    return unlists(__func__, addrs);
}

/* ---- SCTP association calls -------------------------------------------------------------------------------------- */

LONG Model::kel_sctp_bindx(LONG sockfd, kel_sockaddr_t *addrs, LONG addrcnt, LONG flags)
{
    std::string digits;
    const Block block = packs(addrs, addrcnt, &digits);
    if (block.empty()) {
        return KEL_ERROR;
    }
    const long result = calls(__func__, "sctp_bindx", list((int)sockfd, digits, (int)addrcnt, (int)flags), 0);
    if (result == -1) {
        perror(__func__, "sctp bindx ");
    }
    gives_back(__func__, block);
    return result;
}

LONG Model::kel_sctp_bindx_str(LONG sockfd, kel_domain_t family, SHORT port, CHAR **addrStr, LONG addrcnt, LONG flags)
{
    return with_texts(__func__, sockfd, family, port, addrStr, addrcnt,
                      [=](kel_sockaddr_t *addrs, LONG) { return kel_sctp_bindx(sockfd, addrs, addrcnt, flags); });
}

LONG Model::kel_sctp_connectx(LONG sockfd, kel_sockaddr_t *addrs, LONG addrcnt, sctp_assoc_t *id)
{
    std::string digits;
    const Block block = is_null(__func__, "addrs", addrs) ? "" : packs(addrs, addrcnt, &digits);
    if (block.empty()) {
        return KEL_ERROR;
    }
    const long result = calls(__func__, "sctp_connectx", list((int)sockfd, digits, (int)addrcnt, name_of(id)), 0);
    if (result == -1) {
        perror(__func__, "sctp connectx ");
    } else if (id != nullptr) {
        *id = sys::association;
    }
    gives_back(__func__, block);
    return result;
}

LONG Model::kel_sctp_connectx_str(LONG sockfd, kel_domain_t family, SHORT port, CHAR **addrStr, LONG addrcnt,
                                  sctp_assoc_t *id)
{
    if (is_null(__func__, "addrStr", addrStr)) {
        return KEL_ERROR;
    }
    return with_texts(__func__, sockfd, family, port, addrStr, addrcnt,
                      [=](kel_sockaddr_t *addrs, LONG count) { return kel_sctp_connectx(sockfd, addrs, count, id); });
}

/* Results have 32 bits. */
LONG Model::passes_on(const char *function, const char *text, long result)
{
    if ((int32_t)result == -1) {
        perror(function, text);
    }
    return (int32_t)result;
}

LONG Model::kel_sctp_send(LONG sockfd, const void *msg, size_t len, const struct sctp_sndrcvinfo *sinfo, LONG flags)
{
    if (is_null(__func__, "msg", msg)) {
        return KEL_ERROR;
    }
    const std::string arguments = list((int)sockfd, name_of(msg), len, name_of(sinfo), (int)flags);
    return passes_on(__func__, "sctp send ", calls(__func__, "sctp_send", arguments, (long)len));
}

LONG Model::kel_sctp_sendmsg(LONG sockfd, const void *msg, size_t len, kel_sockaddr_t *to, LONG ppid, LONG flags,
                             LONG stream_no, LONG timetolive, LONG context)
{
    const LONG length = kel_sizeof_socket(to);
    const std::string address = sys::hex(to, (size_t)length);
    const std::string arguments =
        list((int)sockfd, name_of(msg), len, address, length, "ppid " + shown(ppid & 0xffffffff),
             "flags " + shown(flags & 0xffffffff), "stream " + shown(stream_no & 0xffff),
             "timetolive " + shown(timetolive & 0xffffffff), "context " + shown(context & 0xffffffff));
    return passes_on(__func__, "sctp sendmsg ", calls(__func__, "sctp_sendmsg", arguments, (long)len));
}

/* Silent, and the flags are stored by success alone. */
LONG Model::kel_sctp_recvmsg(LONG sockfd, void *msg, size_t len, kel_sockaddr_t *from, struct sctp_sndrcvinfo *sinfo,
                             LONG *msg_flags)
{
    const std::string arguments = list((int)sockfd, name_of(msg), len, name_of(from), 112, name_of(sinfo), 0);
    const long count = (int32_t)calls(__func__, "sctp_recvmsg", arguments, (long)len);
    if (count != -1) {
        filled_in(from);
        *msg_flags = received_flags;
    }
    return count;
}

LONG Model::kel_sctp_peeloff(LONG sockfd, sctp_assoc_t assoc_id)
{
    return passes_on(__func__, "sctp_peeloff ", makes(__func__, "sctp_peeloff", list((int)sockfd, assoc_id)));
}

LONG Model::kel_sctp_opt_info(LONG sockfd, sctp_assoc_t assoc_id, LONG opt, void *arg, socklen_t *size)
{
    if (is_null(__func__, "arg", arg) || is_null(__func__, "size", size)) {
        return KEL_ERROR;
    }
    const std::string arguments = list((int)sockfd, assoc_id, (int)opt, name_of(arg), name_of(size));
    return passes_on(__func__, "sctp_opt_info ", calls(__func__, "sctp_opt_info", arguments, 0));
}

/* ---- SCTP set-up ------------------------------------------------------------------------------------------------- */

/* Two options of 8 and 10 bytes. */
LONG Model::__kel_set_sock_op_sctp(LONG sockfd, const struct sctp_initmsg *initmsg,
                                   const struct sctp_event_subscribe *events)
{
    LONG result = kel_setsockopt(sockfd, 132, 2, initmsg, 8);
    if (result != 0) {
        perror(__func__, "set sctp_initmsg ");
    } else if ((result = kel_setsockopt(sockfd, 132, 11, events, 10)) != 0) {
        perror(__func__, "set sctp_event_subscribe ");
    }
    return result;
}

/* Without a subscription the first of the ten flags alone. */
bool Model::sets_up(const char *set_up, const char *text, LONG fd, struct sctp_initmsg *initmsg,
                    struct sctp_event_subscribe *events)
{
    struct sctp_event_subscribe data_io = {1, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    if (events == nullptr) {
        trace.push_back("KEL_MemSet(set, 0, 10)");
    }
    const bool is_set_up = __kel_set_sock_op_sctp(fd, initmsg, events == nullptr ? &data_io : events) == 0;
    if (!is_set_up) {
        perror(set_up, text);
    }
    return is_set_up;
}

LONG Model::__sctp_server_create(LONG sockfd, kel_sockaddr_t *addrs, LONG addrcnt, SHORT, LONG maxClient,
                                 struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events)
{
    if (kel_sctp_bindx(sockfd, addrs, addrcnt, 1) == KEL_ERROR) {
        perror(__func__, "bind sctp socket");
        return KEL_ERROR;
    }
    if (kel_listen(sockfd, maxClient) == KEL_ERROR) {
        perror(__func__, "listen sctp socket");
        return KEL_ERROR;
    }
    return sets_up(__func__, "set_sock_op_sctp", sockfd, initmsg, events) ? KEL_OK : KEL_ERROR;
}

/* A descriptor that is not above 0 is reported as none, and stays open. */
LONG Model::made(const char *function, LONG fd)
{
    if (fd > 0) {
        return fd;
    }
    perror(function, "create sctp socket ");
    return KEL_ERROR;
}

/* A client before it connects. */
LONG Model::becomes_client(const char *set_up, kel_domain_t family, kel_socktype_t type, kel_sockaddr_t *my_addrs,
                           LONG my_addrcnt, struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events)
{
    const LONG fd = made(set_up, kel_socket(family, type, 132));
    if (fd == KEL_ERROR) {
        return KEL_ERROR;
    }
    if (my_addrs != nullptr && my_addrcnt != 0) {
        kel_sctp_bindx(fd, my_addrs, my_addrcnt, 1);
    }
    return sets_up(set_up, "set_sock_op_sctp ", fd, initmsg, events) ? fd : closed(fd);
}

LONG Model::__sctp_one2one_client_create(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt, SHORT,
                                         struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events,
                                         sctp_assoc_t *id, kel_sockaddr_t *my_addrs, LONG my_addrcnt)
{
    const LONG fd = becomes_client(__func__, family, KEL_SOCK_STREAM, my_addrs, my_addrcnt, initmsg, events);
    if (fd != KEL_ERROR && kel_sctp_connectx(fd, s_addrs, s_addrcnt, id) != 0) {
        perror(__func__, "sctp_connectx ");
        return closed(fd);
    }
    return fd;
}

LONG Model::__sctp_one2many_client_create(kel_domain_t family, kel_sockaddr_t *, LONG, SHORT,
                                          struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events,
                                          kel_sockaddr_t *my_addrs, LONG my_addrcnt)
{
    return becomes_client(__func__, family, KEL_SOCK_SEQPACKET, my_addrs, my_addrcnt, initmsg, events);
}

/* ---- SCTP endpoints ---------------------------------------------------------------------------------------------- */

LONG Model::closed(LONG fd)
{
    kel_close(fd);
    return KEL_ERROR;
}

/* An SCTP server on its socket, or on what kel_socket gave instead of one. */
LONG Model::serves(LONG fd, kel_sockaddr_t *addrs, LONG addrcnt, LONG maxClient, struct sctp_initmsg *initmsg,
                   struct sctp_event_subscribe *events)
{
    return __sctp_server_create(fd, addrs, addrcnt, 0, maxClient, initmsg, events) == KEL_OK ? fd : closed(fd);
}

LONG Model::kel_sctp_server_one2one_create(kel_domain_t family, kel_sockaddr_t *addrs, LONG addrcnt, SHORT port,
                                           LONG maxClient, struct sctp_initmsg *initmsg,
                                           struct sctp_event_subscribe *events)
{
    const LONG fd =
        is_null(__func__, "initmsg", initmsg) ? KEL_ERROR : made(__func__, kel_socket(family, KEL_SOCK_STREAM, 132));
    if (fd == KEL_ERROR) {
        return KEL_ERROR;
    }
    kel_sockaddr_t wildcard;
    if (addrs == nullptr) {
        trace.push_back("KEL_MemSet(set, 0, 112)");
        kel_addr_fill(fd, &wildcard, family, port, family == 10 ? "::" : "0.0.0.0", 0, nullptr);
        return serves(fd, &wildcard, 1, maxClient, initmsg, events);
    }
    return serves(fd, addrs, addrcnt, maxClient, initmsg, events);
}

/* The descriptor is not tested: without one, the bind fails. */
LONG Model::kel_sctp_server_one2many_create(kel_domain_t family, kel_sockaddr_t *addrs, LONG addrcnt, SHORT,
                                            LONG maxClient, struct sctp_initmsg *initmsg,
                                            struct sctp_event_subscribe *events)
{
    if (is_null(__func__, "initmsg", initmsg)) {
        return KEL_ERROR;
    }
    return serves(kel_socket(family, KEL_SOCK_SEQPACKET, 132), addrs, addrcnt, maxClient, initmsg, events);
}

LONG Model::kel_sctp_server_one2one_str_create(kel_domain_t family, CHAR **addrStr, LONG addrcnt, SHORT port,
                                               LONG maxClient, struct sctp_initmsg *initmsg,
                                               struct sctp_event_subscribe *events)
{
    if (is_null(__func__, "initmsg", initmsg)) {
        return KEL_ERROR;
    }
    return with_texts(__func__, 0, family, port, addrStr, addrcnt, [=](kel_sockaddr_t *addrs, LONG count) {
        return kel_sctp_server_one2one_create(family, addrs, count, port, maxClient, initmsg, events);
    });
}

LONG Model::kel_sctp_server_one2many_str_create(kel_domain_t family, CHAR **addrStr, LONG addrcnt, SHORT port,
                                                LONG maxClient, struct sctp_initmsg *initmsg,
                                                struct sctp_event_subscribe *events)
{
    if (is_null(__func__, "initmsg", initmsg)) {
        return KEL_ERROR;
    }
    return with_texts(__func__, 0, family, port, addrStr, addrcnt, [=](kel_sockaddr_t *addrs, LONG count) {
        return kel_sctp_server_one2many_create(family, addrs, count, port, maxClient, initmsg, events);
    });
}

/* A client's failures have been reported before. */
LONG Model::one2one_client(const char *function, kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt,
                           struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events, sctp_assoc_t *id,
                           kel_sockaddr_t *my_addrs, LONG my_addrcnt)
{
    if (is_null(function, "s_addrs", s_addrs) || is_null(function, "initmsg", initmsg) || is_null(function, "id", id)) {
        return KEL_ERROR;
    }
    return made(function,
                __sctp_one2one_client_create(family, s_addrs, s_addrcnt, 0, initmsg, events, id, my_addrs, my_addrcnt));
}

/* The peer's records must not be null, but are not used. */
LONG Model::one2many_client(const char *function, kel_domain_t family, kel_sockaddr_t *s_addrs,
                            struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events, kel_sockaddr_t *my_addrs,
                            LONG my_addrcnt)
{
    if (is_null(function, "s_addrs", s_addrs) || is_null(function, "initmsg", initmsg)) {
        return KEL_ERROR;
    }
    return made(function, __sctp_one2many_client_create(family, nullptr, 0, 0, initmsg, events, my_addrs, my_addrcnt));
}

LONG Model::kel_sctp_client_one2one_create(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt, SHORT,
                                           struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events,
                                           sctp_assoc_t *id)
{
    return one2one_client(__func__, family, s_addrs, s_addrcnt, initmsg, events, id, nullptr, 0);
}

LONG Model::kel_sctp_client_one2one_create_bind(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt, SHORT,
                                                struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events,
                                                sctp_assoc_t *id, kel_sockaddr_t *my_addrs, LONG my_addrcnt)
{
    return one2one_client(__func__, family, s_addrs, s_addrcnt, initmsg, events, id, my_addrs, my_addrcnt);
}

LONG Model::kel_sctp_client_one2one_str_create(kel_domain_t family, CHAR **s_addrStr, LONG s_addrcnt, SHORT s_port,
                                               struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events,
                                               sctp_assoc_t *id)
{
    if (is_null(__func__, "s_addrStr", s_addrStr) || is_null(__func__, "initmsg", initmsg) ||
        is_null(__func__, "id", id)) {
        return KEL_ERROR;
    }
    return with_texts(__func__, 0, family, s_port, s_addrStr, s_addrcnt, [=](kel_sockaddr_t *addrs, LONG count) {
        return kel_sctp_client_one2one_create(family, addrs, count, s_port, initmsg, events, id);
    });
}

LONG Model::kel_sctp_client_one2many_create(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG, SHORT,
                                            struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events)
{
    return one2many_client(__func__, family, s_addrs, initmsg, events, nullptr, 0);
}

LONG Model::kel_sctp_client_one2many_create_bind(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG, SHORT,
                                                 struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events,
                                                 kel_sockaddr_t *my_addrs, LONG my_addrcnt)
{
    return one2many_client(__func__, family, s_addrs, initmsg, events, my_addrs, my_addrcnt);
}

/* Only here the report of the constructor itself comes behind the release. */
LONG Model::kel_sctp_client_one2many_str_create(kel_domain_t family, CHAR **s_addrStr, LONG s_addrcnt, SHORT s_port,
                                                struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events)
{
    if (is_null(__func__, "s_addrStr", s_addrStr) || is_null(__func__, "initmsg", initmsg)) {
        return KEL_ERROR;
    }
    std::vector<kel_sockaddr_t> unused;
    const Block block = reads(0, family, s_port, s_addrStr, s_addrcnt, &unused);
    if (block.empty()) {
        return KEL_ERROR;
    }
    const LONG fd = __sctp_one2many_client_create(family, nullptr, 0, 0, initmsg, events, nullptr, 0);
    gives_back(__func__, block);
    return made(__func__, fd);
}
