/*
 * One SCTP association: its messages and its end. SCTP cannot be half closed: an association ends for both sides at
 * once, and is over when both systems have confirmed all that either side had sent.
 */
#ifndef KELCAT_ASSOCIATION_H
#define KELCAT_ASSOCIATION_H

#include "endpoint.h"
#include "paths.h"

class Association
{
  public:
    Association(const Arguments &given, const Endpoint &endpoint);

    /* Sends one message; true: it has gone. Otherwise errno tells. */
    bool send(const std::string &message);

    /* Takes what comes next: a message or a part of one, or a notification, which leaves data empty. */
    void receive(std::string *data);

    /* Ends it, once all that was sent has been confirmed. */
    void shut_down();

    bool up() const; /* a one-to-many listener's comes with the first message */
    bool unconfirmed() const;

    bool ending = false; /* the peer is about to end it: nothing more is taken from us */
    bool closed = false;
    int error = 0; /* of errno: why it closed before its time */

    Paths paths;

  private:
    void begin(sctp_assoc_t association);
    void limit_packets();
    LONG send_flag(sctp_assoc_t association, uint16_t flag);
    bool ours(sctp_assoc_t association);
    void take_notification(const union sctp_notification &told);
    void take_change(const struct sctp_assoc_change &change);
    void close(int why);

    const Arguments &arguments;
    const LONG sockfd;
    sctp_assoc_t id;
    uint16_t streams = 1;
    uint16_t stream = 0; /* of the next message */
};

#endif
