#include "hosts.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <net/if.h>
#include <sched.h>
#include <sstream>
#include <string.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include "live.h"

namespace
{

constexpr const char *own_entry = "/proc/thread-self/ns/net";

/* Looks at what tells nobody when it changes, until it is so. */
void wait_until(const Namespace &host, const std::function<bool()> &holds, const std::string &what)
{
    Namespace::Visit visit(host);
    const time_t limit = time(nullptr) + (time_t)(15 * slowness());
    while (!holds() && time(nullptr) < limit) {
        sched_yield();
    }
    EXPECT_TRUE(holds()) << what;
}

/* Until then the kernel drops what is sent there. */
void await_carrier(const Interface &end)
{
    Namespace::Visit visit(end.host);
    const int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    struct ifreq request = {};
    end.name.copy(request.ifr_name, IFNAMSIZ - 1);
    auto has_one = [&] { return ioctl(any, SIOCGIFFLAGS, &request) == 0 && (request.ifr_flags & IFF_RUNNING) != 0; };
    wait_until(end.host, has_one, end.name + " has no carrier");
    close(any);
}

} // namespace

Namespace::Namespace()
{
    int home = open(own_entry, O_RDONLY | O_CLOEXEC);
    if (unshare(CLONE_NEWNET) == -1) {
        fail_set_up("no network namespace: this needs the privilege to make one");
    }
    entry = open(own_entry, O_RDONLY | O_CLOEXEC);
    if (setns(home, CLONE_NEWNET) == -1) {
        fail_set_up("setns");
    }
    close(home);
}

Namespace::~Namespace()
{
    close(entry);
}

void Namespace::enter() const
{
    if (setns(entry, CLONE_NEWNET) == -1) {
        fail_set_up("setns");
    }
}

Namespace::Visit::Visit(const Namespace &where) : home(open(own_entry, O_RDONLY | O_CLOEXEC))
{
    where.enter();
}

Namespace::Visit::~Visit()
{
    if (setns(home, CLONE_NEWNET) == -1) {
        fail_set_up("setns");
    }
    close(home);
}

void configure(const Namespace &host, const std::string &commands, const std::string &program)
{
    Peer peer({program, "-batch", "-"}, &host);
    peer.write(commands);
    peer.end_input();
    const std::string errors = peer.read_errors();
    EXPECT_EQ(peer.exit_status(), 0) << program << ": " << commands << errors;
}

void lay_wire(const Interface &one, const Interface &other)
{
    const std::string there = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(other.host.entry);
    configure(one.host, "link add " + one.name + " address " + one.mac + " type veth peer name " + other.name +
                            " address " + other.mac + " netns " + there + "\n");
    for (const Interface *end : {&one, &other}) {
        configure(end->host, "link set " + end->name + " addrgenmode none\nlink set " + end->name + " up\n");
    }
    await_carrier(one);
    await_carrier(other);
}

void await_address(const Namespace &host, const std::string &address)
{
    unsigned char bytes[16];
    EXPECT_EQ(inet_pton(AF_INET6, address.c_str(), bytes), 1) << address;
    char digits[33];
    for (int i = 0; i < 16; i++) {
        snprintf(digits + 2 * i, 3, "%02x", bytes[i]);
    }
    auto has_route = [&] {
        std::stringstream routes;
        routes << std::ifstream("/proc/thread-self/net/ipv6_route").rdbuf();
        return routes.str().find(std::string(digits) + " 80 ") != std::string::npos;
    };
    wait_until(host, has_route, address + " has no route");
}

void write_setting(const Namespace &host, const std::string &name, int value)
{
    Namespace::Visit visit(host);
    EXPECT_TRUE(std::ofstream("/proc/sys/" + name) << value << std::flush) << name << ": " << strerror(errno);
}
