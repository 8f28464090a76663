/* SCTP with the module. */
#include "sctp_work.h"

#include "kel_sctp.h"
#include "kel_socket.h"

static sctp_initmsg initmsg = {STREAMS, STREAMS, ATTEMPTS, ATTEMPT_MILLISECONDS};

static void fill_records(kel_sockaddr_t *records, SHORT port)
{
    for (int i = 0; i < ADDRESSES; i++) {
        REQUIRE(kel_addr_fill(0, &records[i], KEL_AF_INET, port, ADDRESS_TEXTS[i], 0, nullptr) == KEL_OK);
    }
}

/* ---- Endpoints ---- */

static kel_sockaddr_t local[ADDRESSES]; /* port 0: the kernel chooses one for both */

static void choose_local()
{
    fill_records(local, 0);
}

static void sctp_server_one2one()
{
    LONG fd = kel_sctp_server_one2one_create(KEL_AF_INET, local, ADDRESSES, 0, BACKLOG, &initmsg, nullptr);
    REQUIRE(fd != KEL_ERROR);
    kel_close(fd);
}

static void sctp_server_one2many()
{
    LONG fd = kel_sctp_server_one2many_create(KEL_AF_INET, local, ADDRESSES, 0, BACKLOG, &initmsg, nullptr);
    REQUIRE(fd != KEL_ERROR);
    kel_close(fd);
}

static CHAR *texts[ADDRESSES];

static void choose_texts()
{
    for (int i = 0; i < ADDRESSES; i++) {
        texts[i] = const_cast<CHAR *>(ADDRESS_TEXTS[i]);
    }
}

static void sctp_server_one2one_str()
{
    LONG fd = kel_sctp_server_one2one_str_create(KEL_AF_INET, texts, ADDRESSES, 0, BACKLOG, &initmsg, nullptr);
    REQUIRE(fd != KEL_ERROR);
    kel_close(fd);
}

static void sctp_server_one2many_str()
{
    LONG fd = kel_sctp_server_one2many_str_create(KEL_AF_INET, texts, ADDRESSES, 0, BACKLOG, &initmsg, nullptr);
    REQUIRE(fd != KEL_ERROR);
    kel_close(fd);
}

static kel_sockaddr_t peer[ADDRESSES];
static SHORT port;

static void find_server(LONG fd)
{
    kel_sockaddr_t name;
    REQUIRE(fd != KEL_ERROR);
    REQUIRE(kel_getsockname(fd, &name) == KEL_OK);
    port = (SHORT)ntohs(name.sin.sin_port);
    fill_records(peer, port);
}

/* To a one-to-many server associations come and go without anybody who accepts. */
static void open_one2many_server()
{
    choose_local();
    choose_texts();
    find_server(kel_sctp_server_one2many_create(KEL_AF_INET, local, ADDRESSES, 0, BACKLOG, &initmsg, nullptr));
}

static void sctp_client_one2one()
{
    sctp_assoc_t association;
    LONG fd = kel_sctp_client_one2one_create(KEL_AF_INET, peer, ADDRESSES, 0, &initmsg, nullptr, &association);
    REQUIRE(fd != KEL_ERROR);
    kel_close(fd);
}

static void sctp_client_one2one_bind()
{
    sctp_assoc_t association;
    LONG fd = kel_sctp_client_one2one_create_bind(KEL_AF_INET, peer, ADDRESSES, 0, &initmsg, nullptr, &association,
                                                  local, ADDRESSES);
    REQUIRE(fd != KEL_ERROR);
    kel_close(fd);
}

static void sctp_client_one2one_str()
{
    sctp_assoc_t association;
    LONG fd = kel_sctp_client_one2one_str_create(KEL_AF_INET, texts, ADDRESSES, port, &initmsg, nullptr, &association);
    REQUIRE(fd != KEL_ERROR);
    kel_close(fd);
}

static void sctp_client_one2many()
{
    LONG fd = kel_sctp_client_one2many_create(KEL_AF_INET, local, ADDRESSES, 0, &initmsg, nullptr);
    REQUIRE(fd != KEL_ERROR);
    kel_close(fd);
}

static void sctp_client_one2many_bind()
{
    LONG fd =
        kel_sctp_client_one2many_create_bind(KEL_AF_INET, local, ADDRESSES, 0, &initmsg, nullptr, local, ADDRESSES);
    REQUIRE(fd != KEL_ERROR);
    kel_close(fd);
}

static void sctp_client_one2many_str()
{
    LONG fd = kel_sctp_client_one2many_str_create(KEL_AF_INET, texts, ADDRESSES, 0, &initmsg, nullptr);
    REQUIRE(fd != KEL_ERROR);
    kel_close(fd);
}

/* ---- Associations ---- */

static LONG client;
static LONG accepted;

/* Without a delay: a small message else waits for the receipt of the one before, which comes after 200 ms. */
static void open_association()
{
    const int on = 1;
    sctp_assoc_t association;
    kel_sockaddr_t from;
    choose_local();
    LONG server = kel_sctp_server_one2one_create(KEL_AF_INET, local, ADDRESSES, 0, BACKLOG, &initmsg, nullptr);
    find_server(server);
    client = kel_sctp_client_one2one_create(KEL_AF_INET, peer, ADDRESSES, 0, &initmsg, nullptr, &association);
    REQUIRE(client != KEL_ERROR);
    REQUIRE(kel_setsockopt(client, SOL_SCTP, SCTP_NODELAY, &on, sizeof(on)) == 0);
    accepted = kel_accept(server, &from);
    REQUIRE(accepted != KEL_ERROR);
}

static char message[MESSAGE];

static void sctp_sendmsg_recvmsg()
{
    kel_sockaddr_t from;
    sctp_sndrcvinfo information;
    LONG flags;
    REQUIRE(kel_sctp_sendmsg(client, message, sizeof(message), peer, 0, 0, 0, 0, 0) == MESSAGE);
    REQUIRE(kel_sctp_recvmsg(accepted, message, sizeof(message), &from, &information, &flags) == MESSAGE);
}

static void sctp_getpaddrs()
{
    kel_sockaddr_t *records = nullptr;
    REQUIRE(kel_sctp_getpaddrs(client, 0, &records) == ADDRESSES);
    keep(*records);
    kel_sctp_freepaddrs(records);
}

const Operation operations[] = {
    OPERATION(sctp_sendmsg_recvmsg, open_association),
    OPERATION(sctp_server_one2one, choose_local),
    OPERATION(sctp_server_one2many, choose_local),
    OPERATION(sctp_server_one2one_str, choose_texts),
    OPERATION(sctp_server_one2many_str, choose_texts),
    OPERATION(sctp_client_one2one, open_one2many_server),
    OPERATION(sctp_client_one2one_bind, open_one2many_server),
    OPERATION(sctp_client_one2one_str, open_one2many_server),
    OPERATION(sctp_client_one2many, nullptr),
    OPERATION(sctp_client_one2many_bind, choose_local),
    OPERATION(sctp_client_one2many_str, choose_texts),
    OPERATION(sctp_getpaddrs, open_association),
    {nullptr, nullptr, nullptr},
};
