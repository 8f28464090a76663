/*
 * The model: what every function of the module has to do, said a second time in terms of the trace. Its functions have
 * the names, the arguments and the layers of the module's; each call that they make is answered by the path that a run
 * of the module took.
 */
#ifndef TESTS_FAULTS_MODEL_H
#define TESTS_FAULTS_MODEL_H

#include <functional>
#include <set>
#include <string>
#include <vector>

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
    std::set<std::string> held; /* memory, by its names in the trace */
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

    LONG kel_sctp_getpaddrs(LONG sockfd, sctp_assoc_t assoc_id, kel_sockaddr_t **addrs);
    LONG kel_sctp_getladdrs(LONG sockfd, sctp_assoc_t assoc_id, kel_sockaddr_t **addrs);
    LONG kel_sctp_freepaddrs(kel_sockaddr_t *addrs);
    LONG kel_sctp_freeladdrs(kel_sockaddr_t *addrs);

    LONG kel_sctp_bindx(LONG sockfd, kel_sockaddr_t *addrs, LONG addrcnt, LONG flags);
    LONG kel_sctp_bindx_str(LONG sockfd, kel_domain_t family, SHORT port, CHAR **addrStr, LONG addrcnt, LONG flags);
    LONG kel_sctp_connectx(LONG sockfd, kel_sockaddr_t *addrs, LONG addrcnt, sctp_assoc_t *id);
    LONG kel_sctp_connectx_str(LONG sockfd, kel_domain_t family, SHORT port, CHAR **addrStr, LONG addrcnt,
                               sctp_assoc_t *id);
    LONG kel_sctp_send(LONG sockfd, const void *msg, size_t len, const struct sctp_sndrcvinfo *sinfo, LONG flags);
    LONG kel_sctp_sendmsg(LONG sockfd, const void *msg, size_t len, kel_sockaddr_t *to, LONG ppid, LONG flags,
                          LONG stream_no, LONG timetolive, LONG context);
    LONG kel_sctp_recvmsg(LONG sockfd, void *msg, size_t len, kel_sockaddr_t *from, struct sctp_sndrcvinfo *sinfo,
                          LONG *msg_flags);
    LONG kel_sctp_peeloff(LONG sockfd, sctp_assoc_t assoc_id);
    LONG kel_sctp_opt_info(LONG sockfd, sctp_assoc_t assoc_id, LONG opt, void *arg, socklen_t *size);

    LONG __kel_set_sock_op_sctp(LONG sockfd, const struct sctp_initmsg *initmsg,
                                const struct sctp_event_subscribe *events);
    LONG __sctp_server_create(LONG sockfd, kel_sockaddr_t *addrs, LONG addrcnt, SHORT port, LONG maxClient,
                              struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events);
    LONG __sctp_one2one_client_create(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt, SHORT s_port,
                                      struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events,
                                      sctp_assoc_t *id, kel_sockaddr_t *my_addrs, LONG my_addrcnt);
    LONG __sctp_one2many_client_create(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt, SHORT s_port,
                                       struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events,
                                       kel_sockaddr_t *my_addrs, LONG my_addrcnt);

    LONG kel_sctp_server_one2one_create(kel_domain_t family, kel_sockaddr_t *addrs, LONG addrcnt, SHORT port,
                                        LONG maxClient, struct sctp_initmsg *initmsg,
                                        struct sctp_event_subscribe *events);
    LONG kel_sctp_server_one2many_create(kel_domain_t family, kel_sockaddr_t *addrs, LONG addrcnt, SHORT port,
                                         LONG maxClient, struct sctp_initmsg *initmsg,
                                         struct sctp_event_subscribe *events);
    LONG kel_sctp_server_one2one_str_create(kel_domain_t family, CHAR **addrStr, LONG addrcnt, SHORT port,
                                            LONG maxClient, struct sctp_initmsg *initmsg,
                                            struct sctp_event_subscribe *events);
    LONG kel_sctp_server_one2many_str_create(kel_domain_t family, CHAR **addrStr, LONG addrcnt, SHORT port,
                                             LONG maxClient, struct sctp_initmsg *initmsg,
                                             struct sctp_event_subscribe *events);
    LONG kel_sctp_client_one2one_create(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt, SHORT s_port,
                                        struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events,
                                        sctp_assoc_t *id);
    LONG kel_sctp_client_one2one_create_bind(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt, SHORT s_port,
                                             struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events,
                                             sctp_assoc_t *id, kel_sockaddr_t *my_addrs, LONG my_addrcnt);
    LONG kel_sctp_client_one2one_str_create(kel_domain_t family, CHAR **s_addrStr, LONG s_addrcnt, SHORT s_port,
                                            struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events,
                                            sctp_assoc_t *id);
    LONG kel_sctp_client_one2many_create(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt, SHORT s_port,
                                         struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events);
    LONG kel_sctp_client_one2many_create_bind(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt,
                                              SHORT s_port, struct sctp_initmsg *initmsg,
                                              struct sctp_event_subscribe *events, kel_sockaddr_t *my_addrs,
                                              LONG my_addrcnt);
    LONG kel_sctp_client_one2many_str_create(kel_domain_t family, CHAR **s_addrStr, LONG s_addrcnt, SHORT s_port,
                                             struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events);

    /* One use of a reporting macro: nth counts the equal ones of a function, ifName goes into the text if it is set. */
    struct Report {
        const char *function;
        const char *macro;
        const char *text; /* or the argument that was null */
        int nth;
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
    bool is_null(const char *function, const char *argument, const void *pointer, int nth = 1,
                 const char *check = "NULL_CHECK");
    void perror(const char *function, const char *text, int nth = 1);
    void asserts(const char *function);

    /* What the endpoints are made of. */
    bool step(const char *function, const char *text, LONG result, LONG fd);
    void binds_local(LONG fd, kel_sockaddr_t *my_addr);

    /* Memory of the allocator: its name in the trace, empty when there is none. Whoever takes it gives it back. */
    using Block = std::string;
    Block takes(const char *function, LONG count, int element);
    void gives_back(const char *function, const Block &block);

    /* What the SCTP calls are made of: lists for libsctp as the digits of their bytes, and records out of texts. */
    Block packs(kel_sockaddr_t *addrs, LONG addrcnt, std::string *digits);
    Block reads(LONG sockfd, kel_domain_t family, SHORT port, CHAR **addrStr, LONG addrcnt,
                std::vector<kel_sockaddr_t> *records);
    LONG lists(const char *function, const char *call, const char *release, LONG sockfd, sctp_assoc_t assoc_id,
               kel_sockaddr_t **addrs);
    LONG with_texts(const char *function, LONG sockfd, kel_domain_t family, SHORT port, CHAR **addrStr, LONG addrcnt,
                    const std::function<LONG(kel_sockaddr_t *addrs, LONG addrcnt)> &use);
    kel_sockaddr_t *unpacks(const kel_sockaddr_t *addrs, LONG addrcnt);
    LONG unlists(const char *function, kel_sockaddr_t *addrs);
    LONG passes_on(const char *function, const char *text, long result);

    /* And what the SCTP endpoints are made of. */
    bool sets_up(const char *set_up, const char *text, LONG fd, struct sctp_initmsg *initmsg,
                 struct sctp_event_subscribe *events);
    LONG made(const char *function, LONG fd);
    LONG closed(LONG fd);
    LONG serves(LONG fd, kel_sockaddr_t *addrs, LONG addrcnt, LONG maxClient, struct sctp_initmsg *initmsg,
                struct sctp_event_subscribe *events);
    LONG becomes_client(const char *set_up, kel_domain_t family, kel_socktype_t type, kel_sockaddr_t *my_addrs,
                        LONG my_addrcnt, struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events);
    LONG one2one_client(const char *function, kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt,
                        struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events, sctp_assoc_t *id,
                        kel_sockaddr_t *my_addrs, LONG my_addrcnt);
    LONG one2many_client(const char *function, kel_domain_t family, kel_sockaddr_t *s_addrs,
                         struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events, kel_sockaddr_t *my_addrs,
                         LONG my_addrcnt);

    const Path &path;
    size_t at = 0;
    int next_descriptor = sys::first_descriptor;
    int blocks = 0;
    std::vector<kel_sockaddr_t> fetched; /* the array that a caller has from kel_sctp_getpaddrs, in fetched_block */
    Block fetched_block;
};

#endif
