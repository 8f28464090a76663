#include "failure.h"

#include <errno.h>
#include <map>
#include <memory>

sys::Script failing(const std::vector<Fault> &faults)
{
    auto seen = std::make_shared<std::map<std::string, int>>();
    return [=](const std::string &called, long usual) {
        int nth = ++(*seen)[called];
        for (const Fault &fault : faults) {
            if (fault.call == called && fault.nth == nth) {
                return fault.answer;
            }
        }
        return sys::ok(usual);
    };
}

Report null_check(const std::string &function, const std::string &argument, int nth, const std::string &check)
{
    return {function, check + "(" + argument + ");", nth,
            [=](Filtered filtered) { return null_report(function, argument, filtered, nth, check); }, 0};
}

Report failed_step(const std::string &function, const std::string &text, int error, int nth)
{
    return {function, "kel_perror(\"" + text + "\");", nth,
            [=](Filtered filtered) { return perror_report(function, text, error, filtered, nth); }, error};
}

sys::Trace unfiltered(const Report &report)
{
    return report.trace(Filtered::No);
}

FailureCase null_argument(const char *name, Report report, sys::Trace before, std::function<LONG()> call)
{
    return {name, std::move(call), {}, std::move(before), std::move(report), {}};
}

std::vector<FailureCase> reported(const std::string &name, const std::function<LONG()> &call,
                                  const std::vector<Fault> &faults, const std::vector<Part> &parts)
{
    std::vector<FailureCase> cases;
    sys::Trace before;
    for (size_t i = 0; i < parts.size(); i++) {
        if (parts[i].report) {
            sys::Trace after;
            for (size_t j = i + 1; j < parts.size(); j++) {
                after.insert(after.end(), parts[j].lines.begin(), parts[j].lines.end());
            }
            const std::string number = cases.empty() ? "" : "_Report" + std::to_string(cases.size() + 1);
            cases.push_back({name + number, call, faults, before, *parts[i].report, after});
        }
        before.insert(before.end(), parts[i].lines.begin(), parts[i].lines.end());
    }
    return cases;
}

void PrintTo(const FailureCase &failure, std::ostream *out)
{
    *out << failure.name;
}

TEST_P(Failure, IsReportedUnlessFilteredAndItsResultIsTheSame)
{
    const FailureCase &failure = std::get<0>(GetParam());
    Filtered filtered = std::get<1>(GetParam());
    sys::Recording recording(failing(failure.faults));
    if (filtered != Filtered::No) {
        recording.suppress(filter_key(failure.report.function, failure.report.use, failure.report.nth, filtered));
    }

    LONG result = failure.call();
    int error = errno;

    EXPECT_EQ(result, KEL_ERROR);
    EXPECT_EQ(recording.trace(), in_order({failure.before, failure.report.trace(filtered), failure.after}));
    EXPECT_TRUE(recording.open().empty());
    EXPECT_TRUE(recording.held().empty());
    EXPECT_EQ(error, failure.report.error);
}
