/* The platform's system log. */
#ifndef PLAT_SYSLOG_H
#define PLAT_SYSLOG_H

#include "kel_types.h"

#ifdef __cplusplus
extern "C" {
#endif

enum _tag_SYSLOG_LEVEL {
    SYSLOG_CRIT = 1,
    SYSLOG_ERR = 2,
    SYSLOG_WARNING = 3,
    SYSLOG_INFO = 4,
    SYSLOG_DEBUG = 5,
    KEL_SYSLOGLEVELS_NUM = 6 /* count */
};

/**
 * Writes one record to the system log. Supplied by the platform.
 *
 * @param module_id identifier under which the record is filed, 0 to 255; the report macros of kel_lib.h pass that of
 *                  the print filter
 * @param level     one of enum _tag_SYSLOG_LEVEL
 * @param file      source file of the caller; borrowed for the call, as are func and format
 * @param line      source line of the caller
 * @param func      name of the calling function
 * @param format    printf format of the record's text, followed by its arguments
 */
void KEL_SysLog(ULONG module_id, int level, const char *file, int line, const char *func, const char *format, ...)
    __attribute__((format(printf, 6, 7)));

#ifdef __cplusplus
}
#endif

#endif
