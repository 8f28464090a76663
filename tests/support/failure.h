/*
 * The shape of every failure that is reported: what is called, which calls of the system fail, and the trace, with the
 * report unfiltered, filtered by its line and filtered by its function. Every division instantiates the suite with a
 * table of its own.
 */
#ifndef TESTS_SUPPORT_FAILURE_H
#define TESTS_SUPPORT_FAILURE_H

#include "expected.h"
#include "rows.h"

#include <functional>
#include <optional>
#include <ostream>
#include <tuple>
#include <vector>

/* The nth call of one name comes back so. */
struct Fault {
    const char *call;
    sys::Answer answer;
    int nth = 1;
};

/* A script that fails these calls. */
sys::Script failing(const std::vector<Fault> &faults);

/* A report that the filter may suppress: the nth of its kind in its function. */
struct Report {
    std::string function;
    std::string use; /* source text of the macro */
    int nth;
    std::function<sys::Trace(Filtered)> trace;
    int error; /* errno when the function under test returns */
};

Report null_check(const std::string &function, const std::string &argument, int nth = 1,
                  const std::string &check = "NULL_CHECK");
Report failed_step(const std::string &function, const std::string &text, int error, int nth = 1);

/* Its trace when nothing suppresses it: for a case that has another report in its focus. */
sys::Trace unfiltered(const Report &report);

struct FailureCase {
    std::string name;
    std::function<LONG()> call;
    std::vector<Fault> faults;
    sys::Trace before;
    Report report;
    sys::Trace after;
};

/* A null argument: nothing else fails, and nothing comes after its report. */
FailureCase null_argument(const char *name, Report report, sys::Trace before, std::function<LONG()> call);

/* A part of a failure that is reported more than once: calls, or a report. */
struct Part : Piece {
    std::optional<Report> report;
    using Piece::Piece;
    Part(Report r) : Piece(unfiltered(r)), report(std::move(r))
    {
    }
};

/* One case for every report among the parts, which has that report in its focus. */
std::vector<FailureCase> reported(const std::string &name, const std::function<LONG()> &call,
                                  const std::vector<Fault> &faults, const std::vector<Part> &parts);

/* One table out of several. */
template <typename Row> std::vector<Row> together(std::initializer_list<std::vector<Row>> tables)
{
    std::vector<Row> all;
    for (const auto &table : tables) {
        all.insert(all.end(), table.begin(), table.end());
    }
    return all;
}

void PrintTo(const FailureCase &failure, std::ostream *out);

class Failure : public testing::TestWithParam<std::tuple<FailureCase, Filtered>>
{
};

/* For INSTANTIATE_TEST_SUITE_P(Division, Failure, in_every_way(table), filtered_name<FailureCase>). */
template <typename Row> auto in_every_way(const std::vector<Row> &rows)
{
    return testing::Combine(testing::ValuesIn(rows), testing::Values(Filtered::No, Filtered::ByLine, Filtered::ByName));
}

template <typename Row> std::string filtered_name(const testing::TestParamInfo<std::tuple<Row, Filtered>> &info)
{
    static const char *const ways[] = {"", "_FilteredByLine", "_FilteredByName"};
    return std::get<0>(info.param).name + std::string(ways[(int)std::get<1>(info.param)]);
}

#endif
