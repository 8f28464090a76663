/* Every use of the report macros, as C and as C++ programs write them: no compiler warns about one of them. */
#include "kel_lib.h"

LONG report(const void *pointer, LONG count);
LONG report(const void *pointer, LONG count)
{
    NULL_CHECK(pointer);
    RET_CHECK(count > 3, count);
    kel_info_print("text\r\n");
    kel_info_print("%ld of %s\r\n", count, "four");
    kel_warning_print("text\r\n");
    kel_warning_print("%ld of %s\r\n", count, "four");
    kel_err_print("text\r\n");
    kel_err_print("%ld of %s\r\n", count, "four");
    kel_perror("text ");
    kel_perror("%ld of %s ", count, "four");
    kel_raw_print("text\n");
    kel_raw_print("%ld of %s\n", count, "four");
    KEL_log(__log_mid, SYSLOG_INFO, "text");
    KEL_log(__log_mid, SYSLOG_INFO, "%ld of %s", count, "four");
    KEL_ASSERT(count == 3);
    return KEL_OK;
}

const void *report_null(const void *pointer);
const void *report_null(const void *pointer)
{
    NULL_CHECK_RP(pointer);
    return pointer;
}
