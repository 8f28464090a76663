/*
 * Uses of every macro of kel_lib.h, as functions in a table. C and C++ expand the macros differently, so frame_uses.inc
 * defines them in either language: frame_uses_c.c and frame_uses_cpp.cpp include it, each with a prefix of its own.
 */
#ifndef TESTS_UNIT_FRAME_USES_H
#define TESTS_UNIT_FRAME_USES_H

#include "kel_lib.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Lines that tests look for are not repeated: a function stores its own here, or that of the first of several uses. */
extern int frame_used_on;

struct frame_report {
    const char *name;     /* of the function that reports */
    LONG (*report)(void); /* 5, or what a check returns */
};

struct frame_uses {
    const char *prefix;                 /* of the functions' names */
    const struct frame_report *reports; /* ends with a null name */
    LONG (*pass)(void);
    void (*raw)(void);
    void (*log)(void);
    ULONG (*log_module)(void);
    int (*question)(const char *name);
    BOOL (*print_check)(int level, const char *function, int line);
    BOOL (*one_statement_each)(BOOL reported);
    void (*assertions)(LONG wide);
};

extern const struct frame_uses frame_uses_c, frame_uses_cpp;

#ifdef __cplusplus
}
#endif

#endif
