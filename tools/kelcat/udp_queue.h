/*
 * The receive queue of the socket of this machine that takes our datagrams. The kernel drops what finds it full and
 * tells nobody, but answers questions: sock_diag(7), for the one socket that a datagram would reach.
 */
#ifndef KELCAT_UDP_QUEUE_H
#define KELCAT_UDP_QUEUE_H

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>

#include "address.h"

class UdpQueue
{
  public:
    UdpQueue() = default;
    UdpQueue(const UdpQueue &) = delete;
    UdpQueue &operator=(const UdpQueue &) = delete;
    ~UdpQueue()
    {
        for (const LONG own : {netlink, echo}) {
            if (own != KEL_ERROR) {
                kel_close(own);
            }
        }
    }

    /* Of what sockfd sends to an address. False: it leaves this machine, or the kernel answers no questions. */
    bool watch(LONG sockfd, const kel_sockaddr_t &to)
    {
        if (!is_local(to)) {
            return false;
        }
        const bool ipv6 = to.sa.sa_family == KEL_AF_INET6;
        target = to;
        source = source_to(sockfd, to);
        netlink = socket(AF_NETLINK, SOCK_RAW, NETLINK_SOCK_DIAG); /* no family of the module's */
        echo = kel_udp_server_socket_create((kel_domain_t)to.sa.sa_family, ipv6 ? "::1" : "127.0.0.1", 0);
        const struct timeval patience = {1, 0};
        kel_setsockopt(echo, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
        kel_getsockname(echo, &echo_name);
        /* A kernel without the answers says that there is no such socket: of one that there is, too. */
        return ask_for(echo_name, echo_name) == Known;
    }

    enum Answer { Nobody, Unknown, Known };
    Answer ask()
    {
        wait_for_delivery();
        const Answer answer = ask_for(source, target);
        if (answer == Known && !asked) {
            asked = true;
            dropped_before = dropped;
        }
        return answer;
    }

    /* Since the first answer. */
    bool lost() const
    {
        return dropped != dropped_before;
    }

    /* How many datagrams of a size may be sent until the next question. A quarter is left to others that send. */
    size_t room(size_t size) const
    {
        const size_t most = limit / 4 * 3;
        return asked && used < most ? (most - used) / occupied(size) : 0;
    }

    void sent(size_t datagrams, size_t size)
    {
        used += datagrams * occupied(size);
    }

  private:
    /* What a datagram occupies in a queue: records of the kernel, and memory that comes in powers of two. */
    static size_t occupied(size_t size)
    {
        size_t memory = 1024;
        while (memory < size + 512) {
            memory *= 2;
        }
        return memory + 512;
    }

    /* Only this machine's own addresses can be bound. */
    static bool is_local(kel_sockaddr_t address)
    {
        const LONG probe = kel_socket((kel_domain_t)address.sa.sa_family, KEL_SOCK_DGRAM, 0);
        address.sin.sin_port = 0; /* IPv6 has its port at the same place */
        const bool local = kel_bind(probe, &address) == KEL_OK;
        kel_close(probe);
        return local;
    }

    /* What a socket without an address of its own sends has the one that the way there gives it. */
    static kel_sockaddr_t source_to(LONG sockfd, kel_sockaddr_t to)
    {
        kel_sockaddr_t own = {};
        kel_getsockname(sockfd, &own);
        if (is_wildcard(own)) {
            const in_port_t port = own.sin.sin_port;
            const LONG probe = kel_socket((kel_domain_t)to.sa.sa_family, KEL_SOCK_DGRAM, 0);
            kel_connect(probe, &to);
            kel_getsockname(probe, &own);
            kel_close(probe);
            own.sin.sin_port = port;
        }
        return own;
    }

    static void put_address(__be32 (&field)[4], const kel_sockaddr_t &address)
    {
        if (address.sa.sa_family == KEL_AF_INET) {
            memcpy(field, &address.sin.sin_addr, sizeof(address.sin.sin_addr));
        } else {
            memcpy(field, &address.sin6.sin6_addr, sizeof(address.sin6.sin6_addr));
        }
    }

    /*
     * A loaded kernel delivers later, in a thread of its own, and what is on its way there is in no queue yet. It
     * delivers in order: once a datagram to ourselves is here, so is what was sent before it.
     */
    void wait_for_delivery()
    {
        char mark = 0;
        if (kel_sendto(echo, &mark, sizeof(mark), MSG_DONTWAIT, &echo_name) == sizeof(mark)) {
            kel_recv(echo, &mark, sizeof(mark), 0);
        }
    }

    Answer ask_for(const kel_sockaddr_t &from, const kel_sockaddr_t &to)
    {
        struct {
            struct nlmsghdr head;
            struct inet_diag_req_v2 body;
        } question = {};
        question.head.nlmsg_len = sizeof(question);
        question.head.nlmsg_type = SOCK_DIAG_BY_FAMILY;
        question.head.nlmsg_flags = NLM_F_REQUEST;
        question.body.sdiag_family = (__u8)to.sa.sa_family;
        question.body.sdiag_protocol = IPPROTO_UDP;
        question.body.idiag_ext = 1 << (INET_DIAG_SKMEMINFO - 1);
        question.body.idiag_states = ~0u;
        /* Of UDP the kernel takes them as a datagram has them: its source first. */
        question.body.id.idiag_sport = from.sin.sin_port;
        question.body.id.idiag_dport = to.sin.sin_port;
        put_address(question.body.id.idiag_src, from);
        put_address(question.body.id.idiag_dst, to);
        question.body.id.idiag_if = loopback_index;
        question.body.id.idiag_cookie[0] = INET_DIAG_NOCOOKIE;
        question.body.id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;

        alignas(struct nlmsghdr) char answer[4096];
        const LONG length = kel_send(netlink, &question, sizeof(question), 0) == KEL_ERROR
                                ? KEL_ERROR
                                : kel_recv(netlink, answer, sizeof(answer), 0);
        const struct nlmsghdr *head = reinterpret_cast<const struct nlmsghdr *>(answer);
        if (length == KEL_ERROR || !NLMSG_OK(head, (size_t)length)) {
            return Unknown;
        }
        if (head->nlmsg_type == NLMSG_ERROR) {
            return static_cast<const struct nlmsgerr *>(NLMSG_DATA(head))->error == -ENOENT ? Nobody : Unknown;
        }

        /* Behind the fixed part come attributes, each with its length and type in front. */
        const char *end = answer + head->nlmsg_len;
        struct nlattr attribute = {};
        for (const char *at = answer + NLMSG_LENGTH(sizeof(struct inet_diag_msg)); at + sizeof(attribute) <= end;
             at += NLA_ALIGN(std::max<size_t>(attribute.nla_len, sizeof(attribute)))) {
            memcpy(&attribute, at, sizeof(attribute));
            __u32 values[SK_MEMINFO_DROPS + 1];
            if (attribute.nla_type == INET_DIAG_SKMEMINFO && at + sizeof(attribute) + sizeof(values) <= end) {
                memcpy(values, at + sizeof(attribute), sizeof(values));
                used = values[SK_MEMINFO_RMEM_ALLOC];
                limit = values[SK_MEMINFO_RCVBUF];
                dropped = values[SK_MEMINFO_DROPS];
                return Known;
            }
        }
        return Unknown;
    }

    /* The loopback interface, which all local traffic takes, has it in every network namespace. */
    static const unsigned loopback_index = 1;

    LONG netlink = KEL_ERROR;
    LONG echo = KEL_ERROR; /* a socket that only we send to */
    kel_sockaddr_t echo_name = {};
    kel_sockaddr_t source = {};
    kel_sockaddr_t target = {};
    bool asked = false;
    size_t used = 0; /* bytes, as the kernel counts them */
    size_t limit = 0;
    unsigned dropped = 0;
    unsigned dropped_before = 0;
};

#endif
