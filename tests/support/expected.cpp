#include "expected.h"

#include <arpa/inet.h>
#include <fstream>
#include <string.h>

#include "kel_lib.h"
#include "kel_module.h"

namespace
{

constexpr const char *source_name = "platform/kel/socket/kel_socket.cpp"; /* as the reports carry it */

/* The source's lines; a function begins at the line that starts with its result type and names it, behind a blank or
 * the star of a pointer. */
const std::vector<std::string> &source()
{
    static const std::vector<std::string> lines = [] {
        std::ifstream file(KEL_SOCKET_SOURCE);
        std::vector<std::string> read;
        for (std::string line; std::getline(file, line);) {
            read.push_back(line);
        }
        return read;
    }();
    return lines;
}

bool starts_function(const std::string &line, const std::string &function)
{
    size_t name = line.find(function + "(");
    return name != std::string::npos && name > 0 && isalpha((unsigned char)line[0]) &&
           (line[name - 1] == ' ' || line[name - 1] == '*') && line.back() != ';';
}

std::string format(const char *text, const std::string &function, int line)
{
    char buffer[512];
    snprintf(buffer, sizeof(buffer), text, function.c_str(), line);
    return buffer;
}

std::string log_line(int line, const std::string &function, const std::string &text, const std::string &printed)
{
    return "log(" + std::to_string(module_print_filter.moduleID) + ", 2, " + source_name + ", " + std::to_string(line) +
           ", " + function + ") " + text + "|" + printed;
}

/* The filter's questions: the line's key first, the bare name only if that is not suppressed. */
sys::Trace questions(const std::string &function, int line, Filtered filtered)
{
    sys::Trace asked{"filter(2, " + format("%s.%d", function, line) +
                     (filtered == Filtered::ByLine ? ") = 1" : ") = 0")};
    if (filtered != Filtered::ByLine) {
        asked.push_back("filter(2, " + function + (filtered == Filtered::ByName ? ") = 1" : ") = 0"));
    }
    return asked;
}

} // namespace

int source_line(const std::string &function, const std::string &use, int nth)
{
    const auto &lines = source();
    bool inside = false;
    for (size_t i = 0; i < lines.size(); i++) {
        inside = (inside && lines[i] != "}") || starts_function(lines[i], function);
        if (inside && lines[i].find(use) != std::string::npos && --nth == 0) {
            return (int)i + 1;
        }
    }
    ADD_FAILURE() << "kel_socket.cpp has no " << use << " in " << function;
    return 0;
}

sys::Trace null_report(const std::string &function, const std::string &argument, Filtered filtered, int nth,
                       const std::string &check)
{
    int line = source_line(function, check + "(" + argument + ");", nth);
    sys::Trace trace = questions(function, line, filtered);
    if (filtered == Filtered::No) {
        std::string text = argument + " is null\r\n";
        trace.push_back("printf(\033[1;31m%s.%d:" + text + "\033[m)|\033[1;31m" + format("%s.%d:", function, line) +
                        text + "\033[m");
        trace.push_back(log_line(line, function, text, text));
    }
    return trace;
}

sys::Trace perror_report_with(const std::string &function, const std::string &use, const std::string &text,
                              const std::string &printed, int error, Filtered filtered, int nth)
{
    int line = source_line(function, use, nth);
    sys::Trace trace = questions(function, line, filtered);
    if (filtered == Filtered::No) {
        trace.push_back("printf(\033[1;31m%s.%d:)|\033[1;31m" + format("%s.%d:", function, line));
        trace.push_back("printf(" + text + ")|" + printed);
        trace.push_back(std::string("printf(: %s)|: ") + strerror(error));
        trace.push_back("printf(\033[m)|\033[m");
        trace.push_back(log_line(line, function, text, printed));
    }
    return trace;
}

sys::Trace perror_report(const std::string &function, const std::string &text, int error, Filtered filtered, int nth)
{
    return perror_report_with(function, "kel_perror(\"" + text + "\");", text, text, error, filtered, nth);
}

sys::Trace assert_report(const std::string &function)
{
    int line = source_line(function, "KEL_ASSERT(0)", 1);
    return {"assert(0, " + std::string(source_name) + ", " + std::to_string(line) + ", 0)"};
}

std::string bytes_of(const kel_sockaddr_t &address)
{
    return sys::hex(&address, sizeof(address));
}

kel_sockaddr_t poisoned()
{
    kel_sockaddr_t address;
    memset(&address, 0xa5, sizeof(address));
    return address;
}

kel_sockaddr_t blank(int family)
{
    kel_sockaddr_t address;
    memset(&address, 0, sizeof(address));
    address.sa.sa_family = (sa_family_t)family;
    return address;
}

kel_sockaddr_t inet_address(const char *text, int port)
{
    kel_sockaddr_t address = blank(AF_INET);
    address.sin.sin_port = htons((uint16_t)port);
    EXPECT_EQ(inet_pton(AF_INET, text, &address.sin.sin_addr), 1) << text;
    return address;
}

kel_sockaddr_t inet6_address(const char *text, int port)
{
    kel_sockaddr_t address = blank(AF_INET6);
    address.sin6.sin6_port = htons((uint16_t)port);
    EXPECT_EQ(inet_pton(AF_INET6, text, &address.sin6.sin6_addr), 1) << text;
    return address;
}
