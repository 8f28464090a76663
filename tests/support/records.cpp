#include "records.h"

#include <arpa/inet.h>
#include <string.h>

std::string bytes_of(const kel_sockaddr_t &address)
{
    return sys::hex(&address, sizeof(address));
}

kel_sockaddr_t poisoned()
{
    kel_sockaddr_t address;
    memset(&address, 0xa5, sizeof(address));
    return address;
}

kel_sockaddr_t blank(int family)
{
    kel_sockaddr_t address;
    memset(&address, 0, sizeof(address));
    address.sa.sa_family = (sa_family_t)family;
    return address;
}

kel_sockaddr_t inet_address(const char *text, int port)
{
    kel_sockaddr_t address = blank(AF_INET);
    address.sin.sin_port = htons((uint16_t)port);
    EXPECT_EQ(inet_pton(AF_INET, text, &address.sin.sin_addr), 1) << text;
    return address;
}

kel_sockaddr_t inet6_address(const char *text, int port)
{
    kel_sockaddr_t address = blank(AF_INET6);
    address.sin6.sin6_port = htons((uint16_t)port);
    EXPECT_EQ(inet_pton(AF_INET6, text, &address.sin6.sin6_addr), 1) << text;
    return address;
}
