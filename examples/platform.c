/*
 * A whole platform for the socket module: every service that the module calls, each as short as its contract allows.
 * A program with a platform of its own links this in the place of the stand-ins. Behind the services is such a program:
 * it starts them, registers the module, and lets two endpoints fail. Its argument, if any, names what is not reported.
 */
#include <errno.h>
#include <kel/kel_lib.h>
#include <kel/kel_socket.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

/* ---- Memory, strings, console --------------------------------------------------------------------------------- */

VOID *KEL_MemSet(VOID *dst, int value, size_t size)
{
    return dst == NULL ? NULL : memset(dst, value, size);
}

VOID *KEL_MemCpy(VOID *dst, const VOID *src, size_t size)
{
    return memcpy(dst, src, size);
}

int KEL_MemCmp(const VOID *left, const VOID *right, size_t size)
{
    return memcmp(left, right, size);
}

int KEL_StrCmp(const CHAR *left, const CHAR *right)
{
    return strcmp(left, right);
}

CHAR *KEL_StrCpy(CHAR *dst, const CHAR *src)
{
    return strcpy(dst, src);
}

CHAR *KEL_StrnCpy(CHAR *dst, const CHAR *src, size_t size)
{
    return strncpy(dst, src, size);
}

int KEL_Sprintf(CHAR *dst, const CHAR *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    int length = vsprintf(dst, format, arguments);
    va_end(arguments);
    return length;
}

int KEL_Snprintf(CHAR *dst, size_t size, const CHAR *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    int length = vsnprintf(dst, size, format, arguments);
    va_end(arguments);
    return length;
}

int KEL_Printf(const CHAR *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    int length = vprintf(format, arguments);
    va_end(arguments);
    return length;
}

/* ---- Registry: identifiers 1 to 255 --------------------------------------------------------------------------- */

static kel_module_t *modules[MODULE_ID_MAX];
static ULONG last_id;
static pthread_mutex_t registry = PTHREAD_MUTEX_INITIALIZER;

LONG KEL_module_register(const char *name, kel_module_t *record)
{
    LONG result = KEL_ERROR;
    pthread_mutex_lock(&registry);
    if (!MODULE_ID_IS_ILLEGAL(last_id + 1) && strlen(name) < MODULE_NAME_LEN) {
        strcpy(record->name, name);
        record->moduleID = ++last_id;
        modules[last_id] = record;
        result = KEL_OK;
    }
    pthread_mutex_unlock(&registry);
    return result;
}

/* A module may register while others report. Its record and the name in it stay. */
static const char *name_of(ULONG module_id)
{
    pthread_mutex_lock(&registry);
    const kel_module_t *module = MODULE_ID_IS_ILLEGAL(module_id) ? NULL : modules[module_id];
    pthread_mutex_unlock(&registry);
    return module == NULL ? "?" : module->name;
}

/* ---- Reports: filter, log and assertion come from any thread, and leave errno to the report ------------------- */

__typeof__(_kel_print_lv) _kel_print_lv; /* the enumeration has no name */
kel_module_t module_print_filter;
static const char *suppressed = "";

int kel_info_print_filter_is_filtered(int level, const char *name)
{
    return level < (int)_kel_print_lv || strcmp(name, suppressed) == 0;
}

/* A record is one line and one write, so that those of several threads do not mix. */
static void write_record(const char *source, const char *format, va_list arguments)
{
    const int kept = errno;
    char line[1024];
    int length = snprintf(line, sizeof(line) / 2, "%s", source);
    vsnprintf(line + length, sizeof(line) / 2, format, arguments);
    length += (int)strcspn(line + length, "\r\n");
    line[length] = '\n';
    if (write(STDERR_FILENO, line, (size_t)length + 1) == -1) {
        /* There is nobody left to tell. */
    }
    errno = kept;
}

void KEL_SysLog(ULONG module_id, int level, const char *file, int line, const char *func, const char *format, ...)
{
    static const char *const levels[KEL_SYSLOGLEVELS_NUM] = {"?", "crit", "err", "warning", "info", "debug"};
    char source[300];
    va_list arguments;
    va_start(arguments, format);
    snprintf(source, sizeof(source), "%s %s %s:%d %s: ", levels[level >= 0 && level < KEL_SYSLOGLEVELS_NUM ? level : 0],
             name_of(module_id), file, line, func);
    write_record(source, format, arguments);
    va_end(arguments);
}

void KEL_ASSERT_X(LONG value, const char *file, int line, LONG code)
{
    if (value == 0) {
        KEL_SysLog(module_print_filter.moduleID, SYSLOG_CRIT, file, line, "assertion", "failed, code %ld", code);
    }
}

/* ---- A program on this platform -------------------------------------------------------------------------------- */

int main(int count, char *arguments[])
{
    suppressed = count > 1 ? arguments[1] : "";
    setvbuf(stdout, NULL, _IOLBF, 0); /* the console line by line between those of the log */
    if (KEL_module_register("print_filter", &module_print_filter) != KEL_OK || socket_module_init() != KEL_OK) {
        return 1;
    }
    for (ULONG id = 1; id <= last_id; id++) {
        KEL_Printf("module %lu is %s\n", id, modules[id]->name);
    }

    LONG elsewhere = kel_tcp_server_socket_create(KEL_AF_INET, "192.0.2.1", 9000, 5);
    KEL_Printf("\nan address of another machine: %ld\n", elsewhere);
    LONG nowhere = kel_tcp_server_socket_create(KEL_AF_INET, "localhost", 9000, 5);
    KEL_Printf("\nno address: %ld\n", nowhere);
    return 0;
}
