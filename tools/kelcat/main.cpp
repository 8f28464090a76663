/* kelcat: the socket module on the command line. */
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "channel.h"
#include "host.h"
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

static int run(const Options &options)
{
    const auto make = options.transport == Sctp                         ? make_sctp
                      : options.transport == Packet                     ? make_packet
                      : (options.transport & (Udp | UnixDatagram)) != 0 ? make_datagram
                                                                        : make_stream;
    const std::unique_ptr<Channel> channel = make(options);
    const int status = channel->open();
    return status != 0 ? status : pump(options, *channel);
}

int main(int argc, char **argv)
{
    fill_standard_descriptors();
    const Options options = parse_options(argc, argv);
    signals_install();
    keep_reports();
    if (!options.verbose) {
        host_filter_add("*", HOST_EVERY_LEVEL);
    }
    if (socket_module_init() != KEL_OK) {
        say("cannot start: the module is refused");
        return 1;
    }

    int status = run(options);
    if (close(STDOUT_FILENO) != 0 && status == 0) {
        say("cannot write to standard output: %s", strerror(errno));
        status = 3;
    }
    show_reports();
    return status;
}
