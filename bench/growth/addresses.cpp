/*
 * What a longer list of addresses costs the SCTP functions that take or give one. An operation's name ends in the
 * number of addresses; the cost is a straight line in it. Needs a kernel with SCTP.
 */
#include "work.h"

#include "kel_sctp.h"
#include "kel_socket.h"

#include <stdio.h>

/* Of the loopback network every address is local. From 101 on all texts are equally long, and so equally dear. */
constexpr int MOST = 64;
constexpr int FIRST = 101;

static CHAR text[MOST][sizeof("127.0.0.000")];
static CHAR *texts[MOST];
static kel_sockaddr_t local[MOST]; /* port 0: the kernel chooses one for all */

template <int Count> static void choose_addresses()
{
    for (int i = 0; i < Count; i++) {
        snprintf(text[i], sizeof(text[i]), "127.0.0.%d", FIRST + i);
        texts[i] = text[i];
        REQUIRE(kel_addr_fill(0, &local[i], KEL_AF_INET, 0, text[i], 0, nullptr) == KEL_OK);
    }
}

static LONG create()
{
    LONG fd = kel_socket(KEL_AF_INET, KEL_SOCK_STREAM, IPPROTO_SCTP);
    REQUIRE(fd != KEL_ERROR);
    return fd;
}

/* ---- Lists alone; a socket binds once, so every bind has one of its own ---- */

template <int Count> static void bindx()
{
    LONG fd = create();
    REQUIRE(kel_sctp_bindx(fd, local, Count, SCTP_BINDX_ADD_ADDR) == KEL_OK);
    kel_close(fd);
}

template <int Count> static void bindx_str()
{
    LONG fd = create();
    REQUIRE(kel_sctp_bindx_str(fd, KEL_AF_INET, 0, texts, Count, SCTP_BINDX_ADD_ADDR) == KEL_OK);
    kel_close(fd);
}

static LONG bound;

template <int Count> static void bind_addresses()
{
    choose_addresses<Count>();
    bound = create();
    REQUIRE(kel_sctp_bindx(bound, local, Count, SCTP_BINDX_ADD_ADDR) == KEL_OK);
}

template <int Count> static void getladdrs()
{
    kel_sockaddr_t *records = nullptr;
    REQUIRE(kel_sctp_getladdrs(bound, 0, &records) == Count);
    kel_sctp_freeladdrs(records);
}

/* ---- Endpoints ---- */

static sctp_initmsg initmsg = {4, 4, 2, 500};

template <int Count> static void server_one2one()
{
    LONG fd = kel_sctp_server_one2one_create(KEL_AF_INET, local, Count, 0, BACKLOG, &initmsg, nullptr);
    REQUIRE(fd != KEL_ERROR);
    kel_close(fd);
}

template <int Count> static void server_one2one_str()
{
    LONG fd = kel_sctp_server_one2one_str_create(KEL_AF_INET, texts, Count, 0, BACKLOG, &initmsg, nullptr);
    REQUIRE(fd != KEL_ERROR);
    kel_close(fd);
}

static kel_sockaddr_t peer[MOST];

/* To a one-to-many server associations come and go without anybody who accepts. */
template <int Count> static void open_server()
{
    kel_sockaddr_t name;
    choose_addresses<Count>();
    LONG fd = kel_sctp_server_one2many_create(KEL_AF_INET, local, Count, 0, BACKLOG, &initmsg, nullptr);
    REQUIRE(fd != KEL_ERROR);
    REQUIRE(kel_getsockname(fd, &name) == KEL_OK);
    for (int i = 0; i < Count; i++) {
        peer[i] = local[i];
        peer[i].sin.sin_port = name.sin.sin_port;
    }
}

template <int Count> static void client_one2one()
{
    sctp_assoc_t association;
    LONG fd = kel_sctp_client_one2one_create(KEL_AF_INET, peer, Count, 0, &initmsg, nullptr, &association);
    REQUIRE(fd != KEL_ERROR);
    kel_close(fd);
}

#define LONGER(name, prepare, count) {#name "_" #count, prepare<count>, repeat<name<count>>}
#define GROWING(name, prepare)                                                                                         \
    LONGER(name, prepare, 1), LONGER(name, prepare, 2), LONGER(name, prepare, 4), LONGER(name, prepare, 8),            \
        LONGER(name, prepare, 16), LONGER(name, prepare, 32), LONGER(name, prepare, 64)

const Operation operations[] = {
    GROWING(bindx, choose_addresses),
    GROWING(bindx_str, choose_addresses),
    GROWING(getladdrs, bind_addresses),
    GROWING(server_one2one, choose_addresses),
    GROWING(server_one2one_str, choose_addresses),
    GROWING(client_one2one, open_server),
    {nullptr, nullptr, nullptr},
};
