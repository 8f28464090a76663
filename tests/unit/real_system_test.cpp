/*
 * What the headers promise of the system's part: no Recording lives, so calls go through to it. Local sockets and the
 * loopback serve, which need no privilege.
 */
#include "records.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

/* In a folder of its own, so that paths are short, and closed when the test ends, however it ends. */
class RealSystem : public testing::Test
{
  protected:
    void SetUp() override
    {
        const char *parent = getenv("TMPDIR");
        folder = std::string(parent != nullptr ? parent : "/tmp") + "/unit.XXXXXX";
        ASSERT_NE(mkdtemp(folder.data()), nullptr);
        former = open(".", O_RDONLY | O_DIRECTORY);
        ASSERT_EQ(chdir(folder.c_str()), 0);
    }
    void TearDown() override
    {
        for (LONG fd : opened) {
            kel_close(fd);
        }
        for (const std::string &file : files) {
            unlink(file.c_str());
        }
        ASSERT_EQ(fchdir(former), 0);
        close(former);
        rmdir(folder.c_str());
    }

    LONG owned(LONG fd)
    {
        EXPECT_NE(fd, KEL_ERROR);
        opened.push_back(fd);
        return fd;
    }
    LONG local_server(const char *path)
    {
        files.push_back(path);
        return owned(kel_unix_tcp_server_socket_create(path, 5));
    }
    LONG tcp_server()
    {
        return owned(kel_tcp_server_socket_create(KEL_AF_INET, "127.0.0.1", 0, 5));
    }
    static SHORT port_of(LONG fd)
    {
        kel_sockaddr_t name = poisoned();
        EXPECT_EQ(kel_getsockname(fd, &name), KEL_OK);
        return (SHORT)ntohs(name.sin.sin_port);
    }
    LONG accepted(LONG server)
    {
        kel_sockaddr_t peer;
        return owned(kel_accept(server, &peer));
    }

    std::vector<std::string> files;

  private:
    std::string folder;
    int former = -1;
    std::vector<LONG> opened;
};

/* A record whose family alone was written. */
std::string family_alone()
{
    kel_sockaddr_t expected = poisoned();
    expected.sa.sa_family = KEL_AF_UNIX;
    return bytes_of(expected);
}

TEST_F(RealSystem, WritesTheFamilyAloneForALocalSocketWithoutAPath)
{
    const LONG server = local_server("server");
    const LONG client = owned(kel_unix_tcp_client_socket_create("server"));
    kel_sockaddr_t peer = poisoned(), again = poisoned(), own = poisoned();

    const LONG connection = owned(kel_accept(server, &peer));
    EXPECT_EQ(kel_getpeername(connection, &again), KEL_OK);
    EXPECT_EQ(kel_getsockname(client, &own), KEL_OK);

    EXPECT_EQ(bytes_of(peer), family_alone());
    EXPECT_EQ(bytes_of(again), family_alone());
    EXPECT_EQ(bytes_of(own), family_alone());
}

TEST_F(RealSystem, LeavesTheRecordOfRecvfromAloneWhereThereIsNoSender)
{
    const LONG local = local_server("server");
    const LONG local_client = owned(kel_unix_tcp_client_socket_create("server"));
    const LONG tcp = tcp_server();
    const LONG tcp_client = owned(kel_tcp_client_socket_create(KEL_AF_INET, "127.0.0.1", port_of(tcp)));
    files.push_back("datagrams");
    const LONG datagrams = owned(kel_unix_udp_socket_create("datagrams", KEL_TRUE));
    const LONG unbound = owned(kel_unix_udp_socket_create(NULL, KEL_FALSE));
    kel_sockaddr_t receiver;
    ASSERT_EQ(kel_addr_fill(0, &receiver, KEL_AF_UNIX, 0, "datagrams", 0, NULL), KEL_OK);
    ASSERT_EQ(kel_send(local_client, "x", 1, 0), 1);
    ASSERT_EQ(kel_send(tcp_client, "x", 1, 0), 1);
    ASSERT_EQ(kel_sendto(unbound, "x", 1, 0, &receiver), 1);

    for (LONG fd : {accepted(local), accepted(tcp), datagrams}) {
        kel_sockaddr_t sender = poisoned();
        char byte;
        EXPECT_EQ(kel_recvfrom(fd, &byte, 1, 0, &sender), 1);
        EXPECT_EQ(bytes_of(sender), bytes_of(poisoned()));
    }
}

TEST_F(RealSystem, GivesThePortOfAUdpServerToASecondOne)
{
    const LONG first = owned(kel_udp_server_socket_create(KEL_AF_INET, "127.0.0.1", 0));
    const SHORT port = port_of(first);
    const LONG second = owned(kel_udp_server_socket_create(KEL_AF_INET, "127.0.0.1", port));
    kel_sockaddr_t server;
    const LONG client = owned(kel_udp_client_socket_create(KEL_AF_INET, "127.0.0.1", port, &server));
    char byte;

    ASSERT_EQ(kel_sendto(client, "x", 1, 0, &server), 1);

    EXPECT_EQ(kel_recv(second, &byte, 1, 0), 1);
    EXPECT_EQ(kel_recv(first, &byte, 1, MSG_DONTWAIT), KEL_ERROR);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(RealSystem, ClosesNoDescriptorOnExec)
{
    const LONG server = tcp_server();
    const LONG client = owned(kel_tcp_client_socket_create(KEL_AF_INET, "127.0.0.1", port_of(server)));

    for (LONG fd : {server, client, accepted(server), owned(kel_unix_udp_socket_create(NULL, KEL_FALSE))}) {
        EXPECT_EQ(fcntl((int)fd, F_GETFD), 0);
    }
}

TEST_F(RealSystem, BindsTheCutNameOfALongPathAndRemovesTheWholeOne)
{
    const std::string path(130, 'p'), cut(108, 'p');
    files = {path, cut};
    close(open(path.c_str(), O_CREAT | O_WRONLY, 0600));
    struct stat status;

    owned(kel_unix_tcp_server_socket_create(path.c_str(), 5));

    EXPECT_NE(stat(path.c_str(), &status), 0);
    ASSERT_EQ(stat(cut.c_str(), &status), 0);
    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    owned(kel_unix_tcp_client_socket_create(path.c_str()));
    testing::internal::CaptureStdout();
    EXPECT_EQ(kel_unix_tcp_server_socket_create(path.c_str(), 5), KEL_ERROR);
    const std::string console = testing::internal::GetCapturedStdout();
    EXPECT_NE(console.find(":bind unix socket: Address already in use"), std::string::npos) << console;
}

} // namespace
