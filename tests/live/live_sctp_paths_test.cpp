/* SCTP over two paths, one of which is cut in the middle of a transfer and comes back; a capture is the witness. */
#include "live_sctp.h"

#include <map>
#include <regex>
#include <set>
#include <sstream>
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

    /* Where the data of each phase went: the payload protocol, of which tcpdump knows no name, is the phase. */
    std::map<std::string, std::set<std::string>> addresses_of_phases(const Capture &capture)
    {
        static const std::regex packet(" > ([0-9a-f.:]+)\\.[0-9]+: sctp"),
            chunk("\\[DATA\\][^,]*\\[PPID (0x[0-9a-f]+)\\]");
        std::map<std::string, std::set<std::string>> found;
        std::istringstream text(capture.text());
        for (std::string line; std::getline(text, line);) {
            std::smatch address;
            if (!std::regex_search(line, address, packet)) {
                continue;
            }
            for (std::sregex_iterator data(line.begin(), line.end(), chunk), end; data != end; ++data) {
                found[(*data)[1]].insert(address[1]);
            }
        }
        return found;
    }

    void expect_transfer_survives(Cut::Manner manner)
    {
        Capture capture(near_host);
        auto events = subscription({&sctp_event_subscribe::sctp_address_event});
        OneToOne pair = one2one(&events);
        const auto peers = far_records(pair.port);
        Transfer transfer(pair.client, pair.server);
        EXPECT_EQ(state_of(pair.client, peers[0]), SCTP_ACTIVE);
        EXPECT_EQ(state_of(pair.client, peers[1]), SCTP_ACTIVE);

        transfer.fill(0x701, SIZE_MAX);
        auto before = query<struct sctp_status>(pair.client, 0, SCTP_STATUS);
        EXPECT_EQ(text_of(before.sstat_primary.spinfo_address), text_of(peers[0]));
        EXPECT_GT(before.sstat_unackdata + before.sstat_penddata, 0) << "nothing is under way";

        Cut cut(0, manner);
        transfer.drain();
        await(pair.client, SCTP_ADDR_UNREACHABLE, peers[0]);
        EXPECT_EQ(state_of(pair.client, peers[0]), SCTP_INACTIVE);
        EXPECT_EQ(state_of(pair.client, peers[1]), SCTP_ACTIVE);
        auto status = query<struct sctp_status>(pair.client, 0, SCTP_STATUS);
        EXPECT_EQ(status.sstat_state, SCTP_ESTABLISHED);
        EXPECT_EQ(status.sstat_primary.spinfo_state, SCTP_INACTIVE);
        transfer.fill(0x702, transfer.sent() + 100);
        transfer.drain();

        cut.restore();
        await(pair.client, SCTP_ADDR_AVAILABLE, peers[0]);
        EXPECT_EQ(state_of(pair.client, peers[0]), SCTP_ACTIVE);
        transfer.fill(0x703, transfer.sent() + 100);
        transfer.drain();

        EXPECT_EQ(query<struct sctp_status>(pair.client, 0, SCTP_STATUS).sstat_state, SCTP_ESTABLISHED);
        pair.client.close();
        EXPECT_EQ(next(pair.server).data, "") << "nothing behind the last message";
        capture.end_at("[SHUTDOWN COMPLETE]");

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
    expect_transfer_survives(Cut::link_down);
}

TEST_P(LiveSctpPaths, TransferSurvivesAPathThatLosesEverything)
{
    expect_transfer_survives(Cut::total_loss);
}

TEST_P(LiveSctpPaths, AssociationEndsWhenNoPathIsLeft)
{
    auto events = subscription({&sctp_event_subscribe::sctp_association_event});
    Setting few("net/sctp/association_max_retrans", 2);
    OneToOne pair = one2one(&events);
    EXPECT_EQ(next_event<struct sctp_assoc_change>(pair.client, SCTP_ASSOC_CHANGE).sac_state, SCTP_COMM_UP);

    Cut first(0, Cut::total_loss), second(1, Cut::total_loss);

    send_message(pair.client, "nobody hears this", pair.id);
    auto change = next_event<struct sctp_assoc_change>(pair.client, SCTP_ASSOC_CHANGE);
    EXPECT_EQ(change.sac_state, SCTP_COMM_LOST);
    EXPECT_EQ(change.sac_error, SCTP_FAILED_THRESHOLD);
}

} // namespace
