#include "answers.h"

#include <errno.h>
#include <map>
#include <regex.h>

#include "errno_table.h"

namespace
{

using Answers = std::vector<sys::Answer>;

constexpr long beyond_32_bits = 1L << 32;
constexpr long beyond_16_bits = 0x12345;

/* Results that no manual page names. The usual result and the error that no page names are added in front. */
std::map<std::string, Answers> by_hand()
{
    const Answers plain = {{-2}, {1}, {beyond_16_bits}}; /* negative but not -1; not zero but no failure either */
    const Answers descriptor = {{-2}, {0}, {beyond_16_bits}};
    const Answers list_count = {{-2}, {0}, {1}}; /* of addresses: also none with a list, and one without */
    const Answers short_count = {{-2}, {0}, {1}, {beyond_16_bits}};
    const Answers count = {{beyond_32_bits - 1}, {0}, {1}, {-2}, {beyond_32_bits / 2}, {beyond_32_bits + 5},
                           {beyond_16_bits}};
    return {{"socket", descriptor},
            {"accept", descriptor},
            {"bind", {{1}, {-2}}},
            {"listen", {{1}, {-2}}},
            {"connect", {{1}, {-2}}},
            {"getpeername", plain},
            {"getsockname", plain},
            {"getsockopt", plain},
            {"setsockopt", plain},
            {"close", plain},
            {"unlink", plain},
            {"ioctl", {{-2}, {1}, sys::fail(ENODEV)}}, /* the answer for an interface that does not exist */
            {"recv", count},
            {"send", count},
            {"recvfrom", count},
            {"sendto", count},
            {"if_nametoindex", {{-1}, {0}, {beyond_16_bits}}}, /* the highest index, which is no failure */
            {"inet_pton", {{0}, {2}, {-2}}},
            {"regcomp", {{REG_ESPACE}, {REG_BADPAT}}},
            {"regexec", {{REG_NOMATCH}, {REG_ESPACE}}},
            {"regfree", {}},
            {"inet_ntop", {}}, /* cannot be made to fail: only its arguments can */
            {"KEL_module_register", {{-1}, {5}, {beyond_16_bits}}},
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

std::map<std::string, std::vector<int>> by_page()
{
    std::map<std::string, std::vector<int>> errors;
    for (const ErrnoPair &pair : errno_table()) {
        errors[pair.call].push_back(pair.error);
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
