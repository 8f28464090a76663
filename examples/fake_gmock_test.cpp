/* Tests with GoogleMock of an application's class, without a network: Watch is what is tested. */
#include <gmock/gmock.h>
#include <kel/kel_sctp.h>
#include <kel/kel_socket_fake.h>

#include <errno.h>
#include <string>

/* The application: takes what a peer sends over SCTP, and notes which of its addresses is lost. */
class Watch
{
  public:
    explicit Watch(LONG connected) : sockfd(connected)
    {
    }
    ~Watch()
    {
        kel_close(sockfd);
    }
    Watch(const Watch &) = delete;
    Watch &operator=(const Watch &) = delete;

    bool next() /* false at the end */
    {
        CHAR buffer[1000];
        kel_sockaddr_t from;
        struct sctp_sndrcvinfo info;
        LONG flags;
        const LONG count = kel_sctp_recvmsg(sockfd, buffer, sizeof(buffer), &from, &info, &flags);
        if (count <= 0) {
            return false;
        }
        if ((flags & MSG_NOTIFICATION) == 0) {
            message.assign(buffer, (size_t)count);
        } else if (auto *change = reinterpret_cast<struct sctp_paddr_change *>(buffer);
                   change->spc_type == SCTP_PEER_ADDR_CHANGE && change->spc_state == SCTP_ADDR_UNREACHABLE) {
            CHAR line[100] = "";
            lost = kel_addr_showstr(reinterpret_cast<kel_sockaddr_t *>(&change->spc_aaddr), line, sizeof(line));
        }
        return true;
    }

    std::string message;
    std::string lost;

  private:
    LONG sockfd;
};

class WatchTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        kel_fake_reset();
    }
};

TEST_F(WatchTest, NotesTheAddressThatIsLost)
{
    CHAR *addresses[] = {const_cast<CHAR *>("10.0.0.1"), const_cast<CHAR *>("10.0.1.1")};
    struct sctp_initmsg init = {4, 4, 0, 0};
    struct sctp_event_subscribe events = {};
    events.sctp_address_event = 1;
    sctp_assoc_t id;
    LONG server = kel_sctp_server_one2one_str_create(KEL_AF_INET, addresses, 2, 9000, 5, &init, nullptr);
    LONG client = kel_sctp_client_one2one_str_create(KEL_AF_INET, addresses, 2, 9000, &init, &events, &id);
    kel_sockaddr_t peer;
    LONG accepted = kel_accept(server, &peer);
    Watch watch(client);

    kel_sockaddr_t first;
    kel_addr_fill(0, &first, KEL_AF_INET, 9000, "10.0.0.1", 0, nullptr);
    kel_fake_sctp_path(client, id, &first, SCTP_ADDR_UNREACHABLE);
    kel_sctp_send(accepted, "still here", 10, nullptr, MSG_NOSIGNAL);
    kel_close(accepted);

    EXPECT_TRUE(watch.next());
    EXPECT_EQ(watch.lost, "ipv4 10.0.0.1:9000");
    EXPECT_TRUE(watch.next());
    EXPECT_EQ(watch.message, "still here");
    EXPECT_FALSE(watch.next());
}

TEST_F(WatchTest, EndsWhenNothingCanBeReceivedAndClosesOnce)
{
    testing::StrictMock<testing::MockFunction<decltype(kel_sctp_recvmsg)>> receive;
    testing::StrictMock<testing::MockFunction<decltype(kel_close)>> close;
    KEL_FAKE_REPLACE(kel_sctp_recvmsg, receive.AsStdFunction());
    KEL_FAKE_REPLACE(kel_close, close.AsStdFunction());
    EXPECT_CALL(receive, Call(77, testing::_, 1000, testing::_, testing::_, testing::_))
        .WillOnce(testing::SetErrnoAndReturn(ECONNRESET, KEL_ERROR));
    EXPECT_CALL(close, Call(77));

    Watch watch(77);
    EXPECT_FALSE(watch.next());
}
