/*
 * The socket module for tests of applications: every function of kel_socket.h, linked in the module's place.
 *
 * A function does what the module does, for it is the module's own code: checks, results, errno and reports. Below it
 * there is no network but this process. Endpoints find each other by address, whatever addresses they name, and SCTP
 * works on every kernel. Nothing of it is visible outside: neither ports nor the files of local sockets.
 *
 * A test scripts what a function answers, lets a step inside it fail, or puts a function of its own in its place; and
 * it looks up the calls that the application has made.
 *
 *   - function: one that kel_socket.h does not have ends the program with a message: it is a slip of the test.
 *   - argument: a parameter's name in kel_socket.h; another ends the program, too.
 *   - Descriptors are local sockets underneath: close(2), poll(2) and read(2) serve, too. Of others, such as a
 *     pipe's, what closes, sends, receives, or asks for options goes to the system.
 *   - Calls that the module makes of its own functions are not recorded, and scripts do not reach them.
 *   - Any function may be called on several threads.
 */
#ifndef KEL_SOCKET_FAKE_H
#define KEL_SOCKET_FAKE_H

#include "kel_socket.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Beginning and end ------------------------------------------------------------------------------------------- */

/**
 * Forgets scripts, replacements, records and interfaces, and closes every descriptor that is still open. For the
 * beginning of a test, or its end.
 */
void kel_fake_reset(void);

/* ---- Scripts: a function uses up its scripts in their order, and is then the module's again ---------------------- */

#define KEL_FAKE_ALWAYS (-1) /* times: until kel_fake_reset() */

/**
 * Scripts what a function returns. The module is not asked: nothing is checked, done or reported.
 *
 * @param function exported function
 * @param result   what it returns; (LONG)(intptr_t)pointer for the two functions that return one
 * @param error    value of errno behind it, or 0 to leave errno alone
 * @param times    number of calls, or KEL_FAKE_ALWAYS
 *
 * See kel_fake_output().
 */
void kel_fake_return(const char *function, LONG result, int error, LONG times);

/**
 * Adds to the last kel_fake_return() of a function what it writes through one of its pointers.
 *
 * @param function exported function
 * @param argument parameter that is a pointer to what is not const
 * @param data     bytes to write, copied: a record, a buffer, a count. For the addrs of kel_sctp_getpaddrs() and
 *                 kel_sctp_getladdrs() the records themselves, of which the application gets an array of its own
 * @param size     their number; what the caller has no room for is not written
 */
void kel_fake_output(const char *function, const char *argument, const void *data, size_t size);

/**
 * Lets a step inside a function fail. Everything else is the module's doing: the report, the system's words in it, what
 * is closed, the result.
 *
 * @param function exported function
 * @param step     call of the system, of libsctp or of the allocator that fails each time, as docs/behaviour.md names
 *                 it: "socket", "bind", "sctp_connectx", "tc_malloc" ... A step that this function does not take never
 *                 fails, and nobody tells
 * @param error    value of errno
 * @param times    number of calls of the function, or KEL_FAKE_ALWAYS
 */
void kel_fake_fail(const char *function, const char *step, int error, LONG times);

typedef void (*kel_fake_function_t)(void); /* stands for any function; cast to it */

/**
 * Puts a function of the test in the place of an exported one. Scripts come before it.
 *
 * @param function    exported function
 * @param replacement a function with the same parameters and result, which KEL_FAKE_REPLACE() makes sure of; NULL
 *                    brings the module back. It may call exported functions, the one that it replaces included: inside
 *                    it they are the module's, and not recorded. It may throw
 */
void kel_fake_replace(const char *function, kel_fake_function_t replacement);

/* ---- Records ----------------------------------------------------------------------------------------------------- */

/* One argument of a recorded call. */
typedef struct kel_fake_argument_s {
    const char *name; /* of the parameter */
    LONG value;       /* of a number; of a pointer its bits, 0 for null */
    const void *data; /* copy of what a pointer pointed to when the function was called: a record, the records or texts
                       * (const char *) of a list, the bytes of a buffer that is sent, a text; otherwise NULL */
    size_t size;      /* its bytes; of a text without its NUL */
} kel_fake_argument_t;

/* A recorded call. It stays until kel_fake_reset(). */
typedef struct kel_fake_call_s {
    const char *function;
    LONG result; /* once it has returned; of a pointer its bits */
    int error;   /* errno behind it */
    const kel_fake_argument_t *arguments;
    LONG count; /* number of arguments */
} kel_fake_call_t;

/**
 * Counts the calls of a function.
 *
 * @param function exported function, or NULL for all
 * @return their number since kel_fake_reset()
 */
LONG kel_fake_calls(const char *function);

/**
 * Looks up a call.
 *
 * @param function exported function, or NULL for all
 * @param index    from 0, in the order in which they were called; -1 is the last, -2 the one before
 * @return the call, or NULL when there are not that many
 */
const kel_fake_call_t *kel_fake_call(const char *function, LONG index);

/**
 * Looks up an argument of a call.
 *
 * @param call     call; NULL ends the program with a message
 * @param argument parameter
 * @return the argument, never NULL
 */
const kel_fake_argument_t *kel_fake_argument(const kel_fake_call_t *call, const char *argument);

/* ---- Network ----------------------------------------------------------------------------------------------------- */

/**
 * Counts the descriptors that are open: at the end of a test, those that the application has left.
 *
 * @return their number
 */
LONG kel_fake_open(void);

/**
 * Adds an interface for packet endpoints, or changes its address. "lo" and "eth0" are there from the start. What one
 * packet endpoint sends on an interface, every other one there receives.
 *
 * @param name its name, at most 15 characters
 * @param mac  its hardware address, 6 bytes
 */
void kel_fake_interface(const CHAR *name, const UCHAR *mac);

/**
 * Delivers an SCTP notification to a descriptor, if that has subscribed to its kind. Of set-up, shutdown and abort the
 * descriptor hears by itself.
 *
 * @param sockfd       SCTP descriptor with an association
 * @param notification record of kel_sctp.h, with its type; SCTP_ASSOC_CHANGE with SCTP_COMM_LOST also ends the
 *                     association, at either end
 * @param size         its bytes, with what follows the record
 * @return KEL_OK, or KEL_ERROR when the descriptor has not subscribed to it or cannot take it
 */
LONG kel_fake_sctp_notify(LONG sockfd, const void *notification, size_t size);

/**
 * Changes the state of a path of an association: SCTP_PEER_ADDR_CHANGE is delivered to a descriptor that has subscribed
 * to it, SCTP_GET_PEER_ADDR_INFO shows it from then on, and what comes on an unreachable path comes on another.
 *
 * @param sockfd   SCTP descriptor
 * @param assoc_id association; any on a one-to-one descriptor
 * @param address  address of the peer, with or without its port
 * @param state    of enum sctp_spc_state: SCTP_ADDR_UNREACHABLE, SCTP_ADDR_AVAILABLE ...
 * @return KEL_OK, or KEL_ERROR when there is no such association or address
 */
LONG kel_fake_sctp_path(LONG sockfd, sctp_assoc_t assoc_id, const kel_sockaddr_t *address, LONG state);

#ifdef __cplusplus
}
#endif

/* ---- Replacement, with its type looked at ------------------------------------------------------------------------ */

/**
 * Puts a function of the test in the place of an exported one, as kel_fake_replace(), and does not compile when it is
 * of another type: KEL_FAKE_REPLACE(kel_close, mine).
 *
 * @param function    exported function itself, not its name as a text
 * @param replacement a function with the same parameters and result; in C++17 and later anything that can be called so,
 *                    such as a lambda or a mock's AsStdFunction()
 */
#if defined(__cplusplus) && __cplusplus >= 201703L
#include <functional>
#include <utility>

template <auto function> struct kel_fake_callable;
template <typename Result, typename... Arguments, Result (*function)(Arguments...)> struct kel_fake_callable<function> {
    static inline std::function<Result(Arguments...)> target;
    static Result call(Arguments... arguments)
    {
        return target(arguments...);
    }
    static void replace(const char *name, std::function<Result(Arguments...)> replacement)
    {
        kel_fake_replace(name, nullptr);
        target = std::move(replacement);
        if (target) {
            kel_fake_replace(name, reinterpret_cast<kel_fake_function_t>(&call));
        }
    }
};
#define KEL_FAKE_REPLACE(function, replacement) kel_fake_callable<&function>::replace(#function, replacement)
#else
#ifdef __cplusplus
#define __kel_fake_same_type(function, replacement) sizeof((replacement) == &(function))
#else
/* Of pointers to functions of two types ?: makes a void *, which a compiler may only warn of; for that there is no case
 * here. NULL becomes a pointer to the function's type. */
#define __kel_fake_same_type(function, replacement)                                                                    \
    _Generic(1 ? (replacement) : &(function), __typeof__(&(function)): 0)
#endif
#define KEL_FAKE_REPLACE(function, replacement)                                                                        \
    ((void)__kel_fake_same_type(function, replacement),                                                                \
     kel_fake_replace(#function, (kel_fake_function_t)(uintptr_t)(replacement)))
#endif

#endif
