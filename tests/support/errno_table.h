/* tests/behaviour/errno.txt: the errors that the manual pages name for each call of the system and of libsctp. */
#ifndef TESTS_ERRNO_TABLE_H
#define TESTS_ERRNO_TABLE_H

#include <string>
#include <vector>

struct ErrnoPair {
    std::string call, name; /* "bind", "EADDRINUSE" */
    int error;              /* the number that the name stands for */
    std::string reason;     /* why the real kernel is not brought to it; empty when it is */
};

/* In the order of the file. Throws when the file cannot be read or says something else. */
const std::vector<ErrnoPair> &errno_table();

#endif
