/* The log: one line for each record, to syslog(3), to standard error or to a file. */
#include "host.h"
#include "host_prv.h"
#include "plat_syslog.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

namespace
{

enum { TO_SYSLOG = -1 };

int target = TO_SYSLOG; /* or a descriptor */
bool complained;        /* that the target cannot be written */
pthread_mutex_t target_lock = PTHREAD_MUTEX_INITIALIZER;
pthread_once_t environment_read = PTHREAD_ONCE_INIT;

LONG choose(const char *name)
{
    int chosen = TO_SYSLOG;
    if (name != nullptr && strcmp(name, "stderr") == 0) {
        chosen = STDERR_FILENO;
    } else if (name != nullptr && strcmp(name, "syslog") != 0) {
        chosen = open(name, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
        if (chosen == -1) {
            return KEL_ERROR;
        }
    }

    pthread_mutex_lock(&target_lock);
    int former = target;
    target = chosen;
    complained = false;
    pthread_mutex_unlock(&target_lock);
    if (former != TO_SYSLOG && former != STDERR_FILENO) {
        close(former);
    }
    return KEL_OK;
}

void read_environment()
{
    const char *name = getenv("KEL_HOST_LOG");
    if (choose(name) != KEL_OK) {
        fprintf(stderr, "KEL_HOST_LOG: cannot open %s: %s; the log goes to syslog\n", name, strerror(errno));
    }
}

int priority_of(int level)
{
    switch (level) {
    case SYSLOG_CRIT:
        return LOG_CRIT;
    case SYSLOG_ERR:
        return LOG_ERR;
    case SYSLOG_WARNING:
        return LOG_WARNING;
    case SYSLOG_INFO:
        return LOG_INFO;
    default:
        return LOG_DEBUG;
    }
}

const char *level_name(int level)
{
    static const char *const names[] = {"?", "crit", "err", "warning", "info", "debug"};
    return level >= SYSLOG_CRIT && level < KEL_SYSLOGLEVELS_NUM ? names[level] : names[0];
}

} // namespace

LONG host_log_to(const char *name)
{
    pthread_once(&environment_read, read_environment);
    return choose(name != nullptr ? name : getenv("KEL_HOST_LOG"));
}

HOST_SERVICE void KEL_SysLog(ULONG module_id, int level, const char *file, int line, const char *func,
                             const char *format, ...)
{
    KeepErrno keep;
    pthread_once(&environment_read, read_environment);

    char text[1024];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    host_tell("log(%lu, %d, %s, %d, %s) %s|%s", module_id, level, file, line, func, format, text);

    text[strcspn(text, "\r\n")] = '\0'; /* a record is one line */

    pthread_mutex_lock(&target_lock);
    if (target == TO_SYSLOG) {
        syslog(LOG_USER | priority_of(level), "module %lu %s:%d %s: %s", module_id, file, line, func, text);
    } else {
        struct timespec now;
        struct tm utc;
        char stamp[32];
        clock_gettime(CLOCK_REALTIME, &now);
        gmtime_r(&now.tv_sec, &utc);
        strftime(stamp, sizeof(stamp), "%Y-%m-%dT%H:%M:%SZ", &utc);
        int length = dprintf(target, "%s %s module %lu %s:%d %s: %s\n", stamp, level_name(level), module_id, file, line,
                             func, text);
        if (length < 0 && !complained) {
            complained = true;
            fprintf(stderr, "the log cannot be written: %s; its records are lost\n", strerror(errno));
        }
    }
    pthread_mutex_unlock(&target_lock);
}
