/* A rate that datagrams and frames keep to, so that their receiver does. */
#ifndef KELCAT_PACE_H
#define KELCAT_PACE_H

#include <algorithm>

struct Pace {
    double rate;           /* bytes a second; 0: none */
    double paid_until = 0; /* when the bytes sent so far are used up */

    /* When the next one may go: sending may run a hundredth of a second ahead. */
    double due(double now) const
    {
        return rate != 0 && paid_until > now + 0.01 ? paid_until - 0.005 : now;
    }

    void sent(size_t bytes, double now)
    {
        paid_until = rate != 0 ? std::max(paid_until, now) + (double)bytes / rate : 0;
    }
};

#endif
