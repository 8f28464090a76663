// What address texts the module's patterns accept, said a second time: read by hand, without a regular expression.
#ifndef RECOGNISER_H
#define RECOGNISER_H

#include <string>

// Four fields of 0 to 255, of one to three digits each.
bool is_ipv4_text(const std::string &text);

// Eight groups, or fewer around one "::"; a dotted tail without leading zeros counts as two. Not "::" alone.
bool is_ipv6_text(const std::string &text);

#endif
