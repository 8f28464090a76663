/* Records that tests make and look at. */
#ifndef TESTS_SUPPORT_RECORDS_H
#define TESTS_SUPPORT_RECORDS_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "system.h"

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
