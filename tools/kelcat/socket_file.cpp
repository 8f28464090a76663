#include "socket_file.h"

#include <cerrno>
#include <unistd.h>

#include "kel_socket.h"
#include "say.h"

SocketFile::~SocketFile()
{
    remove();
}

/* The module's stream server would remove whatever stands there. */
bool SocketFile::free_path(const std::string &name)
{
    struct stat present;
    if (lstat(name.c_str(), &present) != 0) {
        return true; /* what else may be wrong with the path, the bind reports */
    }
    if (!S_ISSOCK(present.st_mode)) {
        say("cannot listen on %s: a file that is no socket stands there; choose another path", name.c_str());
        return false;
    }

    /* A datagram socket's connect disturbs nobody: a stream server answers EPROTOTYPE, an abandoned file refuses. The
     * system's connect, since kel_connect would report the refusal that is hoped for. */
    const LONG probe = kel_socket(KEL_AF_UNIX, KEL_SOCK_DGRAM, 0);
    kel_sockaddr_t address;
    kel_addr_fill(0, &address, KEL_AF_UNIX, 0, name.c_str(), 0, nullptr);
    const bool abandoned =
        connect((int)probe, &address.sa, (socklen_t)kel_sizeof_socket(&address)) != 0 && errno == ECONNREFUSED;
    kel_close(probe);
    if (!abandoned) {
        say("cannot listen on %s: another program's socket stands there; choose another path", name.c_str());
        return false;
    }
    unlink(name.c_str());
    return true;
}

void SocketFile::made(const std::string &name)
{
    if (lstat(name.c_str(), &status) == 0) {
        path = name;
    }
}

void SocketFile::remove()
{
    struct stat present;
    if (!path.empty() && lstat(path.c_str(), &present) == 0 && present.st_dev == status.st_dev &&
        present.st_ino == status.st_ino) {
        unlink(path.c_str());
    }
    path.clear();
}
