/* What the SCTP tests share: two hosts with two paths between them, associations, messages, and captures. */
#ifndef TESTS_LIVE_SCTP_H
#define TESTS_LIVE_SCTP_H

#include <functional>
#include <string.h>

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

    void cut(int path, Manner manner); /* it carries nothing until it is restored */
    void restore(int path, Manner manner);
    void cut_all();
    void set(const std::string &name, int value); /* a number under /proc/sys, on both hosts */

    const Namespace near, far;
    bool altered = false; /* it may not be as it was made */

  private:
    const Interface ends[2][2]; /* of each path, the near one and the far one */

    void carry(int path, Manner manner, bool all);
};

/* A host's addresses on the two paths: of the near one, 0, or the far one, 1. */
using Addresses = std::vector<std::string>;
const Addresses &addresses_of(const Inet &inet, int side);

/* Whoever opens a descriptor does so on one host; it stays there. */
Descriptor on(const Namespace &host, const std::function<LONG()> &open);

/* A port of no test before. */
int new_port();

/* What a host sends and receives from or to a port, as tcpdump sees it. */
class Capture
{
  public:
    Capture(const Namespace &where, int port);

    /* A piece of data on its way, and where it went. */
    struct Chunk {
        std::string address, port, stream, ppid; /* as tcpdump writes them */
    };

    std::vector<Chunk> data(); /* waits for the end of an association, and ends the capture */

  private:
    Peer tcpdump;
};

/* ---- Addresses --------------------------------------------------------------------------------------------------- */

std::vector<kel_sockaddr_t> records(const Inet &inet, const Addresses &addresses, int port);

/* Texts as the module takes them. */
std::vector<CHAR *> array(Addresses &texts);

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

/* An option of an association, which is read and set without a failure. */
template <typename Record> Record query(LONG sockfd, sctp_assoc_t id, int opt, Record record = {})
{
    socklen_t size = sizeof(record);
    EXPECT_EQ(kel_sctp_opt_info(sockfd, id, opt, &record, &size), 0) << strerror(errno);
    EXPECT_EQ(size, sizeof(record));
    return record;
}
template <typename Record> void set(LONG sockfd, int name, const Record &record, int level = SOL_SCTP)
{
    EXPECT_EQ(kel_setsockopt(sockfd, level, name, &record, sizeof(record)), 0) << strerror(errno);
}
void reset_when_closed(LONG sockfd);

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

/* The next one tells that an association has come into this state. */
struct sctp_assoc_change expect_change(LONG sockfd, int state);

void send_message(LONG sockfd, const std::string &data, const kel_sockaddr_t &to, int stream = 0, uint32_t ppid = 0);
void send_message(LONG sockfd, const std::string &data, sctp_assoc_t id, int stream = 0, uint32_t ppid = 0);
Message expect_message(LONG sockfd, const std::string &data);

/* ---- Associations ------------------------------------------------------------------------------------------------ */

/* One to one: from a client on the near host to a server on the far one, over both paths. */
struct OneToOne {
    Descriptor listener, client, server;
    std::vector<kel_sockaddr_t> peers; /* the server's */
    sctp_assoc_t id;                   /* the client's */
};

/* One to many: either socket may have more associations than this one, which the client set up. */
struct OneToMany {
    Descriptor client, server;
    std::vector<kel_sockaddr_t> peers;
    sctp_assoc_t client_id, server_id;
};

/* One test: nothing stays allocated, nor do descriptors stay open. The network is that of the test before, unless that
 * has altered it or failed. */
class LiveSctp : public LiveInet
{
  protected:
    LiveSctp();
    ~LiveSctp() override;
    void SetUp() override;
    void TearDown() override;

    Network &network;
    const Namespace &near_host = network.near, &far_host = network.far;
    const Addresses near = addresses_of(inet, 0), far = addresses_of(inet, 1);
    struct sctp_initmsg ten = streams(10, 10);

    std::vector<kel_sockaddr_t> far_records(int port)
    {
        return records(inet, far, port);
    }

    using Events = struct sctp_event_subscribe *;
    Descriptor one2one_server(int port, Events events = nullptr);
    Descriptor one2one_client(int port, Events events = nullptr, sctp_assoc_t *id = nullptr);
    Descriptor one2many_server(int port, Events events = nullptr);
    Descriptor one2many_client(Events events = nullptr);
    OneToOne one2one(Events client_events = nullptr, Events server_events = nullptr, int port = new_port());
    OneToMany one2many();

  private:
    long allocated_before = 0;
};

#endif
