/* Packet endpoint and interface queries, on a pair of interfaces whose other end is another host. */
#include "live.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <string.h>

namespace
{

constexpr const char *near = "kel0", *far = "kel1", *beside = "kel2";
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
    /* Two wires to another host. Without addresses, there is no traffic but the tests'. */
    LivePacket()
    {
        lay_wire({own, near, "02:00:00:00:00:0a"}, {other, far, "02:00:00:00:00:0b"});
        lay_wire({own, beside, "02:00:00:00:00:0c"}, {other, "kel3", "02:00:00:00:00:0d"});
    }

    Descriptor open(int protocol, const char *interface = near)
    {
        return kel_raw_server_socket_create((SHORT)protocol, interface);
    }
    Descriptor open_far(int protocol) /* on the other host; a socket that was made there stays there */
    {
        Namespace::Visit there(other);
        return open(protocol, far);
    }
    void send(LONG sender, const char *interface, const std::string &data)
    {
        EXPECT_EQ(kel_raw_sendto(sender, interface, data.data(), data.size(), 0), (LONG)data.size()) << strerror(errno);
    }
    void send_from_far(const std::string &data)
    {
        Namespace::Visit there(other);
        send(open(other_experiment, far), far, data);
    }
    void expect_nothing_more(LONG sockfd)
    {
        char byte;
        EXPECT_EQ(kel_recv(sockfd, &byte, 1, MSG_DONTWAIT), KEL_ERROR);
        EXPECT_EQ(errno, EAGAIN);
    }

    const Namespace own, other;

  private:
    const Namespace::Visit here{own};
};

TEST_F(LivePacket, HardwareAddressIsTheInterfaces)
{
    UCHAR mac[7] = {0, 0, 0, 0, 0, 0, 0x77};

    EXPECT_EQ(kel_get_if_mac_addr(near, mac), KEL_OK);
    EXPECT_EQ(kel_get_if_mac_addr("kel9", mac), KEL_ERROR);
    EXPECT_EQ(errno, ENODEV);

    EXPECT_EQ(std::string((const char *)mac, 7), near_mac + "\x77") << "a failure leaves it alone";
}

TEST_F(LivePacket, EndpointIsBoundToInterfaceAndProtocol)
{
    Descriptor receiver = open(local_experiment);
    kel_sockaddr_t name = name_of(receiver);

    EXPECT_EQ(name.raw.sll_family, AF_PACKET);
    EXPECT_EQ(name.raw.sll_ifindex, (int)if_nametoindex(near));
    EXPECT_EQ(name.raw.sll_protocol, htons(local_experiment));
    expect_socket_of(receiver, AF_PACKET, SOCK_RAW);
}

TEST_F(LivePacket, ReceivesEveryFrameOfItsInterfaceAlone)
{
    Descriptor receiver = open(every_protocol);
    send(receiver, beside, frame(far_mac, near_mac, local_experiment, "beside"));

    for (int protocol : {local_experiment, other_experiment, 0x0800, 0x1234}) {
        std::string data = frame(near_mac, far_mac, protocol, pattern(100));
        send_from_far(data);

        kel_sockaddr_t sender;
        expect_same(received_datagram(receiver, &sender), data);
        EXPECT_EQ(std::string((const char *)sender.raw.sll_addr, 6), far_mac);
        EXPECT_EQ(sender.raw.sll_protocol, htons((uint16_t)protocol));
        EXPECT_EQ(sender.raw.sll_ifindex, (int)if_nametoindex(near));
    }
    expect_nothing_more(receiver);
}

TEST_F(LivePacket, ReceivesItsProtocolAlone)
{
    Descriptor receiver = open(local_experiment);
    send_from_far(frame(near_mac, far_mac, other_experiment, "another"));
    send_from_far(frame(near_mac, far_mac, 0xb588, "the bytes the other way round"));
    std::string data = frame(near_mac, far_mac, local_experiment, "this one");
    send_from_far(data);

    expect_same(received_datagram(receiver), data);
    expect_nothing_more(receiver);
}

TEST_F(LivePacket, SendsExactlyTheFrame)
{
    Descriptor receiver = open_far(every_protocol), sender = open(local_experiment);

    for (size_t size : {0, 1, 46, 1500}) {
        std::string data = frame(far_mac, near_mac, local_experiment, pattern(size));
        send(sender, near, data);

        kel_sockaddr_t from;
        expect_same(received_datagram(receiver, &from), data);
        EXPECT_EQ(std::string((const char *)from.raw.sll_addr, 6), near_mac);
        EXPECT_EQ(from.raw.sll_protocol, htons(local_experiment));
    }
    expect_nothing_more(receiver);
}

TEST_F(LivePacket, RecordFromItsPartsSendsToo)
{
    Descriptor receiver = open_far(every_protocol), sender = open(every_protocol);
    kel_sockaddr_t record;
    ASSERT_EQ(kel_addr_fill(sender, &record, KEL_AF_PACKET, 0, NULL, (SHORT)local_experiment, near), KEL_OK);
    EXPECT_EQ(text_of(record), "ifindex " + std::to_string(if_nametoindex(near)) + ",protocol 0x88b5");
    std::string data = frame(far_mac, near_mac, local_experiment, "by record");

    send_datagram(sender, data, record);

    expect_same(received_datagram(receiver), data);
}

TEST_F(LivePacket, TalksToSocat)
{
    Descriptor endpoint = open(local_experiment);
    Peer peer({"socat", "-d", "-d", "-", std::string("INTERFACE:") + far}, &other);
    peer.wait_until_it_says("starting data transfer");
    std::string there = frame(far_mac, near_mac, local_experiment, pattern(1000));
    std::string back = frame(near_mac, far_mac, local_experiment, pattern(500));

    send(endpoint, near, there);
    expect_same(peer.read(there.size()), there);
    peer.write(back);
    expect_same(received_datagram(endpoint), back);
}

} // namespace
