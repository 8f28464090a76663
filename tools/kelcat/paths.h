/*
 * What -v shows of an SCTP association: that it is up, its paths with every change of their states, its notifications.
 *
 *   kelcat: 0.000 association 7 up, 10 streams out, 10 in
 *   kelcat: 0.000 path 10.1.0.2 active, primary
 *   kelcat: 2.345 notification SCTP_PEER_ADDR_CHANGE 10.1.0.2 SCTP_ADDR_UNREACHABLE
 *
 * The number in front is the time in seconds since the transfer began. States of a path: active, inactive,
 * potentially-failed, unconfirmed, removed. A notification that only repeats the one before is not shown: many may
 * come at once.
 */
#ifndef KELCAT_PATHS_H
#define KELCAT_PATHS_H

#include <cstring>
#include <map>

#include "address.h"
#include "host.h"
#include "kel_sctp.h"
#include "say.h"

/* No option is asked for by kel_sctp_opt_info, which reports: that an association has gone is an answer here. */
inline bool association_status(LONG sockfd, sctp_assoc_t id, struct sctp_status *status)
{
    socklen_t size = sizeof(*status);
    status->sstat_assoc_id = id;
    return kel_getsockopt(sockfd, SOL_SCTP, SCTP_STATUS, status, &size) == 0;
}

class Paths
{
  public:
    explicit Paths(bool verbose) : wanted(verbose)
    {
    }

    /* The transfer begins. */
    void watch(LONG socket, double now)
    {
        sockfd = socket;
        start = now;
        /* An association may go while its paths are asked for. That is no failure to report. */
        host_filter_add("kel_sctp_getpaddrs", HOST_EVERY_LEVEL);
    }

    void up(const struct sctp_assoc_change &change)
    {
        association = change.sac_assoc_id;
        line("association " + std::to_string(association) + " up, " + std::to_string(change.sac_outbound_streams) +
             " streams out, " + std::to_string(change.sac_inbound_streams) + " in");
        look(now_seconds());
    }

    void notification(const union sctp_notification &told)
    {
        const std::string text = "notification " + name_of(told);
        if (text != latest) {
            line(text);
            latest = text;
        }
        look(now_seconds());
    }

    /* Says what has changed. The kernel does not tell all of it: to be called at due(), too. */
    void look(double now)
    {
        next = now + 0.1;
        struct sctp_status status = {};
        if (!wanted || association == 0 || !association_status(sockfd, association, &status)) {
            return;
        }
        kel_sockaddr_t *list = nullptr;
        const LONG count = kel_sctp_getpaddrs(sockfd, association, &list);
        std::map<std::string, std::string> present;
        for (LONG i = 0; i < count; i++) {
            present[host_text(list[i])] = state_of(list[i], status);
        }
        kel_sctp_freepaddrs(list);

        for (const auto &path : shown) {
            present.emplace(path.first, "removed");
        }
        for (const auto &path : present) {
            if (shown[path.first] != path.second) {
                line("path " + path.first + " " + path.second);
            }
        }
        shown = present;
    }

    double due() const
    {
        return wanted && association != 0 ? next : never;
    }

  private:
    /* A record inside a notification or an option's record. */
    static std::string address_text(const void *record)
    {
        kel_sockaddr_t address;
        memcpy(&address, record, sizeof(address));
        return host_text(address);
    }

    /* The names that <linux/sctp.h> has for the numbers that follow each other from the first one on. */
    template <size_t Count> static std::string pick(const char *const (&names)[Count], int number, int first = 0)
    {
        return number >= first && number < first + (int)Count ? names[number - first] : std::to_string(number);
    }

    static std::string name_of(const union sctp_notification &told)
    {
        static const char *const types[] = {
            "SCTP_ASSOC_CHANGE",          "SCTP_PEER_ADDR_CHANGE",     "SCTP_SEND_FAILED",
            "SCTP_REMOTE_ERROR",          "SCTP_SHUTDOWN_EVENT",       "SCTP_PARTIAL_DELIVERY_EVENT",
            "SCTP_ADAPTATION_INDICATION", "SCTP_AUTHENTICATION_EVENT", "SCTP_SENDER_DRY_EVENT"};
        static const char *const changes[] = {"SCTP_COMM_UP", "SCTP_COMM_LOST", "SCTP_RESTART", "SCTP_SHUTDOWN_COMP",
                                              "SCTP_CANT_STR_ASSOC"};
        static const char *const addresses[] = {
            "SCTP_ADDR_AVAILABLE", "SCTP_ADDR_UNREACHABLE", "SCTP_ADDR_REMOVED",           "SCTP_ADDR_ADDED",
            "SCTP_ADDR_MADE_PRIM", "SCTP_ADDR_CONFIRMED",   "SCTP_ADDR_POTENTIALLY_FAILED"};
        const int type = told.sn_header.sn_type;
        std::string text = pick(types, type, SCTP_ASSOC_CHANGE);
        if (type == SCTP_ASSOC_CHANGE) {
            text += " " + pick(changes, told.sn_assoc_change.sac_state);
        } else if (type == SCTP_PEER_ADDR_CHANGE) {
            text += " " + address_text(&told.sn_paddr_change.spc_aaddr) + " " +
                    pick(addresses, told.sn_paddr_change.spc_state);
        }
        return text;
    }

    std::string state_of(const kel_sockaddr_t &address, const struct sctp_status &status) const
    {
        static const char *const states[] = {"inactive", "potentially-failed", "active"};
        struct sctp_paddrinfo info = {};
        socklen_t size = sizeof(info);
        info.spinfo_assoc_id = association;
        memcpy(&info.spinfo_address, &address, (size_t)kel_sizeof_socket(&address));
        if (kel_getsockopt(sockfd, SOL_SCTP, SCTP_GET_PEER_ADDR_INFO, &info, &size) != 0) {
            return "removed";
        }
        const bool primary = address_text(&status.sstat_primary.spinfo_address) == address_text(&address);
        return (info.spinfo_state == SCTP_UNCONFIRMED ? "unconfirmed" : pick(states, info.spinfo_state)) +
               (primary ? ", primary" : "");
    }

    void line(const std::string &text) const
    {
        if (wanted) {
            say("%.3f %s", now_seconds() - start, text.c_str());
        }
    }

    const bool wanted;
    LONG sockfd = KEL_ERROR;
    double start = 0;
    sctp_assoc_t association = 0; /* 0: not up */
    double next = 0;
    std::string latest;                       /* notification */
    std::map<std::string, std::string> shown; /* states of addresses */
};

#endif
