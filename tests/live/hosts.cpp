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
void wait_until(const std::function<bool()> &holds, const std::string &what)
{
    const time_t limit = time(nullptr) + (time_t)(15 * slowness());
    while (!holds() && time(nullptr) < limit) {
        sched_yield();
    }
    EXPECT_TRUE(holds()) << what;
}

/* Of an interface, of which some may be set. */
int flags_of(const Interface &end, int set = 0)
{
    Namespace::Visit visit(end.host);
    const int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    struct ifreq request = {};
    end.name.copy(request.ifr_name, IFNAMSIZ - 1);
    bool done = ioctl(any, SIOCGIFFLAGS, &request) == 0;
    request.ifr_flags = (short)(request.ifr_flags | set);
    done = done && (set == 0 || ioctl(any, SIOCSIFFLAGS, &request) == 0);
    EXPECT_TRUE(done) << end.name << ": " << strerror(errno);
    close(any);
    return request.ifr_flags;
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
        configure(end->host, "link set " + end->name + " addrgenmode none\n");
    }
    flags_of(one, IFF_UP);
    flags_of(other,
             IFF_UP); /* it has a carrier at once; the first one drops what is sent until it is told of its own */
    wait_until([&] { return (flags_of(one) & IFF_RUNNING) != 0; }, one.name + " has no carrier");
}

void await_address(const Namespace &host, const std::string &address)
{
    unsigned char bytes[16];
    EXPECT_EQ(inet_pton(AF_INET6, address.c_str(), bytes), 1) << address;
    char digits[33];
    for (int i = 0; i < 16; i++) {
        snprintf(digits + 2 * i, 3, "%02x", bytes[i]);
    }
    Namespace::Visit visit(host);
    auto has_route = [&] {
        std::stringstream routes;
        routes << std::ifstream("/proc/thread-self/net/ipv6_route").rdbuf();
        return routes.str().find(std::string(digits) + " 80 ") != std::string::npos;
    };
    wait_until(has_route, address + " has no route");
}

void write_setting(const Namespace &host, const std::string &name, int value)
{
    Namespace::Visit visit(host);
    EXPECT_TRUE(std::ofstream("/proc/sys/" + name) << value << std::flush) << name << ": " << strerror(errno);
}
