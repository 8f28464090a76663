/* The explorer's tests: every function, and that nothing of the module was left out. */
#include <gtest/gtest.h>

#include "explorer.h"
#include "positions.h"

namespace
{

/* The functions that have cases, in their order. */
std::vector<std::string> functions()
{
    std::vector<std::string> names;
    for (const Case &which : cases()) {
        if (names.empty() || names.back() != which.function) {
            names.push_back(which.function);
        }
    }
    return names;
}

/* A test of the explorer: one function. */
class Explorer : public testing::Test
{
  public:
    explicit Explorer(const std::string &name) : function(name)
    {
    }

  private:
    void TestBody() override
    {
        const Exploration &found = explored(function);

        EXPECT_GT(found.leaves, 0u);
        EXPECT_EQ(found.mismatches, 0u) << "of " << found.leaves << " paths; the first:\n" << found.first;
    }

    const std::string function;
};

const bool registered = [] {
    for (const std::string &function : functions()) {
        testing::RegisterTest("Explorer", function.c_str(), nullptr, nullptr, __FILE__, __LINE__,
                              [=]() -> testing::Test * { return new Explorer(function); });
    }
    return true;
}();

TEST(Completeness, EveryExportedFunctionIsExplored)
{
    const auto names = exported();
    EXPECT_FALSE(names.empty());
    for (const std::string &function : names) {
        EXPECT_GT(explored(function).leaves, 0u) << function;
    }
}

TEST(Completeness, EveryPositionIsReachedWithEveryOutcome)
{
    for (const std::string &function : functions()) {
        ASSERT_EQ(explored(function).mismatches, 0u) << function << ": what it reaches is not known";
    }
    std::set<std::string> known;
    for (const Position &position : read_source().positions) {
        known.insert(position.name);
        for (size_t outcome = 0; outcome < outcomes(position.call); outcome++) {
            EXPECT_EQ(taken_at[position.name].count(outcome), 1u) << position.name << ", outcome " << outcome;
        }
    }
    for (const auto &[position, taken] : taken_at) {
        EXPECT_EQ(known.count(position), 1u) << position << " is in the model alone";
    }
}

TEST(Completeness, EveryCallInTheSourceIsKnown)
{
    for (const std::string &call : read_source().unknown) {
        ADD_FAILURE() << call << "() is not stood in for";
    }
}

/* Prints what was explored, when all is done. */
class Summary : public testing::Environment
{
    void TearDown() override
    {
        size_t leaves = 0;
        for (const std::string &function : functions()) {
            const size_t own = explored(function).leaves;
            printf("%8zu  %s\n", own, function.c_str());
            leaves += own;
        }
        size_t calls = 0;
        const auto positions = read_source().positions;
        for (const Position &place : positions) {
            calls += is_report(place.call) ? 0 : 1;
        }
        printf("explorer: %zu functions, %zu call positions, %zu report positions, %zu leaves\n", functions().size(),
               calls, positions.size() - calls, leaves);
    }
};

const auto *const summary = testing::AddGlobalTestEnvironment(new Summary);

} // namespace
