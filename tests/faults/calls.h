/* What a text and the explorer can call by name, with numbers for arguments. */
#ifndef TESTS_FAULTS_CALLS_H
#define TESTS_FAULTS_CALLS_H

#include <functional>
#include <string>

struct Callee {
    std::function<long(const long *arguments)> call;
    size_t parameters;
    bool gives_text;
};

/* A function of the module; null when this program cannot reach it. */
const Callee *module_function(const std::string &name);

/* A function of the system or the platform, as the module calls it, or one that leaves no trace; null for others. */
const Callee *system_function(const std::string &name);

#endif
