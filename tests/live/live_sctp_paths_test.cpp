/* SCTP over two paths, one of which is cut in the middle of a transfer and comes back; a capture is the witness. */
#include "live_sctp.h"

#include <arpa/inet.h>
#include <map>
#include <set>

namespace
{

/* Numbered messages on one stream, of a thousand bytes each, compared as they arrive. */
class Transfer
{
  public:
    Transfer(LONG sender, LONG receiver) : from(sender), to(receiver)
    {
    }

    /* Until the kernel takes no more, or that many have been sent. */
    void fill(uint32_t ppid, size_t limit)
    {
        struct sctp_sndrcvinfo info = {};
        info.sinfo_ppid = htonl(ppid);
        for (; sent < limit; sent++) {
            std::string data = numbered(sent);
            LONG count = kel_sctp_send(from, data.data(), data.size(), &info, MSG_DONTWAIT);
            if (count == KEL_ERROR && errno == EAGAIN) {
                return;
            }
            ASSERT_EQ(count, (LONG)data.size()) << strerror(errno);
        }
    }

    void drain() /* until all that were sent have arrived */
    {
        for (; arrived < sent; arrived++) {
            ASSERT_EQ(next(to).data.compare(numbered(arrived)), 0) << "message " << arrived;
        }
    }

    void more(uint32_t ppid)
    {
        fill(ppid, sent + 100);
        drain();
    }

  private:
    LONG from, to;
    size_t sent = 0, arrived = 0;

    static std::string numbered(size_t number)
    {
        static const std::string data = pattern(100003);
        return std::to_string(number) + " " + data.substr(number % (data.size() - 1000), 1000);
    }
};

class LiveSctpPaths : public LiveSctp
{
  protected:
    /* Waits for the client's notification that a path is in this state, past those of other states. */
    void await(LONG client, int state, const kel_sockaddr_t &address)
    {
        struct sctp_paddr_change change = {};
        while (!HasFailure() && (change.spc_state != state || text_of(change.spc_aaddr) != text_of(address))) {
            change = next_event<struct sctp_paddr_change>(client, SCTP_PEER_ADDR_CHANGE);
        }
    }

    static struct sctp_status status_of(LONG client)
    {
        auto status = query<struct sctp_status>(client, 0, SCTP_STATUS);
        EXPECT_EQ(status.sstat_state, SCTP_ESTABLISHED);
        return status;
    }

    void expect_transfer_survives(Network::Manner manner)
    {
        int port = new_port();
        Capture capture(near_host, port);
        auto events = subscription({&sctp_event_subscribe::sctp_address_event});
        OneToOne pair = one2one(&events, nullptr, port);
        auto expect_states = [&](int first, int second) {
            EXPECT_EQ(path_of(pair.client, 0, pair.peers[0]).spinfo_state, first);
            EXPECT_EQ(path_of(pair.client, 0, pair.peers[1]).spinfo_state, second);
        };
        Transfer transfer(pair.client, pair.server);
        struct sctp_prim first = {};
        memcpy(&first.ssp_addr, &pair.peers[0], sizeof(struct sockaddr_in6));
        set(pair.client, SCTP_PRIMARY_ADDR, first);
        expect_states(SCTP_ACTIVE, SCTP_ACTIVE);

        transfer.fill(0x701, SIZE_MAX);
        auto before = status_of(pair.client);
        EXPECT_EQ(text_of(before.sstat_primary.spinfo_address), text_of(pair.peers[0]));
        EXPECT_GT(before.sstat_unackdata + before.sstat_penddata, 0) << "nothing is under way";

        network.cut(0, manner);
        struct sctp_paddrparams give_up = {}; /* a path that is missed more than once; until now no delay loses one */
        memcpy(&give_up.spp_address, &pair.peers[0], sizeof(struct sockaddr_in6));
        give_up.spp_pathmaxrxt = 1;
        set(pair.client, SCTP_PEER_ADDR_PARAMS, give_up);
        transfer.drain();
        await(pair.client, SCTP_ADDR_UNREACHABLE, pair.peers[0]);
        expect_states(SCTP_INACTIVE, SCTP_ACTIVE);
        EXPECT_EQ(status_of(pair.client).sstat_primary.spinfo_state, SCTP_INACTIVE);
        transfer.more(0x702);

        network.restore(0, manner);
        await(pair.client, SCTP_ADDR_AVAILABLE, pair.peers[0]);
        expect_states(SCTP_ACTIVE, SCTP_ACTIVE);
        transfer.more(0x703);
        status_of(pair.client);

        pair.client.close();
        EXPECT_EQ(next(pair.server).data, "") << "nothing behind the last message";
        using Set = std::set<std::string>;
        std::map<std::string, Set> found; /* where the data of each phase went, told by its payload protocol */
        for (const Capture::Chunk &chunk : capture.data()) {
            found[chunk.ppid].insert(chunk.address);
        }
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

TEST_P(LiveSctpPaths, MessageIsOnTheWireAsGivenAndGoesToTheAddressThatItNames)
{
    int port = new_port();
    Capture capture(near_host, port);
    OneToOne pair = one2one(nullptr, nullptr, port);
    kel_sockaddr_t second = pair.peers[1];

    EXPECT_EQ(kel_sctp_sendmsg(pair.client, "by sendmsg", 10, &second, htonl(0x01020304), SCTP_ADDR_OVER, 4, 0, 0), 10);
    expect_message(pair.server, "by sendmsg");
    send_message(pair.client, "by send", pair.id, 5, htonl(0x11121314));
    expect_message(pair.server, "by send");
    pair.client.close();

    using Set = std::set<std::vector<std::string>>;
    Set found;
    const auto data = capture.data();
    for (const Capture::Chunk &chunk : data) {
        found.insert({chunk.stream, chunk.ppid, chunk.port});
    }
    const std::string text = std::to_string(port);
    EXPECT_EQ(found, Set({{"4", "0x1020304", text}, {"5", "0x11121314", text}}));
    ASSERT_FALSE(data.empty());
    EXPECT_EQ(data[0].address, far[1]);
}

} // namespace
