/*
 * What -v shows of an SCTP association: that it is up, its paths with every change of their states, its notifications.
 *
 *   kelcat: 0.000 association 7 up, 10 streams out, 10 in
 *   kelcat: 0.000 path 10.1.0.2 active, primary
 *   kelcat: 2.345 notification SCTP_PEER_ADDR_CHANGE 10.1.0.2 SCTP_ADDR_UNREACHABLE
 *
 * The number in front is the time in seconds since the transfer began. States of a path: active,
 * inactive, potentially-failed, unconfirmed, removed. A notification that only repeats the one before is not shown:
 * many may come at once.
 */
#ifndef KELCAT_PATHS_H
#define KELCAT_PATHS_H

#include <string>
#include <utility>
#include <vector>

#include "kel_sctp.h"

/* Not by kel_sctp_opt_info, which reports: that an association has gone is an answer here. */
bool association_status(LONG sockfd, sctp_assoc_t id, struct sctp_status *status);

class Paths
{
  public:
    explicit Paths(bool verbose);

    /* The transfer begins. */
    void watch(LONG socket, double now);

    void up(const struct sctp_assoc_change &change);
    void notification(const union sctp_notification &told);

    /* Says what has changed. The kernel does not tell all of it: to be called at due(), too. */
    void look(double now);
    double due() const;

  private:
    std::string state_of(const kel_sockaddr_t &address, const struct sctp_status &status);
    void line(const char *format, ...) __attribute__((format(printf, 2, 3)));

    const bool wanted;
    LONG sockfd = KEL_ERROR;
    double start = 0;
    sctp_assoc_t association = 0; /* 0: not up */
    double next = 0;
    std::string latest;                                     /* notification */
    std::vector<std::pair<std::string, std::string>> shown; /* address and state */
};

#endif
