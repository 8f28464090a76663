/*
 * Lets one service of the platform leave another errno behind, and shows what calls that fail then report and leave.
 * Linked with --wrap for each service; the argument names the one that disturbs.
 */
#include <arpa/inet.h>
#include <errno.h>
#include <kel/kel_lib.h>
#include <kel/kel_sctp.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

static const char *disturbing = "";

static void after(const char *service)
{
    if (strcmp(service, disturbing) == 0) {
        errno = EXDEV; /* which no call here fails with */
    }
}

/* A wrapper that calls the service and then disturbs. */
#define WRAP(type, name, parameters, arguments)                                                                        \
    type __real_##name parameters;                                                                                     \
    type __wrap_##name parameters;                                                                                     \
    type __wrap_##name parameters                                                                                      \
    {                                                                                                                  \
        type result = __real_##name arguments;                                                                         \
        after(#name);                                                                                                  \
        return result;                                                                                                 \
    }

WRAP(void *, KEL_MemSet, (void *dst, int value, size_t size), (dst, value, size))
WRAP(void *, KEL_MemCpy, (void *dst, const void *src, size_t size), (dst, src, size))
WRAP(int, KEL_MemCmp, (const void *left, const void *right, size_t size), (left, right, size))
WRAP(int, KEL_StrCmp, (const char *left, const char *right), (left, right))
WRAP(char *, KEL_StrCpy, (char *dst, const char *src), (dst, src))
WRAP(char *, KEL_StrnCpy, (char *dst, const char *src, size_t size), (dst, src, size))
WRAP(int, kel_info_print_filter_is_filtered, (int level, const char *name), (level, name))
WRAP(void *, tc_malloc, (size_t size), (size))

void __real_tc_free(void *block);
void __wrap_tc_free(void *block);
void __wrap_tc_free(void *block)
{
    __real_tc_free(block);
    after("tc_free");
}

void __real_KEL_ASSERT_X(LONG value, const char *file, int line, LONG code);
void __wrap_KEL_ASSERT_X(LONG value, const char *file, int line, LONG code);
void __wrap_KEL_ASSERT_X(LONG value, const char *file, int line, LONG code)
{
    (void)file, (void)line, (void)value, (void)code;
    after("KEL_ASSERT_X");
}

void __wrap_KEL_SysLog(ULONG id, int level, const char *file, int line, const char *func, const char *format, ...);
void __wrap_KEL_SysLog(ULONG id, int level, const char *file, int line, const char *func, const char *format, ...)
{
    (void)id, (void)level, (void)file, (void)line, (void)func, (void)format;
    after("KEL_SysLog");
}

int __wrap_KEL_Sprintf(char *dst, const char *format, ...);
int __wrap_KEL_Sprintf(char *dst, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    int length = vsprintf(dst, format, arguments);
    va_end(arguments);
    after("KEL_Sprintf");
    return length;
}

int __wrap_KEL_Snprintf(char *dst, size_t size, const char *format, ...);
int __wrap_KEL_Snprintf(char *dst, size_t size, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    int length = vsnprintf(dst, size, format, arguments);
    va_end(arguments);
    after("KEL_Snprintf");
    return length;
}

/* The registry and the console line of its failure have no report behind them. */

#define SHOW(call)                                                                                                     \
    do {                                                                                                               \
        errno = 0;                                                                                                     \
        LONG result = call;                                                                                            \
        const int left = errno;                                                                                        \
        printf("\n%s = %ld, errno %d\n", #call, result, left);                                                         \
    } while (0)

int main(int count, char *arguments[])
{
    disturbing = count > 1 ? arguments[1] : "";
    CHAR *texts[] = {"127.0.0.1"};
    CHAR *wrong[] = {"localhost"};
    sctp_assoc_t id;
    kel_sockaddr_t record;
    struct sctp_initmsg init = {.sinit_num_ostreams = 1};
    kel_addr_fill(0, &record, KEL_AF_INET, 0, "127.0.0.1", 0, NULL);

    SHOW(kel_tcp_server_socket_create(KEL_AF_INET, "192.0.2.1", 0, 5));
    SHOW(kel_tcp_server_socket_create(KEL_AF_INET, "localhost", 0, 5));
    SHOW(kel_unix_tcp_client_socket_create("/nowhere/socket"));
    SHOW(kel_unix_udp_socket_create("/nowhere/socket", KEL_TRUE));
    SHOW(kel_addr_fill(-1, &record, KEL_AF_PACKET, 0, NULL, 3, "nowhere"));
    SHOW(kel_bind(-1, NULL));
    SHOW(kel_sctp_bindx(-1, &record, 1, SCTP_BINDX_ADD_ADDR));
    kel_addr_fill(0, &record, KEL_AF_INET, 0, "127.0.0.1", 0, NULL);
    SHOW(kel_sctp_bindx(-1, &record, 1, SCTP_BINDX_ADD_ADDR));
    SHOW(kel_sctp_bindx_str(-1, KEL_AF_INET, 0, texts, 1, SCTP_BINDX_ADD_ADDR));
    SHOW(kel_sctp_bindx_str(-1, KEL_AF_INET, 0, wrong, 1, SCTP_BINDX_ADD_ADDR));
    SHOW(kel_sctp_bindx_str(-1, KEL_AF_INET, 0, NULL, 1, SCTP_BINDX_ADD_ADDR));
    SHOW(kel_sctp_connectx(-1, &record, 1, &id));
    SHOW(kel_sctp_connectx_str(-1, KEL_AF_INET, 9, texts, 1, &id));
    SHOW(kel_sctp_server_one2many_create((kel_domain_t)-1, &record, 1, 0, 5, &init, NULL));
    return 0;
}
