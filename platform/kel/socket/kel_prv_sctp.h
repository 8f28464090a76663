/* What the SCTP side calls and what it shares: the SCTP library, and the set-ups behind the endpoints. */
#ifndef KEL_PRV_SCTP_H
#define KEL_PRV_SCTP_H

#include <stdint.h>

#include "kel_socket.h"

#ifdef __cplusplus
extern "C" {
#endif

/* libsctp, whose own header would define the records of kel_sctp.h a second time, its event record with more flags. */
int sctp_bindx(int sd, struct sockaddr *addrs, int addrcnt, int flags);
int sctp_connectx(int sd, struct sockaddr *addrs, int addrcnt, sctp_assoc_t *id);
int sctp_getpaddrs(int sd, sctp_assoc_t id, struct sockaddr **addrs);
int sctp_freepaddrs(struct sockaddr *addrs);
int sctp_getladdrs(int sd, sctp_assoc_t id, struct sockaddr **addrs);
int sctp_freeladdrs(struct sockaddr *addrs);
int sctp_send(int sd, const void *msg, size_t len, const struct sctp_sndrcvinfo *sinfo, int flags);
int sctp_sendmsg(int sd, const void *msg, size_t len, struct sockaddr *to, socklen_t tolen, uint32_t ppid,
                 uint32_t flags, uint16_t stream_no, uint32_t timetolive, uint32_t context);
int sctp_recvmsg(int sd, void *msg, size_t len, struct sockaddr *from, socklen_t *fromlen,
                 struct sctp_sndrcvinfo *sinfo, int *msg_flags);
int sctp_peeloff(int sd, sctp_assoc_t assoc_id);
int sctp_opt_info(int sd, sctp_assoc_t id, int opt, void *arg, socklen_t *size);

/*
 * The set-ups are external symbols, but the endpoints alone call them and have checked the arguments. port and s_port
 * are not used. This one sets the two options that every endpoint gets.
 */
LONG __kel_set_sock_op_sctp(LONG sockfd, const struct sctp_initmsg *initmsg, const struct sctp_event_subscribe *events);

/* Turns a descriptor into a server. It stays the caller's, and open, whatever happens. */
LONG __sctp_server_create(LONG sockfd, kel_sockaddr_t *addrs, LONG addrcnt, SHORT port, LONG maxClient,
                          struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events);

/* Make a descriptor, and close it when a later step fails. */
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
