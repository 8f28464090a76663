/* Address comparison, of all pairs of 200 records, beside what is said of it in so many words. */
#include "records.h"

#include <string.h>

namespace
{

/* Those bytes of a record that make a difference. */
std::string compared(const kel_sockaddr_t &record, bool ignore_port)
{
    const std::string bytes(reinterpret_cast<const char *>(&record), sizeof(record));
    const std::string port = ignore_port ? "" : bytes.substr(2, 2);
    switch (record.sa.sa_family) {
    case 1:
        return bytes.substr(0, bytes.find('\0', 2)); /* an abstract name is an empty path */
    case 2:
        return bytes.substr(0, 2) + port + bytes.substr(4, 4);
    case 10:
        return bytes.substr(0, 2) + port + bytes.substr(8, 16);
    case 17:
        return bytes.substr(0, 8); /* the protocol is no port */
    default:
        return "";
    }
}

/* Of each family two records alike and 46 that differ from them in one byte each, and four pairs of no known family. */
std::vector<kel_sockaddr_t> records()
{
    std::vector<kel_sockaddr_t> all;
    for (int family : {1, 2, 10, 17}) {
        kel_sockaddr_t record = blank(family);
        strcpy(record.un.sun_path, "/run/server-of-the-unit-test-no-1");
        all.push_back(record);
        for (size_t byte = 2; byte <= 48; byte++) {
            all.push_back(record);
            if (byte < 48) {
                char &changed = reinterpret_cast<char *>(&all.back())[byte];
                changed = (char)(byte % 3 == 0 ? 0 : changed ^ 0x81);
            }
        }
    }
    for (int family : {0, 3, 0x0102, 0x0a0a}) {
        all.insert(all.end(), 2, blank(family));
    }
    return all;
}

TEST(Comparison, LooksAtTheBytesThatNameAnAddress)
{
    const std::vector<kel_sockaddr_t> given = records();
    std::vector<kel_sockaddr_t> used = given;
    ASSERT_EQ(used.size(), 200u);

    for (BOOL ignore_port : {0, 1, 256, -65536}) {
        for (size_t i = 0; i < used.size(); i++) {
            const std::string left = compared(used[i], ignore_port != 0);
            for (size_t j = 0; j < used.size(); j++) {
                const bool same = left != "" && left == compared(used[j], ignore_port != 0);
                ASSERT_EQ(kel_sock_addr_cmp(&used[i], &used[j], ignore_port), same ? KEL_OK : KEL_ERROR)
                    << i << ", " << j << ", " << ignore_port;
            }
        }
    }

    EXPECT_EQ(memcmp(used.data(), given.data(), used.size() * sizeof(used[0])), 0); /* they are only read */
}

} // namespace
