#include "pacing.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

/* The UDP sockets of this machine that take what is sent to one address, as /proc/net shows them. */
struct Receivers {
    bool visible = false; /* /proc/net could be read */
    unsigned sockets = 0;
    unsigned long queued = 0;
    unsigned long dropped = 0;
};

namespace
{

const double burst_seconds = 0.01; /* how far sending may run ahead of the rate */
const double remote_rate = 8 << 20;
const double packet_rate = 4 << 20;
const double rest = 0.0002;          /* seconds until a full queue is looked at again */
const size_t queue_limit = 32 << 10; /* of 208 KiB, which is what a receiver has that asks for nothing */

/* An address as /proc/net prints it: words of eight digits, each in the machine's byte order. */
std::string proc_address(const kel_sockaddr_t &address)
{
    bool ipv6 = address.sa.sa_family == KEL_AF_INET6;
    uint32_t words[4] = {address.sin.sin_addr.s_addr, 0, 0, 0};
    if (ipv6) {
        memcpy(words, &address.sin6.sin6_addr, sizeof(words));
    }
    std::string text;
    for (int i = 0; i < (ipv6 ? 4 : 1); i++) {
        char word[9];
        snprintf(word, sizeof(word), "%08X", words[i]);
        text += word;
    }
    return text;
}

void add_receivers(const char *table, const std::string &address, unsigned port, unsigned sender_port, Receivers *found)
{
    FILE *file = fopen(table, "re");
    if (file == nullptr) {
        return;
    }
    found->visible = true;
    char line[512];
    while (fgets(line, sizeof(line), file) != nullptr) {
        char local[33];
        unsigned local_port, remote_port;
        unsigned long queued, dropped;
        if (sscanf(line, " %*d: %32[0-9A-F]:%x %*[0-9A-F]:%x %*x %*x:%lx %*x:%*x %*x %*u %*u %*u %*d %*s %lu", local,
                   &local_port, &remote_port, &queued, &dropped) != 5) {
            continue; /* the heading */
        }
        bool wildcard = local[strspn(local, "0")] == '\0';
        if (local_port == port && (wildcard || address == local) && (remote_port == 0 || remote_port == sender_port)) {
            found->sockets++;
            found->queued += queued;
            found->dropped += dropped;
        }
    }
    fclose(file);
}

/* An address is this machine's own when a socket can be bound to it. */
bool own_address(kel_sockaddr_t address)
{
    LONG sockfd = kel_socket((kel_domain_t)address.sa.sa_family, KEL_SOCK_DGRAM, 0);
    address.sin.sin_port = 0; /* IPv6 has its port at the same place */
    bool own = sockfd != KEL_ERROR && kel_bind(sockfd, &address) == KEL_OK;
    if (sockfd != KEL_ERROR) {
        kel_close(sockfd);
    }
    return own;
}

} // namespace

Pacing::Pacing(const Arguments &arguments, LONG socket)
    : sockfd(socket), transport(arguments.transport), asked_rate(arguments.rate), rate(arguments.rate)
{
    if (transport == Transport::Packet && rate == 0) {
        rate = packet_rate;
    }
}

Pacing::~Pacing()
{
    if (echo != KEL_ERROR) {
        kel_close(echo);
    }
}

/* A listener's peer may change: what is known belongs to one address. */
void Pacing::aim(const kel_sockaddr_t &to)
{
    target = to;
    watch = own_address(to);
    looked = false;
    rate = watch || asked_rate != 0 ? asked_rate : remote_rate;
}

Turn Pacing::next(const kel_sockaddr_t &to, double now, double *until)
{
    if (transport == Transport::Udp && kel_sock_addr_cmp(const_cast<kel_sockaddr_t *>(&to), &target, 0) != KEL_OK) {
        aim(to);
    }
    if (rate != 0 && paid_until > now + burst_seconds) {
        *until = paid_until - burst_seconds / 2;
        return Turn::Wait;
    }
    if (!watch || (looked && queued < queue_limit)) {
        return Turn::Send;
    }

    wait_for_delivery();
    Receivers receivers = look();
    if (!receivers.visible) {
        watch = false;
        rate = asked_rate != 0 ? asked_rate : remote_rate;
        return Turn::Send;
    }
    if (receivers.sockets == 0) {
        return Turn::NobodyListens;
    }
    if (looked && receivers.dropped > dropped) {
        return Turn::Lost;
    }
    looked = true;
    dropped = receivers.dropped;
    queued = receivers.queued;
    if (queued >= queue_limit) {
        *until = now + rest;
        return Turn::Wait;
    }
    return Turn::Send;
}

/*
 * A loaded kernel delivers later, in a thread of its own, and what is on its way there is in no queue yet. It delivers
 * in order: once a datagram to ourselves is here, so is what was sent before it.
 */
void Pacing::wait_for_delivery()
{
    if (echo == KEL_ERROR) {
        const struct timeval limit = {1, 0};
        echo = kel_udp_server_socket_create((kel_domain_t)target.sa.sa_family,
                                            target.sa.sa_family == KEL_AF_INET ? "127.0.0.1" : "::1", 0);
        kel_setsockopt(echo, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
        kel_getsockname(echo, &echo_name);
    }
    char mark = 0;
    if (kel_sendto(echo, &mark, sizeof(mark), MSG_DONTWAIT, &echo_name) == sizeof(mark)) {
        kel_recv(echo, &mark, sizeof(mark), 0);
    }
}

/* A socket that is connected to another sender does not count. */
Receivers Pacing::look() const
{
    kel_sockaddr_t own = {};
    kel_getsockname(sockfd, &own);
    unsigned sender_port = ntohs(own.sin.sin_port);
    unsigned port = ntohs(target.sin.sin_port);
    std::string address = proc_address(target);

    Receivers found;
    if (target.sa.sa_family == KEL_AF_INET) {
        add_receivers("/proc/net/udp", address, port, sender_port, &found);
        address.insert(0, "0000000000000000FFFF0000"); /* an IPv6 socket may take IPv4 traffic as well */
    }
    add_receivers("/proc/net/udp6", address, port, sender_port, &found);
    return found;
}

bool Pacing::lost() const
{
    return watch && looked && look().dropped > dropped;
}

void Pacing::sent(size_t bytes, double now)
{
    if (rate != 0) {
        paid_until = std::max(paid_until, now) + (double)bytes / rate;
    }
    queued += bytes + 1024; /* a queue counts what a datagram occupies, which for small ones is far more */
}
