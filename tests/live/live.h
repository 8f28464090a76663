/* What the tests on the real kernel share: owners that tidy up whatever a failed test leaves, peers, and waiting. */
#ifndef TESTS_LIVE_H
#define TESTS_LIVE_H

#include <gtest/gtest.h>

#include <errno.h>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

#include "hosts.h"
#include "kel_socket.h"

/* Ends the program, with errno's text: nothing can be tested. */
[[noreturn]]
void fail_set_up(const std::string &what);

/* A descriptor of the module. The release waits for nothing; a test that is about kel_close() calls it itself. */
class Descriptor
{
  public:
    Descriptor(LONG made = KEL_ERROR) : number(made)
    {
    }
    ~Descriptor()
    {
        close();
    }
    Descriptor(Descriptor &&other) noexcept : number(other.number)
    {
        other.number = KEL_ERROR;
    }
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        std::swap(number, other.number);
        return *this;
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    operator LONG() const
    {
        return number;
    }
    void close();

  private:
    LONG number;
};

/* A folder that vanishes with everything in it. */
class Folder
{
  public:
    Folder();
    ~Folder();
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;

    std::string file(const std::string &name) const
    {
        return path + "/" + name;
    }

  private:
    std::string path;
};

/* A program that was written elsewhere, with its three standard streams in the test's hands. Killed when left. */
class Peer
{
  public:
    explicit Peer(std::vector<std::string> command, const Namespace *where = nullptr);
    ~Peer();
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;

    void wait_until_it_says(const std::string &text); /* on its standard error */
    std::string read_until(const std::string &text);  /* all of its output up to a text, which has to come */

    void write(const std::string &data);
    void end_input();
    std::string read(size_t size); /* exactly that much, or less at the end of its output */
    std::string read_errors();     /* the rest of its standard error */
    void end();                    /* asks it to end, and waits for the end of its output */
    int exit_status();             /* waits for the end */

  private:
    /* A standard stream; what was read beyond a text that was waited for is kept. */
    struct Source {
        int file;
        std::string kept;

        std::string read(size_t size);
        std::string read_until(const std::string &text);
    };

    pid_t pid;
    int input;
    Source output, errors;
};

/* One test: no reports on the console, and as many descriptors open after it as before. Whatever does not end by itself
 * ends the program. */
class Live : public testing::Test
{
  protected:
    Live();
    ~Live() override;
    void SetUp() override;
    void TearDown() override;

  private:
    std::vector<std::string> open_before;
};

/* An IP family and its addresses. */
struct Inet {
    const char *name;
    kel_domain_t family;
    const char *loopback;
    const char *wildcard;
    const char *elsewhere; /* an address that no machine has */
    const char *socat;     /* what the names of socat's addresses end in */
    const char *ncat;      /* the option */

    std::string socat_address() const; /* loopback, in brackets where they are needed */
};
inline void PrintTo(const Inet &inet, std::ostream *out)
{
    *out << inet.name;
}
const Inet &ipv4();
const Inet &ipv6();

class LiveInet : public Live, public testing::WithParamInterface<Inet>
{
  protected:
    const Inet &inet = GetParam();
};
std::string name_of_inet(const testing::TestParamInfo<Inet> &info);
#define INSTANTIATE_FOR_IPV4_AND_IPV6(suite)                                                                           \
    INSTANTIATE_TEST_SUITE_P(, suite, testing::Values(ipv4(), ipv6()), name_of_inet)

/* A port that nothing listens on or receives from, and that no stranger takes while the object lives: the kernel does
 * not choose it by itself, and only who reuses addresses, as the module and the peers do, can bind it. Beyond 32767. */
class Port
{
  public:
    Port(const Inet &inet, kel_socktype_t type);

    int number;

  private:
    Descriptor holder;
};

/* In host byte order. */
int port_of(LONG sockfd);
std::string text_of(kel_sockaddr_t record);
kel_sockaddr_t record_of(const Inet &inet, const char *address, int port);
kel_sockaddr_t record_of_path(const std::string &path);
kel_sockaddr_t name_of(LONG sockfd);
kel_sockaddr_t peer_of(LONG sockfd);

/* An integer option, or -1. */
int option(LONG sockfd, int level, int name);

/* A socket as kel_socket makes it: of that family and type, with its address to be used again, and IPv6 alone. */
void expect_socket_of(LONG sockfd, int family, int type);

/* Waits for events of poll(2); fails the test when they do not come. What does not come once is asked for, but no
 * longer waited for: the rest of that test is quick. */
bool wait_for(LONG sockfd, short events);

/* How many times longer than usual this machine takes, a user-mode kernel included. */
double slowness();

/* kel_accept(), kel_recv() and kel_recvfrom(), each waited for with a limit. */
Descriptor accepted(LONG listener, kel_sockaddr_t *peer = nullptr);
std::string received(LONG sockfd, size_t size); /* exactly that much, or less at the end of the stream */
std::string received_datagram(LONG sockfd, kel_sockaddr_t *sender = nullptr);
void send_all(LONG sockfd, const std::string &data);
void send_datagram(LONG sockfd, const std::string &data, const kel_sockaddr_t &receiver);

/* Data in which no two places look alike. */
std::string pattern(size_t size);

/* Compares data without printing it. */
void expect_same(const std::string &arrived, const std::string &sent);

/* Moves 64 MiB, under Valgrind 4, from one stream to another descriptor's end, and compares every byte. */
void expect_stream_arrives_whole(LONG from, LONG to);

#endif
