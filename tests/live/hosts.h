/* Hosts that a test makes for itself: network namespaces, and wires between them. They are made by messages to the
 * kernel, since a user-mode kernel takes long to start a program. Nothing has to be undone: they end with the objects.
 */
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
    std::string name;
    std::string mac = ""; /* six bytes, or the kernel's choice */
};

/* Joins two hosts. The interfaces are down and have no addresses but those that they are given. */
void lay_wire(const Interface &one, const Interface &other);

/* Brings both ends up; what is sent from then on arrives. */
void connect_wire(const Interface &one, const Interface &other);

void set_link(const Interface &end, bool up);
void add_address(const Interface &end, int family, const std::string &address, int prefix_length);

/* Saves the hosts a search for each other, which takes its time and fails from the address of another wire. */
void add_neighbour(const Interface &end, int family, const std::string &address, const std::string &mac);
void set_loss(const Interface &end, bool total); /* of all that it sends */

/* A number under /proc/sys. */
void write_setting(const Namespace &host, const std::string &name, int value);

#endif
