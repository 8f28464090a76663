/* A plug-in that uses the socket module: plugin_program loads it and calls plugin_run. */
#include <kel/kel_socket.h>

LONG plugin_run(void);

LONG plugin_run(void)
{
    kel_sockaddr_t address;
    return kel_addr_fill(0, &address, KEL_AF_INET, 9000, "127.0.0.1", 0, NULL);
}
