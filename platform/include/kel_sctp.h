/*
 * SCTP: the records and constants that go with the kel_sctp_* functions of kel_socket.h, as RFC 6458 and the kernel
 * define them.
 *
 * This header takes the place of the system's SCTP headers, <netinet/sctp.h> and <linux/sctp.h>: both together are an
 * error, in either order. An application that wants the system's includes that and kel_socket.h, and not this one; of
 * its longer event record the module hands over the first ten flags. The protocol's number, IPPROTO_SCTP, is that of
 * <netinet/in.h>.
 *
 * Numbers are in host byte order, but for those that are marked "network byte order" or "as on the wire", and for the
 * ports and addresses in a struct sockaddr_storage, which holds a struct sockaddr_in or sockaddr_in6. Times are
 * milliseconds, sizes and windows bytes, unless marked otherwise.
 */
#if !defined(KEL_SCTP_H) && (defined(_SCTP_H) || defined(__linux_sctp_h__))
#error "kel_sctp.h takes the place of the system's SCTP header: include one of them, not both"
#elif !defined(KEL_SCTP_H)
#define KEL_SCTP_H

#include "kel_socket.h"

#include <stdint.h>
#include <sys/socket.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Records that end in an array of open length are C; C++ knows them as an extension. */
#ifdef __clang__
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wc99-extensions"
#endif

/* ---- Levels, options and flags --------------------------------------------------------------------------------- */

#ifndef SOL_SCTP
#define SOL_SCTP 132 /* level of every option below; the C library may define it already */
#endif

/*
 * Options for kel_getsockopt() and kel_setsockopt(), with the record that each takes. kel_sctp_opt_info() takes those
 * that libsctp knows, of which 0 to 4, 6, 8 to 15, 24, 26 and 27 have been seen to work.
 */
#define SCTP_RTOINFO 0                /* struct sctp_rtoinfo */
#define SCTP_ASSOCINFO 1              /* struct sctp_assocparams */
#define SCTP_INITMSG 2                /* struct sctp_initmsg */
#define SCTP_NODELAY 3                /* int */
#define SCTP_AUTOCLOSE 4              /* uint32_t, seconds */
#define SCTP_SET_PEER_PRIMARY_ADDR 5  /* struct sctp_setpeerprim */
#define SCTP_PRIMARY_ADDR 6           /* struct sctp_prim */
#define SCTP_ADAPTATION_LAYER 7       /* struct sctp_setadaptation */
#define SCTP_DISABLE_FRAGMENTS 8      /* int */
#define SCTP_PEER_ADDR_PARAMS 9       /* struct sctp_paddrparams */
#define SCTP_DEFAULT_SEND_PARAM 10    /* struct sctp_sndrcvinfo */
#define SCTP_EVENTS 11                /* struct sctp_event_subscribe */
#define SCTP_I_WANT_MAPPED_V4_ADDR 12 /* int */
#define SCTP_MAXSEG 13                /* struct sctp_assoc_value */
#define SCTP_STATUS 14                /* struct sctp_status */
#define SCTP_GET_PEER_ADDR_INFO 15    /* struct sctp_paddrinfo */
#define SCTP_DELAYED_ACK_TIME 16      /* struct sctp_sack_info */
#define SCTP_DELAYED_ACK SCTP_DELAYED_ACK_TIME
#define SCTP_DELAYED_SACK SCTP_DELAYED_ACK_TIME
#define SCTP_CONTEXT 17                          /* struct sctp_assoc_value */
#define SCTP_FRAGMENT_INTERLEAVE 18              /* int */
#define SCTP_PARTIAL_DELIVERY_POINT 19           /* uint32_t, bytes */
#define SCTP_MAX_BURST 20                        /* struct sctp_assoc_value */
#define SCTP_AUTH_CHUNK 21                       /* struct sctp_authchunk */
#define SCTP_HMAC_IDENT 22                       /* struct sctp_hmacalgo */
#define SCTP_AUTH_KEY 23                         /* struct sctp_authkey */
#define SCTP_AUTH_ACTIVE_KEY 24                  /* struct sctp_authkeyid */
#define SCTP_AUTH_DELETE_KEY 25                  /* struct sctp_authkeyid */
#define SCTP_PEER_AUTH_CHUNKS 26                 /* struct sctp_authchunks */
#define SCTP_LOCAL_AUTH_CHUNKS 27                /* struct sctp_authchunks */
#define SCTP_GET_ASSOC_NUMBER 28                 /* uint32_t */
#define SCTP_GET_ASSOC_ID_LIST 29                /* struct sctp_assoc_ids */
#define SCTP_AUTO_ASCONF 30                      /* int */
#define SCTP_PEER_ADDR_THLDS 31                  /* struct sctp_paddrthlds */
#define SCTP_RECVRCVINFO 32                      /* int */
#define SCTP_RECVNXTINFO 33                      /* int */
#define SCTP_DEFAULT_SNDINFO 34                  /* struct sctp_sndinfo */
#define SCTP_AUTH_DEACTIVATE_KEY 35              /* struct sctp_authkeyid */
#define SCTP_REUSE_PORT 36                       /* int */
#define SCTP_EVENT 127                           /* struct sctp_event */
#define SCTP_EXPOSE_POTENTIALLY_FAILED_STATE 131 /* struct sctp_assoc_value */

/* Flags of kel_sctp_bindx(). */
#define SCTP_BINDX_ADD_ADDR 0x01
#define SCTP_BINDX_REM_ADDR 0x02

/* In the flags that kel_sctp_recvmsg() stores: what was received is a notification, not a message. */
#define MSG_NOTIFICATION 0x8000

/* Associations that an option record may name on a one-to-many socket in place of one. */
#define SCTP_FUTURE_ASSOC 0
#define SCTP_CURRENT_ASSOC 1
#define SCTP_ALL_ASSOC 2

/* sinfo_flags, and the flags of kel_sctp_sendmsg(). */
enum sctp_sinfo_flags {
    SCTP_UNORDERED = 1 << 0,
    SCTP_ADDR_OVER = 1 << 1, /* send to the given address rather than to the primary one */
    SCTP_ABORT = 1 << 2,
    SCTP_SACK_IMMEDIATELY = 1 << 3,
    SCTP_SENDALL = 1 << 6,
    SCTP_EOF = 0x200 /* shut the association down; goes out with length 0 */
};

/* ---- Records of the module's functions ------------------------------------------------------------------------- */

/* SCTP_INITMSG: how an association is set up; in each field 0 is the kernel's own value. Recipe: bounded-connect. */
struct sctp_initmsg {
    uint16_t sinit_num_ostreams;   /* streams to send on; the peer may allow fewer */
    uint16_t sinit_max_instreams;  /* streams that the peer may send on */
    uint16_t sinit_max_attempts;   /* times that the first packet is sent again */
    uint16_t sinit_max_init_timeo; /* longest wait between two of them, milliseconds */
};

/* SCTP_EVENTS: which notifications arrive; each flag 0 or 1. The module hands over exactly these ten. */
struct sctp_event_subscribe {
    uint8_t sctp_data_io_event;          /* fill struct sctp_sndrcvinfo with every message */
    uint8_t sctp_association_event;      /* SCTP_ASSOC_CHANGE */
    uint8_t sctp_address_event;          /* SCTP_PEER_ADDR_CHANGE */
    uint8_t sctp_send_failure_event;     /* SCTP_SEND_FAILED */
    uint8_t sctp_peer_error_event;       /* SCTP_REMOTE_ERROR */
    uint8_t sctp_shutdown_event;         /* SCTP_SHUTDOWN_EVENT */
    uint8_t sctp_partial_delivery_event; /* SCTP_PARTIAL_DELIVERY_EVENT */
    uint8_t sctp_adaptation_layer_event; /* SCTP_ADAPTATION_INDICATION */
    uint8_t sctp_authentication_event;   /* SCTP_AUTHENTICATION_EVENT */
    uint8_t sctp_sender_dry_event;       /* SCTP_SENDER_DRY_EVENT */
};

/* What goes with a message. */
struct sctp_sndrcvinfo {
    uint16_t sinfo_stream;     /* from 0 */
    uint16_t sinfo_ssn;        /* received: number of the message in its stream */
    uint16_t sinfo_flags;      /* enum sctp_sinfo_flags */
    uint32_t sinfo_ppid;       /* as on the wire: no byte order is changed. Recipe: ppid */
    uint32_t sinfo_context;    /* sent: comes back when sending fails */
    uint32_t sinfo_timetolive; /* sent: milliseconds until the message is given up, 0 for never */
    uint32_t sinfo_tsn;        /* received: number of its chunk in the association */
    uint32_t sinfo_cumtsn;     /* received, of an unordered message: the number up to which none is missing */
    sctp_assoc_t sinfo_assoc_id;
};

/* ---- Notifications: what kel_sctp_recvmsg() delivers with MSG_NOTIFICATION -------------------------------------
 *
 * Every record begins with its type (enum sctp_sn_type), flags, and its length in bytes, with what follows the record.
 */

enum sctp_sn_type {
    SCTP_SN_TYPE_BASE = 1 << 15,
    SCTP_DATA_IO_EVENT = SCTP_SN_TYPE_BASE,
    SCTP_ASSOC_CHANGE,
    SCTP_PEER_ADDR_CHANGE,
    SCTP_SEND_FAILED,
    SCTP_REMOTE_ERROR,
    SCTP_SHUTDOWN_EVENT,
    SCTP_PARTIAL_DELIVERY_EVENT,
    SCTP_ADAPTATION_INDICATION,
    SCTP_AUTHENTICATION_EVENT,
    SCTP_SENDER_DRY_EVENT
};

/* For programs that ask the preprocessor whether there is such an event. */
#define SCTP_DATA_IO_EVENT SCTP_DATA_IO_EVENT
#define SCTP_ASSOC_CHANGE SCTP_ASSOC_CHANGE
#define SCTP_PEER_ADDR_CHANGE SCTP_PEER_ADDR_CHANGE
#define SCTP_SEND_FAILED SCTP_SEND_FAILED
#define SCTP_REMOTE_ERROR SCTP_REMOTE_ERROR
#define SCTP_SHUTDOWN_EVENT SCTP_SHUTDOWN_EVENT
#define SCTP_PARTIAL_DELIVERY_EVENT SCTP_PARTIAL_DELIVERY_EVENT
#define SCTP_ADAPTATION_INDICATION SCTP_ADAPTATION_INDICATION
#define SCTP_AUTHENTICATION_INDICATION SCTP_AUTHENTICATION_EVENT
#define SCTP_SENDER_DRY_EVENT SCTP_SENDER_DRY_EVENT

/* SCTP_ASSOC_CHANGE (sctp_association_event) */
struct sctp_assoc_change {
    uint16_t sac_type;
    uint16_t sac_flags;
    uint32_t sac_length;
    uint16_t sac_state;            /* enum sctp_sac_state */
    uint16_t sac_error;            /* cause that the peer gave, network byte order */
    uint16_t sac_outbound_streams; /* both numbers only with SCTP_COMM_UP and SCTP_RESTART */
    uint16_t sac_inbound_streams;
    sctp_assoc_t sac_assoc_id;
    __extension__ uint8_t sac_info[]; /* causes in the peer's ABORT, as on the wire */
};

enum sctp_sac_state { SCTP_COMM_UP, SCTP_COMM_LOST, SCTP_RESTART, SCTP_SHUTDOWN_COMP, SCTP_CANT_STR_ASSOC };

/* SCTP_PEER_ADDR_CHANGE (sctp_address_event) */
struct sctp_paddr_change {
    uint16_t spc_type;
    uint16_t spc_flags;
    uint32_t spc_length;
    struct sockaddr_storage spc_aaddr;
    int spc_state; /* enum sctp_spc_state */
    int spc_error; /* enum sctp_sn_error */
    sctp_assoc_t spc_assoc_id;
} __attribute__((packed, aligned(4)));

enum sctp_spc_state {
    SCTP_ADDR_AVAILABLE,
    SCTP_ADDR_UNREACHABLE,
    SCTP_ADDR_REMOVED,
    SCTP_ADDR_ADDED,
    SCTP_ADDR_MADE_PRIM,
    SCTP_ADDR_CONFIRMED,
    SCTP_ADDR_POTENTIALLY_FAILED
};

/* SCTP_REMOTE_ERROR (sctp_peer_error_event) */
struct sctp_remote_error {
    uint16_t sre_type;
    uint16_t sre_flags;
    uint32_t sre_length;
    uint16_t sre_error; /* cause, network byte order */
    sctp_assoc_t sre_assoc_id;
    __extension__ uint8_t sre_data[]; /* the cause's parameters as on the wire */
};

/* SCTP_SEND_FAILED (sctp_send_failure_event) */
struct sctp_send_failed {
    uint16_t ssf_type;
    uint16_t ssf_flags; /* enum sctp_ssf_flags */
    uint32_t ssf_length;
    uint32_t ssf_error;              /* cause, network byte order in its lower 16 bits */
    struct sctp_sndrcvinfo ssf_info; /* as it was sent */
    sctp_assoc_t ssf_assoc_id;
    __extension__ uint8_t ssf_data[]; /* the message */
};

enum sctp_ssf_flags { SCTP_DATA_UNSENT, SCTP_DATA_SENT };

/* SCTP_SHUTDOWN_EVENT (sctp_shutdown_event) */
struct sctp_shutdown_event {
    uint16_t sse_type;
    uint16_t sse_flags;
    uint32_t sse_length;
    sctp_assoc_t sse_assoc_id;
};

/* SCTP_PARTIAL_DELIVERY_EVENT (sctp_partial_delivery_event) */
struct sctp_pdapi_event {
    uint16_t pdapi_type;
    uint16_t pdapi_flags;
    uint32_t pdapi_length;
    uint32_t pdapi_indication; /* SCTP_PARTIAL_DELIVERY_ABORTED */
    sctp_assoc_t pdapi_assoc_id;
    uint32_t pdapi_stream;
    uint32_t pdapi_seq;
};

enum { SCTP_PARTIAL_DELIVERY_ABORTED = 0 };

/* SCTP_ADAPTATION_INDICATION (sctp_adaptation_layer_event) */
struct sctp_adaptation_event {
    uint16_t sai_type;
    uint16_t sai_flags;
    uint32_t sai_length;
    uint32_t sai_adaptation_ind; /* the number that the peer set */
    sctp_assoc_t sai_assoc_id;
};

/* SCTP_AUTHENTICATION_EVENT (sctp_authentication_event) */
struct sctp_authkey_event {
    uint16_t auth_type;
    uint16_t auth_flags;
    uint32_t auth_length;
    uint16_t auth_keynumber;
    uint16_t auth_altkeynumber;
    uint32_t auth_indication; /* SCTP_AUTH_NEW_KEY ... */
    sctp_assoc_t auth_assoc_id;
};

enum { SCTP_AUTH_NEW_KEY, SCTP_AUTH_FREE_KEY, SCTP_AUTH_NO_AUTH };

/* SCTP_SENDER_DRY_EVENT (sctp_sender_dry_event) */
struct sctp_sender_dry_event {
    uint16_t sender_dry_type;
    uint16_t sender_dry_flags;
    uint32_t sender_dry_length;
    sctp_assoc_t sender_dry_assoc_id;
};

/* Any notification; its type decides which member it is. */
union sctp_notification {
    struct {
        uint16_t sn_type; /* enum sctp_sn_type */
        uint16_t sn_flags;
        uint32_t sn_length;
    } sn_header;
    struct sctp_assoc_change sn_assoc_change;
    struct sctp_paddr_change sn_paddr_change;
    struct sctp_remote_error sn_remote_error;
    struct sctp_send_failed sn_send_failed;
    struct sctp_shutdown_event sn_shutdown_event;
    struct sctp_pdapi_event sn_pdapi_event;
    struct sctp_adaptation_event sn_adaptation_event;
    struct sctp_authkey_event sn_authkey_event;
    struct sctp_sender_dry_event sn_sender_dry_event;
};

/* Error fields of notifications. */
typedef enum sctp_sn_error {
    SCTP_FAILED_THRESHOLD,
    SCTP_RECEIVED_SACK,
    SCTP_HEARTBEAT_SUCCESS,
    SCTP_RESPONSE_TO_USER_REQ,
    SCTP_INTERNAL_ERROR,
    SCTP_SHUTDOWN_GUARD_EXPIRES,
    SCTP_PEER_FAULTY
} sctp_sn_error_t;

/* ---- Records of the options ------------------------------------------------------------------------------------ */

/* Times before something is sent again: the first one, and their bounds. */
struct sctp_rtoinfo {
    sctp_assoc_t srto_assoc_id;
    uint32_t srto_initial;
    uint32_t srto_max;
    uint32_t srto_min;
};

struct sctp_assocparams {
    sctp_assoc_t sasoc_assoc_id;
    uint16_t sasoc_asocmaxrxt;               /* failures in a row that end the association */
    uint16_t sasoc_number_peer_destinations; /* read only, as are the two windows */
    uint32_t sasoc_peer_rwnd;                /* what the peer can take */
    uint32_t sasoc_local_rwnd;               /* what this end can take */
    uint32_t sasoc_cookie_life;              /* milliseconds */
};

struct sctp_setpeerprim {
    sctp_assoc_t sspp_assoc_id;
    struct sockaddr_storage sspp_addr;
} __attribute__((packed, aligned(4)));

struct sctp_prim {
    sctp_assoc_t ssp_assoc_id;
    struct sockaddr_storage ssp_addr;
} __attribute__((packed, aligned(4)));

struct sctp_setadaptation {
    uint32_t ssb_adaptation_ind; /* any number; the peer gets it in SCTP_ADAPTATION_INDICATION */
};

enum sctp_spp_flags {
    SPP_HB_ENABLE = 1 << 0,
    SPP_HB_DISABLE = 1 << 1,
    SPP_HB = SPP_HB_ENABLE | SPP_HB_DISABLE,
    SPP_HB_DEMAND = 1 << 2,
    SPP_PMTUD_ENABLE = 1 << 3,
    SPP_PMTUD_DISABLE = 1 << 4,
    SPP_PMTUD = SPP_PMTUD_ENABLE | SPP_PMTUD_DISABLE,
    SPP_SACKDELAY_ENABLE = 1 << 5,
    SPP_SACKDELAY_DISABLE = 1 << 6,
    SPP_SACKDELAY = SPP_SACKDELAY_ENABLE | SPP_SACKDELAY_DISABLE,
    SPP_HB_TIME_IS_ZERO = 1 << 7,
    SPP_IPV6_FLOWLABEL = 1 << 8,
    SPP_DSCP = 1 << 9
};

struct sctp_paddrparams {
    sctp_assoc_t spp_assoc_id;
    struct sockaddr_storage spp_address; /* the path; all zero for every path */
    uint32_t spp_hbinterval;             /* milliseconds between heartbeats */
    uint16_t spp_pathmaxrxt;             /* failures in a row that make the path inactive */
    uint32_t spp_pathmtu;                /* bytes */
    uint32_t spp_sackdelay;              /* milliseconds */
    uint32_t spp_flags;                  /* enum sctp_spp_flags */
    uint32_t spp_ipv6_flowlabel;         /* the lower 20 bits */
    uint8_t spp_dscp;                    /* the upper 6 bits */
} __attribute__((packed, aligned(4)));

struct sctp_sack_info {
    sctp_assoc_t sack_assoc_id;
    uint32_t sack_delay; /* milliseconds */
    uint32_t sack_freq;  /* packets that one acknowledgement answers */
};

struct sctp_assoc_value {
    sctp_assoc_t assoc_id;
    uint32_t assoc_value; /* unit as the option says: bytes (SCTP_MAXSEG), packets (SCTP_MAX_BURST) */
};

struct sctp_authchunk {
    uint8_t sauth_chunk; /* type of chunk */
};

struct sctp_authkey {
    sctp_assoc_t sca_assoc_id;
    uint16_t sca_keynumber;
    uint16_t sca_keylength; /* bytes at sca_key */
    __extension__ uint8_t sca_key[];
};

struct sctp_authkeyid {
    sctp_assoc_t scact_assoc_id;
    uint16_t scact_keynumber;
};

struct sctp_hmacalgo {
    uint32_t shmac_num_idents;
    __extension__ uint16_t shmac_idents[]; /* 1 is SHA-1, 3 is SHA-256 */
};

struct sctp_authchunks {
    sctp_assoc_t gauth_assoc_id;
    uint32_t gauth_number_of_chunks;
    __extension__ uint8_t gauth_chunks[];
};

struct sctp_assoc_ids {
    uint32_t gaids_number_of_ids;
    __extension__ sctp_assoc_t gaids_assoc_id[];
};

struct sctp_paddrthlds {
    sctp_assoc_t spt_assoc_id;
    struct sockaddr_storage spt_address; /* the path; all zero for every path */
    uint16_t spt_pathmaxrxt;             /* failures in a row that make the path inactive */
    uint16_t spt_pathpfthld;             /* failures in a row that make it potentially failed */
};

struct sctp_sndinfo {
    uint16_t snd_sid;     /* stream */
    uint16_t snd_flags;   /* enum sctp_sinfo_flags */
    uint32_t snd_ppid;    /* as on the wire */
    uint32_t snd_context; /* comes back when sending fails */
    sctp_assoc_t snd_assoc_id;
};

struct sctp_event {
    sctp_assoc_t se_assoc_id;
    uint16_t se_type; /* enum sctp_sn_type */
    uint8_t se_on;    /* 0 or 1 */
};

struct sctp_paddrinfo {
    sctp_assoc_t spinfo_assoc_id;
    struct sockaddr_storage spinfo_address;
    int32_t spinfo_state; /* enum sctp_spinfo_state */
    uint32_t spinfo_cwnd; /* bytes */
    uint32_t spinfo_srtt; /* in ticks of the kernel */
    uint32_t spinfo_rto;  /* milliseconds */
    uint32_t spinfo_mtu;  /* bytes */
} __attribute__((packed, aligned(4)));

enum sctp_spinfo_state {
    SCTP_INACTIVE,
    SCTP_PF, /* potentially failed */
    SCTP_ACTIVE,
    SCTP_UNCONFIRMED,
    SCTP_UNKNOWN = 0xffff
};
#define SCTP_POTENTIALLY_FAILED SCTP_PF

struct sctp_status {
    sctp_assoc_t sstat_assoc_id;
    int32_t sstat_state;      /* enum sctp_sstat_state */
    uint32_t sstat_rwnd;      /* bytes that the peer can take */
    uint16_t sstat_unackdata; /* chunks */
    uint16_t sstat_penddata;  /* chunks that wait to be read */
    uint16_t sstat_instrms;
    uint16_t sstat_outstrms;
    uint32_t sstat_fragmentation_point; /* bytes of the largest message that goes out in one chunk */
    struct sctp_paddrinfo sstat_primary;
};

enum sctp_sstat_state {
    SCTP_EMPTY = 0,
    SCTP_CLOSED = 1,
    SCTP_COOKIE_WAIT = 2,
    SCTP_COOKIE_ECHOED = 3,
    SCTP_ESTABLISHED = 4,
    SCTP_SHUTDOWN_PENDING = 5,
    SCTP_SHUTDOWN_SENT = 6,
    SCTP_SHUTDOWN_RECEIVED = 7,
    SCTP_SHUTDOWN_ACK_SENT = 8
};

#ifdef __clang__
#pragma clang diagnostic pop
#endif

#ifdef __cplusplus
}
#endif

#endif
