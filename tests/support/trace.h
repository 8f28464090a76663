/* What the stand-ins for the system, libsctp and the allocator share: one trace, one script. */
#ifndef TESTS_SUPPORT_TRACE_H
#define TESTS_SUPPORT_TRACE_H

#include "system.h"

namespace sys
{

/* Whether a Recording lives. While none does, calls go through to the system and are not traced. */
bool recording();

std::string text(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* The name that a test has given to a pointer, "null", or "?". */
std::string pointer(const void *p);

/* The bytes of an address, of which no more than a record are there, whatever the length says. */
std::string address(const struct sockaddr *addr, socklen_t length);

/* A call that makes a descriptor. */
int make(const std::string &name, const std::string &arguments);

/* Hands out what set_peer was given. */
void fill_peer(struct sockaddr *addr, socklen_t *length);

/* A recording begins or ends: nothing is left of lists and blocks. */
void forget_sctp();

} // namespace sys

#endif
