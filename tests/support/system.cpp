#include "trace.h"

#include <algorithm>
#include <arpa/inet.h>
#include <dlfcn.h>
#include <errno.h>
#include <map>
#include <memory>
#include <net/if.h>
#include <regex.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>

#include "host.h"

namespace sys
{
namespace
{

struct State {
    Script script;
    Trace trace;
    std::set<int> open;
    std::set<std::string> suppressed;
    int next_descriptor = first_descriptor;
};

std::unique_ptr<State> state; /* null: calls go through to the system */
std::map<const void *, std::string> pointer_names;
kel_sockaddr_t peer;
socklen_t peer_length = sizeof(peer.sin);

} // namespace

bool recording()
{
    return state != nullptr;
}

std::string text(const char *format, ...)
{
    char buffer[4096];
    va_list args;
    va_start(args, format);
    vsnprintf(buffer, sizeof(buffer), format, args);
    va_end(args);
    return buffer;
}

std::string pointer(const void *p)
{
    if (p == nullptr) {
        return "null";
    }
    auto found = pointer_names.find(p);
    return found == pointer_names.end() ? "?" : found->second;
}

std::string string_or_null(const char *s)
{
    return s == nullptr ? "null" : s;
}

std::string address(const struct sockaddr *addr, socklen_t length)
{
    return hex(addr, std::min<size_t>(length, sizeof(kel_sockaddr_t)));
}

long answered(const std::string &name, const std::string &arguments, long usual)
{
    Answer a = state->script ? state->script(name, usual) : Answer{usual, 0};
    std::string line = name + "(" + arguments + ") = " + std::to_string(a.result);
    if (a.error != 0) {
        line += " errno " + std::to_string(a.error);
        errno = a.error;
    }
    state->trace.push_back(std::move(line));
    return a.result;
}

int make(const std::string &name, const std::string &arguments)
{
    int fd = (int)answered(name, arguments, state->next_descriptor);
    if (fd >= 0) {
        state->next_descriptor++;
        state->open.insert(fd);
    }
    return fd;
}

void fill_peer(struct sockaddr *addr, socklen_t *length)
{
    if (addr != nullptr) {
        memcpy(addr, &peer, *length < peer_length ? *length : peer_length);
        *length = peer_length;
    }
}

namespace
{

int decide(int level, const char *name)
{
    (void)level;
    if (state->suppressed.count(name) != 0) {
        return 1;
    }
    return state->script ? (int)state->script("filter", 0).result : 0;
}

void watch(const char *call)
{
    state->trace.push_back(call);
}

} // namespace

void name_pointer(const void *pointer, const std::string &name)
{
    pointer_names[pointer] = name;
}

void set_peer(const kel_sockaddr_t &record, socklen_t length)
{
    peer = record;
    peer_length = length;
}

std::string hex(const void *bytes, size_t size)
{
    constexpr const char *digits = "0123456789abcdef";
    std::string shown;
    for (size_t i = 0; bytes != nullptr && i < size; i++) {
        const unsigned char byte = static_cast<const unsigned char *>(bytes)[i];
        shown += digits[byte >> 4];
        shown += digits[byte & 15];
    }
    return shown;
}

Recording::Recording(Script script)
{
    fflush(stdout);
    forget_sctp();
    state = std::make_unique<State>();
    state->script = std::move(script);
    host_filter_decide(decide);
    host_watch(watch);
    errno = 0;
}

Recording::~Recording()
{
    host_watch(nullptr);
    host_filter_decide(nullptr);
    state.reset();
    forget_sctp();
}

void Recording::suppress(const std::string &key)
{
    state->suppressed.insert(key);
}

const Trace &Recording::trace() const
{
    return state->trace;
}

const std::set<int> &Recording::open() const
{
    return state->open;
}

Script fail_nth(const std::string &name, int nth, Answer answer)
{
    auto seen = std::make_shared<int>(0);
    return [=](const std::string &called, long usual) {
        return called == name && ++*seen == nth ? answer : Answer{usual, 0};
    };
}

/* The C library's function behind this program's. */
template <typename Function> Function *real(Function *, const char *name, const char *version = nullptr)
{
    void *found = version != nullptr ? dlvsym(RTLD_NEXT, name, version) : nullptr;
    return reinterpret_cast<Function *>(found != nullptr ? found : dlsym(RTLD_NEXT, name));
}

} // namespace sys

using namespace sys;

/* The system's functions, as the trace shows them. Addresses are shown as bytes, buffers by their names. */
extern "C" {

int socket(int domain, int type, int protocol) noexcept
{
    if (!recording()) {
        return real(socket, "socket")(domain, type, protocol);
    }
    return make("socket", text("%d, %d, %d", domain, type, protocol));
}

int bind(int fd, const struct sockaddr *addr, socklen_t length) noexcept
{
    if (!recording()) {
        return real(bind, "bind")(fd, addr, length);
    }
    return (int)answered("bind", text("%d, %s, %u", fd, address(addr, length).c_str(), length), 0);
}

int listen(int fd, int backlog) noexcept
{
    if (!recording()) {
        return real(listen, "listen")(fd, backlog);
    }
    return (int)answered("listen", text("%d, %d", fd, backlog), 0);
}

int accept(int fd, struct sockaddr *addr, socklen_t *length)
{
    if (!recording()) {
        return real(accept, "accept")(fd, addr, length);
    }
    int accepted = make("accept", text("%d, %s, %u", fd, pointer(addr).c_str(), *length));
    if (accepted != -1) {
        fill_peer(addr, length);
    }
    return accepted;
}

int connect(int fd, const struct sockaddr *addr, socklen_t length)
{
    if (!recording()) {
        return real(connect, "connect")(fd, addr, length);
    }
    return (int)answered("connect", text("%d, %s, %u", fd, address(addr, length).c_str(), length), 0);
}

int getpeername(int fd, struct sockaddr *addr, socklen_t *length) noexcept
{
    if (!recording()) {
        return real(getpeername, "getpeername")(fd, addr, length);
    }
    long result = answered("getpeername", text("%d, %s, %u", fd, pointer(addr).c_str(), *length), 0);
    if (result != -1) {
        fill_peer(addr, length);
    }
    return (int)result;
}

int getsockname(int fd, struct sockaddr *addr, socklen_t *length) noexcept
{
    if (!recording()) {
        return real(getsockname, "getsockname")(fd, addr, length);
    }
    long result = answered("getsockname", text("%d, %s, %u", fd, pointer(addr).c_str(), *length), 0);
    if (result != -1) {
        fill_peer(addr, length);
    }
    return (int)result;
}

ssize_t recv(int fd, void *buf, size_t len, int flags)
{
    if (!recording()) {
        return real(recv, "recv")(fd, buf, len, flags);
    }
    return answered("recv", text("%d, %s, %zu, %d", fd, pointer(buf).c_str(), len, flags), (long)len);
}

ssize_t send(int fd, const void *buf, size_t len, int flags)
{
    if (!recording()) {
        return real(send, "send")(fd, buf, len, flags);
    }
    return answered("send", text("%d, %s, %zu, %d", fd, pointer(buf).c_str(), len, flags), (long)len);
}

ssize_t recvfrom(int fd, void *buf, size_t len, int flags, struct sockaddr *addr, socklen_t *length)
{
    if (!recording()) {
        return real(recvfrom, "recvfrom")(fd, buf, len, flags, addr, length);
    }
    long count =
        answered("recvfrom",
                 text("%d, %s, %zu, %d, %s, %u", fd, pointer(buf).c_str(), len, flags, pointer(addr).c_str(), *length),
                 (long)len);
    if (count != -1) {
        fill_peer(addr, length);
    }
    return count;
}

ssize_t sendto(int fd, const void *buf, size_t len, int flags, const struct sockaddr *addr, socklen_t length)
{
    if (!recording()) {
        return real(sendto, "sendto")(fd, buf, len, flags, addr, length);
    }
    return answered(
        "sendto",
        text("%d, %s, %zu, %d, %s, %u", fd, pointer(buf).c_str(), len, flags, address(addr, length).c_str(), length),
        (long)len);
}

int getsockopt(int fd, int level, int name, void *value, socklen_t *length) noexcept
{
    if (!recording()) {
        return real(getsockopt, "getsockopt")(fd, level, name, value, length);
    }
    return (int)answered(
        "getsockopt", text("%d, %d, %d, %s, %s", fd, level, name, pointer(value).c_str(), pointer(length).c_str()), 0);
}

int setsockopt(int fd, int level, int name, const void *value, socklen_t length) noexcept
{
    if (!recording()) {
        return real(setsockopt, "setsockopt")(fd, level, name, value, length);
    }
    return (int)answered("setsockopt", text("%d, %d, %d, %s, %u", fd, level, name, hex(value, length).c_str(), length),
                         0);
}

int close(int fd)
{
    if (!recording()) {
        return real(close, "close")(fd);
    }
    /* The number is free afterwards whatever close answers, as on the real system. */
    state->open.erase(fd);
    return (int)answered("close", text("%d", fd), 0);
}

int unlink(const char *path) noexcept
{
    if (!recording()) {
        return real(unlink, "unlink")(path);
    }
    return (int)answered("unlink", string_or_null(path), 0);
}

/* The two interface queries; the request's name is shown as its 16 bytes, and everything behind it has to be zero. */
int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list args;
    va_start(args, request);
    void *argument = va_arg(args, void *);
    va_end(args);
    if (!recording()) {
        return real(ioctl, "ioctl")(fd, request, argument);
    }

    struct ifreq *query = static_cast<struct ifreq *>(argument);
    std::string name(query->ifr_name, strnlen(query->ifr_name, sizeof(query->ifr_name)));
    const char *what = request == SIOCGIFINDEX ? "SIOCGIFINDEX" : request == SIOCGIFHWADDR ? "SIOCGIFHWADDR" : "?";
    const struct ifreq zero = {};
    const char *rest = memcmp(&query->ifr_ifru, &zero.ifr_ifru, sizeof(zero.ifr_ifru)) == 0 ? "zero" : "dirty";
    long result = answered("ioctl", text("%d, %s, %s, %s", fd, what, name.c_str(), rest), 0);
    if (request == SIOCGIFINDEX) {
        query->ifr_ifindex = interface_index;
    } else {
        memcpy(query->ifr_hwaddr.sa_data, interface_mac, sizeof(interface_mac));
    }
    return (int)result;
}

unsigned int if_nametoindex(const char *name) noexcept
{
    if (!recording()) {
        return real(if_nametoindex, "if_nametoindex")(name);
    }
    return (unsigned)answered("if_nametoindex", string_or_null(name), interface_index);
}

int inet_pton(int family, const char *source, void *destination) noexcept
{
    auto convert = real(inet_pton, "inet_pton");
    if (!recording()) {
        return convert(family, source, destination);
    }
    return (int)answered("inet_pton", text("%d, %s", family, source), convert(family, source, destination));
}

const char *inet_ntop(int family, const void *source, char *destination, socklen_t size) noexcept
{
    auto convert = real(inet_ntop, "inet_ntop");
    if (recording()) {
        answered("inet_ntop", text("%d, %u", family, size), 0);
    }
    return convert(family, source, destination, size);
}

static const regex_t *compiled_last;

/* Compiling takes up to a millisecond, so a pattern is compiled once in a program's life, and never freed. */
int regcomp(regex_t *pattern, const char *source, int flags)
{
    static auto &compiled = *new std::map<std::pair<std::string, int>, regex_t>;
    long result = recording() ? answered("regcomp", text("%s, %d", source, flags), 0) : 0;
    if (result != 0) {
        return (int)result;
    }
    auto known = compiled.find({source, flags});
    if (known == compiled.end()) {
        result = real(regcomp, "regcomp")(pattern, source, flags);
        if (result != 0) {
            return (int)result;
        }
        known = compiled.emplace(std::make_pair(source, flags), *pattern).first;
    }
    *pattern = known->second;
    compiled_last = pattern;
    return 0;
}

int regexec(const regex_t *pattern, const char *string, size_t slots, regmatch_t match[], int flags)
{
    auto execute = real(regexec, "regexec", "GLIBC_2.3.4"); /* its older version ignores flags */
    if (!recording()) {
        return execute(pattern, string, slots, match, flags);
    }
    int result = execute(pattern, string, slots, match, flags);
    return (int)answered("regexec", text("%s, %zu, %s, %d", string, slots, match == nullptr ? "null" : "set", flags),
                         result);
}

void regfree(regex_t *pattern)
{
    if (recording()) {
        answered("regfree", pattern == compiled_last ? "the pattern" : "?", 0);
    }
    memset(pattern, 0, sizeof(*pattern)); /* of no use any more */
}

/* The console: the format and, behind a bar, what it prints. errno may be scripted: a print may change it. */
int printf(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    if (!recording()) {
        int length = vprintf(format, args);
        va_end(args);
        return length;
    }
    char line[4096];
    int length = vsnprintf(line, sizeof(line), format, args);
    va_end(args);
    state->trace.push_back(text("printf(%s)|%s", format, line));
    if (state->script) {
        int error = state->script("printf", length).error;
        errno = error != 0 ? error : errno;
    }
    return length;
}
}
