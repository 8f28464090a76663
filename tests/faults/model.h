/*
 * The model: what every function of the module has to do, said a second time in terms of the trace. Its functions have
 * the names, the arguments and the layers of the module's; each call that they make is answered by the path that a run
 * of the module took.
 */
#ifndef TESTS_FAULTS_MODEL_H
#define TESTS_FAULTS_MODEL_H

#include <set>
#include <string>

#include "explorer.h"
#include "kel_socket.h"
#include "system.h"

class Model
{
  public:
    explicit Model(const Path &outcomes);

    /* What the run has to leave behind. */
    sys::Trace trace;
    std::set<int> open;
    int error = error_at_start;
    std::string console;

    /* The address that the system fills in. */
    static const kel_sockaddr_t &peer();

    LONG socket_module_init();

    LONG kel_sizeof_socket(const kel_sockaddr_t *addr);

    int Match_RegExpPattern(const char *inputpattern, char *inputbuf, int matchmode);
    BOOL kel_is_ipv4_addr(CHAR *str);
    BOOL kel_is_ipv6_addr(char *str);
    LONG kel_inet_pton(LONG af, const CHAR *src, kel_sockaddr_t *dst);
    const CHAR *kel_inet_ntop(LONG af, const kel_sockaddr_t *src, CHAR *dst, socklen_t size);
    const CHAR *kel_addr_showstr(kel_sockaddr_t *addr, CHAR *str, LONG size);

    LONG kel_sock_addr_cmp(kel_sockaddr_t *addr1, kel_sockaddr_t *addr2, BOOL ignPort);

    LONG kel_addr_fill(LONG socket, kel_sockaddr_t *my_addr, kel_domain_t family, SHORT port, const CHAR *addrStr,
                       SHORT protocol, const CHAR *ifName);
    LONG kel_get_if_mac_addr(const CHAR *ifName, UCHAR *addr);

    LONG kel_socket(kel_domain_t domain, kel_socktype_t type, LONG protocol);
    LONG kel_getsockopt(LONG sockfd, LONG level, LONG optname, void *optval, socklen_t *optlen);
    LONG kel_setsockopt(LONG sockfd, LONG level, LONG optname, const void *optval, socklen_t optlen);
    LONG kel_close(LONG sockfd);

    LONG kel_bind(LONG sockfd, kel_sockaddr_t *my_addr);
    LONG kel_bind_str(LONG sockfd, kel_domain_t family, SHORT port, const CHAR *addrStr, SHORT protocol,
                      const CHAR *ifName);
    LONG kel_listen(LONG sockfd, LONG maxClient);
    LONG kel_accept(LONG sockfd, kel_sockaddr_t *addr);
    LONG kel_connect(LONG sockfd, kel_sockaddr_t *con_addr);
    LONG kel_connect_str(LONG sockfd, kel_domain_t family, SHORT port, const CHAR *addrStr);
    LONG kel_getpeername(LONG sockfd, kel_sockaddr_t *addr);
    LONG kel_getsockname(LONG sockfd, kel_sockaddr_t *addr);

    LONG kel_recv(LONG sockfd, VOID *buf, size_t len, LONG flags);
    LONG kel_send(LONG sockfd, const VOID *buf, size_t len, LONG flags);
    LONG kel_recvfrom(LONG sockfd, void *buf, size_t len, LONG flags, kel_sockaddr_t *src_addr);
    LONG kel_sendto(LONG sockfd, const void *buf, size_t len, LONG flags, const kel_sockaddr_t *dest_addr);
    LONG kel_raw_sendto(LONG sockfd, const CHAR *ifName, const void *buf, size_t len, LONG flags);

    LONG kel_tcp_server_socket_create(kel_domain_t family, const CHAR *addrStr, SHORT port, LONG maxClient);
    LONG kel_tcp_client_socket_create(kel_domain_t family, const CHAR *addrStr, SHORT port);
    LONG kel_tcp_client_socket_create_bind(kel_domain_t family, const CHAR *addrStr, SHORT port,
                                           kel_sockaddr_t *my_addr);
    LONG kel_udp_server_socket_create(kel_domain_t family, const CHAR *addrStr, SHORT port);
    LONG kel_udp_client_socket_create(kel_domain_t family, const CHAR *s_addrStr, SHORT s_port, kel_sockaddr_t *s_addr);
    LONG kel_udp_client_socket_create_bind(kel_domain_t family, const CHAR *s_addrStr, SHORT s_port,
                                           kel_sockaddr_t *s_addr, kel_sockaddr_t *my_addr);

    LONG kel_unix_tcp_server_socket_create(const CHAR *local_path, LONG maxClient);
    LONG kel_unix_udp_socket_create(const CHAR *local_path, BOOL isbind);
    LONG kel_unix_tcp_client_socket_create(const CHAR *local_path);

    LONG kel_raw_server_socket_create(SHORT protocol, const CHAR *ifName);

    /* One use of a reporting macro: nth counts the equal ones of a function, ifName goes into the text if it is set. */
    struct Report {
        const char *function;
        const char *text;
        int nth;
        int prints;
        const CHAR *ifName;
    };

  private:
    /* Calls: function is the one of the module that makes the call, nth which one of its calls of that name. */
    Choice take(const char *call);
    void reached(const char *function, const char *use, int nth, size_t outcome);
    long calls(const char *function, const char *call, const std::string &arguments, long usual, int nth = 1);
    long makes(const char *function, const char *call, const std::string &arguments);
    long closes(const char *function, LONG fd, int nth = 1);
    long sets_option(const char *function, LONG fd, int level, int option, int nth);
    long queries(const char *function, LONG fd, const char *request, const std::string &name);
    void filled_in(kel_sockaddr_t *addr);
    bool interface_index(LONG fd, const CHAR *ifName, int *index);

    void reports(const Report &report);
    bool is_null(const char *function, const char *argument, const void *pointer, int nth = 1);
    void perror(const char *function, const char *text, int nth = 1);
    void asserts(const char *function, int nth);

    /* What the endpoints are made of. */
    bool step(const char *function, const char *text, LONG result, LONG fd);
    void binds_local(LONG fd, kel_sockaddr_t *my_addr);

    const Path &path;
    size_t at = 0;
    int next_descriptor = sys::first_descriptor;
};

#endif
