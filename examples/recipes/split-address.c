/* Reads back what kel_addr_showstr() has written. */
#include <kel/kel_socket.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static LONG read_line(const CHAR *line, kel_sockaddr_t *addr)
{
    CHAR text[100];
    snprintf(text, sizeof(text), "%s", strchr(line, ' ') + 1);
    CHAR *colon = strrchr(text, ':');
    if (colon == NULL) {
        return KEL_ERROR;
    }
    *colon = '\0';
    kel_domain_t family = strchr(text, ':') == NULL ? KEL_AF_INET : KEL_AF_INET6;
    SHORT port = (SHORT)atoi(colon + 1);
    return kel_addr_fill(KEL_ERROR, addr, family, port, text, 0, NULL);
}

int main(void)
{
    kel_sockaddr_t addr;
    kel_sockaddr_t again;
    CHAR line[100];
    const CHAR *texts[] = {"::1", "fe80::a:b", "10.1.2.3"};
    for (int i = 0; i < 3; i++) {
        kel_addr_fill(KEL_ERROR, &addr, i == 2 ? KEL_AF_INET : KEL_AF_INET6, 80, texts[i], 0, NULL);
        kel_addr_showstr(&addr, line, sizeof(line));
        LONG same = read_line(line, &again) == KEL_OK ? kel_sock_addr_cmp(&addr, &again, KEL_FALSE) : KEL_ERROR;
        printf("\"%s\" is read as %s\n", line, same == KEL_OK ? "it was written" : "another address");
    }

    CHAR whole[] = "::1:80";
    kel_inet_pton(KEL_AF_INET6, whole, &again);
    printf("\"%s\" is an address itself: %s\n", whole, kel_is_ipv6_addr(whole) ? "yes" : "no");
    printf("its last two bytes are %02x %02x\n", again.sin6.sin6_addr.s6_addr[14], again.sin6.sin6_addr.s6_addr[15]);
    return 0;
}
