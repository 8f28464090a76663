/*
 * Controls of the stand-in platform: for the program that starts it, and for tests that look into it. The socket module
 * never includes this header. What each service does, and how a test sees it: README.md beside this file.
 */
#ifndef HOST_H
#define HOST_H

#include "kel_module.h"
#include "kel_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Watch: one line for every call of a service --------------------------------------------------------------- */

typedef void (*host_watch_t)(const char *call);

/**
 * Has every service tell its calls, in the order in which they are made.
 *
 * @param watch called with one line for each, which is borrowed for the call; NULL ends that
 */
void host_watch(host_watch_t watch);

/* ---- Print filter ------------------------------------------------------------------------------------------------ */

#define HOST_EVERY_LEVEL (-1)

/**
 * Suppresses the reports of a key.
 *
 * @param key   "function", "function.line", or "*" for every report; copied, at most 199 characters
 * @param level a print level of kel_lib.h, or HOST_EVERY_LEVEL
 * @return KEL_OK, or KEL_ERROR when the key is too long or 64 keys are there already
 */
LONG host_filter_add(const char *key, int level);

/** Forgets every key, those of the environment included. */
void host_filter_clear(void);

typedef int (*host_filter_decide_t)(int level, const char *name);

/**
 * Lets the program answer the filter's questions itself, in place of the keys.
 *
 * @param decide as kel_info_print_filter_is_filtered(), which asks it; NULL brings the keys back
 */
void host_filter_decide(host_filter_decide_t decide);

/* ---- Log --------------------------------------------------------------------------------------------------------- */

/**
 * Chooses where log records go.
 *
 * @param name "syslog", "stderr", or the path of a file to append to; NULL takes the environment's choice again
 * @return KEL_OK, or KEL_ERROR with errno when the file cannot be opened: the choice is then as before
 */
LONG host_log_to(const char *name);

/* ---- Registry and assertion -------------------------------------------------------------------------------------- */

/**
 * Counts the registered modules.
 *
 * @return 0 to 255; their identifiers are 1 to that number
 */
ULONG host_registry_count(void);

/**
 * Finds a registered module.
 *
 * @param id identifier of the module, from 1
 * @return the record that was registered under it, in its owner's memory, with the name in its name field; NULL for
 *         none
 */
kel_module_t *host_registry_record(ULONG id);

/** Forgets every module; the records keep what was written into them. */
void host_registry_clear(void);

/**
 * Counts the assertions that have failed.
 *
 * @return their number since the program's start
 */
ULONG host_assertions(void);

#ifdef __cplusplus
}
#endif

#endif
