/* Scripts, replacements, records and reports, of any function. */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <errno.h>
#include <fstream>
#include <setjmp.h>
#include <string.h>
#include <unistd.h>

#include "host.h"
#include "kel_sctp.h"
#include "kel_socket_fake.h"

namespace
{

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

class FakeScripts : public testing::Test
{
  protected:
    FakeScripts()
    {
        kel_fake_reset();
    }
    ~FakeScripts() override
    {
        kel_fake_reset();
    }
};

kel_sockaddr_t ipv4(const char *text, int port)
{
    kel_sockaddr_t address;
    EXPECT_EQ(kel_addr_fill(0, &address, KEL_AF_INET, (SHORT)port, text, 0, NULL), KEL_OK);
    return address;
}

TEST_F(FakeScripts, AreThereForEveryExport)
{
    std::ifstream map(KEL_SOCKET_MAP);
    int exports = 0;
    for (std::string line; std::getline(map, line);) {
        if (line.substr(0, 4) == "    " && line.back() == ';' && line != "    *;") {
            const std::string name = line.substr(4, line.size() - 5);
            EXPECT_EQ(kel_fake_calls(name.c_str()), 0); /* ends the program when there is none */
            exports++;
        }
    }
    EXPECT_EQ(exports, 60);
}

TEST_F(FakeScripts, AnswerInTheirOrderAndThenLeaveTheFunctionToTheModule)
{
    kel_fake_return("kel_listen", 7, 0, 1);
    kel_fake_return("kel_listen", KEL_ERROR, EADDRINUSE, 2);

    EXPECT_EQ(kel_listen(-1, 5), 7);
    for (int i = 0; i < 2; i++) {
        errno = 0;
        EXPECT_EQ(kel_listen(-1, 5), KEL_ERROR);
        EXPECT_EQ(errno, EADDRINUSE);
    }
    EXPECT_EQ(kel_listen(-1, 5), KEL_ERROR);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(FakeScripts, AnswerForEverUntilTheReset)
{
    kel_sockaddr_t address = ipv4("127.0.0.1", 1);
    kel_fake_return("kel_sizeof_socket", 1000, 0, KEL_FAKE_ALWAYS);
    for (int i = 0; i < 5; i++) {
        EXPECT_EQ(kel_sizeof_socket(&address), 1000);
    }

    kel_fake_reset();

    EXPECT_EQ(kel_sizeof_socket(&address), 16);
}

TEST_F(FakeScripts, WriteWhatTheFunctionWouldHaveWritten)
{
    kel_sockaddr_t sender = ipv4("10.9.8.7", 53);
    kel_fake_return("kel_recvfrom", 5, 0, 1);
    kel_fake_output("kel_recvfrom", "buf", "hello, and more", 15);
    kel_fake_output("kel_recvfrom", "src_addr", &sender, sizeof(sender));

    CHAR text[] = "......";
    kel_sockaddr_t from = {};
    EXPECT_EQ(kel_recvfrom(-1, text, 5, 0, &from), 5);

    EXPECT_STREQ(text, "hello.");
    EXPECT_EQ(kel_sock_addr_cmp(&from, &sender, KEL_FALSE), KEL_OK);
}

TEST_F(FakeScripts, GiveAListOfAddressesOfItsOwn)
{
    kel_sockaddr_t peers[] = {ipv4("10.0.0.1", 9), ipv4("10.0.1.1", 9)};
    kel_fake_return("kel_sctp_getpaddrs", 2, 0, 1);
    kel_fake_output("kel_sctp_getpaddrs", "addrs", peers, sizeof(peers));

    kel_sockaddr_t *addrs = NULL;
    EXPECT_EQ(kel_sctp_getpaddrs(-1, 1, &addrs), 2);

    EXPECT_EQ(kel_sock_addr_cmp(&addrs[1], &peers[1], KEL_FALSE), KEL_OK);
    kel_sctp_freepaddrs(addrs);
}

std::string logged;

void keep_log(const char *call)
{
    if (strncmp(call, "log", 3) == 0) {
        logged += std::string(call) + "\n";
    }
}

TEST_F(FakeScripts, LetAStepFailWithTheModulesOwnReports)
{
    logged.clear();
    host_watch(keep_log);
    CaptureStdout();
    kel_fake_fail("kel_tcp_client_socket_create", "connect", ETIMEDOUT, 1);
    EXPECT_EQ(kel_tcp_client_socket_create(KEL_AF_INET, "10.1.2.3", 9000), KEL_ERROR);
    const std::string console = GetCapturedStdout();
    host_watch(NULL);

    EXPECT_EQ(kel_fake_open(), 0);
    EXPECT_THAT(console, testing::MatchesRegex(
                             "\033\\[1;31mkel_connect\\.[0-9]+:connect :: Connection timed out\033\\[m"
                             "\033\\[1;31mkel_tcp_client_socket_create\\.[0-9]+:connet tcp socket: Connection timed out"
                             "\033\\[m"));
    EXPECT_THAT(logged, testing::MatchesRegex(
                            "log\\(0, 2, platform/kel/socket/kel_socket.cpp, [0-9]+, kel_connect\\) [^\n]*\n"
                            "log\\(0, 2, platform/kel/socket/kel_socket.cpp, [0-9]+, kel_tcp_client_socket_create\\) "
                            "[^\n]*\n"));
}

TEST_F(FakeScripts, ReportThroughThePrintFilter)
{
    kel_fake_fail("kel_tcp_client_socket_create", "socket", EMFILE, 1);
    host_filter_add("*", HOST_EVERY_LEVEL);
    CaptureStdout();
    EXPECT_EQ(kel_tcp_client_socket_create(KEL_AF_INET, "10.1.2.3", 9000), KEL_ERROR);
    host_filter_clear();

    EXPECT_EQ(GetCapturedStdout(), "");
}

TEST_F(FakeScripts, ComeBeforeTheFunctionThatReplacesTheModules)
{
    kel_sockaddr_t address = ipv4("127.0.0.1", 1);
    auto one_less = [](LONG sockfd, kel_sockaddr_t *addr) { return kel_bind(sockfd, addr) - 1; }; /* the module's */
    KEL_FAKE_REPLACE(kel_bind, one_less);
    kel_fake_return("kel_bind", 5, 0, 1);

    EXPECT_EQ(kel_bind(-1, &address), 5);
    EXPECT_EQ(kel_bind(-1, &address), KEL_ERROR - 1);
    EXPECT_EQ(kel_fake_calls("kel_bind"), 2);
    EXPECT_EQ(kel_fake_call("kel_bind", -1)->error, EBADF);

    KEL_FAKE_REPLACE(kel_bind, nullptr);
    EXPECT_EQ(kel_bind(-1, &address), KEL_ERROR);
}

TEST_F(FakeScripts, LeaveTheAnswerToAMock)
{
    testing::StrictMock<testing::MockFunction<decltype(kel_close)>> close;
    KEL_FAKE_REPLACE(kel_close, close.AsStdFunction());
    EXPECT_CALL(close, Call(3)).WillOnce(testing::Return(-9));

    EXPECT_EQ(kel_close(3), -9);
}

TEST_F(FakeScripts, GoOnBehindAFunctionThatHasThrown)
{
    testing::MockFunction<decltype(kel_close)> close;
    KEL_FAKE_REPLACE(kel_close, close.AsStdFunction());
    EXPECT_CALL(close, Call(3)).WillOnce(testing::Throw(7)).WillOnce(testing::Return(-9));

    EXPECT_THROW(kel_close(3), int);
    EXPECT_EQ(kel_close(3), -9);
    EXPECT_EQ(kel_fake_calls("kel_close"), 2);
}

jmp_buf behind;

LONG jump(LONG)
{
    longjmp(behind, 1);
}

/* A process of its own: what the call had allocated is lost, and a sanitizer would say so. */
[[noreturn]]
void go_on_behind_a_jump()
{
    KEL_FAKE_REPLACE(kel_close, jump);
    if (setjmp(behind) == 0) {
        kel_close(3);
    }
    kel_fake_reset();
    kel_close(-1);
    _exit(kel_fake_calls("kel_close") == 1 ? 0 : 1);
}

TEST_F(FakeScripts, GoOnBehindTheResetWhenAFunctionHasJumpedAway)
{
    EXPECT_EXIT(go_on_behind_a_jump(), testing::ExitedWithCode(0), "");
}

TEST_F(FakeScripts, RecordEveryCallWithItsArgumentsInOrder)
{
    CHAR *texts[] = {const_cast<CHAR *>("10.0.0.1"), NULL};
    CHAR buffer[] = "message";
    kel_sockaddr_t address = ipv4("10.9.8.7", 40000);
    kel_fake_return("kel_sctp_bindx_str", 0, 0, 1);
    kel_fake_return("kel_sctp_sendmsg", 7, 0, 1);
    const LONG before = kel_fake_calls(NULL);
    kel_sctp_bindx_str(4, KEL_AF_INET, (SHORT)40000, texts, 2, 1);
    kel_sctp_sendmsg(4, buffer, 7, &address, 46, 0, 3, 0, 99);
    buffer[0] = '?';

    EXPECT_EQ(kel_fake_calls(NULL), before + 2);
    EXPECT_STREQ(kel_fake_call(NULL, -2)->function, "kel_sctp_bindx_str");
    const kel_fake_argument_t *list = kel_fake_argument(kel_fake_call("kel_sctp_bindx_str", 0), "addrStr");
    ASSERT_EQ(list->size, 2 * sizeof(char *));
    EXPECT_STREQ(static_cast<const char *const *>(list->data)[0], "10.0.0.1");
    EXPECT_EQ(static_cast<const char *const *>(list->data)[1], nullptr);

    const kel_fake_call_t *sent = kel_fake_call("kel_sctp_sendmsg", -1);
    EXPECT_EQ(sent->result, 7);
    EXPECT_EQ(sent->count, 9);
    EXPECT_EQ(kel_fake_argument(sent, "context")->value, 99);
    EXPECT_STREQ(static_cast<const char *>(kel_fake_argument(sent, "msg")->data), "message");
    EXPECT_EQ(memcmp(kel_fake_argument(sent, "to")->data, &address, sizeof(address)), 0);
    EXPECT_EQ(kel_fake_call("kel_sctp_sendmsg", 1), nullptr);
}

TEST_F(FakeScripts, EndTheProgramWhenTheyAskForWhatThereIsNot)
{
    EXPECT_DEATH(kel_fake_return("kel_conect", 0, 0, 1), "no function is called kel_conect");
    EXPECT_DEATH(kel_fake_fail("kel_connect", "conect", 0, 1), "no step is called conect");
    EXPECT_DEATH(kel_fake_output("kel_recv", "buf", "", 1), "kel_recv has no kel_fake_return");
    EXPECT_DEATH(kel_fake_argument(kel_fake_call("kel_recv", 0), "buf"), "there is no call whose buf");
}

} // namespace
