/* The command line: read and checked in one place, before the module is called. */
#ifndef KELCAT_ARGUMENTS_H
#define KELCAT_ARGUMENTS_H

#include <cstdint>
#include <string>

#include "kel_socket.h"

enum class Transport { Tcp, Udp, UnixStream, UnixDatagram, Packet };

struct Arguments {
    std::string endpoint; /* as it was given, for messages */
    Transport transport = Transport::Tcp;
    bool listen = false;

    kel_domain_t family = KEL_AF_INET; /* tcp, udp */
    std::string address;               /* tcp, udp; empty: every address */
    uint16_t port = 0;                 /* tcp, udp */
    std::string path;                  /* unix */
    std::string interface;             /* packet */
    uint16_t protocol = 3;             /* packet */

    std::string local_text; /* --local as it was given; empty: the system chooses */
    kel_sockaddr_t local = {};

    bool send_only = false;
    bool recv_only = false;
    bool raw = false;
    bool verbose = false;
    bool quiet = false;
    double idle = 0;         /* seconds; 0: no limit */
    double rate = 0;         /* bytes in a second; 0: chosen by the destination */
    size_t size = 0;         /* bytes of one read: those of a datagram */
    unsigned long count = 0; /* datagrams to receive; 0: no limit */

    bool stream() const
    {
        return transport == Transport::Tcp || transport == Transport::UnixStream;
    }
};

/* Ends the program on bad usage (status 2), and after --help and --version. */
Arguments parse_arguments(int argc, char **argv);

#endif
