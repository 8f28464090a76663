/* SCTP over two paths, one of which is cut in the middle of a transfer and comes back; a capture is the witness. */
#include "live_sctp.h"

#include <map>
#include <set>
#include <string.h>

namespace
{

class LiveSctpPaths : public LiveSctp
{
  protected:
    /* Waits for the client's notification that a path is in this state, past those of other states. */
    void await(LONG client, int state, const kel_sockaddr_t &address)
    {
        for (;;) {
            auto change = next_event<struct sctp_paddr_change>(client, SCTP_PEER_ADDR_CHANGE);
            if (HasFailure() || (change.spc_state == state && text_of(change.spc_aaddr) == text_of(address))) {
                return;
            }
        }
    }

    int state_of(LONG client, const kel_sockaddr_t &address)
    {
        return path_of(client, 0, address).spinfo_state;
    }

    static void set(LONG client, int name, const void *record, size_t size)
    {
        EXPECT_EQ(kel_setsockopt(client, SOL_SCTP, name, record, (socklen_t)size), 0) << strerror(errno);
    }

    /* A path that is missed more than once is given up. Until this is called, no delay of the machine loses one. */
    void give_up_soon(LONG client, const kel_sockaddr_t &address)
    {
        struct sctp_paddrparams path = {};
        memcpy(&path.spp_address, &address, sizeof(address.sin6));
        path.spp_pathmaxrxt = 1;
        set(client, SCTP_PEER_ADDR_PARAMS, &path, sizeof(path));
    }

    /* Where the data of each phase went, which is told by its payload protocol. */
    std::map<std::string, std::set<std::string>> addresses_of_phases(Capture &capture)
    {
        std::map<std::string, std::set<std::string>> found;
        for (const Capture::Chunk &chunk : capture.data_until("[SHUTDOWN COMPLETE]")) {
            found[chunk.ppid].insert(chunk.address);
        }
        return found;
    }

    void expect_transfer_survives(Network::Manner manner)
    {
        Capture capture(near_host);
        auto events = subscription({&sctp_event_subscribe::sctp_address_event});
        OneToOne pair = one2one(&events);
        const auto peers = far_records(pair.port);
        Transfer transfer(pair.client, pair.server);
        EXPECT_EQ(state_of(pair.client, peers[0]), SCTP_ACTIVE);
        EXPECT_EQ(state_of(pair.client, peers[1]), SCTP_ACTIVE);
        struct sctp_prim first = {};
        memcpy(&first.ssp_addr, &peers[0], sizeof(peers[0].sin6));
        set(pair.client, SCTP_PRIMARY_ADDR, &first, sizeof(first));

        transfer.fill(0x701, SIZE_MAX);
        auto before = query<struct sctp_status>(pair.client, 0, SCTP_STATUS);
        EXPECT_EQ(text_of(before.sstat_primary.spinfo_address), text_of(peers[0]));
        EXPECT_GT(before.sstat_unackdata + before.sstat_penddata, 0) << "nothing is under way";

        network.cut(0, manner);
        give_up_soon(pair.client, peers[0]);
        transfer.drain();
        await(pair.client, SCTP_ADDR_UNREACHABLE, peers[0]);
        EXPECT_EQ(state_of(pair.client, peers[0]), SCTP_INACTIVE);
        EXPECT_EQ(state_of(pair.client, peers[1]), SCTP_ACTIVE);
        auto status = query<struct sctp_status>(pair.client, 0, SCTP_STATUS);
        EXPECT_EQ(status.sstat_state, SCTP_ESTABLISHED);
        EXPECT_EQ(status.sstat_primary.spinfo_state, SCTP_INACTIVE);
        transfer.fill(0x702, transfer.sent() + 100);
        transfer.drain();

        network.restore(0, manner);
        await(pair.client, SCTP_ADDR_AVAILABLE, peers[0]);
        EXPECT_EQ(state_of(pair.client, peers[0]), SCTP_ACTIVE);
        transfer.fill(0x703, transfer.sent() + 100);
        transfer.drain();

        EXPECT_EQ(query<struct sctp_status>(pair.client, 0, SCTP_STATUS).sstat_state, SCTP_ESTABLISHED);
        pair.client.close();
        EXPECT_EQ(next(pair.server).data, "") << "nothing behind the last message";
        auto found = addresses_of_phases(capture);
        using Set = std::set<std::string>;
        EXPECT_EQ(found["0x701"], Set({far[0], far[1]})) << "before the cut, and what it caught";
        EXPECT_EQ(found["0x702"], Set({far[1]})) << "after the cut";
        EXPECT_EQ(found["0x703"].count(far[0]), 1U) << "after the return"; /* a machine that stalls may send twice */
    }
};

INSTANTIATE_FOR_IPV4_AND_IPV6(LiveSctpPaths);

TEST_P(LiveSctpPaths, TransferSurvivesALinkThatGoesDown)
{
    expect_transfer_survives(Network::link_down);
}

TEST_P(LiveSctpPaths, TransferSurvivesAPathThatLosesEverything)
{
    expect_transfer_survives(Network::total_loss);
}

TEST_P(LiveSctpPaths, AssociationEndsWhenNoPathIsLeft)
{
    auto events = subscription({&sctp_event_subscribe::sctp_association_event});
    network.set("net/sctp/association_max_retrans", 10000); /* lives while the paths are cut, however long that takes */
    OneToOne pair = one2one(&events);
    EXPECT_EQ(next_event<struct sctp_assoc_change>(pair.client, SCTP_ASSOC_CHANGE).sac_state, SCTP_COMM_UP);

    network.cut(0, Network::total_loss);
    network.cut(1, Network::total_loss);
    send_message(pair.client, "nobody hears this", pair.id);
    struct sctp_assocparams few = {};
    few.sasoc_asocmaxrxt = 2;
    set(pair.client, SCTP_ASSOCINFO, &few, sizeof(few));

    auto change = next_event<struct sctp_assoc_change>(pair.client, SCTP_ASSOC_CHANGE);
    EXPECT_EQ(change.sac_state, SCTP_COMM_LOST);
    EXPECT_EQ(change.sac_error, SCTP_FAILED_THRESHOLD);
}

} // namespace
