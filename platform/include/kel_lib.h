/*
 * The platform's library: memory, string and console services, the assertion, the print filter, and the macros
 * through which every module reports failures.
 */
#ifndef KEL_LIB_H
#define KEL_LIB_H

#include <stdio.h> /* the console is standard output, through printf */

#include "kel_module.h"
#include "kel_types.h"
#include "plat_syslog.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Services: supplied by the platform, with the contracts of their standard namesakes ---------------------- */

VOID *KEL_MemSet(VOID *dst, int value, size_t size); /* callers may pass a null dst before they check it */
VOID *KEL_MemCpy(VOID *dst, const VOID *src, size_t size);
int KEL_MemCmp(const VOID *left, const VOID *right, size_t size);

int KEL_StrCmp(const CHAR *left, const CHAR *right);
CHAR *KEL_StrCpy(CHAR *dst, const CHAR *src);
CHAR *KEL_StrnCpy(CHAR *dst, const CHAR *src, size_t size); /* a cut copy has no NUL, as with strncpy */
int KEL_Sprintf(CHAR *dst, const CHAR *format, ...) __attribute__((format(printf, 2, 3)));
int KEL_Snprintf(CHAR *dst, size_t size, const CHAR *format, ...) __attribute__((format(printf, 3, 4)));
int KEL_Printf(const CHAR *format, ...) __attribute__((format(printf, 1, 2)));

/**
 * The platform's assertion handler: reports a failed assertion and returns, and the caller goes on.
 *
 * @param value 0 when the assertion failed
 * @param file  source file of the assertion
 * @param line  source line of the assertion
 * @param code  always 0 as KEL_ASSERT passes it
 */
void KEL_ASSERT_X(LONG value, const char *file, int line, LONG code);

/* ---- Print levels and print filter ---------------------------------------------------------------------------- */

/*
 * The platform's console print level, defined once by the platform and zero at start. Its type is the enumeration,
 * which has no name; extern keeps it a declaration in every file that includes this header.
 */
extern enum {
    _kel_print_lv_info = 0,
    _kel_print_lv_warning = 1,
    _kel_print_lv_err = 2,
    _kel_print_lv_max = 3 /* count */
} _kel_print_lv;

/**
 * Asks the platform's print filter about one report. Supplied by the platform.
 *
 * @param level one of the print levels above
 * @param name  "function.line" of the report, or the bare name of the function
 * @return non-zero when the report is suppressed: it is then neither printed nor logged
 */
int kel_info_print_filter_is_filtered(int level, const char *name);

/* ---- Reports: console in colour, then the system log -----------------------------------------------------------
 *
 * Every macro expands in place: function, line and file are those of its use. A macro that takes fmt takes a string
 * literal and the arguments of a printf format. Suppressing a report changes nothing but the output.
 */

#define KEL_COLOR_NONE "\033[m"
#define KEL_COLOR_RED "\033[1;31m"
#define KEL_COLOR_BLUE "\033[1;34m"
#define KEL_COLOR_PURPLE "\033[1;35m"
#define KEL_COLOR_GREEN "\033[1;32m"

#ifdef __clang__
/* A format without arguments needs the comma taken away, which standard C and C++ learnt only in later editions. */
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wgnu-zero-variadic-macro-arguments"
#endif

#define __is_p_(lv, val) kel_info_print_filter_is_filtered(lv, val)
#define __log_mid module_print_filter.moduleID

/* Opens a report: the statement that follows runs unless its line, or else its function, is suppressed. */
#define __print_check(lv, func, line)                                                                                  \
    char _print_key[200];                                                                                              \
    snprintf(_print_key, sizeof(_print_key), "%s.%d", func, line);                                                     \
    if (!__is_p_(lv, _print_key) && !__is_p_(lv, func))

#define kel_raw_print(fmt, ...) printf(fmt, ##__VA_ARGS__)
#define KEL_log(module_id, level, content, ...)                                                                        \
    KEL_SysLog(module_id, level, __FILE__, __LINE__, __func__, content, ##__VA_ARGS__)

/* Console only. */
#define kel_info_print(fmt, ...)                                                                                       \
    do {                                                                                                               \
        __print_check(_kel_print_lv_info, __func__, __LINE__)                                                          \
        {                                                                                                              \
            printf(KEL_COLOR_BLUE "%s.%d:" fmt KEL_COLOR_NONE, __func__, __LINE__, ##__VA_ARGS__);                     \
        }                                                                                                              \
    } while (0)

#define kel_warning_print(fmt, ...)                                                                                    \
    do {                                                                                                               \
        __print_check(_kel_print_lv_warning, __func__, __LINE__)                                                       \
        {                                                                                                              \
            printf(KEL_COLOR_PURPLE "%s.%d:" fmt KEL_COLOR_NONE, __func__, __LINE__, ##__VA_ARGS__);                   \
            KEL_log(__log_mid, SYSLOG_WARNING, fmt, ##__VA_ARGS__);                                                    \
        }                                                                                                              \
    } while (0)

/*
 * In C++, error reports without arguments, which are nearly all, share two functions among the cold code: the straight
 * path of a function that may report then carries neither their buffers nor the registers that they use. In C every
 * report is expanded whole, for an inline function must not call a static one there.
 */
#ifdef __cplusplus
#define __no_arguments(...) (sizeof(#__VA_ARGS__) == 1)

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat" /* the texts are literals where they are used; %m is the C library's own */
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"

static __attribute__((unused, noinline, cold)) void __report_err(const char *func, const char *file, int line,
                                                                 const char *coloured, const char *text)
{
    __print_check(_kel_print_lv_err, func, line)
    {
        printf(coloured, func, line);
        KEL_SysLog(__log_mid, SYSLOG_ERR, file, line, func, text);
    }
}

static __attribute__((unused, noinline, cold)) void __report_perror(const char *func, const char *file, int line,
                                                                    const char *text)
{
    __print_check(_kel_print_lv_err, func, line)
    {
        char _errno_text[200];
        printf(KEL_COLOR_RED "%s.%d:", func, line);
        printf(text);
        sprintf(_errno_text, "%m");
        printf(": %s", _errno_text);
        printf(KEL_COLOR_NONE);
        KEL_SysLog(__log_mid, SYSLOG_ERR, file, line, func, text);
    }
}

#pragma GCC diagnostic pop
#else
#define __no_arguments(...) 0
#define __report_err(func, file, line, coloured, text)
#define __report_perror(func, file, line, text)
#endif

#define kel_err_print(fmt, ...)                                                                                        \
    do {                                                                                                               \
        if (__no_arguments(__VA_ARGS__)) {                                                                             \
            __report_err(__func__, __FILE__, __LINE__, KEL_COLOR_RED "%s.%d:" fmt KEL_COLOR_NONE, fmt);                \
            break;                                                                                                     \
        }                                                                                                              \
        __print_check(_kel_print_lv_err, __func__, __LINE__)                                                           \
        {                                                                                                              \
            printf(KEL_COLOR_RED "%s.%d:" fmt KEL_COLOR_NONE, __func__, __LINE__, ##__VA_ARGS__);                      \
            KEL_log(__log_mid, SYSLOG_ERR, fmt, ##__VA_ARGS__);                                                        \
        }                                                                                                              \
    } while (0)

/*
 * An error report that ends in the text of errno, on the console alone. Four prints, not one: errno is read between
 * them, after the caller's text is out. fmt brings no line end and the report adds none.
 */
#define kel_perror(fmt, ...)                                                                                           \
    do {                                                                                                               \
        if (__no_arguments(__VA_ARGS__)) {                                                                             \
            __report_perror(__func__, __FILE__, __LINE__, fmt);                                                        \
            break;                                                                                                     \
        }                                                                                                              \
        __print_check(_kel_print_lv_err, __func__, __LINE__)                                                           \
        {                                                                                                              \
            char _errno_text[200];                                                                                     \
            printf(KEL_COLOR_RED "%s.%d:", __func__, __LINE__);                                                        \
            printf(fmt, ##__VA_ARGS__);                                                                                \
            sprintf(_errno_text, "%m");                                                                                \
            printf(": %s", _errno_text);                                                                               \
            printf(KEL_COLOR_NONE);                                                                                    \
            KEL_log(__log_mid, SYSLOG_ERR, fmt, ##__VA_ARGS__);                                                        \
        }                                                                                                              \
    } while (0)

#ifdef __clang__
#pragma clang diagnostic pop
#endif

/* ---- Argument checks: they return from the function that uses them, reported or not -------------------------- */

#define NULL_CHECK(p)                                                                                                  \
    do {                                                                                                               \
        if ((p) == NULL) {                                                                                             \
            kel_err_print(#p " is null\r\n");                                                                          \
            return KEL_ERROR;                                                                                          \
        }                                                                                                              \
    } while (0)

#define NULL_CHECK_RP(p)                                                                                               \
    do {                                                                                                               \
        if ((p) == NULL) {                                                                                             \
            kel_err_print(#p " is null\r\n");                                                                          \
            return NULL;                                                                                               \
        }                                                                                                              \
    } while (0)

#define RET_CHECK(cond, p)                                                                                             \
    do {                                                                                                               \
        if (cond) {                                                                                                    \
            kel_err_print(#p " error\r\n");                                                                            \
            return KEL_ERROR;                                                                                          \
        }                                                                                                              \
    } while (0)

#define KEL_ASSERT(exp) KEL_ASSERT_X((LONG)(exp), __FILE__, __LINE__, 0)

#ifdef __cplusplus
}
#endif

#endif
