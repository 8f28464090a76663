/* Registration: this file stands in for the platform's registry, which then answers as the test says. */
#include "expected.h"

#include <limits.h>
#include <stddef.h>
#include <string.h>
#include <type_traits>

#include "kel_lib.h"
#include "kel_module.h"

static kel_module_t *registered;

extern "C" LONG KEL_module_register(const char *name, kel_module_t *record)
{
    registered = record;
    return sys::answered("KEL_module_register", name, KEL_OK);
}

namespace
{

bool all_zero(const kel_module_t &record)
{
    const kel_module_t zero = {};
    return memcmp(&record, &zero, sizeof(record)) == 0;
}

/* ---- The module record ------------------------------------------------------------------------------------------ */

TEST(ModuleRecord, HasItsFieldsInOrder)
{
    const size_t offsets[] = {offsetof(kel_module_t, modType),       offsetof(kel_module_t, commType),
                              offsetof(kel_module_t, moduleID),      offsetof(kel_module_t, name),
                              offsetof(kel_module_t, queueID),       offsetof(kel_module_t, paraCount),
                              offsetof(kel_module_t, pPara),         offsetof(kel_module_t, paraLock),
                              offsetof(kel_module_t, userTaskEntry), offsetof(kel_module_t, pHostTask)};
    const size_t expected[] = {0, 8, 16, 24, 72, 80, 88, 96, 104, 112};

    for (size_t i = 0; i < sizeof(expected) / sizeof(expected[0]); i++) {
        EXPECT_EQ(offsets[i], expected[i]) << i;
    }
    EXPECT_EQ(sizeof(kel_module_t), 120u);
}

TEST(ModuleRecord, HasItsFieldsTypes)
{
    static_assert(std::is_same<decltype(kel_module_s::modType), module_type_t>::value);
    static_assert(std::is_same<decltype(kel_module_s::commType), LONG>::value);
    static_assert(std::is_same<decltype(kel_module_s::moduleID), ULONG>::value);
    static_assert(std::is_same<decltype(kel_module_s::name), CHAR[48]>::value);
    static_assert(std::is_same<decltype(kel_module_s::queueID), ULONG>::value);
    static_assert(std::is_same<decltype(kel_module_s::paraCount), LONG>::value);
    static_assert(std::is_pointer<decltype(kel_module_s::pPara)>::value);
    static_assert(std::is_same<decltype(kel_module_s::paraLock), LONG>::value);
    static_assert(std::is_same<decltype(kel_module_s::userTaskEntry), KEL_user_task_entry>::value);
    static_assert(std::is_pointer<decltype(kel_module_s::pHostTask)>::value);
    static_assert(std::is_same<KEL_user_task_entry, KEL_msg_code_handler_ptr>::value);
    static_assert(std::is_same<KEL_msg_code_handler_ptr, LONG (*)(ULONG *)>::value);
    static_assert(std::is_same<module_type_t, enum module_type_e>::value);

    EXPECT_EQ(MODULE_NAME_LEN, 48);
}

TEST(ModuleRecord, KindsAreTheFixedValues)
{
    EXPECT_EQ(KEL_MOD_T_NORMAL, 0);
    EXPECT_EQ(KEL_MOD_T_HOST, 1);
    EXPECT_EQ(KEL_MOD_T_USER, 2);
    EXPECT_EQ(KEL_MOD_T_EXTERN, 3);
    EXPECT_EQ(KEL_MOD_T_MAX, 4);
}

TEST(ModuleIdentifier, IsIllegalFrom256AndBelowZero)
{
    EXPECT_EQ(MODULE_ID_MAX, 256);

    EXPECT_TRUE(MODULE_ID_IS_ILLEGAL(256));
    EXPECT_TRUE(MODULE_ID_IS_ILLEGAL(257));
    EXPECT_TRUE(MODULE_ID_IS_ILLEGAL(-1));
    EXPECT_TRUE(MODULE_ID_IS_ILLEGAL((SHORT)-1));
    EXPECT_TRUE(MODULE_ID_IS_ILLEGAL(INT_MIN));
    EXPECT_TRUE(MODULE_ID_IS_ILLEGAL(UINT_MAX));
    EXPECT_TRUE(MODULE_ID_IS_ILLEGAL(LONG_MIN));
    EXPECT_TRUE(MODULE_ID_IS_ILLEGAL(LONG_MAX));
    EXPECT_TRUE(MODULE_ID_IS_ILLEGAL(ULONG_MAX));
    EXPECT_TRUE(MODULE_ID_IS_ILLEGAL(0x100000000)); /* not cut to 32 bits */

    EXPECT_FALSE(MODULE_ID_IS_ILLEGAL(0));
    EXPECT_FALSE(MODULE_ID_IS_ILLEGAL(1));
    EXPECT_FALSE(MODULE_ID_IS_ILLEGAL(255));
    EXPECT_FALSE(MODULE_ID_IS_ILLEGAL(255ul));
}

/* ---- socket_module_init ----------------------------------------------------------------------------------------- */

class RefusedRegistration : public testing::TestWithParam<LONG>
{
};

TEST_P(RefusedRegistration, IsPrintedPastTheFilterAndReturnedAsItIs)
{
    testing::internal::CaptureStdout();
    {
        sys::Recording recording(sys::fail_first("KEL_module_register", sys::ok(GetParam())));
        recording.suppress("socket_module_init");

        EXPECT_EQ(socket_module_init(), GetParam());

        EXPECT_EQ(recording.trace(), (sys::Trace{"KEL_module_register(KEL_socket) = " + std::to_string(GetParam()),
                                                 "KEL_Printf(module socket register error \r\n)"}));
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "module socket register error \r\n");
    EXPECT_TRUE(all_zero(*registered));
}

INSTANTIATE_TEST_SUITE_P(Registration, RefusedRegistration, testing::Values(-1, 5, 0x100000000));

TEST(Registration, HandsOverTheSameRecordEveryTimeAndNeverWritesIt)
{
    sys::Recording recording;
    socket_module_init();
    kel_module_t *first = registered;
    ASSERT_NE(first, nullptr);
    EXPECT_TRUE(all_zero(*first)); /* as it was made */
    memset((void *)first, 0x5a, sizeof(*first));
    const kel_module_t written = *first;

    socket_module_init();

    EXPECT_EQ(registered, first);
    EXPECT_EQ(memcmp((void *)first, (const void *)&written, sizeof(written)), 0);
    memset((void *)first, 0, sizeof(*first));
}

TEST(Registration, IsSilentWhenTheRegistryTakesTheModule)
{
    sys::Recording recording;

    EXPECT_EQ(socket_module_init(), KEL_OK);

    EXPECT_EQ(recording.trace(), sys::Trace{"KEL_module_register(KEL_socket) = 0"});
    ASSERT_NE(registered, nullptr);
    EXPECT_TRUE(all_zero(*registered));
}

} // namespace
