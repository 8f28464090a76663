#include "calls.h"

#include <arpa/inet.h>
#include <gperftools/tcmalloc.h>
#include <map>
#include <net/if.h>
#include <regex.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

#include "kel_lib.h"
#include "kel_module.h"
#include "kel_prv_sctp.h"
#include "kel_prv_socket.h"
#include "kel_socket.h"
#include "system.h"

/* The module's own functions: the shared library keeps them to itself, and there they are not called. */
extern "C" {
__attribute__((weak)) int Match_RegExpPattern(const char *inputpattern, char *inputbuf, int matchmode);
__attribute__((weak)) decltype(__kel_set_sock_op_sctp) __kel_set_sock_op_sctp;
__attribute__((weak)) decltype(__sctp_server_create) __sctp_server_create;
__attribute__((weak)) decltype(__sctp_one2one_client_create) __sctp_one2one_client_create;
__attribute__((weak)) decltype(__sctp_one2many_client_create) __sctp_one2many_client_create;
}

/* The platform's registry, answered as the system is. */
extern "C" LONG KEL_module_register(const char *name, kel_module_t *record)
{
    const kel_module_t zero = {};
    const bool is_zero = memcmp(record, &zero, sizeof(zero)) == 0;
    return sys::answered("KEL_module_register", std::string(name) + ", " + (is_zero ? "zero" : "written"), KEL_OK);
}

namespace
{

/* A number becomes an argument as it would in C: narrowed, or a pointer. */
template <typename Type> Type from(long number)
{
    if constexpr (std::is_pointer_v<Type>) {
        return reinterpret_cast<Type>(number);
    } else {
        return static_cast<Type>(number);
    }
}

template <typename Result> long number(Result result)
{
    if constexpr (std::is_pointer_v<Result>) {
        return reinterpret_cast<long>(result);
    } else {
        return static_cast<long>(result);
    }
}

template <typename Result, typename... Types, size_t... Place>
Callee callee(Result (*function)(Types...), std::index_sequence<Place...>)
{
    auto call = [function](const long *arguments) {
        (void)arguments;
        if constexpr (std::is_void_v<Result>) {
            function(from<Types>(arguments[Place])...);
            return 0L;
        } else {
            return number(function(from<Types>(arguments[Place])...));
        }
    };
    return {call, sizeof...(Types), std::is_pointer_v<Result>};
}

template <typename Result, typename... Types> Callee callee(Result (*function)(Types...))
{
    return callee(function, std::index_sequence_for<Types...>());
}

/* Functions with a variable list get as many arguments as any text gives them. */
int query(int fd, unsigned long request, void *argument)
{
    return ioctl(fd, request, argument);
}
int print_to(CHAR *line, const CHAR *format, long first, long second)
{
    return KEL_Sprintf(line, format, first, second);
}
int print_at_most(CHAR *line, size_t size, const CHAR *format, long first, long second)
{
    return KEL_Snprintf(line, size, format, first, second);
}
int print(const CHAR *format)
{
    return KEL_Printf(format, 0);
}
LONG register_module(const char *name)
{
    kel_module_t record = {}; /* the module's own is not for every program to reach */
    return KEL_module_register(name, &record);
}

} // namespace

/* Left out of the trace: assignments of records, and products as an allocator's request. */
static void copy(void *to, const void *from, size_t size)
{
    memcpy(to, from, size);
}
static void fill(void *memory, int value, size_t size)
{
    memset(memory, value, size);
}
static long product(long count, long size)
{
    long bytes;
    return __builtin_mul_overflow(count, size, &bytes) ? -1 : bytes;
}

#define FUNCTION(function) found[#function] = callee(::function)
#define OWN_FUNCTION(function)                                                                                         \
    if (::function != nullptr) {                                                                                       \
        FUNCTION(function);                                                                                            \
    }

const Callee *module_function(const std::string &name)
{
    static const auto all = [] {
        std::map<std::string, Callee> found;
#include "functions.inc"
        OWN_FUNCTION(Match_RegExpPattern)
        OWN_FUNCTION(__kel_set_sock_op_sctp)
        OWN_FUNCTION(__sctp_server_create)
        OWN_FUNCTION(__sctp_one2one_client_create)
        OWN_FUNCTION(__sctp_one2many_client_create)
        return found;
    }();
    auto found = all.find(name);
    return found == all.end() ? nullptr : &found->second;
}

const Callee *system_function(const std::string &name)
{
    static const auto all = [] {
        std::map<std::string, Callee> found = {{"ioctl", callee(query)},
                                               {"KEL_Sprintf", callee(print_to)},
                                               {"KEL_Snprintf", callee(print_at_most)},
                                               {"KEL_Printf", callee(print)},
                                               {"KEL_module_register", callee(register_module)}};
        FUNCTION(accept);
        FUNCTION(bind);
        FUNCTION(close);
        FUNCTION(connect);
        FUNCTION(copy);
        FUNCTION(fill);
        FUNCTION(getpeername);
        FUNCTION(getsockname);
        FUNCTION(getsockopt);
        FUNCTION(if_nametoindex);
        FUNCTION(inet_ntop);
        FUNCTION(inet_pton);
        FUNCTION(listen);
        FUNCTION(product);
        FUNCTION(recv);
        FUNCTION(recvfrom);
        FUNCTION(regcomp);
        FUNCTION(regexec);
        FUNCTION(regfree);
        FUNCTION(send);
        FUNCTION(sendto);
        FUNCTION(setsockopt);
        FUNCTION(socket);
        FUNCTION(unlink);
        FUNCTION(tc_free);
        FUNCTION(tc_malloc);
        FUNCTION(sctp_bindx);
        FUNCTION(sctp_connectx);
        FUNCTION(sctp_freeladdrs);
        FUNCTION(sctp_freepaddrs);
        FUNCTION(sctp_getladdrs);
        FUNCTION(sctp_getpaddrs);
        FUNCTION(sctp_opt_info);
        FUNCTION(sctp_peeloff);
        FUNCTION(sctp_recvmsg);
        FUNCTION(sctp_send);
        FUNCTION(sctp_sendmsg);
        FUNCTION(KEL_MemCmp);
        FUNCTION(KEL_MemCpy);
        FUNCTION(KEL_MemSet);
        FUNCTION(KEL_StrCmp);
        FUNCTION(KEL_StrCpy);
        FUNCTION(KEL_StrnCpy);
        return found;
    }();
    auto found = all.find(name);
    return found == all.end() ? nullptr : &found->second;
}
