// Every constructor of an endpoint, ready to be called over and over: its peers listen, its names are free.
#ifndef CONSTRUCTORS_H
#define CONSTRUCTORS_H

#include "kel_socket.h"

enum Kind { cheap, packet, sctp };

// Where an endpoint is made: a family's loopback as text and records, with ports that no other family has.
struct Place {
    kel_domain_t family;
    CHAR *text;
    SHORT peer_port, own_port;
    kel_sockaddr_t peer, own, local;
};

struct Constructor {
    const char *name;
    Kind kind;
    LONG (*make)(Place &at);
};

extern const Constructor constructors[];
extern const int constructor_count;

// Peers for the clients, in the folder that the program runs in. Ends the program when they are not to be had.
void start_peers(bool with_sctp);
void end_peers();

// One endpoint as the constructor makes it, or what it returned instead.
LONG make_one(const Constructor &constructor, kel_domain_t family);

// Closes an endpoint and what its peer has of it, so that nothing of it is left, no port in its last wait either.
void end_one(LONG sockfd);

// What the next descriptor will be: one that was left open raises it.
int next_descriptor();

// Ends the program when the condition does not hold.
void require(bool condition, const char *what, const char *name);

#endif
