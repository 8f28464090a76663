/* The command line: read and checked in one place, before the module is called. */
#ifndef KELCAT_ARGUMENTS_H
#define KELCAT_ARGUMENTS_H

#include <cstdint>
#include <string>
#include <vector>

#include "kel_socket.h"

enum class Transport { Tcp, Udp, Sctp, UnixStream, UnixDatagram, Packet };

struct Arguments {
    std::string endpoint; /* as it was given, for messages */
    Transport transport = Transport::Tcp;
    bool listen = false;

    kel_domain_t family = KEL_AF_INET;  /* tcp, udp, sctp */
    std::vector<std::string> addresses; /* tcp and udp: one; sctp: any number; none: every address */
    uint16_t port = 0;                  /* tcp, udp, sctp */
    std::string path;                   /* unix */
    std::string interface;              /* packet */
    uint16_t protocol = 3;              /* packet */

    std::string local_text;            /* --local as it was given; empty: the system chooses */
    std::vector<kel_sockaddr_t> local; /* of sctp any number, with port 0 where none was given */

    bool one_to_many = false; /* sctp: the socket's style */
    uint16_t streams = 0;     /* sctp; 0: the kernel's own number, and one that is sent on */
    uint32_t ppid = 0;        /* sctp, host byte order */

    bool send_only = false;
    bool recv_only = false;
    bool raw = false;
    bool verbose = false;
    bool quiet = false;
    double idle = 0;         /* seconds; 0: no limit */
    double rate = 0;         /* bytes in a second; 0: chosen by the destination */
    size_t size = 0;         /* bytes of one read: those of a datagram or message */
    unsigned long count = 0; /* datagrams to receive; 0: no limit */

    /* A connection, which poll(2) tells all about. */
    bool stream() const
    {
        return transport == Transport::Tcp || transport == Transport::Sctp || transport == Transport::UnixStream;
    }
};

/* Ends the program on bad usage (status 2), and after --help and --version. */
Arguments parse_arguments(int argc, char **argv);

#endif
