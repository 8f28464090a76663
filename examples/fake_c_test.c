/* A test in C of an application's function, without a network: ask() is what is tested. */
#undef NDEBUG /* nothing is tested without assertions */
#include <assert.h>
#include <errno.h>
#include <kel/kel_sctp.h>
#include <kel/kel_socket_fake.h>
#include <stdio.h>
#include <string.h>

/* The application: sends a question over SCTP and waits for the answer. */
static LONG ask(CHAR **addresses, LONG count, const CHAR *question, CHAR *answer, size_t size)
{
    struct sctp_initmsg init = {.sinit_num_ostreams = 4, .sinit_max_instreams = 4};
    sctp_assoc_t id;
    LONG server = kel_sctp_client_one2one_str_create(KEL_AF_INET, addresses, count, 9000, &init, NULL, &id);
    if (server == KEL_ERROR) {
        return KEL_ERROR;
    }
    kel_sockaddr_t peer;
    struct sctp_sndrcvinfo info = {.sinfo_stream = 1};
    LONG flags;
    LONG length = kel_sctp_send(server, question, strlen(question), &info, MSG_NOSIGNAL);
    if (length != KEL_ERROR) {
        length = kel_sctp_recvmsg(server, answer, size, &peer, &info, &flags);
    }
    kel_close(server);
    return length;
}

static CHAR *addresses[] = {"10.0.0.1", "10.0.1.1"};

static void the_answer_comes_back(void)
{
    kel_fake_return("kel_sctp_client_one2one_str_create", 77, 0, 1);
    kel_fake_return("kel_sctp_send", 9, 0, 1);
    kel_fake_return("kel_sctp_recvmsg", 5, 0, 1);
    kel_fake_output("kel_sctp_recvmsg", "msg", "12:30", 5);

    CHAR answer[10] = "";
    assert(ask(addresses, 2, "what time", answer, sizeof(answer)) == 5);

    assert(strcmp(answer, "12:30") == 0);
    const kel_fake_call_t *sent = kel_fake_call("kel_sctp_send", 0);
    assert(strcmp(kel_fake_argument(sent, "msg")->data, "what time") == 0);
    assert(kel_fake_argument(kel_fake_call("kel_close", 0), "sockfd")->value == 77);
}

static void a_server_that_is_silent_is_given_up(void)
{
    struct sctp_initmsg init = {.sinit_num_ostreams = 4, .sinit_max_instreams = 4};
    LONG server = kel_sctp_server_one2one_str_create(KEL_AF_INET, addresses, 2, 9000, 5, &init, NULL);
    kel_fake_fail("kel_sctp_client_one2one_str_create", "sctp_connectx", ETIMEDOUT,
                  1); /* prints the module's reports */

    CHAR answer[10];
    assert(ask(addresses, 2, "what time", answer, sizeof(answer)) == KEL_ERROR);

    assert(kel_fake_calls("kel_sctp_send") == 0);
    assert(kel_fake_open() == 1); /* the server: ask() has left nothing open */
    assert(kel_close(server) == 0);
}

int main(void)
{
    void (*const tests[])(void) = {the_answer_comes_back, a_server_that_is_silent_is_given_up};
    for (size_t i = 0; i < sizeof(tests) / sizeof(tests[0]); i++) {
        kel_fake_reset();
        tests[i]();
    }
    puts("\nboth passed");
    return 0;
}
