/*
 * The receive queue of the socket of this machine that takes our datagrams. The kernel drops what finds it full and
 * tells nobody, but answers questions: sock_diag(7), for the one socket that a datagram would reach.
 */
#ifndef KELCAT_UDP_QUEUE_H
#define KELCAT_UDP_QUEUE_H

#include "kel_socket.h"

class UdpQueue
{
  public:
    UdpQueue() = default;
    ~UdpQueue();
    UdpQueue(const UdpQueue &) = delete;
    UdpQueue &operator=(const UdpQueue &) = delete;

    /* Of what sockfd sends to an address. False: it leaves this machine, or the kernel answers no questions. */
    bool watch(LONG sockfd, const kel_sockaddr_t &to);

    enum Answer { Nobody, Unknown, Known };
    Answer ask();

    /* Since the first answer. */
    bool lost() const
    {
        return dropped != dropped_before;
    }

    /* How many datagrams of a size may be sent until the next question. */
    size_t room(size_t size) const;
    void sent(size_t datagrams, size_t size);

  private:
    Answer ask_for(const kel_sockaddr_t &from, const kel_sockaddr_t &to);
    void wait_for_delivery();

    LONG netlink = KEL_ERROR;
    LONG echo = KEL_ERROR; /* a socket that only we send to */
    kel_sockaddr_t echo_name = {};
    kel_sockaddr_t source = {};
    kel_sockaddr_t target = {};
    bool asked = false;
    size_t used = 0; /* bytes, as the kernel counts them */
    size_t limit = 0;
    unsigned dropped = 0;
    unsigned dropped_before = 0;
};

#endif
