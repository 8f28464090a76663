#include "hosts.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <fstream>
#include <linux/if_link.h>
#include <linux/pkt_sched.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "live.h"

namespace
{

constexpr const char *own_entry = "/proc/thread-self/ns/net";

template <typename Record> std::string bytes(const Record &record)
{
    return std::string((const char *)&record, sizeof(record));
}

/* An attribute of a message; one with others inside is given those as its value. */
std::string attribute(int type, const std::string &value)
{
    const struct rtattr head = {(unsigned short)RTA_LENGTH(value.size()), (unsigned short)type};
    std::string whole = bytes(head) + value;
    whole.resize(RTA_ALIGN(whole.size()));
    return whole;
}

std::string attribute_text(int type, const std::string &value)
{
    return attribute(type, value + '\0');
}

std::string address_bytes(int family, const std::string &text)
{
    std::string address(family == AF_INET6 ? 16 : 4, '\0');
    EXPECT_EQ(inet_pton(family, text.c_str(), address.data()), 1) << text;
    return address;
}

int open_netlink(const Namespace &host, unsigned groups)
{
    Namespace::Visit visit(host);
    int channel = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    struct sockaddr_nl self = {};
    self.nl_family = AF_NETLINK;
    self.nl_groups = groups;
    EXPECT_EQ(bind(channel, (struct sockaddr *)&self, sizeof(self)), 0) << strerror(errno);
    return channel;
}

/* Has the kernel do something, which is done when this returns. */
template <typename Record>
void request(const Namespace &host, int type, int flags, const Record &record, const std::string &attributes)
{
    struct nlmsghdr head = {};
    head.nlmsg_len = (uint32_t)(NLMSG_LENGTH(sizeof(record)) + attributes.size());
    head.nlmsg_type = (uint16_t)type;
    head.nlmsg_flags = (uint16_t)(NLM_F_REQUEST | NLM_F_ACK | flags);
    const std::string message = bytes(head) + bytes(record) + attributes;
    struct {
        struct nlmsghdr head;
        struct nlmsgerr result;
        char request[1024];
    } answer = {};

    int channel = open_netlink(host, 0);
    EXPECT_EQ(send(channel, message.data(), message.size(), 0), (ssize_t)message.size()) << strerror(errno);
    EXPECT_GT(recv(channel, &answer, sizeof(answer), 0), 0) << strerror(errno);
    EXPECT_EQ(answer.head.nlmsg_type, NLMSG_ERROR);
    EXPECT_EQ(answer.result.error, 0) << strerror(-answer.result.error) << ", request " << type;
    close(channel);
}

int index_of(const Interface &end)
{
    Namespace::Visit visit(end.host);
    return (int)if_nametoindex(end.name.c_str());
}

/* What the kernel does on an interface after it was asked to, it tells to who listens. */
class Notices
{
  public:
    Notices(const Interface &end, unsigned groups) : channel(open_netlink(end.host, groups))
    {
    }
    ~Notices()
    {
        close(channel);
    }
    Notices(const Notices &) = delete;
    Notices &operator=(const Notices &) = delete;

    /* Waits for the next one; false when none comes. */
    template <typename Record> bool next(Record &record) const
    {
        struct {
            struct nlmsghdr head;
            Record record;
            char attributes[4096];
        } notice = {};
        if (!wait_for(channel, POLLIN)) {
            return false;
        }
        EXPECT_GT(recv(channel, &notice, sizeof(notice), 0), 0) << strerror(errno);
        record = notice.record;
        return true;
    }

  private:
    int channel;
};

std::string name_and_mac(const Interface &end)
{
    return attribute_text(IFLA_IFNAME, end.name) + (end.mac.empty() ? "" : attribute(IFLA_ADDRESS, end.mac));
}

/* Without addresses that the kernel makes up when it is brought up, and tells to its neighbours. */
void forbid_own_addresses(const Interface &end)
{
    struct ifinfomsg which = {};
    which.ifi_index = index_of(end);
    request(end.host, RTM_NEWLINK, 0, which,
            attribute(IFLA_AF_SPEC, attribute(AF_INET6, attribute(IFLA_INET6_ADDR_GEN_MODE,
                                                                  std::string(1, IN6_ADDR_GEN_MODE_NONE)))));
}

} // namespace

Namespace::Namespace()
{
    int home = open(own_entry, O_RDONLY | O_CLOEXEC);
    if (unshare(CLONE_NEWNET) == -1) {
        fail_set_up("no network namespace: this needs the privilege to make one");
    }
    entry = open(own_entry, O_RDONLY | O_CLOEXEC);
    if (setns(home, CLONE_NEWNET) == -1) {
        fail_set_up("setns");
    }
    close(home);
}

Namespace::~Namespace()
{
    close(entry);
}

void Namespace::enter() const
{
    if (setns(entry, CLONE_NEWNET) == -1) {
        fail_set_up("setns");
    }
}

Namespace::Visit::Visit(const Namespace &where) : home(open(own_entry, O_RDONLY | O_CLOEXEC))
{
    where.enter();
}

Namespace::Visit::~Visit()
{
    if (setns(home, CLONE_NEWNET) == -1) {
        fail_set_up("setns");
    }
    close(home);
}

void lay_wire(const Interface &one, const Interface &other)
{
    const struct ifinfomsg any = {};
    const std::string peer = bytes(any) + name_and_mac(other) + attribute(IFLA_NET_NS_FD, bytes(other.host.entry));
    request(one.host, RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, any,
            name_and_mac(one) +
                attribute(IFLA_LINKINFO, attribute_text(IFLA_INFO_KIND, "veth") +
                                             attribute(IFLA_INFO_DATA, attribute(VETH_INFO_PEER, peer))));
    forbid_own_addresses(one);
    forbid_own_addresses(other);
}

void set_link(const Interface &end, bool up)
{
    struct ifinfomsg which = {};
    which.ifi_index = index_of(end);
    which.ifi_flags = up ? IFF_UP : 0;
    which.ifi_change = IFF_UP;
    request(end.host, RTM_NEWLINK, 0, which, "");
}

/* The kernel tells an interface later that it has a carrier, and until then drops what is sent there. */
void connect_wire(const Interface &one, const Interface &other)
{
    Notices at_one(one, RTMGRP_LINK), at_other(other, RTMGRP_LINK);
    set_link(one, true);
    set_link(other, true);
    for (const auto &[end, notices] : {std::pair(&one, &at_one), std::pair(&other, &at_other)}) {
        const int index = index_of(*end);
        struct ifinfomsg link = {};
        while ((link.ifi_index != index || (link.ifi_flags & IFF_RUNNING) == 0) && notices->next(link)) {
        }
    }
}

/* The kernel makes the route to an IPv6 address later, when it tells of it, and until then drops what is sent there. */
void add_address(const Interface &end, int family, const std::string &address, int prefix_length)
{
    Notices notices(end, RTMGRP_IPV6_IFADDR);
    struct ifaddrmsg which = {};
    which.ifa_family = (unsigned char)family;
    which.ifa_prefixlen = (unsigned char)prefix_length;
    which.ifa_flags = family == AF_INET6 ? IFA_F_NODAD : 0;
    which.ifa_index = (unsigned)index_of(end);
    const std::string value = address_bytes(family, address);
    request(end.host, RTM_NEWADDR, NLM_F_CREATE | NLM_F_EXCL, which,
            attribute(IFA_LOCAL, value) + attribute(IFA_ADDRESS, value));
    struct ifaddrmsg told = {};
    while (family == AF_INET6 && told.ifa_index != which.ifa_index && notices.next(told)) {
    }
}

void add_neighbour(const Interface &end, int family, const std::string &address, const std::string &mac)
{
    struct ndmsg which = {};
    which.ndm_family = (unsigned char)family;
    which.ndm_ifindex = index_of(end);
    which.ndm_state = NUD_PERMANENT;
    request(end.host, RTM_NEWNEIGH, NLM_F_CREATE | NLM_F_EXCL, which,
            attribute(NDA_DST, address_bytes(family, address)) + attribute(NDA_LLADDR, mac));
}

void set_loss(const Interface &end, bool total)
{
    struct tcmsg which = {};
    which.tcm_ifindex = index_of(end);
    which.tcm_parent = TC_H_ROOT;
    struct tc_netem_qopt everything = {};
    everything.limit = 1000;
    everything.loss = UINT32_MAX;
    request(end.host, total ? RTM_NEWQDISC : RTM_DELQDISC, total ? NLM_F_CREATE | NLM_F_EXCL : 0, which,
            attribute_text(TCA_KIND, "netem") + attribute(TCA_OPTIONS, bytes(everything)));
}

void write_setting(const Namespace &host, const std::string &name, int value)
{
    Namespace::Visit visit(host);
    EXPECT_TRUE(std::ofstream("/proc/sys/" + name) << value << std::flush) << name << ": " << strerror(errno);
}
