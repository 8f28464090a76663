/* Stream endpoints: TCP over either IP family, and local ones. */
#include "live.h"

#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

/* Where a server may be: a free port on loopback or, without an IP family, a path of no file. */
class Place
{
  public:
    explicit Place(const Inet *family) : inet(family), port(family != nullptr ? *family : ipv4(), KEL_SOCK_STREAM)
    {
    }
    Descriptor server() const
    {
        return inet != nullptr ? kel_tcp_server_socket_create(inet->family, inet->loopback, (SHORT)port.number, 5)
                               : kel_unix_tcp_server_socket_create(path.c_str(), 5);
    }
    Descriptor client() const
    {
        return inet != nullptr ? kel_tcp_client_socket_create(inet->family, inet->loopback, (SHORT)port.number)
                               : kel_unix_tcp_client_socket_create(path.c_str());
    }
    std::string name() const /* as kel_addr_showstr() writes it */
    {
        return inet != nullptr ? text_of(record_of(*inet, inet->loopback, port.number)) : "file " + path;
    }

    std::string socat(bool listens) const
    {
        if (inet == nullptr) {
            return (listens ? "UNIX-LISTEN:" : "UNIX-CONNECT:") + path;
        }
        const std::string tcp = "TCP" + std::string(inet->socat), number = std::to_string(port.number);
        return listens ? tcp + "-LISTEN:" + number + ",reuseaddr,bind=" + inet->socat_address()
                       : tcp + ":" + inet->socat_address() + ":" + number;
    }
    std::vector<std::string> ncat(bool listens) const
    {
        std::vector<std::string> command = {"ncat", "-v"};
        if (listens) {
            command.push_back("-l");
        }
        if (inet == nullptr) {
            command.insert(command.end(), {"-U", path});
        } else {
            command.insert(command.end(), {inet->ncat, inet->loopback, std::to_string(port.number)});
        }
        return command;
    }

  private:
    const Inet *inet;
    const Port port;
    const Folder folder;
    const std::string path = folder.file("socket");
};

class LiveStream : public Live, public testing::WithParamInterface<const Inet *>
{
  protected:
    const Inet *inet = GetParam();
    const Place place{inet};

    /* A peer that was written elsewhere and sends back nothing by itself: both directions, then the end of both. */
    void expect_conversation(bool serves, const Place &at, const std::vector<std::string> &command)
    {
        SCOPED_TRACE(command[0] + (serves ? " as the client" : " as the server"));
        Descriptor listener = serves ? at.server() : Descriptor();
        Peer peer(command);
        if (!serves) {
            peer.wait_until_it_says("istening on");
        }
        Descriptor connection = serves ? accepted(listener) : at.client();

        const std::string there = pattern(100000), back = pattern(70001);
        send_all(connection, there);
        expect_same(peer.read(there.size()), there);
        peer.write(back);
        expect_same(received(connection, back.size()), back);
        peer.end_input();
        if (serves || command[0] == "socat") { /* a listening ncat waits for the other end */
            EXPECT_EQ(received(connection, 1), "");
        }
        connection.close();
        EXPECT_EQ(peer.exit_status(), 0);
    }
};

INSTANTIATE_TEST_SUITE_P(, LiveStream, testing::Values(&ipv4(), &ipv6(), nullptr), [](const auto &made) {
    return std::string(made.param != nullptr ? made.param->name : "Local");
});

TEST_P(LiveStream, TalksToSocat)
{
    for (bool serves : {true, false}) {
        const Place at(inet);
        expect_conversation(serves, at, {"socat", "-d", "-d", "-", at.socat(!serves)});
    }
}

TEST_P(LiveStream, TalksToNcat)
{
    for (bool serves : {true, false}) {
        const Place at(inet);
        expect_conversation(serves, at, at.ncat(!serves));
    }
}

/* From client to server through a relay that was written elsewhere: a server to one and a client to the other. */
TEST_P(LiveStream, MebibytesArriveWhole)
{
    const Place front(inet);
    Descriptor listener = place.server();
    Peer relay({"socat", "-d", "-d", "-u", "-b", "262144", front.socat(true), place.socat(false)});
    relay.wait_until_it_says("listening on");
    Descriptor from = front.client();
    Descriptor to = accepted(listener);

    expect_stream_arrives_whole(from, to);

    from.close();
    EXPECT_EQ(received(to, 1), "") << "and nothing after it";
    EXPECT_EQ(relay.exit_status(), 0);
}

TEST_P(LiveStream, EndpointsHaveTheirOptionsAndNames)
{
    Descriptor listener = place.server(), connected = place.client();
    kel_sockaddr_t peer;
    Descriptor connection = accepted(listener, &peer);

    for (LONG sockfd : {(LONG)listener, (LONG)connected}) {
        expect_socket_of(sockfd, inet != nullptr ? inet->family : KEL_AF_UNIX, SOCK_STREAM);
    }
    EXPECT_EQ(text_of(name_of(listener)), place.name());
    EXPECT_EQ(text_of(name_of(connection)), place.name());
    EXPECT_EQ(text_of(peer_of(connected)), place.name());
    EXPECT_EQ(text_of(peer), inet != nullptr ? text_of(name_of(connected)) : "file ") << "a local client has none";
    EXPECT_EQ(text_of(peer), text_of(peer_of(connection)));
}

/* Where old connections linger, or the file of the first one is left. */
TEST_P(LiveStream, RestartedServerTakesItsPlace)
{
    Descriptor first = place.server(), connected = place.client();
    accepted(first).close(); /* the server's side ends first: it is the one that lingers */
    EXPECT_EQ(received(connected, 1), "");
    connected.close();
    first.close();

    Descriptor second = place.server();

    EXPECT_NE(place.client(), KEL_ERROR);
    EXPECT_NE(accepted(second), KEL_ERROR);
}

/* ---- TCP --------------------------------------------------------------------------------------------------------- */

class LiveTcp : public LiveInet
{
};

INSTANTIATE_FOR_IPV4_AND_IPV6(LiveTcp);

TEST_P(LiveTcp, ServerWithoutAnAddressIsReachedThroughItsOwnFamilyAlone)
{
    const Inet &other = inet.family == KEL_AF_INET ? ipv6() : ipv4();
    Port port(other, KEL_SOCK_STREAM);

    Descriptor listener(kel_tcp_server_socket_create(inet.family, NULL, (SHORT)port.number, 5));

    EXPECT_EQ(text_of(name_of(listener)), text_of(record_of(inet, inet.wildcard, port.number)));
    EXPECT_EQ(kel_tcp_client_socket_create(other.family, other.loopback, (SHORT)port.number), KEL_ERROR);
    Descriptor connected(kel_tcp_client_socket_create(inet.family, inet.loopback, (SHORT)port.number));
    EXPECT_NE(accepted(listener), KEL_ERROR);
    Descriptor beside(kel_tcp_server_socket_create(other.family, NULL, (SHORT)port.number, 5));
    EXPECT_NE(beside, KEL_ERROR) << "the port is free in the other family";
}

TEST_P(LiveTcp, ClientConnectsFromItsRecordIfItCan)
{
    Descriptor listener(kel_tcp_server_socket_create(inet.family, inet.loopback, 0, 5));
    Port port(inet, KEL_SOCK_STREAM);
    kel_sockaddr_t mine = record_of(inet, inet.loopback, port.number);
    kel_sockaddr_t cannot = record_of(inet, inet.elsewhere, 1);
    kel_sockaddr_t portless = record_of(inet, inet.elsewhere, 0); /* no bind is tried, which would fail */

    for (kel_sockaddr_t *record : {&mine, &cannot, &portless, (kel_sockaddr_t *)nullptr}) {
        Descriptor connected(
            kel_tcp_client_socket_create_bind(inet.family, inet.loopback, (SHORT)port_of(listener), record));

        expect_socket_of(connected, inet.family, SOCK_STREAM);
        kel_sockaddr_t peer;
        Descriptor connection = accepted(listener, &peer);
        EXPECT_EQ(text_of(peer), text_of(name_of(connected)));
        EXPECT_EQ(text_of(peer), text_of(record_of(inet, inet.loopback, port_of(connected))));
        EXPECT_EQ(port_of(connected) == port.number, record == &mine);
        connected.close(); /* first, so that the port is not the server's to linger on */
    }
}

/* ---- Local ------------------------------------------------------------------------------------------------------- */

bool is_socket(const std::string &path)
{
    struct stat found;
    return lstat(path.c_str(), &found) == 0 && S_ISSOCK(found.st_mode);
}

class LiveUnix : public Live
{
  protected:
    const Folder folder;

    /* A path in the folder of exactly that many characters. */
    std::string path_of_length(size_t length)
    {
        return folder.file(std::string(length - folder.file("").size(), 'p'));
    }
};

TEST_F(LiveUnix, StreamServerTakesThePlaceOfAnyFileAndADatagramSocketDoesNot)
{
    const std::string path = folder.file("socket");
    fclose(fopen(path.c_str(), "w"));

    EXPECT_EQ(kel_unix_udp_socket_create(path.c_str(), KEL_TRUE), KEL_ERROR);
    EXPECT_FALSE(is_socket(path));
    for (int times = 0; times < 2; times++) {
        Descriptor listener(kel_unix_tcp_server_socket_create(path.c_str(), 5));
        listener.close();
        EXPECT_TRUE(is_socket(path)) << "it stays when the descriptor is closed";
    }
    EXPECT_EQ(kel_unix_udp_socket_create(path.c_str(), KEL_TRUE), KEL_ERROR);
}

/* A path of 108 characters fills the record without a NUL, which the kernel supplies; what is longer is cut. */
TEST_F(LiveUnix, PathsOfUpTo108CharactersFit)
{
    for (size_t length : {107, 108, 120}) {
        SCOPED_TRACE(length);
        const std::string path = path_of_length(length), bound = path.substr(0, 108);
        {
            Descriptor listener(kel_unix_tcp_server_socket_create(path.c_str(), 5));
            EXPECT_TRUE(is_socket(bound));
            Descriptor connected(kel_unix_tcp_client_socket_create(path.c_str()));
            Descriptor connection = accepted(listener);
            const kel_sockaddr_t name = peer_of(connected);
            EXPECT_EQ(std::string(name.un.sun_path, strnlen(name.un.sun_path, 108)), bound);
            send_all(connected, "through");
            EXPECT_EQ(received(connection, 7), "through");
        }
        unlink(bound.c_str());
        Descriptor datagrams(kel_unix_udp_socket_create(path.c_str(), KEL_TRUE));
        EXPECT_TRUE(is_socket(bound));
        send_datagram(Descriptor(kel_unix_udp_socket_create(NULL, KEL_FALSE)), "to a path", record_of_path(path));
        EXPECT_EQ(received_datagram(datagrams), "to a path");
        unlink(bound.c_str());
    }
}

} // namespace
