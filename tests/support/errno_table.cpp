#include "errno_table.h"

#include <fstream>
#include <map>
#include <regex>
#include <stdexcept>
#include <string.h>

namespace
{

std::map<std::string, int> errors_by_name()
{
    std::map<std::string, int> numbers;
    for (int error = 1; error < 4096; error++) {
        if (const char *name = strerrorname_np(error)) {
            numbers[name] = error;
        }
    }
    return numbers;
}

std::vector<ErrnoPair> read_table()
{
    const std::regex shape("#.*|(\\w+)|  (E\\w+)(?:  - (.+))?|");
    const auto numbers = errors_by_name();
    std::ifstream file(KEL_ERRNO_TABLE);
    std::vector<ErrnoPair> table;
    std::string call;
    for (std::string line; std::getline(file, line);) {
        std::smatch part;
        if (!std::regex_match(line, part, shape) || (part[2].matched && numbers.count(part[2]) == 0)) {
            throw std::runtime_error(KEL_ERRNO_TABLE ": what is \"" + line + "\"?");
        }
        if (part[1].matched) {
            call = part[1];
        } else if (part[2].matched) {
            table.push_back({call, part[2], numbers.at(part[2]), part[3]});
        }
    }
    if (table.empty()) {
        throw std::runtime_error(KEL_ERRNO_TABLE ": there is no table");
    }
    return table;
}

} // namespace

const std::vector<ErrnoPair> &errno_table()
{
    static const auto table = read_table();
    return table;
}
