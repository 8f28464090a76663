/* SCTP association calls: lists, bindx and connectx, messages, peel-off and options, on associations of two paths. */
#include "live_sctp.h"

#include <arpa/inet.h>
#include <poll.h>
#include <valgrind/memcheck.h>

namespace
{

class LiveSctpCalls : public LiveSctp
{
  protected:
    Descriptor socket_near(kel_socktype_t type = KEL_SOCK_STREAM)
    {
        return on(near_host, [&] { return kel_socket(inet.family, type, IPPROTO_SCTP); });
    }
};

INSTANTIATE_FOR_IPV4_AND_IPV6(LiveSctpCalls);

/* ---- Lists and addresses ----------------------------------------------------------------------------------------- */

TEST_P(LiveSctpCalls, UnboundSocketHasNoLocalAddressesAndTheListIsNotWritten)
{
    Descriptor unbound = socket_near();
    kel_sockaddr_t mark, *list = &mark;

    LONG count = kel_sctp_getladdrs(unbound, 0, &list);

    VALGRIND_MAKE_MEM_DEFINED(&count, sizeof(count)); /* as live.supp explains */
    EXPECT_EQ(count, 0);
    EXPECT_EQ(kel_sctp_getpaddrs(unbound, 77, &list), KEL_ERROR);
    EXPECT_EQ(list, &mark);
}

TEST_P(LiveSctpCalls, AddressesAreAddedAndRemovedAsRecordsAndAsTexts)
{
    int port = new_port();
    std::vector<kel_sockaddr_t> all = records(inet, near, port), first = {all[0]}, second = {all[1]};
    Addresses texts = near, one = {near[1]};
    Descriptor by_record = socket_near(), by_text = socket_near(), wildcard = socket_near();

    EXPECT_EQ(kel_sctp_bindx(by_record, first.data(), 1, SCTP_BINDX_ADD_ADDR), 0);
    EXPECT_EQ(locals_of(by_record), named(first));
    EXPECT_EQ(kel_sctp_bindx(by_record, second.data(), 1, SCTP_BINDX_ADD_ADDR), 0);
    EXPECT_EQ(locals_of(by_record), named(all));
    EXPECT_EQ(kel_sctp_bindx(by_record, first.data(), 1, SCTP_BINDX_REM_ADDR), 0);
    EXPECT_EQ(kel_sctp_bindx(by_record, second.data(), 1, SCTP_BINDX_REM_ADDR), KEL_ERROR);
    EXPECT_EQ(locals_of(by_record), named(second)) << "the last one stays";

    port = new_port();
    EXPECT_EQ(kel_sctp_bindx_str(by_text, inet.family, (SHORT)port, array(texts).data(), 2, SCTP_BINDX_ADD_ADDR), 0);
    EXPECT_EQ(locals_of(by_text), named(records(inet, near, port)));
    EXPECT_EQ(kel_sctp_bindx_str(by_text, inet.family, (SHORT)port, array(one).data(), 1, SCTP_BINDX_REM_ADDR), 0);
    EXPECT_EQ(locals_of(by_text), named(records(inet, {near[0]}, port)));
    port = new_port();
    EXPECT_EQ(kel_sctp_bindx_str(wildcard, inet.family, (SHORT)port, NULL, 1, SCTP_BINDX_ADD_ADDR), 0);
    EXPECT_EQ(text_of(name_of(wildcard)), text_of(record_of(inet, inet.wildcard, port)));
}

TEST_P(LiveSctpCalls, PortsOfOneListAreTheSameOrNone)
{
    Descriptor endpoint = socket_near(), other = socket_near();
    int port = new_port();
    std::vector<kel_sockaddr_t> all = records(inet, near, port);
    sctp_assoc_t id;

    all[1].sin.sin_port = htons((uint16_t)new_port());
    EXPECT_EQ(kel_sctp_bindx(endpoint, all.data(), 2, SCTP_BINDX_ADD_ADDR), KEL_ERROR);
    EXPECT_EQ(kel_sctp_connectx(endpoint, all.data(), 2, &id), KEL_ERROR);
    all[1].sin.sin_port = 0;
    EXPECT_EQ(kel_sctp_bindx(other, all.data(), 2, SCTP_BINDX_ADD_ADDR), 0);
    EXPECT_EQ(locals_of(other), named(records(inet, near, port)));
}

/* Addresses of a living association come and go when the peer allows it. */
TEST_P(LiveSctpCalls, PeerLearnsOfAddedAndRemovedAddresses)
{
    network.set("net/sctp/addip_enable", 1);
    network.set("net/sctp/addip_noauth_enable", 1);
    auto events = subscription({&sctp_event_subscribe::sctp_address_event});
    int port = new_port(), mine = new_port();
    Descriptor listener = one2one_server(port, &events), client = socket_near();
    std::vector<kel_sockaddr_t> first = records(inet, {near[0]}, mine), second = records(inet, {near[1]}, mine);
    sctp_assoc_t id;
    EXPECT_EQ(kel_sctp_bindx(client, first.data(), 1, SCTP_BINDX_ADD_ADDR), 0);
    EXPECT_EQ(kel_sctp_connectx(client, far_records(port).data(), 2, &id), 0);
    Descriptor server = accepted(listener);

    auto await = [&](int state) {
        struct sctp_paddr_change change = {};
        while (change.spc_state != state && !HasFailure()) {
            change = next_event<struct sctp_paddr_change>(server, SCTP_PEER_ADDR_CHANGE);
        }
        EXPECT_EQ(text_of(change.spc_aaddr), text_of(second[0]));
    };
    EXPECT_EQ(kel_sctp_bindx(client, second.data(), 1, SCTP_BINDX_ADD_ADDR), 0);
    await(SCTP_ADDR_ADDED);
    EXPECT_EQ(peers_of(server), named(records(inet, near, mine)));
    EXPECT_EQ(kel_sctp_bindx(client, second.data(), 1, SCTP_BINDX_REM_ADDR), 0);
    await(SCTP_ADDR_REMOVED);
    EXPECT_EQ(peers_of(server), named(first));
}

/* After one that was refused, too. */
TEST_P(LiveSctpCalls, ConnectTellsTheAssociation)
{
    int port = new_port();
    Descriptor listener = one2one_server(port), many = socket_near(KEL_SOCK_SEQPACKET);
    std::vector<kel_sockaddr_t> peers = far_records(port), nobody = far_records(new_port());
    Addresses texts = far;

    for (bool by_text : {false, true}) {
        Descriptor one = socket_near();
        sctp_assoc_t id = 0;
        EXPECT_EQ(kel_sctp_connectx(one, nobody.data(), 2, &id), KEL_ERROR);
        EXPECT_EQ(by_text ? kel_sctp_connectx_str(one, inet.family, (SHORT)port, array(texts).data(), 2, &id)
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

/* ---- Messages ---------------------------------------------------------------------------------------------------- */

TEST_P(LiveSctpCalls, EveryStreamCountsItsOwnMessages)
{
    OneToOne pair = one2one();
    auto text = [](int round, int stream) { return std::to_string(round) + " on " + std::to_string(stream); };

    for (int round = 0; round < 3; round++) {
        for (int stream = 0; stream < 10; stream += 2) {
            send_message(pair.client, text(round, stream), pair.peers[0], stream, htonl((uint32_t)(100 + stream)));
            send_message(pair.client, text(round, stream + 1), pair.id, stream + 1, htonl((uint32_t)(101 + stream)));
        }
    }

    for (int round = 0; round < 3; round++) {
        for (int stream = 0; stream < 10; stream++) {
            Message message = expect_message(pair.server, text(round, stream));
            EXPECT_EQ(message.info.sinfo_stream, stream);
            EXPECT_EQ(message.info.sinfo_ssn, round);
            EXPECT_EQ(message.info.sinfo_ppid, htonl((uint32_t)(100 + stream)));
        }
    }
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

TEST_P(LiveSctpCalls, SixtyThousandBytesArriveAsOneMessageAndThenTheEnd)
{
    OneToOne pair = one2one();
    for (int i = 0; i < 10; i++) {
        send_message(pair.client, pattern(60000), pair.id, i);
        expect_message(pair.server, pattern(60000));
    }
    send_message(pair.client, "last", pair.id);
    pair.client.close();

    expect_message(pair.server, "last");
    expect_message(pair.server, "");
}

TEST_P(LiveSctpCalls, MessagesEndAnAssociation)
{
    auto events = subscription({&sctp_event_subscribe::sctp_association_event});
    int port = new_port();
    Descriptor server = one2many_server(port, &events), client = one2many_client(&events);
    auto peers = far_records(port);
    auto connect = [&] {
        struct sctp_sndrcvinfo info = {};
        EXPECT_EQ(kel_sctp_connectx(client, peers.data(), 2, &info.sinfo_assoc_id), 0) << strerror(errno);
        EXPECT_EQ(expect_change(client, SCTP_COMM_UP).sac_assoc_id, info.sinfo_assoc_id);
        EXPECT_EQ(expect_change(server, SCTP_COMM_UP).sac_outbound_streams, 10);
        return info;
    };

    connect();
    EXPECT_EQ(kel_sctp_sendmsg(client, NULL, 0, &peers[0], 0, SCTP_EOF, 0, 0, 0), 0);
    expect_change(client, SCTP_SHUTDOWN_COMP);
    expect_change(server, SCTP_SHUTDOWN_COMP);

    struct sctp_sndrcvinfo info = connect();
    info.sinfo_flags = SCTP_ABORT;
    EXPECT_EQ(kel_sctp_send(client, "why", 3, &info, 0), 0); /* no message, the kernel says */
    expect_change(server, SCTP_COMM_LOST);
}

/* ---- One of several associations --------------------------------------------------------------------------------- */

TEST_P(LiveSctpCalls, PeeledOffAssociationCarriesDataOnItsOwn)
{
    OneToMany all = one2many();
    Descriptor other = one2many_client();
    auto own = records(inet, {near[1]}, new_port());
    EXPECT_EQ(kel_sctp_bindx(other, own.data(), 1, SCTP_BINDX_ADD_ADDR), 0);
    send_message(other, "stays", all.peers[0]);
    sctp_assoc_t other_id = expect_message(all.server, "stays").info.sinfo_assoc_id;
    const Addresses client = named(records(inet, near, port_of(all.client)));
    EXPECT_EQ(peers_of(all.server, all.server_id), client) << "a list names the addresses of its association alone";
    EXPECT_EQ(peers_of(all.server, other_id), named(own));

    Descriptor peeled = on(far_host, [&] { return kel_sctp_peeloff(all.server, all.server_id); });

    EXPECT_NE(peeled, all.server);
    EXPECT_EQ(option(peeled, SOL_SOCKET, SO_TYPE), SOCK_SEQPACKET);
    send_message(all.client, "through the peeled", all.client_id);
    send_message(other, "through the old", all.peers[0]);
    sctp_assoc_t id = expect_message(peeled, "through the peeled").info.sinfo_assoc_id;
    EXPECT_EQ(expect_message(all.server, "through the old").info.sinfo_assoc_id, other_id);
    send_message(peeled, "and back", id);
    expect_message(all.client, "and back");
    EXPECT_EQ(peers_of(peeled, id), client);
    EXPECT_EQ(kel_sctp_peeloff(all.server, all.server_id), KEL_ERROR) << "it is there no more";
    EXPECT_EQ(errno, EINVAL);
}

TEST_P(LiveSctpCalls, OptionsTellTheAssociation)
{
    OneToMany all = one2many();
    const LONG sockfd = all.client;
    const sctp_assoc_t id = all.client_id;

    auto status = query<struct sctp_status>(sockfd, id, SCTP_STATUS);
    EXPECT_EQ(status.sstat_assoc_id, id);
    EXPECT_EQ(status.sstat_state, SCTP_ESTABLISHED);
    kel_sockaddr_t primary;
    memcpy(&primary, &status.sstat_primary.spinfo_address, sizeof(primary));
    expect_one_of(primary, all.peers);
    EXPECT_EQ(status.sstat_primary.spinfo_state, SCTP_ACTIVE);
    EXPECT_EQ(status.sstat_primary.spinfo_mtu, 1500U);

    auto times = query<struct sctp_rtoinfo>(sockfd, id, SCTP_RTOINFO);
    EXPECT_EQ(times.srto_assoc_id, id);
    EXPECT_EQ(times.srto_initial, 1000U);
    EXPECT_EQ(times.srto_min, 100U);
    EXPECT_EQ(times.srto_max, 400U);

    auto second = path_of(sockfd, id, all.peers[1]);
    EXPECT_EQ(second.spinfo_assoc_id, id);
    EXPECT_EQ(text_of(second.spinfo_address), text_of(all.peers[1]));
    char record[64] = {};
    socklen_t size = sizeof(record);
    EXPECT_GT(kel_sctp_opt_info(sockfd, 0, 9999, record, &size), 0) << "an option that the library does not know";
}

/* The library puts the association's identifier in front, where this one record does not have it. */
TEST_P(LiveSctpCalls, OptionThatWasSetIsTold)
{
    OneToMany all = one2many();
    struct sctp_sndrcvinfo send = {}, question = {};
    send.sinfo_assoc_id = question.sinfo_assoc_id = all.client_id;
    send.sinfo_stream = 6;
    send.sinfo_ppid = htonl(66);

    set(all.client, SCTP_DEFAULT_SEND_PARAM, send);

    auto found = query(all.client, all.client_id, SCTP_DEFAULT_SEND_PARAM, question);
    EXPECT_EQ(found.sinfo_stream, 6);
    EXPECT_EQ(found.sinfo_ppid, htonl(66));
}

} // namespace
