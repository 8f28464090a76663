#include "signals.h"

#include <csignal>
#include <ctime>
#include <unistd.h>

namespace
{

const int ends[] = {SIGHUP, SIGINT, SIGTERM};
volatile sig_atomic_t caught;
volatile sig_atomic_t exit_at_once;
sigset_t blocked;
sigset_t former;

void note(int signal)
{
    caught = signal;
    if (exit_at_once) {
        _exit(128 + signal);
    }
}

} // namespace

void signals_install()
{
    struct sigaction action = {};
    action.sa_handler = note;
    sigemptyset(&blocked);
    for (int signal : ends) {
        struct sigaction present;
        sigaction(signal, nullptr, &present);
        if (present.sa_handler != SIG_IGN) {
            sigaddset(&blocked, signal);
            sigaction(signal, &action, nullptr);
        }
    }
    sigprocmask(SIG_BLOCK, &blocked, &former);
    signal(SIGPIPE, SIG_IGN);
}

int signals_poll(struct pollfd *fds, nfds_t count, double seconds)
{
    struct timespec limit;
    limit.tv_sec = (time_t)seconds;
    limit.tv_nsec = (long)((seconds - (double)limit.tv_sec) * 1e9);
    return ppoll(fds, count, seconds < 0 ? nullptr : &limit, &former);
}

int signals_take()
{
    int signal = caught;
    caught = 0;
    return signal;
}

SignalsExit::SignalsExit()
{
    exit_at_once = 1;
    sigprocmask(SIG_UNBLOCK, &blocked, nullptr);
}

SignalsExit::~SignalsExit()
{
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    exit_at_once = 0;
}
