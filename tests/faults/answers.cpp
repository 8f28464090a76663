#include "answers.h"

#include <errno.h>
#include <fstream>
#include <map>
#include <regex.h>
#include <stdexcept>
#include <string.h>

namespace
{

using Answers = std::vector<sys::Answer>;

constexpr long beyond_32_bits = 1L << 32;

/* Results that a short would take for another: for -1, for 0 though it is negative, for 0, and for -1. */
constexpr long beyond_16_bits = 0x1ffff;
constexpr long negative = -0x10000;
constexpr long positive = 0x10000;
constexpr long not_minus_one = -0x10001;

/* Results that no manual page names. The usual result and the error that no page names are added in front. */
std::map<std::string, Answers> by_hand()
{
    const Answers plain = {{negative}, {positive}, {beyond_16_bits}};
    const Answers descriptor = {{not_minus_one}, {0}, {1}, {beyond_16_bits}};
    /* Also none with a list, and one without; and so many that the bytes of their records are no int. */
    const Answers list_count = {{not_minus_one}, {0}, {1}, {negative}, {0x2000000}};
    const Answers short_count = {{not_minus_one}, {0}, {1}, {beyond_16_bits}};
    const Answers count = {{beyond_32_bits - 1}, {0}, {1}, {-2}, {beyond_32_bits / 2}, {beyond_32_bits + 5},
                           {beyond_16_bits}};
    return {{"socket", descriptor},
            {"accept", descriptor},
            {"bind", {{positive}, {negative}}},
            {"listen", {{positive}, {negative}}},
            {"connect", {{positive}, {negative}}},
            {"getpeername", plain},
            {"getsockname", plain},
            {"getsockopt", plain},
            {"setsockopt", plain},
            {"close", plain},
            {"unlink", plain},
            {"ioctl",
             {{negative}, {beyond_16_bits}, sys::fail(ENODEV)}}, /* the answer for an interface that does not exist */
            {"recv", count},
            {"send", count},
            {"recvfrom", count},
            {"sendto", count},
            {"if_nametoindex", {{-1}, {0}, {positive}}}, /* the highest index, which is no failure */
            {"inet_pton", {{0}, {2}, {positive + 1}}},
            {"regcomp", {{REG_ESPACE}, {positive}}},
            {"regexec", {{REG_NOMATCH}, {positive}}},
            {"regfree", {}},
            {"inet_ntop", {}}, /* cannot be made to fail: only its arguments can */
            {"KEL_module_register", {{-1}, {beyond_32_bits}, {beyond_32_bits + beyond_16_bits}}},
            {"tc_malloc", {}},
            {"tc_free", {}},
            {"sctp_getpaddrs", list_count},
            {"sctp_getladdrs", list_count},
            {"sctp_freepaddrs", {sys::fail(unknown_error), {1}}},
            {"sctp_freeladdrs", {sys::fail(unknown_error), {1}}},
            {"sctp_bindx", plain},
            {"sctp_connectx", plain},
            {"sctp_send", short_count},
            {"sctp_sendmsg", short_count},
            {"sctp_recvmsg", short_count},
            {"sctp_peeloff", descriptor},
            {"sctp_opt_info", plain}}; /* positive for an option that the library does not know */
}

std::map<std::string, int> errors_by_name()
{
    std::map<std::string, int> numbers;
    for (int error = 1; error < unknown_error; error++) {
        if (const char *name = strerrorname_np(error)) {
            numbers[name] = error;
        }
    }
    return numbers;
}

/* What stands beside an error is for tests/truth. */
std::map<std::string, std::vector<int>> by_page()
{
    const auto numbers = errors_by_name();
    std::ifstream file(KEL_ERRNO_TABLE);
    std::map<std::string, std::vector<int>> errors;
    std::string call;
    for (std::string line; std::getline(file, line);) {
        if (line.compare(0, 2, "  ") == 0) {
            auto named = numbers.find(line.substr(2, line.find(' ', 2) - 2));
            if (named == numbers.end()) {
                throw std::runtime_error(KEL_ERRNO_TABLE ": what is \"" + line + "\"?");
            }
            errors[call].push_back(named->second);
        } else if (line[0] != '#') {
            call = line;
        }
    }
    if (errors.empty()) {
        throw std::runtime_error(KEL_ERRNO_TABLE ": there is no table");
    }
    return errors;
}

std::map<std::string, Answers> all()
{
    auto failures = by_page();
    std::map<std::string, Answers> table;
    for (const auto &[call, odd] : by_hand()) {
        const long failed = call == "if_nametoindex" || call == "tc_malloc" ? 0 : -1;
        Answers &list = table[call];
        list.push_back({0});
        if (!failures[call].empty()) {
            list.push_back({failed, unknown_error});
        }
        list.insert(list.end(), odd.begin(), odd.end());
        for (int error : failures[call]) {
            list.push_back({failed, error});
        }
    }
    return table;
}

} // namespace

const std::vector<sys::Answer> &answers(const std::string &call)
{
    static const auto table = all();
    static const Answers none;
    auto found = table.find(call);
    return found == table.end() ? none : found->second;
}
