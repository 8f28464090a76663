/*
 * What a C program sees of the public headers: every value, size and offset, checked by the compiler. The records and
 * values of SCTP are compared with the kernel's by sctp_header_test.py.
 */
#include <stddef.h>

#include "kel_lib.h"
#include "kel_module.h"
#include "kel_sctp.h"
#include "kel_socket.h"
#include "kel_types.h"
#include "plat_syslog.h"

#define SAME(left, right) _Static_assert((left) == (right), #left " is not " #right)

SAME(KEL_OK, 0);
SAME(KEL_ERROR, -1);
SAME(KEL_TRUE, 1);
SAME(KEL_FALSE, 0);
SAME(sizeof(BOOL), 4);
SAME(sizeof(CHAR), 1);
SAME(sizeof(UCHAR), 1);
SAME(sizeof(SHORT), 2);
SAME(sizeof(LONG), 8);
SAME(sizeof(ULONG), 8);

SAME(SYSLOG_CRIT, 1);
SAME(SYSLOG_ERR, 2);
SAME(SYSLOG_WARNING, 3);
SAME(SYSLOG_INFO, 4);
SAME(SYSLOG_DEBUG, 5);
SAME(KEL_SYSLOGLEVELS_NUM, 6);

SAME(_kel_print_lv_info, 0);
SAME(_kel_print_lv_warning, 1);
SAME(_kel_print_lv_err, 2);
SAME(_kel_print_lv_max, 3);
SAME(sizeof(_kel_print_lv), 4);

SAME(KEL_MOD_T_NORMAL, 0);
SAME(KEL_MOD_T_HOST, 1);
SAME(KEL_MOD_T_USER, 2);
SAME(KEL_MOD_T_EXTERN, 3);
SAME(KEL_MOD_T_MAX, 4);
SAME(MODULE_ID_MAX, 256);
SAME(MODULE_NAME_LEN, 48);

SAME(offsetof(kel_module_t, modType), 0);
SAME(offsetof(kel_module_t, commType), 8);
SAME(offsetof(kel_module_t, moduleID), 16);
SAME(offsetof(kel_module_t, name), 24);
SAME(offsetof(kel_module_t, queueID), 72);
SAME(offsetof(kel_module_t, paraCount), 80);
SAME(offsetof(kel_module_t, pPara), 88);
SAME(offsetof(kel_module_t, paraLock), 96);
SAME(offsetof(kel_module_t, userTaskEntry), 104);
SAME(offsetof(kel_module_t, pHostTask), 112);
SAME(sizeof(kel_module_t), 120);

SAME(KEL_AF_UNIX, 1);
SAME(KEL_AF_INET, 2);
SAME(KEL_AF_INET6, 10);
SAME(KEL_AF_PACKET, 17);
SAME(sizeof(kel_domain_t), 4);
SAME(KEL_SOCK_STREAM, 1);
SAME(KEL_SOCK_DGRAM, 2);
SAME(KEL_SOCK_RAW, 3);
SAME(KEL_SOCK_SEQPACKET, 5);
SAME(sizeof(kel_socktype_t), 4);

SAME(sizeof(((kel_sockaddr_t *)0)->sin), 16);
SAME(sizeof(((kel_sockaddr_t *)0)->sin6), 28);
SAME(sizeof(((kel_sockaddr_t *)0)->un), 110);
SAME(sizeof(((kel_sockaddr_t *)0)->raw), 20);
SAME(sizeof(kel_sockaddr_t), 112);
SAME(offsetof(kel_sockaddr_t, un), 0);
SAME(sizeof(sctp_assoc_t), 4);

SAME(IPPROTO_SCTP, 132);
SAME(SOL_SCTP, 132);
