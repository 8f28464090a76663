/* kelcat: the socket module on the command line. */
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "arguments.h"
#include "endpoint.h"
#include "host.h"
#include "progress.h"
#include "relay.h"
#include "signals.h"

/* A standard descriptor that the caller closed must not become the socket's: read, it ends; written, it fails. */
static void fill_standard_descriptors()
{
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; fd++) {
        if (fcntl(fd, F_GETFD) == -1) {
            open("/dev/null", O_RDONLY);
        }
    }
}

/*
 * The module prints its reports to standard output. The data gets that one for itself, under another number, and the
 * reports go to standard error, each as one piece.
 */
static int take_standard_output()
{
    static char reports[64 * 1024];
    int output = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    setvbuf(stdout, reports, _IOFBF, sizeof(reports));
    return output;
}

static int run(const Arguments &arguments, int output)
{
    Endpoint endpoint(arguments);
    int status = endpoint.open();
    return status != 0 ? status : relay(arguments, endpoint, output);
}

int main(int argc, char **argv)
{
    fill_standard_descriptors();
    Arguments arguments = parse_arguments(argc, argv);
    signals_install();
    int output = take_standard_output();

    if (!arguments.verbose) {
        host_filter_add("*", HOST_EVERY_LEVEL);
    }
    if (output == -1 || socket_module_init() != KEL_OK) {
        say("cannot start: %s", output == -1 ? strerror(errno) : "the module is refused");
        return 1;
    }

    int status = run(arguments, output);
    if (close(output) != 0 && status == 0) {
        say("cannot write to standard output: %s", strerror(errno));
        status = 3;
    }
    return status;
}
