/*
 * The platform's services at their plainest, in place of the stand-ins of the same name, which also tell each call to
 * whoever watches: what is measured is the module.
 */
#include "kel_lib.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

VOID *KEL_MemSet(VOID *dst, int value, size_t size)
{
    return dst == nullptr ? nullptr : memset(dst, value, size);
}

VOID *KEL_MemCpy(VOID *dst, const VOID *src, size_t size)
{
    return memcpy(dst, src, size);
}

int KEL_MemCmp(const VOID *left, const VOID *right, size_t size)
{
    return memcmp(left, right, size);
}

CHAR *KEL_StrnCpy(CHAR *dst, const CHAR *src, size_t size)
{
    return strncpy(dst, src, size);
}

int KEL_Sprintf(CHAR *dst, const CHAR *format, ...)
{
    va_list args;
    va_start(args, format);
    int length = vsprintf(dst, format, args);
    va_end(args);
    return length;
}
