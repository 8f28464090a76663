/* Carries standard input to an endpoint, and what comes from it to standard output, until both have ended. */
#ifndef KELCAT_RELAY_H
#define KELCAT_RELAY_H

#include "endpoint.h"

/* output: the descriptor of the data. Returns the program's exit status. */
int relay(const Arguments &arguments, const Endpoint &endpoint, int output);

#endif
