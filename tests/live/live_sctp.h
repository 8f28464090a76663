/* What the SCTP tests share: two hosts with two paths between them, associations, messages, and captures. */
#ifndef TESTS_LIVE_SCTP_H
#define TESTS_LIVE_SCTP_H

#include <functional>

#include "kel_sctp.h"
#include "live.h"

/* ---- Network ----------------------------------------------------------------------------------------------------- */

/* Two hosts, near and far, and two paths between them: wires with an interface path0 or path1 at either end, which has
 * one address of either IP family. */
class Network
{
  public:
    enum Manner { link_down, total_loss };

    Network();

    /* The path carries nothing until it is restored. */
    void cut(int path, Manner manner);
    void restore(int path, Manner manner);

    void set(const std::string &name, int value); /* a number under /proc/sys, on both hosts */

    const Namespace near, far;

  private:
    const Interface ends[2][2]; /* of each path, the near one and the far one */

    void carry(int path, Manner manner, bool all);
};

/* A host's addresses on the two paths. */
using Addresses = std::vector<std::string>;
Addresses near_addresses(const Inet &inet);
Addresses far_addresses(const Inet &inet);

/* Whoever opens a descriptor does so on one host; it stays there. */
Descriptor on(const Namespace &host, const std::function<LONG()> &open);

/* A port of no test before. */
int new_port();

/* What a host sends and receives on all its interfaces, as tcpdump sees it. */
class Capture
{
  public:
    explicit Capture(const Namespace &where);

    /* A piece of data on its way, and where it went. */
    struct Chunk {
        std::string address, port, stream, ppid; /* as tcpdump writes them */
    };

    /* Waits for a packet with this text, which has to come, and ends the capture. */
    std::vector<Chunk> data_until(const std::string &last);

  private:
    Peer tcpdump;
};

/* ---- Addresses --------------------------------------------------------------------------------------------------- */

std::vector<kel_sockaddr_t> records(const Inet &inet, const Addresses &addresses, int port);

/* An array of texts as the module takes it. */
class Texts
{
  public:
    explicit Texts(Addresses addresses);
    Texts(const Texts &) = delete;
    Texts &operator=(const Texts &) = delete;

    CHAR **array()
    {
        return pointers.data();
    }
    LONG count() const
    {
        return (LONG)texts.size();
    }

  private:
    Addresses texts;
    std::vector<CHAR *> pointers;
};

/* Lists of addresses as sorted texts, which are compared with each other. */
Addresses named(const std::vector<kel_sockaddr_t> &records);

/* Which of a host's addresses a packet comes from is the kernel's choice: on a machine that stalls it sends again, over
 * another path, and calls that one the primary. */
void expect_one_of(const kel_sockaddr_t &address, const std::vector<kel_sockaddr_t> &records);

Addresses peers_of(LONG sockfd, sctp_assoc_t id = 0);
Addresses locals_of(LONG sockfd, sctp_assoc_t id = 0);

/* ---- Options ----------------------------------------------------------------------------------------------------- */

struct sctp_initmsg streams(int out, int in);
struct sctp_event_subscribe subscription(std::initializer_list<uint8_t sctp_event_subscribe::*> flags);
std::string flags_of(const struct sctp_event_subscribe &events); /* ten digits */
std::string events_of(LONG sockfd);                              /* what the kernel keeps */

/* An option of an association, which is read without a failure. */
template <typename Record> Record query(LONG sockfd, sctp_assoc_t id, int opt, Record record = {})
{
    socklen_t size = sizeof(record);
    EXPECT_EQ(kel_sctp_opt_info(sockfd, id, opt, &record, &size), 0) << strerror(errno);
    EXPECT_EQ(size, sizeof(record));
    return record;
}

struct sctp_paddrinfo path_of(LONG sockfd, sctp_assoc_t id, const kel_sockaddr_t &address);
std::string text_of(const struct sockaddr_storage &address);

/* ---- Messages ---------------------------------------------------------------------------------------------------- */

struct Message {
    std::string data;
    LONG flags;
    struct sctp_sndrcvinfo info; /* 0xee in every byte that nobody filled */
    kel_sockaddr_t from;
};

/* The next message or notification, with a limit of time; it has to be complete. */
Message next(LONG sockfd);

/* The next one is this notification, and what it says. */
template <typename Record> Record next_event(LONG sockfd, int type)
{
    Message message = next(sockfd);
    Record record = {};
    EXPECT_NE(message.flags & MSG_NOTIFICATION, 0) << "a message of " << message.data.size() << " bytes";
    EXPECT_GE(message.data.size(), sizeof(record));
    memcpy(&record, message.data.data(), std::min(sizeof(record), message.data.size()));
    uint16_t found;
    memcpy(&found, &record, sizeof(found));
    EXPECT_EQ(found, type);
    return record;
}

void send_message(LONG sockfd, const std::string &data, const kel_sockaddr_t &to, int stream = 0, uint32_t ppid = 0);
void send_message(LONG sockfd, const std::string &data, sctp_assoc_t id, int stream = 0, uint32_t ppid = 0);
void expect_message(LONG sockfd, const std::string &data);

/* Numbered messages on one stream, of a thousand bytes each, compared as they arrive. */
class Transfer
{
  public:
    Transfer(LONG sender, LONG receiver) : from(sender), to(receiver)
    {
    }

    void fill(uint32_t ppid, size_t limit); /* until the kernel takes no more, or that many have been sent */
    void drain();                           /* until all that were sent have arrived */
    size_t sent() const
    {
        return next_sent;
    }

  private:
    LONG from, to;
    size_t next_sent = 0, next_arrived = 0;
};

/* ---- Associations ------------------------------------------------------------------------------------------------ */

/* One to one: from a client on the near host to a server on the far one, over both paths. */
struct OneToOne {
    Descriptor listener, client, server;
    int port;
    sctp_assoc_t id; /* the client's */
};

/* One to many: either socket may have more associations than this one, which the client set up. */
struct OneToMany {
    Descriptor client, server;
    int port;
    sctp_assoc_t client_id, server_id;
};

/* One test: nothing stays allocated, nor do descriptors stay open. */
class LiveSctp : public LiveInet
{
  protected:
    void SetUp() override;
    void TearDown() override;

    const Inet &inet = GetParam();
    const Addresses near = near_addresses(inet), far = far_addresses(inet);
    Network network;
    const Namespace &near_host = network.near, &far_host = network.far;

    std::vector<kel_sockaddr_t> far_records(int port)
    {
        return records(inet, far, port);
    }

    using Events = const struct sctp_event_subscribe *;
    Descriptor one2one_server(int port, Events events = nullptr);
    Descriptor one2one_client(int port, Events events = nullptr, sctp_assoc_t *id = nullptr);
    Descriptor one2many_server(int port, Events events = nullptr);
    Descriptor one2many_client(Events events = nullptr);
    OneToOne one2one(Events client_events = nullptr, Events server_events = nullptr);
    OneToMany one2many();

  private:
    long allocated_before = 0;
};

/* Blocks of tc_malloc() that tc_free() has not had yet. */
long allocated();

/* A call that fails, and exactly these texts on the console, each without colour, function and line. */
void expect_failure(const std::function<LONG()> &call, const std::vector<std::string> &reports);
void expect_reports(const Reports &shown, const std::vector<std::string> &reports);

#endif
