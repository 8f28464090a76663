/* Hosts that a test makes for itself: network namespaces, and wires between them. Nothing has to be undone: they end
 * with the objects. */
#ifndef TESTS_LIVE_HOSTS_H
#define TESTS_LIVE_HOSTS_H

#include <string>

class Namespace
{
  public:
    Namespace();
    ~Namespace();
    Namespace(const Namespace &) = delete;
    Namespace &operator=(const Namespace &) = delete;

    void enter() const; /* the calling thread, for good */

    /* The calling thread is inside for as long as this lives. Sockets stay where they were made. */
    class Visit
    {
      public:
        explicit Visit(const Namespace &where);
        ~Visit();
        Visit(const Visit &) = delete;
        Visit &operator=(const Visit &) = delete;

      private:
        int home;
    };

    int entry; /* the descriptor by which it is entered */
};

/* One end of a wire. */
struct Interface {
    const Namespace &host;
    std::string name, mac;
};

/* Has ip(8) or tc(8) carry out commands on a host, one a line. */
void configure(const Namespace &host, const std::string &commands, const std::string &program = "ip");

/* Joins two hosts: what is sent from then on arrives. The interfaces have no addresses. */
void lay_wire(const Interface &one, const Interface &other);

/* Waits until an IPv6 address that an interface has been given is reached: the kernel makes its route later. */
void await_address(const Namespace &host, const std::string &address);

/* A number under /proc/sys. */
void write_setting(const Namespace &host, const std::string &name, int value);

#endif
