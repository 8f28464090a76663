// Every function once where it succeeds and once where it fails, without a test library: for MemorySanitizer, which has
// to have compiled all that runs, and for Valgrind, which follows the descriptors.
#include <initializer_list>
#include <string.h>
#include <sys/socket.h>

#include "constructors.h"
#include "host.h"
#include "kel_prv_socket.h"
#include "kel_sctp.h"

namespace
{

kel_sockaddr_t record;
CHAR line[100];

void show(kel_sockaddr_t *addr)
{
    require(kel_addr_showstr(addr, line, sizeof(line)) != nullptr && strlen(line) < sizeof(line), "no text", "show");
    require(kel_sock_addr_cmp(addr, addr, KEL_FALSE) == KEL_OK, "is not itself", line);
}

void addresses()
{
    CHAR texts[][40] = {"10.1.2.3", "fe80::1", "::ffff:10.1.2.3", "1.2.3.256", "x", ""};
    for (CHAR *text : texts) {
        kel_is_ipv4_addr(text);
        kel_is_ipv6_addr(text);
        for (kel_domain_t family : {KEL_AF_INET, KEL_AF_INET6, KEL_AF_UNIX}) {
            kel_sockaddr_t filled;
            if (kel_addr_fill(0, &filled, family, 80, text, 0, nullptr) == KEL_OK) {
                show(&filled);
            }
        }
    }
    UCHAR mac[6];
    require(kel_get_if_mac_addr("lo", mac) == KEL_OK && mac[0] == 0, "has no hardware address", "lo");
    require(kel_get_if_mac_addr("none", mac) == KEL_ERROR, "is there", "none");
    require(kel_inet_ntop(KEL_AF_UNIX, &record, line, sizeof(line)) == nullptr, "has a text", "no family");
}

// A connection of two endpoints, its names, its options, and a byte each way.
void transfers(kel_domain_t family, const CHAR *text)
{
    const LONG server = kel_tcp_server_socket_create(family, text, 7020, 1);
    const LONG client = kel_tcp_client_socket_create(family, text, 7020);
    const LONG served = kel_accept(server, &record);
    require(served >= 0, "accepts nobody", text);
    show(&record);
    require(kel_getpeername(client, &record) == KEL_OK && kel_getsockname(client, &record) == KEL_OK, "no name", text);
    show(&record);
    int value = 0;
    socklen_t size = sizeof(value);
    require(kel_getsockopt(client, SOL_SOCKET, SO_TYPE, &value, &size) == KEL_OK && value == SOCK_STREAM, "type", text);
    char byte = 0;
    require(kel_send(client, "x", 1, 0) == 1 && kel_recv(served, &byte, 1, 0) == 1 && byte == 'x', "sends", text);
    kel_close(client);
    kel_close(served);
    kel_close(server);
    require(kel_tcp_client_socket_create(family, text, 7020) == KEL_ERROR, "still listens", text);
    const LONG receiver = kel_udp_server_socket_create(family, text, 7020);
    const LONG sender = kel_udp_client_socket_create(family, text, 7020, &record);
    require(kel_sendto(sender, "y", 1, 0, &record) == 1, "sends no datagram", text);
    require(kel_recvfrom(receiver, &byte, 1, 0, &record) == 1 && byte == 'y', "receives no datagram", text);
    show(&record);
    kel_close(sender);
    kel_close(receiver);
}

void frames()
{
    require(kel_raw_server_socket_create(0x88b5, "none") == KEL_ERROR, "is there", "none");
    const LONG sockfd = kel_raw_server_socket_create(0x88b5, "lo");
    const char frame[64] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, char(0x88), char(0xb5)};
    char received[64];
    require(kel_raw_sendto(sockfd, "lo", frame, sizeof(frame), 0) == sizeof(frame), "sends no frame", "lo");
    require(kel_recvfrom(sockfd, received, sizeof(received), 0, &record) == sizeof(received) &&
                received[13] == frame[13],
            "receives no frame", "lo");
    show(&record);
    kel_close(sockfd);
}

void associations()
{
    struct sctp_initmsg streams = {10, 10, 0, 0};
    CHAR text[] = "127.0.0.1";
    CHAR wrong[] = "x";
    CHAR *texts[] = {text};
    CHAR *wrongs[] = {wrong};
    sctp_assoc_t id = 0;
    const LONG client = kel_sctp_client_one2one_str_create(KEL_AF_INET, texts, 1, 7001, &streams, nullptr, &id);
    require(client >= 0, "no association", "associations");
    kel_sockaddr_t *list = nullptr;
    for (auto get : {kel_sctp_getpaddrs, kel_sctp_getladdrs}) {
        const LONG count = get(client, id, &list);
        require(count >= 1, "no addresses", "associations");
        for (LONG i = 0; i < count; i++) {
            show(&list[i]);
        }
        kel_sctp_freepaddrs(list);
    }
    struct sctp_status status = {};
    socklen_t size = sizeof(status);
    require(kel_sctp_opt_info(client, id, SCTP_STATUS, &status, &size) == KEL_OK, "no status", "associations");
    require(kel_sctp_send(client, "x", 1, nullptr, 0) == 1, "sends nothing", "associations");
    kel_sctp_peeloff(client, id);
    end_one(client);
    for (auto create : {kel_sctp_server_one2one_str_create, kel_sctp_server_one2many_str_create}) {
        require(create(KEL_AF_INET, wrongs, 1, 7021, 5, &streams, nullptr) == KEL_ERROR, "is an address", wrong);
    }
}

} // namespace

// plain [sctp]: with the argument SCTP, too; the system has it, or sctp_stand_in.cpp is linked.
int main(int argc, char **)
{
    const bool with_sctp = argc > 1;
    host_log_to("plain.log");
    require(socket_module_init() == KEL_OK, "is not registered", "module");
    start_peers(with_sctp);
    for (int i = 0; i < constructor_count; i++) {
        for (kel_domain_t family : {KEL_AF_INET, KEL_AF_INET6}) {
            if (constructors[i].kind != sctp || with_sctp) {
                const LONG sockfd = make_one(constructors[i], family);
                require(sockfd >= 0, "failed", constructors[i].name);
                end_one(sockfd);
            }
        }
    }
    addresses();
    transfers(KEL_AF_INET, "127.0.0.1");
    transfers(KEL_AF_INET6, "::1");
    frames();
    if (with_sctp) {
        associations();
    }
    end_peers();
    host_log_to("stderr"); // closes the other one
    return 0;
}
