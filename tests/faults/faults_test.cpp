/* The explorer's tests: every function, and that nothing of the module was left out. */
#include <gtest/gtest.h>

#include "calls.h"
#include "explorer.h"
#include "positions.h"
#include "text.h"

namespace
{

/* The functions that the text tries, and that this program reaches. */
std::vector<std::string> tried()
{
    std::vector<std::string> names;
    for (const Function &function : functions()) {
        if (!function.trials.empty() && module_function(function.name) != nullptr) {
            names.push_back(function.name);
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
    for (const std::string &function : tried()) {
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
        const bool is_tried = function_named(function) != nullptr && !function_named(function)->trials.empty();
        EXPECT_TRUE(is_tried) << function << ": tests/behaviour has to hold its steps, and lines that try it";
    }
}

TEST(Completeness, EveryPositionIsReachedWithEveryOutcome)
{
    for (const std::string &function : tried()) {
        ASSERT_EQ(explored(function).mismatches, 0u) << function << ": what it reaches is not known";
    }
    std::set<std::string> known;
    for (const Position &position : source().positions) {
        known.insert(position.name);
        const size_t taken = taken_at[position.name].size();
        EXPECT_EQ(taken, outcomes(position.call))
            << "kel_socket.cpp:" << position.line << ": " << position.name
            << (taken == 0 ? ": tests/behaviour has to say it, and to try what leads to it" : ": of its outcomes");
    }
    for (const auto &[position, taken] : taken_at) {
        EXPECT_EQ(known.count(position), 1u) << position << ": tests/behaviour says it, kel_socket.cpp does not";
    }
}

TEST(Completeness, EveryLineOfTheTextIsReached)
{
    for (const std::string &function : tried()) {
        explored(function);
    }
    /* What only a function of the module's own leads to is not reached through the shared library. */
    const bool reaches_all = module_function("Match_RegExpPattern") != nullptr;
    for (const Statement *statement : reaches_all ? statements() : std::vector<const Statement *>()) {
        const bool is_refusal = statement->kind == Statement::Refuse;
        EXPECT_GT(is_refusal ? statement->refusals : statement->runs, 0u)
            << statement->place << ": no run gets here: " << statement->text;
    }
}

TEST(Completeness, EveryCallInTheSourceIsKnown)
{
    for (const std::string &call : source().unknown) {
        ADD_FAILURE() << call << "(): tests/support has to stand in for it, calls.cpp and answers.cpp to know it";
    }
}

/* Prints what was explored, when all is done. */
class Summary : public testing::Environment
{
    void TearDown() override
    {
        size_t leaves = 0;
        for (const auto &[function, found] : explorations) {
            printf("%8zu  %s\n", found.leaves, function.c_str());
            leaves += found.leaves;
        }
        size_t calls = 0;
        const auto &positions = source().positions;
        for (const Position &place : positions) {
            calls += is_report(place.call) ? 0 : 1;
        }
        printf("explorer: %zu functions, %zu call positions, %zu report positions, %zu leaves\n", explorations.size(),
               calls, positions.size() - calls, leaves);
    }
};

const auto *const summary = testing::AddGlobalTestEnvironment(new Summary);

} // namespace
