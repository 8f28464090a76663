/*
 * Datagrams at the pace of their receiver. Local sockets block by themselves. Of a UDP socket on this machine the
 * receive queue can be seen, and is let run empty again and again. For all else there is a rate.
 */
#ifndef KELCAT_PACING_H
#define KELCAT_PACING_H

#include "arguments.h"

enum class Turn { Send, Wait, NobodyListens, Lost };

class Pacing
{
  public:
    Pacing(const Arguments &arguments, LONG socket);
    ~Pacing();
    Pacing(const Pacing &) = delete;
    Pacing &operator=(const Pacing &) = delete;

    /* Whether the next datagram may go; otherwise, with Wait, until receives the time to ask again. */
    Turn next(const kel_sockaddr_t &to, double now, double *until);

    void sent(size_t bytes, double now);

    /* Whether the receiver's queue has overflowed. */
    bool lost() const;

  private:
    void aim(const kel_sockaddr_t &to);
    void wait_for_delivery();
    struct Receivers look() const;

    const LONG sockfd;
    const Transport transport;
    const double asked_rate;
    double rate = 0;
    double paid_until = 0; /* when the bytes sent so far are used up at that rate */

    bool watch = false; /* the receiver's queue is looked at */
    kel_sockaddr_t target = {};
    size_t queued = 0; /* bytes in the queue at the latest look, and sent since */
    bool looked = false;
    LONG echo = KEL_ERROR; /* a socket that only we send to */
    kel_sockaddr_t echo_name = {};
    unsigned long dropped = 0; /* at the first look */
};

#endif
