#include "live.h"

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <valgrind/valgrind.h>

#include "host.h"

void fail_set_up(const std::string &what)
{
    dprintf(STDERR_FILENO, "%s: %s\n", what.c_str(), strerror(errno));
    _exit(1);
}

namespace
{

constexpr double patience = 15; /* seconds for one event, where the machine is as fast as usual */
constexpr double usual = 0.005; /* seconds that such a machine takes at most to start a program */

bool gave_up; /* something that was waited for did not come */

int time_to_wait()
{
    return gave_up ? 0 : (int)(1000 * patience * slowness());
}

bool wait_on(int file, short events)
{
    struct pollfd entry = {file, events, 0};
    int ready = poll(&entry, 1, time_to_wait());
    EXPECT_EQ(ready, 1) << "nothing happened on descriptor " << file;
    gave_up = gave_up || ready != 1;
    return ready == 1;
}

/* Open descriptors with what they stand for. */
std::vector<std::string> open_descriptors()
{
    std::vector<std::string> found;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        std::string target = std::filesystem::read_symlink(entry.path(), gone);
        if (!gone && target.find("/proc/") != 0) { /* the listing's own */
            found.push_back(entry.path().filename().string() + " " + target);
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

void end_at_limit(int)
{
    dprintf(STDERR_FILENO, "the test that runs does not end\n");
    _exit(1);
}

/* Appends what comes next, at most that much; false at the end. */
bool read_more(int file, std::string &data, size_t most)
{
    char buffer[65536];
    ssize_t count = wait_on(file, POLLIN) ? read(file, buffer, std::min(sizeof(buffer), most)) : 0;
    data.append(buffer, (size_t)std::max(count, (ssize_t)0));
    return count > 0;
}

std::string read_file(int file, size_t size)
{
    std::string data;
    while (data.size() < size && read_more(file, data, size - data.size())) {
    }
    return data;
}

} // namespace

/* Measured once, by what this machine needs to start programs, as tools/machine.py does it. */
double slowness()
{
    static const double times = [] {
        constexpr int programs = 5;
        auto began = std::chrono::steady_clock::now();
        for (int i = 0; i < programs; i++) {
            pid_t child = fork();
            if (child == 0) {
                execlp("true", "true", nullptr);
                _exit(1);
            }
            waitpid(child, nullptr, 0);
        }
        std::chrono::duration<double> taken = std::chrono::steady_clock::now() - began;
        return std::max(1.0, taken.count() / (programs * usual));
    }();
    return times;
}

/* ---- Owners ------------------------------------------------------------------------------------------------------ */

void Descriptor::close()
{
    if (number != KEL_ERROR) {
        EXPECT_EQ(kel_close(number), 0) << "descriptor " << number << ": " << strerror(errno);
        number = KEL_ERROR;
    }
}

Folder::Folder() : path(std::filesystem::temp_directory_path() / "live-XXXXXX")
{
    if (mkdtemp(path.data()) == nullptr) {
        fail_set_up("mkdtemp " + path);
    }
}

Folder::~Folder()
{
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

/* ---- Peers ------------------------------------------------------------------------------------------------------- */

Peer::Peer(std::vector<std::string> command, const Namespace *where)
{
    std::vector<char *> arguments;
    for (std::string &argument : command) {
        arguments.push_back(argument.data());
    }
    arguments.push_back(nullptr);

    int in[2], out[2], err[2];
    for (int *ends : {in, out, err}) {
        if (pipe2(ends, O_CLOEXEC) == -1) {
            fail_set_up("pipe2");
        }
    }
    pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        if (where != nullptr) {
            where->enter();
        }
        close_range(3, ~0U, 0); /* the module's descriptors stay open when another program starts */
        execvp(arguments[0], arguments.data());
        dprintf(STDERR_FILENO, "%s: %s\n", arguments[0], strerror(errno));
        _exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    input = in[1];
    output.file = out[0];
    errors.file = err[0];
}

Peer::~Peer()
{
    end_input();
    ::close(output.file);
    ::close(errors.file);
    if (pid > 0) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
}

std::string Peer::Source::read(size_t size)
{
    std::string data = kept.substr(0, size);
    kept.erase(0, data.size());
    return data + read_file(file, size - data.size());
}

std::string Peer::Source::read_until(const std::string &text)
{
    size_t place;
    while ((place = kept.find(text)) == std::string::npos) {
        if (!read_more(file, kept, SIZE_MAX)) {
            ADD_FAILURE() << "the peer never said \"" << text << "\", but:\n" << kept;
            return kept;
        }
    }
    return read(place + text.size());
}

void Peer::wait_until_it_says(const std::string &text)
{
    errors.read_until(text);
}

std::string Peer::read_until(const std::string &text)
{
    return output.read_until(text);
}

void Peer::write(const std::string &data)
{
    size_t done = 0;
    while (done < data.size() && wait_on(input, POLLOUT)) {
        ssize_t count = ::write(input, data.data() + done, data.size() - done);
        ASSERT_GT(count, 0) << strerror(errno);
        done += (size_t)count;
    }
}

void Peer::end_input()
{
    if (input != -1) {
        ::close(input);
        input = -1;
    }
}

std::string Peer::read(size_t size)
{
    return output.read(size);
}

std::string Peer::read_errors()
{
    return errors.read(SIZE_MAX);
}

void Peer::end()
{
    kill(pid, SIGTERM);
    output.read(SIZE_MAX); /* who still writes cannot end before somebody reads */
}

int Peer::exit_status()
{
    if (gave_up) {
        kill(pid, SIGKILL); /* it may wait for what will not come */
    }
    int status;
    waitpid(pid, &status, 0);
    pid = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/* ---- Frame of a test --------------------------------------------------------------------------------------------- */

Live::Live()
{
    gave_up = false;
    signal(SIGALRM, end_at_limit);
    alarm((unsigned)(4 * patience * slowness()));
}

Live::~Live()
{
    alarm(0);
}

void Live::SetUp()
{
    host_filter_clear();
    host_filter_add("*", HOST_EVERY_LEVEL);
    open_before = open_descriptors();
}

void Live::TearDown()
{
    EXPECT_EQ(open_descriptors(), open_before);
}

std::string Inet::socat_address() const
{
    return family == KEL_AF_INET6 ? "[" + std::string(loopback) + "]" : loopback;
}

const Inet &ipv4()
{
    static const Inet inet{"IPv4", KEL_AF_INET, "127.0.0.1", "0.0.0.0", "192.0.2.1", "4", "-4"};
    return inet;
}

const Inet &ipv6()
{
    static const Inet inet{"IPv6", KEL_AF_INET6, "::1", "::", "2001:db8::1", "6", "-6"};
    return inet;
}

std::string name_of_inet(const testing::TestParamInfo<Inet> &info)
{
    return info.param.name;
}

/* ---- Records and ports ------------------------------------------------------------------------------------------- */

static kel_sockaddr_t told(LONG (*call)(LONG, kel_sockaddr_t *), LONG sockfd)
{
    kel_sockaddr_t record;
    memset(&record, 0, sizeof(record));
    EXPECT_EQ(call(sockfd, &record), KEL_OK) << strerror(errno);
    return record;
}

kel_sockaddr_t name_of(LONG sockfd)
{
    return told(kel_getsockname, sockfd);
}

kel_sockaddr_t peer_of(LONG sockfd)
{
    return told(kel_getpeername, sockfd);
}

int port_of(LONG sockfd)
{
    return ntohs(name_of(sockfd).sin.sin_port); /* in the same place for both IP families */
}

/* Beyond those that the kernel chooses from. A datagram socket takes nothing from anybody but its own peer. */
Port::Port(const Inet &inet, kel_socktype_t type) : holder(kel_socket(inet.family, type, 0))
{
    static int next = 61000 + getpid() % 4000;
    int alone = 0, shared = 1;
    EXPECT_EQ(kel_setsockopt(holder, SOL_SOCKET, SO_REUSEADDR, &alone, sizeof(alone)), 0);
    LONG bound = KEL_ERROR;
    for (int tried = 0; bound == KEL_ERROR && tried < 4000; tried++) {
        number = next = next < 65535 ? next + 1 : 61000;
        bound = kel_bind_str(holder, inet.family, (SHORT)number, inet.loopback, 0, NULL);
    }
    EXPECT_EQ(bound, KEL_OK) << "no port is free: " << strerror(errno);
    EXPECT_EQ(kel_setsockopt(holder, SOL_SOCKET, SO_REUSEADDR, &shared, sizeof(shared)), 0);
    if (type == KEL_SOCK_DGRAM) {
        EXPECT_EQ(kel_connect_str(holder, inet.family, 1, inet.loopback), KEL_OK) << strerror(errno);
    }
}

std::string text_of(kel_sockaddr_t record)
{
    char text[100];
    return kel_addr_showstr(&record, text, sizeof(text));
}

kel_sockaddr_t record_of(const Inet &inet, const char *address, int port)
{
    kel_sockaddr_t record;
    EXPECT_EQ(kel_addr_fill(0, &record, inet.family, (SHORT)port, address, 0, NULL), KEL_OK);
    return record;
}

kel_sockaddr_t record_of_path(const std::string &path)
{
    kel_sockaddr_t record;
    EXPECT_EQ(kel_addr_fill(0, &record, KEL_AF_UNIX, 0, path.c_str(), 0, NULL), KEL_OK);
    return record;
}

int option(LONG sockfd, int level, int name)
{
    int value = -1;
    socklen_t length = sizeof(value);
    EXPECT_EQ(kel_getsockopt(sockfd, level, name, &value, &length), 0) << strerror(errno);
    return value;
}

void expect_socket_of(LONG sockfd, int family, int type)
{
    EXPECT_EQ(option(sockfd, SOL_SOCKET, SO_REUSEADDR), 1);
    EXPECT_EQ(option(sockfd, SOL_SOCKET, SO_TYPE), type);
    EXPECT_EQ(option(sockfd, SOL_SOCKET, SO_DOMAIN), family);
    if (family == KEL_AF_INET6) {
        EXPECT_EQ(option(sockfd, IPPROTO_IPV6, IPV6_V6ONLY), 1);
    }
}

/* ---- Data -------------------------------------------------------------------------------------------------------- */

bool wait_for(LONG sockfd, short events)
{
    return wait_on((int)sockfd, events);
}

Descriptor accepted(LONG listener, kel_sockaddr_t *peer)
{
    kel_sockaddr_t record;
    memset(&record, 0, sizeof(record));
    if (!wait_for(listener, POLLIN)) {
        return KEL_ERROR;
    }
    Descriptor connection(kel_accept(listener, &record));
    EXPECT_GE(connection, 0) << strerror(errno);
    if (peer != nullptr) {
        *peer = record;
    }
    return connection;
}

std::string received(LONG sockfd, size_t size)
{
    std::string data(size, '\0');
    size_t done = 0;
    while (done < size && wait_for(sockfd, POLLIN)) {
        LONG count = kel_recv(sockfd, data.data() + done, size - done, 0);
        EXPECT_GE(count, 0) << strerror(errno);
        if (count <= 0) {
            break;
        }
        done += (size_t)count;
    }
    data.resize(done);
    return data;
}

std::string received_datagram(LONG sockfd, kel_sockaddr_t *sender)
{
    std::string data(1 << 17, '\0');
    kel_sockaddr_t record;
    memset(&record, 0, sizeof(record));
    if (!wait_for(sockfd, POLLIN)) {
        return "nothing";
    }
    LONG count = kel_recvfrom(sockfd, data.data(), data.size(), 0, &record);
    EXPECT_GE(count, 0) << strerror(errno);
    data.resize(count < 0 ? 0 : (size_t)count);
    if (sender != nullptr) {
        *sender = record;
    }
    return data;
}

void send_all(LONG sockfd, const std::string &data)
{
    size_t done = 0;
    while (done < data.size()) {
        LONG count = kel_send(sockfd, data.data() + done, data.size() - done, MSG_NOSIGNAL);
        ASSERT_GT(count, 0) << strerror(errno);
        done += (size_t)count;
    }
}

void send_datagram(LONG sockfd, const std::string &data, const kel_sockaddr_t &receiver)
{
    EXPECT_EQ(kel_sendto(sockfd, data.data(), data.size(), 0, &receiver), (LONG)data.size()) << strerror(errno);
}

std::string pattern(size_t size)
{
    std::string data(size, '\0');
    unsigned state = 1;
    for (char &byte : data) {
        state = state * 1103515245 + 12345;
        byte = (char)(state >> 16);
    }
    return data;
}

void expect_same(const std::string &arrived, const std::string &sent)
{
    const auto end = arrived.begin() + (ptrdiff_t)std::min(arrived.size(), sent.size());
    EXPECT_TRUE(arrived == sent) << arrived.size() << " bytes instead of " << sent.size() << ", and the first "
                                 << std::mismatch(arrived.begin(), end, sent.begin()).first - arrived.begin()
                                 << " are the same";
}

void expect_stream_arrives_whole(LONG from, LONG to)
{
    const size_t total = (RUNNING_ON_VALGRIND != 0 ? 4 : 64) << 20;
    constexpr size_t period = 1048583; /* a prime: no buffer is as long */
    constexpr size_t most = 1 << 20;   /* of one call */
    static const std::string data = [] {
        std::string once = pattern(period);
        return once + once.substr(0, most);
    }();

    int small = most / 8; /* so that no send fits whole */
    EXPECT_EQ(kel_setsockopt(from, SOL_SOCKET, SO_SNDBUF, &small, sizeof(small)), 0);

    std::string buffer(most, '\0');
    size_t sent = 0, arrived = 0, partial = 0;
    while (arrived < total) {
        struct pollfd entries[] = {{(int)to, POLLIN, 0}, {(int)(sent < total ? from : -1), POLLOUT, 0}};
        ASSERT_GT(poll(entries, 2, time_to_wait()), 0) << "stalled after " << arrived << " bytes of " << sent;
        if (entries[1].revents != 0) {
            size_t wanted = std::min(most, total - sent);
            LONG count = kel_send(from, data.data() + sent % period, wanted, MSG_DONTWAIT | MSG_NOSIGNAL);
            ASSERT_GT(count, 0) << strerror(errno);
            partial += (size_t)count < wanted ? 1 : 0;
            sent += (size_t)count;
        }
        if (entries[0].revents != 0) {
            size_t wanted = std::min(most, total - arrived);
            LONG count = kel_recv(to, buffer.data(), wanted, 0);
            ASSERT_GT(count, 0) << "the stream ended after " << arrived << " bytes";
            ASSERT_EQ(memcmp(buffer.data(), data.data() + arrived % period, (size_t)count), 0) << "after " << arrived;
            arrived += (size_t)count;
        }
    }
    EXPECT_GT(partial, 0U) << "no send was partial, so nothing was seen of their counts";
}
