#include <gtest/gtest.h>

#include <signal.h>

#include "host.h"

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    signal(SIGPIPE, SIG_IGN);
    host_log_to("/dev/null"); /* the system's log is not the tests' to fill */
    return RUN_ALL_TESTS();
}
