/* Registration: this file stands in for the platform's registry, which then answers as the test says. */
#include <gtest/gtest.h>

#include <string.h>

#include "kel_module.h"
#include "system.h"

static kel_module_t *registered;

extern "C" LONG KEL_module_register(const char *name, kel_module_t *record)
{
    registered = record;
    return sys::answered("KEL_module_register", name, KEL_OK);
}

namespace
{

TEST(Registration, HandsOverTheSameRecordEveryTimeAndNeverWritesIt)
{
    sys::Recording recording;
    const kel_module_t zero = {};
    socket_module_init();
    kel_module_t *first = registered;
    ASSERT_EQ(memcmp(first, &zero, sizeof(zero)), 0);
    memset((void *)first, 0x5a, sizeof(*first));
    const kel_module_t written = *first;

    socket_module_init();

    EXPECT_EQ(registered, first);
    EXPECT_EQ(memcmp(first, &written, sizeof(written)), 0);
    memset((void *)first, 0, sizeof(*first));
}

} // namespace
