/* What the shared library keeps to itself: linked into every other variant of the module. */
#include "expected.h"

#include <regex.h>

#include "kel_prv_socket.h"

namespace
{

TEST(Matcher, MakesNoCallForANullPatternOrText)
{
    char text[] = "a";
    sys::Recording recording;

    EXPECT_EQ(Match_RegExpPattern(nullptr, text, REG_EXTENDED), 0);
    EXPECT_EQ(Match_RegExpPattern("a", nullptr, REG_EXTENDED), 0);
    EXPECT_EQ(Match_RegExpPattern(nullptr, nullptr, REG_EXTENDED), 0);

    EXPECT_EQ(recording.trace(), sys::Trace{});
}

TEST(Matcher, GivesNoMatchForAPatternThatDoesNotCompile)
{
    char text[] = "(";
    sys::Recording recording;

    EXPECT_EQ(Match_RegExpPattern("(", text, REG_EXTENDED), 0);

    EXPECT_EQ(recording.trace().size(), 1u); /* nothing is executed, nothing freed */
}

TEST(Matcher, PassesTheFlagsUnchanged)
{
    struct {
        const char *pattern;
        const char *text;
        int flags;
        int matches;
    } const rows[] = {{"a+", "aa", 0, 0},          {"a+", "a+", 0, 1},       {"a+", "aa", REG_EXTENDED, 1},
                      {"A", "a", REG_EXTENDED, 0}, {"A", "a", REG_ICASE, 1}, {"^b", "a\nb", REG_NEWLINE, 1},
                      {"a", "a", REG_NOSUB, 1}};
    for (const auto &row : rows) {
        std::string text = row.text;
        sys::Recording recording;

        EXPECT_EQ(Match_RegExpPattern(row.pattern, text.data(), row.flags), row.matches) << row.pattern;

        EXPECT_EQ(
            recording.trace(),
            (sys::Trace{std::string("regcomp(") + row.pattern + ", " + std::to_string(row.flags) + ") = 0",
                        "regexec(" + text + ", 1, set, 0) = " + std::to_string(row.matches == 1 ? 0 : REG_NOMATCH),
                        "regfree() = 0"}));
    }
}

} // namespace
