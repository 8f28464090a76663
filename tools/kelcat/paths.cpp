#include "paths.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "channel.h"

namespace
{

const double interval = 0.1; /* seconds between two looks */

/* A record inside a notification or an option's record. */
std::string address_text(const void *record)
{
    kel_sockaddr_t address;
    memcpy(&address, record, sizeof(address));
    return host_text(address);
}

struct Name {
    int number;
    const char *text;
};

template <size_t Count> std::string name_of(const Name (&names)[Count], int number)
{
    for (const Name &name : names) {
        if (name.number == number) {
            return name.text;
        }
    }
    return std::to_string(number);
}

#define NAME(constant) {constant, #constant}

const Name notifications[] = {
    NAME(SCTP_ASSOC_CHANGE),          NAME(SCTP_PEER_ADDR_CHANGE),     NAME(SCTP_SEND_FAILED),
    NAME(SCTP_REMOTE_ERROR),          NAME(SCTP_SHUTDOWN_EVENT),       NAME(SCTP_PARTIAL_DELIVERY_EVENT),
    NAME(SCTP_ADAPTATION_INDICATION), NAME(SCTP_AUTHENTICATION_EVENT), NAME(SCTP_SENDER_DRY_EVENT)};

const Name association_changes[] = {NAME(SCTP_COMM_UP), NAME(SCTP_COMM_LOST), NAME(SCTP_RESTART),
                                    NAME(SCTP_SHUTDOWN_COMP), NAME(SCTP_CANT_STR_ASSOC)};

const Name address_changes[] = {
    NAME(SCTP_ADDR_AVAILABLE), NAME(SCTP_ADDR_UNREACHABLE), NAME(SCTP_ADDR_REMOVED),           NAME(SCTP_ADDR_ADDED),
    NAME(SCTP_ADDR_MADE_PRIM), NAME(SCTP_ADDR_CONFIRMED),   NAME(SCTP_ADDR_POTENTIALLY_FAILED)};

#undef NAME

const Name path_states[] = {{SCTP_INACTIVE, "inactive"},
                            {SCTP_PF, "potentially-failed"},
                            {SCTP_ACTIVE, "active"},
                            {SCTP_UNCONFIRMED, "unconfirmed"}};

/* What a notification says behind its name. */
std::string details(const union sctp_notification &told)
{
    switch (told.sn_header.sn_type) {
    case SCTP_ASSOC_CHANGE:
        return " " + name_of(association_changes, told.sn_assoc_change.sac_state);
    case SCTP_PEER_ADDR_CHANGE:
        return " " + address_text(&told.sn_paddr_change.spc_aaddr) + " " +
               name_of(address_changes, told.sn_paddr_change.spc_state);
    default:
        return "";
    }
}

} // namespace

bool association_status(LONG sockfd, sctp_assoc_t id, struct sctp_status *status)
{
    socklen_t size = sizeof(*status);
    status->sstat_assoc_id = id;
    return kel_getsockopt(sockfd, SOL_SCTP, SCTP_STATUS, status, &size) == 0;
}

Paths::Paths(bool verbose) : wanted(verbose)
{
}

void Paths::watch(LONG socket, double now)
{
    sockfd = socket;
    start = now;
}

void Paths::line(const char *format, ...)
{
    char text[256];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    say("%.3f %s", now_seconds() - start, text);
}

void Paths::up(const struct sctp_assoc_change &change)
{
    association = change.sac_assoc_id;
    if (wanted) {
        line("association %d up, %u streams out, %u in", association, change.sac_outbound_streams,
             change.sac_inbound_streams);
        look(now_seconds());
    }
}

void Paths::notification(const union sctp_notification &told)
{
    std::string text = name_of(notifications, told.sn_header.sn_type) + details(told);
    if (wanted && text != latest) {
        line("notification %s", text.c_str());
        latest = text;
    }
    look(now_seconds());
}

double Paths::due() const
{
    return wanted && association != 0 ? next : never;
}

std::string Paths::state_of(const kel_sockaddr_t &address, const struct sctp_status &status)
{
    struct sctp_paddrinfo info = {};
    socklen_t size = sizeof(info);
    memcpy(&info.spinfo_address, &address, (size_t)kel_sizeof_socket(&address));
    if (kel_sctp_opt_info(sockfd, association, SCTP_GET_PEER_ADDR_INFO, &info, &size) != 0) {
        return "removed";
    }
    bool primary = address_text(&status.sstat_primary.spinfo_address) == address_text(&address);
    return name_of(path_states, info.spinfo_state) + (primary ? ", primary" : "");
}

void Paths::look(double now)
{
    next = now + interval;

    struct sctp_status status = {};
    if (!wanted || association == 0 || !association_status(sockfd, association, &status)) {
        return;
    }

    kel_sockaddr_t *list = nullptr;
    LONG count = kel_sctp_getpaddrs(sockfd, association, &list);
    std::vector<std::pair<std::string, std::string>> present;
    present.reserve(count > 0 ? (size_t)count : 0);
    for (LONG i = 0; i < count; i++) {
        present.emplace_back(address_text(&list[i]), state_of(list[i], status));
    }
    kel_sctp_freepaddrs(list);

    for (const auto &path : present) {
        if (std::find(shown.begin(), shown.end(), path) == shown.end()) {
            line("path %s %s", path.first.c_str(), path.second.c_str());
        }
    }
    for (const auto &path : shown) {
        auto same = [&](const auto &other) { return other.first == path.first; };
        if (std::none_of(present.begin(), present.end(), same)) {
            line("path %s removed", path.first.c_str());
        }
    }
    shown = present;
}
