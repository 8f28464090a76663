/*
 * SCTP by hand, as who knows libsctp writes it: the module's system calls in the module's order, the options among
 * them. A list of addresses is packed from the start and lies on the stack where it is made in the operation.
 */
#include "sctp_work.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/sctp.h>
#include <stddef.h>
#include <sys/socket.h>
#include <unistd.h>

static const sctp_initmsg initmsg = {STREAMS, STREAMS, ATTEMPTS, ATTEMPT_MILLISECONDS};

/* The ten flags that every kernel with SCTP knows; the header's record has grown since. */
constexpr socklen_t EVENTS_LENGTH = offsetof(sctp_event_subscribe, sctp_stream_reset_event);

static sockaddr *generic(sockaddr_in *records)
{
    return reinterpret_cast<sockaddr *>(records);
}

static int create(int type)
{
    const int on = 1;
    int fd = socket(AF_INET, type, IPPROTO_SCTP);
    REQUIRE(fd >= 0);
    REQUIRE(setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) == 0);
    return fd;
}

static void set_options(int fd)
{
    sctp_event_subscribe events = {};
    events.sctp_data_io_event = 1;
    REQUIRE(setsockopt(fd, SOL_SCTP, SCTP_INITMSG, &initmsg, sizeof(initmsg)) == 0);
    REQUIRE(setsockopt(fd, SOL_SCTP, SCTP_EVENTS, &events, EVENTS_LENGTH) == 0);
}

static int create_server(int type, sockaddr_in *records)
{
    int fd = create(type);
    REQUIRE(sctp_bindx(fd, generic(records), ADDRESSES, SCTP_BINDX_ADD_ADDR) == 0);
    REQUIRE(listen(fd, BACKLOG) == 0);
    set_options(fd);
    return fd;
}

/* Bound to addresses of its own where it is given any. */
static int create_client(sockaddr_in *records, sockaddr_in *own = nullptr)
{
    sctp_assoc_t association;
    int fd = create(SOCK_STREAM);
    if (own != nullptr) {
        REQUIRE(sctp_bindx(fd, generic(own), ADDRESSES, SCTP_BINDX_ADD_ADDR) == 0);
    }
    set_options(fd);
    REQUIRE(sctp_connectx(fd, generic(records), ADDRESSES, &association) == 0);
    return fd;
}

static void fill_records(sockaddr_in *records, in_port_t port)
{
    for (int i = 0; i < ADDRESSES; i++) {
        records[i] = {};
        records[i].sin_family = AF_INET;
        records[i].sin_port = port;
        REQUIRE(inet_pton(AF_INET, ADDRESS_TEXTS[i], &records[i].sin_addr) == 1);
    }
}

/* ---- Endpoints ---- */

static sockaddr_in local[ADDRESSES]; /* port 0: the kernel chooses one for both */

static void choose_local()
{
    fill_records(local, 0);
}

static void sctp_server_one2one()
{
    close(create_server(SOCK_STREAM, local));
}

static void sctp_server_one2many()
{
    close(create_server(SOCK_SEQPACKET, local));
}

static void sctp_server_one2one_str()
{
    sockaddr_in records[ADDRESSES];
    fill_records(records, 0);
    close(create_server(SOCK_STREAM, records));
}

static void sctp_server_one2many_str()
{
    sockaddr_in records[ADDRESSES];
    fill_records(records, 0);
    close(create_server(SOCK_SEQPACKET, records));
}

static int server;
static sockaddr_in peer[ADDRESSES];

static void open_server(int type)
{
    sockaddr_in name;
    socklen_t length = sizeof(name);
    choose_local();
    server = create_server(type, local);
    REQUIRE(getsockname(server, generic(&name), &length) == 0);
    fill_records(peer, name.sin_port);
}

/* To a one-to-many server associations come and go without anybody who accepts. */
static void open_one2many_server()
{
    open_server(SOCK_SEQPACKET);
}

static void sctp_client_one2one()
{
    close(create_client(peer));
}

static void sctp_client_one2one_bind()
{
    close(create_client(peer, local));
}

static void sctp_client_one2one_str()
{
    sockaddr_in records[ADDRESSES];
    fill_records(records, peer[0].sin_port);
    close(create_client(records));
}

static void sctp_client_one2many()
{
    int fd = create(SOCK_SEQPACKET);
    set_options(fd);
    close(fd);
}

static void sctp_client_one2many_bind()
{
    int fd = create(SOCK_SEQPACKET);
    REQUIRE(sctp_bindx(fd, generic(local), ADDRESSES, SCTP_BINDX_ADD_ADDR) == 0);
    set_options(fd);
    close(fd);
}

/* The peer's addresses come with the first message: nobody converts them before. */
static void sctp_client_one2many_str()
{
    sctp_client_one2many();
}

/* ---- Associations ---- */

static int client;
static int accepted;

/* Without a delay: a small message else waits for the receipt of the one before, which comes after 200 ms. */
static void open_association()
{
    const int on = 1;
    open_server(SOCK_STREAM);
    client = create_client(peer);
    REQUIRE(setsockopt(client, SOL_SCTP, SCTP_NODELAY, &on, sizeof(on)) == 0);
    accepted = accept(server, nullptr, nullptr);
    REQUIRE(accepted >= 0);
}

static char message[MESSAGE];

static void sctp_sendmsg_recvmsg()
{
    sockaddr_in from;
    socklen_t length = sizeof(from);
    sctp_sndrcvinfo information;
    int flags = 0; /* read, too: what is in it goes to recvmsg */
    REQUIRE(sctp_sendmsg(client, message, sizeof(message), generic(peer), sizeof(peer[0]), 0, 0, 0, 0, 0) == MESSAGE);
    REQUIRE(sctp_recvmsg(accepted, message, sizeof(message), generic(&from), &length, &information, &flags) == MESSAGE);
}

/* The operation's own name is that of the library's function. */
static void get_peer_addresses()
{
    sockaddr *list;
    REQUIRE(sctp_getpaddrs(client, 0, &list) == ADDRESSES);
    keep(*list);
    sctp_freepaddrs(list);
}

const Operation operations[] = {
    OPERATION(sctp_sendmsg_recvmsg, open_association),
    OPERATION(sctp_server_one2one, choose_local),
    OPERATION(sctp_server_one2many, choose_local),
    OPERATION(sctp_server_one2one_str, nullptr),
    OPERATION(sctp_server_one2many_str, nullptr),
    OPERATION(sctp_client_one2one, open_one2many_server),
    OPERATION(sctp_client_one2one_bind, open_one2many_server),
    OPERATION(sctp_client_one2one_str, open_one2many_server),
    OPERATION(sctp_client_one2many, nullptr),
    OPERATION(sctp_client_one2many_bind, choose_local),
    OPERATION(sctp_client_one2many_str, nullptr),
    {"sctp_getpaddrs", open_association, repeat<get_peer_addresses>},
    {nullptr, nullptr, nullptr},
};
