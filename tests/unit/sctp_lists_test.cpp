/* SCTP address lists: counts of every size, and lists longer than any endpoint has. */
#include "records.h"

#include <algorithm>
#include <arpa/inet.h>
#include <errno.h>
#include <functional>
#include <limits.h>
#include <string.h>

#include "kel_sctp.h"

namespace
{

kel_sockaddr_t inet = inet_address("10.0.1.1", 0);
sctp_assoc_t id;

/* Functions that ask the allocator for count elements of a size before they ask it for anything else. */
struct Request {
    const char *name;
    LONG element;
    std::function<void(LONG count)> call;
};

std::vector<Request> requests()
{
    static kel_sockaddr_t inet6 = inet6_address("fd00:1::1", 0);
    static CHAR text[] = "10.0.1.1", *texts[] = {text};
    static struct sctp_initmsg init;
    const kel_domain_t family = KEL_AF_INET;
    return {
        {"BindxInet", 16, [=](LONG n) { kel_sctp_bindx(5, &inet, n, 1); }},
        {"BindxInet6", 28, [=](LONG n) { kel_sctp_bindx(5, &inet6, n, 1); }},
        {"BindxTexts", 112, [=](LONG n) { kel_sctp_bindx_str(5, family, 0, texts, n, 1); }},
        {"ConnectxInet", 16, [=](LONG n) { kel_sctp_connectx(5, &inet, n, &id); }},
        {"ConnectxInet6", 28, [=](LONG n) { kel_sctp_connectx(5, &inet6, n, &id); }},
        {"ConnectxTexts", 112, [=](LONG n) { kel_sctp_connectx_str(5, family, 0, texts, n, &id); }},
        {"Server", 16, [=](LONG n) { kel_sctp_server_one2one_create(family, &inet, n, 0, 8, &init, NULL); }},
        {"ServerOfTexts", 112,
         [=](LONG n) { kel_sctp_server_one2one_str_create(family, texts, n, 0, 8, &init, NULL); }},
        {"ManyServer", 16, [=](LONG n) { kel_sctp_server_one2many_create(family, &inet, n, 0, 8, &init, NULL); }},
        {"ManyServerOfTexts", 112,
         [=](LONG n) { kel_sctp_server_one2many_str_create(family, texts, n, 0, 8, &init, NULL); }},
        {"Client", 16, [=](LONG n) { kel_sctp_client_one2one_create(family, &inet, n, 0, &init, NULL, &id); }},
        {"ClientOfTexts", 112,
         [=](LONG n) { kel_sctp_client_one2one_str_create(family, texts, n, 0, &init, NULL, &id); }},
        {"ClientWithoutLocals", 16,
         [=](LONG n) { kel_sctp_client_one2one_create_bind(family, &inet, n, 0, &init, NULL, &id, NULL, 1); }},
        {"LocalsOfClient", 16,
         [=](LONG n) { kel_sctp_client_one2one_create_bind(family, &inet, 1, 0, &init, NULL, &id, &inet, n); }},
        {"LocalsOfManyClient", 16,
         [=](LONG n) { kel_sctp_client_one2many_create_bind(family, &inet, 1, 0, &init, NULL, &inet, n); }},
        {"ManyClientOfTexts", 112,
         [=](LONG n) { kel_sctp_client_one2many_str_create(family, texts, n, 0, &init, NULL); }},
    };
}

/* Products that would be 0, 16, 28, 112 or another small number in 64 bits become a request for all the memory. */
TEST(Counts, ReachTheAllocatorAsTheSignedProduct)
{
    for (const Request &request : requests()) {
        for (LONG count : {3L, 40000L, 0x80000001L, 0x100000002L, -1L, -2L, -0x80000000L, LONG_MIN / request.element,
                           LONG_MAX / request.element, LONG_MIN, LONG_MAX, LONG_MIN + 1, 0x1000000000000000,
                           0x1000000000000001, 0x4000000000000001, 0x2000000000000001, 0x0fffffffffffffff}) {
            SCOPED_TRACE(testing::Message() << request.name << " " << count);
            LONG product;
            if (__builtin_mul_overflow(count, request.element, &product)) {
                product = -1;
            }
            const std::string expected = "tc_malloc(" + std::to_string(product) + ") = 0";
            sys::Recording recording(
                [](const std::string &name, long usual) { return sys::ok(name == "tc_malloc" ? 0 : usual); });

            request.call(count);

            const sys::Trace &trace = recording.trace();
            const auto asked = std::find_if(trace.begin(), trace.end(), [](const std::string &line) {
                return line.compare(0, 9, "tc_malloc") == 0;
            });
            EXPECT_EQ(asked == trace.end() ? "" : *asked, expected);
        }
    }
}

/* An allocator that meets even a negative request shows what becomes of the count. */
TEST(Counts, AreCutTo32BitsForTheLibrary)
{
    const struct {
        LONG count;
        std::string request, list, shown;
    } rows[] = {{-0xffffffffL, "-68719476720", "a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5", "1"},
                {-0x7fffffffL, "-34359738352", "", "-2147483647"}}; /* whose low 16 bits are 1 */
    sys::name_pointer(&id, "id");
    for (const auto &row : rows) {
        sys::Recording recording(
            [](const std::string &name, long usual) { return name == "tc_malloc" ? sys::ok(1) : sys::ok(usual); });

        EXPECT_EQ(kel_sctp_bindx(70, &inet, row.count, 1), 0);
        EXPECT_EQ(kel_sctp_connectx(70, &inet, row.count, &id), 0);

        const std::string allocated = "tc_malloc(" + row.request + ") = 1", list = row.list + ", " + row.shown;
        EXPECT_EQ(recording.trace(),
                  (sys::Trace{allocated, "sctp_bindx(70, " + list + ", 1) = 0", "tc_free(block 1) = 0", allocated,
                              "sctp_connectx(70, " + list + ", id) = 0", "tc_free(block 2) = 0"}));
    }
}

/* Such an allocator again: no text is read and no record filled. */
TEST(Counts, BelowZeroFillNothing)
{
    CHAR **const nowhere = reinterpret_cast<CHAR **>(8);
    for (long count : {-1L, -2L, LONG_MIN / 112}) {
        sys::Recording recording(
            [](const std::string &name, long usual) { return sys::ok(name == "tc_malloc" ? 1 : usual); });

        EXPECT_EQ(kel_sctp_bindx_str(70, KEL_AF_INET, 0, nowhere, count, 1), KEL_ERROR);

        EXPECT_EQ(recording.trace(),
                  (sys::Trace{"tc_malloc(" + std::to_string(count * 112) + ") = 1", "tc_free(block 1) = 0"}));
    }
    for (int family : {KEL_AF_INET, KEL_AF_INET6}) {
        for (auto fetch : {kel_sctp_getpaddrs, kel_sctp_getladdrs}) {
            kel_sockaddr_t *fetched = nullptr;
            sys::set_addresses({blank(family)});
            sys::Recording recording([](const std::string &name, long usual) {
                return sys::ok(name == "tc_malloc" ? 1 : name.compare(0, 8, "sctp_get") == 0 ? -2 : usual);
            });

            EXPECT_EQ(fetch(5, 9, &fetched), -2);

            EXPECT_EQ(bytes_of(*fetched), bytes_of(poisoned()));
        }
    }
}

/* The list of so many texts is asked for, and cannot be had. */
TEST(LongLists, OfTextsKeepTheirCountWhenTheyArePacked)
{
    CHAR text[] = "10.0.1.1";
    std::vector<CHAR *> texts(40000, text);
    struct sctp_initmsg init = {};
    const std::function<LONG()> calls[] = {
        [&] { return kel_sctp_bindx_str(70, KEL_AF_INET, 0, texts.data(), 40000, 1); },
        [&] { return kel_sctp_connectx_str(70, KEL_AF_INET, 0, texts.data(), 40000, &id); },
        [&] { return kel_sctp_server_one2one_str_create(KEL_AF_INET, texts.data(), 40000, 0, 8, &init, NULL); },
        [&] { return kel_sctp_server_one2many_str_create(KEL_AF_INET, texts.data(), 40000, 0, 8, &init, NULL); },
        [&] { return kel_sctp_client_one2one_str_create(KEL_AF_INET, texts.data(), 40000, 0, &init, NULL, &id); }};
    for (const auto &call : calls) {
        sys::Recording recording(sys::fail_nth("tc_malloc", 2, {0, ENOMEM}));

        EXPECT_EQ(call(), KEL_ERROR);

        const sys::Trace &trace = recording.trace();
        EXPECT_NE(std::find(trace.begin(), trace.end(), "tc_malloc(640000) = 0 errno 12"), trace.end());
    }
}

TEST(LongLists, OfTextsAreConvertedWhole)
{
    for (const char *format : {"10.0.9.%d", "fd00:9::%d"}) {
        const bool six = strchr(format, ':') != nullptr;
        CHAR written[40][16];
        std::vector<CHAR *> texts;
        std::string packed;
        for (auto &text : written) {
            snprintf(text, sizeof(text), format, (int)texts.size() % 32); /* the first ones again at the end */
            texts.push_back(text);
            const kel_sockaddr_t record = six ? inet6_address(text, 40000) : inet_address(text, 40000);
            packed += sys::hex(&record, six ? 28 : 16);
        }
        sys::Recording recording;

        EXPECT_EQ(kel_sctp_bindx_str(70, six ? KEL_AF_INET6 : KEL_AF_INET, (SHORT)40000, texts.data(), 40, 1), 0);

        const sys::Trace &trace = recording.trace();
        EXPECT_EQ(trace.at(trace.size() - 3), "sctp_bindx(70, " + packed + ", 40, 1) = 0");
    }
}

TEST(LongLists, OfAddressesAreFetchedWhole)
{
    std::vector<kel_sockaddr_t> records(33000, inet6_address("fd00:9::", 0));
    for (size_t i = 0; i < records.size(); i++) {
        records[i].sin6.sin6_port = (in_port_t)i;
    }
    for (auto fetch : {kel_sctp_getpaddrs, kel_sctp_getladdrs}) {
        for (sa_family_t family : {KEL_AF_INET, KEL_AF_INET6}) {
            records[0].sa.sa_family = family; /* that of the first decides */
            kel_sockaddr_t *fetched = nullptr;
            sys::set_addresses(records);
            sys::Recording recording;

            ASSERT_EQ(fetch(5, 9, &fetched), 33000);

            for (size_t i = 0; i < records.size(); i++) {
                ASSERT_EQ(memcmp(&fetched[i], &records[i], family == KEL_AF_INET ? 16 : 28), 0) << i;
            }
        }
    }
}

} // namespace
