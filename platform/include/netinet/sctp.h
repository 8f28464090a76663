/*
 * Stands in front of the system's <netinet/sctp.h> for one purpose: behind kel_sctp.h, which declares the same names,
 * it is one clear error and not a hundred. In a program without kel_sctp.h it is the system's header and nothing else.
 */
#pragma GCC system_header /* #include_next is an extension */

#ifdef KEL_SCTP_H
#error "kel_sctp.h takes the place of the system's SCTP header: include one of them, not both"
#else
#include_next <netinet/sctp.h>
#endif
