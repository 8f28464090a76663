/* The same in C++, with a service of its own in the place of a stand-in. */
#include "kel_sctp.h"
#include "kel_socket.h"
#include "plat_syslog.h"

#include <cstdio>
#include <string>

void KEL_SysLog(ULONG, int, const char *file, int line, const char *func, const char *, ...)
{
    std::string record = std::string("own log: ") + file + ':' + std::to_string(line) + ' ' + func + '\n';
    std::fputs(record.c_str(), stderr);
}

int main()
{
    kel_sctp_freepaddrs(nullptr);
    return kel_tcp_client_socket_create(KEL_AF_INET, "no address", 9000) == KEL_ERROR ? 0 : 1;
}
