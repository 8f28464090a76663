#include <gtest/gtest.h>

#include "host.h"
#include "kel_module.h"

/* In place of the stand-in platform's: its identifier is unlike any that the module itself could have. */
kel_module_t module_print_filter = {KEL_MOD_T_NORMAL, 0, 200, "filter", 0, 0, nullptr, 0, nullptr, nullptr};

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    host_log_to("/dev/null"); /* the records are seen in the trace; the system's log is not the tests' to fill */
    return RUN_ALL_TESTS();
}
