#include <gtest/gtest.h>

#include "host.h"
#include "kel_module.h"

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    host_log_to("/dev/null"); /* the records are seen in the trace; the system's log is not the tests' to fill */
    module_print_filter.moduleID = 200; /* unlike every identifier that the registry hands out here */
    return RUN_ALL_TESTS();
}
