/* SCTP endpoints: every constructor, and what comes out of it, on the kernel and over the wire. */
#include "live_sctp.h"

#include <arpa/inet.h>
#include <string.h>

namespace
{

constexpr SHORT no_port = 7; /* where a port is to have no effect */

/* What a constructor is given; each takes of it what it needs. */
struct Call {
    Call(const Inet &inet, const Addresses &servers, const Addresses &own, int server_port)
        : family(inet.family), server(records(inet, servers, server_port)), mine(records(inet, own, 0)), texts(servers),
          count((LONG)servers.size()), port((SHORT)server_port)
    {
    }

    kel_domain_t family;
    std::vector<kel_sockaddr_t> server, mine;
    Addresses texts;
    LONG count;
    SHORT port;
    struct sctp_initmsg initmsg = {10, 10, 2, 500};
    struct sctp_event_subscribe *events = nullptr;
    sctp_assoc_t id = 0;
};

struct Constructor {
    const char *name;
    bool many, wildcard;
    LONG (*open)(Call &);
};

#define BY_RECORDS c.server.data(), c.count, no_port
#define BY_TEXTS array(c.texts).data(), c.count, c.port
#define WITHOUT_A_LIST NULL, 2, c.port
#define SERVER(kind, ...) [](Call &c) { return kel_sctp_server_##kind(c.family, __VA_ARGS__, 5, &c.initmsg, c.events); }
#define CLIENT(kind, list, ...)                                                                                        \
    [](Call &c) { return kel_sctp_client_##kind(c.family, list, &c.initmsg, c.events __VA_ARGS__); }
#define MINE , c.mine.data(), (LONG)c.mine.size()
#define ID , &c.id

constexpr Constructor servers[] = {
    {"one2one_create", false, false, SERVER(one2one_create, BY_RECORDS)},
    {"one2one_create without a list", false, true, SERVER(one2one_create, WITHOUT_A_LIST)},
    {"one2one_str_create", false, false, SERVER(one2one_str_create, BY_TEXTS)},
    {"one2one_str_create without a list", false, true, SERVER(one2one_str_create, WITHOUT_A_LIST)},
    {"one2many_create", true, false, SERVER(one2many_create, BY_RECORDS)},
    {"one2many_str_create", true, false, SERVER(one2many_str_create, BY_TEXTS)},
    {"one2many_str_create without a list", true, true, SERVER(one2many_str_create, WITHOUT_A_LIST)},
};

constexpr Constructor clients[] = {
    {"one2one_create", false, false, CLIENT(one2one_create, BY_RECORDS, ID)},
    {"one2one_create_bind", false, false, CLIENT(one2one_create_bind, BY_RECORDS, ID MINE)},
    {"one2one_str_create", false, false, CLIENT(one2one_str_create, BY_TEXTS, ID)},
    {"one2many_create", true, false, CLIENT(one2many_create, BY_RECORDS, )},
    {"one2many_create_bind", true, false, CLIENT(one2many_create_bind, BY_RECORDS, MINE)},
    {"one2many_str_create", true, false, CLIENT(one2many_str_create, BY_TEXTS, )},
};

/* What a socket reads back as the events that it was given; without any, data_io alone is set. */
struct sctp_event_subscribe rare = {1, 0, 0, 1, 1, 0, 1, 0, 0, 0};
const struct sctp_event_subscribe data_io = {1, 0, 0, 0, 0, 0, 0, 0, 0, 0};

class LiveSctpEndpoints : public LiveSctp
{
  protected:
    Call call(int port = new_port())
    {
        return Call(inet, far, near, port);
    }
    Descriptor open_server(const Constructor &server, Call &call)
    {
        return on(far_host, [&] { return server.open(call); });
    }
    Descriptor open_client(const Constructor &client, Call &call)
    {
        return on(near_host, [&] { return client.open(call); });
    }

    void expect_endpoint(LONG sockfd, const Constructor &constructor, const Call &call)
    {
        expect_socket_of(sockfd, inet.family, constructor.many ? SOCK_SEQPACKET : SOCK_STREAM);
        EXPECT_EQ(option(sockfd, SOL_SOCKET, SO_PROTOCOL), IPPROTO_SCTP);
        auto initmsg = query<struct sctp_initmsg>(sockfd, 0, SCTP_INITMSG);
        EXPECT_EQ(memcmp(&initmsg, &call.initmsg, sizeof(initmsg)), 0);
        auto events = query<struct sctp_event_subscribe>(sockfd, 0, SCTP_EVENTS);
        EXPECT_EQ(memcmp(&events, call.events != nullptr ? call.events : &data_io, sizeof(events)), 0);
    }

    /* A message from client to server and one back, and each side's view of streams and addresses. */
    void expect_conversation(LONG client, const Constructor &from, LONG server, const Constructor &to, int port)
    {
        const std::string there = pattern(3000), back = pattern(2001);

        send_message(client, there, far_records(port)[0], 1, htonl(17));
        const auto near_records = records(inet, near, port_of(client));
        Descriptor connection;
        if (!to.many) {
            kel_sockaddr_t peer;
            connection = accepted(server, &peer);
            expect_one_of(peer, near_records);
        }
        const LONG end = to.many ? server : (LONG)connection;
        Message arrived = expect_message(end, there);
        EXPECT_EQ(arrived.info.sinfo_stream, 1);
        EXPECT_EQ(arrived.info.sinfo_ppid, htonl(17));
        expect_one_of(arrived.from, near_records);

        send_message(end, back, arrived.info.sinfo_assoc_id, 2, htonl(18));
        Message answer = expect_message(client, back);
        EXPECT_EQ(answer.info.sinfo_stream, 2);
        EXPECT_EQ(answer.info.sinfo_ppid, htonl(18));

        const sctp_assoc_t near_id = from.many ? answer.info.sinfo_assoc_id : 0;
        const sctp_assoc_t far_id = to.many ? arrived.info.sinfo_assoc_id : 0;
        auto status = query<struct sctp_status>(client, near_id, SCTP_STATUS);
        EXPECT_EQ(status.sstat_outstrms, 3) << "what both sides agree on";
        EXPECT_EQ(status.sstat_instrms, 4);
        EXPECT_EQ(peers_of(client, near_id), named(far_records(port)));
        EXPECT_EQ(locals_of(client, near_id), named(near_records));
        EXPECT_EQ(peers_of(end, far_id), named(near_records));
        Addresses own = locals_of(end, far_id), expected = named(far_records(port));
        if (to.wildcard) { /* the kernel names what else it has: an accepted IPv6 socket takes IPv4 addresses too */
            EXPECT_TRUE(std::includes(own.begin(), own.end(), expected.begin(), expected.end()));
        } else {
            EXPECT_EQ(own, expected);
        }
    }
};

INSTANTIATE_FOR_IPV4_AND_IPV6(LiveSctpEndpoints);

TEST_P(LiveSctpEndpoints, EveryServerTalksToEveryClient)
{
    bool asks_for_events = false;
    for (const Constructor &server : servers) {
        asks_for_events = !asks_for_events;
        for (const Constructor &client : clients) {
            SCOPED_TRACE(std::string(server.name) + " and " + client.name);
            int port = new_port();
            Call at_server = call(port), at_client = call(port);
            at_server.initmsg.sinit_num_ostreams = 5;
            at_client.initmsg.sinit_num_ostreams = 3;
            at_client.initmsg.sinit_max_instreams = 4;
            asks_for_events = !asks_for_events; /* each of them does with half of the others */
            (asks_for_events ? at_server : at_client).events = &rare;
            Descriptor listener = open_server(server, at_server);
            Descriptor connected = open_client(client, at_client);
            expect_endpoint(listener, server, at_server);
            expect_endpoint(connected, client, at_client);

            expect_conversation(connected, client, listener, server, port);

            EXPECT_EQ(at_client.id != 0, !client.many) << "where an association is set up, its identifier is told";
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST_P(LiveSctpEndpoints, WhatCannotBeMadeLeavesNothing)
{
    Call call(inet, {far[0], inet.elsewhere}, near, new_port()), refused = this->call(), no_text = this->call();
    no_text.texts[1] = "nonsense";
    testing::internal::CaptureStderr(); /* assertions */

    for (const Constructor &server : servers) {
        EXPECT_EQ(open_server(server, call) == KEL_ERROR, !server.wildcard) << server.name;
    }
    for (const Constructor &client : clients) {
        EXPECT_EQ(open_client(client, refused) == KEL_ERROR, !client.many) << client.name;
    }
    for (const Constructor *kind : {&servers[2], &servers[5], &clients[2], &clients[5]}) {
        EXPECT_EQ(open_server(*kind, no_text), KEL_ERROR) << kind->name;
    }
    testing::internal::GetCapturedStderr();
}

/* ---- Ports and addresses ----------------------------------------------------------------------------------------- */

TEST_P(LiveSctpEndpoints, RecordsWithoutAPortHaveTheKernelsChoice)
{
    Call call = this->call(0);
    Descriptor listener = open_server(servers[0], call);

    EXPECT_GT(port_of(listener), 32767);
    EXPECT_EQ(locals_of(listener), named(far_records(port_of(listener))));
}

TEST_P(LiveSctpEndpoints, WildcardServerOffersEveryAddressOfItsOwnFamilyAlone)
{
    const Inet &other = inet.family == KEL_AF_INET ? ipv6() : ipv4();
    for (const Constructor *server : {&servers[1], &servers[3], &servers[6]}) {
        SCOPED_TRACE(server->name);
        int port = new_port();
        Call call = this->call(port), elsewhere(other, addresses_of(other, 1), {}, port);
        Descriptor listener = open_server(*server, call);
        EXPECT_EQ(text_of(name_of(listener)), text_of(record_of(inet, inet.wildcard, port)));

        call.count = 1; /* the client knows one of them, and is told the other */
        Descriptor client = open_client(clients[0], call);

        EXPECT_EQ(peers_of(client), named(far_records(port)));
        EXPECT_EQ(open_client(clients[0], elsewhere), KEL_ERROR);
    }
}

TEST_P(LiveSctpEndpoints, ClientTriesEveryAddressOfThePeer)
{
    int port = new_port();
    Call at_server = call(port), at_client(inet, {inet.elsewhere, far[1]}, near, port);
    Descriptor listener = open_server(servers[0], at_server);

    EXPECT_NE(open_client(clients[0], at_client), KEL_ERROR) << "the first address is of no host";
}

/* From its records if it can, and if it has any. */
TEST_P(LiveSctpEndpoints, ClientBindsItsRecords)
{
    for (const Constructor *client : {&clients[1], &clients[4]}) {
        SCOPED_TRACE(client->name);
        Call call = this->call();
        Descriptor listener = open_server(servers[0], call);
        const auto mine = records(inet, {near[1]}, new_port());

        for (const auto &own : {mine, records(inet, {inet.elsewhere}, 0), {}}) {
            call.mine = own;
            Descriptor connected = open_client(*client, call);
            send_message(connected, "where from?", call.server[0]);
            Descriptor server = accepted(listener);
            expect_message(server, "where from?");
            const auto all = records(inet, near, port_of(connected));
            EXPECT_EQ(peers_of(server), named(own.empty() || text_of(own[0]) != text_of(mine[0]) ? all : mine));
            EXPECT_EQ(peers_of(server), locals_of(connected));
        }
    }
}

TEST_P(LiveSctpEndpoints, OneToManyClientIsMadeWithoutItsPeer)
{
    Call call(inet, {inet.elsewhere, inet.elsewhere}, near, new_port());
    for (const Constructor *client : {&clients[3], &clients[4], &clients[5]}) {
        SCOPED_TRACE(client->name);
        Descriptor made = open_client(*client, call);
        EXPECT_NE(made, KEL_ERROR);
        EXPECT_EQ(option(made, SOL_SCTP, SCTP_GET_ASSOC_NUMBER), 0);
    }
}

} // namespace
