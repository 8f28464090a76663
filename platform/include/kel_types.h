/*
 * Basic types and result codes of the platform, on its targets: 64 bits, little-endian. The headers that include those
 * of the system include this one before, so that another target is refused first of all.
 */
#ifndef KEL_TYPES_H
#define KEL_TYPES_H

#if !defined(__LP64__) || __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "the socket module needs a 64-bit little-endian target, such as x86-64 or aarch64"
#endif

#include <stddef.h> /* NULL, size_t */

typedef void VOID;
typedef int BOOL;
typedef char CHAR;
typedef unsigned char UCHAR;
typedef short int SHORT;         /* ports and protocol numbers, host byte order: 16 bits, signed */
typedef long int LONG;           /* descriptors, lengths, results: 64 bits */
typedef long unsigned int ULONG; /* module identifiers: 64 bits */

#define KEL_OK 0
#define KEL_ERROR (-1) /* returned as a LONG */

#define KEL_TRUE 1
#define KEL_FALSE 0

#endif
