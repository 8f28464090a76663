/*
 * Stands in for the system under the module: this program's socket, bind, printf ... win over the C library's, its
 * sctp_bindx ... over libsctp's, its tc_malloc over tcmalloc's, for the static library and the shared one alike. While
 * a Recording lives, every call that the module makes is answered here, and written into one trace together with its
 * calls of the platform's services; at other times calls of the system go through.
 */
#ifndef TESTS_SUPPORT_SYSTEM_H
#define TESTS_SUPPORT_SYSTEM_H

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "kel_socket.h"

namespace sys
{

/* What a call comes back with. error is written to errno when it is not 0, before the call returns. */
struct Answer {
    long result;
    int error = 0;
};

inline Answer ok(long result = 0)
{
    return {result, 0};
}

inline Answer fail(int error)
{
    return {-1, error};
}

/*
 * Decides about one call, of the system or a question to the print filter: name is the function's ("filter" for a
 * question), usual what it returns unless told otherwise.
 */
using Script = std::function<Answer(const std::string &name, long usual)>;

/* What was seen: calls as text with their results, in order. See the functions of system.cpp for the forms. */
using Trace = std::vector<std::string>;

/* A name for a pointer that the test hands to the module, shown in the trace in its place; null and ? need none. */
void name_pointer(const void *pointer, const std::string &name);

/* What the next accept, recvfrom, getpeername or getsockname fills in. */
void set_peer(const kel_sockaddr_t &peer, socklen_t length);

/* The list that the next sctp_getpaddrs and sctp_getladdrs hand out, packed; its count is their usual result. */
void set_addresses(const std::vector<kel_sockaddr_t> &addresses);

/* The flags that the next sctp_recvmsg hands out, and the identifier that sctp_connectx does. */
void set_received_flags(int flags);
constexpr sctp_assoc_t association = 0x5ca1ab1e;

/* For a test that stands in for one function more: traces and answers a call in the form of all others. */
long answered(const std::string &name, const std::string &arguments, long usual);

/* The name of memory that the module was given and has not handed back; empty for other memory. */
std::string held_block(void *memory);

/* Bytes as they are shown in the trace, without separators. */
std::string hex(const void *bytes, size_t size);

class Recording
{
  public:
    /*
     * Without a script every call succeeds: descriptors count up from first_descriptor, everything else is usual. errno
     * is 0 at the start.
     */
    explicit Recording(Script script = nullptr);
    ~Recording();
    Recording(const Recording &) = delete;
    Recording &operator=(const Recording &) = delete;

    /* Has the print filter suppress a key: "function.line" or "function". All other questions go to the script. */
    void suppress(const std::string &key);

    const Trace &trace() const;

    /* Descriptors that were created and not closed. */
    const std::set<int> &open() const;

    /* Blocks of tc_malloc and lists of libsctp that were not released, each as in the trace ("block 1", "list 1"). */
    std::set<std::string> held() const;
};

constexpr int first_descriptor = 70;
constexpr int interface_index = 0x1fff7; /* in no short */
constexpr unsigned char interface_mac[6] = {0x02, 0x00, 0x5e, 0x10, 0x20, 0x30};

/* A script that fails the nth call (from 1) of one name. */
Script fail_nth(const std::string &name, int nth, Answer answer);
inline Script fail_first(const std::string &name, Answer answer)
{
    return fail_nth(name, 1, answer);
}

} // namespace sys

#endif
