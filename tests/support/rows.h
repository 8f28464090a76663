/* Rows of a table: they have a name, which names the test and stands for the row in its messages. */
#ifndef TESTS_SUPPORT_ROWS_H
#define TESTS_SUPPORT_ROWS_H

#include <gtest/gtest.h>

#include <ostream>
#include <string>

template <typename Row> std::string row_name(const testing::TestParamInfo<Row> &info)
{
    return info.param.name;
}

/* Unnamed, so that it is found for the rows of every file; without it a row would be shown as its bytes. */
namespace
{

template <typename Row> auto operator<<(std::ostream &out, const Row &row) -> decltype(out << row.name)
{
    return out << row.name;
}

} // namespace

#endif
