#include "signals.h"

#include <cmath>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <sys/time.h>
#include <unistd.h>

namespace
{

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

void give_up(int)
{
    [[maybe_unused]]
    const ssize_t told = write(STDERR_FILENO, too_late.data(), too_late.size());
    _exit(1);
}

void set_alarm(double seconds)
{
    const long micros = (long)ceil(seconds * 1e6);
    const struct itimerval timer = {{0, 0}, {micros / 1000000, micros % 1000000}};
    setitimer(ITIMER_REAL, &timer, nullptr);
}

} // namespace

void signals_install()
{
    struct sigaction action = {};
    action.sa_handler = note;
    sigemptyset(&blocked);
    for (const int number : {SIGHUP, SIGINT, SIGTERM}) {
        struct sigaction present;
        sigaction(number, nullptr, &present);
        if (present.sa_handler != SIG_IGN) {
            sigaddset(&blocked, number);
            sigaction(number, &action, nullptr);
        }
    }
    sigprocmask(SIG_BLOCK, &blocked, &former);
    signal(SIGPIPE, SIG_IGN);
}

int signals_poll(struct pollfd *fds, nfds_t count, double seconds)
{
    const struct timespec limit = {(time_t)seconds, (long)(fmod(seconds, 1) * 1e9)};
    return ppoll(fds, count, seconds < 0 ? nullptr : &limit, &former);
}

int signals_take()
{
    const int signal = caught;
    caught = 0;
    return signal;
}

void signals_end_at_once(const std::string &endpoint, double timeout)
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

void signals_wait_again()
{
    set_alarm(0);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    exit_at_once = 0;
}
