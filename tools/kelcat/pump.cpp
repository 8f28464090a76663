/* Moves bytes between the standard descriptors and a channel, until that is over. Knows nothing of transports. */
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "channel.h"
#include "progress.h"
#include "signals.h"

namespace
{

const size_t input_size = 256 << 10;
const size_t output_size = 2 * Channel::largest;

/* A part of a buffer, which is not cleared: it need not be. */
struct Bytes {
    explicit Bytes(size_t size) : memory(new char[size])
    {
    }

    bool empty() const
    {
        return begin == end;
    }

    const std::unique_ptr<char[]> memory;
    size_t begin = 0;
    size_t end = 0;
};

class Pump
{
  public:
    Pump(const Options &given, Channel &over)
        : options(given), channel(over), progress(given.quiet, std::min(now, over.begun))
    {
        open_output();
    }

    int run()
    {
        while (!over()) {
            wait();
            if (const int signal = signals_take()) {
                if (interrupted != 0) {
                    break; /* the second signal does not wait for standard output */
                }
                interrupted = signal;
                stop();
            }
            if (input_ready && wants_input()) {
                read_input();
            }
            if (wants_send() && !channel.full && now >= channel.not_before) {
                send();
            }
            if (data_ready && wants_receive()) {
                receive();
            }
            if (!incoming.empty() && (output_ready || !output_waits)) {
                write_output();
            }
            keep_time();
        }
        if (options.verbose) {
            channel.sum_up();
            progress.total();
        }
        return interrupted != 0 ? 128 + interrupted : channel.failed ? 3 : 0;
    }

  private:
    /* ---- What to wait for ---------------------------------------------------------------------------------------- */

    bool over()
    {
        if (channel.sending || channel.receiving || !incoming.empty()) {
            return false;
        }
        const size_t left = interrupted != 0 || channel.failed ? 0 : channel.unconfirmed();
        last_traffic = left != unconfirmed ? now : last_traffic;
        unconfirmed = left;
        return left == 0;
    }

    bool wants_input() const
    {
        return !input_ended && channel.sending && channel.ready && outgoing.empty();
    }

    bool wants_send() const
    {
        return channel.sending && channel.ready && (!outgoing.empty() || input_ended);
    }

    bool wants_receive() const
    {
        return channel.receiving && output_size - incoming.end >= Channel::largest;
    }

    void wait()
    {
        const short in = wants_receive() && channel.polled ? POLLIN : 0;
        const short out = wants_send() && channel.full ? POLLOUT : 0;
        struct pollfd fds[] = {{wants_input() ? STDIN_FILENO : -1, POLLIN, 0},
                               {in != 0 || out != 0 ? (int)channel.sockfd : -1, (short)(in | out), 0},
                               {!incoming.empty() ? output : -1, POLLOUT, 0}};

        double next = std::min({progress.due(), channel.wake, unconfirmed != 0 ? now + Channel::nap : never});
        next = std::min(next, wants_send() && !channel.full ? channel.not_before : never);
        next = std::min(next, options.idle != 0 ? last_traffic + options.idle : never);
        if (signals_poll(fds, 3, next < never ? std::max(next - now, 0.0) : -1) <= 0) {
            fds[0].revents = fds[1].revents = fds[2].revents = 0;
        }
        now = now_seconds();
        input_ready = fds[0].revents != 0;
        output_ready = fds[2].revents != 0;
        data_ready = (fds[1].revents & ~POLLOUT) != 0 || (!channel.polled && now >= channel.wake);
        channel.full = channel.full && (fds[1].revents & ~POLLIN) == 0;
    }

    void keep_time()
    {
        channel.tick();
        show_reports();
        progress.show(now);
        if (!input_ended && !channel.receiving && !options.send_only && isatty(STDIN_FILENO)) {
            input_ended = true;
        }
        if (!input_ended && !channel.sending) {
            leave_input();
        }
        if (options.idle != 0 && now - last_traffic >= options.idle && !over()) {
            if (!outgoing.empty() || channel.unconfirmed() != 0) {
                channel.fail("%s took no data for %g s", options.endpoint.c_str(), options.idle);
            } else if (channel.connection) {
                channel.fail("%s was silent for %g s: --idle ended it before the peer did", options.endpoint.c_str(),
                             options.idle);
            }
            stop();
        }
    }

    /* Nothing more is sent or received; what has been received is still written. */
    void stop()
    {
        input_ended = true;
        outgoing.begin = outgoing.end;
        channel.sending = false;
        channel.receiving = false;
    }

    /* ---- Standard input to the channel --------------------------------------------------------------------------- */

    void read_input()
    {
        const ssize_t length = read(STDIN_FILENO, outgoing.memory.get(), input_size - input_size % channel.unit);
        if (length > 0) {
            last_traffic = now;
            progress.moved((uint64_t)length, 0, 0);
            outgoing.begin = 0;
            outgoing.end = (size_t)length;
        } else if (length == 0) {
            input_ended = true;
        } else if (errno != EAGAIN && errno != EINTR) {
            channel.fail("cannot read standard input: %s", strerror(errno));
            stop();
        }
    }

    /* The channel takes nothing more. What waits, or could be read, is left unsent. */
    void leave_input()
    {
        struct pollfd more = {STDIN_FILENO, POLLIN, 0};
        if (outgoing.empty() && poll(&more, 1, 0) > 0) {
            read_input();
        }
        if (!outgoing.empty()) {
            channel.fail("%s was ended by the peer before all of the input was sent", options.endpoint.c_str());
        }
        input_ended = true;
        outgoing.begin = outgoing.end;
    }

    void send()
    {
        if (outgoing.empty()) {
            channel.finish();
            return;
        }
        const size_t sent = channel.send(outgoing.memory.get() + outgoing.begin, outgoing.end - outgoing.begin);
        last_traffic = sent != 0 ? now : last_traffic;
        progress.moved(0, sent, 0);
        outgoing.begin += sent;
    }

    /* ---- The channel to standard output -------------------------------------------------------------------------- */

    /*
     * Standard output may not wait in a write, for signals and the peer are to be heard meanwhile. A pipe that is
     * opened anew does not, while the descriptor that others may share stays as it is. Of anything else poll(2)
     * promises room for PIPE_BUF bytes.
     */
    void open_output()
    {
        struct stat status = {};
        fstat(output, &status);
        const bool writable = (fcntl(output, F_GETFL) & O_ACCMODE) != O_RDONLY;
        if (writable && (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode))) {
            const int anew = open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
            output = anew != -1 ? anew : output;
            fcntl(output, F_SETPIPE_SZ, 1 << 20); /* so that neither side wakes the other for every 64 KiB */
        }
        output_waits = output == STDOUT_FILENO && !S_ISREG(status.st_mode);
    }

    void receive()
    {
        const size_t length = channel.receive(incoming.memory.get() + incoming.end, output_size - incoming.end);
        last_traffic = length != 0 ? now : last_traffic;
        progress.moved(0, 0, length);
        incoming.end += options.send_only ? 0 : length;
    }

    void write_output()
    {
        const size_t left = incoming.end - incoming.begin;
        const ssize_t length = write(output, incoming.memory.get() + incoming.begin,
                                     output_waits ? std::min<size_t>(left, PIPE_BUF) : left);
        if (length >= 0) {
            incoming.begin += (size_t)length;
        } else if (errno != EAGAIN && errno != EINTR) {
            channel.fail("cannot write to standard output: %s", strerror(errno));
            stop();
            incoming.begin = incoming.end;
        }
        if (incoming.empty()) {
            incoming.begin = incoming.end = 0;
        }
    }

    const Options &options;
    Channel &channel;
    double now = now_seconds();
    Progress progress;
    double last_traffic = now; /* for --idle */
    size_t unconfirmed = 0;    /* of all that was sent, once nothing else is to be done */
    int interrupted = 0;

    bool input_ready = false; /* says poll(2) */
    bool data_ready = false;
    bool output_ready = false;

    bool input_ended = options.recv_only;
    Bytes outgoing{input_size};
    int output = STDOUT_FILENO;
    bool output_waits = true;
    Bytes incoming{output_size};
};

} // namespace

int pump(const Options &options, Channel &channel)
{
    return Pump(options, channel).run();
}
