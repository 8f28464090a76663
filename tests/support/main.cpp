#include <gtest/gtest.h>

#include "host.h"
#include "kel_module.h"

/* In place of the stand-in platform's, whose identifier is 0 as that of an empty record is: 200 is from here alone. */
kel_module_t module_print_filter = {KEL_MOD_T_NORMAL, 0, 200, "filter", 0, 0, nullptr, 0, nullptr, nullptr};

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    host_log_to("/dev/null"); /* the trace shows the records: the system's log is spared them */
    return RUN_ALL_TESTS();
}
