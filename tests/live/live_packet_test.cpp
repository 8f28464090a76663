/* Packet endpoint and interface queries, on a pair of interfaces whose other end is another host. */
#include "live.h"

#include <arpa/inet.h>
#include <linux/capability.h>
#include <net/if.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr const char *near = "kel0", *far = "kel1", *beside = "kel2", *down = "kel4";
const std::string near_mac("\x02\x00\x00\x00\x00\x0a", 6), far_mac("\x02\x00\x00\x00\x00\x0b", 6);
constexpr int local_experiment = 0x88b5, other_experiment = 0x88b6, every_protocol = 3;

/* A whole frame: receiver, sender, protocol, payload. */
std::string frame(const std::string &receiver, const std::string &sender, int protocol, const std::string &payload)
{
    return receiver + sender + (char)(protocol >> 8) + (char)protocol + payload;
}

class LivePacket : public Live
{
  protected:
    /* Three wires to another host, one of which stays down. Without addresses, there is no traffic but the tests'. */
    LivePacket()
    {
        const Interface first{own, near, near_mac}, first_end{other, far, far_mac};
        const Interface second{own, beside}, second_end{other, "kel3"};
        lay_wire(first, first_end);
        lay_wire(second, second_end);
        lay_wire({own, down}, {other, "kel5"});
        connect_wire(first, first_end);
        connect_wire(second, second_end);
    }

    /* What happens on the other host; a socket that was made there stays there. */
    Descriptor open_far(int protocol)
    {
        Namespace::Visit there(other);
        return kel_raw_server_socket_create((SHORT)protocol, far);
    }

    void send_from_far(const std::string &data)
    {
        Namespace::Visit there(other);
        Descriptor sender = kel_raw_server_socket_create((SHORT)other_experiment, far);
        EXPECT_EQ(kel_raw_sendto(sender, far, data.data(), data.size(), 0), (LONG)data.size()) << strerror(errno);
    }

    const Namespace own, other;

  private:
    const Namespace::Visit here{own};
};

bool nothing_to_receive(LONG sockfd)
{
    char byte;
    return kel_recv(sockfd, &byte, 1, MSG_DONTWAIT) == KEL_ERROR && errno == EAGAIN;
}

TEST_F(LivePacket, UnknownInterfaceReportsAndLeavesNothingOpen)
{
    Reports shown;

    EXPECT_EQ(kel_raw_server_socket_create(every_protocol, "kel9"), KEL_ERROR);

    EXPECT_NE(shown.text().find("bind raw socket: No such device"), std::string::npos) << shown.text();
}

TEST_F(LivePacket, MissingInterfaceNameReportsAndLeavesNothingOpen)
{
    Reports shown;

    EXPECT_EQ(kel_raw_server_socket_create(every_protocol, NULL), KEL_ERROR);

    size_t first = shown.text().find("ifName is null");
    EXPECT_NE(first, std::string::npos);
    EXPECT_NE(shown.text().find("bind raw socket", first), std::string::npos);
}

TEST_F(LivePacket, UnknownInterfaceOfARecordClosesTheDescriptor)
{
    LONG queried = kel_socket(KEL_AF_PACKET, KEL_SOCK_RAW, 0), bound = kel_socket(KEL_AF_PACKET, KEL_SOCK_RAW, 0);
    kel_sockaddr_t record;

    EXPECT_EQ(kel_addr_fill(queried, &record, KEL_AF_PACKET, 0, NULL, every_protocol, "kel9"), KEL_ERROR);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_EQ(kel_bind_str(bound, KEL_AF_PACKET, 0, NULL, every_protocol, "kel9"), KEL_ERROR);
    EXPECT_EQ(errno, ENODEV);

    EXPECT_EQ(kel_close(queried), KEL_ERROR);
    EXPECT_EQ(kel_close(bound), KEL_ERROR);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(LivePacket, NothingWorksWithoutThePrivilege)
{
    Reports shown;
    pid_t child = fork();
    if (child == 0) {
        struct __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        struct __user_cap_data_struct none[2] = {};
        UCHAR mac[6];
        bool dropped = syscall(SYS_capset, &header, none) == 0;
        bool refused = kel_raw_server_socket_create(every_protocol, near) == KEL_ERROR &&
                       kel_get_if_mac_addr(near, mac) == KEL_ERROR;
        (void)shown.text(); /* what is still in this process goes out */
        _exit(dropped && refused ? 0 : 1);
    }
    int status;
    waitpid(child, &status, 0);

    EXPECT_EQ(status, 0);
    EXPECT_NE(shown.text().find("create raw socket: Operation not permitted"), std::string::npos);
    EXPECT_NE(shown.text().find("socket() failed to get socket descriptor for using ioctl() : Operation not permitted"),
              std::string::npos);
}

TEST_F(LivePacket, SendOutOfAnUnknownInterfaceFails)
{
    Descriptor sender(kel_raw_server_socket_create(every_protocol, near));
    Reports shown;

    EXPECT_EQ(kel_raw_sendto(sender, "kel9", "x", 1, 0), KEL_ERROR);

    size_t first = shown.text().find("ioctl() failed to get source MAC address : No such device");
    EXPECT_NE(first, std::string::npos);
    EXPECT_NE(shown.text().find("get mac addr: No such device", first), std::string::npos);
}

TEST_F(LivePacket, SendOutOfAnInterfaceThatIsDownTellsWhy)
{
    Descriptor sender(kel_raw_server_socket_create(every_protocol, near));
    std::string data = frame(far_mac, near_mac, local_experiment, pattern(60));

    EXPECT_EQ(kel_raw_sendto(sender, down, data.data(), data.size(), 0), KEL_ERROR);
    EXPECT_EQ(errno, ENETDOWN);
}

TEST_F(LivePacket, HardwareAddressIsTheInterfaces)
{
    UCHAR mac[7] = {0, 0, 0, 0, 0, 0, 0x77};

    EXPECT_EQ(kel_get_if_mac_addr(near, mac), KEL_OK);

    EXPECT_EQ(std::string((const char *)mac, 6), near_mac);
    EXPECT_EQ(mac[6], 0x77);
    EXPECT_EQ(kel_get_if_mac_addr("kel9", mac), KEL_ERROR);
    EXPECT_EQ(std::string((const char *)mac, 6), near_mac) << "a failure leaves it alone";
}

TEST_F(LivePacket, EndpointIsBoundToInterfaceAndProtocol)
{
    Descriptor receiver(kel_raw_server_socket_create((SHORT)local_experiment, near));
    kel_sockaddr_t name = name_of(receiver);

    EXPECT_EQ(name.raw.sll_family, AF_PACKET);
    EXPECT_EQ(name.raw.sll_ifindex, (int)if_nametoindex(near));
    EXPECT_EQ(name.raw.sll_protocol, htons(local_experiment));
    EXPECT_EQ(option(receiver, SOL_SOCKET, SO_REUSEADDR), 1);
    EXPECT_EQ(option(receiver, SOL_SOCKET, SO_TYPE), SOCK_RAW);
}

TEST_F(LivePacket, ReceivesEveryFrameOfItsInterfaceAlone)
{
    Descriptor receiver(kel_raw_server_socket_create(every_protocol, near));
    std::string elsewhere = frame(far_mac, near_mac, local_experiment, "beside");
    EXPECT_EQ(kel_raw_sendto(receiver, beside, elsewhere.data(), elsewhere.size(), 0), (LONG)elsewhere.size());

    for (int protocol : {local_experiment, other_experiment, 0x0800, 0x1234}) {
        std::string data = frame(near_mac, far_mac, protocol, pattern(100));
        send_from_far(data);

        kel_sockaddr_t sender;
        expect_same(received_datagram(receiver, &sender), data);
        EXPECT_EQ(std::string((const char *)sender.raw.sll_addr, 6), far_mac);
        EXPECT_EQ(sender.raw.sll_protocol, htons((uint16_t)protocol));
        EXPECT_EQ(sender.raw.sll_ifindex, (int)if_nametoindex(near));
    }
    EXPECT_TRUE(nothing_to_receive(receiver));
}

TEST_F(LivePacket, ReceivesItsProtocolAlone)
{
    Descriptor receiver(kel_raw_server_socket_create((SHORT)local_experiment, near));
    send_from_far(frame(near_mac, far_mac, other_experiment, "another"));
    send_from_far(frame(near_mac, far_mac, 0xb588, "the bytes the other way round"));
    std::string data = frame(near_mac, far_mac, local_experiment, "this one");
    send_from_far(data);

    expect_same(received_datagram(receiver), data);
    EXPECT_TRUE(nothing_to_receive(receiver));
}

TEST_F(LivePacket, SendsExactlyTheFrame)
{
    Descriptor receiver = open_far(every_protocol);
    Descriptor sender(kel_raw_server_socket_create((SHORT)local_experiment, near));
    UCHAR mac[6];
    ASSERT_EQ(kel_get_if_mac_addr(near, mac), KEL_OK);
    const std::string source((const char *)mac, 6);

    for (size_t size : {0, 1, 46, 1500}) {
        std::string data = frame(far_mac, source, local_experiment, pattern(size));
        EXPECT_EQ(kel_raw_sendto(sender, near, data.data(), data.size(), 0), (LONG)data.size()) << strerror(errno);

        kel_sockaddr_t from;
        expect_same(received_datagram(receiver, &from), data);
        EXPECT_EQ(std::string((const char *)from.raw.sll_addr, 6), near_mac);
        EXPECT_EQ(from.raw.sll_protocol, htons(local_experiment));
    }
    EXPECT_TRUE(nothing_to_receive(receiver));
}

TEST_F(LivePacket, FrameThatIsTooLongTellsWhy)
{
    Descriptor sender(kel_raw_server_socket_create(every_protocol, near));
    std::string data = frame(far_mac, near_mac, local_experiment, pattern(2000));

    EXPECT_EQ(kel_raw_sendto(sender, near, data.data(), data.size(), 0), KEL_ERROR);
    EXPECT_EQ(errno, EMSGSIZE);
}

TEST_F(LivePacket, RecordFromItsPartsSendsToo)
{
    Descriptor receiver = open_far(every_protocol);
    Descriptor sender(kel_raw_server_socket_create(every_protocol, near));
    kel_sockaddr_t record;
    ASSERT_EQ(kel_addr_fill(sender, &record, KEL_AF_PACKET, 0, NULL, (SHORT)local_experiment, near), KEL_OK);
    EXPECT_EQ(text_of(record), "ifindex " + std::to_string(if_nametoindex(near)) + ",protocol 0x88b5");
    std::string data = frame(far_mac, near_mac, local_experiment, "by record");

    send_datagram(sender, data, record);

    expect_same(received_datagram(receiver), data);
}

TEST_F(LivePacket, TalksToSocat)
{
    Descriptor endpoint(kel_raw_server_socket_create((SHORT)local_experiment, near));
    Peer peer({"socat", "-d", "-d", "-", std::string("INTERFACE:") + far}, &other);
    peer.wait_until_it_says("starting data transfer");

    std::string there = frame(far_mac, near_mac, local_experiment, pattern(1000));
    EXPECT_EQ(kel_raw_sendto(endpoint, near, there.data(), there.size(), 0), (LONG)there.size());
    expect_same(peer.read(there.size()), there);

    std::string back = frame(near_mac, far_mac, local_experiment, pattern(500));
    peer.write(back);
    expect_same(received_datagram(endpoint), back);
}

} // namespace
