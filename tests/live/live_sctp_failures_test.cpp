/* SCTP failures, a hundred times each: the kernel keeps refusing, and neither a descriptor nor memory is left. */
#include "live_sctp.h"

#include <fcntl.h>
#include <string.h>
#include <valgrind/valgrind.h>

#include <atomic>
#include <thread>

namespace
{

/* Under Valgrind, which watches every block itself, a few do. */
const int often = [] { return RUNNING_ON_VALGRIND != 0 ? 5 : 100; }();

class LiveSctpFailures : public LiveSctp
{
  protected:
    struct sctp_initmsg initmsg = streams(10, 10);
    int port = new_port();
    std::vector<kel_sockaddr_t> nobody = far_records(port), elsewhere = records(inet, {inet.elsewhere}, port);
    Texts texts{far}, bad{{far[0], "nonsense"}}, elsewhere_text{{inet.elsewhere}};
    sctp_assoc_t id = 0;
    kel_sockaddr_t *list = nullptr;

    LONG next_descriptor()
    {
        LONG next = kel_socket(inet.family, KEL_SOCK_STREAM, IPPROTO_SCTP);
        EXPECT_EQ(kel_close(next), 0);
        return next;
    }

    void expect_every_time(const Namespace &host, const std::function<LONG()> &call)
    {
        Namespace::Visit visit(host);
        long blocks = allocated();
        LONG lowest = next_descriptor();
        for (int i = 0; i < often; i++) {
            ASSERT_EQ(call(), KEL_ERROR) << "call " << i;
        }
        EXPECT_EQ(allocated(), blocks);
        EXPECT_EQ(next_descriptor(), lowest) << "descriptors were left open";
    }

    /* Each waits for the kernel to give up, so they wait together. */
    void expect_all_to_be_given_up(const std::vector<kel_sockaddr_t> &peers)
    {
        constexpr int together = 20;
        initmsg.sinit_max_attempts = 1;
        initmsg.sinit_max_init_timeo = 10;
        long blocks = allocated();
        std::atomic<int> given_up{0};

        std::vector<std::thread> threads;
        for (int i = 0; i < together; i++) {
            threads.emplace_back([&] {
                near_host.enter(); /* and there the thread ends */
                std::vector<kel_sockaddr_t> own = peers;
                sctp_assoc_t own_id;
                LONG made = kel_sctp_client_one2one_create(inet.family, own.data(), (LONG)own.size(), 0, &initmsg, NULL,
                                                           &own_id);
                given_up += made == KEL_ERROR && errno == ETIMEDOUT ? 1 : 0;
            });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }

        EXPECT_EQ(given_up, together);
        EXPECT_EQ(allocated(), blocks);
    }
};

INSTANTIATE_FOR_IPV4_AND_IPV6(LiveSctpFailures);

TEST_P(LiveSctpFailures, RefusedClients)
{
    expect_every_time(near_host, [&] {
        return kel_sctp_client_one2one_create(inet.family, nobody.data(), 2, 0, &initmsg, NULL, &id);
    });
    expect_every_time(near_host, [&] {
        return kel_sctp_client_one2one_create_bind(inet.family, nobody.data(), 2, 0, &initmsg, NULL, &id,
                                                   elsewhere.data(), 1);
    });
    expect_every_time(near_host, [&] {
        return kel_sctp_client_one2one_str_create(inet.family, texts.array(), 2, (SHORT)port, &initmsg, NULL, &id);
    });
}

TEST_P(LiveSctpFailures, PeersThatNoWayLeadsTo)
{
    expect_all_to_be_given_up(elsewhere);
}

TEST_P(LiveSctpFailures, SilentPeers)
{
    network.cut(0, Network::total_loss);
    network.cut(1, Network::total_loss);
    expect_all_to_be_given_up(nobody);
}

TEST_P(LiveSctpFailures, ServersThatCannotBeBound)
{
    expect_every_time(far_host, [&] {
        return kel_sctp_server_one2one_create(inet.family, elsewhere.data(), 1, 0, 5, &initmsg, NULL);
    });
    expect_every_time(far_host, [&] {
        return kel_sctp_server_one2many_create(inet.family, elsewhere.data(), 1, 0, 5, &initmsg, NULL);
    });
    expect_every_time(far_host, [&] {
        return kel_sctp_server_one2one_str_create(inet.family, elsewhere_text.array(), 1, (SHORT)port, 5, &initmsg,
                                                  NULL);
    });
    expect_every_time(far_host, [&] {
        return kel_sctp_server_one2many_str_create(inet.family, elsewhere_text.array(), 1, (SHORT)port, 5, &initmsg,
                                                   NULL);
    });
    expect_every_time(far_host,
                      [&] { return kel_sctp_server_one2many_create(inet.family, NULL, 1, 0, 5, &initmsg, NULL); });
}

TEST_P(LiveSctpFailures, SocketsThatThereAreNot)
{
    expect_every_time(
        far_host, [&] { return kel_sctp_server_one2one_create(KEL_AF_UNIX, nobody.data(), 2, 0, 5, &initmsg, NULL); });
    expect_every_time(
        far_host, [&] { return kel_sctp_server_one2many_create(KEL_AF_UNIX, nobody.data(), 2, 0, 5, &initmsg, NULL); });
    expect_every_time(near_host, [&] {
        return kel_sctp_client_one2one_create(KEL_AF_UNIX, nobody.data(), 2, 0, &initmsg, NULL, &id);
    });
    expect_every_time(near_host, [&] {
        return kel_sctp_client_one2many_create_bind(KEL_AF_UNIX, nobody.data(), 2, 0, &initmsg, NULL, nobody.data(), 2);
    });
}

TEST_P(LiveSctpFailures, ArgumentsThatAreMissing)
{
    expect_every_time(near_host, [&] {
        return kel_sctp_client_one2one_create(inet.family, nobody.data(), 2, 0, &initmsg, NULL, NULL);
    });
    expect_every_time(near_host, [&] {
        return kel_sctp_client_one2many_str_create(inet.family, texts.array(), 2, (SHORT)port, NULL, NULL);
    });
    expect_every_time(far_host, [&] {
        return kel_sctp_server_one2one_str_create(inet.family, texts.array(), 2, (SHORT)port, 5, NULL, NULL);
    });
}

/* A list that is too long for any memory, and one of a family that SCTP does not have. */
TEST_P(LiveSctpFailures, ListsThatCannotBeMade)
{
    Descriptor sockfd = on(near_host, [&] { return kel_socket(inet.family, KEL_SOCK_STREAM, IPPROTO_SCTP); });
    std::vector<kel_sockaddr_t> local = nobody;
    local[0].sa.sa_family = KEL_AF_UNIX;

    expect_every_time(near_host, [&] { return kel_sctp_bindx(sockfd, nobody.data(), -1, SCTP_BINDX_ADD_ADDR); });
    expect_every_time(near_host, [&] { return kel_sctp_connectx(sockfd, local.data(), 2, &id); });
    expect_every_time(near_host, [&] {
        return kel_sctp_client_one2one_create(inet.family, local.data(), 2, 0, &initmsg, NULL, &id);
    });
    expect_every_time(
        far_host, [&] { return kel_sctp_server_one2one_create(inet.family, local.data(), 2, 0, 5, &initmsg, NULL); });
}

TEST_P(LiveSctpFailures, TextsThatAreNoAddresses)
{
    Descriptor sockfd = on(near_host, [&] { return kel_socket(inet.family, KEL_SOCK_STREAM, IPPROTO_SCTP); });
    testing::internal::CaptureStderr(); /* assertions */

    expect_every_time(near_host, [&] {
        return kel_sctp_client_one2many_str_create(inet.family, bad.array(), 2, (SHORT)port, &initmsg, NULL);
    });
    expect_every_time(near_host, [&] {
        return kel_sctp_client_one2one_str_create(inet.family, bad.array(), 2, (SHORT)port, &initmsg, NULL, &id);
    });
    expect_every_time(far_host, [&] {
        return kel_sctp_server_one2many_str_create(inet.family, bad.array(), 2, (SHORT)port, 5, &initmsg, NULL);
    });
    expect_every_time(near_host, [&] {
        return kel_sctp_bindx_str(sockfd, inet.family, (SHORT)port, bad.array(), 2, SCTP_BINDX_ADD_ADDR);
    });
    expect_every_time(near_host,
                      [&] { return kel_sctp_connectx_str(sockfd, inet.family, (SHORT)port, bad.array(), 2, &id); });

    testing::internal::GetCapturedStderr();
}

TEST_P(LiveSctpFailures, CallsOnAnAssociation)
{
    OneToMany all = one2many();
    struct sctp_sndrcvinfo info = {};
    info.sinfo_stream = 10;
    struct sctp_status status;
    socklen_t size = sizeof(status);
    LONG flags;
    char byte;
    fcntl((int)all.server, F_SETFL, O_NONBLOCK);

    expect_every_time(near_host, [&] { return kel_sctp_bindx(all.client, elsewhere.data(), 1, SCTP_BINDX_ADD_ADDR); });
    expect_every_time(near_host, [&] {
        return kel_sctp_bindx_str(all.client, inet.family, (SHORT)port, texts.array(), 2, SCTP_BINDX_ADD_ADDR);
    });
    expect_every_time(near_host, [&] { return kel_sctp_connectx(all.client, nobody.data(), 2, NULL); });
    expect_every_time(
        near_host, [&] { return kel_sctp_connectx_str(all.client, inet.family, (SHORT)port, texts.array(), 2, NULL); });
    expect_every_time(near_host, [&] { return kel_sctp_send(all.client, "x", 1, &info, 0); });
    expect_every_time(near_host,
                      [&] { return kel_sctp_sendmsg(all.client, "x", 1, &far_records(all.port)[0], 0, 0, 10, 0, 0); });
    expect_every_time(far_host, [&] { return kel_sctp_recvmsg(all.server, &byte, 1, NULL, NULL, &flags); });
    expect_every_time(far_host, [&] { return kel_sctp_peeloff(all.server, 0x7777); });
    expect_every_time(far_host, [&] { return kel_sctp_opt_info(all.server, 0x7777, SCTP_STATUS, &status, &size); });
    expect_every_time(far_host, [&] { return kel_sctp_getpaddrs(all.server, 0x7777, &list); });
    expect_every_time(far_host, [&] { return kel_sctp_getladdrs(all.server, 0x7777, &list); });
}

} // namespace
