/*
 * What a test expects in the trace. A report names the function and the line of its macro: the line is looked up in the
 * module's source, inside the function whose name is reported, so that no test repeats a number.
 */
#ifndef TESTS_SUPPORT_EXPECTED_H
#define TESTS_SUPPORT_EXPECTED_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "system.h"

/* The line of the nth macro use in a function of kel_socket.cpp, such as source_line("kel_bind",
 * "NULL_CHECK(my_addr)"). */
int source_line(const std::string &function, const std::string &use, int nth = 1);

/* Which question the print filter answers with yes. */
enum class Filtered { No, ByLine, ByName };

/* The trace of NULL_CHECK(argument), or of the check of that name, in a function: the nth one of that argument. */
sys::Trace null_report(const std::string &function, const std::string &argument, Filtered filtered = Filtered::No,
                       int nth = 1, const std::string &check = "NULL_CHECK");

/*
 * The trace of kel_perror(text) in a function: error is the errno that its console line ends with. Where the report has
 * arguments, use is the macro's source text and printed the whole message.
 */
sys::Trace perror_report(const std::string &function, const std::string &text, int error,
                         Filtered filtered = Filtered::No, int nth = 1);
sys::Trace perror_report_with(const std::string &function, const std::string &use, const std::string &format,
                              const std::string &printed, int error, Filtered filtered = Filtered::No, int nth = 1);

/* The trace of KEL_ASSERT(0) in a function. */
sys::Trace assert_report(const std::string &function);

/* All bytes of a record as digits. */
std::string bytes_of(const kel_sockaddr_t &address);

/* A record whose every byte is 0xa5: nothing that a test expects. */
kel_sockaddr_t poisoned();

/* A record with nothing but its family. */
kel_sockaddr_t blank(int family);

/* A record of the IPv4 or IPv6 family with everything but these fields zero. The port is in host byte order. */
kel_sockaddr_t inet_address(const char *text, int port);
kel_sockaddr_t inet6_address(const char *text, int port);

#endif
