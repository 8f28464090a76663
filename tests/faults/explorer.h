/*
 * The explorer: makes the calls that the text says, each once for every path through the outcomes of the calls behind
 * it, depth first, and compares every run with what the text makes of it.
 */
#ifndef TESTS_FAULTS_EXPLORER_H
#define TESTS_FAULTS_EXPLORER_H

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "kel_sctp.h"
#include "system.h"

/* The errno that every run starts with, and those that the prints of a report leave behind on a noisy console. */
constexpr int error_at_start = 4094;
constexpr int console_error = 2000; /* and the number of the print, from 1 */

/* One outcome on a path: of a call, of a question to the print filter ("filter"), or of a report's prints ("console": 1
 * when they change errno). */
struct Choice {
    std::string call;
    size_t taken;
    size_t count;
    sys::Answer answer;
};
using Path = std::vector<Choice>;

/*
 * The memory that a caller hands to the module, in fixed places: what a call leaves in it is compared byte by byte. The
 * records are filled but for the last one.
 */
struct Caller {
    kel_sockaddr_t inet;    /* 10.1.2.3 port 5000 */
    kel_sockaddr_t inet6;   /* 2001:db8::5 port 40000 */
    kel_sockaddr_t local;   /* /run/app */
    kel_sockaddr_t packet;  /* interface 2, protocol 3 */
    kel_sockaddr_t no_port; /* 10.1.2.3 port 0 */
    kel_sockaddr_t strange; /* a family that the module does not know */
    kel_sockaddr_t record;  /* bytes that no record has */
    unsigned char mac[8];
    char text[120];
    char buffer[64];
    socklen_t length;

    kel_sockaddr_t pair[2];    /* as inet, and 10.1.2.4 port 5001 */
    kel_sockaddr_t pair6[2];   /* as inet6, and fe80::1 port 40001 on interface 3 */
    kel_sockaddr_t *addresses; /* to record, and then what kel_sctp_getpaddrs and kel_sctp_getladdrs store */
    sctp_assoc_t association;
    struct sctp_initmsg initmsg;
    struct sctp_event_subscribe events;
    struct sctp_sndrcvinfo info;
    LONG flags;

    /* Not handed to the module: the addresses that libsctp lists, and what the system hands out. */
    kel_sockaddr_t listed[3];
    LONG listed_count;
    LONG peer_length;
    LONG received_flags;
};
extern Caller caller;

struct Exploration {
    size_t leaves = 0;
    size_t mismatches = 0;
    std::string first; /* the first mismatch: where, what was expected, what was seen */
};

/* Makes every trial of a function, once: later calls get the same answer. */
const Exploration &explored(const std::string &function);

/* By function, what was explored so far. */
extern std::map<std::string, Exploration> explorations;

/* What was taken at each position of the source, by the explorations so far. See positions.h for the names. */
extern std::map<std::string, std::set<size_t>> taken_at;

#endif
