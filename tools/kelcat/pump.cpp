#include "pump.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "progress.h"
#include "say.h"
#include "signals.h"

namespace
{

const size_t input_size = 256 << 10;
const size_t output_size = 2 * Channel::largest;
const double nap = 0.001; /* until the peer's confirmation is asked for again */

/* Standard output, which never waits for its reader in a write: signals and the peer are heard meanwhile. */
class Output
{
  public:
    Output();
    ~Output();
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;

    int fd = STDOUT_FILENO;
    bool may_wait = true; /* with more than PIPE_BUF bytes, or without asking poll(2) */
};

/* A pipe opened anew does not wait, while the descriptor that others may share stays as it is. */
Output::Output()
{
    struct stat status = {};
    fstat(fd, &status);
    const bool writable = (fcntl(fd, F_GETFL) & O_ACCMODE) != O_RDONLY;
    may_wait = !S_ISREG(status.st_mode);
    if (writable && (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode))) {
        const int anew = ::open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
        if (anew != -1) {
            fd = anew;
            may_wait = false;
        }
    }
}

Output::~Output()
{
    if (fd != STDOUT_FILENO) {
        close(fd);
    }
}

class Pump
{
  public:
    Pump(const Options &given, Channel &over)
        : options(given), channel(over), progress(given.quiet), typed(isatty(STDIN_FILENO)),
          input_ended(given.recv_only), input(new char[input_size]), output(new char[output_size])
    {
    }

    int run();

  private:
    bool over();
    bool wants_input() const;
    bool wants_send() const;
    bool wants_receive() const;
    void wait();
    void read_input();
    void end_input();
    void send();
    void receive();
    void write_output();
    void keep_time();
    void stop();

    const Options &options;
    Channel &channel;
    Progress progress;
    Output standard_output;
    const bool typed; /* standard input is a terminal */

    double now = now_seconds();
    double last_traffic = now; /* for --idle */
    size_t unconfirmed = 0;
    bool confirming = false; /* all has been sent and received, and the peer has not confirmed it yet */
    int interrupted = 0;

    struct {
        bool input;
        bool room;
        bool data;
        bool output;
    } ready = {};

    bool input_ended;
    std::unique_ptr<char[]> input; /* not cleared: neither needs to be */
    size_t input_begin = 0;        /* of what waits to be sent */
    size_t input_end = 0;
    std::unique_ptr<char[]> output;
    size_t output_begin = 0; /* of what waits to be written */
    size_t output_end = 0;
};

int Pump::run()
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
        if (ready.input && wants_input()) {
            read_input();
        }
        if (wants_send()) {
            send();
        }
        if (ready.data && wants_receive()) {
            receive();
        }
        if (output_begin != output_end && (ready.output || !standard_output.may_wait)) {
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

/* ---- What to wait for -------------------------------------------------------------------------------------------- */

bool Pump::over()
{
    if (channel.sending || channel.receiving || output_begin != output_end) {
        return false;
    }
    if (interrupted != 0 || channel.failed) {
        return true;
    }
    const size_t left = channel.unconfirmed();
    if (left != unconfirmed) {
        unconfirmed = left;
        last_traffic = now;
    }
    confirming = left != 0;
    return !confirming;
}

bool Pump::wants_input() const
{
    return !input_ended && channel.sending && channel.ready && input_begin == input_end;
}

bool Pump::wants_send() const
{
    return channel.sending && channel.ready && (input_begin != input_end || input_ended) && !channel.full &&
           now >= channel.not_before;
}

bool Pump::wants_receive() const
{
    return channel.receiving && output_size - output_end >= Channel::largest;
}

void Pump::wait()
{
    const bool to_send = channel.sending && channel.ready && (input_begin != input_end || input_ended);
    const bool in = wants_receive() && channel.polled;
    const bool out = to_send && channel.full;
    struct pollfd fds[] = {{wants_input() ? STDIN_FILENO : -1, POLLIN, 0},
                           {in || out ? (int)channel.sockfd : -1, (short)((in ? POLLIN : 0) | (out ? POLLOUT : 0)), 0},
                           {output_begin != output_end ? standard_output.fd : -1, POLLOUT, 0}};

    double next = std::min({progress.due(), channel.wake, confirming ? now + nap : never});
    if (to_send && !channel.full) {
        next = std::min(next, channel.not_before);
    }
    if (options.idle != 0) {
        next = std::min(next, last_traffic + options.idle);
    }
    const int events = signals_poll(fds, 3, next < never ? std::max(next - now, 0.0) : -1);
    now = now_seconds();

    ready = {events > 0 && fds[0].revents != 0, events > 0 && (fds[1].revents & ~POLLIN) != 0,
             (events > 0 && fds[1].revents != 0) || (!channel.polled && now >= channel.wake),
             events > 0 && fds[2].revents != 0};
    channel.full = channel.full && !ready.room;
}

void Pump::keep_time()
{
    channel.tick();
    show_reports();
    progress.show(now);
    if (typed && !channel.receiving && !options.send_only) {
        input_ended = true;
    }
    if (!input_ended && !channel.sending) {
        end_input();
    }
    if (options.idle != 0 && now - last_traffic >= options.idle && !over()) {
        if (input_begin != input_end || channel.unconfirmed() != 0) {
            channel.fail("%s took no data for %g s", options.endpoint.c_str(), options.idle);
        } else if (channel.connection) {
            channel.fail("%s was silent for %g s: --idle ended it before the peer did", options.endpoint.c_str(),
                         options.idle);
        }
        stop();
    }
}

/* Nothing more is sent or received; what has been received is still written. */
void Pump::stop()
{
    input_ended = true;
    input_begin = input_end;
    channel.sending = false;
    channel.receiving = false;
}

/* ---- Standard input to the channel ------------------------------------------------------------------------------- */

void Pump::read_input()
{
    const ssize_t length = read(STDIN_FILENO, input.get(), input_size - input_size % channel.unit);
    if (length > 0) {
        last_traffic = now;
        progress.input((uint64_t)length);
        input_begin = 0;
        input_end = (size_t)length;
    } else if (length == 0) {
        input_ended = true;
    } else if (errno != EAGAIN && errno != EINTR) {
        channel.fail("cannot read standard input: %s", strerror(errno));
        stop();
    }
}

/* The channel takes nothing more. What waits, or could be read, is left unsent. */
void Pump::end_input()
{
    struct pollfd more = {STDIN_FILENO, POLLIN, 0};
    if (input_begin == input_end && poll(&more, 1, 0) > 0) {
        read_input();
    }
    if (input_begin != input_end) {
        channel.fail("%s was ended by the peer before all of the input was sent", options.endpoint.c_str());
    }
    input_ended = true;
    input_begin = input_end;
}

void Pump::send()
{
    if (input_begin == input_end) {
        channel.finish();
        return;
    }
    const size_t sent = channel.send(input.get() + input_begin, input_end - input_begin);
    if (sent != 0) {
        last_traffic = now;
        progress.sent(sent);
        input_begin += sent;
    }
}

/* ---- The channel to standard output ------------------------------------------------------------------------------ */

void Pump::receive()
{
    const size_t length = channel.receive(output.get() + output_end, output_size - output_end);
    if (length != 0) {
        last_traffic = now;
        progress.received(length);
        output_end += options.send_only ? 0 : length;
    }
}

void Pump::write_output()
{
    const size_t left = output_end - output_begin;
    const size_t most = standard_output.may_wait ? PIPE_BUF : left;
    const ssize_t length = write(standard_output.fd, output.get() + output_begin, std::min(left, most));
    if (length < 0 && errno != EAGAIN && errno != EINTR) {
        channel.fail("cannot write to standard output: %s", strerror(errno));
        stop();
    }
    output_begin += length > 0 ? (size_t)length : length < 0 && channel.failed ? left : 0;
    if (output_begin == output_end) {
        output_begin = output_end = 0;
    }
}

} // namespace

int pump(const Options &options, Channel &channel)
{
    return Pump(options, channel).run();
}
