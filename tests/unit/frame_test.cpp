/*
 * Basic types, levels and colours, and every macro of kel_lib.h: also those that the module itself never uses. What the
 * macros report is seen twice, in functions that were compiled as C and as C++.
 */
#include "failure.h"
#include "frame_uses.h"

#include <errno.h>
#include <string.h>
#include <type_traits>

#include "kel_lib.h"

int frame_used_on;

namespace
{

#define USE(name) cpp_##name
#define TABLE frame_uses_cpp
#include "frame_uses.inc"

/* ---- What the macros report ------------------------------------------------------------------------------------- */

std::string at_line(const std::string &function)
{
    return function + "." + std::to_string(frame_used_on);
}

std::string question(int level, const std::string &name, int answer)
{
    return "filter(" + std::to_string(level) + ", " + name + ") = " + std::to_string(answer);
}

std::string in_uses_at(int line)
{
    return "tests/unit/frame_uses.inc, " + std::to_string(line);
}

std::string logged(ULONG module, int level, const std::string &function, const std::string &format,
                   const std::string &text, int behind = 0)
{
    return "log(" + std::to_string(module) + ", " + std::to_string(level) + ", " + in_uses_at(frame_used_on + behind) +
           ", " + function + ") " + format + "|" + text;
}

/* The macros as both languages expand them: use is the table of functions, name() a function's own name. */
class Macros : public testing::TestWithParam<const struct frame_uses *>
{
  protected:
    const struct frame_uses &use = *GetParam();

    std::string name(const std::string &function) const
    {
        return use.prefix + function;
    }
};

INSTANTIATE_TEST_SUITE_P(Frame, Macros, testing::Values(&frame_uses_c, &frame_uses_cpp),
                         [](const auto &row) { return std::string(row.param == &frame_uses_c ? "C" : "Cpp"); });

/* ---- The prints: one shape, three levels ------------------------------------------------------------------------ */

struct Print {
    std::string name; /* of the function, too */
    void (*use)();
    int level;
    const char *colour;
    int log_level; /* 0: console only */
    const char *format = "%d of %s\r\n";
    const char *text = "3 of four\r\n";
};

class Prints : public testing::TestWithParam<std::tuple<Print, Filtered>>
{
};

TEST_P(Prints, AskTheFilterTwiceAndThenPrintOnceAndLog)
{
    const Print &print = std::get<0>(GetParam());
    Filtered filtered = std::get<1>(GetParam());
    const std::string &function = print.name;
    sys::Recording finding_the_line;
    print.use();

    sys::Recording recording;
    if (filtered != Filtered::No) {
        recording.suppress(filtered == Filtered::ByLine ? at_line(function) : function);
    }
    print.use();

    sys::Trace expected{question(print.level, at_line(function), filtered == Filtered::ByLine)};
    if (filtered != Filtered::ByLine) {
        expected.push_back(question(print.level, function, filtered == Filtered::ByName));
    }
    if (filtered == Filtered::No) {
        expected.push_back(std::string("printf(") + print.colour + "%s.%d:" + print.format + "\033[m)|" + print.colour +
                           at_line(function) + ":" + print.text + "\033[m");
        if (print.log_level != 0) {
            expected.push_back(
                logged(module_print_filter.moduleID, print.log_level, function, print.format, print.text));
        }
    }
    EXPECT_EQ(recording.trace(), expected);
}

std::vector<Print> prints_of(const struct frame_uses &uses)
{
    const std::string prefix = uses.prefix;
    return {{prefix + "info", uses.info, 0, "\033[1;34m", 0},
            {prefix + "warning", uses.warning, 1, "\033[1;35m", 3},
            {prefix + "err", uses.err, 2, "\033[1;31m", 2},
            {prefix + "plain_info", uses.plain_info, 0, "\033[1;34m", 0, "ready", "ready"},
            {prefix + "plain_warning", uses.plain_warning, 1, "\033[1;35m", 3, "ready", "ready"},
            {prefix + "plain_err", uses.plain_err, 2, "\033[1;31m", 2, "ready", "ready"}};
}

INSTANTIATE_TEST_SUITE_P(Frame, Prints, in_every_way(together({prints_of(frame_uses_c), prints_of(frame_uses_cpp)})),
                         filtered_name<Print>);

TEST_P(Macros, AreOneStatementEach)
{
    sys::Recording recording;

    EXPECT_TRUE(use.one_statement_each(KEL_FALSE));

    EXPECT_EQ(recording.trace(), sys::Trace{});
}

TEST_P(Macros, RawPrintIsPrintfAloneAndAsksNobody)
{
    sys::Recording recording;
    recording.suppress(name("raw"));

    use.raw();

    EXPECT_EQ(recording.trace(), (sys::Trace{"printf(%d apples)|3 apples", "printf(none)|none"}));
}

/* ---- The print check -------------------------------------------------------------------------------------------- */

TEST_P(Macros, FilterQuestionPassesLevelAndNameAndReturnsTheAnswer)
{
    sys::Recording recording(sys::fail_first("filter", sys::ok(7)));

    EXPECT_EQ(use.question(1, "name"), 7);
    EXPECT_EQ(use.question(_kel_print_lv_max, "other"), 0);

    EXPECT_EQ(recording.trace(), (sys::Trace{question(1, "name", 7), question(3, "other", 0)}));
}

TEST_P(Macros, PrintCheckStopsAtTheLineWithoutAskingForTheName)
{
    sys::Recording recording;
    recording.suppress("kel_addr_fill.285");

    EXPECT_FALSE(use.print_check(1, "kel_addr_fill", 285));

    EXPECT_EQ(recording.trace(), sys::Trace{question(1, "kel_addr_fill.285", 1)});
}

TEST_P(Macros, PrintCheckStopsAtTheName)
{
    sys::Recording recording;
    recording.suppress("kel_addr_fill");

    EXPECT_FALSE(use.print_check(0, "kel_addr_fill", 285));

    EXPECT_EQ(recording.trace(), (sys::Trace{question(0, "kel_addr_fill.285", 0), question(0, "kel_addr_fill", 1)}));
}

TEST_P(Macros, PrintCheckAnyAnswerButZeroSuppresses)
{
    for (int answer : {1, 2, -1}) {
        sys::Recording recording(sys::fail_first("filter", sys::ok(answer)));

        EXPECT_FALSE(use.print_check(2, "f", 1)) << answer;
        EXPECT_EQ(recording.trace().size(), 1u);
    }
}

TEST_P(Macros, PrintCheckCutsAKeyOf200BytesAndAsksForTheWholeName)
{
    struct {
        size_t name;
        const char *tail; /* what of ".12" is left */
    } const rows[] = {{196, ".12"}, {197, ".1"}, {198, "."}, {199, ""}};
    for (const auto &row : rows) {
        std::string function(row.name, 'f');
        sys::Recording recording;

        EXPECT_TRUE(use.print_check(2, function.c_str(), 12));

        EXPECT_EQ(recording.trace(), (sys::Trace{question(2, function + row.tail, 0), question(2, function, 0)}));
    }

    std::string function(250, 'g');
    sys::Recording recording;
    EXPECT_TRUE(use.print_check(2, function.c_str(), 12));
    EXPECT_EQ(recording.trace(), (sys::Trace{question(2, std::string(199, 'g'), 0), question(2, function, 0)}));
}

TEST_P(Macros, PrintCheckRunsTheStatementAfterTwoQuestions)
{
    sys::Recording recording;

    EXPECT_TRUE(use.print_check(2, "kel_addr_fill", 285));

    EXPECT_EQ(recording.trace(), (sys::Trace{question(2, "kel_addr_fill.285", 0), question(2, "kel_addr_fill", 0)}));
}

/* ---- The log ---------------------------------------------------------------------------------------------------- */

TEST_P(Macros, LogCarriesModuleLevelAndPlaceAndAsksNobody)
{
    sys::Recording recording;
    recording.suppress(name("log"));

    use.log();

    EXPECT_EQ(recording.trace(), (sys::Trace{logged(5, 5, name("log"), "%d lost", "4 lost"),
                                             logged(6, 1, name("log"), "lost", "lost", 1)}));
}

TEST_P(Macros, LogTakesTheIdentifierOfThePrintFilter)
{
    sys::Recording recording;
    const ULONG former = module_print_filter.moduleID;
    module_print_filter.moduleID = 201;

    for (void (*report)() : {use.err, use.plain_err, use.warning, use.plain_warning, use.plain_perror}) {
        report();
        std::string latest = recording.trace().back();
        EXPECT_EQ(latest.substr(0, latest.find(',')), "log(201") << latest;
    }
    ULONG seen = use.log_module();
    module_print_filter.moduleID = former;

    EXPECT_EQ(seen, 201u);
}

/* ---- The report with the text of errno -------------------------------------------------------------------------- */

TEST_P(Macros, PerrorIsSilentWhenFiltered)
{
    sys::Recording recording;
    recording.suppress(name("perror"));

    use.perror(1);

    EXPECT_EQ(recording.trace(), (sys::Trace{question(2, at_line(name("perror")), 0), question(2, name("perror"), 1)}));
}

TEST_P(Macros, PerrorReadsErrnoAfterItsFirstTwoPrints)
{
    int prints = 0;
    sys::Recording recording([&](const std::string &name, long usual) {
        /* Every print changes errno; it is the second one's that shows. */
        static const int errors[] = {0, EPERM, ENOENT, EINTR, EIO};
        return name == "printf" ? sys::Answer{usual, errors[++prints]} : sys::ok(usual);
    });
    errno = EACCES;

    use.perror(9);

    EXPECT_EQ(prints, 4);
    EXPECT_EQ(recording.trace().at(4), "printf(: %s)|: No such file or directory");
    EXPECT_EQ(errno, EIO); /* left alone */
}

sys::Trace perror_trace(const std::string &function, const std::string &format, const std::string &text)
{
    return {question(2, at_line(function), 0),
            question(2, function, 0),
            "printf(\033[1;31m%s.%d:)|\033[1;31m" + at_line(function) + ":",
            "printf(" + format + ")|" + text,
            "printf(: %s)|: Address already in use",
            "printf(\033[m)|\033[m",
            logged(module_print_filter.moduleID, 2, function, format, text)};
}

TEST_P(Macros, PerrorPrintsFourTimesAndLogsTheCallersTextAlone)
{
    {
        sys::Recording recording;
        errno = EADDRINUSE;
        use.perror(9);
        EXPECT_EQ(recording.trace(), perror_trace(name("perror"), "step %d ", "step 9 "));
        EXPECT_EQ(errno, EADDRINUSE);
    }
    sys::Recording recording;
    errno = EADDRINUSE;
    use.plain_perror();
    EXPECT_EQ(recording.trace(), perror_trace(name("plain_perror"), "step ", "step "));
    EXPECT_EQ(errno, EADDRINUSE);
}

/* ---- The checks ------------------------------------------------------------------------------------------------- */

const int target = 0;

sys::Trace check_report(const std::string &function, const std::string &text)
{
    return {question(2, at_line(function), 0), question(2, function, 0),
            "printf(\033[1;31m%s.%d:" + text + "\033[m)|\033[1;31m" + at_line(function) + ":" + text + "\033[m",
            logged(module_print_filter.moduleID, 2, function, text, text)};
}

TEST_P(Macros, NullCheckReportsTheArgumentsSourceTextAndReturnsError)
{
    sys::Recording recording;

    EXPECT_EQ(use.check(nullptr), KEL_ERROR);

    EXPECT_EQ(recording.trace(), check_report(name("check"), "argument is null\r\n"));
}

TEST_P(Macros, NullCheckTakesAnExpression)
{
    sys::Recording recording;

    EXPECT_EQ(use.check_either(&target, nullptr), 5);
    EXPECT_EQ(use.check_either(nullptr, nullptr), KEL_ERROR);

    EXPECT_EQ(recording.trace(), check_report(name("check_either"), "first ? first : second is null\r\n"));
}

TEST_P(Macros, NullCheckRpReportsTheSameAndReturnsNull)
{
    sys::Recording recording;

    EXPECT_EQ(use.check_rp(nullptr), nullptr);

    EXPECT_EQ(recording.trace(), check_report(name("check_rp"), "argument is null\r\n"));
}

TEST_P(Macros, RetCheckReportsTheTextOfItsSecondArgumentAndReturnsError)
{
    for (LONG count : {4, -1}) {
        sys::Recording recording;

        EXPECT_EQ(use.check_ret(count), KEL_ERROR);

        EXPECT_EQ(recording.trace(), check_report(name("check_ret"), "count error\r\n"));
    }
}

TEST_P(Macros, ChecksReturnTheSameWhenTheirReportIsFiltered)
{
    sys::Recording recording;
    recording.suppress(name("check"));
    recording.suppress(name("check_rp"));
    recording.suppress(name("check_ret"));

    EXPECT_EQ(use.check(nullptr), KEL_ERROR);
    EXPECT_EQ(use.check_rp(nullptr), nullptr);
    EXPECT_EQ(use.check_ret(4), KEL_ERROR);

    EXPECT_EQ(recording.trace().size(), 6u); /* two questions each, and nothing else */
}

TEST_P(Macros, ChecksArePassedInSilence)
{
    sys::Recording recording;

    EXPECT_EQ(use.check(&target), 5);
    EXPECT_EQ(use.check_rp(&target), &target);
    EXPECT_EQ(use.check_ret(3), 5);

    EXPECT_EQ(recording.trace(), sys::Trace{});
}

/* ---- The assertion ---------------------------------------------------------------------------------------------- */

TEST_P(Macros, AssertionPassesValueFileLineAndZeroAndGoesOn)
{
    sys::Recording recording;

    use.assertions(0x100000000);

    auto assertion = [](const std::string &value, int behind) {
        return "assert(" + value + ", " + in_uses_at(frame_used_on + behind) + ", 0)";
    };
    EXPECT_EQ(recording.trace(), (sys::Trace{assertion("0", 0), assertion("4294967296", 1), assertion("1", 2),
                                             assertion("0", 3)})); /* 0.5 is 0 as a LONG */
}

} // namespace
