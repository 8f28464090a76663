/* SCTP set-up, by itself: what the endpoints, which check their arguments, never hand to it. */
#include "sctp_expected.h"

#include <errno.h>

#include "kel_prv_sctp.h"

namespace
{

const AddressSet &inet = address_sets()[0];
sctp_assoc_t id;

kel_sockaddr_t *peers()
{
    sys::name_pointer(&id, "id");
    return const_cast<kel_sockaddr_t *>(inet.peers.data());
}

sys::Trace socket_made(int type)
{
    return created(KEL_AF_INET, type, IPPROTO_SCTP);
}

const sys::Trace both_options = in_order({init_option(), event_option(&subscription)});

/* ---- The options ------------------------------------------------------------------------------------------------ */

TEST(SctpOptions, AreSetFromTheCallersRecordsWithTheirExactLengths)
{
    sys::Recording recording;

    EXPECT_EQ(__kel_set_sock_op_sctp(0x100000046, &initial, &subscription), KEL_OK);

    EXPECT_EQ(recording.trace(), both_options);
}

TEST(SctpOptions, FailWithTheResultOfTheOneThatFailed)
{
    for (long answer : {-1L, -2L, 5L}) {
        const std::string shown = std::to_string(answer) + " errno 22";
        {
            sys::Recording recording(sys::fail_nth("setsockopt", 1, {answer, EINVAL}));
            EXPECT_EQ(__kel_set_sock_op_sctp(70, &initial, &subscription), answer);
            EXPECT_EQ(recording.trace(), in_order({init_option(shown), perror_report("__kel_set_sock_op_sctp",
                                                                                     "set sctp_initmsg ", EINVAL)}));
        }
        {
            sys::Recording recording(sys::fail_nth("setsockopt", 2, {answer, EINVAL}));
            EXPECT_EQ(__kel_set_sock_op_sctp(70, &initial, &subscription), answer);
            EXPECT_EQ(recording.trace(),
                      in_order({init_option(), event_option(&subscription, shown),
                                perror_report("__kel_set_sock_op_sctp", "set sctp_event_subscribe ", EINVAL)}));
        }
    }
}

TEST(SctpOptions, LeaveNullRecordsToTheOptionCall)
{
    const sys::Trace null_value = null_report("kel_setsockopt", "optval");
    {
        sys::Recording recording;
        EXPECT_EQ(__kel_set_sock_op_sctp(70, NULL, &subscription), KEL_ERROR);
        EXPECT_EQ(recording.trace(),
                  in_order({null_value, perror_report("__kel_set_sock_op_sctp", "set sctp_initmsg ", 0)}));
    }
    {
        sys::Recording recording;
        EXPECT_EQ(__kel_set_sock_op_sctp(70, &initial, NULL), KEL_ERROR);
        EXPECT_EQ(recording.trace(),
                  in_order({init_option(), null_value,
                            perror_report("__kel_set_sock_op_sctp", "set sctp_event_subscribe ", 0)}));
    }
}

/* ---- The server ------------------------------------------------------------------------------------------------- */

TEST(SctpServerSetup, TurnsAnyDescriptorIntoAServerAndDoesNotOwnIt)
{
    std::vector<kel_sockaddr_t> records = inet.locals;
    sys::Recording recording;

    EXPECT_EQ(__sctp_server_create(0x100000046, records.data(), 3, (SHORT)sctp_port, 8, &initial, &subscription),
              KEL_OK);

    EXPECT_EQ(recording.trace(), in_order({bound(records), "listen(70, 8) = 0", both_options}));
}

TEST(SctpServerSetup, OfNoDescriptorFailsInTheBind)
{
    std::vector<kel_sockaddr_t> records = {inet_address("10.0.1.1", 0)};
    sys::Recording recording(sys::fail_first("sctp_bindx", sys::fail(EBADF)));

    EXPECT_EQ(__sctp_server_create(-1, records.data(), 1, 0, 8, &initial, NULL), KEL_ERROR);

    EXPECT_EQ(recording.trace(),
              in_order({packing(records), "sctp_bindx(-1, " + packed(records) + ", 1, 1) = -1 errno 9",
                        perror_report("kel_sctp_bindx", "sctp bindx ", EBADF), released(1),
                        perror_report("__sctp_server_create", "bind sctp socket", EBADF)}));
}

TEST(SctpServerSetup, NeverClosesItsDescriptor)
{
    std::vector<kel_sockaddr_t> records = inet.locals;
    for (const char *call : {"sctp_bindx", "listen", "setsockopt"}) {
        sys::Recording recording(sys::fail_first(call, sys::fail(EINVAL)));

        EXPECT_EQ(__sctp_server_create(70, records.data(), 3, 0, 8, &initial, NULL), KEL_ERROR) << call;

        for (const std::string &line : recording.trace()) {
            EXPECT_NE(line.substr(0, 6), "close(") << call;
        }
    }
}

TEST(SctpServerSetup, WithoutInitialParametersFailsInTheOptions)
{
    std::vector<kel_sockaddr_t> records = inet.locals;
    sys::Recording recording;

    EXPECT_EQ(__sctp_server_create(70, records.data(), 3, 0, 8, NULL, &subscription), KEL_ERROR);

    EXPECT_EQ(recording.trace(), in_order({bound(records), "listen(70, 8) = 0", null_report("kel_setsockopt", "optval"),
                                           perror_report("__kel_set_sock_op_sctp", "set sctp_initmsg ", 0),
                                           perror_report("__sctp_server_create", "set_sock_op_sctp", 0)}));
}

/* ---- The clients ------------------------------------------------------------------------------------------------ */

TEST(SctpClientSetup, WithoutAPeerFailsInTheConnect)
{
    sys::Recording recording;

    EXPECT_EQ(__sctp_one2one_client_create(KEL_AF_INET, NULL, 2, 0, &initial, &subscription, &id, NULL, 0), KEL_ERROR);

    EXPECT_EQ(recording.trace(),
              in_order({socket_made(KEL_SOCK_STREAM), both_options, null_report("kel_sctp_connectx", "addrs"),
                        perror_report("__sctp_one2one_client_create", "sctp_connectx ", 0), "close(70) = 0"}));
}

TEST(SctpClientSetup, HandsANullIdentifierToTheLibrary)
{
    sys::Recording recording;

    EXPECT_EQ(__sctp_one2one_client_create(KEL_AF_INET, peers(), 2, 0, &initial, &subscription, NULL, NULL, 0), 70);

    EXPECT_EQ(recording.trace(), in_order({socket_made(KEL_SOCK_STREAM), both_options, packing(inet.peers),
                                           "sctp_connectx(70, " + packed(inet.peers) + ", 2, null) = 0", released(1)}));
}

TEST(SctpClientSetup, WithoutInitialParametersFailsInTheOptions)
{
    const sys::Trace no_record = in_order(
        {null_report("kel_setsockopt", "optval"), perror_report("__kel_set_sock_op_sctp", "set sctp_initmsg ", 0)});
    {
        sys::Recording recording;
        EXPECT_EQ(__sctp_one2one_client_create(KEL_AF_INET, peers(), 2, 0, NULL, &subscription, &id, NULL, 0),
                  KEL_ERROR);
        EXPECT_EQ(recording.trace(),
                  in_order({socket_made(KEL_SOCK_STREAM), no_record,
                            perror_report("__sctp_one2one_client_create", "set_sock_op_sctp ", 0), "close(70) = 0"}));
    }
    {
        sys::Recording recording;
        EXPECT_EQ(__sctp_one2many_client_create(KEL_AF_INET, peers(), 2, 0, NULL, &subscription, NULL, 0), KEL_ERROR);
        EXPECT_EQ(recording.trace(),
                  in_order({socket_made(KEL_SOCK_SEQPACKET), no_record,
                            perror_report("__sctp_one2many_client_create", "set_sock_op_sctp ", 0), "close(70) = 0"}));
    }
}

TEST(SctpClientSetup, ToManyTakesNoPeerAtAll)
{
    sys::Recording recording;

    EXPECT_EQ(__sctp_one2many_client_create(KEL_AF_INET, NULL, -1, (SHORT)sctp_port, &initial, &subscription, NULL, 0),
              70);

    EXPECT_EQ(recording.trace(), in_order({socket_made(KEL_SOCK_SEQPACKET), both_options}));
    EXPECT_EQ(recording.open(), std::set<int>{70});
}

TEST(SctpClientSetup, TakesDescriptor0ForAFailureAndLeavesItOpen)
{
    {
        sys::Recording recording(sys::fail_first("socket", sys::ok(0)));
        EXPECT_EQ(__sctp_one2one_client_create(KEL_AF_INET, peers(), 2, 0, &initial, NULL, &id, NULL, 0), KEL_ERROR);
        EXPECT_EQ(recording.trace(),
                  in_order({"socket(2, 1, 132) = 0", "setsockopt(0, 1, 2, 01000000, 4) = 0",
                            perror_report("__sctp_one2one_client_create", "create sctp socket ", 0)}));
        EXPECT_EQ(recording.open(), std::set<int>{0});
    }
    {
        sys::Recording recording(sys::fail_first("socket", sys::ok(0)));
        EXPECT_EQ(__sctp_one2many_client_create(KEL_AF_INET, peers(), 2, 0, &initial, NULL, NULL, 0), KEL_ERROR);
        EXPECT_EQ(recording.trace(),
                  in_order({"socket(2, 5, 132) = 0", "setsockopt(0, 1, 2, 01000000, 4) = 0",
                            perror_report("__sctp_one2many_client_create", "create sctp socket ", 0)}));
        EXPECT_EQ(recording.open(), std::set<int>{0});
    }
}

} // namespace
