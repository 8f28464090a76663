/* Local endpoints. */
#include "live.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

class LiveUnix : public Live
{
  protected:
    Folder folder;
    const std::string path = folder.file("socket");

    Descriptor server(const std::string &where, LONG backlog = 5)
    {
        return kel_unix_tcp_server_socket_create(where.c_str(), backlog);
    }
    Descriptor client(const std::string &where)
    {
        return kel_unix_tcp_client_socket_create(where.c_str());
    }
    Descriptor datagram(const std::string &where)
    {
        return kel_unix_udp_socket_create(where.c_str(), KEL_TRUE);
    }
    kel_sockaddr_t record_of_path(const std::string &where)
    {
        kel_sockaddr_t record;
        EXPECT_EQ(kel_addr_fill(0, &record, KEL_AF_UNIX, 0, where.c_str(), 0, NULL), KEL_OK);
        return record;
    }
};

bool is_socket(const std::string &path)
{
    struct stat found;
    return lstat(path.c_str(), &found) == 0 && S_ISSOCK(found.st_mode);
}

void make_file(const std::string &path)
{
    close(open(path.c_str(), O_CREAT | O_WRONLY, 0600));
}

void expect_conversation(LONG connection, Peer &peer)
{
    const std::string there = pattern(100000), back = pattern(70001);
    send_all(connection, there);
    expect_same(peer.read(there.size()), there);
    peer.write(back);
    expect_same(received(connection, back.size()), back);
}

TEST_F(LiveUnix, ClientWithoutAServerReportsTheConnectAndThenTheStep)
{
    Reports shown;

    EXPECT_EQ(client(path), KEL_ERROR);

    std::string text = shown.text();
    size_t first = text.find("connect :: No such file or directory");
    EXPECT_NE(first, std::string::npos);
    EXPECT_NE(text.find("connect failed: No such file or directory", first), std::string::npos);
}

TEST_F(LiveUnix, ClientOfAServerThatIsGoneIsRefused)
{
    server(path).close();
    Reports shown;

    EXPECT_EQ(client(path), KEL_ERROR);

    EXPECT_NE(shown.text().find("connect failed: Connection refused"), std::string::npos);
}

TEST_F(LiveUnix, ServerWhereNoFileCanBeFails)
{
    Reports shown;

    EXPECT_EQ(server(folder.file("no/folder")), KEL_ERROR);

    EXPECT_NE(shown.text().find("bind unix socket: No such file or directory"), std::string::npos);
}

TEST_F(LiveUnix, ServerWithoutAPathFails)
{
    EXPECT_EQ(kel_unix_tcp_server_socket_create(NULL, 5), KEL_ERROR);
    EXPECT_EQ(kel_unix_tcp_client_socket_create(NULL), KEL_ERROR);
    EXPECT_EQ(kel_unix_udp_socket_create(NULL, KEL_TRUE), KEL_ERROR);
}

TEST_F(LiveUnix, DatagramSocketLeavesTheFileOfAnother)
{
    make_file(path);
    Reports shown;

    EXPECT_EQ(datagram(path), KEL_ERROR);

    EXPECT_NE(shown.text().find("bind unix socket: Address already in use"), std::string::npos);
    EXPECT_EQ(access(path.c_str(), F_OK), 0);
    EXPECT_FALSE(is_socket(path));
}

TEST_F(LiveUnix, EveryEndpointHasItsOptions)
{
    Descriptor listener = server(path);
    Descriptor connected = client(path);
    Descriptor bound = datagram(folder.file("datagram"));
    Descriptor unbound(kel_unix_udp_socket_create(NULL, KEL_FALSE));

    expect_socket_of(listener, AF_UNIX, SOCK_STREAM);
    expect_socket_of(connected, AF_UNIX, SOCK_STREAM);
    expect_socket_of(bound, AF_UNIX, SOCK_DGRAM);
    expect_socket_of(unbound, AF_UNIX, SOCK_DGRAM);
}

TEST_F(LiveUnix, ServerTakesThePlaceOfAnyFile)
{
    make_file(path);

    Descriptor first = server(path);
    EXPECT_TRUE(is_socket(path));
    Descriptor second = server(path);

    Descriptor connected = client(path);
    Descriptor connection = accepted(second);
}

TEST_F(LiveUnix, SocketFileStaysWhenTheDescriptorIsClosed)
{
    server(path).close();
    EXPECT_TRUE(is_socket(path));

    std::string other = folder.file("datagram");
    datagram(other).close();
    EXPECT_TRUE(is_socket(other));
    EXPECT_EQ(datagram(other), KEL_ERROR);
}

TEST_F(LiveUnix, BacklogIsTheCallers)
{
    for (LONG asked : {0, 1, 7}) {
        Descriptor listener = server(path, asked);
        kel_sockaddr_t record = record_of_path(path);
        std::vector<Descriptor> waiting;
        LONG result = KEL_OK;
        while (result == KEL_OK && waiting.size() < 20) {
            waiting.emplace_back(kel_socket(KEL_AF_UNIX, (kel_socktype_t)(KEL_SOCK_STREAM | SOCK_NONBLOCK), 0));
            result = kel_connect(waiting.back(), &record);
        }
        EXPECT_EQ(errno, EAGAIN);
        EXPECT_EQ((LONG)waiting.size(), asked + 2) << "one beyond the backlog fits, and the last one did not";
    }
}

TEST_F(LiveUnix, PathsOf107CharactersFit)
{
    std::string longest = folder.file_of_length(107);
    Descriptor listener = server(longest);
    ASSERT_NE(listener, KEL_ERROR);
    EXPECT_TRUE(is_socket(longest));
    Descriptor connected = client(longest);
    EXPECT_STREQ(peer_of(connected).un.sun_path, longest.c_str());
    Descriptor connection = accepted(listener);

    std::string name = folder.file_of_length(107).replace(106, 1, "d");
    Descriptor bound = datagram(name);
    Descriptor sender(kel_unix_udp_socket_create(NULL, KEL_FALSE));
    send_datagram(sender, "to the longest path", record_of_path(name));
    EXPECT_EQ(received_datagram(bound), "to the longest path");
}

/* The record holds them without a NUL; the kernel supplies one behind it. */
TEST_F(LiveUnix, PathsOf108CharactersFitWithoutTheirNul)
{
    std::string longest = folder.file_of_length(108);
    Descriptor listener = server(longest);
    ASSERT_NE(listener, KEL_ERROR);
    EXPECT_TRUE(is_socket(longest));
    Descriptor connected = client(longest);
    Descriptor connection = accepted(listener);
    send_all(connected, "through");
    EXPECT_EQ(received(connection, 7), "through");

    std::string name = folder.file_of_length(108).replace(107, 1, "d");
    Descriptor bound = datagram(name);
    EXPECT_TRUE(is_socket(name));
    Descriptor sender(kel_unix_udp_socket_create(NULL, KEL_FALSE));
    send_datagram(sender, "to the longest path", record_of_path(name));
    EXPECT_EQ(received_datagram(bound), "to the longest path");
}

TEST_F(LiveUnix, PathsThatAreLongerAreCut)
{
    std::string longer = folder.file_of_length(120);

    Descriptor listener = server(longer);

    ASSERT_NE(listener, KEL_ERROR);
    EXPECT_FALSE(is_socket(longer));
    EXPECT_TRUE(is_socket(longer.substr(0, 108)));
}

TEST_F(LiveUnix, NamesArePaths)
{
    Descriptor listener = server(path);
    Descriptor connected = client(path);
    kel_sockaddr_t peer;
    Descriptor connection = accepted(listener, &peer);

    EXPECT_EQ(text_of(name_of(listener)), "file " + path);
    EXPECT_EQ(text_of(peer_of(connected)), "file " + path);
    EXPECT_EQ(text_of(peer), "file ") << "the client has none";
}

TEST_F(LiveUnix, DatagramsArriveWithTheirSender)
{
    std::string other = folder.file("other");
    Descriptor one = datagram(path), two = datagram(other);
    kel_sockaddr_t from;

    for (size_t size : {0, 1, 100000}) {
        send_datagram(one, pattern(size), record_of_path(other));
        expect_same(received_datagram(two, &from), pattern(size));
        kel_sockaddr_t expected = record_of_path(path);
        EXPECT_EQ(kel_sock_addr_cmp(&from, &expected, KEL_FALSE), KEL_OK) << text_of(from);
        send_datagram(two, "back", from);
        EXPECT_EQ(received_datagram(one), "back");
    }
}

TEST_F(LiveUnix, ServerTalksToSocat)
{
    Descriptor listener = server(path);
    Peer peer({"socat", "-", "UNIX-CONNECT:" + path});
    Descriptor connection = accepted(listener);

    expect_conversation(connection, peer);
    peer.end_input();
    EXPECT_EQ(received(connection, 1), "");
    connection.close();
    EXPECT_EQ(peer.exit_status(), 0);
}

TEST_F(LiveUnix, ClientTalksToSocat)
{
    Peer peer({"socat", "-d", "-d", "UNIX-LISTEN:" + path, "-"});
    peer.wait_until_it_says("listening on");
    Descriptor connection = client(path);

    expect_conversation(connection, peer);
    peer.end_input();
    EXPECT_EQ(received(connection, 1), "");
    connection.close();
    EXPECT_EQ(peer.exit_status(), 0);
}

TEST_F(LiveUnix, ServerTalksToNcat)
{
    Descriptor listener = server(path);
    Peer peer({"ncat", "-U", path});
    Descriptor connection = accepted(listener);

    expect_conversation(connection, peer);
}

TEST_F(LiveUnix, ClientTalksToNcat)
{
    Peer peer({"ncat", "-v", "-l", "-U", path});
    peer.wait_until_it_says("Listening on");
    Descriptor connection = client(path);

    expect_conversation(connection, peer);
}

TEST_F(LiveUnix, DatagramSocketReceivesFromSocatAndAnswers)
{
    Descriptor bound = datagram(path);
    std::string other = folder.file("peer");
    Peer peer({"socat", "-", "UNIX-SENDTO:" + path + ",bind=" + other});
    kel_sockaddr_t from;
    peer.write("from socat");

    EXPECT_EQ(received_datagram(bound, &from), "from socat");
    EXPECT_EQ(text_of(from), "file " + other);
    send_datagram(bound, pattern(8000), from);
    expect_same(peer.read(8000), pattern(8000));
}

TEST_F(LiveUnix, DatagramSocketSendsToSocat)
{
    Peer peer({"socat", "-d", "-d", "-u", "UNIX-RECV:" + path, "-"});
    peer.wait_until_it_says("starting data transfer");
    Descriptor sender(kel_unix_udp_socket_create(NULL, KEL_FALSE));

    send_datagram(sender, pattern(8000), record_of_path(path));
    expect_same(peer.read(8000), pattern(8000));
}

TEST_F(LiveUnix, DatagramSocketReceivesFromNcat)
{
    Descriptor bound = datagram(path);
    Peer peer({"env", "TMPDIR=" + folder.file("."), "ncat", "-u", "-U", path}); /* which makes a file there */
    peer.write("from ncat");

    EXPECT_EQ(received_datagram(bound), "from ncat");
}

TEST_F(LiveUnix, DatagramSocketSendsToNcat)
{
    Peer peer({"ncat", "-v", "-l", "-u", "-U", path});
    peer.wait_until_it_says("Listening on");
    Descriptor sender = datagram(folder.file("sender")); /* ncat connects back and needs a name for it */

    send_datagram(sender, pattern(4000), record_of_path(path));
    expect_same(peer.read(4000), pattern(4000));
}

/* From client to server through a relay that was written elsewhere: a server to one and a client to the other. */
TEST_F(LiveUnix, MebibytesArriveWhole)
{
    Descriptor listener = server(path);
    std::string front = folder.file("front");
    Peer relay({"socat", "-d", "-d", "-u", "-b", "262144", "UNIX-LISTEN:" + front, "UNIX-CONNECT:" + path});
    relay.wait_until_it_says("listening on");
    Descriptor from = client(front);
    Descriptor to = accepted(listener);

    expect_stream_arrives_whole(from, to);

    from.close();
    EXPECT_EQ(received(to, 1), "") << "and nothing after it";
    EXPECT_EQ(relay.exit_status(), 0);
}

} // namespace
