/* SCTP inside the process. */
#include <gtest/gtest.h>

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "host.h"
#include "kel_sctp.h"
#include "kel_socket_fake.h"

namespace
{

CHAR *near[] = {const_cast<CHAR *>("10.0.0.1"), const_cast<CHAR *>("10.0.1.1")};
CHAR *far[] = {const_cast<CHAR *>("10.0.0.2"), const_cast<CHAR *>("10.0.1.2")};

class FakeSctp : public testing::Test
{
  protected:
    FakeSctp()
    {
        kel_fake_reset();
        host_filter_add("*", HOST_EVERY_LEVEL);
    }
    ~FakeSctp() override
    {
        host_filter_clear();
        kel_fake_reset();
    }
    struct sctp_initmsg init = {4, 3, 0, 0};
    struct sctp_event_subscribe all = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
};

std::string shown(kel_sockaddr_t address)
{
    CHAR line[100] = "";
    return kel_addr_showstr(&address, line, sizeof(line));
}

std::vector<kel_sockaddr_t> records(CHAR **texts, int port)
{
    std::vector<kel_sockaddr_t> made(2);
    for (size_t i = 0; i < 2; i++) {
        EXPECT_EQ(kel_addr_fill(0, &made[i], KEL_AF_INET, (SHORT)port, texts[i], 0, NULL), KEL_OK);
    }
    return made;
}

/* The next thing in words: a message with its stream, a notification by its kind, or the end. */
std::string next(LONG sockfd)
{
    union {
        char text[200];
        union sctp_notification event;
    } got;
    struct pollfd question = {(int)sockfd, POLLIN, 0};
    if (poll(&question, 1, 0) == 0) {
        return "nothing";
    }
    kel_sockaddr_t from = {};
    struct sctp_sndrcvinfo info = {};
    LONG flags = 0;
    LONG count = kel_sctp_recvmsg(sockfd, &got, sizeof(got), &from, &info, &flags);
    if (count <= 0) {
        return count == 0 ? "end" : strerrorname_np(errno);
    }
    if ((flags & MSG_NOTIFICATION) == 0) {
        return std::string(got.text, (size_t)count) + " on " + std::to_string(info.sinfo_stream) + " from " +
               shown(from);
    }
    switch (got.event.sn_header.sn_type) {
    case SCTP_ASSOC_CHANGE:
        return "change " + std::to_string(got.event.sn_assoc_change.sac_state);
    case SCTP_PEER_ADDR_CHANGE:
        return "path " + std::to_string(got.event.sn_paddr_change.spc_state);
    case SCTP_SHUTDOWN_EVENT:
        return "shutdown";
    default:
        return "event " + std::to_string(got.event.sn_header.sn_type);
    }
}

TEST_F(FakeSctp, OneToOne)
{
    LONG server = kel_sctp_server_one2one_str_create(KEL_AF_INET, far, 2, 9000, 5, &init, &all);
    auto peers = records(far, 9000);
    auto locals = records(near, 5000);
    sctp_assoc_t id = 0;
    LONG client =
        kel_sctp_client_one2one_create_bind(KEL_AF_INET, peers.data(), 2, 9000, &init, &all, &id, locals.data(), 2);
    ASSERT_GT(client, 0);
    struct sctp_sndrcvinfo info = {};
    info.sinfo_stream = 2;
    EXPECT_EQ(kel_sctp_send(client, "hello", 5, &info, 0), 5);
    info.sinfo_stream = 3; /* one more than the server takes */
    EXPECT_EQ(kel_sctp_send(client, "hello", 5, &info, 0), KEL_ERROR);
    EXPECT_EQ(errno, EINVAL);
    kel_sockaddr_t peer;
    LONG accepted = kel_accept(server, &peer);
    EXPECT_EQ(shown(peer), "ipv4 10.0.0.1:5000");

    EXPECT_EQ(next(accepted), "change 0");
    EXPECT_EQ(next(accepted), "hello on 2 from ipv4 10.0.0.1:5000");
    EXPECT_EQ(next(accepted), "nothing");
    EXPECT_EQ(next(client), "change 0");
    kel_sockaddr_t *list = NULL;
    ASSERT_EQ(kel_sctp_getpaddrs(accepted, 0, &list), 2);
    EXPECT_EQ(shown(list[1]), "ipv4 10.0.1.1:5000");
    kel_sctp_freepaddrs(list);
    ASSERT_EQ(kel_sctp_getladdrs(accepted, 0, &list), 2);
    EXPECT_EQ(shown(list[1]), "ipv4 10.0.1.2:9000");
    kel_sctp_freeladdrs(list);

    kel_close(client);
    EXPECT_EQ(next(accepted), "shutdown");
    EXPECT_EQ(next(accepted), "change 3");
    EXPECT_EQ(next(accepted), "end");
    EXPECT_EQ(kel_sctp_send(accepted, "late", 4, &info, MSG_NOSIGNAL), KEL_ERROR);
    EXPECT_EQ(errno, EPIPE);
}

TEST_F(FakeSctp, OneToManyWithPeelOff)
{
    LONG server = kel_sctp_server_one2many_str_create(KEL_AF_INET, far, 2, 9000, 5, &init, &all);
    LONG client = kel_sctp_client_one2many_str_create(KEL_AF_INET, far, 2, 9000, &init, NULL);
    sctp_assoc_t id;
    LONG other = kel_sctp_client_one2one_str_create(KEL_AF_INET, far, 2, 9000, &init, NULL, &id);
    auto peers = records(far, 9000);
    EXPECT_EQ(kel_sctp_sendmsg(client, "one", 3, &peers[0], 0, 0, 1, 0, 0), 3);
    EXPECT_EQ(kel_sctp_sendmsg(client, "two", 3, &peers[1], 0, 0, 1, 0, 0), 3);
    EXPECT_EQ(kel_sctp_sendmsg(other, "three", 5, &peers[0], 0, 0, 2, 0, 0), 5);
    EXPECT_EQ(next(server), "change 0");
    EXPECT_EQ(next(server), "change 0");

    kel_sockaddr_t from;
    struct sctp_sndrcvinfo info = {};
    LONG flags;
    CHAR text[2];
    EXPECT_EQ(kel_sctp_recvmsg(server, text, 2, &from, &info, &flags), 2);
    EXPECT_EQ(flags, 0);
    EXPECT_EQ(kel_sctp_recvmsg(server, text, 2, &from, &info, &flags), 1);
    EXPECT_EQ(flags, MSG_EOR);
    LONG peeled = kel_sctp_peeloff(server, info.sinfo_assoc_id);
    ASSERT_GT(peeled, 0);
    EXPECT_EQ(next(peeled).substr(0, 9), "two on 1 ");
    EXPECT_EQ(next(peeled), "nothing");
    EXPECT_EQ(next(server).substr(0, 11), "three on 2 ");
    EXPECT_EQ(kel_sctp_send(peeled, "back", 4, NULL, 0), 4);
    EXPECT_EQ(next(client), "back on 0 from ipv4 10.0.0.2:9000");
    EXPECT_EQ(kel_sctp_sendmsg(client, NULL, 0, &peers[0], 0, SCTP_EOF, 0, 0, 0), 0);
    EXPECT_EQ(next(peeled), "shutdown");
    EXPECT_EQ(next(peeled), "change 3");
    EXPECT_EQ(next(peeled), "nothing");
    close((int)other);
    EXPECT_EQ(kel_fake_open(), 3);
    EXPECT_EQ(next(server), "shutdown");
    EXPECT_EQ(kel_sctp_peeloff(server, 99999), KEL_ERROR);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(FakeSctp, PathsAndNotificationsAreScripted)
{
    LONG server = kel_sctp_server_one2one_str_create(KEL_AF_INET, far, 2, 9000, 5, &init, NULL);
    sctp_assoc_t id;
    struct sctp_event_subscribe some = {};
    some.sctp_data_io_event = some.sctp_association_event = some.sctp_address_event = 1;
    LONG client = kel_sctp_client_one2one_str_create(KEL_AF_INET, far, 2, 9000, &init, &some, &id);
    kel_sockaddr_t peer;
    LONG accepted = kel_accept(server, &peer);
    auto peers = records(far, 9000);
    EXPECT_EQ(next(client), "change 0");

    EXPECT_EQ(kel_fake_sctp_path(client, id, &peers[0], SCTP_ADDR_UNREACHABLE), KEL_OK);
    EXPECT_EQ(next(client), "path 1");
    struct sctp_paddrinfo info = {};
    memcpy(&info.spinfo_address, &peers[0], sizeof(peers[0]));
    socklen_t size = sizeof(info);
    EXPECT_EQ(kel_sctp_opt_info(client, id, SCTP_GET_PEER_ADDR_INFO, &info, &size), 0);
    EXPECT_EQ(info.spinfo_state, SCTP_INACTIVE);
    EXPECT_EQ(kel_sctp_send(accepted, "hello", 5, NULL, 0), 5);
    EXPECT_EQ(next(client), "hello on 0 from ipv4 10.0.1.2:9000");

    struct sctp_remote_error error = {};
    error.sre_type = SCTP_REMOTE_ERROR;
    EXPECT_EQ(kel_fake_sctp_notify(client, &error, sizeof(error)), KEL_ERROR); /* not subscribed */
    struct sctp_assoc_change lost = {};
    lost.sac_type = SCTP_ASSOC_CHANGE;
    lost.sac_state = SCTP_COMM_LOST;
    lost.sac_assoc_id = id;
    EXPECT_EQ(kel_fake_sctp_notify(client, &lost, sizeof(lost)), KEL_OK);
    EXPECT_EQ(next(client), "change 1");
    EXPECT_EQ(next(client), "ETIMEDOUT");
    EXPECT_EQ(next(client), "nothing");
    EXPECT_EQ(next(accepted), "ETIMEDOUT");
}

TEST_F(FakeSctp, OptionsAndAddressesAreReadBack)
{
    LONG server = kel_sctp_server_one2one_str_create(KEL_AF_INET, far, 1, 9000, 5, &init, &all);
    EXPECT_EQ(kel_sctp_bindx_str(server, KEL_AF_INET, 9000, far + 1, 1, SCTP_BINDX_ADD_ADDR), KEL_OK);
    EXPECT_EQ(kel_sctp_bindx_str(server, KEL_AF_INET, 9001, near, 1, SCTP_BINDX_ADD_ADDR), KEL_ERROR);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(kel_sctp_bindx_str(server, KEL_AF_INET, 9000, far, 1, SCTP_BINDX_REM_ADDR), KEL_OK);
    EXPECT_EQ(kel_sctp_bindx_str(server, KEL_AF_INET, 9000, far + 1, 1, SCTP_BINDX_REM_ADDR), KEL_ERROR);
    EXPECT_EQ(errno, EBUSY);
    sctp_assoc_t id;
    EXPECT_EQ(kel_sctp_client_one2one_str_create(KEL_AF_INET, far, 1, 9000, &init, NULL, &id), KEL_ERROR);
    EXPECT_EQ(errno, ECONNREFUSED);
    LONG client = kel_sctp_client_one2one_str_create(KEL_AF_INET, far + 1, 1, 9000, &init, NULL, &id);
    struct sctp_status status = {};
    socklen_t size = sizeof(status);
    EXPECT_EQ(kel_sctp_opt_info(client, id, SCTP_STATUS, &status, &size), 0);
    EXPECT_EQ(status.sstat_outstrms, 3);
    EXPECT_EQ(status.sstat_state, SCTP_ESTABLISHED);
    struct sctp_rtoinfo times = {0, 100, 400, 50};
    struct sctp_rtoinfo read_times = {};
    EXPECT_EQ(kel_setsockopt(client, SOL_SCTP, SCTP_RTOINFO, &times, sizeof(times)), 0);
    size = sizeof(read_times);
    EXPECT_EQ(kel_getsockopt(client, SOL_SCTP, SCTP_RTOINFO, &read_times, &size), 0);
    EXPECT_EQ(read_times.srto_max, 400U);
}

TEST_F(FakeSctp, ThreadsTalk)
{
    LONG server = kel_sctp_server_one2many_str_create(KEL_AF_INET, far, 2, 9000, 5, &init, NULL);
    std::thread echo([&] {
        for (int i = 0; i < 2000; i++) {
            CHAR text[100];
            kel_sockaddr_t from;
            struct sctp_sndrcvinfo info = {};
            LONG flags;
            LONG count = kel_sctp_recvmsg(server, text, sizeof(text), &from, &info, &flags);
            kel_sctp_send(server, text, (size_t)count, &info, MSG_NOSIGNAL);
        }
    });
    sctp_assoc_t id;
    LONG client = kel_sctp_client_one2one_str_create(KEL_AF_INET, far, 2, 9000, &init, NULL, &id);
    for (int i = 0; i < 2000; i++) {
        CHAR text[100];
        kel_sockaddr_t from;
        LONG flags;
        EXPECT_EQ(kel_sctp_send(client, "message", 7, NULL, 0), 7);
        EXPECT_EQ(kel_sctp_recvmsg(client, text, sizeof(text), &from, NULL, &flags), 7);
    }
    echo.join();
}

} // namespace
