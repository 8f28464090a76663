// Every constructor over and over: neither descriptors nor memory grow.
// rounds KIND N: each constructor of one kind ("cheap", "packet", "sctp") N times, IPv4 and IPv6 in turn.
#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "constructors.h"

static size_t memory_in_use()
{
    const struct mallinfo2 heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
}

int main(int, char **argv)
{
    const Kind kind = strcmp(argv[1], "sctp") == 0 ? sctp : strcmp(argv[1], "packet") == 0 ? packet : cheap;
    const long rounds = atol(argv[2]);
    start_peers(kind == sctp);
    for (int i = 0; i < constructor_count; i++) {
        const Constructor &constructor = constructors[i];
        if (constructor.kind != kind) {
            continue;
        }
        const int descriptor = next_descriptor();
        size_t memory = 0;
        for (long round = 0; round < rounds; round++) {
            const LONG made = make_one(constructor, round % 2 == 0 ? KEL_AF_INET : KEL_AF_INET6);
            require(made == descriptor, "made no endpoint, or one of a higher number", constructor.name);
            end_one(made);
            require(next_descriptor() == descriptor, "left a descriptor open", constructor.name);
            if (round == 10) {
                memory = memory_in_use(); // what is made once is there by now
            }
        }
        require(memory_in_use() == memory, "holds more memory than after ten rounds", constructor.name);
        printf("%s: %ld rounds\n", constructor.name, rounds);
        fflush(stdout);
    }
    return 0;
}
