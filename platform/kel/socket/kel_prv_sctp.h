/* Set-up of SCTP sockets: what the SCTP endpoint constructors share, and nobody else calls. */
#ifndef KEL_PRV_SCTP_H
#define KEL_PRV_SCTP_H

#include "kel_socket.h"

#ifdef __cplusplus
extern "C" {
#endif

LONG __kel_set_sock_op_sctp(LONG sockfd, const struct sctp_initmsg *initmsg, const struct sctp_event_subscribe *events);

LONG __sctp_server_create(LONG sockfd, kel_sockaddr_t *addrs, LONG addrcnt, SHORT port, LONG maxClient,
                          struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events);

LONG __sctp_one2one_client_create(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt, SHORT s_port,
                                  struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events, sctp_assoc_t *id,
                                  kel_sockaddr_t *my_addrs, LONG my_addrcnt);

LONG __sctp_one2many_client_create(kel_domain_t family, kel_sockaddr_t *s_addrs, LONG s_addrcnt, SHORT s_port,
                                   struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events,
                                   kel_sockaddr_t *my_addrs, LONG my_addrcnt);

#ifdef __cplusplus
}
#endif

#endif
