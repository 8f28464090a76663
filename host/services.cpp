/* Memory, strings and console: the standard functions under the platform's names. */
#include "host.h"
#include "host_prv.h"
#include "kel_lib.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

HOST_SERVICE decltype(_kel_print_lv) _kel_print_lv;

static const char *shown(const VOID *pointer)
{
    return pointer == nullptr ? "null" : "set";
}

HOST_SERVICE VOID *KEL_MemSet(VOID *dst, int value, size_t size)
{
    host_tell("KEL_MemSet(%s, %d, %zu)", shown(dst), value, size);
    /* Callers may clear before they check. Tested here: memset may assume that its argument is not null. */
    return dst == nullptr ? nullptr : memset(dst, value, size);
}

HOST_SERVICE VOID *KEL_MemCpy(VOID *dst, const VOID *src, size_t size)
{
    host_tell("KEL_MemCpy(%s, %s, %zu)", shown(dst), shown(src), size);
    return memcpy(dst, src, size);
}

HOST_SERVICE int KEL_MemCmp(const VOID *left, const VOID *right, size_t size)
{
    host_tell("KEL_MemCmp(%s, %s, %zu)", shown(left), shown(right), size);
    return memcmp(left, right, size);
}

HOST_SERVICE int KEL_StrCmp(const CHAR *left, const CHAR *right)
{
    host_tell("KEL_StrCmp(%s, %s)", left, right);
    return strcmp(left, right);
}

HOST_SERVICE CHAR *KEL_StrCpy(CHAR *dst, const CHAR *src)
{
    host_tell("KEL_StrCpy(%s)", src);
    return strcpy(dst, src);
}

HOST_SERVICE CHAR *KEL_StrnCpy(CHAR *dst, const CHAR *src, size_t size)
{
    host_tell("KEL_StrnCpy(%s, %zu)", src, size);
    return strncpy(dst, src, size);
}

HOST_SERVICE int KEL_Sprintf(CHAR *dst, const CHAR *format, ...)
{
    host_tell("KEL_Sprintf(%s)", format);
    va_list args;
    va_start(args, format);
    int length = vsprintf(dst, format, args);
    va_end(args);
    return length;
}

HOST_SERVICE int KEL_Snprintf(CHAR *dst, size_t size, const CHAR *format, ...)
{
    host_tell("KEL_Snprintf(%zu, %s)", size, format);
    va_list args;
    va_start(args, format);
    int length = vsnprintf(dst, size, format, args);
    va_end(args);
    return length;
}

HOST_SERVICE int KEL_Printf(const CHAR *format, ...)
{
    host_tell("KEL_Printf(%s)", format);
    va_list args;
    va_start(args, format);
    int length = vprintf(format, args);
    va_end(args);
    return length;
}

/*
 * A name for the whole archive. The linker is told to look for it (--undefined=host_all), and then finds all stand-ins,
 * even where the archive stands in front of the library that calls them. Services cannot serve as such names: a program
 * may have its own.
 */
extern "C" void *const host_all[];
void *const host_all[] = {reinterpret_cast<void *>(host_assertions), reinterpret_cast<void *>(host_filter_clear),
                          reinterpret_cast<void *>(host_log_to), reinterpret_cast<void *>(host_registry_clear)};
