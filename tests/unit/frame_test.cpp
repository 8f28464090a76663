/* Basic types, levels and colours, and every macro of kel_lib.h: also those that the module itself never uses. */
#include "failure_test.h"

#include <errno.h>
#include <string.h>
#include <type_traits>

#include "kel_lib.h"

namespace
{

int used_on; /* the line of the latest use of a macro below */

/* ---- Types and constants ---------------------------------------------------------------------------------------- */

static_assert(std::is_same<VOID, void>::value && std::is_same<BOOL, int>::value && std::is_same<CHAR, char>::value &&
              std::is_same<UCHAR, unsigned char>::value && std::is_same<SHORT, short int>::value &&
              std::is_same<LONG, long int>::value && std::is_same<ULONG, unsigned long int>::value);

TEST(Types, HaveTheWidthsOfTheTarget)
{
    EXPECT_EQ(sizeof(BOOL), 4u);
    EXPECT_EQ(sizeof(SHORT), 2u);
    EXPECT_EQ(sizeof(LONG), 8u);
    EXPECT_EQ(sizeof(ULONG), 8u);
}

TEST(Results, AreTheFixedValues)
{
    EXPECT_EQ(KEL_OK, 0);
    EXPECT_EQ(KEL_ERROR, -1);
    EXPECT_EQ(KEL_TRUE, 1);
    EXPECT_EQ(KEL_FALSE, 0);
}

TEST(Levels, AreTheFixedValues)
{
    EXPECT_EQ(SYSLOG_CRIT, 1);
    EXPECT_EQ(SYSLOG_ERR, 2);
    EXPECT_EQ(SYSLOG_WARNING, 3);
    EXPECT_EQ(SYSLOG_INFO, 4);
    EXPECT_EQ(SYSLOG_DEBUG, 5);
    EXPECT_EQ(KEL_SYSLOGLEVELS_NUM, 6);
    EXPECT_EQ(sizeof(enum _tag_SYSLOG_LEVEL), 4u);

    EXPECT_EQ(_kel_print_lv_info, 0);
    EXPECT_EQ(_kel_print_lv_warning, 1);
    EXPECT_EQ(_kel_print_lv_err, 2);
    EXPECT_EQ(_kel_print_lv_max, 3);
}

TEST(Levels, ThePlatformsPrintLevelIsAVariableThatStartsAtZero)
{
    decltype(_kel_print_lv) *level = &_kel_print_lv;

    EXPECT_EQ(*level, 0);
}

TEST(Colours, AreTheEscapeSequencesByteForByte)
{
    EXPECT_EQ(sys::hex(KEL_COLOR_NONE, sizeof(KEL_COLOR_NONE)), "1b5b6d00");
    EXPECT_EQ(sys::hex(KEL_COLOR_RED, sizeof(KEL_COLOR_RED)), "1b5b313b33316d00");
    EXPECT_EQ(sys::hex(KEL_COLOR_BLUE, sizeof(KEL_COLOR_BLUE)), "1b5b313b33346d00");
    EXPECT_EQ(sys::hex(KEL_COLOR_PURPLE, sizeof(KEL_COLOR_PURPLE)), "1b5b313b33356d00");
    EXPECT_EQ(sys::hex(KEL_COLOR_GREEN, sizeof(KEL_COLOR_GREEN)), "1b5b313b33326d00");
}

/* ---- The prints: one shape, three levels ------------------------------------------------------------------------ */

void use_info()
{
    used_on = __LINE__ + 1;
    kel_info_print("%d of %s\r\n", 3, "four");
}

void use_warning()
{
    used_on = __LINE__ + 1;
    kel_warning_print("%d of %s\r\n", 3, "four");
}

void use_err()
{
    used_on = __LINE__ + 1;
    kel_err_print("%d of %s\r\n", 3, "four");
}

struct Print {
    const char *name;
    void (*use)();
    int level;
    const char *colour;
    int log_level; /* 0: console only */
};

class Prints : public testing::TestWithParam<std::tuple<Print, Filtered>>
{
};

std::string at_line(const std::string &function)
{
    return function + "." + std::to_string(used_on);
}

std::string question(int level, const std::string &name, int answer)
{
    return "filter(" + std::to_string(level) + ", " + name + ") = " + std::to_string(answer);
}

std::string logged(ULONG module, int level, const std::string &function, const std::string &format,
                   const std::string &text)
{
    return "log(" + std::to_string(module) + ", " + std::to_string(level) + ", " + __FILE__ + ", " +
           std::to_string(used_on) + ", " + function + ") " + format + "|" + text;
}

TEST_P(Prints, AskTheFilterTwiceAndThenPrintOnceAndLog)
{
    const Print &print = std::get<0>(GetParam());
    Filtered filtered = std::get<1>(GetParam());
    std::string function = std::string("use_") + print.name;
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
        expected.push_back(std::string("printf(") + print.colour + "%s.%d:%d of %s\r\n\033[m)|" + print.colour +
                           at_line(function) + ":3 of four\r\n\033[m");
        if (print.log_level != 0) {
            expected.push_back(
                logged(module_print_filter.moduleID, print.log_level, function, "%d of %s\r\n", "3 of four\r\n"));
        }
    }
    EXPECT_EQ(recording.trace(), expected);
}

const std::vector<Print> print_macros = {{"info", use_info, 0, "\033[1;34m", 0},
                                         {"warning", use_warning, 1, "\033[1;35m", 3},
                                         {"err", use_err, 2, "\033[1;31m", 2}};

INSTANTIATE_TEST_SUITE_P(Frame, Prints, in_every_way(print_macros), filtered_name<Print>);

TEST(Prints, TakeAFormatWithoutArguments)
{
    sys::Recording recording;

    kel_info_print("ready");

    EXPECT_EQ(recording.trace().at(2), "printf(\033[1;34m%s.%d:ready\033[m)|\033[1;34mTestBody." +
                                           std::to_string(__LINE__ - 3) + ":ready\033[m");
}

TEST(Prints, AreOneStatementEach)
{
    sys::Recording recording;
    bool reported = false;

    if (reported)
        kel_err_print("one");
    else if (reported)
        kel_perror("two");
    else if (reported)
        kel_info_print("three");
    else if (reported)
        kel_warning_print("four");
    else
        reported = true;

    EXPECT_TRUE(reported);
    EXPECT_EQ(recording.trace(), sys::Trace{});
}

TEST(RawPrint, IsPrintfAloneAndAsksNobody)
{
    sys::Recording recording;
    recording.suppress("TestBody");

    kel_raw_print("%d apples", 3);
    kel_raw_print("none");

    EXPECT_EQ(recording.trace(), (sys::Trace{"printf(%d apples)|3 apples", "printf(none)|none"}));
}

/* ---- The print check -------------------------------------------------------------------------------------------- */

TEST(FilterQuestion, PassesLevelAndNameAndReturnsTheAnswer)
{
    sys::Recording recording(sys::fail_first("filter", sys::ok(7)));

    EXPECT_EQ(__is_p_(1, "name"), 7);
    EXPECT_EQ(__is_p_(_kel_print_lv_max, "other"), 0);

    EXPECT_EQ(recording.trace(), (sys::Trace{question(1, "name", 7), question(3, "other", 0)}));
}

bool print_check(int level, const char *function, int line)
{
    __print_check(level, function, line)
    {
        return true;
    }
    return false;
}

TEST(PrintCheck, StopsAtTheLineWithoutAskingForTheName)
{
    sys::Recording recording;
    recording.suppress("kel_addr_fill.285");

    EXPECT_FALSE(print_check(1, "kel_addr_fill", 285));

    EXPECT_EQ(recording.trace(), sys::Trace{question(1, "kel_addr_fill.285", 1)});
}

TEST(PrintCheck, StopsAtTheName)
{
    sys::Recording recording;
    recording.suppress("kel_addr_fill");

    EXPECT_FALSE(print_check(0, "kel_addr_fill", 285));

    EXPECT_EQ(recording.trace(), (sys::Trace{question(0, "kel_addr_fill.285", 0), question(0, "kel_addr_fill", 1)}));
}

TEST(PrintCheck, AnyAnswerButZeroSuppresses)
{
    for (int answer : {1, 2, -1}) {
        sys::Recording recording(sys::fail_first("filter", sys::ok(answer)));

        EXPECT_FALSE(print_check(2, "f", 1)) << answer;
        EXPECT_EQ(recording.trace().size(), 1u);
    }
}

TEST(PrintCheck, CutsAKeyOf200BytesAndAsksForTheWholeName)
{
    struct {
        size_t name;
        const char *tail; /* what of ".12" is left */
    } const rows[] = {{196, ".12"}, {197, ".1"}, {198, "."}, {199, ""}};
    for (const auto &row : rows) {
        std::string function(row.name, 'f');
        sys::Recording recording;

        EXPECT_TRUE(print_check(2, function.c_str(), 12));

        EXPECT_EQ(recording.trace(), (sys::Trace{question(2, function + row.tail, 0), question(2, function, 0)}));
    }

    std::string function(250, 'g');
    sys::Recording recording;
    EXPECT_TRUE(print_check(2, function.c_str(), 12));
    EXPECT_EQ(recording.trace(), (sys::Trace{question(2, std::string(199, 'g'), 0), question(2, function, 0)}));
}

TEST(PrintCheck, RunsTheStatementAfterTwoQuestions)
{
    sys::Recording recording;

    EXPECT_TRUE(print_check(2, "kel_addr_fill", 285));

    EXPECT_EQ(recording.trace(), (sys::Trace{question(2, "kel_addr_fill.285", 0), question(2, "kel_addr_fill", 0)}));
}

/* ---- The log ---------------------------------------------------------------------------------------------------- */

TEST(Log, CarriesModuleLevelAndPlaceAndAsksNobody)
{
    sys::Recording recording;

    used_on = __LINE__ + 1;
    KEL_log(5, SYSLOG_DEBUG, "%d lost", 4);

    EXPECT_EQ(recording.trace(), sys::Trace{logged(5, 5, "TestBody", "%d lost", "4 lost")});
}

TEST(Log, TakesTheIdentifierOfThePrintFilter)
{
    sys::Recording recording;
    const ULONG former = module_print_filter.moduleID;
    module_print_filter.moduleID = 201;

    use_err();
    std::string err = recording.trace().back();
    use_warning();
    std::string warning = recording.trace().back();
    ULONG seen = __log_mid;
    module_print_filter.moduleID = former;

    EXPECT_EQ(seen, 201u);
    EXPECT_EQ(warning, logged(201, 3, "use_warning", "%d of %s\r\n", "3 of four\r\n"));
    EXPECT_EQ(err.substr(0, err.find(',')), "log(201");
}

/* ---- The report with the text of errno -------------------------------------------------------------------------- */

void use_perror(int line_one)
{
    used_on = __LINE__ + 1;
    kel_perror("step %d ", line_one);
}

TEST(Perror, IsSilentWhenFiltered)
{
    sys::Recording recording;
    recording.suppress("use_perror");

    use_perror(1);

    EXPECT_EQ(recording.trace(), (sys::Trace{question(2, at_line("use_perror"), 0), question(2, "use_perror", 1)}));
}

TEST(Perror, ReadsErrnoAfterItsFirstTwoPrints)
{
    int prints = 0;
    sys::Recording recording([&](const std::string &name, long usual) {
        /* Every print changes errno; it is the second one's that shows. */
        static const int errors[] = {0, EPERM, ENOENT, EINTR, EIO};
        return name == "printf" ? sys::Answer{usual, errors[++prints]} : sys::ok(usual);
    });
    errno = EACCES;

    use_perror(9);

    EXPECT_EQ(prints, 4);
    EXPECT_EQ(recording.trace().at(4), "printf(: %s)|: No such file or directory");
    EXPECT_EQ(errno, EIO); /* left alone */
}

TEST(Perror, PrintsFourTimesAndLogsTheCallersTextAlone)
{
    sys::Recording recording;
    errno = EADDRINUSE;

    use_perror(9);

    EXPECT_EQ(recording.trace(),
              (sys::Trace{question(2, at_line("use_perror"), 0), question(2, "use_perror", 0),
                          "printf(\033[1;31m%s.%d:)|\033[1;31m" + at_line("use_perror") + ":",
                          "printf(step %d )|step 9 ", "printf(: %s)|: Address already in use", "printf(\033[m)|\033[m",
                          logged(module_print_filter.moduleID, 2, "use_perror", "step %d ", "step 9 ")}));
    EXPECT_EQ(errno, EADDRINUSE);
}

/* ---- The checks ------------------------------------------------------------------------------------------------- */

const int target = 0;

LONG check(const int *argument)
{
    used_on = __LINE__ + 1;
    NULL_CHECK(argument);
    return 5;
}

LONG check_either(const int *first, const int *second)
{
    used_on = __LINE__ + 1;
    NULL_CHECK(first ? first : second);
    return 5;
}

const int *check_rp(const int *argument)
{
    used_on = __LINE__ + 1;
    NULL_CHECK_RP(argument);
    return argument;
}

LONG check_ret(LONG count)
{
    used_on = __LINE__ + 1;
    RET_CHECK(count > 3 || count < 0, count);
    return 5;
}

sys::Trace check_report(const std::string &function, const std::string &text)
{
    return {question(2, at_line(function), 0), question(2, function, 0),
            "printf(\033[1;31m%s.%d:" + text + "\033[m)|\033[1;31m" + at_line(function) + ":" + text + "\033[m",
            logged(module_print_filter.moduleID, 2, function, text, text)};
}

TEST(NullCheck, ReportsTheArgumentsSourceTextAndReturnsError)
{
    sys::Recording recording;

    EXPECT_EQ(check(nullptr), KEL_ERROR);

    EXPECT_EQ(recording.trace(), check_report("check", "argument is null\r\n"));
}

TEST(NullCheck, TakesAnExpression)
{
    sys::Recording recording;

    EXPECT_EQ(check_either(&target, nullptr), 5);
    EXPECT_EQ(check_either(nullptr, nullptr), KEL_ERROR);

    EXPECT_EQ(recording.trace(), check_report("check_either", "first ? first : second is null\r\n"));
}

TEST(NullCheckRp, ReportsTheSameAndReturnsNull)
{
    sys::Recording recording;

    EXPECT_EQ(check_rp(nullptr), nullptr);

    EXPECT_EQ(recording.trace(), check_report("check_rp", "argument is null\r\n"));
}

TEST(RetCheck, ReportsTheTextOfItsSecondArgumentAndReturnsError)
{
    for (LONG count : {4, -1}) {
        sys::Recording recording;

        EXPECT_EQ(check_ret(count), KEL_ERROR);

        EXPECT_EQ(recording.trace(), check_report("check_ret", "count error\r\n"));
    }
}

TEST(Checks, ReturnTheSameWhenTheirReportIsFiltered)
{
    sys::Recording recording;
    recording.suppress("check");
    recording.suppress("check_rp");
    recording.suppress("check_ret");

    EXPECT_EQ(check(nullptr), KEL_ERROR);
    EXPECT_EQ(check_rp(nullptr), nullptr);
    EXPECT_EQ(check_ret(4), KEL_ERROR);

    EXPECT_EQ(recording.trace().size(), 6u); /* two questions each, and nothing else */
}

TEST(Checks, ArePassedInSilence)
{
    sys::Recording recording;

    EXPECT_EQ(check(&target), 5);
    EXPECT_EQ(check_rp(&target), &target);
    EXPECT_EQ(check_ret(3), 5);

    EXPECT_EQ(recording.trace(), sys::Trace{});
}

/* ---- The assertion ---------------------------------------------------------------------------------------------- */

TEST(Assertion, PassesValueFileLineAndZeroAndGoesOn)
{
    const LONG wide = 0x100000000;
    sys::Recording recording;

    used_on = __LINE__ + 1;
    KEL_ASSERT(1 == 2 || 2 == 3);
    KEL_ASSERT(wide);
    KEL_ASSERT(0.5 + 0.5); /* the whole expression becomes a LONG, not its first operand */

    auto assertion = [](const std::string &value, int line) {
        return "assert(" + value + ", " + __FILE__ + ", " + std::to_string(line) + ", 0)";
    };
    EXPECT_EQ(recording.trace(),
              (sys::Trace{assertion("0", used_on), assertion("4294967296", used_on + 1), assertion("1", used_on + 2)}));
}

} // namespace
