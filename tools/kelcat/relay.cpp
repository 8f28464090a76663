#include "relay.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstring>
#include <deque>
#include <linux/sockios.h>
#include <memory>
#include <sys/ioctl.h>
#include <unistd.h>

#include "association.h"
#include "frames.h"
#include "pacing.h"
#include "progress.h"
#include "signals.h"

namespace
{

const size_t piece = 64 << 10;       /* one read of a stream */
const size_t in_limit = 256 << 10;   /* what may wait for standard output */
const size_t frame_limit = 64 << 10; /* more than any interface takes */
const double input_patience = 0.5;   /* silence of the input that ends it once the peer has ended */
const double nap = 0.001;            /* until a full queue is tried again */

class Relay
{
  public:
    Relay(const Arguments &given, const Endpoint &endpoint, int output_fd);

    int run();

  private:
    bool wants_input() const;
    bool wants_send() const;
    bool wants_receive() const;
    bool only_input_left() const;
    bool ends_association() const;
    bool ended() const;
    bool delivered();
    double next_event() const;
    void keep_time();

    void read_input();
    void take_input(const std::string &text);
    void end_input();
    bool may_end_sending();
    void end_sending();

    bool may_send();
    bool receiver_may_go() const;
    void give_up_sending();
    LONG send_front();
    void send_some();
    void sending_failed();

    void receive();
    void receive_stream();
    void receive_message();
    void end_with_peer();
    bool receive_datagram();
    void take_data(const std::string &data);
    void write_output();

    void fail(const char *format, ...) __attribute__((format(printf, 2, 3)));
    void broke(int error);
    void stop();

    const Arguments &arguments;
    const LONG sockfd;
    const int output;
    bool output_is_file = false;       /* a write then never waits for a reader */
    bool typed;                        /* standard input is a terminal */
    std::unique_ptr<Association> sctp; /* null: another transport */
    Pacing pacing;
    Progress progress;
    FrameReader frames;

    double now = now_seconds();
    double last_traffic = now; /* for --idle */
    double quiet_since = now;  /* nothing of the input has come or been waiting since */
    double not_before = 0;     /* nothing is sent until then */

    bool peer_known;             /* a listener for datagrams learns it from the first one */
    kel_sockaddr_t peer = {};    /* of datagrams: the server, or the latest sender */
    std::deque<std::string> out; /* a stream's bytes in any pieces, or datagrams; an empty one is the end mark */
    std::string frame;           /* --raw: the input so far */
    std::string in;
    size_t in_written = 0;
    std::string received; /* the latest datagram or piece of a stream */
    bool received_any = false;
    unsigned long datagrams = 0;

    bool input_ended = false;
    bool sending_over;
    bool sent_any = false;
    bool peer_ended = false;
    bool broken = false;
    int interrupted = 0;
};

Relay::Relay(const Arguments &given, const Endpoint &endpoint, int output_fd)
    : arguments(given), sockfd(endpoint.sockfd), output(output_fd), typed(isatty(STDIN_FILENO)), pacing(given, sockfd),
      progress(given.quiet, output_fd), peer_known(given.stream() || !given.listen), sending_over(given.recv_only)
{
    struct stat status;
    output_is_file = fstat(output, &status) == 0 && S_ISREG(status.st_mode);
    if (arguments.transport == Transport::Sctp) {
        sctp = std::make_unique<Association>(given, endpoint);
        peer_known = sctp->up();
    }
    if (arguments.transport == Transport::Udp && !arguments.listen) {
        kel_getpeername(sockfd, &peer);
    }
}

int Relay::run()
{
    while (!ended() || !delivered()) {
        bool polls = !sctp || !sctp->ending; /* an association that ends is always readable */
        short events = (short)((wants_receive() && polls ? POLLIN : 0) | (wants_send() ? POLLOUT : 0));
        struct pollfd fds[] = {{wants_input() ? STDIN_FILENO : -1, POLLIN, 0},
                               {events != 0 ? (int)sockfd : -1, events, 0},
                               {in.empty() ? -1 : output, POLLOUT, 0}};
        bool ready = signals_poll(fds, 3, next_event()) > 0;
        now = now_seconds();

        if (int signal = signals_take()) {
            if (interrupted != 0) {
                break; /* the second signal does not wait for standard output */
            }
            interrupted = signal;
            stop();
        }
        if (ready && fds[0].revents != 0 && wants_input()) {
            read_input();
        }
        if (ready && fds[1].revents != 0 && wants_receive()) {
            receive();
        }
        /* The module reports a message for which there is no room. */
        if (wants_send() && (!sctp || (fds[1].revents & ~POLLIN) != 0)) {
            send_some();
        }
        if (ready && fds[2].revents != 0) {
            write_output();
        }
        keep_time();
    }
    if (arguments.verbose) {
        progress.total();
    }
    return interrupted != 0 ? 128 + interrupted : broken ? 3 : 0;
}

/* ---- What to wait for -------------------------------------------------------------------------------------------- */

bool Relay::wants_input() const
{
    return !sending_over && !input_ended && peer_known && out.empty();
}

bool Relay::wants_send() const
{
    return !sending_over && !out.empty() && now >= not_before;
}

bool Relay::wants_receive() const
{
    return !peer_ended && in.size() < in_limit;
}

/* The peer has ended, and whether there is more input is not known. */
bool Relay::only_input_left() const
{
    return peer_ended && wants_input() && !arguments.send_only;
}

/* SCTP ends for both at once. Who has sent something does it; who has not leaves it to a peer that may yet send. */
bool Relay::ends_association() const
{
    return sctp && !sending_over && input_ended && out.empty() && (sent_any || !(arguments.listen || received_any));
}

bool Relay::ended() const
{
    return sending_over && (peer_ended || (arguments.send_only && !sctp)) && in.empty();
}

/* The peer's system has confirmed all that was sent: a reset in between would else be nobody's failure. */
bool Relay::delivered()
{
    if (arguments.transport != Transport::Tcp && !sctp) {
        return true;
    }
    if (broken || interrupted != 0) {
        return true;
    }
    if (sctp) {
        return !sctp->unconfirmed();
    }
    int error = 0;
    socklen_t length = sizeof(error);
    if (kel_getsockopt(sockfd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error != 0) {
        broke(error);
        return true;
    }
    int unconfirmed = 0;
    return ioctl((int)sockfd, SIOCOUTQ, &unconfirmed) != 0 || unconfirmed == 0; /* the module has no call for it */
}

/* Seconds until something is due without an event; negative: nothing is. */
double Relay::next_event() const
{
    double next = HUGE_VAL;
    if (!sending_over && !out.empty() && now < not_before) {
        next = not_before;
    }
    if (only_input_left()) {
        next = std::min(next, quiet_since + input_patience);
    }
    if (ends_association()) {
        next = std::min(next, quiet_since + input_patience);
    }
    if (sctp && sctp->paths.due() >= 0) {
        next = std::min(next, sctp->paths.due());
    }
    if (ended() || (sctp && sctp->ending && !peer_ended)) {
        next = std::min(next, now + 5 * nap); /* delivered() is asked again */
    }
    if (arguments.idle != 0 && !(sending_over && peer_ended)) {
        next = std::min(next, last_traffic + arguments.idle);
    }
    if (progress.due() != 0) {
        next = std::min(next, progress.due());
    }
    return next == HUGE_VAL ? -1 : std::max(next - now, 0.0);
}

void Relay::keep_time()
{
    if (only_input_left() && (typed || now - quiet_since >= input_patience)) {
        end_input();
    }
    if (sctp && sctp->ending && wants_receive()) {
        receive();
    }
    if (input_ended && out.empty() && !sending_over && may_end_sending()) {
        end_sending();
    }
    if (arguments.idle != 0 && now - last_traffic >= arguments.idle && !(sending_over && peer_ended)) {
        if (!out.empty() || !delivered()) {
            fail("%s took no data for %g s", arguments.endpoint.c_str(), arguments.idle);
        }
        stop();
    }
    if (sctp && sctp->paths.due() >= 0 && now >= sctp->paths.due()) {
        sctp->paths.look(now);
    }
    progress.show(now);
}

/* ---- Standard input to the endpoint ------------------------------------------------------------------------------ */

void Relay::read_input()
{
    std::string text(arguments.size, '\0');
    ssize_t length = read(STDIN_FILENO, &text[0], text.size());
    if (length > 0) {
        last_traffic = quiet_since = now;
        progress.input((uint64_t)length);
        text.resize((size_t)length);
        take_input(text);
    } else if (length == 0) {
        end_input();
    } else if (errno != EAGAIN && errno != EINTR) {
        fail("cannot read standard input: %s", strerror(errno));
        stop();
    }
}

void Relay::take_input(const std::string &text)
{
    if (arguments.transport != Transport::Packet) {
        out.push_back(text);
    } else if (!arguments.raw) {
        if (!frames.take(text, &out)) {
            fail("%s", frames.error().c_str());
            input_ended = true; /* the frames in front of it are sent */
        }
    } else {
        frame += text;
        if (frame.size() > frame_limit) {
            fail("standard input is longer than any frame: with --raw all of it is one frame");
            stop();
        }
    }
}

void Relay::end_input()
{
    input_ended = true;
    if (arguments.transport == Transport::Udp || arguments.transport == Transport::UnixDatagram) {
        out.emplace_back();
    } else if (arguments.raw && !frame.empty()) {
        out.push_back(frame);
    } else if (arguments.transport == Transport::Packet && !frames.finish(&out)) {
        fail("%s", frames.error().c_str());
    }
}

/* Of SCTP: the peer has nothing to answer either. */
bool Relay::may_end_sending()
{
    if (!sctp || arguments.send_only) {
        return true;
    }
    if (sctp->unconfirmed()) {
        quiet_since = now;
    }
    return ends_association() && now - quiet_since >= input_patience;
}

/* All that there was to send has been sent. */
void Relay::end_sending()
{
    sending_over = true;
    if (sctp) {
        sctp->shut_down();
    } else if (arguments.stream()) {
        shutdown((int)sockfd, SHUT_WR); /* the module has no call for it */
    } else if (pacing.lost()) {
        fail("datagrams were lost: the receiver's queue was full");
    }
}

/* Whether the datagram in front may go now. */
bool Relay::may_send()
{
    bool end_mark = out.front().empty();
    if (arguments.transport == Transport::UnixDatagram && arguments.listen && peer.un.sun_path[0] == '\0') {
        if (!end_mark) {
            fail("the sender has no path and cannot be answered: give it --local PATH");
        }
        give_up_sending();
        return false;
    }

    switch (pacing.next(peer, now, &not_before)) {
    case Turn::Send:
        return true;
    case Turn::Wait:
        return false;
    case Turn::NobodyListens:
        if (!end_mark || !receiver_may_go()) {
            char text[128] = "";
            fail("nothing listens on udp %s", kel_addr_showstr(&peer, text, sizeof(text)));
        }
        break;
    case Turn::Lost:
        fail("datagrams were lost: the receiver's queue was full");
        break;
    }
    give_up_sending();
    return false;
}

/* Nobody takes the end mark: the receiver has ended first, or had enough (--count); a sender need not wait for one. */
bool Relay::receiver_may_go() const
{
    return peer_ended || sent_any || arguments.listen;
}

/* Nothing can be sent any more. What has been sent to us is still received; to a listener, others may send. */
void Relay::give_up_sending()
{
    sending_over = true;
    out.clear();
    if (!arguments.stream() && !arguments.listen) {
        while (!peer_ended && receive_datagram()) {
        }
        peer_ended = true;
    }
}

LONG Relay::send_front()
{
    const std::string &data = out.front();
    if (sctp) {
        return sctp->send(data) ? (LONG)data.size() : KEL_ERROR;
    }
    if (arguments.transport == Transport::Packet) {
        return kel_raw_sendto(sockfd, arguments.interface.c_str(), data.data(), data.size(), MSG_DONTWAIT);
    }
    if (arguments.listen && !arguments.stream()) {
        return kel_sendto(sockfd, data.data(), data.size(), MSG_DONTWAIT, &peer);
    }
    return kel_send(sockfd, data.data(), data.size(), MSG_DONTWAIT);
}

void Relay::send_some()
{
    if (!arguments.stream() && !may_send()) {
        return;
    }
    LONG sent = send_front();
    if (sent == KEL_ERROR) {
        sending_failed();
        return;
    }

    sent_any = true;
    last_traffic = quiet_since = now;
    progress.sent((uint64_t)sent);
    if (!arguments.stream()) {
        pacing.sent((size_t)sent, now);
    }
    if ((size_t)sent < out.front().size()) {
        out.front().erase(0, (size_t)sent); /* of a stream; a datagram goes whole */
    } else {
        out.pop_front();
    }
}

/* Comes directly after the call that failed: errno is that call's. */
void Relay::sending_failed()
{
    int error = errno;
    if (error == EAGAIN || error == ENOBUFS) {
        /* Of a stream poll tells when there is room; of an unconnected local socket and of an interface, it does not.
         */
        not_before = arguments.stream() ? 0 : now + nap;
        return;
    }
    if (sctp && error == EPIPE) {
        not_before = now + nap; /* how it ended, what has come tells */
        return;
    }
    if (arguments.stream()) {
        broke(error);
    } else if (!out.front().empty() || !receiver_may_go()) {
        fail("cannot send %zu bytes to %s: %s", out.front().size(), arguments.endpoint.c_str(), strerror(error));
    }
    give_up_sending();
}

/* ---- The endpoint to standard output ----------------------------------------------------------------------------- */

void Relay::receive()
{
    if (sctp) {
        receive_message();
    } else if (arguments.stream()) {
        receive_stream();
    } else {
        receive_datagram();
    }
    if (peer_ended) {
        quiet_since = now;
    }
}

void Relay::receive_stream()
{
    received.resize(piece);
    LONG length = kel_recv(sockfd, &received[0], received.size(), MSG_DONTWAIT);
    if (length > 0) {
        received.resize((size_t)length);
        progress.received((uint64_t)length);
        take_data(received);
    } else if (length == 0) {
        peer_ended = true;
    } else if (errno != EAGAIN) {
        broke(errno);
        stop();
    }
}

void Relay::receive_message()
{
    sctp->receive(&received);
    peer_known = peer_known || sctp->up();
    if (!received.empty()) {
        progress.received(received.size());
        take_data(received);
    }
    if (sctp->closed && sctp->error != 0) {
        broke(sctp->error);
        stop();
    } else if (sctp->ending || sctp->closed) {
        end_with_peer();
        peer_ended = sctp->closed;
    }
}

/* The peer ends the association and takes nothing more: what has been read of the input is too late. */
void Relay::end_with_peer()
{
    if (!out.empty()) {
        fail("%s was ended by the peer before all of the input was sent", arguments.endpoint.c_str());
    }
    sending_over = true;
    out.clear();
}

/* false: there is none. */
bool Relay::receive_datagram()
{
    /* Its length first: whatever its size, it is taken whole. */
    kel_sockaddr_t from = {};
    LONG length = kel_recv(sockfd, nullptr, 0, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
    if (length != KEL_ERROR) {
        received.resize((size_t)length);
        length = kel_recvfrom(sockfd, &received[0], received.size(), MSG_DONTWAIT, &from);
    }
    if (length == KEL_ERROR && errno != EAGAIN) {
        if (!broken) {
            broke(errno);
            give_up_sending();
        }
        stop();
    }
    if (length == KEL_ERROR) {
        return false;
    }

    bool packet = arguments.transport == Transport::Packet;
    bool outgoing = packet && from.raw.sll_pkttype == PACKET_OUTGOING;
    if (outgoing && (arguments.raw || !arguments.verbose)) {
        return true;
    }
    if (arguments.listen && (!peer_known || kel_sock_addr_cmp(&from, &peer, KEL_FALSE) != KEL_OK)) {
        peer_known = true;
        peer = from;
        show_address(arguments, "peer", &peer);
    }
    if (length == 0) {
        peer_ended = true;
        return true;
    }
    datagrams++;
    peer_ended = datagrams == arguments.count;
    progress.received((uint64_t)length);
    take_data(packet && !arguments.raw ? frame_text(datagrams, received, outgoing, ntohs(from.raw.sll_protocol))
                                       : received);
    return true;
}

void Relay::take_data(const std::string &data)
{
    received_any = true;
    last_traffic = quiet_since = now;
    if (!arguments.send_only) {
        in += data;
    }
}

void Relay::write_output()
{
    /* A pipe that has room takes this much without waiting. */
    size_t most = output_is_file ? in_limit : PIPE_BUF;
    ssize_t length = write(output, in.data() + in_written, std::min(in.size() - in_written, most));
    if (length < 0 && errno != EAGAIN && errno != EINTR) {
        fail("cannot write to standard output: %s", strerror(errno));
        stop();
        in.clear();
        in_written = 0;
        return;
    }
    in_written += length > 0 ? (size_t)length : 0;
    if (in_written == in.size()) {
        in.clear();
        in_written = 0;
    }
}

/* ---- Ends -------------------------------------------------------------------------------------------------------- */

/* The first failure is the one that is told. */
void Relay::fail(const char *format, ...)
{
    if (!broken) {
        va_list args;
        va_start(args, format);
        say_list(format, args);
        va_end(args);
    }
    broken = true;
}

void Relay::broke(int error)
{
    fail("the transfer with %s broke: %s", arguments.endpoint.c_str(), strerror(error));
}

/* Nothing more is sent or received; what has been received is still written. */
void Relay::stop()
{
    sending_over = true;
    peer_ended = true;
    out.clear();
}

} // namespace

int relay(const Arguments &arguments, const Endpoint &endpoint, int output)
{
    return Relay(arguments, endpoint, output).run();
}
