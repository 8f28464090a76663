#include "live_sctp.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <fstream>
#include <gperftools/tcmalloc.h>
#include <poll.h>
#include <regex>
#include <signal.h>
#include <sstream>
#include <stdlib.h>
#include <string.h>
#include <valgrind/memcheck.h>

namespace
{

std::atomic<long> outstanding;

constexpr const char *addresses_ipv4[][2] = {{"10.1.1.1", "10.1.2.1"}, {"10.1.1.2", "10.1.2.2"}};
constexpr const char *addresses_ipv6[][2] = {{"fd00:1::1", "fd00:2::1"}, {"fd00:1::2", "fd00:2::2"}};

/* So that what is lost is missed within a second rather than minutes. The lower border of a time goes first: one above
 * the other is refused. An acknowledgement may not be later than the time after which it is missed. */
constexpr struct {
    const char *name;
    int value;
} settings[] = {
    {"net/sctp/rto_min", 100},
    {"net/sctp/rto_initial", 1000},
    {"net/sctp/rto_max", 400},
    {"net/sctp/sack_timeout", 20},
    {"net/sctp/hb_interval", 200},
    {"net/sctp/pf_enable", 0},
    {"net/ipv6/conf/all/keep_addr_on_down", 1},
};

std::string mac(char path, char side)
{
    return {2, 0, 0, 0, path, side};
}

Addresses list_of(LONG (*get)(LONG, sctp_assoc_t, kel_sockaddr_t **), LONG (*release)(kel_sockaddr_t *), LONG sockfd,
                  sctp_assoc_t id)
{
    kel_sockaddr_t *list = nullptr;
    LONG count = get(sockfd, id, &list);
    EXPECT_GE(count, 0) << strerror(errno);
    if (count > 0 && get == kel_sctp_getladdrs) {
        /* The kernel tells a length that leaves out the eight bytes of the list's head, so that Valgrind takes the last
         * eight for unwritten. */
        VALGRIND_MAKE_MEM_DEFINED((char *)&list[count - 1] + kel_sizeof_socket(list) - 8, 8);
    }
    Addresses names = named(std::vector<kel_sockaddr_t>(list, list + std::max(count, (LONG)0)));
    EXPECT_EQ(release(list), KEL_OK);
    return names;
}

} // namespace

/* ---- Allocator: in the place of tcmalloc, and counting ----------------------------------------------------------- */

void *tc_malloc(size_t size) noexcept
{
    void *block = size > PTRDIFF_MAX ? nullptr : malloc(size);
    outstanding += block != nullptr ? 1 : 0;
    return block;
}

void tc_free(void *block) noexcept
{
    outstanding -= block != nullptr ? 1 : 0;
    free(block);
}

long allocated()
{
    return outstanding;
}

/* ---- Network ----------------------------------------------------------------------------------------------------- */

Network::Network()
    : ends{{{near, "path0", mac(0, 0)}, {far, "path0", mac(0, 1)}},
           {{near, "path1", mac(1, 0)}, {far, "path1", mac(1, 1)}}}
{
    /* The settings come with the module, which a socket brings. */
    Descriptor probe(kel_socket(KEL_AF_INET, KEL_SOCK_STREAM, IPPROTO_SCTP));
    if (probe == KEL_ERROR) {
        fail_set_up("this kernel has no SCTP");
    }

    for (const auto &setting : settings) {
        set(setting.name, setting.value);
    }
    for (int path = 0; path < 2; path++) { /* loopback stays down: its addresses would be in every list */
        lay_wire(ends[path][0], ends[path][1]);
        connect_wire(ends[path][0], ends[path][1]);
        for (int side = 0; side < 2; side++) {
            const Interface &end = ends[path][side], &peer = ends[path][1 - side];
            add_address(end, AF_INET, addresses_ipv4[side][path], 24);
            add_address(end, AF_INET6, addresses_ipv6[side][path], 64);
            add_neighbour(end, AF_INET, addresses_ipv4[1 - side][path], peer.mac);
            add_neighbour(end, AF_INET6, addresses_ipv6[1 - side][path], peer.mac);
        }
    }
}

void Network::cut(int path, Manner manner)
{
    carry(path, manner, false);
}

void Network::restore(int path, Manner manner)
{
    carry(path, manner, true);
}

void Network::carry(int path, Manner manner, bool all)
{
    if (manner == link_down) {
        set_link(ends[path][0], all);
        return;
    }
    for (const Interface &end : ends[path]) {
        set_loss(end, !all);
    }
}

void Network::set(const std::string &name, int value)
{
    write_setting(near, name, value);
    write_setting(far, name, value);
}

Addresses near_addresses(const Inet &inet)
{
    const auto &both = inet.family == KEL_AF_INET6 ? addresses_ipv6[0] : addresses_ipv4[0];
    return {both[0], both[1]};
}

Addresses far_addresses(const Inet &inet)
{
    const auto &both = inet.family == KEL_AF_INET6 ? addresses_ipv6[1] : addresses_ipv4[1];
    return {both[0], both[1]};
}

Descriptor on(const Namespace &host, const std::function<LONG()> &open)
{
    Namespace::Visit visit(host);
    return open();
}

int new_port()
{
    static int port = 5000;
    return port++;
}

/* Immediate mode gives every packet a whole frame of the kernel's ring: with short ones thousands have room. */
Capture::Capture(const Namespace &where)
    : tcpdump(
          {"tcpdump", "-i", "any", "-n", "-s", "2000", "-B", "8192", "--immediate-mode", "-Z", "root", "-l", "sctp"},
          &where)
{
    tcpdump.wait_until_it_says("listening on");
}

/* tcpdump is given payload protocols of which it knows no name. */
std::vector<Capture::Chunk> Capture::data_until(const std::string &last)
{
    static const std::regex packet(" > ([0-9a-f.:]+)\\.([0-9]+): sctp"),
        chunk("\\[DATA\\][^,]*\\[SID: ([0-9]+)\\][^,]*\\[PPID (0x[0-9a-f]+)\\]");
    std::istringstream text(tcpdump.read_until(last));
    tcpdump.end();
    std::string said = tcpdump.read_errors();
    EXPECT_NE(said.find("\n0 packets dropped by kernel"), std::string::npos) << said;

    std::vector<Chunk> found;
    for (std::string line; std::getline(text, line);) {
        std::smatch receiver;
        if (!std::regex_search(line, receiver, packet)) {
            continue;
        }
        for (std::sregex_iterator data(line.begin(), line.end(), chunk), end; data != end; ++data) {
            found.push_back({receiver[1], receiver[2], (*data)[1], (*data)[2]});
        }
    }
    return found;
}

/* ---- Addresses --------------------------------------------------------------------------------------------------- */

std::vector<kel_sockaddr_t> records(const Inet &inet, const Addresses &addresses, int port)
{
    std::vector<kel_sockaddr_t> made;
    for (const std::string &address : addresses) {
        made.push_back(record_of(inet, address.c_str(), port));
    }
    return made;
}

Texts::Texts(Addresses addresses) : texts(std::move(addresses))
{
    for (std::string &text : texts) {
        pointers.push_back(text.data());
    }
}

Addresses named(const std::vector<kel_sockaddr_t> &records)
{
    Addresses names;
    for (const kel_sockaddr_t &record : records) {
        names.push_back(text_of(record));
    }
    std::sort(names.begin(), names.end());
    return names;
}

void expect_one_of(const kel_sockaddr_t &address, const std::vector<kel_sockaddr_t> &records)
{
    const Addresses names = named(records);
    EXPECT_EQ(std::count(names.begin(), names.end(), text_of(address)), 1) << text_of(address);
}

Addresses peers_of(LONG sockfd, sctp_assoc_t id)
{
    return list_of(kel_sctp_getpaddrs, kel_sctp_freepaddrs, sockfd, id);
}

Addresses locals_of(LONG sockfd, sctp_assoc_t id)
{
    return list_of(kel_sctp_getladdrs, kel_sctp_freeladdrs, sockfd, id);
}

/* ---- Options ----------------------------------------------------------------------------------------------------- */

struct sctp_initmsg streams(int out, int in)
{
    return {(uint16_t)out, (uint16_t)in, 0, 0};
}

struct sctp_event_subscribe subscription(std::initializer_list<uint8_t sctp_event_subscribe::*> flags)
{
    struct sctp_event_subscribe events = {};
    for (auto flag : flags) {
        events.*flag = 1;
    }
    return events;
}

std::string flags_of(const struct sctp_event_subscribe &events)
{
    std::string text;
    for (size_t i = 0; i < sizeof(events); i++) {
        text += std::to_string(((const uint8_t *)&events)[i]);
    }
    return text;
}

std::string events_of(LONG sockfd)
{
    struct sctp_event_subscribe events;
    memset(&events, 7, sizeof(events));
    return flags_of(query(sockfd, 0, SCTP_EVENTS, events));
}

struct sctp_paddrinfo path_of(LONG sockfd, sctp_assoc_t id, const kel_sockaddr_t &address)
{
    struct sctp_paddrinfo question = {};
    memcpy(&question.spinfo_address, &address, (size_t)kel_sizeof_socket(&address));
    return query(sockfd, id, SCTP_GET_PEER_ADDR_INFO, question);
}

std::string text_of(const struct sockaddr_storage &address)
{
    kel_sockaddr_t record;
    memcpy(&record, &address, sizeof(record));
    return text_of(record);
}

/* ---- Messages ---------------------------------------------------------------------------------------------------- */

Message next(LONG sockfd)
{
    Message message = {std::string(1 << 17, '\0'), 0, {}, {}};
    memset(&message.info, 0xee, sizeof(message.info));
    LONG count = !wait_for(sockfd, POLLIN) ? 0
                                           : kel_sctp_recvmsg(sockfd, message.data.data(), message.data.size(),
                                                              &message.from, &message.info, &message.flags);
    EXPECT_GE(count, 0) << strerror(errno);
    message.data.resize((size_t)std::max(count, (LONG)0));
    EXPECT_TRUE(count == 0 || (message.flags & MSG_EOR) != 0) << "only a part of a message";
    return message;
}

void send_message(LONG sockfd, const std::string &data, const kel_sockaddr_t &to, int stream, uint32_t ppid)
{
    kel_sockaddr_t receiver = to;
    EXPECT_EQ(kel_sctp_sendmsg(sockfd, data.data(), data.size(), &receiver, ppid, 0, stream, 0, 0), (LONG)data.size())
        << strerror(errno);
}

void send_message(LONG sockfd, const std::string &data, sctp_assoc_t id, int stream, uint32_t ppid)
{
    struct sctp_sndrcvinfo info = {};
    info.sinfo_stream = (uint16_t)stream;
    info.sinfo_ppid = ppid;
    info.sinfo_assoc_id = id;
    EXPECT_EQ(kel_sctp_send(sockfd, data.data(), data.size(), &info, 0), (LONG)data.size()) << strerror(errno);
}

void expect_message(LONG sockfd, const std::string &data)
{
    Message message = next(sockfd);
    expect_same(message.data, data);
    EXPECT_EQ(message.flags & MSG_NOTIFICATION, 0);
}

static std::string numbered(size_t number)
{
    static const std::string data = pattern(100003);
    return std::to_string(number) + " " + data.substr(number % (data.size() - 1000), 1000);
}

void Transfer::fill(uint32_t ppid, size_t limit)
{
    struct sctp_sndrcvinfo info = {};
    info.sinfo_ppid = htonl(ppid);
    for (; next_sent < limit; next_sent++) {
        std::string data = numbered(next_sent);
        LONG count = kel_sctp_send(from, data.data(), data.size(), &info, MSG_DONTWAIT);
        if (count == KEL_ERROR && errno == EAGAIN) {
            return;
        }
        ASSERT_EQ(count, (LONG)data.size()) << strerror(errno);
    }
}

void Transfer::drain()
{
    for (; next_arrived < next_sent; next_arrived++) {
        ASSERT_EQ(next(to).data.compare(numbered(next_arrived)), 0) << "message " << next_arrived;
    }
}

/* ---- Associations ------------------------------------------------------------------------------------------------ */

void LiveSctp::SetUp()
{
    LiveInet::SetUp();
    allocated_before = allocated();
}

void LiveSctp::TearDown()
{
    EXPECT_EQ(allocated(), allocated_before);
    LiveInet::TearDown();
}

Descriptor LiveSctp::one2one_server(int port, Events events)
{
    std::vector<kel_sockaddr_t> addresses = far_records(port);
    struct sctp_initmsg initmsg = streams(10, 10);
    return on(far_host, [&] {
        return kel_sctp_server_one2one_create(inet.family, addresses.data(), 2, 0, 5, &initmsg,
                                              const_cast<struct sctp_event_subscribe *>(events));
    });
}

Descriptor LiveSctp::one2one_client(int port, Events events, sctp_assoc_t *id)
{
    std::vector<kel_sockaddr_t> addresses = far_records(port);
    struct sctp_initmsg initmsg = streams(10, 10);
    sctp_assoc_t ignored;
    return on(near_host, [&] {
        return kel_sctp_client_one2one_create(inet.family, addresses.data(), 2, 0, &initmsg,
                                              const_cast<struct sctp_event_subscribe *>(events),
                                              id != nullptr ? id : &ignored);
    });
}

Descriptor LiveSctp::one2many_server(int port, Events events)
{
    std::vector<kel_sockaddr_t> addresses = far_records(port);
    struct sctp_initmsg initmsg = streams(10, 10);
    return on(far_host, [&] {
        return kel_sctp_server_one2many_create(inet.family, addresses.data(), 2, 0, 5, &initmsg,
                                               const_cast<struct sctp_event_subscribe *>(events));
    });
}

Descriptor LiveSctp::one2many_client(Events events)
{
    std::vector<kel_sockaddr_t> unused = far_records(0);
    struct sctp_initmsg initmsg = streams(10, 10);
    return on(near_host, [&] {
        return kel_sctp_client_one2many_create(inet.family, unused.data(), 2, 0, &initmsg,
                                               const_cast<struct sctp_event_subscribe *>(events));
    });
}

OneToOne LiveSctp::one2one(Events client_events, Events server_events)
{
    OneToOne made = {{}, {}, {}, new_port(), 0};
    made.listener = one2one_server(made.port, server_events);
    made.client = one2one_client(made.port, client_events, &made.id);
    made.server = accepted(made.listener);
    return made;
}

OneToMany LiveSctp::one2many()
{
    OneToMany made = {{}, {}, new_port(), 0, 0};
    made.server = one2many_server(made.port);
    made.client = one2many_client();
    std::vector<kel_sockaddr_t> addresses = far_records(made.port);
    EXPECT_EQ(kel_sctp_connectx(made.client, addresses.data(), 2, &made.client_id), 0) << strerror(errno);
    send_message(made.client, "to the server", made.client_id);
    made.server_id = next(made.server).info.sinfo_assoc_id;
    return made;
}

/* ---- Reports ----------------------------------------------------------------------------------------------------- */

void expect_reports(const Reports &shown, const std::vector<std::string> &reports)
{
    static const std::regex one("\033\\[1;31m[a-z_0-9]+\\.[0-9]+:([^\033]*)\033\\[m");
    const std::string console = shown.text();
    std::vector<std::string> found;
    for (std::sregex_iterator report(console.begin(), console.end(), one), end; report != end; ++report) {
        found.push_back((*report)[1]);
    }
    EXPECT_EQ(found, reports) << console;
}

void expect_failure(const std::function<LONG()> &call, const std::vector<std::string> &reports)
{
    Reports shown;

    errno = 0; /* so that a report that follows no system call has one text */
    EXPECT_EQ(call(), KEL_ERROR);

    expect_reports(shown, reports);
}
