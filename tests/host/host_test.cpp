/*
 * The stand-in platform, in a program of its own: nothing stands in for the system here but syslog(3). What is chosen
 * once for a process, by the environment, is seen in children that start afresh.
 */
#include <gtest/gtest.h>

#include <atomic>
#include <errno.h>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <sstream>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <syslog.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "host.h"
#include "kel_lib.h"
#include "kel_module.h"
#include "kel_prv_socket.h"
#include "kel_socket.h"

using Texts = std::vector<std::string>;

static Texts syslog_records;

extern "C" void syslog(int priority, const char *format, ...)
{
    char text[2048];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    syslog_records.push_back(std::to_string(priority) + " " + text);
    errno = EPIPE; /* as the real one may */
}

namespace
{

Texts watched;

void keep(const char *call)
{
    watched.push_back(call);
    errno = EDOM; /* a watch may do so: its callers must not notice */
}

class Watch
{
  public:
    Watch()
    {
        watched.clear();
        host_watch(keep);
    }
    ~Watch()
    {
        host_watch(nullptr);
    }
};

void in_threads(int count, const std::function<void(int)> &work)
{
    std::vector<std::thread> running;
    for (int t = 0; t < count; t++) {
        running.emplace_back(work, t);
    }
    for (std::thread &thread : running) {
        thread.join();
    }
}

/* ---- Children --------------------------------------------------------------------------------------------------- */

int warning_line, err_line;

void subject()
{
    kel_info_print("info\n");
    warning_line = __LINE__ + 1;
    kel_warning_print("warning\n");
    err_line = __LINE__ + 1;
    kel_err_print("err %d\r\nsecond line", 7);
}

void record()
{
    KEL_SysLog(1, SYSLOG_ERR, "file", 2, "func", "text");
}

/* Prints what a call leaves of errno. */
void keep_errno(void (*call)())
{
    errno = 4242;
    call();
    printf("%d", errno);
}

const std::map<std::string, void (*)()> child_roles = {
    {"subject", subject},
    {"errno_after_a_record", [] { keep_errno(record); }},
    {"errno_after_an_assertion_without_stderr",
     [] {
         close(STDERR_FILENO);
         keep_errno([] { KEL_ASSERT_X(0, "file", 2, 0); });
     }},
    {"errno_after_a_question", [] { keep_errno([] { kel_info_print_filter_is_filtered(2, "name"); }); }},
    {"clear_the_filter_and_report",
     [] {
         host_filter_clear();
         subject();
     }},
    {"add_a_key_and_report",
     [] {
         host_filter_add("subject", _kel_print_lv_info);
         subject();
     }},
    {"return_to_the_environments_log",
     [] {
         host_log_to("/dev/null");
         host_log_to(nullptr);
         subject();
     }},
};

struct Output {
    std::string out; /* standard output, then what went to syslog */
    std::string err;
};

/* By its name: under an emulator, /proc/self/exe itself is the emulator. */
std::string this_program()
{
    char path[4096];
    ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
    return std::string(path, length > 0 ? (size_t)length : 0);
}

void set_variable(const char *name, const char *value)
{
    value != nullptr ? setenv(name, value, 1) : unsetenv(name);
}

/* This program again, with one role and these variables. */
Output child(const std::string &role, const char *filter, const char *log)
{
    set_variable("KEL_HOST_FILTER", filter);
    set_variable("KEL_HOST_LOG", log);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    int status = system(("'" + this_program() + "' --child " + role).c_str());
    Output output = {testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr()};
    EXPECT_EQ(status, 0) << role;
    set_variable("KEL_HOST_FILTER", nullptr);
    set_variable("KEL_HOST_LOG", nullptr);
    return output;
}

int run_child(const std::string &role)
{
    child_roles.at(role)();
    for (const std::string &record : syslog_records) {
        printf("syslog %s\n", record.c_str());
    }
    return 0;
}

/* ---- Memory, strings, console ----------------------------------------------------------------------------------- */

TEST(Namesakes, OfMemory)
{
    Watch watch;
    char bytes[4] = {1, 1, 1, 1};
    const char other[4] = {7, 7, 7, 2};

    EXPECT_EQ(KEL_MemSet(bytes, 7, 3), bytes);
    EXPECT_EQ(memcmp(bytes, "\7\7\7\1", 4), 0);
    EXPECT_EQ(KEL_MemCmp(bytes, other, 3), 0);
    EXPECT_LT(KEL_MemCmp(bytes, other, 4), 0);
    EXPECT_GT(KEL_MemCmp(other, bytes, 4), 0);
    EXPECT_EQ(KEL_MemCpy(bytes, other, 4), bytes);
    EXPECT_EQ(memcmp(bytes, other, 4), 0);
    EXPECT_EQ(KEL_MemSet(nullptr, 0, 112), nullptr) << "which the namesake does not allow";

    EXPECT_EQ(watched, (Texts{"KEL_MemSet(set, 7, 3)", "KEL_MemCmp(set, set, 3)", "KEL_MemCmp(set, set, 4)",
                              "KEL_MemCmp(set, set, 4)", "KEL_MemCpy(set, set, 4)", "KEL_MemSet(null, 0, 112)"}));
}

TEST(Namesakes, OfStrings)
{
    Watch watch;
    char text[8] = "xxxxxxx";

    EXPECT_EQ(KEL_StrCmp("a", "a"), 0);
    EXPECT_LT(KEL_StrCmp("a", "b"), 0);
    EXPECT_GT(KEL_StrCmp("b", "a"), 0);
    EXPECT_EQ(KEL_StrCpy(text, "abc"), text);
    EXPECT_EQ(std::string(text, 7), std::string("abc\0xxx", 7));
    EXPECT_EQ(KEL_StrnCpy(text, "de", 2), text); /* cut: no NUL */
    EXPECT_EQ(std::string(text, 7), std::string("dec\0xxx", 7));
    EXPECT_EQ(KEL_StrnCpy(text, "f", 6), text); /* short: filled up */
    EXPECT_EQ(std::string(text, 7), std::string("f\0\0\0\0\0x", 7));

    EXPECT_EQ(watched, (Texts{"KEL_StrCmp(a, a)", "KEL_StrCmp(a, b)", "KEL_StrCmp(b, a)", "KEL_StrCpy(abc)",
                              "KEL_StrnCpy(de, 2)", "KEL_StrnCpy(f, 6)"}));
}

TEST(Namesakes, OfPrinting)
{
    {
        Watch watch;
        char text[16];

        EXPECT_EQ(KEL_Sprintf(text, "%s-%d", "ab", 12), 5);
        EXPECT_STREQ(text, "ab-12");
        EXPECT_EQ(KEL_Snprintf(text, 4, "%s-%d", "ab", 12), 5);
        EXPECT_STREQ(text, "ab-");
        testing::internal::CaptureStdout();
        EXPECT_EQ(KEL_Printf("%s-%d", "ab", 12), 5);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "ab-12");
    }
    KEL_MemSet(nullptr, 0, 1); /* nobody watches any more */

    EXPECT_EQ(watched, (Texts{"KEL_Sprintf(%s-%d)", "KEL_Snprintf(4, %s-%d)", "KEL_Printf(%s-%d)"}));
}

/* ---- errno ------------------------------------------------------------------------------------------------------ */

TEST(Services, LeaveErrnoAlone)
{
    char scratch[16];
    kel_module_t module;
    const std::pair<const char *, std::function<void()>> services[] = {
        {"MemSet", [&] { KEL_MemSet(scratch, 0, 1); }},
        {"MemCpy", [&] { KEL_MemCpy(scratch, "a", 1); }},
        {"MemCmp", [&] { (void)KEL_MemCmp(scratch, "a", 1); }},
        {"StrCmp", [&] { (void)KEL_StrCmp("a", "b"); }},
        {"StrCpy", [&] { KEL_StrCpy(scratch, "a"); }},
        {"StrnCpy", [&] { KEL_StrnCpy(scratch, "a", 2); }},
        {"Sprintf", [&] { KEL_Sprintf(scratch, "a"); }},
        {"Snprintf", [&] { KEL_Snprintf(scratch, 2, "a"); }},
        {"Printf", [&] { KEL_Printf("a"); }},
        {"Assertion", [&] { KEL_ASSERT_X(0, "file", 1, 0); }},
        {"Log", record},
        {"Register", [&] { KEL_module_register("name", &module); }},
        {"Filter", [&] { kel_info_print_filter_is_filtered(2, "name"); }},
        {"FilterDecision",
         [&] {
             host_filter_decide([](int, const char *) { return errno = 0; });
             kel_info_print_filter_is_filtered(2, "name");
             host_filter_decide(nullptr);
         }},
    };
    ASSERT_EQ(host_log_to("syslog"), KEL_OK);
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    for (const auto &[name, call] : services) {
        Watch watch;
        errno = 4242;
        call();
        EXPECT_EQ(errno, 4242) << name;
        EXPECT_EQ(watched.size(), 1u) << name;
    }
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    host_registry_clear();
}

TEST(Services, LeaveErrnoAloneWhenTheirOutputFails)
{
    EXPECT_EQ(child("errno_after_a_record", nullptr, "/dev/full").out, "4242");
    EXPECT_EQ(child("errno_after_a_record", nullptr, "/no/such/folder/log").out,
              "4242syslog 11 module 1 file:2 func: text\n");
    EXPECT_EQ(child("errno_after_an_assertion_without_stderr", nullptr, nullptr).out, "4242");
    EXPECT_EQ(child("errno_after_a_question", "key:nolevel", nullptr).out, "4242");
}

/* ---- Print filter ----------------------------------------------------------------------------------------------- */

class Filter : public testing::Test
{
  protected:
    void SetUp() override
    {
        host_filter_clear();
    }
    void TearDown() override
    {
        host_filter_decide(nullptr);
        host_filter_clear();
    }
};

TEST_F(Filter, RefusesThe65thKey)
{
    for (int i = 0; i < 64; i++) {
        EXPECT_EQ(host_filter_add(std::to_string(i).c_str(), HOST_EVERY_LEVEL), KEL_OK) << i;
    }

    EXPECT_EQ(host_filter_add("64", HOST_EVERY_LEVEL), KEL_ERROR);
}

TEST_F(Filter, SuppressesAKeyAtItsLevelAndNoOtherKey)
{
    char copied[] = "f";
    ASSERT_EQ(host_filter_add(copied, _kel_print_lv_warning), KEL_OK);
    copied[0] = 'h';
    ASSERT_EQ(host_filter_add("g.12", HOST_EVERY_LEVEL), KEL_OK);

    for (int level : {0, 1, 2}) {
        EXPECT_EQ(kel_info_print_filter_is_filtered(level, "f"), level == 1);
        EXPECT_EQ(kel_info_print_filter_is_filtered(level, "g.12"), 1);
        for (const char *other : {"h", "ff", "f.1", "g.1", "g"}) {
            EXPECT_EQ(kel_info_print_filter_is_filtered(level, other), 0) << other;
        }
    }
    host_filter_clear();
    EXPECT_EQ(kel_info_print_filter_is_filtered(1, "f"), 0);
}

TEST_F(Filter, LetsTheProgramDecideInPlaceOfTheKeys)
{
    ASSERT_EQ(host_filter_add("key", HOST_EVERY_LEVEL), KEL_OK);
    Watch watch;

    host_filter_decide([](int level, const char *name) { return strcmp(name, "decided") == 0 ? 40 + level : 0; });
    EXPECT_EQ(kel_info_print_filter_is_filtered(2, "decided"), 42);
    EXPECT_EQ(kel_info_print_filter_is_filtered(2, "key"), 0);
    host_filter_decide(nullptr);
    EXPECT_EQ(kel_info_print_filter_is_filtered(2, "decided"), 0);
    EXPECT_EQ(kel_info_print_filter_is_filtered(2, "key"), 1);

    EXPECT_EQ(watched,
              (Texts{"filter(2, decided) = 42", "filter(2, key) = 0", "filter(2, decided) = 0", "filter(2, key) = 1"}));
}

/* What is left of the three reports of subject(): "info", "warning", "err". */
std::string reported(const std::string &console)
{
    std::string left;
    for (const char *level : {"info", "warning", "err"}) {
        if (console.find(std::string(":") + level) != std::string::npos) {
            left += (left.empty() ? "" : " ") + std::string(level);
        }
    }
    return left;
}

std::string refused_key(const std::string &key)
{
    return "KEL_HOST_FILTER: \"" + key + "\" is no KEY[:info|warning|err], or one too many\n";
}

std::string keys(int count)
{
    std::string list;
    for (int i = 0; i < count; i++) {
        list += "key" + std::to_string(i) + ",";
    }
    return list;
}

TEST(FilterEnvironment, NamesKeysAndTheirLevels)
{
    const std::string key_199(199, 'k'), key_200(200, 'k');
    const struct {
        std::string value, reported, err;
    } variables[] = {
        {"subject:loud", "info warning err", refused_key("subject:loud")},
        {"subject:", "info warning err", refused_key("subject:")},
        {"subject:war", "info warning err", refused_key("subject:war")},
        {"subject:errs", "info warning err", refused_key("subject:errs")},
        {"subject:err:info", "info warning err", refused_key("subject:err:info")},
        {"subject:2", "info warning err", refused_key("subject:2")},
        {"subject:loud,subject:err", "info warning", refused_key("subject:loud")},
        {key_200 + ",subject", "", refused_key(key_200)},
        {key_199 + ",subject", "", ""},
        {keys(64) + "subject", "info warning err", refused_key("subject")},
        {keys(63) + "subject", "", ""},
        {"", "info warning err", ""},
        {":err", "info warning err", refused_key(":err")},
        {",,", "info warning err", ""},
        {std::string(64, ',') + "subject", "", ""},
        {"sub,subjects,subject.1", "info warning err", ""},
        {"subject", "", ""},
        {"other,subject,another", "", ""},
        {"subject:info", "warning err", ""},
        {"subject:warning", "info err", ""},
        {"subject:err", "info warning", ""},
        {"subject:err,subject:info", "warning", ""},
        {"*", "", ""},
        {"*:err", "info warning", ""},
    };
    for (const auto &variable : variables) {
        SCOPED_TRACE(variable.value);
        Output output = child("subject", variable.value.c_str(), "/dev/null");

        EXPECT_EQ(reported(output.out), variable.reported);
        EXPECT_EQ(output.err, variable.err);
    }
}

TEST(FilterEnvironment, NamesOneLine)
{
    EXPECT_EQ(reported(child("subject", nullptr, "/dev/null").out), "info warning err");
    testing::internal::CaptureStdout();
    subject(); /* stores the lines of its reports */
    testing::internal::GetCapturedStdout();

    Output output = child("subject", ("subject." + std::to_string(warning_line)).c_str(), "/dev/null");

    EXPECT_EQ(reported(output.out), "info err");
}

TEST(FilterEnvironment, IsReadBeforeTheProgramAddsOrClears)
{
    EXPECT_EQ(reported(child("add_a_key_and_report", "subject:err", "/dev/null").out), "warning");
    Output full = child("add_a_key_and_report", keys(64).c_str(), "/dev/null"); /* the program's key is the 65th */
    EXPECT_EQ(reported(full.out), "info warning err");
    EXPECT_EQ(full.err, "");
    EXPECT_EQ(reported(child("clear_the_filter_and_report", "*", "/dev/null").out), "info warning err");
}

/* ---- Log -------------------------------------------------------------------------------------------------------- */

class Log : public testing::Test
{
  protected:
    void SetUp() override
    {
        path = testing::TempDir() + "host_test.XXXXXX";
        int fd = mkstemp(path.data());
        ASSERT_NE(fd, -1);
        ASSERT_EQ(write(fd, "before\n", 7), 7);
        close(fd);
        syslog_records.clear();
    }
    void TearDown() override
    {
        EXPECT_EQ(host_log_to("syslog"), KEL_OK);
        unlink(path.c_str());
    }

    std::string lines() const
    {
        std::stringstream content;
        content << std::ifstream(path).rdbuf();
        return content.str();
    }

    /* The file as it was, and then records. */
    void expect_lines(const std::string &pattern)
    {
        EXPECT_TRUE(std::regex_match(lines(), std::regex("before\n" + pattern))) << lines();
    }

    std::string path;
};

const std::string stamp = "\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ ";

const std::string a_record = stamp + "err module 1 file:2 func: text\n"; /* of record() */

TEST_F(Log, StaysWhereItWasWhenAFileCannotBeOpened)
{
    ASSERT_EQ(host_log_to(path.c_str()), KEL_OK);

    errno = 0;
    EXPECT_EQ(host_log_to("/no/such/folder/log"), KEL_ERROR);
    EXPECT_EQ(errno, ENOENT);
    record();

    expect_lines(a_record);
    EXPECT_TRUE(syslog_records.empty());
}

TEST_F(Log, SaysOnceThatItsTargetIsFull)
{
    const std::string complaint = "the log cannot be written: No space left on device; its records are lost\n";
    Output output = child("subject", nullptr, "/dev/full"); /* two records */

    EXPECT_EQ(output.err, complaint);
    EXPECT_EQ(reported(output.out), "info warning err");

    testing::internal::CaptureStderr();
    for (const char *target : {"/dev/full", "/dev/full", path.c_str()}) {
        ASSERT_EQ(host_log_to(target), KEL_OK);
        record();
        record();
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), complaint + complaint); /* once for each choice */
    expect_lines("(" + a_record + "){2}");
}

TEST_F(Log, TakesOneLineOfARecordAndAtMost1023Characters)
{
    ASSERT_EQ(host_log_to(path.c_str()), KEL_OK);
    Watch watch;

    KEL_SysLog(1, SYSLOG_ERR, "file", 2, "func", "%s\r\nsecond", "first");
    KEL_SysLog(1, SYSLOG_ERR, "file", 2, "func", "%s\nsecond", "first");
    KEL_SysLog(1, SYSLOG_ERR, "file", 2, "func", "%s", std::string(2000, 'x').c_str());

    expect_lines("(" + stamp + "err module 1 file:2 func: first\n){2}" + stamp + "err module 1 file:2 func: x{1023}\n");
    EXPECT_EQ(watched[0], "log(1, 2, file, 2, func) %s\r\nsecond|first\r\nsecond") << "the format and the whole text";
}

TEST_F(Log, LeavesNoDescriptorOpenWhenItMovesOrAProgramIsStarted)
{
    auto free_descriptor = [] {
        int fd = open("/dev/null", O_RDONLY);
        close(fd);
        return fd;
    };
    ASSERT_EQ(host_log_to("syslog"), KEL_OK);
    int before = free_descriptor();

    for (const char *target : {path.c_str(), "/dev/null", path.c_str(), "stderr", "/dev/null", "syslog", "stderr"}) {
        EXPECT_EQ(host_log_to(target), KEL_OK);
    }

    EXPECT_EQ(free_descriptor(), before);
    EXPECT_NE(fcntl(STDERR_FILENO, F_GETFD), -1); /* not ours to close */
    ASSERT_EQ(host_log_to(path.c_str()), KEL_OK);
    EXPECT_EQ(fcntl(before, F_GETFD), FD_CLOEXEC) << "no program that is started inherits it";
}

TEST_F(Log, NamesTheLevelOrHasItsPriority)
{
    struct {
        int level, priority;
        const char *name;
    } const rows[] = {{-1, LOG_DEBUG, "\\?"},
                      {0, LOG_DEBUG, "\\?"},
                      {SYSLOG_CRIT, LOG_CRIT, "crit"},
                      {SYSLOG_ERR, LOG_ERR, "err"},
                      {SYSLOG_WARNING, LOG_WARNING, "warning"},
                      {SYSLOG_INFO, LOG_INFO, "info"},
                      {SYSLOG_DEBUG, LOG_DEBUG, "debug"},
                      {6, LOG_DEBUG, "\\?"}};
    const std::string place = " module 18446744073709551615 file:2 func: text 3";
    Texts priorities;
    std::string names;
    for (const char *target : {"syslog", path.c_str()}) {
        ASSERT_EQ(host_log_to(target), KEL_OK);
        for (const auto &row : rows) {
            KEL_SysLog(18446744073709551615ul, row.level, "file", 2, "func", "text %d\r\n", 3);
        }
    }
    for (const auto &row : rows) {
        priorities.push_back(std::to_string(LOG_USER | row.priority) + place);
        names += stamp + row.name + place + "\n";
    }

    EXPECT_EQ(syslog_records, priorities);
    expect_lines(names);
}

TEST_F(Log, KeepsTheLinesOfManyThreadsWhole)
{
    constexpr int threads = 8, records = 200;
    ASSERT_EQ(host_log_to(path.c_str()), KEL_OK);

    in_threads(threads, [](int t) {
        for (int i = 0; i < records; i++) {
            KEL_SysLog((ULONG)t, SYSLOG_ERR, "file", i, "func", "%s", std::string(900, (char)('a' + t)).c_str());
        }
    });

    /* Every thread's records are there, each in one piece, and in that thread's order. */
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    std::vector<int> next(threads);
    const std::regex form(stamp + "err module ([0-7]) file:(\\d+) func: (\\w+)");
    for (std::smatch found; std::getline(file, line);) {
        ASSERT_TRUE(std::regex_match(line, found, form)) << line;
        const int t = std::stoi(found[1]);
        ASSERT_EQ(std::stoi(found[2]), next[(size_t)t]++);
        ASSERT_EQ(found[3], std::string(900, (char)('a' + t)));
    }
    EXPECT_EQ(next, std::vector<int>(threads, records));
}

/* The records of subject() with their lines and stamps. */
std::string records_of_subject(const std::string &before_warning, const std::string &before_err)
{
    testing::internal::CaptureStdout();
    subject(); /* stores the lines of its reports */
    testing::internal::GetCapturedStdout();
    const std::string place = " module 0 tests/host/host_test.cpp:";
    return before_warning + place + std::to_string(warning_line) + " subject: warning\n" + before_err + place +
           std::to_string(err_line) + " subject: err 7\n";
}

std::string syslog_of(const std::string &out)
{
    size_t first = out.find("syslog ");
    return first == std::string::npos ? "" : out.substr(first);
}

const std::string warning_record = "syslog " + std::to_string(LOG_USER | LOG_WARNING);
const std::string err_record = "syslog " + std::to_string(LOG_USER | LOG_ERR);

TEST_F(Log, GoesToSyslogUnlessTheEnvironmentNamesWhatCanBeOpened)
{
    for (const char *value : {(const char *)nullptr, "syslog", "/no/such/folder/log", ""}) {
        Output output = child("subject", nullptr, value);

        EXPECT_EQ(syslog_of(output.out), records_of_subject(warning_record, err_record));
        bool opens = value == nullptr || strcmp(value, "syslog") == 0;
        EXPECT_EQ(output.err, opens ? ""
                                    : std::string("KEL_HOST_LOG: cannot open ") + value +
                                          ": No such file or directory; the log goes to syslog\n");
    }
}

TEST_F(Log, GoesWhereTheEnvironmentSaysBehindWhatIsThere)
{
    const std::string records = records_of_subject(stamp + "warning", stamp + "err");
    std::string all;
    for (const char *role : {"subject", "return_to_the_environments_log"}) {
        Output output = child(role, nullptr, path.c_str());
        all += records;
        expect_lines(all);
        EXPECT_EQ(syslog_of(output.out) + output.err, "");
    }
    Output output = child("subject", nullptr, "stderr");
    EXPECT_TRUE(std::regex_match(output.err, std::regex(records))) << output.err;
    EXPECT_EQ(syslog_of(output.out), "");

    unlink(path.c_str()); /* a file that is not there is made */
    child("subject", nullptr, path.c_str());
    EXPECT_TRUE(std::regex_match(lines(), std::regex(records))) << lines();
}

/* ---- Registry --------------------------------------------------------------------------------------------------- */

class Registry : public testing::Test
{
  protected:
    void SetUp() override
    {
        host_registry_clear();
        memset((void *)records, 0, sizeof(records));
    }
    void TearDown() override
    {
        host_registry_clear();
        memset((void *)&g_module_socket, 0, sizeof(g_module_socket));
    }

    kel_module_t records[256];
};

TEST_F(Registry, RefusesANameThatDoesNotFit)
{
    const std::string name(47, 'n');

    EXPECT_EQ(KEL_module_register((name + "n").c_str(), &records[0]), KEL_ERROR);
    EXPECT_EQ(host_registry_count(), 0u);
    EXPECT_EQ(records[0].name[0], '\0');
    EXPECT_EQ(KEL_module_register(name.c_str(), &records[0]), KEL_OK);
    EXPECT_EQ(records[0].name, name);
}

TEST_F(Registry, TakesTheIdentifiers1To255AndRefusesThe256thModule)
{
    for (ULONG id = 1; id < 256; id++) {
        EXPECT_EQ(host_registry_record(id), nullptr);
        ASSERT_EQ(KEL_module_register(std::to_string(id).c_str(), &records[id]), KEL_OK);
        EXPECT_EQ(records[id].moduleID, id);
        EXPECT_EQ(host_registry_record(id), &records[id]);
        EXPECT_EQ(host_registry_count(), id);
    }

    EXPECT_EQ(KEL_module_register("one more", &records[0]), KEL_ERROR);
    EXPECT_EQ(host_registry_count(), 255u);
    EXPECT_EQ(host_registry_record(256), nullptr);
    EXPECT_EQ(records[0].moduleID, 0u);
    EXPECT_EQ(records[0].name[0], '\0');

    testing::internal::CaptureStdout();
    EXPECT_EQ(socket_module_init(), KEL_ERROR);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "module socket register error \r\n");

    host_registry_clear(); /* forgets every module and leaves its record */
    EXPECT_EQ(host_registry_count(), 0u);
    EXPECT_EQ(host_registry_record(1), nullptr);
    EXPECT_STREQ(records[2].name, "2");
    EXPECT_EQ(KEL_module_register("again", &records[0]), KEL_OK);
    EXPECT_EQ(records[0].moduleID, 1u);
}

TEST_F(Registry, WritesNameAndIdentifierAlone)
{
    memset((void *)&records[0], 0x5a, sizeof(records[0]));
    kel_module_t expected = records[0];
    strcpy(expected.name, "module");
    expected.moduleID = 1;
    Watch watch;
    EXPECT_STREQ(module_print_filter.name, "KEL_print_filter");
    EXPECT_EQ(module_print_filter.moduleID, 0u) << "which no module is given";

    EXPECT_EQ(KEL_module_register("module", &records[0]), KEL_OK);
    EXPECT_EQ(host_registry_record(0), nullptr);

    EXPECT_EQ(memcmp((void *)&records[0], (void *)&expected, sizeof(expected)), 0);
    EXPECT_EQ(watched, Texts{"register(module) = 0"});
}

TEST_F(Registry, GivesEveryThreadAnIdentifierOfItsOwn)
{
    for (int round = 0; round < 50; round++) {
        host_registry_clear();
        std::atomic<int> waiting{3};
        in_threads(3, [&](int t) {
            for (waiting--; waiting > 0;) { /* all at once */
            }
            for (int i = 0; i < 85; i++) {
                EXPECT_EQ(KEL_module_register("thread", &records[85 * t + i]), KEL_OK);
            }
        });

        ASSERT_EQ(host_registry_count(), 255u);
        for (int i = 0; i < 255; i++) {
            ASSERT_EQ(host_registry_record(records[i].moduleID), &records[i]);
        }
    }
}

/* ---- Assertion -------------------------------------------------------------------------------------------------- */

TEST(AssertionHandler, ReportsAndCountsFailedAssertionsAloneAndReturns)
{
    Watch watch;
    ULONG before = host_assertions();
    testing::internal::CaptureStderr();

    KEL_ASSERT_X(0, "file", 12, 3);
    KEL_ASSERT_X(0, "file", 13, 0);
    for (LONG holds : {1L, -1L, 0x100000000L}) {
        KEL_ASSERT_X(holds, "file", 14, 0);
    }

    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "file:12: assertion failed (code 3)\nfile:13: assertion failed (code 0)\n");
    EXPECT_EQ(host_assertions(), before + 2);
    ASSERT_EQ(watched.size(), 5u);
    EXPECT_EQ(watched[0], "assert(0, file, 12, 3)");
    EXPECT_EQ(watched[1], "assert(0, file, 13, 0)");
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 3 && std::string(argv[1]) == "--child") {
        return run_child(argv[2]);
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
