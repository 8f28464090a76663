/* The watch: tests see the calls of every service as lines of text, in one order. */
#include "host.h"
#include "host_prv.h"

#include <atomic>
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>

static std::atomic<host_watch_t> current;

void host_watch(host_watch_t watch)
{
    current = watch;
}

void host_tell(const char *format, ...)
{
    host_watch_t watch = current;
    if (watch == nullptr) {
        return;
    }

    KeepErrno keep;
    char line[2048];
    va_list args;
    va_start(args, format);
    vsnprintf(line, sizeof(line), format, args);
    va_end(args);
    watch(line);
}

KeepErrno::KeepErrno() : saved(errno)
{
}

KeepErrno::~KeepErrno()
{
    errno = saved;
}
