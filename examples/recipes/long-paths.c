/* Local sockets on paths of 107 characters, of 120, and in a folder whose own path is longer than that. */
#define _GNU_SOURCE
#include <fcntl.h>
#include <kel/kel_socket.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

int main(void)
{
    CHAR path[121] = "";
    memset(path, 'a', 107);
    LONG server = kel_unix_tcp_server_socket_create(path, 5);
    printf("107: the file is %s\n", access(path, F_OK) == 0 ? "there" : "not there");
    unlink(path);
    kel_close(server);

    memset(path, 'a', 120);
    server = kel_unix_tcp_server_socket_create(path, 5);
    printf("120: the file is %s\n", access(path, F_OK) == 0 ? "there" : "not there");
    memset(path + 108, 'b', 12);
    LONG client = kel_unix_tcp_client_socket_create(path);
    printf("120: another path with the same beginning %s\n", client == KEL_ERROR ? "is refused" : "leads here, too");
    kel_close(client);
    kel_close(server);
    kel_unix_tcp_server_socket_create(path, 5);
    path[108] = '\0';
    printf("\n108: the file is %s\n", access(path, F_OK) == 0 ? "there" : "not there");
    unlink(path);

    CHAR folder[201] = "";
    CHAR through[50];
    memset(folder, 'd', 200);
    mkdir(folder, 0700);
    int opened = open(folder, O_PATH | O_CLOEXEC);
    snprintf(through, sizeof(through), "/proc/self/fd/%d/socket", opened);
    server = kel_unix_tcp_server_socket_create(through, 5);
    client = kel_unix_tcp_client_socket_create(through);
    printf("in a folder of 200: %s\n", client == KEL_ERROR ? "refused" : "connected");
    kel_close(client);
    kel_close(server);
    unlink(through);
    close(opened);
    return rmdir(folder);
}
