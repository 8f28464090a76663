/* SCTP with programs that were written elsewhere, as their server and as their client. */
#include "live_sctp.h"

namespace
{

class LiveSctpPeers : public LiveSctp
{
  protected:
    const int port = new_port();
    const std::string number = std::to_string(port);

    Descriptor client() /* which knows one address of its peer */
    {
        Addresses texts = {far[0]};
        sctp_assoc_t id;
        return on(near_host, [&] {
            return kel_sctp_client_one2one_str_create(inet.family, array(texts).data(), 1, (SHORT)port, &ten, NULL,
                                                      &id);
        });
    }

    std::string in_brackets(const std::string &address)
    {
        return inet.family == KEL_AF_INET6 ? "[" + address + "]" : address;
    }

    std::string received_messages(LONG sockfd, size_t size)
    {
        std::string data;
        for (bool more = true; more && data.size() < size;) {
            std::string message = next(sockfd).data;
            more = !message.empty();
            data += message;
        }
        return data;
    }

    void expect_both_directions(LONG connection, Peer &peer)
    {
        const std::string there = pattern(100000), back = pattern(70001);
        for (size_t place = 0; place < there.size(); place += 5000) {
            send_message(connection, there.substr(place, 5000), 0);
        }
        expect_same(peer.read(there.size()), there);
        peer.write(back);
        expect_same(received_messages(connection, back.size()), back);
    }

    /* The program ends first. */
    void expect_server_talks_to(const std::vector<std::string> &command)
    {
        Descriptor listener = one2one_server(port);
        Peer peer(command, &near_host);
        Descriptor connection = accepted(listener);

        expect_both_directions(connection, peer);

        peer.end_input();
        EXPECT_EQ(received_messages(connection, 1), "");
        connection.close();
        EXPECT_EQ(peer.exit_status(), 0);
    }

    /* The module ends first. */
    void expect_client_talks_to(const std::vector<std::string> &command)
    {
        Peer peer(command, &far_host);
        peer.wait_until_it_says("istening on");
        Descriptor connection = client();

        expect_both_directions(connection, peer);

        connection.close();
        peer.end_input();
        EXPECT_EQ(peer.exit_status(), 0);
    }
};

INSTANTIATE_FOR_IPV4_AND_IPV6(LiveSctpPeers);

TEST_P(LiveSctpPeers, TalksToSocat)
{
    const std::string socat = "SCTP" + std::string(inet.socat);
    expect_server_talks_to({"socat", "-", socat + ":" + in_brackets(far[1]) + ":" + number});
    expect_client_talks_to(
        {"socat", "-d", "-d", socat + "-LISTEN:" + number + ",reuseaddr,bind=" + in_brackets(far[0]), "-"});
}

TEST_P(LiveSctpPeers, TalksToNcat)
{
    expect_server_talks_to({"ncat", "--sctp", inet.ncat, far[1], number});
    expect_client_talks_to({"ncat", "-v", "-l", "--sctp", inet.ncat, far[0], number});
}

TEST_P(LiveSctpPeers, OneToManyServerTalksToDarnOverBothPaths)
{
    int theirs = new_port();
    Descriptor listener = one2many_server(port);
    Peer peer(
        {"sctp_darn", "-H", near[0], "-B", near[1], "-P", std::to_string(theirs), "-h", far[0], "-p", number, "-s"},
        &near_host);

    peer.write("hello from elsewhere\n");

    Message message = next(listener);
    EXPECT_EQ(message.data.substr(0, 20), "hello from elsewhere");
    expect_one_of(message.from, records(inet, near, theirs));
    EXPECT_EQ(peers_of(listener, message.info.sinfo_assoc_id), named(records(inet, near, theirs)));
}

TEST_P(LiveSctpPeers, ClientTalksToDarnOverBothPaths)
{
    Peer peer({"stdbuf", "-oL", "sctp_darn", "-H", far[0], "-B", far[1], "-P", number, "-l"}, &far_host);
    Descriptor connection;
    while (connection == KEL_ERROR) { /* refused until the program listens, which it does not say */
        connection = client();
    }

    EXPECT_EQ(peers_of(connection), named(far_records(port))) << "the client was told of the second one";
    send_message(connection, "hello from the module\n", 0);

    peer.read_until("hello from the module");
}

} // namespace
