/* SCTP association calls: lists, bindx and connectx, messages, peel-off and options, on associations of two paths. */
#include "live_sctp.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <set>
#include <string.h>
#include <valgrind/memcheck.h>

namespace
{

class LiveSctpCalls : public LiveSctp
{
  protected:
    Descriptor socket_on(const Namespace &host, kel_socktype_t type = KEL_SOCK_STREAM)
    {
        return on(host, [&] { return kel_socket(inet.family, type, IPPROTO_SCTP); });
    }
};

INSTANTIATE_FOR_IPV4_AND_IPV6(LiveSctpCalls);

/* ---- Lists ------------------------------------------------------------------------------------------------------- */

TEST_P(LiveSctpCalls, UnboundSocketHasNoLocalAddressesAndTheListIsNotWritten)
{
    Descriptor unbound = socket_on(near_host);
    kel_sockaddr_t mark, *list = &mark;

    LONG count = kel_sctp_getladdrs(unbound, 0, &list);

    VALGRIND_MAKE_MEM_DEFINED(&count, sizeof(count)); /* as live.supp explains */
    EXPECT_EQ(count, 0);
    EXPECT_EQ(list, &mark);
}

TEST_P(LiveSctpCalls, ListsOfAnUnknownAssociationReportTheOptionCall)
{
    Descriptor unbound = socket_on(near_host, KEL_SOCK_SEQPACKET);
    kel_sockaddr_t mark, *list = &mark;

    expect_failure([&] { return kel_sctp_getpaddrs(unbound, 77, &list); }, {"sctp_opt_info : Invalid argument"});
    expect_failure([&] { return kel_sctp_getladdrs(unbound, 77, &list); }, {"sctp_opt_info : Invalid argument"});

    EXPECT_EQ(list, &mark);
}

TEST_P(LiveSctpCalls, ListsNameTheAddressesOfTheirAssociationAlone)
{
    OneToMany all = one2many();
    int mine = new_port();
    std::vector<kel_sockaddr_t> third = records(inet, {near[1]}, mine);
    Descriptor other = one2many_client();
    EXPECT_EQ(kel_sctp_bindx(other, third.data(), 1, SCTP_BINDX_ADD_ADDR), 0);
    send_message(other, "another association", far_records(all.port)[0]);
    sctp_assoc_t other_id = next(all.server).info.sinfo_assoc_id;

    EXPECT_EQ(peers_of(all.server, all.server_id), named(records(inet, near, port_of(all.client))));
    EXPECT_EQ(peers_of(all.server, other_id), named(third));
}

/* ---- Bind -------------------------------------------------------------------------------------------------------- */

TEST_P(LiveSctpCalls, AddressesAreAddedAndRemoved)
{
    Descriptor endpoint = socket_on(near_host);
    int port = new_port();
    std::vector<kel_sockaddr_t> all = records(inet, near, port), first = {all[0]}, second = {all[1]};

    EXPECT_EQ(kel_sctp_bindx(endpoint, first.data(), 1, SCTP_BINDX_ADD_ADDR), 0);
    EXPECT_EQ(locals_of(endpoint), named(first));
    EXPECT_EQ(kel_sctp_bindx(endpoint, second.data(), 1, SCTP_BINDX_ADD_ADDR), 0);
    EXPECT_EQ(locals_of(endpoint), named(all));
    EXPECT_EQ(kel_sctp_bindx(endpoint, first.data(), 1, SCTP_BINDX_REM_ADDR), 0);
    EXPECT_EQ(locals_of(endpoint), named(second));
    expect_failure([&] { return kel_sctp_bindx(endpoint, second.data(), 1, SCTP_BINDX_REM_ADDR); },
                   {"sctp bindx : Device or resource busy"});
    EXPECT_EQ(locals_of(endpoint), named(second)) << "the last one stays";
}

TEST_P(LiveSctpCalls, TextsAreAddedAndRemovedToo)
{
    Descriptor endpoint = socket_on(near_host);
    int port = new_port();
    Texts all(near), second({near[1]});

    EXPECT_EQ(kel_sctp_bindx_str(endpoint, inet.family, (SHORT)port, all.array(), 2, SCTP_BINDX_ADD_ADDR), 0);
    EXPECT_EQ(locals_of(endpoint), named(records(inet, near, port)));
    EXPECT_EQ(kel_sctp_bindx_str(endpoint, inet.family, (SHORT)port, second.array(), 1, SCTP_BINDX_REM_ADDR), 0);
    EXPECT_EQ(locals_of(endpoint), named(records(inet, {near[0]}, port)));
}

TEST_P(LiveSctpCalls, NoTextsAreTheWildcard)
{
    Descriptor endpoint = socket_on(near_host);
    int port = new_port();

    EXPECT_EQ(kel_sctp_bindx_str(endpoint, inet.family, (SHORT)port, NULL, 1, SCTP_BINDX_ADD_ADDR), 0);

    EXPECT_EQ(text_of(name_of(endpoint)), text_of(record_of(inet, inet.wildcard, port)));
}

TEST_P(LiveSctpCalls, PortsOfOneListAreTheSameOrNone)
{
    Descriptor endpoint = socket_on(near_host), other = socket_on(near_host);
    int port = new_port();
    std::vector<kel_sockaddr_t> all = records(inet, near, port);

    all[1].sin.sin_port = htons((uint16_t)new_port());
    expect_failure([&] { return kel_sctp_bindx(endpoint, all.data(), 2, SCTP_BINDX_ADD_ADDR); },
                   {"sctp bindx : Invalid argument"});
    all[1].sin.sin_port = 0;
    EXPECT_EQ(kel_sctp_bindx(other, all.data(), 2, SCTP_BINDX_ADD_ADDR), 0);
    EXPECT_EQ(locals_of(other), named(records(inet, near, port)));
}

TEST_P(LiveSctpCalls, OtherFlagsAreTheLibrarysToRefuse)
{
    Descriptor endpoint = socket_on(near_host);
    std::vector<kel_sockaddr_t> all = records(inet, near, new_port());

    for (LONG flags : {0, 4, SCTP_BINDX_ADD_ADDR | SCTP_BINDX_REM_ADDR}) {
        expect_failure([&] { return kel_sctp_bindx(endpoint, all.data(), 2, flags); },
                       {"sctp bindx : Invalid argument"});
    }
    EXPECT_EQ(port_of(endpoint), 0);
}

/* Addresses of a living association come and go when the peer allows it. */
TEST_P(LiveSctpCalls, PeerLearnsOfAddedAndRemovedAddresses)
{
    network.set("net/sctp/addip_enable", 1);
    network.set("net/sctp/addip_noauth_enable", 1);
    auto events = subscription({&sctp_event_subscribe::sctp_address_event});
    int port = new_port(), mine = new_port();
    Descriptor listener = one2one_server(port, &events);
    Descriptor client = socket_on(near_host);
    std::vector<kel_sockaddr_t> first = records(inet, {near[0]}, mine), second = records(inet, {near[1]}, mine);
    std::vector<kel_sockaddr_t> peers = far_records(port);
    sctp_assoc_t id;
    EXPECT_EQ(kel_sctp_bindx(client, first.data(), 1, SCTP_BINDX_ADD_ADDR), 0);
    EXPECT_EQ(kel_sctp_connectx(client, peers.data(), 2, &id), 0);
    Descriptor server = accepted(listener);

    auto await = [&](int state) {
        for (;;) {
            auto change = next_event<struct sctp_paddr_change>(server, SCTP_PEER_ADDR_CHANGE);
            if (change.spc_state == state || HasFailure()) {
                EXPECT_EQ(text_of(change.spc_aaddr), text_of(second[0]));
                return;
            }
        }
    };
    EXPECT_EQ(kel_sctp_bindx(client, second.data(), 1, SCTP_BINDX_ADD_ADDR), 0);
    await(SCTP_ADDR_ADDED);
    EXPECT_EQ(peers_of(server), named(records(inet, near, mine)));
    EXPECT_EQ(kel_sctp_bindx(client, second.data(), 1, SCTP_BINDX_REM_ADDR), 0);
    await(SCTP_ADDR_REMOVED);
    EXPECT_EQ(peers_of(server), named(first));
}

/* ---- Connect ----------------------------------------------------------------------------------------------------- */

TEST_P(LiveSctpCalls, ConnectTellsTheAssociation)
{
    int port = new_port();
    Descriptor listener = one2one_server(port), many = socket_on(near_host, KEL_SOCK_SEQPACKET);
    std::vector<kel_sockaddr_t> peers = far_records(port);
    Texts texts(far);

    for (bool by_text : {false, true}) {
        Descriptor one = socket_on(near_host);
        sctp_assoc_t id = 0;
        EXPECT_EQ(by_text ? kel_sctp_connectx_str(one, inet.family, (SHORT)port, texts.array(), 2, &id)
                          : kel_sctp_connectx(one, peers.data(), 2, &id),
                  0);
        EXPECT_NE(id, 0);
        EXPECT_EQ(peers_of(one), named(peers));
        Descriptor server = accepted(listener);
        send_message(one, "by connectx", peers[0]);
        expect_message(server, "by connectx");
    }

    sctp_assoc_t id = 0;
    EXPECT_EQ(kel_sctp_connectx(many, peers.data(), 2, &id), 0);
    EXPECT_EQ(peers_of(many, id), named(peers)) << "the identifier is one that the kernel knows";
}

TEST_P(LiveSctpCalls, RefusedConnectLeavesTheDescriptorForAnother)
{
    int port = new_port();
    std::vector<kel_sockaddr_t> nobody = far_records(new_port()), peers = far_records(port);
    Texts texts(far);
    Descriptor listener = one2one_server(port);
    Descriptor client = socket_on(near_host);
    sctp_assoc_t id;

    expect_failure([&] { return kel_sctp_connectx(client, nobody.data(), 2, &id); },
                   {"sctp connectx : Connection refused"});
    expect_failure([&] { return kel_sctp_connectx_str(client, inet.family, 1, texts.array(), 2, &id); },
                   {"sctp connectx : Connection refused"});

    EXPECT_EQ(kel_sctp_connectx(client, peers.data(), 2, &id), 0);
}

TEST_P(LiveSctpCalls, PeersOfOneListHaveOnePort)
{
    std::vector<kel_sockaddr_t> peers = far_records(new_port());
    peers[1].sin.sin_port = htons((uint16_t)new_port());
    Descriptor client = socket_on(near_host);
    sctp_assoc_t id;

    expect_failure([&] { return kel_sctp_connectx(client, peers.data(), 2, &id); },
                   {"sctp connectx : Invalid argument"});
}

/* ---- Messages ---------------------------------------------------------------------------------------------------- */

TEST_P(LiveSctpCalls, EveryStreamCountsItsOwnMessages)
{
    OneToOne pair = one2one();
    const kel_sockaddr_t to = far_records(pair.port)[0];

    for (int round = 0; round < 3; round++) {
        for (int stream = 0; stream < 10; stream++) {
            std::string text = std::to_string(round) + " on " + std::to_string(stream);
            if (stream % 2 == 0) {
                send_message(pair.client, text, to, stream, htonl((uint32_t)(100 + stream)));
            } else {
                send_message(pair.client, text, pair.id, stream, htonl((uint32_t)(100 + stream)));
            }
        }
    }

    for (int round = 0; round < 3; round++) {
        for (int stream = 0; stream < 10; stream++) {
            Message message = next(pair.server);
            EXPECT_EQ(message.data, std::to_string(round) + " on " + std::to_string(stream));
            EXPECT_EQ(message.info.sinfo_stream, stream);
            EXPECT_EQ(message.info.sinfo_ssn, round);
            EXPECT_EQ(message.info.sinfo_ppid, htonl((uint32_t)(100 + stream)));
        }
    }
}

TEST_P(LiveSctpCalls, StreamIsCutToSixteenBitsAndTheOthersToThirtyTwo)
{
    OneToOne pair = one2one();
    kel_sockaddr_t to = far_records(pair.port)[0];
    constexpr LONG high = 5L << 32;

    EXPECT_EQ(kel_sctp_sendmsg(pair.client, "first", 5, &to, high | 0x01020304, high, high | 0x10001, high, high), 5);
    EXPECT_EQ(kel_sctp_sendmsg(pair.client, "second", 6, &to, -2, 0, -65534, 0, 0), 6);

    Message first = next(pair.server);
    EXPECT_EQ(first.data, "first");
    EXPECT_EQ(first.info.sinfo_stream, 1);
    EXPECT_EQ(first.info.sinfo_ppid, 0x01020304U);
    Message second = next(pair.server);
    EXPECT_EQ(second.info.sinfo_stream, 2);
    EXPECT_EQ(second.info.sinfo_ppid, 0xfffffffeU);
}

TEST_P(LiveSctpCalls, StreamThatThereIsNotIsReported)
{
    OneToOne pair = one2one();
    kel_sockaddr_t to = far_records(pair.port)[0];
    struct sctp_sndrcvinfo info = {};
    info.sinfo_stream = 10;

    expect_failure([&] { return kel_sctp_sendmsg(pair.client, "x", 1, &to, 0, 0, 10, 0, 0); },
                   {"sctp sendmsg : Invalid argument"});
    expect_failure([&] { return kel_sctp_send(pair.client, "x", 1, &info, 0); }, {"sctp send : Invalid argument"});
}

TEST_P(LiveSctpCalls, FlagsGoWithTheMessage)
{
    OneToOne pair = one2one();
    kel_sockaddr_t to = far_records(pair.port)[0];

    EXPECT_EQ(kel_sctp_sendmsg(pair.client, "out of order", 12, &to, 0, SCTP_UNORDERED, 3, 0, 0), 12);

    EXPECT_EQ(next(pair.server).info.sinfo_flags & SCTP_UNORDERED, SCTP_UNORDERED);
}

TEST_P(LiveSctpCalls, MessageGoesToTheAddressThatItNames)
{
    OneToOne pair = one2one();
    Capture capture(near_host);
    kel_sockaddr_t second = far_records(pair.port)[1];

    EXPECT_EQ(kel_sctp_sendmsg(pair.client, "there", 5, &second, 0, SCTP_ADDR_OVER, 0, 0, 0), 5);

    expect_message(pair.server, "there");
    pair.client.close();
    const std::vector<Capture::Chunk> data = capture.data_until("[SHUTDOWN COMPLETE]");
    ASSERT_FALSE(data.empty());
    EXPECT_EQ(data[0].address, far[1]);
}

TEST_P(LiveSctpCalls, MessageLongerThanTheBufferComesInParts)
{
    OneToOne pair = one2one();
    const std::string data = pattern(1000);
    send_message(pair.client, data, pair.id);
    ASSERT_TRUE(wait_for(pair.server, POLLIN));
    std::string part(600, '\0');
    LONG flags = -1;

    EXPECT_EQ(kel_sctp_recvmsg(pair.server, part.data(), part.size(), NULL, NULL, &flags), 600);
    EXPECT_EQ(flags & MSG_EOR, 0);
    EXPECT_EQ(part, data.substr(0, 600));
    EXPECT_EQ(kel_sctp_recvmsg(pair.server, part.data(), part.size(), NULL, NULL, &flags), 400);
    EXPECT_EQ(flags, MSG_EOR);
    EXPECT_EQ(part.substr(0, 400), data.substr(600));
}

TEST_P(LiveSctpCalls, FailedReceiveIsSilentAndLeavesTheFlags)
{
    OneToOne pair = one2one();
    char byte;
    LONG flags = 0x5a5a;
    fcntl((int)pair.server, F_SETFL, O_NONBLOCK);

    expect_failure([&] { return kel_sctp_recvmsg(pair.server, &byte, 1, NULL, NULL, &flags); }, {});

    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(flags, 0x5a5a);
}

TEST_P(LiveSctpCalls, EndOfAnAssociationIsNoFailure)
{
    OneToOne pair = one2one();
    send_message(pair.client, "last", pair.id);
    pair.client.close();
    LONG flags = 0;
    char byte;

    expect_message(pair.server, "last");
    ASSERT_TRUE(wait_for(pair.server, POLLIN));
    EXPECT_EQ(kel_sctp_recvmsg(pair.server, &byte, 1, NULL, NULL, &flags), 0);
}

TEST_P(LiveSctpCalls, MessageWithTheFlagOfTheEndShutsTheAssociationDown)
{
    auto events = subscription({&sctp_event_subscribe::sctp_association_event});
    int port = new_port();
    Descriptor server = one2many_server(port), client = one2many_client(&events);
    kel_sockaddr_t to = far_records(port)[0];
    send_message(client, "first", to);
    EXPECT_EQ(next_event<struct sctp_assoc_change>(client, SCTP_ASSOC_CHANGE).sac_state, SCTP_COMM_UP);

    EXPECT_EQ(kel_sctp_sendmsg(client, NULL, 0, &to, 0, SCTP_EOF, 0, 0, 0), 0);

    EXPECT_EQ(next_event<struct sctp_assoc_change>(client, SCTP_ASSOC_CHANGE).sac_state, SCTP_SHUTDOWN_COMP);
    expect_message(server, "first");
}

TEST_P(LiveSctpCalls, AbortReachesThePeer)
{
    auto events = subscription({&sctp_event_subscribe::sctp_association_event});
    int port = new_port();
    Descriptor server = one2many_server(port, &events), client = one2many_client();
    std::vector<kel_sockaddr_t> peers = far_records(port);
    struct sctp_sndrcvinfo info = {};
    EXPECT_EQ(kel_sctp_connectx(client, peers.data(), 2, &info.sinfo_assoc_id), 0);
    EXPECT_EQ(next_event<struct sctp_assoc_change>(server, SCTP_ASSOC_CHANGE).sac_state, SCTP_COMM_UP);
    info.sinfo_flags = SCTP_ABORT;

    EXPECT_EQ(kel_sctp_send(client, "why", 3, &info, 0), 0); /* no message, the kernel says */

    EXPECT_EQ(next_event<struct sctp_assoc_change>(server, SCTP_ASSOC_CHANGE).sac_state, SCTP_COMM_LOST);
}

TEST_P(LiveSctpCalls, SendAfterTheEndTellsWhy)
{
    OneToOne pair = one2one();
    struct sctp_sndrcvinfo info = {};
    struct linger now = {1, 0};
    EXPECT_EQ(kel_setsockopt(pair.server, SOL_SOCKET, SO_LINGER, &now, sizeof(now)), 0);
    pair.server.close();
    LONG flags = 0;
    char byte;

    ASSERT_TRUE(wait_for(pair.client, POLLIN));
    EXPECT_EQ(kel_sctp_recvmsg(pair.client, &byte, 1, NULL, NULL, &flags), KEL_ERROR);
    EXPECT_EQ(errno, ECONNRESET);
    expect_failure([&] { return kel_sctp_send(pair.client, "x", 1, &info, MSG_NOSIGNAL); },
                   {"sctp send : Broken pipe"});
}

TEST_P(LiveSctpCalls, SixtyThousandBytesArriveAsOneMessage)
{
    OneToOne pair = one2one();
    const std::string data = pattern(60000);

    for (int i = 0; i < 10; i++) {
        send_message(pair.client, data, pair.id, i);
        expect_message(pair.server, data);
    }
}

TEST_P(LiveSctpCalls, TenThousandMessagesArriveInOrder)
{
    OneToOne pair = one2one();
    Transfer transfer(pair.client, pair.server);

    while (transfer.sent() < 10000) {
        transfer.fill(0, 10000);
        transfer.drain();
    }
}

TEST_P(LiveSctpCalls, PayloadProtocolIsOnTheWireAsGiven)
{
    Capture capture(near_host);
    OneToOne pair = one2one();

    send_message(pair.client, "by sendmsg", far_records(pair.port)[0], 4, htonl(0x01020304));
    expect_message(pair.server, "by sendmsg");
    send_message(pair.client, "by send", pair.id, 5, htonl(0x11121314));
    expect_message(pair.server, "by send");
    pair.client.close();
    using Set = std::set<std::vector<std::string>>;
    Set found;
    for (const Capture::Chunk &chunk : capture.data_until("[SHUTDOWN COMPLETE]")) {
        found.insert({chunk.stream, chunk.ppid, chunk.port});
    }
    const std::string port = std::to_string(pair.port);
    EXPECT_EQ(found, Set({{"4", "0x1020304", port}, {"5", "0x11121314", port}}));
}

/* ---- Peel-off ---------------------------------------------------------------------------------------------------- */

TEST_P(LiveSctpCalls, UnknownAssociationIsNotPeeledOff)
{
    OneToMany all = one2many();

    expect_failure([&] { return on(far_host, [&] { return kel_sctp_peeloff(all.server, 7777); }); },
                   {"sctp_peeloff : Invalid argument"});
}

TEST_P(LiveSctpCalls, PeeledOffAssociationCarriesDataOnItsOwn)
{
    OneToMany all = one2many();
    Descriptor other = one2many_client();
    send_message(other, "stays", far_records(all.port)[0]);
    sctp_assoc_t other_id = next(all.server).info.sinfo_assoc_id;

    Descriptor peeled = on(far_host, [&] { return kel_sctp_peeloff(all.server, all.server_id); });

    EXPECT_NE(peeled, all.server);
    EXPECT_EQ(option(peeled, SOL_SOCKET, SO_TYPE), SOCK_SEQPACKET);
    send_message(all.client, "through the peeled", all.client_id);
    send_message(other, "through the old", far_records(all.port)[0]);
    Message message = next(peeled);
    EXPECT_EQ(message.data, "through the peeled");
    EXPECT_EQ(next(all.server).info.sinfo_assoc_id, other_id);
    send_message(peeled, "and back", message.info.sinfo_assoc_id);
    expect_message(all.client, "and back");
    EXPECT_EQ(peers_of(peeled, message.info.sinfo_assoc_id), named(records(inet, near, port_of(all.client))));
    expect_failure([&] { return on(far_host, [&] { return kel_sctp_peeloff(all.server, all.server_id); }); },
                   {"sctp_peeloff : Invalid argument"});
}

/* ---- Options of an association ----------------------------------------------------------------------------------- */

TEST_P(LiveSctpCalls, OptionsTellTheAssociation)
{
    OneToMany all = one2many();
    const LONG sockfd = all.client;
    const sctp_assoc_t id = all.client_id;
    const kel_sockaddr_t first = far_records(all.port)[0];

    auto status = query<struct sctp_status>(sockfd, id, SCTP_STATUS);
    EXPECT_EQ(status.sstat_assoc_id, id);
    EXPECT_EQ(status.sstat_state, SCTP_ESTABLISHED);
    EXPECT_EQ(status.sstat_outstrms, 10);
    EXPECT_EQ(status.sstat_instrms, 10);
    kel_sockaddr_t primary;
    memcpy(&primary, &status.sstat_primary.spinfo_address, sizeof(primary));
    expect_one_of(primary, far_records(all.port));
    EXPECT_EQ(status.sstat_primary.spinfo_state, SCTP_ACTIVE);
    EXPECT_EQ(status.sstat_primary.spinfo_mtu, 1500U);

    auto times = query<struct sctp_rtoinfo>(sockfd, id, SCTP_RTOINFO);
    EXPECT_EQ(times.srto_assoc_id, id);
    EXPECT_EQ(times.srto_initial, 1000U);
    EXPECT_EQ(times.srto_min, 100U);
    EXPECT_EQ(times.srto_max, 400U);

    auto association = query<struct sctp_assocparams>(sockfd, id, SCTP_ASSOCINFO);
    EXPECT_EQ(association.sasoc_assoc_id, id);
    EXPECT_EQ(association.sasoc_asocmaxrxt, 10);
    EXPECT_EQ(association.sasoc_number_peer_destinations, 2);
    EXPECT_EQ(association.sasoc_cookie_life, 60000U);

    struct sctp_paddrparams path = {};
    memcpy(&path.spp_address, &first, sizeof(first.sin6));
    path = query(sockfd, id, SCTP_PEER_ADDR_PARAMS, path);
    EXPECT_EQ(path.spp_hbinterval, 200U);
    EXPECT_EQ(path.spp_pathmaxrxt, 5);
    EXPECT_NE(path.spp_flags & SPP_HB_ENABLE, 0U);

    auto initmsg = query<struct sctp_initmsg>(sockfd, id, SCTP_INITMSG);
    EXPECT_EQ(initmsg.sinit_num_ostreams, 10);
    EXPECT_EQ(initmsg.sinit_max_instreams, 10);

    auto second = path_of(sockfd, id, far_records(all.port)[1]);
    EXPECT_EQ(second.spinfo_assoc_id, id);
    EXPECT_EQ(text_of(second.spinfo_address), text_of(far_records(all.port)[1]));
}

TEST_P(LiveSctpCalls, OptionsThatWereSetAreTold)
{
    OneToMany all = one2many();
    struct sctp_sndrcvinfo send = {};
    send.sinfo_assoc_id = all.client_id;
    send.sinfo_stream = 6;
    send.sinfo_ppid = htonl(66);
    send.sinfo_context = 67;
    struct sctp_prim primary = {};
    primary.ssp_assoc_id = all.client_id;
    memcpy(&primary.ssp_addr, &far_records(all.port)[1], sizeof(struct sockaddr_in6));

    EXPECT_EQ(kel_setsockopt(all.client, SOL_SCTP, SCTP_DEFAULT_SEND_PARAM, &send, sizeof(send)), 0);
    EXPECT_EQ(kel_setsockopt(all.client, SOL_SCTP, SCTP_PRIMARY_ADDR, &primary, sizeof(primary)), 0);

    /* The library puts the association's identifier in front, where this one record does not have it. */
    struct sctp_sndrcvinfo question = {};
    question.sinfo_assoc_id = all.client_id;
    auto found = query(all.client, all.client_id, SCTP_DEFAULT_SEND_PARAM, question);
    EXPECT_EQ(found.sinfo_stream, 6);
    EXPECT_EQ(found.sinfo_ppid, htonl(66));
    EXPECT_EQ(found.sinfo_context, 67U);
    auto address = query<struct sctp_prim>(all.client, all.client_id, SCTP_PRIMARY_ADDR);
    EXPECT_EQ(text_of(address.ssp_addr), text_of(far_records(all.port)[1]));
}

TEST_P(LiveSctpCalls, OptionOfAnUnknownAssociationIsReported)
{
    OneToMany all = one2many();
    struct sctp_status status;
    socklen_t size = sizeof(status);

    expect_failure([&] { return kel_sctp_opt_info(all.client, 7777, SCTP_STATUS, &status, &size); },
                   {"sctp_opt_info : Invalid argument"});
    expect_failure([&] { return kel_sctp_opt_info(-1, 0, SCTP_STATUS, &status, &size); },
                   {"sctp_opt_info : Bad file descriptor"});
}

TEST_P(LiveSctpCalls, PositiveResultOfTheLibraryIsPassedOn)
{
    OneToMany all = one2many();
    char record[64] = {};
    socklen_t size = sizeof(record);
    Reports shown;

    EXPECT_GT(kel_sctp_opt_info(all.client, 0, 9999, record, &size), 0) << "an option that the library does not know";

    expect_reports(shown, {});
}

} // namespace
