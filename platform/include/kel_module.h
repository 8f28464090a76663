/* The platform's module record and registry. */
#ifndef KEL_MODULE_H
#define KEL_MODULE_H

#include "kel_types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define MODULE_NAME_LEN 48 /* with the terminating NUL */
#define MODULE_ID_MAX 256  /* legal identifiers are 0 to 255 */

/**
 * Tells whether a number is no module identifier. One comparison serves both ends: a negative number becomes a huge
 * unsigned one.
 *
 * @param id any number, taken as a LONG
 * @return non-zero when it is below 0 or above 255
 */
#define MODULE_ID_IS_ILLEGAL(id) ((ULONG)(LONG)(id) >= MODULE_ID_MAX)

/* Kinds of module. */
typedef enum module_type_e {
    KEL_MOD_T_NORMAL = 0,
    KEL_MOD_T_HOST = 1,
    KEL_MOD_T_USER = 2,
    KEL_MOD_T_EXTERN = 3,
    KEL_MOD_T_MAX = 4 /* count */
} module_type_t;

/* Message handler of a module; msg is the first of the ULONGs that make one module message. */
typedef LONG (*KEL_msg_code_handler_ptr)(ULONG *msg);
typedef KEL_msg_code_handler_ptr KEL_user_task_entry;

/* A module's record. The registry fills it; the socket module neither reads nor writes its own. */
typedef struct kel_module_s {
    module_type_t modType;
    LONG commType;                     /* communication type */
    ULONG moduleID;                    /* 0 to 255, assigned by the registry */
    CHAR name[MODULE_NAME_LEN];        /* as it was registered, with its NUL */
    ULONG queueID;                     /* the module's message queue */
    LONG paraCount;                    /* number of parameters at pPara */
    VOID *pPara;                       /* parameters; whoever sets it owns them */
    LONG paraLock;                     /* lock that guards them */
    KEL_user_task_entry userTaskEntry; /* handler of the module's messages */
    VOID *pHostTask;                   /* task in which the module runs */
} kel_module_t;

/**
 * Holds the module record of the platform's print filter. Supplied by the platform; its moduleID tags every log record
 * of the report macros in kel_lib.h, whichever module uses them. KEL_log() alone takes an identifier from its caller.
 */
extern kel_module_t module_print_filter;

/**
 * Registers a module with the platform. Supplied by the platform.
 *
 * @param name   the module's name, at most 47 characters; borrowed for the call
 * @param record the module's record with static storage; the registry fills it, moduleID above all, and keeps its
 *               address
 * @return KEL_OK, or non-zero when the module could not be registered
 */
LONG KEL_module_register(const char *name, kel_module_t *record);

#ifdef __cplusplus
}
#endif

#endif
