/* Moves bytes between the standard descriptors and a channel, until it is over. Knows nothing of transports. */
#ifndef KELCAT_PUMP_H
#define KELCAT_PUMP_H

#include "channel.h"

/* Returns the program's exit status. */
int pump(const Options &options, Channel &channel);

#endif
