/*
 * One kind of transport, as the pump sees it. A channel opens its socket, moves bytes between it and the pump's
 * buffers, and knows the one rule by which its transfer ends: it takes back `sending` and `receiving`.
 */
#ifndef KELCAT_CHANNEL_H
#define KELCAT_CHANNEL_H

#include <memory>
#include <sys/stat.h>

#include "options.h"
#include "say.h"

class Channel
{
  public:
    explicit Channel(const Options &given) : sending(!given.recv_only), options(given)
    {
    }
    virtual ~Channel();
    Channel(const Channel &) = delete;
    Channel &operator=(const Channel &) = delete;

    /* 0, or the program's exit status after one sentence. */
    virtual int open() = 0;

    /* Takes bytes from the front of the input, and returns how many. */
    virtual size_t send(const char *bytes, size_t size) = 0;

    /* The input has ended, and all of it has been taken. Called until `sending` is false. */
    virtual void finish() = 0;

    /* Puts what has come into the buffer, which has room for `largest` at least; 0: no data. */
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
    virtual void sum_up() const
    {
    }

    /* The first failure is the one that is told. */
    void fail(const char *format, ...) __attribute__((format(printf, 2, 3)));

    static constexpr size_t largest = 256 << 10;
    static constexpr double nap = 0.001; /* until what poll(2) cannot tell is looked at again */

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
    double begun = never;    /* when the transfer began; by default with the pump */
    bool failed = false;

  protected:
    /* At the first of the addresses where it is possible; of a client within --timeout. As open(). */
    int open_socket();
    virtual LONG listen_at(const Addresses &)
    {
        return KEL_ERROR;
    }
    virtual LONG connect_to(const Addresses &)
    {
        return KEL_ERROR;
    }
    bool more_places = false; /* to try after this one */

    /* Lets one client in, whose socket takes the listening one's place. As open(). */
    int wait_for_client();
    int accept_client();

    /* "cannot WHAT ENDPOINT: WHY"; by itself errno's words. Both return the exit status. */
    int refuse(const char *what, const char *why);
    int cannot(const char *what);
    void broke(int error);

    /* A socket that is connected, or bound to --local, or closed again: then it is KEL_ERROR, and errno stays. */
    LONG bound(LONG socket);
    LONG no_local(LONG socket);
    static LONG connected(LONG socket, kel_sockaddr_t to);
    static LONG given_back(LONG socket);

    /* False, after one sentence: something stands at the path that is not to be replaced. */
    bool claim_file(const std::string &path);

    /* A local socket's file is removed by whoever made it, and only while it is still the same. */
    void made_file(const std::string &path);
    void remove_file();

    void ask_for_receive_buffer(int bytes);

    /* With -v: "listening on", and "peer" of a listener or "connected to ... from ..." of a client. */
    void show_listening(const Addresses &own) const;
    void show_peer(const Addresses &peer, const Addresses &own) const;
    Addresses own_address() const;
    Addresses peer_address() const;

    const Options &options;

  private:
    std::string file; /* empty: none */
    struct stat file_status = {};
};

/* Moves bytes between the standard descriptors and the channel until that is over; returns the exit status. */
int pump(const Options &options, Channel &channel);

std::unique_ptr<Channel> make_stream(const Options &options);
std::unique_ptr<Channel> make_datagram(const Options &options);
std::unique_ptr<Channel> make_packet(const Options &options);
std::unique_ptr<Channel> make_sctp(const Options &options);

/* For --help: when a transfer over each of them is over, beside the code that holds to it. */
extern const char stream_rule[];
extern const char datagram_rule[];
extern const char packet_rule[];
extern const char sctp_rule[];
extern const char frame_format[];

#endif
