/* From checked arguments to an open socket. */
#ifndef KELCAT_ENDPOINT_H
#define KELCAT_ENDPOINT_H

#include <sys/stat.h>

#include "arguments.h"

/* The file of a bound local socket. It is removed by whoever made it, and only while it is still the same file. */
class SocketFile
{
  public:
    SocketFile() = default;
    SocketFile(const SocketFile &) = delete;
    SocketFile &operator=(const SocketFile &) = delete;
    ~SocketFile();

    void made(const std::string &name);
    void remove();

  private:
    std::string path; /* empty: none */
    struct stat status = {};
};

class Endpoint
{
  public:
    explicit Endpoint(const Arguments &given) : arguments(given)
    {
    }
    Endpoint(const Endpoint &) = delete;
    Endpoint &operator=(const Endpoint &) = delete;
    ~Endpoint();

    /* 0, or the program's exit status after one sentence. A stream is connected, and so is a client of datagrams. */
    int open();

    LONG sockfd = KEL_ERROR;
    sctp_assoc_t association = 0; /* of a one-to-many client: its association */

  private:
    int open_tcp();
    int open_udp();
    int open_sctp();
    int listen_sctp(struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events);
    int connect_sctp(struct sctp_initmsg *initmsg, struct sctp_event_subscribe *events);
    int open_unix_stream();
    int open_unix_datagram();
    int open_packet();
    bool was_up();
    bool udp_port_free();
    int accept_one();
    int check_path(const std::string &path);
    std::vector<kel_sockaddr_t> own_addresses();
    int check_local();
    int cannot(const char *what);
    int refuse(const char *what, const char *why);
    void ask_for_receive_buffer(int bytes);
    void show_own(const char *what);
    void show_names();

    const Arguments &arguments;
    SocketFile file;
};

/* With -v: "kelcat: WHAT ipv4 127.0.0.1:9000", of several "WHAT ipv4 127.0.0.1,127.0.0.2:9000". */
void show_address(const Arguments &arguments, const char *what, kel_sockaddr_t *address, LONG count = 1);

#endif
