/* Basic types and result codes of the platform, on its 64-bit target. */
#ifndef KEL_TYPES_H
#define KEL_TYPES_H

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
