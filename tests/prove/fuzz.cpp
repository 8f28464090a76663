// What the address functions make of any text, judged by a reader that shares nothing with them. Built for libFuzzer;
// with -DREPLAY a program of its own for the texts that an earlier search kept, a line each with $ for a line's end.
#include <algorithm>
#include <arpa/inet.h>
#include <fstream>
#include <iostream>
#include <map>
#include <regex.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "kel_lib.h"
#include "kel_prv_socket.h"
#include "recogniser.h"

#ifdef REMEMBER_PATTERNS
// Compiling a pattern takes a thousand times longer than matching: here each is compiled once.
#include <dlfcn.h>

int regcomp(regex_t *compiled, const char *pattern, int flags)
{
    static auto &known = *new std::map<std::string, regex_t>;
    const auto [entry, is_new] = known.try_emplace(pattern);
    static const auto compile = reinterpret_cast<decltype(regcomp) *>(dlsym(RTLD_NEXT, "regcomp"));
    const int result = is_new ? compile(&entry->second, pattern, flags) : 0;
    *compiled = entry->second;
    return result;
}

void regfree(regex_t *)
{
}
#endif

static long assertions;

void KEL_ASSERT_X(LONG, const char *, int, LONG)
{
    assertions++;
}

static void require(bool condition, const char *what, const std::string &text)
{
    if (!condition) {
        std::cerr << what << ": \"" << text << "\"\n";
        abort();
    }
}

static kel_sockaddr_t poisoned()
{
    kel_sockaddr_t record;
    memset(&record, 0xa5, sizeof(record));
    return record;
}

static bool same(const kel_sockaddr_t &left, const kel_sockaddr_t &right)
{
    return memcmp(&left, &right, sizeof(left)) == 0;
}

// Conversion alone, into a filled record, and back.
static void convert(kel_domain_t family, const std::string &text, bool is_address)
{
    const SHORT port = SHORT(text.size() * 4099);
    kel_sockaddr_t expected = poisoned();
    kel_sockaddr_t record = poisoned();
    void *binary = family == KEL_AF_INET ? (void *)&expected.sin.sin_addr : (void *)&expected.sin6.sin6_addr;
    require((inet_pton(family, text.c_str(), binary) == 1) == is_address, "inet_pton", text);
    require((kel_inet_pton(family, text.c_str(), &record) == KEL_OK) == is_address, "kel_inet_pton", text);
    require(same(record, expected), "kel_inet_pton's record", text);

    memset(&expected, 0, sizeof(expected));
    expected.sin.sin_family = (sa_family_t)family;
    expected.sin.sin_port = htons((uint16_t)port);
    inet_pton(family, text.c_str(), binary);
    const long before = assertions;
    const LONG result = kel_addr_fill(-1, &record, family, port, text.c_str(), 0, nullptr);
    require((result == KEL_OK) == is_address && assertions - before == !is_address, "kel_addr_fill", text);
    require(same(record, expected), "kel_addr_fill's record", text);

    CHAR shown[100];
    if (is_address) {
        require(kel_inet_ntop(family, &record, shown, sizeof(shown)) == shown, "kel_inet_ntop", text);
        kel_inet_pton(family, shown, &record);
        require(same(record, expected), "there and back", text);
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::string text(reinterpret_cast<const char *>(data), size);
    text.resize(strlen(text.c_str())); // a text ends at its first NUL
    require((kel_is_ipv4_addr(text.data()) != KEL_FALSE) == is_ipv4_text(text), "kel_is_ipv4_addr", text);
    require((kel_is_ipv6_addr(text.data()) != KEL_FALSE) == is_ipv6_text(text), "kel_is_ipv6_addr", text);
    // The conversions know no leading zeros, as the dotted tail; and they know "::".
    convert(KEL_AF_INET, text, is_ipv4_text(text) && is_ipv6_text("::" + text));
    convert(KEL_AF_INET6, text, is_ipv6_text(text) || text == "::");

    kel_sockaddr_t record = poisoned();
    kel_sockaddr_t expected = {};
    expected.un.sun_family = AF_UNIX;
    memcpy(expected.un.sun_path, text.data(), std::min(text.size(), sizeof(expected.un.sun_path)));
    require(kel_addr_fill(-1, &record, KEL_AF_UNIX, 0, text.c_str(), 0, nullptr) == KEL_OK && same(record, expected),
            "a path", text);
    return 0;
}

#ifdef REPLAY
int main(int, char **argv)
{
    std::ifstream file(argv[1]);
    long texts = 0;
    for (std::string line; std::getline(file, line); texts++) {
        std::replace(line.begin(), line.end(), '$', '\n');
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(line.data()), line.size());
    }
    require(texts > 50, "texts are missing", argv[1]);
    std::cout << "OK: " << texts << " texts\n";
    return 0;
}
#endif
