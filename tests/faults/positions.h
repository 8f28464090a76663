/*
 * The places of the module's source where it calls the system or reports: each has to be reached by the explorer with
 * every outcome that it can have.
 */
#ifndef TESTS_FAULTS_POSITIONS_H
#define TESTS_FAULTS_POSITIONS_H

#include <string>
#include <vector>

struct Position {
    std::string name;
    std::string call; /* or the name of the reporting macro */
    int line;
};

/* "function: use", and from the second equal use in a function on its number behind. */
std::string position(const std::string &function, const std::string &use, int nth);

bool is_report(const std::string &call);

/* How many outcomes a call or a reporting macro has; 0 for a name that is neither. */
size_t outcomes(const std::string &call);

/* What an error report may come to. */
enum Reported { Printed, PrintedNoisily, SuppressedByLine, SuppressedByName, reported_count };

struct Source {
    std::vector<Position> positions;
    std::vector<std::string> unknown; /* calls that are neither the system's nor the platform's nor the module's */
};

/* Read from kel_socket.cpp, once. */
const Source &source();

/*
 * The nth use of a function; the only one, if there is only one, for a text may say twice what the source says once.
 * Null when there is none.
 */
const Position *find_position(const std::string &function, const std::string &use, int nth);

/* The functions that the shared library exports, from its map. */
std::vector<std::string> exported();

#endif
