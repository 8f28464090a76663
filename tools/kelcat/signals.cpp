#include "signals.h"

#include <cmath>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <sys/time.h>
#include <unistd.h>

namespace
{

const int ends[] = {SIGHUP, SIGINT, SIGTERM};
volatile sig_atomic_t caught;
volatile sig_atomic_t exit_at_once;
sigset_t blocked;
sigset_t former;
std::string too_late; /* the sentence of a timeout */

void note(int signal)
{
    caught = signal;
    if (exit_at_once) {
        _exit(128 + signal);
    }
}

void set_alarm(double seconds)
{
    struct itimerval timer = {};
    timer.it_value.tv_sec = (time_t)seconds;
    timer.it_value.tv_usec = (suseconds_t)ceil((seconds - floor(seconds)) * 1e6);
    setitimer(ITIMER_REAL, &timer, nullptr);
}

void give_up(int)
{
    [[maybe_unused]]
    const ssize_t told = write(STDERR_FILENO, too_late.data(), too_late.size());
    _exit(1);
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

SignalsExit::SignalsExit(const std::string &endpoint, double timeout)
{
    exit_at_once = 1;
    sigprocmask(SIG_UNBLOCK, &blocked, nullptr);
    if (timeout != 0) {
        char limit[32];
        snprintf(limit, sizeof(limit), "%g", timeout);
        too_late = "kelcat: cannot connect to " + endpoint + ": no answer within " + limit + " s\n";
        signal(SIGALRM, give_up);
        set_alarm(timeout);
    }
}

SignalsExit::~SignalsExit()
{
    set_alarm(0);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    exit_at_once = 0;
}
