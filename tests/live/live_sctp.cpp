#include "live_sctp.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <gperftools/tcmalloc.h>
#include <memory>
#include <poll.h>
#include <regex>
#include <sstream>
#include <stdlib.h>
#include <string.h>
#include <valgrind/memcheck.h>

namespace
{

std::atomic<long> outstanding;

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

std::string mac(int path, int side)
{
    return "02:00:00:00:0" + std::to_string(path) + ":0" + std::to_string(side);
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
    altered = false;
    for (const auto &path : ends) { /* loopback stays down: its addresses would be in every list */
        lay_wire(path[0], path[1]);
    }
    for (int side = 0; side < 2; side++) {
        std::string commands;
        for (int path = 0; path < 2; path++) {
            for (const Inet *inet : {&ipv4(), &ipv6()}) {
                const std::string length = inet->family == KEL_AF_INET6 ? "/64 nodad" : "/24";
                const std::string device = " dev " + ends[path][side].name + "\n";
                commands += "address add " + addresses_of(*inet, side)[path] + length + device;
                /* Saves the hosts a search for each other, which takes its time and fails from another wire. */
                commands += "neighbour add " + addresses_of(*inet, 1 - side)[path] + " lladdr " +
                            ends[path][1 - side].mac + device;
            }
        }
        configure(ends[0][side].host, commands);
        for (const std::string &address : addresses_of(ipv6(), side)) {
            await_address(ends[0][side].host, address);
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

void Network::cut_all()
{
    cut(0, total_loss);
    cut(1, total_loss);
}

void Network::carry(int path, Manner manner, bool all)
{
    altered = true;
    if (manner == link_down) {
        configure(near, "link set " + ends[path][0].name + (all ? " up\n" : " down\n"));
        return;
    }
    for (const Interface &end : ends[path]) {
        configure(end.host, (all ? "qdisc del dev " : "qdisc add dev ") + end.name + " root netem loss 100%\n", "tc");
    }
}

void Network::set(const std::string &name, int value)
{
    altered = true;
    write_setting(near, name, value);
    write_setting(far, name, value);
}

const Addresses &addresses_of(const Inet &inet, int side)
{
    static const Addresses ipv4[] = {{"10.1.1.1", "10.1.2.1"}, {"10.1.1.2", "10.1.2.2"}};
    static const Addresses ipv6[] = {{"fd00:1::1", "fd00:2::1"}, {"fd00:1::2", "fd00:2::2"}};
    return (inet.family == KEL_AF_INET6 ? ipv6 : ipv4)[side];
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
Capture::Capture(const Namespace &where, int port)
    : tcpdump({"tcpdump", "-i", "any", "-n", "-s", "2000", "-B", "8192", "--immediate-mode", "-Z", "root", "-l",
               "sctp port " + std::to_string(port)},
              &where)
{
    tcpdump.wait_until_it_says("listening on");
}

/* tcpdump is given payload protocols of which it knows no name. */
std::vector<Capture::Chunk> Capture::data()
{
    static const std::regex packet(" > ([0-9a-f.:]+)\\.([0-9]+): sctp"),
        chunk("\\[DATA\\][^,]*\\[SID: ([0-9]+)\\][^,]*\\[PPID (0x[0-9a-f]+)\\]");
    std::istringstream text(tcpdump.read_until("[SHUTDOWN COMPLETE]"));
    tcpdump.end();
    std::string said = tcpdump.read_errors();
    EXPECT_NE(said.find("\n0 packets dropped by kernel"), std::string::npos) << said;

    std::vector<Chunk> found;
    for (std::string line; std::getline(text, line);) {
        std::smatch receiver;
        if (std::regex_search(line, receiver, packet)) {
            for (std::sregex_iterator data(line.begin(), line.end(), chunk), end; data != end; ++data) {
                found.push_back({receiver[1], receiver[2], (*data)[1], (*data)[2]});
            }
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

std::vector<CHAR *> array(Addresses &texts)
{
    std::vector<CHAR *> pointers;
    for (std::string &text : texts) {
        pointers.push_back(text.data());
    }
    return pointers;
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

void reset_when_closed(LONG sockfd)
{
    set(sockfd, SO_LINGER, linger{1, 0}, SOL_SOCKET);
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

Message expect_message(LONG sockfd, const std::string &data)
{
    Message message = next(sockfd);
    expect_same(message.data, data);
    EXPECT_EQ(message.flags & MSG_NOTIFICATION, 0);
    return message;
}

struct sctp_assoc_change expect_change(LONG sockfd, int state)
{
    auto change = next_event<struct sctp_assoc_change>(sockfd, SCTP_ASSOC_CHANGE);
    EXPECT_EQ(change.sac_state, state);
    return change;
}

/* ---- Associations ------------------------------------------------------------------------------------------------ */

static std::unique_ptr<Network> current;

LiveSctp::LiveSctp() : network(*(current ? current : current = std::make_unique<Network>()))
{
}

LiveSctp::~LiveSctp()
{
    if (network.altered || HasFailure()) {
        current.reset();
    }
}

void LiveSctp::SetUp()
{
    LiveInet::SetUp();
    allocated_before = outstanding;
}

void LiveSctp::TearDown()
{
    EXPECT_EQ(outstanding, allocated_before);
    LiveInet::TearDown();
}

Descriptor LiveSctp::one2one_server(int port, Events events)
{
    auto addresses = far_records(port);
    return on(far_host,
              [&] { return kel_sctp_server_one2one_create(inet.family, addresses.data(), 2, 0, 5, &ten, events); });
}

Descriptor LiveSctp::one2one_client(int port, Events events, sctp_assoc_t *id)
{
    auto addresses = far_records(port);
    sctp_assoc_t ignored;
    return on(near_host, [&] {
        return kel_sctp_client_one2one_create(inet.family, addresses.data(), 2, 0, &ten, events,
                                              id != nullptr ? id : &ignored);
    });
}

Descriptor LiveSctp::one2many_server(int port, Events events)
{
    auto addresses = far_records(port);
    return on(far_host,
              [&] { return kel_sctp_server_one2many_create(inet.family, addresses.data(), 2, 0, 5, &ten, events); });
}

Descriptor LiveSctp::one2many_client(Events events)
{
    auto unused = far_records(0);
    return on(near_host,
              [&] { return kel_sctp_client_one2many_create(inet.family, unused.data(), 2, 0, &ten, events); });
}

OneToOne LiveSctp::one2one(Events client_events, Events server_events, int port)
{
    OneToOne made = {{}, {}, {}, far_records(port), 0};
    made.listener = one2one_server(port, server_events);
    made.client = one2one_client(port, client_events, &made.id);
    made.server = accepted(made.listener);
    return made;
}

OneToMany LiveSctp::one2many()
{
    int port = new_port();
    OneToMany made = {{}, {}, far_records(port), 0, 0};
    made.server = one2many_server(port);
    made.client = one2many_client();
    EXPECT_EQ(kel_sctp_connectx(made.client, made.peers.data(), 2, &made.client_id), 0) << strerror(errno);
    send_message(made.client, "to the server", made.client_id);
    made.server_id = next(made.server).info.sinfo_assoc_id;
    return made;
}
