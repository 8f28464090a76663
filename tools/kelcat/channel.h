/*
 * One kind of transport, as the pump sees it. A channel opens its socket, moves bytes between it and the pump's
 * buffers, and knows the one rule by which its transfer ends: it says so by taking back `sending` and `receiving`.
 */
#ifndef KELCAT_CHANNEL_H
#define KELCAT_CHANNEL_H

#include <memory>

#include "options.h"
#include "say.h"

const double never = 1e18;

class Channel
{
  public:
    explicit Channel(const Options &given);
    virtual ~Channel();
    Channel(const Channel &) = delete;
    Channel &operator=(const Channel &) = delete;

    /* 0, or the program's exit status after one sentence. */
    virtual int open() = 0;

    /* Takes bytes from the front of the input, and returns how many: less than all where there is no more room. */
    virtual size_t send(const char *bytes, size_t size) = 0;

    /* The input has ended, and all of it has been taken. Called until `sending` is false. */
    virtual void finish() = 0;

    /* Puts what has come into the buffer, which has room for `largest` at least; 0: nothing, or no data. */
    virtual size_t receive(char *buffer, size_t room) = 0;

    /* At `wake`, and when something has happened. */
    virtual void tick()
    {
    }

    /* What the peer's system has not confirmed yet: a reset in between would else be nobody's failure. */
    virtual size_t unconfirmed()
    {
        return 0;
    }

    /* What -v says in the end. */
    virtual void sum_up()
    {
    }

    /* The first failure is the one that is told. */
    void fail(const char *format, ...) __attribute__((format(printf, 2, 3)));
    void broke(int error);

    static const size_t largest = 256 << 10;

    LONG sockfd = KEL_ERROR;
    size_t unit = 1;         /* bytes that are sent as one */
    bool sending;            /* more of the input can be taken, or its end */
    bool receiving = true;   /* more may come */
    bool ready = true;       /* it is known whom to send to */
    bool full = false;       /* poll(2) tells when there is room again */
    bool polled = true;      /* poll(2) tells when something has come; otherwise receive() is called at `wake` */
    bool connection = false; /* the peer's end is seen: before it, silence ends nothing well */
    double not_before = 0;   /* by now_seconds(): until then nothing can be sent */
    double wake = never;     /* likewise: tick() is called then */
    bool failed = false;

  protected:
    /* Comes directly after the call that failed: errno is that call's. Returns the program's exit status. */
    int cannot(const char *what);
    int refuse(const char *what, const char *why);

    /* Tries every address in turn, until attempt has set sockfd. False: errno is that of the last. */
    template <typename Attempt> bool one_of(const std::vector<Addresses> &addresses, Attempt attempt)
    {
        for (size_t i = 0; i < addresses.size() && sockfd == KEL_ERROR && !failed; i++) {
            show_reports(); /* a timeout leaves no time for them */
            attempt(addresses[i]);
        }
        return sockfd != KEL_ERROR;
    }

    /* Closes the socket of an attempt that failed; errno stays. */
    void give_back();

    /* Binds the new socket to --local, if that was given; otherwise one sentence. */
    bool bind_local();

    /* Until a client waits at the listening socket; 0, or the exit status. */
    int wait_for_client();

    /* Lets the one client in, whose socket takes the listening one's place; likewise. */
    int accept_client();

    void ask_for_receive_buffer(int bytes);

    /* With -v: "peer ENDPOINT" of a listener, otherwise "connected to ENDPOINT from ENDPOINT". */
    void show_peer(const Addresses &peer, const Addresses &own) const;
    void show_listening(const Addresses &own) const;
    Addresses own_address() const;
    Addresses peer_address() const;

    const Options &options;
};

std::unique_ptr<Channel> make_stream(const Options &options);
std::unique_ptr<Channel> make_datagram(const Options &options);
std::unique_ptr<Channel> make_packet(const Options &options);
std::unique_ptr<Channel> make_sctp(const Options &options);

/* For --help: when a transfer over each of them is over, each beside the code that holds to it. */
extern const char stream_rule[];
extern const char datagram_rule[];
extern const char packet_rule[];
extern const char sctp_rule[];
extern const char frame_format[];

#endif
