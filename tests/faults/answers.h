/*
 * What a call of the system may come back with: its usual result, every failure that its manual page names, one that no
 * page names, and the results at the edges of what its caller tests for.
 */
#ifndef TESTS_FAULTS_ANSWERS_H
#define TESTS_FAULTS_ANSWERS_H

#include <string>
#include <vector>

#include "system.h"

/*
 * The answers of a call; none for a name that is no call of the system. The first stands for the usual result, which
 * only the call knows. The first brief_answers already take every path that most callers have.
 */
const std::vector<sys::Answer> &answers(const std::string &call);
constexpr size_t brief_answers = 3;

/* The error that no page names. */
constexpr int unknown_error = 4095;

#endif
