/*
 * The platform's library: memory, string and console services, the assertion, the print filter, and the macros through
 * which every module reports failures.
 */
#ifndef KEL_LIB_H
#define KEL_LIB_H

/*
 * The macros use extensions of the compilers: a report may have no arguments, and %m is the text of errno. Where a
 * program uses a macro of a system header, -Wpedantic does not warn of them. Its formats are checked all the same.
 */
#pragma GCC system_header

#include "kel_types.h"

#include <stdio.h> /* the console is standard output, through printf */

#include "kel_module.h"
#include "plat_syslog.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Services: supplied by the platform -------------------------------------------------------------------- */

/**
 * Fill, copy and compare memory, as memset(3), memcpy(3) and memcmp(3) do.
 *
 * @param dst   receives size bytes; KEL_MemSet() does nothing when it is null: callers may check it later
 * @param value the byte, cut to 8 bits
 * @param src   size bytes, which do not overlap with dst
 * @param left  size bytes
 * @param right size bytes
 * @param size  number of bytes
 * @return dst; of KEL_MemCmp() a number below, equal to or above 0 as left compares with right
 */
VOID *KEL_MemSet(VOID *dst, int value, size_t size);
VOID *KEL_MemCpy(VOID *dst, const VOID *src, size_t size);
int KEL_MemCmp(const VOID *left, const VOID *right, size_t size);

/**
 * Compare and copy texts, as strcmp(3), strcpy(3) and strncpy(3) do.
 *
 * @param left  text
 * @param right text
 * @param dst   receives the text and its NUL; from KEL_StrnCpy() size bytes, without a NUL when the text is cut
 * @param src   text
 * @param size  bytes at dst
 * @return dst; of KEL_StrCmp() a number below, equal to or above 0 as left compares with right
 */
int KEL_StrCmp(const CHAR *left, const CHAR *right);
CHAR *KEL_StrCpy(CHAR *dst, const CHAR *src);
CHAR *KEL_StrnCpy(CHAR *dst, const CHAR *src, size_t size);

/**
 * Write formatted text into memory or to the console, as sprintf(3), snprintf(3) and printf(3) do.
 *
 * @param dst    receives the text and its NUL
 * @param size   bytes at dst
 * @param format printf format, followed by its arguments
 * @return characters of the whole text, without its NUL; a negative number for a failure
 */
int KEL_Sprintf(CHAR *dst, const CHAR *format, ...) __attribute__((format(printf, 2, 3)));
int KEL_Snprintf(CHAR *dst, size_t size, const CHAR *format, ...) __attribute__((format(printf, 3, 4)));
int KEL_Printf(const CHAR *format, ...) __attribute__((format(printf, 1, 2)));

/**
 * Reports a failed assertion and returns, and the caller goes on. The platform supplies this handler.
 *
 * @param value 0 when the assertion failed
 * @param file  source file of the assertion; borrowed for the call
 * @param line  source line of the assertion
 * @param code  0 from KEL_ASSERT(); a caller of its own may pass any number
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
 * @param level print level: 0 info, 1 warning, 2 err
 * @param name  "function.line" of the report, or the bare name of the function
 * @return non-zero when the report is suppressed: it is then neither printed nor logged
 */
int kel_info_print_filter_is_filtered(int level, const char *name);

/* ---- Reports -------------------------------------------------------------------------------------------------- */

/**
 * Report to the console and to the system log. Every macro expands in place: function, line and file are those of its
 * use. On the console, "function.line:" stands in front of a coloured text. Suppressing a report changes nothing but
 * the output.
 *
 *   macro                                    filtered at  console (standard output)        system log
 *   kel_raw_print(fmt, ...)                  never        the text alone                   nothing
 *   kel_info_print(fmt, ...)                 info         blue                             nothing
 *   kel_warning_print(fmt, ...)              warning      purple                           SYSLOG_WARNING
 *   kel_err_print(fmt, ...)                  err          red                              SYSLOG_ERR
 *   kel_perror(fmt, ...)                     err          red, then ": " and errno's text  SYSLOG_ERR, without errno
 *   KEL_log(module_id, level, content, ...)  never        nothing                          level, under module_id
 *
 * All but KEL_log() log under the identifier of the print filter. No macro ends the line: a line end belongs into the
 * format.
 *
 * @param fmt       string literal: a printf format, followed by its arguments
 * @param module_id identifier of the module that reports, 0 to 255
 * @param level     one of enum _tag_SYSLOG_LEVEL
 * @param content   as fmt
 */

#define KEL_COLOR_NONE "\033[m"
#define KEL_COLOR_RED "\033[1;31m"
#define KEL_COLOR_BLUE "\033[1;34m"
#define KEL_COLOR_PURPLE "\033[1;35m"
#define KEL_COLOR_GREEN "\033[1;32m"

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

/* The second printf is never called. GCC checks its format, but not one that begins with a colour of this header. */
#define kel_info_print(fmt, ...)                                                                                       \
    do {                                                                                                               \
        __print_check(_kel_print_lv_info, __func__, __LINE__)                                                          \
        {                                                                                                              \
            printf(KEL_COLOR_BLUE "%s.%d:" fmt KEL_COLOR_NONE, __func__, __LINE__, ##__VA_ARGS__);                     \
            (void)sizeof(printf(fmt, ##__VA_ARGS__));                                                                  \
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
#ifdef __cpp_if_constexpr /* then the branch that is not taken is no code at all, neither to run nor to cover */
#define __if_no_arguments(...) if constexpr (sizeof(#__VA_ARGS__) == 1)
#else
#define __if_no_arguments(...) if (sizeof(#__VA_ARGS__) == 1)
#endif

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

#else
#define __if_no_arguments(...) if (0)
#define __report_err(func, file, line, coloured, text)
#define __report_perror(func, file, line, text)
#endif

#define kel_err_print(fmt, ...)                                                                                        \
    do {                                                                                                               \
        __if_no_arguments(__VA_ARGS__)                                                                                 \
        {                                                                                                              \
            __report_err(__func__, __FILE__, __LINE__, KEL_COLOR_RED "%s.%d:" fmt KEL_COLOR_NONE, fmt);                \
        }                                                                                                              \
        else                                                                                                           \
        {                                                                                                              \
            __print_check(_kel_print_lv_err, __func__, __LINE__)                                                       \
            {                                                                                                          \
                printf(KEL_COLOR_RED "%s.%d:" fmt KEL_COLOR_NONE, __func__, __LINE__, ##__VA_ARGS__);                  \
                KEL_log(__log_mid, SYSLOG_ERR, fmt, ##__VA_ARGS__);                                                    \
            }                                                                                                          \
        }                                                                                                              \
    } while (0)

/*
 * Four prints, not one: errno is read after the first two, so a failure of theirs is what the report then shows. The
 * text of errno goes to the console alone.
 */
#define kel_perror(fmt, ...)                                                                                           \
    do {                                                                                                               \
        __if_no_arguments(__VA_ARGS__)                                                                                 \
        {                                                                                                              \
            __report_perror(__func__, __FILE__, __LINE__, fmt);                                                        \
        }                                                                                                              \
        else                                                                                                           \
        {                                                                                                              \
            __print_check(_kel_print_lv_err, __func__, __LINE__)                                                       \
            {                                                                                                          \
                char _errno_text[200];                                                                                 \
                printf(KEL_COLOR_RED "%s.%d:", __func__, __LINE__);                                                    \
                printf(fmt, ##__VA_ARGS__);                                                                            \
                sprintf(_errno_text, "%m");                                                                            \
                printf(": %s", _errno_text);                                                                           \
                printf(KEL_COLOR_NONE);                                                                                \
                KEL_log(__log_mid, SYSLOG_ERR, fmt, ##__VA_ARGS__);                                                    \
            }                                                                                                          \
        }                                                                                                              \
    } while (0)

/* ---- Checks: each returns from the function that uses it, whether its report is suppressed or not ------------- */

/**
 * Refuses a null pointer: NULL_CHECK(addr) reports "addr is null\r\n" and returns KEL_ERROR.
 *
 * @param p the pointer; its source text becomes a printf format and must not contain a percent sign
 */
#define NULL_CHECK(p)                                                                                                  \
    do {                                                                                                               \
        if ((p) == NULL) {                                                                                             \
            kel_err_print(#p " is null\r\n");                                                                          \
            return KEL_ERROR;                                                                                          \
        }                                                                                                              \
    } while (0)

/**
 * Refuses a null pointer in a function that returns one: NULL_CHECK_RP(addr) reports "addr is null\r\n", returns NULL.
 *
 * @param p the pointer; its source text becomes a printf format and must not contain a percent sign
 */
#define NULL_CHECK_RP(p)                                                                                               \
    do {                                                                                                               \
        if ((p) == NULL) {                                                                                             \
            kel_err_print(#p " is null\r\n");                                                                          \
            return NULL;                                                                                               \
        }                                                                                                              \
    } while (0)

/**
 * Refuses what a condition is true for: RET_CHECK(count > 3, count) reports "count error\r\n" and returns KEL_ERROR.
 *
 * @param cond the condition
 * @param p    what is reported; its source text becomes a printf format and must not contain a percent sign
 */
#define RET_CHECK(cond, p)                                                                                             \
    do {                                                                                                               \
        if (cond) {                                                                                                    \
            kel_err_print(#p " error\r\n");                                                                            \
            return KEL_ERROR;                                                                                          \
        }                                                                                                              \
    } while (0)

/**
 * Asserts: hands an expression to the platform's handler, KEL_ASSERT_X(), which reports a 0. It returns nothing and
 * ends nothing: code behind a failed assertion runs.
 *
 * @param exp the expression, converted to a LONG. Write a comparison; a fraction such as 0.5 would be converted to 0
 */
#define KEL_ASSERT(exp) KEL_ASSERT_X((LONG)(exp), __FILE__, __LINE__, 0)

#ifdef __cplusplus
}
#endif

#endif
