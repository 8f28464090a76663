/* What both SCTP peers work with: the local addresses of a server with two of them, and an association's set-up. */
#ifndef BENCH_SCTP_WORK_H
#define BENCH_SCTP_WORK_H

#include "work.h"

constexpr int ADDRESSES = 2;
constexpr const char *ADDRESS_TEXTS[ADDRESSES] = {IPV4_LOOPBACK, "127.0.0.2"};

constexpr unsigned short STREAMS = 4;
constexpr unsigned short ATTEMPTS = 2;
constexpr unsigned short ATTEMPT_MILLISECONDS = 500;

constexpr int MESSAGE = DATAGRAM;

#endif
