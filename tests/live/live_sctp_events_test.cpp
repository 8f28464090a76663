/* SCTP notifications: each flag brings its own, from a kernel that had reason to send it. For sctp_peer_error_event no
 * kernel has: it is seen among the flags that LiveSctpEndpoints reads back. The beginning and the end of an association
 * are told where LiveSctpCalls ends one. */
#include "live_sctp.h"

#include <arpa/inet.h>
#include <poll.h>
#include <string.h>

namespace
{

using Flag = uint8_t sctp_event_subscribe::*;

class LiveSctpEvents : public LiveSctp
{
  protected:
    struct sctp_event_subscribe none = subscription({});

    /* A one-to-many socket on either side, with an association that the client has set up. */
    struct Both {
        Descriptor server, client;
        std::vector<kel_sockaddr_t> peers;
        sctp_assoc_t id;
    };
    Both both(Flag at_server, Flag at_client)
    {
        auto server_events = at_server != nullptr ? subscription({at_server}) : none;
        auto client_events = at_client != nullptr ? subscription({at_client}) : none;
        int port = new_port();
        return {one2many_server(port, &server_events), one2many_client(&client_events), far_records(port), 0};
    }
    void connect(Both &both)
    {
        EXPECT_EQ(kel_sctp_connectx(both.client, both.peers.data(), 2, &both.id), 0) << strerror(errno);
    }
};

INSTANTIATE_FOR_IPV4_AND_IPV6(LiveSctpEvents);

/* With it the record is filled, as every other test of messages shows. */
TEST_P(LiveSctpEvents, WithoutDataIoTheRecordIsLeftAlone)
{
    OneToOne pair = one2one(nullptr, &none);
    send_message(pair.client, "x", pair.id, 3, htonl(33));

    Message message = next(pair.server);

    EXPECT_EQ(message.data, "x");
    struct sctp_sndrcvinfo untouched;
    memset(&untouched, 0xee, sizeof(untouched));
    EXPECT_EQ(memcmp(&message.info, &untouched, sizeof(untouched)), 0);
}

TEST_P(LiveSctpEvents, AddressTellsAPathThatWasConfirmed)
{
    Both made = both(&sctp_event_subscribe::sctp_address_event, nullptr);
    connect(made);

    auto change = next_event<struct sctp_paddr_change>(made.server, SCTP_PEER_ADDR_CHANGE);

    EXPECT_EQ(change.spc_state, SCTP_ADDR_CONFIRMED);
    EXPECT_EQ(text_of(change.spc_aaddr), named(records(inet, near, port_of(made.client)))[1]);
}

TEST_P(LiveSctpEvents, SendFailureHandsTheMessageBack)
{
    network.set("net/sctp/association_max_retrans", 10000); /* lives while the paths are cut, however long that takes */
    Both made = both(nullptr, &sctp_event_subscribe::sctp_send_failure_event);
    connect(made);
    const std::string before = pattern(20000); /* more than may be under way, so that the next one has to wait */
    network.cut_all();
    send_message(made.client, before, made.id);
    EXPECT_EQ(kel_sctp_sendmsg(made.client, "too late", 8, &made.peers[0], htonl(55), 0, 4, 1, 1234), 8);
    network.restore(0, Network::total_loss);
    network.restore(1, Network::total_loss);
    expect_message(made.server, before);

    Message message = next(made.client);
    struct sctp_send_failed failed = {};
    ASSERT_EQ(message.data.size(), sizeof(failed) + 8);
    memcpy(&failed, message.data.data(), sizeof(failed));
    EXPECT_EQ(failed.ssf_type, SCTP_SEND_FAILED);
    EXPECT_EQ(failed.ssf_info.sinfo_context, 1234U);
    EXPECT_EQ(failed.ssf_info.sinfo_ppid, htonl(55));
    EXPECT_EQ(failed.ssf_info.sinfo_stream, 4);
    EXPECT_EQ(failed.ssf_assoc_id, made.id);
    EXPECT_EQ(message.data.substr(sizeof(failed)), "too late");
}

TEST_P(LiveSctpEvents, ShutdownTellsThatThePeerHasEnded)
{
    Both made = both(&sctp_event_subscribe::sctp_shutdown_event, nullptr);
    connect(made);
    made.client.close();

    auto event = next_event<struct sctp_shutdown_event>(made.server, SCTP_SHUTDOWN_EVENT);

    EXPECT_NE(event.sse_assoc_id, 0);
}

TEST_P(LiveSctpEvents, PartialDeliveryTellsThatTheRestWillNotCome)
{
    auto events = subscription({&sctp_event_subscribe::sctp_partial_delivery_event});
    int port = new_port();
    Descriptor listener = one2one_server(port, &events);
    set(listener, SO_RCVBUF, 4096, SOL_SOCKET);
    set(listener, SCTP_PARTIAL_DELIVERY_POINT, (uint32_t)100);
    Descriptor client = one2one_client(port);
    Descriptor server = accepted(listener);
    send_message(client, pattern(60000), 0); /* more than the server takes at once */
    char part[1000];
    LONG flags = 0;
    ASSERT_TRUE(wait_for(server, POLLIN));
    EXPECT_GT(kel_sctp_recvmsg(server, part, sizeof(part), NULL, NULL, &flags), 0);
    EXPECT_EQ(flags & MSG_EOR, 0);

    reset_when_closed(client);
    client.close();

    while ((flags & MSG_NOTIFICATION) == 0 && !HasFailure()) { /* past what has arrived already */
        ASSERT_TRUE(wait_for(server, POLLIN));
        ASSERT_GT(kel_sctp_recvmsg(server, part, sizeof(part), NULL, NULL, &flags), 0) << strerror(errno);
    }
    struct sctp_pdapi_event event;
    memcpy(&event, part, sizeof(event));
    EXPECT_EQ(event.pdapi_type, SCTP_PARTIAL_DELIVERY_EVENT);
    EXPECT_EQ(event.pdapi_indication, (uint32_t)SCTP_PARTIAL_DELIVERY_ABORTED);
}

TEST_P(LiveSctpEvents, AdaptationLayerTellsThePeersNumber)
{
    Both made = both(&sctp_event_subscribe::sctp_adaptation_layer_event, nullptr);
    set(made.client, SCTP_ADAPTATION_LAYER, sctp_setadaptation{0x01020304});
    connect(made);

    auto event = next_event<struct sctp_adaptation_event>(made.server, SCTP_ADAPTATION_INDICATION);

    EXPECT_EQ(event.sai_adaptation_ind, 0x01020304U);
}

TEST_P(LiveSctpEvents, AuthenticationTellsThePeersNewKey)
{
    network.set("net/sctp/auth_enable", 1);
    Both made = both(&sctp_event_subscribe::sctp_authentication_event, nullptr);
    constexpr struct sctp_authchunk data = {0}; /* the server wants data to be authenticated */
    set(made.server, SCTP_AUTH_CHUNK, data);
    const std::string secret = "secret";
    struct sctp_authkey key = {};
    key.sca_keynumber = 1;
    key.sca_keylength = (uint16_t)secret.size();
    const std::string whole = std::string((const char *)&key, sizeof(key)) + secret;
    for (LONG sockfd : {(LONG)made.server, (LONG)made.client}) {
        EXPECT_EQ(kel_setsockopt(sockfd, SOL_SCTP, SCTP_AUTH_KEY, whole.data(), (socklen_t)whole.size()), 0);
    }
    connect(made);
    struct sctp_authkeyid active = {};
    active.scact_assoc_id = made.id;
    active.scact_keynumber = 1;
    set(made.client, SCTP_AUTH_ACTIVE_KEY, active);

    send_message(made.client, "signed", made.id);

    auto event = next_event<struct sctp_authkey_event>(made.server, SCTP_AUTHENTICATION_EVENT);
    EXPECT_EQ(event.auth_indication, (uint32_t)SCTP_AUTH_NEW_KEY);
    EXPECT_EQ(event.auth_keynumber, 1);
    expect_message(made.server, "signed");
}

TEST_P(LiveSctpEvents, SenderDryTellsThatAllIsAcknowledged)
{
    Both made = both(nullptr, &sctp_event_subscribe::sctp_sender_dry_event);
    connect(made);
    send_message(made.client, "x", made.id);

    auto event = next_event<struct sctp_sender_dry_event>(made.client, SCTP_SENDER_DRY_EVENT);

    EXPECT_EQ(event.sender_dry_assoc_id, made.id);
    EXPECT_EQ(query<struct sctp_status>(made.client, made.id, SCTP_STATUS).sstat_unackdata, 0);
}

} // namespace
