/* The module passes over what its unlink(2) comes to. It goes through here to the kernel, whose answer is kept. */
#include <errno.h>
#include <sys/syscall.h>
#include <unistd.h>

int unlink_errno;

int unlink(const char *path)
{
    int result = (int)syscall(SYS_unlink, path);
    unlink_errno = result == -1 ? errno : 0;
    return result;
}
