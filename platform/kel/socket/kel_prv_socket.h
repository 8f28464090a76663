/* What the socket module keeps to itself, declared for its source and its tests. */
#ifndef KEL_PRV_SOCKET_H
#define KEL_PRV_SOCKET_H

#include "kel_module.h"
#include "kel_socket.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Four fields of 0 to 255, which may carry leading zeros up to three digits in all. */
#define PATTERN_IPV4                                                                                                   \
    "^(25[0-5]|2[0-4][0-9]|[0-1]?[0-9]?[0-9])"                                                                         \
    "(\\.(25[0-5]|2[0-4][0-9]|[0-1]?[0-9]?[0-9])){3}$"

#define PATTERN_IPV6_GROUP "[0-9A-Fa-f]{1,4}"

/* The dotted tail has a grammar of its own, without leading zeros: it is not the one of PATTERN_IPV4. */
#define PATTERN_IPV6_TAIL_FIELD "([0-9]|[1-9][0-9]|1[0-9]{2}|2[0-4][0-9]|25[0-5])"
#define PATTERN_IPV6_TAIL PATTERN_IPV6_TAIL_FIELD "(\\." PATTERN_IPV6_TAIL_FIELD "){3}"

/*
 * Eight groups; then by the place of the compression, first without and then with a dotted tail. "::" alone matches
 * none of them: kel_is_ipv6_addr refuses the unspecified address.
 */
#define PATTERN_IPV6                                                                                                   \
    "^("                                                                                                               \
    "((" PATTERN_IPV6_GROUP ":){7}" PATTERN_IPV6_GROUP ")|"                                                            \
    "((" PATTERN_IPV6_GROUP ":){1,7}:)|"                                                                               \
    "((" PATTERN_IPV6_GROUP ":){6}:" PATTERN_IPV6_GROUP ")|"                                                           \
    "((" PATTERN_IPV6_GROUP ":){5}(:" PATTERN_IPV6_GROUP "){1,2})|"                                                    \
    "((" PATTERN_IPV6_GROUP ":){4}(:" PATTERN_IPV6_GROUP "){1,3})|"                                                    \
    "((" PATTERN_IPV6_GROUP ":){3}(:" PATTERN_IPV6_GROUP "){1,4})|"                                                    \
    "((" PATTERN_IPV6_GROUP ":){2}(:" PATTERN_IPV6_GROUP "){1,5})|"                                                    \
    "(" PATTERN_IPV6_GROUP ":(:" PATTERN_IPV6_GROUP "){1,6})|"                                                         \
    "(:(:" PATTERN_IPV6_GROUP "){1,7})|"                                                                               \
    "((" PATTERN_IPV6_GROUP ":){6}" PATTERN_IPV6_TAIL ")|"                                                             \
    "((" PATTERN_IPV6_GROUP ":){5}:" PATTERN_IPV6_TAIL ")|"                                                            \
    "((" PATTERN_IPV6_GROUP ":){4}(:" PATTERN_IPV6_GROUP "){0,1}:" PATTERN_IPV6_TAIL ")|"                              \
    "((" PATTERN_IPV6_GROUP ":){3}(:" PATTERN_IPV6_GROUP "){0,2}:" PATTERN_IPV6_TAIL ")|"                              \
    "((" PATTERN_IPV6_GROUP ":){2}(:" PATTERN_IPV6_GROUP "){0,3}:" PATTERN_IPV6_TAIL ")|"                              \
    "(" PATTERN_IPV6_GROUP ":(:" PATTERN_IPV6_GROUP "){0,4}:" PATTERN_IPV6_TAIL ")|"                                   \
    "(:(:" PATTERN_IPV6_GROUP "){0,5}:" PATTERN_IPV6_TAIL ")"                                                          \
    ")$"

/* The module's record: handed to the registry, which writes it; the module never does. */
extern kel_module_t g_module_socket;

/**
 * Matches a text against a POSIX regular expression, compiled for this call alone.
 *
 * @param inputpattern pattern
 * @param inputbuf     text
 * @param matchmode    flags of regcomp(3)
 * @return 1 for a match; 0 for none, a null argument, or a pattern that does not compile; nothing is reported
 */
int Match_RegExpPattern(const char *inputpattern, char *inputbuf, int matchmode);

#ifdef __cplusplus
}
#endif

#endif
