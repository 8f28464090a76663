/*
 * Every macro of kel_lib.h: also those that the module itself never uses. What they report is seen twice, in functions
 * that were compiled as C and as C++.
 */
#include "frame_uses.h"

#include <gtest/gtest.h>

#include <errno.h>
#include <string.h>
#include <tuple>

#include "kel_module.h"
#include "system.h"

int frame_used_on;

namespace
{

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

/* ---- The reports: one shape, three levels, with errno or without ------------------------------------------------ */

struct Report {
    std::string name;
    int level;
    const char *colour;
    int log_level; /* 0: console only */
    const char *format;
    const char *text;
    bool with_errno = false;
    LONG result = 5;
};

/* A failing test names its row. */
std::ostream &operator<<(std::ostream &out, const Report &report)
{
    return out << report.name;
}

const char *const red = "\033[1;31m", *const blue = "\033[1;34m", *const purple = "\033[1;35m";

const Report reports[] = {
    {"info", 0, blue, 0, "%d of %s\r\n", "3 of four\r\n"},
    {"warning", 1, purple, 3, "%d of %s\r\n", "3 of four\r\n"},
    {"err", 2, red, 2, "%d of %s\r\n", "3 of four\r\n"},
    {"perror", 2, red, 2, "%d of %s\r\n", "3 of four\r\n", true},
    {"short_info", 0, blue, 0, "%d lost", "7 lost"},
    {"short_warning", 1, purple, 3, "%d lost", "7 lost"},
    {"short_err", 2, red, 2, "%d lost", "7 lost"},
    {"short_perror", 2, red, 2, "%d lost", "7 lost", true},
    {"plain_info", 0, blue, 0, "ready ", "ready "},
    {"plain_warning", 1, purple, 3, "ready ", "ready "},
    {"plain_err", 2, red, 2, "ready ", "ready "},
    {"plain_perror", 2, red, 2, "ready ", "ready ", true},
    {"check", 2, red, 2, "nothing is null\r\n", "nothing is null\r\n", false, KEL_ERROR},
    {"check_either", 2, red, 2, "nothing ? nothing : nothing is null\r\n", "nothing ? nothing : nothing is null\r\n",
     false, KEL_ERROR},
    {"check_ret", 2, red, 2, "n error\r\n", "n error\r\n", false, KEL_ERROR},
    {"check_rp", 2, red, 2, "argument is null\r\n", "argument is null\r\n", false, KEL_ERROR},
};

/* Which question the print filter answers with yes. */
enum class Filtered { No, ByLine, ByName };

sys::Trace trace_of(const Report &report, const std::string &function, Filtered filtered)
{
    const std::string format = report.format, text = report.text;
    sys::Trace trace{question(report.level, at_line(function), filtered == Filtered::ByLine)};
    if (filtered != Filtered::ByLine) {
        trace.push_back(question(report.level, function, filtered == Filtered::ByName));
    }
    if (filtered != Filtered::No) {
        return trace;
    }
    const std::string place = report.colour + at_line(function) + ":";
    if (report.with_errno) {
        trace.insert(trace.end(), {report.colour + ("%s.%d:)|" + place), format + ")|" + text,
                                   ": %s)|: Address already in use", "\033[m)|\033[m"});
    } else {
        trace.push_back(report.colour + ("%s.%d:" + format) + "\033[m)|" + place + text + "\033[m");
    }
    for (size_t i = 2; i < trace.size(); i++) {
        trace[i] = "printf(" + trace[i];
    }
    if (report.log_level != 0) {
        trace.push_back(logged(module_print_filter.moduleID, report.log_level, function, format, text));
    }
    return trace;
}

/* The macros as both languages expand them. */
const struct frame_uses *const languages[] = {&frame_uses_c, &frame_uses_cpp};

class Reports : public testing::TestWithParam<std::tuple<const struct frame_uses *, Report>>
{
};

TEST_P(Reports, AskTheFilterTwiceAndThenPrintAndLog)
{
    const struct frame_uses &uses = *std::get<0>(GetParam());
    const Report &report = std::get<1>(GetParam());
    const std::string function = uses.prefix + report.name;
    const struct frame_report *use = uses.reports;
    while (use->name != function) {
        ASSERT_NE(use->name, nullptr);
        use++;
    }

    for (Filtered filtered : {Filtered::No, Filtered::ByLine, Filtered::ByName}) {
        sys::Recording recording;
        if (filtered != Filtered::No) { /* the line is known from the first round */
            recording.suppress(filtered == Filtered::ByLine ? at_line(function) : function);
        }
        errno = EADDRINUSE;

        EXPECT_EQ(use->report(), report.result);

        EXPECT_EQ(errno, EADDRINUSE);
        EXPECT_EQ(recording.trace(), trace_of(report, function, filtered));
    }
}

INSTANTIATE_TEST_SUITE_P(Frame, Reports, testing::Combine(testing::ValuesIn(languages), testing::ValuesIn(reports)),
                         [](const auto &row) { return std::get<0>(row.param)->prefix + std::get<1>(row.param).name; });

/* ---- The macros' other sides ------------------------------------------------------------------------------------ */

class Macros : public testing::TestWithParam<const struct frame_uses *>
{
  protected:
    const struct frame_uses &use = *GetParam();

    std::string name(const std::string &function) const
    {
        return use.prefix + function;
    }
};

INSTANTIATE_TEST_SUITE_P(Frame, Macros, testing::ValuesIn(languages),
                         [](const auto &row) { return row.param == &frame_uses_c ? "C" : "Cpp"; });

TEST_P(Macros, AreOneStatementEachAndChecksArePassedInSilence)
{
    sys::Recording recording;

    EXPECT_TRUE(use.one_statement_each(KEL_FALSE));
    EXPECT_EQ(use.pass(), 5);

    EXPECT_EQ(recording.trace(), sys::Trace{});
}

TEST_P(Macros, RawPrintIsPrintfAloneAndAsksNobody)
{
    sys::Recording recording;
    recording.suppress(name("raw"));

    use.raw();

    EXPECT_EQ(recording.trace(),
              (sys::Trace{"printf(\033[1;32m%d apples\033[m)|\033[1;32m3 apples\033[m", "printf(none)|none"}));
}

TEST_P(Macros, PerrorReadsErrnoAfterItsFirstTwoPrints)
{
    for (const struct frame_report *report = use.reports; report->name != nullptr; report++) {
        if (strstr(report->name, "perror") == nullptr) {
            continue;
        }
        int prints = 0;
        sys::Recording recording([&](const std::string &called, long usual) {
            /* Every print changes errno; it is the second one's that shows. */
            static const int errors[] = {0, EPERM, ENOENT, EINTR, EIO};
            return called == "printf" ? sys::Answer{usual, errors[++prints]} : sys::ok(usual);
        });
        errno = EACCES;

        report->report();

        EXPECT_EQ(prints, 4);
        EXPECT_EQ(recording.trace().at(4), "printf(: %s)|: No such file or directory");
        EXPECT_EQ(errno, EIO); /* left alone */
    }
}

/* ---- The print check -------------------------------------------------------------------------------------------- */

TEST_P(Macros, FilterQuestionPassesLevelAndNameAndReturnsTheAnswer)
{
    sys::Recording recording(sys::fail_first("filter", sys::ok(0x12345)));

    EXPECT_EQ(use.question("name"), 0x12345);
    EXPECT_EQ(use.question("other"), 0);

    EXPECT_EQ(recording.trace(), (sys::Trace{question(3, "name", 0x12345), question(3, "other", 0)}));
}

TEST_P(Macros, PrintCheckAnyAnswerButZeroSuppresses)
{
    for (int answer : {1, 2, -1, 256, 0x10000}) {
        for (int nth : {1, 2}) {
            sys::Recording recording(sys::fail_nth("filter", nth, sys::ok(answer)));

            EXPECT_FALSE(use.print_check(2, "f", 1)) << answer;

            EXPECT_EQ(recording.trace().size(), (size_t)nth);
        }
    }
}

TEST_P(Macros, PrintCheckCutsAKeyOf200BytesAndAsksForTheWholeName)
{
    for (size_t length : {1, 193, 194, 195, 197, 198, 199, 250}) {
        const std::string function(length, 'f');
        sys::Recording recording;

        EXPECT_TRUE(use.print_check(0x12345, function.c_str(), 70123));

        EXPECT_EQ(recording.trace(), (sys::Trace{question(0x12345, (function + ".70123").substr(0, 199), 0),
                                                 question(0x12345, function, 0)}));
    }
}

/* ---- The log ---------------------------------------------------------------------------------------------------- */

TEST_P(Macros, LogCarriesModuleLevelAndPlaceAndAsksNobody)
{
    sys::Recording recording;
    recording.suppress(name("log"));

    use.log();

    EXPECT_EQ(recording.trace(), (sys::Trace{logged(5, 5, name("log"), "%d lost", "4 lost"),
                                             logged(0x100000006, 0x12345, name("log"), "lost", "lost", 1)}));
}

TEST_P(Macros, LogTakesTheIdentifierOfThePrintFilter)
{
    const ULONG former = module_print_filter.moduleID;
    module_print_filter.moduleID = 0x100000201;
    for (const struct frame_report *report = use.reports; report->name != nullptr; report++) {
        sys::Recording recording;
        report->report();
        const std::string latest = recording.trace().back();
        EXPECT_TRUE(latest.compare(0, 4, "log(") != 0 || latest.compare(0, 14, "log(4294967809") == 0) << latest;
    }
    EXPECT_EQ(use.log_module(), 0x100000201u);
    module_print_filter.moduleID = former;
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
