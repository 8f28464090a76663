/*
 * Preloaded into the user-mode kernel, which runs its processes through ptrace:
 *
 *   - Its record of the floating-point state ends before the matrix registers (AMX) that newer processors have. The
 *     host takes back a whole state or none, so the kernel's part is completed: the rest is in its initial state.
 *   - When the program guest is killed, so is the kernel; when the kernel is killed, so are its processes. Left alone,
 *     they would run on as processes of the host.
 */
#define _GNU_SOURCE
#include <elf.h>
#include <signal.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

enum { STATE_COMPONENTS = 512 }; /* offset of the bit set that says which parts of a saved state are in use */

struct start {
    int (*function)(void *);
    void *argument;
    pid_t parent;
};

int __clone(int (*function)(void *), void *stack, int flags, void *argument, ...);

static void die_with(pid_t parent)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
        _exit(1); /* it has died before */
    }
}

__attribute__((constructor)) static void die_with_runner(void)
{
    const char *runner = getenv("RUNNER");
    if (runner != NULL) {
        die_with((pid_t)atol(runner));
    }
}

static int start(void *record)
{
    const struct start *wanted = record;
    die_with(wanted->parent);
    return wanted->function(wanted->argument);
}

int clone(int (*function)(void *), void *stack, int flags, void *argument, ...)
{
    /* The record lies on the new stack: the process may share this memory, and this function may return first. */
    struct start *record = (struct start *)((uintptr_t)stack & ~(uintptr_t)15) - 1;
    record->function = function;
    record->argument = argument;
    record->parent = getpid();
    return __clone(start, record, flags, record);
}

static long set_whole_state(long pid, long type, const struct iovec *part)
{
    static char state[1 << 16]; /* one thread of the kernel traces */
    static size_t whole;

    if (whole == 0) {
        struct iovec all = {state, sizeof(state)};
        if (syscall(SYS_ptrace, PTRACE_GETREGSET, pid, type, &all) == -1) {
            return -1;
        }
        whole = all.iov_len;
        memset(state, 0, sizeof(state));
    }
    if (part->iov_len >= whole) {
        return syscall(SYS_ptrace, PTRACE_SETREGSET, pid, type, part);
    }

    uint64_t components;
    memcpy(state, part->iov_base, part->iov_len);
    memcpy(&components, state + STATE_COMPONENTS, sizeof(components));
    components &= 0x3ff; /* up to the protection keys, the last part that the kernel knows */
    memcpy(state + STATE_COMPONENTS, &components, sizeof(components));

    struct iovec all = {state, whole};
    return syscall(SYS_ptrace, PTRACE_SETREGSET, pid, type, &all);
}

long ptrace(enum __ptrace_request request, ...)
{
    va_list args;
    va_start(args, request);
    long pid = va_arg(args, pid_t);
    long addr = va_arg(args, long);
    long data = va_arg(args, long);
    va_end(args);

    switch ((int)request) {
    case PTRACE_SETREGSET:
        if (addr == NT_X86_XSTATE) {
            return set_whole_state(pid, addr, (const struct iovec *)data);
        }
        break;
    case PTRACE_PEEKTEXT:
    case PTRACE_PEEKDATA:
    case PTRACE_PEEKUSER: {
        long word; /* the system call writes what the library's function returns */
        return syscall(SYS_ptrace, request, pid, addr, &word) == -1 ? -1 : word;
    }
    }
    return syscall(SYS_ptrace, request, pid, addr, data);
}
