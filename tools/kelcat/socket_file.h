/* The file of a bound local socket. It is removed by whoever made it, and only while it is still the same file. */
#ifndef KELCAT_SOCKET_FILE_H
#define KELCAT_SOCKET_FILE_H

#include <string>
#include <sys/stat.h>

class SocketFile
{
  public:
    SocketFile() = default;
    SocketFile(const SocketFile &) = delete;
    SocketFile &operator=(const SocketFile &) = delete;
    ~SocketFile();

    /* Whether a socket may be bound there: nothing stands there, or what an owner that has gone left, which is removed.
     * Otherwise one sentence. */
    static bool free_path(const std::string &name);

    void made(const std::string &name);
    void remove();

  private:
    std::string path; /* empty: none */
    struct stat status = {};
};

#endif
