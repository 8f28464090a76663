/*
 * SIGHUP, SIGINT and SIGTERM are blocked and let in only where kelcat waits: none is missed, and none cuts a step
 * short.
 */
#ifndef KELCAT_SIGNALS_H
#define KELCAT_SIGNALS_H

#include <poll.h>
#include <string>

/* A signal that the caller of the program had ignored stays ignored; SIGPIPE is ignored from now on. */
void signals_install();

/* poll(2), during which signals may come; without a limit if seconds is negative. The module has no call that waits. */
int signals_poll(struct pollfd *fds, nfds_t count, double seconds);

/* The number of a signal that has come since the last call, or 0. */
int signals_take();

/*
 * From now on until the second call a signal ends the program at once, and so does the timeout, with a sentence; 0: no
 * timeout. For a connect, which may take minutes and leaves nothing behind.
 */
void signals_end_at_once(const std::string &endpoint, double timeout);
void signals_wait_again();

#endif
