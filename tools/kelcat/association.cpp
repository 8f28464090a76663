#include "association.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>

namespace
{

const size_t piece = 64 << 10; /* one read; a longer message comes in parts */
const uint32_t jumbo = 9000;   /* no Ethernet has larger packets */
const uint32_t ethernet = 1500;

} // namespace

Association::Association(const Arguments &given, const Endpoint &endpoint)
    : paths(given.verbose, endpoint.sockfd), arguments(given), sockfd(endpoint.sockfd), id(endpoint.association)
{
    if (up()) {
        begin(id);
    }
}

bool Association::up() const
{
    return id != 0 || !arguments.one_to_many;
}

void Association::begin(sctp_assoc_t association)
{
    id = association;
    struct sctp_status now = {};
    if (association_status(sockfd, id, &now)) {
        id = now.sstat_assoc_id;
        streams = std::min(arguments.streams != 0 ? arguments.streams : (uint16_t)1, now.sstat_outstrms);
        if (now.sstat_primary.spinfo_mtu > jumbo) {
            limit_packets();
        }
    }
}

/*
 * The receiver's buffer counts a packet whole for each message that shares it: on the loopback interface, whose packets
 * may have 64 KiB, a few of them fill it, the rest is dropped, and the association crawls.
 */
void Association::limit_packets()
{
    struct sctp_paddrparams params = {};
    params.spp_assoc_id = id;
    params.spp_pathmtu = ethernet;
    params.spp_flags = SPP_PMTUD_DISABLE;
    kel_setsockopt(sockfd, SOL_SCTP, SCTP_PEER_ADDR_PARAMS, &params, sizeof(params));
}

bool Association::unconfirmed() const
{
    struct sctp_status now = {};
    return association_status(sockfd, id, &now) && now.sstat_unackdata != 0;
}

/* ---- Messages ---------------------------------------------------------------------------------------------------- */

bool Association::send(const std::string &message)
{
    struct sctp_sndrcvinfo info = {};
    info.sinfo_assoc_id = id;
    info.sinfo_stream = stream;
    info.sinfo_ppid = htonl(arguments.ppid);
    if (kel_sctp_send(sockfd, message.data(), message.size(), &info, MSG_DONTWAIT) == KEL_ERROR) {
        return false;
    }
    stream = (uint16_t)((stream + 1) % streams);
    return true;
}

void Association::receive(std::string *data)
{
    kel_sockaddr_t from = {};
    struct sctp_sndrcvinfo info = {};
    LONG flags = 0;
    data->resize(piece);
    LONG length = kel_sctp_recvmsg(sockfd, &(*data)[0], data->size(), &from, &info, &flags);
    data->resize(length > 0 ? (size_t)length : 0);

    if (length == KEL_ERROR) {
        if (errno != EAGAIN) {
            close(errno);
        }
    } else if (length == 0) {
        struct sctp_status now = {};
        ending = true;
        closed = closed || !association_status(sockfd, id, &now);
    } else if ((flags & MSG_NOTIFICATION) != 0) {
        union sctp_notification told = {};
        memcpy(&told, data->data(), std::min(data->size(), sizeof(told)));
        data->clear();
        take_notification(told);
    } else if (!ours(info.sinfo_assoc_id)) {
        data->clear();
    }
}

/* ---- Ends -------------------------------------------------------------------------------------------------------- */

void Association::shut_down()
{
    if (arguments.one_to_many) {
        send_flag(id, SCTP_EOF);
    } else {
        shutdown((int)sockfd, SHUT_WR); /* the module has no call for it */
    }
}

LONG Association::send_flag(sctp_assoc_t association, uint16_t flag)
{
    struct sctp_sndrcvinfo info = {};
    info.sinfo_assoc_id = association;
    info.sinfo_flags = flag;
    return kel_sctp_send(sockfd, "", 0, &info, MSG_DONTWAIT);
}

/* A one-to-many listener serves the first association that it hears of. */
bool Association::ours(sctp_assoc_t association)
{
    if (!up()) {
        begin(association);
    }
    return !arguments.one_to_many || association == id;
}

void Association::take_notification(const union sctp_notification &told)
{
    switch (told.sn_header.sn_type) {
    case SCTP_ASSOC_CHANGE:
        if (ours(told.sn_assoc_change.sac_assoc_id)) {
            take_change(told.sn_assoc_change);
        } else if (told.sn_assoc_change.sac_state == SCTP_COMM_UP) {
            send_flag(told.sn_assoc_change.sac_assoc_id, SCTP_ABORT);
        }
        break;
    case SCTP_SHUTDOWN_EVENT:
        ending = ending || ours(told.sn_shutdown_event.sse_assoc_id);
        break;
    default:
        break;
    }
    paths.notification(told);
}

void Association::take_change(const struct sctp_assoc_change &change)
{
    switch (change.sac_state) {
    case SCTP_COMM_UP:
        paths.up(change);
        break;
    case SCTP_SHUTDOWN_COMP:
        close(0);
        break;
    case SCTP_COMM_LOST:
    case SCTP_CANT_STR_ASSOC:
        /* Behind the record comes the peer's ABORT, if there was one. */
        close(change.sac_length > sizeof(change) ? ECONNRESET : ETIMEDOUT);
        break;
    case SCTP_RESTART: /* another program has taken the peer's place, and knows nothing of what was sent */
        close(ECONNRESET);
        break;
    default:
        break;
    }
}

/* why: 0, or what broke it. */
void Association::close(int why)
{
    error = closed ? error : why;
    closed = true;
}
