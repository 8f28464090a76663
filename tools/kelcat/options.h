/* The command line: read and checked in one place, before the module is called. */
#ifndef KELCAT_OPTIONS_H
#define KELCAT_OPTIONS_H

#include "address.h"

struct Options {
    std::string endpoint; /* as it was given, for messages */
    Transport transport = Tcp;
    bool listen = false;

    Place place;           /* but packet */
    std::string interface; /* packet */
    uint16_t protocol = every_protocol;

    std::string local_text; /* --local as it was given; empty: the system chooses */
    Addresses local;        /* of sctp any number, with port 0 where none was given */

    bool one_to_many = false; /* sctp: the socket's style */
    uint16_t streams = 0;     /* sctp; 0: the kernel's own number, and one that is sent on */
    uint32_t ppid = 0;        /* sctp, host byte order */

    bool send_only = false;
    bool recv_only = false;
    bool raw = false;
    bool verbose = false;
    bool quiet = false;
    double timeout = 0;      /* seconds; 0: the system's */
    double idle = 0;         /* seconds; 0: no limit */
    double rate = 0;         /* bytes in a second; 0: chosen by the destination */
    size_t size = 0;         /* bytes of a datagram or message */
    unsigned long count = 0; /* datagrams to receive; 0: no limit */
};

/* Ends the program on bad usage (status 2), and after --help and --version. */
Options parse_options(int argc, char **argv);

#endif
