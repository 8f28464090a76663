#include <gtest/gtest.h>

#include "host.h"

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    host_log_to("/dev/null"); /* the records are seen in the trace; the system's log is not the tests' to fill */
    return RUN_ALL_TESTS();
}
