/* SCTP endpoints: every constructor, and what comes out of it, on the kernel and over the wire. */
#include "live_sctp.h"

#include <algorithm>
#include <arpa/inet.h>
#include <string.h>

#include "host.h"

namespace
{

constexpr SHORT no_port = 7; /* where a port is to have no effect */

/* What a constructor is given; each takes of it what it needs. */
struct Call {
    Call(const Inet &inet, const Addresses &servers, const Addresses &own, int server_port)
        : family(inet.family), server(records(inet, servers, server_port)), mine(records(inet, own, 0)), texts(servers),
          port((SHORT)server_port)
    {
    }

    kel_domain_t family;
    std::vector<kel_sockaddr_t> server, mine;
    Texts texts;
    SHORT port;
    LONG backlog = 5;
    struct sctp_initmsg initmsg = streams(10, 10);
    struct sctp_event_subscribe *events = nullptr;
    sctp_assoc_t id = 0;
};

struct Constructor {
    const char *name;
    bool many, wildcard;
    LONG (*open)(Call &);
};

constexpr Constructor servers[] = {
    {"one2one_create", false, false,
     [](Call &c) {
         return kel_sctp_server_one2one_create(c.family, c.server.data(), (LONG)c.server.size(), no_port, c.backlog,
                                               &c.initmsg, c.events);
     }},
    {"one2one_create without a list", false, true,
     [](Call &c) {
         return kel_sctp_server_one2one_create(c.family, NULL, 2, c.port, c.backlog, &c.initmsg, c.events);
     }},
    {"one2one_str_create", false, false,
     [](Call &c) {
         return kel_sctp_server_one2one_str_create(c.family, c.texts.array(), c.texts.count(), c.port, c.backlog,
                                                   &c.initmsg, c.events);
     }},
    {"one2one_str_create without a list", false, true,
     [](Call &c) {
         return kel_sctp_server_one2one_str_create(c.family, NULL, 2, c.port, c.backlog, &c.initmsg, c.events);
     }},
    {"one2many_create", true, false,
     [](Call &c) {
         return kel_sctp_server_one2many_create(c.family, c.server.data(), (LONG)c.server.size(), no_port, c.backlog,
                                                &c.initmsg, c.events);
     }},
    {"one2many_str_create", true, false,
     [](Call &c) {
         return kel_sctp_server_one2many_str_create(c.family, c.texts.array(), c.texts.count(), c.port, c.backlog,
                                                    &c.initmsg, c.events);
     }},
    {"one2many_str_create without a list", true, true,
     [](Call &c) {
         return kel_sctp_server_one2many_str_create(c.family, NULL, 2, c.port, c.backlog, &c.initmsg, c.events);
     }},
};

constexpr Constructor clients[] = {
    {"one2one_create", false, false,
     [](Call &c) {
         return kel_sctp_client_one2one_create(c.family, c.server.data(), (LONG)c.server.size(), no_port, &c.initmsg,
                                               c.events, &c.id);
     }},
    {"one2one_create_bind", false, false,
     [](Call &c) {
         return kel_sctp_client_one2one_create_bind(c.family, c.server.data(), (LONG)c.server.size(), no_port,
                                                    &c.initmsg, c.events, &c.id, c.mine.data(), (LONG)c.mine.size());
     }},
    {"one2one_str_create", false, false,
     [](Call &c) {
         return kel_sctp_client_one2one_str_create(c.family, c.texts.array(), c.texts.count(), c.port, &c.initmsg,
                                                   c.events, &c.id);
     }},
    {"one2many_create", true, false,
     [](Call &c) {
         return kel_sctp_client_one2many_create(c.family, c.server.data(), (LONG)c.server.size(), no_port, &c.initmsg,
                                                c.events);
     }},
    {"one2many_create_bind", true, false,
     [](Call &c) {
         return kel_sctp_client_one2many_create_bind(c.family, c.server.data(), (LONG)c.server.size(), no_port,
                                                     &c.initmsg, c.events, c.mine.data(), (LONG)c.mine.size());
     }},
    {"one2many_str_create", true, false,
     [](Call &c) {
         return kel_sctp_client_one2many_str_create(c.family, c.texts.array(), c.texts.count(), no_port, &c.initmsg,
                                                    c.events);
     }},
};

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
    void expect_endpoint(LONG sockfd, const Constructor &constructor)
    {
        expect_socket_of(sockfd, inet.family, constructor.many ? SOCK_SEQPACKET : SOCK_STREAM);
        EXPECT_EQ(option(sockfd, SOL_SOCKET, SO_PROTOCOL), IPPROTO_SCTP);
    }

    /* A message from client to server and one back, and each side's view of all the addresses. */
    void expect_conversation(LONG client, const Constructor &from, LONG server, const Constructor &to, int port)
    {
        const std::string there = pattern(3000), back = pattern(2001);
        const kel_sockaddr_t first = far_records(port)[0];

        send_message(client, there, first, 1, htonl(17));
        Descriptor connection;
        if (!to.many) {
            kel_sockaddr_t peer;
            connection = accepted(server, &peer);
            expect_one_of(peer, records(inet, near, port_of(client)));
        }
        const LONG end = to.many ? server : (LONG)connection;
        Message arrived = next(end);
        expect_same(arrived.data, there);
        EXPECT_EQ(arrived.info.sinfo_stream, 1);
        EXPECT_EQ(arrived.info.sinfo_ppid, htonl(17));
        expect_one_of(arrived.from, records(inet, near, port_of(client)));

        sctp_assoc_t far_id = arrived.info.sinfo_assoc_id;
        send_message(end, back, far_id, 2, htonl(18));
        Message answer = next(client);
        expect_same(answer.data, back);
        EXPECT_EQ(answer.info.sinfo_stream, 2);
        EXPECT_EQ(answer.info.sinfo_ppid, htonl(18));

        sctp_assoc_t near_id = from.many ? answer.info.sinfo_assoc_id : 0;
        EXPECT_EQ(peers_of(client, near_id), named(far_records(port)));
        EXPECT_EQ(locals_of(client, near_id), named(records(inet, near, port_of(client))));
        EXPECT_EQ(peers_of(end, to.many ? far_id : 0), named(records(inet, near, port_of(client))));
        Addresses own = locals_of(end, to.many ? far_id : 0), expected = named(far_records(port));
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
    ULONG assertions = host_assertions();
    for (const Constructor &server : servers) {
        for (const Constructor &client : clients) {
            SCOPED_TRACE(std::string(server.name) + " and " + client.name);
            int port = new_port();
            Call at_server = call(port), at_client = call(port);
            Descriptor listener = open_server(server, at_server);
            Descriptor connected = open_client(client, at_client);
            expect_endpoint(listener, server);
            expect_endpoint(connected, client);

            expect_conversation(connected, client, listener, server, port);

            EXPECT_EQ(at_client.id != 0, !client.many) << "where an association is set up, its identifier is told";
            EXPECT_EQ(host_assertions(), assertions);
            ASSERT_FALSE(HasFailure());
        }
    }
}

/* ---- What cannot be made ----------------------------------------------------------------------------------------- */

TEST_P(LiveSctpEndpoints, ServerOnAnAddressOfAnotherHostReportsAndLeavesNothingOpen)
{
    Call call(inet, {far[0], inet.elsewhere}, near, new_port());

    for (const Constructor &server : servers) {
        if (!server.wildcard) {
            SCOPED_TRACE(server.name);
            expect_failure(
                [&] { return open_server(server, call); },
                {"sctp bindx : Cannot assign requested address", "bind sctp socket: Cannot assign requested address"});
        }
    }
}

TEST_P(LiveSctpEndpoints, ServerOnAPortInUseReportsAndLeavesNothingOpen)
{
    Call call = this->call();
    Descriptor first = open_server(servers[0], call);

    for (const Constructor &server : servers) {
        SCOPED_TRACE(server.name);
        expect_failure([&] { return open_server(server, call); },
                       {"sctp bindx : Address already in use", "bind sctp socket: Address already in use"});
    }
}

TEST_P(LiveSctpEndpoints, OneToManyServerWithoutAListReportsAndLeavesNothingOpen)
{
    struct sctp_initmsg initmsg = streams(10, 10);

    expect_failure([&] { return kel_sctp_server_one2many_create(inet.family, NULL, 0, 5000, 5, &initmsg, NULL); },
                   {"addrs is null\r\n", "bind sctp socket: Success"});
}

TEST_P(LiveSctpEndpoints, TextThatIsNoAddressFailsBeforeThereIsASocket)
{
    Call call(inet, far, near, new_port());
    call.texts.array()[1][0] = 'x';

    for (const Constructor *kind : {&servers[2], &servers[5], &clients[2], &clients[5]}) {
        SCOPED_TRACE(kind->name);
        ULONG before = host_assertions();
        expect_failure([&] { return open_server(*kind, call); }, {});
        EXPECT_EQ(host_assertions(), before + 1);
    }
}

TEST_P(LiveSctpEndpoints, FamilyWithoutSctpReportsTheSocket)
{
    Call call = this->call();
    call.family = KEL_AF_UNIX;
    const char *refused = "create sctp socket : Protocol not supported";

    expect_failure([&] { return open_server(servers[0], call); }, {refused});
    expect_failure([&] { return open_client(clients[0], call); }, {refused, refused});
    expect_failure([&] { return open_client(clients[3], call); }, {refused, refused});
    expect_failure([&] { return open_server(servers[4], call); },
                   {"sctp bindx : Bad file descriptor", "bind sctp socket: Bad file descriptor"});
}

TEST_P(LiveSctpEndpoints, RefusedClientReportsThreeTimesAndLeavesNothingOpen)
{
    Call call = this->call();

    for (const Constructor &client : clients) {
        if (!client.many) {
            SCOPED_TRACE(client.name);
            expect_failure([&] { return open_client(client, call); },
                           {"sctp connectx : Connection refused", "sctp_connectx : Connection refused",
                            "create sctp socket : Connection refused"});
        }
    }
}

TEST_P(LiveSctpEndpoints, SilentPeerIsGivenUpAsTheInitMessageSays)
{
    network.cut(0, Network::total_loss);
    network.cut(1, Network::total_loss);
    Call call = this->call();
    call.initmsg.sinit_max_attempts = 2;
    call.initmsg.sinit_max_init_timeo = 100;

    expect_failure([&] { return open_client(clients[0], call); },
                   {"sctp connectx : Connection timed out", "sctp_connectx : Connection timed out",
                    "create sctp socket : Connection timed out"});
}

/* ---- Options ----------------------------------------------------------------------------------------------------- */

/* What an option reads back as, from every constructor: the clients meet a server of the first kind. */
class LiveSctpOptions : public LiveSctpEndpoints
{
  protected:
    void for_every_constructor(const struct sctp_initmsg &initmsg, struct sctp_event_subscribe *events,
                               const std::function<void(LONG)> &look)
    {
        auto look_at = [&](const Constructor &constructor, bool is_server, Call &call) {
            SCOPED_TRACE(std::string(is_server ? "server " : "client ") + constructor.name);
            call.initmsg = initmsg;
            call.events = events;
            Descriptor made = is_server ? open_server(constructor, call) : open_client(constructor, call);
            look(made);
        };

        for (const Constructor &server : servers) {
            Call call = this->call();
            look_at(server, true, call);
        }
        for (const Constructor &client : clients) {
            Call call = this->call();
            Descriptor listener = one2one_server(port_of_record(call.server[0]));
            look_at(client, false, call);
        }
    }

    static int port_of_record(const kel_sockaddr_t &record)
    {
        return ntohs(record.sin.sin_port);
    }
};

INSTANTIATE_FOR_IPV4_AND_IPV6(LiveSctpOptions);

TEST_P(LiveSctpOptions, InitMessageIsTheCallers)
{
    const struct sctp_initmsg initmsg = {3, 4, 2, 500};

    for_every_constructor(initmsg, nullptr, [](LONG sockfd) {
        auto found = query<struct sctp_initmsg>(sockfd, 0, SCTP_INITMSG);
        EXPECT_EQ(found.sinit_num_ostreams, 3);
        EXPECT_EQ(found.sinit_max_instreams, 4);
        EXPECT_EQ(found.sinit_max_attempts, 2);
        EXPECT_EQ(found.sinit_max_init_timeo, 500);
    });
}

TEST_P(LiveSctpOptions, WithoutEventsOnlyDataIoIsSet)
{
    for_every_constructor(streams(10, 10), nullptr, [](LONG sockfd) { EXPECT_EQ(events_of(sockfd), "1000000000"); });
}

TEST_P(LiveSctpOptions, TenZerosAreAppliedAsTheyAre)
{
    auto none = subscription({});

    for_every_constructor(streams(10, 10), &none, [](LONG sockfd) { EXPECT_EQ(events_of(sockfd), "0000000000"); });
}

TEST_P(LiveSctpOptions, EachFlagIsItsOwn)
{
    for (size_t i = 0; i < sizeof(struct sctp_event_subscribe); i++) {
        struct sctp_event_subscribe one = {};
        ((uint8_t *)&one)[i] = 1;
        for_every_constructor(streams(10, 10), &one, [&](LONG sockfd) { EXPECT_EQ(events_of(sockfd), flags_of(one)); });
    }
}

TEST_P(LiveSctpOptions, AssociationHasTheStreamsThatBothSidesAgreeOn)
{
    Call at_server = call(), at_client = call(port_of_record(at_server.server[0]));
    at_server.initmsg = streams(5, 7);
    at_client.initmsg = streams(3, 4);
    Descriptor listener = open_server(servers[0], at_server);

    Descriptor client = open_client(clients[0], at_client);

    Descriptor server = accepted(listener);
    auto near_status = query<struct sctp_status>(client, 0, SCTP_STATUS);
    EXPECT_EQ(near_status.sstat_outstrms, 3);
    EXPECT_EQ(near_status.sstat_instrms, 4);
    auto far_status = query<struct sctp_status>(server, 0, SCTP_STATUS);
    EXPECT_EQ(far_status.sstat_outstrms, 4);
    EXPECT_EQ(far_status.sstat_instrms, 3);
}

TEST_P(LiveSctpOptions, BacklogIsTheCallers)
{
    for (const Constructor *server : {&servers[0], &servers[2]}) {
        for (LONG backlog : {1, 3}) {
            SCOPED_TRACE(std::string(server->name) + " " + std::to_string(backlog));
            Call call = this->call();
            call.backlog = backlog;
            Descriptor listener = open_server(*server, call);
            std::vector<Descriptor> connected;
            for (LONG i = 0; i <= backlog; i++) { /* the kernel takes one more than it was told */
                connected.push_back(open_client(clients[0], call));
                EXPECT_NE(connected.back(), KEL_ERROR);
            }
            EXPECT_EQ(open_client(clients[0], call), KEL_ERROR);
        }
    }
}

/* ---- Ports and addresses ----------------------------------------------------------------------------------------- */

TEST_P(LiveSctpEndpoints, PortOfTheCallHasNoEffectOnRecords)
{
    for (const Constructor *server : {&servers[0], &servers[4]}) {
        SCOPED_TRACE(server->name);
        Call call = this->call(0);

        Descriptor listener = open_server(*server, call);

        int chosen = port_of(listener);
        EXPECT_GT(chosen, 32767) << "the kernel's choice";
        EXPECT_EQ(locals_of(listener), named(far_records(chosen)));
        Descriptor client = one2one_client(chosen);
        EXPECT_EQ(peers_of(client), named(far_records(chosen)));
    }
}

TEST_P(LiveSctpEndpoints, ServerIsReachedThroughItsOwnFamilyAlone)
{
    const Inet &other = inet.family == KEL_AF_INET ? ipv6() : ipv4();
    for (const Constructor *server : {&servers[1], &servers[3], &servers[6]}) {
        SCOPED_TRACE(server->name);
        int port = new_port();
        Call call = this->call(port), elsewhere(other, far_addresses(other), {}, port);
        Descriptor listener = open_server(*server, call);

        EXPECT_EQ(open_client(clients[0], elsewhere), KEL_ERROR);

        EXPECT_NE(open_client(clients[0], call), KEL_ERROR);
    }
}

TEST_P(LiveSctpEndpoints, WildcardServerOffersEveryAddress)
{
    for (const Constructor *server : {&servers[1], &servers[3], &servers[6]}) {
        SCOPED_TRACE(server->name);
        Call call = this->call();
        int port = (int)(uint16_t)call.port;
        Descriptor listener = open_server(*server, call);
        EXPECT_EQ(text_of(name_of(listener)), text_of(record_of(inet, inet.wildcard, port)));

        call.server.resize(1); /* the client knows one of them, and is told the other */
        Descriptor client = open_client(clients[0], call);

        EXPECT_EQ(peers_of(client), named(far_records(port)));
    }
}

TEST_P(LiveSctpEndpoints, ServerOnOneAddressOffersThatOneAlone)
{
    for (const Constructor *server : {&servers[0], &servers[2], &servers[4], &servers[5]}) {
        SCOPED_TRACE(server->name);
        int port = new_port();
        Call call(inet, {far[1]}, near, port);

        Descriptor listener = open_server(*server, call);

        EXPECT_EQ(locals_of(listener), named(records(inet, {far[1]}, port)));
        Descriptor client = open_client(clients[0], call);
        EXPECT_EQ(peers_of(client), named(records(inet, {far[1]}, port)));
    }
}

TEST_P(LiveSctpEndpoints, ClientTriesEveryAddressOfThePeer)
{
    for (const Constructor *client : {&clients[0], &clients[1], &clients[2]}) {
        SCOPED_TRACE(client->name);
        int port = new_port();
        Call at_server = call(port), at_client(inet, {inet.elsewhere, far[1]}, near, port);
        Descriptor listener = open_server(servers[0], at_server);

        Descriptor connected = open_client(*client, at_client);

        EXPECT_NE(connected, KEL_ERROR) << "the first address is of no host";
    }
}

TEST_P(LiveSctpEndpoints, ClientBindsTheAddressesAndThePortOfItsRecords)
{
    for (const Constructor *client : {&clients[1], &clients[4]}) {
        SCOPED_TRACE(client->name);
        Call call = this->call();
        Descriptor listener = open_server(servers[0], call);
        int mine = new_port();
        call.mine = records(inet, {near[1]}, mine);

        Descriptor connected = open_client(*client, call);

        send_message(connected, "where from?", call.server[0]);
        Descriptor server = accepted(listener);
        EXPECT_EQ(peers_of(server), named(records(inet, {near[1]}, mine)));
        EXPECT_EQ(locals_of(connected), named(records(inet, {near[1]}, mine)));
    }
}

TEST_P(LiveSctpEndpoints, ClientGoesOnWhenItsRecordsCannotBeBound)
{
    for (const Constructor *client : {&clients[1], &clients[4]}) {
        SCOPED_TRACE(client->name);
        Call call = this->call();
        Descriptor listener = open_server(servers[0], call);
        call.mine = records(inet, {inet.elsewhere}, 0);
        Descriptor connected;
        {
            Reports shown;
            connected = open_client(*client, call);
            expect_reports(shown, {"sctp bindx : Cannot assign requested address"});
        }

        expect_conversation(connected, *client, listener, servers[0], (uint16_t)call.port);
    }
}

TEST_P(LiveSctpEndpoints, ClientBindsNothingWithoutAListOrACount)
{
    struct sctp_initmsg initmsg = streams(10, 10);
    Call call = this->call();
    Descriptor listener = open_server(servers[0], call);
    std::vector<kel_sockaddr_t> unbindable = records(inet, {inet.elsewhere}, 0);
    const struct {
        kel_sockaddr_t *list;
        LONG count;
    } nothing[] = {{unbindable.data(), 0}, {NULL, 2}, {NULL, 0}};

    for (const auto &mine : nothing) {
        Reports shown;
        Descriptor one = on(near_host, [&] {
            return kel_sctp_client_one2one_create_bind(inet.family, call.server.data(), 2, no_port, &initmsg, NULL,
                                                       &call.id, mine.list, mine.count);
        });
        Descriptor many = on(near_host, [&] {
            return kel_sctp_client_one2many_create_bind(inet.family, call.server.data(), 2, no_port, &initmsg, NULL,
                                                        mine.list, mine.count);
        });
        EXPECT_EQ(peers_of(one), named(call.server));
        EXPECT_EQ(port_of(many), 0) << "not bound";
        expect_reports(shown, {});
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
