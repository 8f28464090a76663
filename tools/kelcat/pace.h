/* A rate that datagrams and frames keep to, so that their receiver does. */
#ifndef KELCAT_PACE_H
#define KELCAT_PACE_H

#include <algorithm>

class Pace
{
  public:
    /* Bytes a second; 0: none. */
    explicit Pace(double bytes) : rate(bytes)
    {
    }

    /* When the next one may go: sending may run a little ahead. */
    double due(double now) const
    {
        return rate != 0 && paid_until > now + burst ? paid_until - burst / 2 : now;
    }

    void sent(double bytes, double now)
    {
        paid_until = rate != 0 ? std::max(paid_until, now) + bytes / rate : 0;
    }

  private:
    static constexpr double burst = 0.01; /* seconds */
    double rate;
    double paid_until = 0; /* when the bytes sent so far are used up */
};

#endif
