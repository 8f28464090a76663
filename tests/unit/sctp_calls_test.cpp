/* SCTP association calls. */
#include "failure.h"
#include "sctp_expected.h"

#include <errno.h>
#include <limits.h>

namespace
{

char message[16];
struct sctp_sndrcvinfo sinfo;
sctp_assoc_t id;
socklen_t size;
kel_sockaddr_t partner = inet_address("10.0.1.2", sctp_port);

/* Names for what the calls below hand on. */
void name_pointers()
{
    sys::name_pointer(message, "message");
    sys::name_pointer(&sinfo, "sinfo");
    sys::name_pointer(&id, "id");
    sys::name_pointer(&size, "size");
}

/* Every call of the library that reports its failure, with ordinary arguments. */
struct Call {
    const char *function;
    const char *library;
    const char *text;
    LONG (*call)();
    sys::Trace before;
    std::string arguments;
    sys::Trace after;

    sys::Trace trace(const std::string &answer) const
    {
        return in_order({before, std::string(library) + "(" + arguments + ") = " + answer, after});
    }
};

const std::vector<Call> &calls()
{
    static const AddressSet &inet6 = address_sets()[1];
    static kel_sockaddr_t *records = const_cast<kel_sockaddr_t *>(inet6.locals.data());
    static CHAR **texts = const_cast<CHAR **>(inet6.texts.data());
    const sys::Trace converted = converting(KEL_AF_INET6, inet6.texts);
    static const std::vector<Call> table = {
        {"kel_sctp_bindx",
         "sctp_bindx",
         "sctp bindx ",
         [] { return kel_sctp_bindx(70, records, 3, SCTP_BINDX_ADD_ADDR); },
         packing(inet6.locals),
         "70, " + packed(inet6.locals) + ", 3, 1",
         {released(1)}},
        {"kel_sctp_bindx", /* from texts */
         "sctp_bindx",
         "sctp bindx ",
         [] { return kel_sctp_bindx_str(70, KEL_AF_INET6, (SHORT)sctp_port, texts, 2, SCTP_BINDX_REM_ADDR); },
         in_order({converted, packing(inet6.peers, 2)}),
         "70, " + packed(inet6.peers) + ", 2, 2",
         {released(2), released(1)}},
        {"kel_sctp_connectx",
         "sctp_connectx",
         "sctp connectx ",
         [] { return kel_sctp_connectx(70, records, 3, &id); },
         packing(inet6.locals),
         "70, " + packed(inet6.locals) + ", 3, id",
         {released(1)}},
        {"kel_sctp_connectx", /* from texts */
         "sctp_connectx",
         "sctp connectx ",
         [] { return kel_sctp_connectx_str(70, KEL_AF_INET6, (SHORT)sctp_port, texts, 2, &id); },
         in_order({converted, packing(inet6.peers, 2)}),
         "70, " + packed(inet6.peers) + ", 2, id",
         {released(2), released(1)}},
        {"kel_sctp_send",
         "sctp_send",
         "sctp send ",
         [] { return kel_sctp_send(70, message, 16, &sinfo, 0x40); },
         {},
         "70, message, 16, sinfo, 64",
         {}},
        {"kel_sctp_sendmsg",
         "sctp_sendmsg",
         "sctp sendmsg ",
         [] { return kel_sctp_sendmsg(70, message, 16, &partner, 1, 2, 3, 4, 5); },
         {},
         "70, message, 16, 02009c400a0001020000000000000000, 16, ppid 1, flags 2, stream 3, timetolive 4, context 5",
         {}},
        {"kel_sctp_peeloff", "sctp_peeloff", "sctp_peeloff ", [] { return kel_sctp_peeloff(70, 9); }, {}, "70, 9", {}},
        {"kel_sctp_opt_info",
         "sctp_opt_info",
         "sctp_opt_info ",
         [] { return kel_sctp_opt_info(70, 9, SCTP_STATUS, message, &size); },
         {},
         "70, 9, 14, message, size",
         {}},
    };
    return table;
}

/* ---- What is reported ------------------------------------------------------------------------------------------- */

std::vector<FailureCase> failed_calls()
{
    std::vector<FailureCase> cases;
    for (const Call &call : calls()) {
        const std::string name = std::string(call.library) + (call.after.size() == 2 ? "_str" : "");
        auto named_call = [=] {
            name_pointers();
            return call.call();
        };
        cases = together(
            {cases, reported(name, named_call, {{call.library, sys::fail(ECONNRESET)}},
                             {call.before, std::string(call.library) + "(" + call.arguments + ") = -1 errno 104",
                              failed_step(call.function, call.text, ECONNRESET), call.after})});
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(SctpFailedCalls, Failure, in_every_way(failed_calls()), filtered_name<FailureCase>);

const std::vector<FailureCase> null_arguments = {
    null_argument("ConnectxNullRecords", null_check("kel_sctp_connectx", "addrs"), {},
                  [] { return kel_sctp_connectx(70, NULL, 1, &id); }),
    null_argument("ConnectxNullTexts", null_check("kel_sctp_connectx_str", "addrStr"), {},
                  [] { return kel_sctp_connectx_str(70, KEL_AF_INET, 5000, NULL, 1, &id); }),
    null_argument("SendNullMessage", null_check("kel_sctp_send", "msg"), {},
                  [] { return kel_sctp_send(70, NULL, 16, &sinfo, 0); }),
    null_argument("SendNullMessageOfLength0", null_check("kel_sctp_send", "msg"), {},
                  [] { return kel_sctp_send(70, NULL, 0, NULL, 0); }),
    null_argument("OptInfoNullRecord", null_check("kel_sctp_opt_info", "arg"), {},
                  [] { return kel_sctp_opt_info(70, 9, SCTP_STATUS, NULL, &size); }),
    null_argument("OptInfoNullSize", null_check("kel_sctp_opt_info", "size"), {},
                  [] { return kel_sctp_opt_info(70, 9, SCTP_STATUS, message, NULL); }),
    null_argument("OptInfoNullRecordFirst", null_check("kel_sctp_opt_info", "arg"), {},
                  [] { return kel_sctp_opt_info(70, 9, SCTP_STATUS, NULL, NULL); }),
};

INSTANTIATE_TEST_SUITE_P(SctpCalls, Failure, in_every_way(null_arguments), filtered_name<FailureCase>);

/* ---- What is returned ------------------------------------------------------------------------------------------- */

TEST(AssociationCalls, TakeOnlyMinusOneForAFailure)
{
    name_pointers();
    for (const Call &call : calls()) {
        for (long answer : {0L, -2L, 7L, (long)INT_MIN, (long)INT_MAX}) {
            SCOPED_TRACE(call.library);
            sys::Recording recording(sys::fail_first(call.library, {answer, ECONNRESET}));

            EXPECT_EQ(call.call(), answer);

            EXPECT_EQ(errno, ECONNRESET);
            EXPECT_EQ(recording.trace(), call.trace(std::to_string(answer) + " errno 104"));
            EXPECT_TRUE(recording.held().empty());
        }
    }
}

/* A temporary array or list that cannot be had: nothing is called, nothing said, nothing kept. */
TEST(AssociationCalls, WithoutMemoryFailInSilence)
{
    for (const Call &call : calls()) {
        for (int nth = 1; nth <= (int)call.after.size(); nth++) {
            sys::Recording recording(sys::fail_nth("tc_malloc", nth, {0, ENOMEM}));

            EXPECT_EQ(call.call(), KEL_ERROR) << call.library << nth;

            EXPECT_EQ(errno, ENOMEM);
            EXPECT_TRUE(recording.held().empty());
            for (const std::string &line : recording.trace()) {
                EXPECT_TRUE(line.compare(0, 5, "sctp_") != 0 && line.compare(0, 6, "filter") != 0) << line;
            }
        }
    }
}

/* ---- What is handed on ------------------------------------------------------------------------------------------ */

TEST(Bindx, HandsAnyFlagsOnCutTo32Bits)
{
    const struct {
        LONG flags;
        const char *shown;
    } rows[] = {{SCTP_BINDX_ADD_ADDR, "1"}, {SCTP_BINDX_REM_ADDR, "2"},  {0, "0"},   {3, "3"},
                {0x100000002, "2"},         {0x80000001, "-2147483647"}, {-1, "-1"}, {(LONG)0xffffffff00000000, "0"}};
    std::vector<kel_sockaddr_t> records = {inet_address("10.0.1.1", 5000)};
    for (const auto &row : rows) {
        sys::Recording recording;

        EXPECT_EQ(kel_sctp_bindx(0x100000005, records.data(), 1, row.flags), 0);

        EXPECT_EQ(recording.trace(),
                  in_order({packing(records), "sctp_bindx(5, " + packed(records) + ", 1, " + row.shown + ") = 0",
                            released(1)}));
    }
}

TEST(Connectx, CutsTheDescriptorAndHandsTheIdentifiersPlaceOn)
{
    std::vector<kel_sockaddr_t> records = {inet_address("10.0.1.1", 5000)};
    name_pointers();
    id = 0;
    sys::Recording recording;

    EXPECT_EQ(kel_sctp_connectx(0x100000005, records.data(), 1, &id), 0);
    EXPECT_EQ(kel_sctp_connectx(-1, records.data(), 1, NULL), 0);

    EXPECT_EQ(id, sys::association);
    EXPECT_EQ(recording.trace(),
              in_order({packing(records), "sctp_connectx(5, " + packed(records) + ", 1, id) = 0", released(1),
                        packing(records, 2), "sctp_connectx(-1, " + packed(records) + ", 1, null) = 0", released(2)}));
}

TEST(Connectx, OfCount0GoesOn)
{
    std::vector<kel_sockaddr_t> records = {inet_address("10.0.1.1", 5000)};
    name_pointers();
    sys::Recording recording;

    EXPECT_EQ(kel_sctp_connectx(70, records.data(), 0, &id), 0);

    EXPECT_EQ(recording.trace(), (sys::Trace{"tc_malloc(0) = 1", "sctp_connectx(70, , 0, id) = 0", released(1)}));
}

TEST(AssociationCalls, FromTextsCutTheDescriptorAndTheFlags)
{
    const AddressSet &set = address_sets()[0];
    CHAR **texts = const_cast<CHAR **>(set.texts.data());
    name_pointers();
    sys::Recording recording;

    EXPECT_EQ(kel_sctp_bindx_str(0x100000046, KEL_AF_INET, (SHORT)sctp_port, texts, 2, 0x100000001), 0);
    EXPECT_EQ(kel_sctp_connectx_str(0x100000046, KEL_AF_INET, (SHORT)sctp_port, texts, 2, &id), 0);

    EXPECT_EQ(recording.trace(),
              in_order({converting(KEL_AF_INET, set.texts), bound(set.peers, 2), released(1),
                        converting(KEL_AF_INET, set.texts, 3), connected(set.peers, 4), released(3)}));
}

TEST(Connectx, OfABadTextFailsBeforeTheLibrary)
{
    CHAR bad[] = "here";
    CHAR *texts[] = {bad};
    sys::Recording recording;

    EXPECT_EQ(kel_sctp_connectx_str(70, KEL_AF_INET, 5000, texts, 1, &id), KEL_ERROR);

    EXPECT_EQ(recording.trace(), in_order({"tc_malloc(112) = 1", cleared, "inet_pton(2, here) = 0",
                                           assert_report("kel_addr_fill"), released(1)}));
}

TEST(SctpSend, CutsDescriptorAndFlagsKeepsTheLengthAndChecksNoRecord)
{
    name_pointers();
    sys::Recording recording;

    EXPECT_EQ(kel_sctp_send(0x100000005, message, 0x100000010, &sinfo, 0x180000040), 16); /* the library's int */
    EXPECT_EQ(kel_sctp_send(0, message, 0, NULL, -1), 0);

    EXPECT_EQ(recording.trace(), (sys::Trace{"sctp_send(5, message, 4294967312, sinfo, -2147483584) = 4294967312",
                                             "sctp_send(0, message, 0, null, -1) = 0"}));
}

TEST(SctpSendmsg, PassesThePeerWithTheLengthOfItsFamily)
{
    const struct {
        int family;
        size_t length;
    } rows[] = {{2, 16}, {10, 28}, {1, 110}, {17, 20}, {3, 0}};
    name_pointers();
    for (const auto &row : rows) {
        kel_sockaddr_t to = poisoned();
        to.sa.sa_family = (sa_family_t)row.family;
        const std::string before = bytes_of(to);
        sys::Recording recording;

        EXPECT_EQ(kel_sctp_sendmsg(5, message, 16, &to, 0, 0, 0, 0, 0), 16);

        EXPECT_EQ(recording.trace(), sys::Trace{"sctp_sendmsg(5, message, 16, " + before.substr(0, 2 * row.length) +
                                                ", " + std::to_string(row.length) +
                                                ", ppid 0, flags 0, stream 0, timetolive 0, context 0) = 16"});
        EXPECT_EQ(bytes_of(to), before);
    }
}

TEST(SctpSendmsg, CutsEveryNumberToTheLibrarysWidthAndSwapsNoBytes)
{
    const struct {
        LONG number;
        const char *in_32;
        const char *in_16;
    } rows[] = {{0x01020304, "16909060", "772"},
                {0x12340001, "305397761", "1"},
                {0x10000, "65536", "0"},
                {0x180000001, "2147483649", "1"},
                {-1, "4294967295", "65535"},
                {0xffff, "65535", "65535"},
                {(LONG)0xffffffff00008000, "32768", "32768"}};
    const std::string to = "02009c400a0001020000000000000000, 16";
    name_pointers();
    for (const auto &row : rows) {
        const std::string wide = row.in_32;
        sys::Recording recording;

        kel_sctp_sendmsg(0x100000005, message, 16, &partner, row.number, 0, 0, 0, 0);
        kel_sctp_sendmsg(5, message, 16, &partner, 0, row.number, 0, 0, 0);
        kel_sctp_sendmsg(5, message, 16, &partner, 0, 0, row.number, 0, 0);
        kel_sctp_sendmsg(5, message, 16, &partner, 0, 0, 0, row.number, 0);
        kel_sctp_sendmsg(5, message, 16, &partner, 0, 0, 0, 0, row.number);

        auto call = [&](const std::string &numbers) {
            return "sctp_sendmsg(5, message, 16, " + to + ", " + numbers + ") = 16";
        };
        EXPECT_EQ(recording.trace(),
                  (sys::Trace{call("ppid " + wide + ", flags 0, stream 0, timetolive 0, context 0"),
                              call("ppid 0, flags " + wide + ", stream 0, timetolive 0, context 0"),
                              call(std::string("ppid 0, flags 0, stream ") + row.in_16 + ", timetolive 0, context 0"),
                              call("ppid 0, flags 0, stream 0, timetolive " + wide + ", context 0"),
                              call("ppid 0, flags 0, stream 0, timetolive 0, context " + wide)}));
    }
}

TEST(SctpSendmsg, ChecksNoMessageAndKeepsTheLength)
{
    sys::Recording recording;

    kel_sctp_sendmsg(5, NULL, 0x100000010, &partner, 0, 0, 0, 0, 0);

    EXPECT_EQ(recording.trace(), sys::Trace{"sctp_sendmsg(5, null, 4294967312, 02009c400a0001020000000000000000, 16, "
                                            "ppid 0, flags 0, stream 0, timetolive 0, context 0) = 4294967312"});
}

/* ---- Receiving -------------------------------------------------------------------------------------------------- */

TEST(SctpRecvmsg, FailsInSilenceAndLeavesTheFlags)
{
    LONG flags = 0x5a5a5a5a5a5a5a5a;
    kel_sockaddr_t from = poisoned();
    name_pointers();
    sys::name_pointer(&from, "from");
    sys::set_received_flags(MSG_NOTIFICATION);
    sys::Recording recording(sys::fail_first("sctp_recvmsg", sys::fail(EAGAIN)));

    EXPECT_EQ(kel_sctp_recvmsg(5, message, 16, &from, &sinfo, &flags), KEL_ERROR);

    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(flags, 0x5a5a5a5a5a5a5a5a);
    EXPECT_EQ(bytes_of(from), bytes_of(poisoned()));
    EXPECT_EQ(recording.trace(), sys::Trace{"sctp_recvmsg(5, message, 16, from, 112, sinfo, 0) = -1 errno 11"});
}

TEST(SctpRecvmsg, OfANullFlagsPlaceFailsAllTheSame)
{
    sys::Recording recording(sys::fail_first("sctp_recvmsg", sys::fail(EAGAIN)));

    EXPECT_EQ(kel_sctp_recvmsg(5, message, 16, NULL, &sinfo, NULL), KEL_ERROR);
}

TEST(SctpRecvmsg, StoresTheFlagsWidenedWithTheirSignWhateverElseComes)
{
    const struct {
        int flags;
        LONG stored;
    } rows[] = {{0, 0}, {MSG_NOTIFICATION, 0x8000}, {INT_MIN, -2147483648}, {-1, -1}, {INT_MAX, 2147483647}};
    for (const auto &row : rows) {
        for (long count : {0L, -2L, 7L, (long)INT_MIN, (long)INT_MAX}) {
            LONG flags = 0x5a5a5a5a5a5a5a5a;
            sys::set_received_flags(row.flags);
            sys::Recording recording(sys::fail_first("sctp_recvmsg", sys::ok(count)));

            EXPECT_EQ(kel_sctp_recvmsg(5, message, 16, NULL, &sinfo, &flags), count);

            EXPECT_EQ(flags, row.stored);
        }
    }
}

TEST(SctpRecvmsg, FillsTheSendersRecord)
{
    LONG flags;
    kel_sockaddr_t from = poisoned();
    name_pointers();
    sys::name_pointer(&from, "from");
    sys::set_peer(inet6_address("fd00:1::2", sctp_port), 28);
    sys::Recording recording;

    EXPECT_EQ(kel_sctp_recvmsg(0x100000005, message, 0x100000010, &from, &sinfo, &flags), 16);
    EXPECT_EQ(kel_sctp_recvmsg(5, NULL, 0, NULL, NULL, &flags), 0);

    EXPECT_EQ(recording.trace(), (sys::Trace{"sctp_recvmsg(5, message, 4294967312, from, 112, sinfo, 0) = 4294967312",
                                             "sctp_recvmsg(5, null, 0, null, 112, null, 0) = 0"}));
    EXPECT_EQ(bytes_of(from), bytes_of(stale_inet6("fd00:1::2", sctp_port)));
}

/* ---- Peeling off, and options ----------------------------------------------------------------------------------- */

TEST(Peeloff, GivesADescriptorAndKeepsTheOldOne)
{
    sys::Recording recording;

    EXPECT_EQ(kel_sctp_peeloff(0x100000005, -7), 70);
    EXPECT_EQ(kel_sctp_peeloff(5, INT_MAX), 71);
    EXPECT_EQ(kel_sctp_peeloff(5, 0), 72);

    EXPECT_EQ(recording.trace(),
              (sys::Trace{"sctp_peeloff(5, -7) = 70", "sctp_peeloff(5, 2147483647) = 71", "sctp_peeloff(5, 0) = 72"}));
    EXPECT_EQ(recording.open(), (std::set<int>{70, 71, 72}));
}

TEST(SctpOptInfo, HandsAnyOptionOnCutTo32Bits)
{
    name_pointers();
    sys::Recording recording;

    EXPECT_EQ(kel_sctp_opt_info(0x100000005, -7, 0x100000009, message, &size), 0);
    EXPECT_EQ(kel_sctp_opt_info(0, INT_MAX, 0x80000000, message, &size), 0);
    EXPECT_EQ(kel_sctp_opt_info(5, 0, 0, message, &size), 0);

    EXPECT_EQ(recording.trace(), (sys::Trace{"sctp_opt_info(5, -7, 9, message, size) = 0",
                                             "sctp_opt_info(0, 2147483647, -2147483648, message, size) = 0",
                                             "sctp_opt_info(5, 0, 0, message, size) = 0"}));
}

} // namespace
