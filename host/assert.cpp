/* The assertion handler: reports on standard error, counts, and returns. */
#include "host.h"
#include "host_prv.h"
#include "kel_lib.h"

#include <atomic>
#include <stdio.h>

static std::atomic<ULONG> failed;

HOST_SERVICE void KEL_ASSERT_X(LONG value, const char *file, int line, LONG code)
{
    KeepErrno keep;
    host_tell("assert(%ld, %s, %d, %ld)", value, file, line, code);
    if (value == 0) {
        failed++;
        fprintf(stderr, "%s:%d: assertion failed (code %ld)\n", file, line, code);
    }
}

ULONG host_assertions(void)
{
    return failed;
}
