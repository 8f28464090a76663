/* SCTP address lists. The conversions are the module's own: they are seen through the functions that use them. */
#include "failure.h"
#include "sctp_expected.h"

#include <errno.h>
#include <limits.h>
#include <string.h>

namespace
{

kel_sockaddr_t *fetched;
kel_sockaddr_t untouched; /* what fetched points at before a call */

/* The two functions that fetch, and what they call. */
struct Fetch {
    const char *name;
    std::string library;
    std::string hand_back;
    LONG (*fetch)(LONG sockfd, sctp_assoc_t id, kel_sockaddr_t **addrs);

    LONG operator()() const
    {
        fetched = &untouched;
        return fetch(5, 9, &fetched);
    }
    std::string call(const std::string &answer) const
    {
        return library + "(5, 9, null) = " + answer;
    }
    std::string handed_back() const
    {
        return hand_back + "(list 1) = 0";
    }
};

const Fetch both[] = {{"kel_sctp_getpaddrs", "sctp_getpaddrs", "sctp_freepaddrs", kel_sctp_getpaddrs},
                      {"kel_sctp_getladdrs", "sctp_getladdrs", "sctp_freeladdrs", kel_sctp_getladdrs}};

/* ---- What is reported ------------------------------------------------------------------------------------------- */

std::vector<FailureCase> failures()
{
    std::vector<FailureCase> cases = {
        null_argument("BindxNullRecords", null_check("__kel_addr_transfer2_addr", "addrs", 1, "NULL_CHECK_RP"), {},
                      [] { return kel_sctp_bindx(5, NULL, 1, SCTP_BINDX_ADD_ADDR); })};
    for (const Fetch &fetch : both) {
        const std::string what = fetch.library.substr(5);
        auto without_a_list = [=] {
            sys::set_addresses({});
            return fetch();
        };
        const Report no_list = null_check("__addr_transfer2_kel_addr", "addrs", 1, "NULL_CHECK_RP");
        cases = together({cases,
                          reported(what + "NullResult", [=] { return fetch.fetch(5, 9, NULL); }, {},
                                   {null_check(fetch.name, "addrs")}),
                          reported(what + "Fails", without_a_list, {{fetch.library.c_str(), sys::fail(ENOTCONN)}},
                                   {fetch.call("-1 errno 107"), failed_step(fetch.name, "sctp_opt_info ", ENOTCONN)}),
                          /* The library counts, and hands out no list: there is none to hand back. */
                          reported(what + "CountsWithoutAList", without_a_list, {{fetch.library.c_str(), sys::ok(2)}},
                                   {fetch.call("2"), no_list}),
                          reported(what + "MinusTwoWithoutAList", without_a_list,
                                   {{fetch.library.c_str(), sys::ok(-2)}}, {fetch.call("-2"), no_list})});
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(SctpLists, Failure, in_every_way(failures()), filtered_name<FailureCase>);

/* ---- Records to a list ------------------------------------------------------------------------------------------ */

LONG bind_list(const std::vector<kel_sockaddr_t> &records, LONG count)
{
    return kel_sctp_bindx(70, const_cast<kel_sockaddr_t *>(records.data()), count, SCTP_BINDX_ADD_ADDR);
}

TEST(RecordsToList, OfNoInternetFamilyAreRefusedInSilence)
{
    sctp_assoc_t id;
    for (int family : {0, 1, 3, 17, 0x0102, 0x0a0a, 0x0200, 0xffff}) {
        SCOPED_TRACE(family);
        kel_sockaddr_t records[] = {blank(family), inet_address("10.0.1.1", 0)};
        sys::Recording recording;

        EXPECT_EQ(kel_sctp_bindx(5, records, 2, SCTP_BINDX_ADD_ADDR), KEL_ERROR);
        EXPECT_EQ(kel_sctp_connectx(5, records, 2, &id), KEL_ERROR);

        EXPECT_EQ(recording.trace(), sys::Trace{});
    }
}

TEST(RecordsToList, WithoutMemoryFailInSilence)
{
    for (const AddressSet &set : address_sets()) {
        sys::Recording recording(sys::fail_first("tc_malloc", {0, ENOMEM}));

        EXPECT_EQ(bind_list(set.locals, 3), KEL_ERROR);

        EXPECT_EQ(errno, ENOMEM);
        EXPECT_EQ(recording.trace(),
                  sys::Trace{"tc_malloc(" + std::to_string(packed(set.locals).size() / 2) + ") = 0 errno 12"});
    }
}

TEST(RecordsToList, LieBackToBackEachAsLongAsTheFamilySays)
{
    for (const AddressSet &set : address_sets()) {
        for (size_t count : {1, 2, 3}) {
            const std::vector<kel_sockaddr_t> records(set.locals.begin(), set.locals.begin() + (long)count);
            sys::Recording recording;

            EXPECT_EQ(bind_list(records, (LONG)count), 0);

            EXPECT_EQ(recording.trace(), bound(records));
            EXPECT_EQ(packed(records).size(), 2 * count * (set.family == KEL_AF_INET ? 16 : 28));
            EXPECT_TRUE(recording.held().empty());
        }
    }
}

TEST(RecordsToList, TakeFamilyAndLengthOfTheFirst)
{
    const kel_sockaddr_t inet = stale_inet("10.0.1.1", 5000);
    const kel_sockaddr_t inet6 = stale_inet6("fd00:1::1", 5000);
    const std::vector<kel_sockaddr_t> lists[] = {
        {inet, inet6}, {inet6, inet}, {inet, blank(KEL_AF_UNIX), inet6}, {inet6, blank(0)}};
    for (const auto &records : lists) {
        sys::Recording recording;

        EXPECT_EQ(bind_list(records, (LONG)records.size()), 0);

        EXPECT_EQ(recording.trace(), bound(records));
    }
}

TEST(RecordsToList, OfCount0AreABlockOfSize0)
{
    for (const AddressSet &set : address_sets()) {
        sys::Recording recording;

        EXPECT_EQ(bind_list(set.locals, 0), 0);

        EXPECT_EQ(recording.trace(), (sys::Trace{"tc_malloc(0) = 1", "sctp_bindx(70, , 0, 1) = 0", released(1)}));
    }
}

TEST(RecordsToList, OfCount0FailWhereTheAllocatorHasNoSuchBlock)
{
    sys::Recording recording(sys::fail_first("tc_malloc", sys::ok(0)));

    EXPECT_EQ(bind_list(address_sets()[0].locals, 0), KEL_ERROR);

    EXPECT_EQ(recording.trace(), sys::Trace{"tc_malloc(0) = 0"});
}

/* ---- Counts: the request is the signed product ------------------------------------------------------------------ */

/* Functions that ask for count elements of a size first. */
struct Request {
    const char *name;
    LONG element;
    std::function<LONG(LONG count)> call;
};

std::vector<Request> requests()
{
    static kel_sockaddr_t inet = inet_address("10.0.1.1", 0);
    static kel_sockaddr_t inet6 = inet6_address("fd00:1::1", 0);
    static const CHAR *text = "10.0.1.1";
    static sctp_assoc_t id;
    CHAR **texts = const_cast<CHAR **>(&text);
    return {
        {"BindxInet", 16, [](LONG n) { return kel_sctp_bindx(5, &inet, n, 1); }},
        {"BindxInet6", 28, [](LONG n) { return kel_sctp_bindx(5, &inet6, n, 1); }},
        {"ConnectxInet", 16, [](LONG n) { return kel_sctp_connectx(5, &inet, n, &id); }},
        {"BindxTexts", 112, [=](LONG n) { return kel_sctp_bindx_str(5, KEL_AF_INET, 0, texts, n, 1); }},
        {"ConnectxTexts", 112, [=](LONG n) { return kel_sctp_connectx_str(5, KEL_AF_INET, 0, texts, n, &id); }},
        {"ServerOfTexts", 112,
         [=](LONG n) { return kel_sctp_server_one2one_str_create(KEL_AF_INET, texts, n, 0, 8, &initial, NULL); }},
        {"ManyServerOfTexts", 112,
         [=](LONG n) { return kel_sctp_server_one2many_str_create(KEL_AF_INET, texts, n, 0, 8, &initial, NULL); }},
        {"ClientOfTexts", 112,
         [=](LONG n) { return kel_sctp_client_one2one_str_create(KEL_AF_INET, texts, n, 0, &initial, NULL, &id); }},
        {"ManyClientOfTexts", 112,
         [=](LONG n) { return kel_sctp_client_one2many_str_create(KEL_AF_INET, texts, n, 0, &initial, NULL); }},
    };
}

TEST(Counts, ReachTheAllocatorAsTheSignedProduct)
{
    for (const Request &request : requests()) {
        for (LONG count : {-1L, -2L, -0x80000000L, LONG_MIN / request.element, LONG_MAX / request.element}) {
            SCOPED_TRACE(testing::Message() << request.name << " " << count);
            sys::Recording recording;

            EXPECT_EQ(request.call(count), KEL_ERROR);

            EXPECT_EQ(recording.trace(), sys::Trace{"tc_malloc(" + std::to_string(count * request.element) + ") = 0"});
        }
    }
}

TEST(Counts, WhoseProductOverflowsAskForMoreThanThereIs)
{
    /* Products that would be 0, 16, 28, 112 or another small number in 64 bits. */
    const LONG counts[] = {LONG_MIN,           LONG_MAX,           LONG_MIN + 1,
                           0x1000000000000000, 0x1000000000000001, 0x4000000000000001,
                           0x2000000000000001, 0x0fffffffffffffff, 0x7000000000000001};
    for (const Request &request : requests()) {
        for (LONG count : counts) {
            LONG product;
            if (!__builtin_mul_overflow(count, request.element, &product)) {
                continue;
            }
            SCOPED_TRACE(testing::Message() << request.name << " " << count);
            sys::Recording recording;

            EXPECT_EQ(request.call(count), KEL_ERROR);

            ASSERT_EQ(recording.trace().size(), 1u);
            EXPECT_EQ(recording.trace()[0].substr(0, 11), "tc_malloc(-"); /* half of the address space or more */
        }
    }
}

/* An allocator that meets even that shows what becomes of the count. */
TEST(Counts, AreCutTo32BitsForTheLibrary)
{
    const struct {
        LONG count;
        std::string request, list, shown;
    } rows[] = {{-0xffffffffL, "-68719476720", "a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5", "1"},
                {-0x7fffffffL, "-34359738352", "", "-2147483647"}}; /* whose low 16 bits are 1 */
    kel_sockaddr_t inet = inet_address("10.0.1.1", 0);
    sctp_assoc_t id;
    sys::name_pointer(&id, "id");
    for (const auto &row : rows) {
        sys::Recording recording(
            [](const std::string &name, long usual) { return name == "tc_malloc" ? sys::ok(1) : sys::ok(usual); });

        EXPECT_EQ(kel_sctp_bindx(70, &inet, row.count, 1), 0);
        EXPECT_EQ(kel_sctp_connectx(70, &inet, row.count, &id), 0);

        const std::string allocated = "tc_malloc(" + row.request + ") = 1", list = row.list + ", " + row.shown;
        EXPECT_EQ(recording.trace(), (sys::Trace{allocated, "sctp_bindx(70, " + list + ", 1) = 0", released(1),
                                                 allocated, "sctp_connectx(70, " + list + ", id) = 0", released(2)}));
    }
}

/* ---- Long lists: of many records, the same address twice, in every direction ------------------------------------ */

TEST(LongLists, AreConvertedWhole)
{
    const int count = 40;
    for (const AddressSet &set : address_sets()) {
        CHAR written[count][16];
        std::vector<CHAR *> texts;
        std::vector<kel_sockaddr_t> records;
        for (int i = 0; i < count; i++) {
            snprintf(written[i], sizeof(written[i]), set.family == KEL_AF_INET ? "10.0.9.%d" : "fd00:9::%d", i % 32);
            texts.push_back(written[i % 32 == 1 ? 1 : i]);
            records.push_back(set.family == KEL_AF_INET ? inet_address(written[i], sctp_port)
                                                        : inet6_address(written[i], sctp_port));
        }

        {
            sys::Recording recording;
            EXPECT_EQ(kel_sctp_bindx_str(70, set.family, (SHORT)sctp_port, texts.data(), count, 1), 0);
            EXPECT_EQ(recording.trace(), in_order({converting(set.family, texts), bound(records, 2), released(1)}));
        }

        for (const Fetch &fetch : both) {
            sys::set_addresses(records);
            sys::Recording recording;
            ASSERT_EQ(fetch(), count);
            for (size_t i = 0; i < (size_t)count; i++) {
                EXPECT_EQ(memcmp(&fetched[i], &records[i], (size_t)kel_sizeof_socket(&records[i])), 0) << i;
            }
        }
    }
}

/* ---- A list to records ------------------------------------------------------------------------------------------ */

TEST(ListToRecords, LeavesTheCallersPointerWhenTheLibraryFails)
{
    for (const Fetch &fetch : both) {
        sys::set_addresses(address_sets()[0].peers);
        sys::Recording recording(sys::fail_first(fetch.library, sys::fail(EBADF)));

        EXPECT_EQ(fetch(), KEL_ERROR);

        EXPECT_EQ(fetched, &untouched);
    }
}

TEST(ListToRecords, LeavesTheCallersPointerWhenThereIsNoAddress)
{
    for (const Fetch &fetch : both) {
        sys::set_addresses({});
        sys::Recording recording;

        EXPECT_EQ(fetch(), 0);

        EXPECT_EQ(fetched, &untouched);
        EXPECT_EQ(recording.trace(), sys::Trace{fetch.call("0")});
    }
}

TEST(ListToRecords, HandsAListOfNoAddressBack)
{
    for (const Fetch &fetch : both) {
        sys::set_addresses(address_sets()[0].peers);
        sys::Recording recording(sys::fail_first(fetch.library, sys::ok(0)));

        EXPECT_EQ(fetch(), 0);

        EXPECT_EQ(fetched, &untouched);
        EXPECT_EQ(recording.trace(), (sys::Trace{fetch.call("0"), fetch.handed_back()}));
    }
}

TEST(ListToRecords, WithoutAListStoresNull)
{
    for (const Fetch &fetch : both) {
        for (long count : {2, -2}) {
            sys::set_addresses({});
            sys::Recording recording(sys::fail_first(fetch.library, sys::ok(count)));

            EXPECT_EQ(fetch(), KEL_ERROR);

            EXPECT_EQ(fetched, nullptr);
        }
    }
}

TEST(ListToRecords, TakesANegativeCountForOneAndStoresNull)
{
    for (const Fetch &fetch : both) {
        sys::set_addresses(address_sets()[1].peers);
        sys::Recording recording(sys::fail_first(fetch.library, sys::ok(-2)));

        EXPECT_EQ(fetch(), KEL_ERROR);

        EXPECT_EQ(fetched, nullptr);
        EXPECT_EQ(recording.trace(), (sys::Trace{fetch.call("-2"), "tc_malloc(-224) = 0", fetch.handed_back()}));
    }
}

TEST(ListToRecords, WithoutMemoryStoresNullInSilence)
{
    for (const Fetch &fetch : both) {
        for (int family : {2, 10, 1}) { /* the family is judged later */
            sys::set_addresses({blank(family), blank(family)});
            sys::Recording recording(sys::fail_first("tc_malloc", {0, ENOMEM}));

            EXPECT_EQ(fetch(), KEL_ERROR);

            EXPECT_EQ(errno, ENOMEM);
            EXPECT_EQ(fetched, nullptr);
            EXPECT_EQ(recording.trace(),
                      (sys::Trace{fetch.call("2"), "tc_malloc(224) = 0 errno 12", fetch.handed_back()}));
        }
    }
}

TEST(ListToRecords, OfNoInternetFamilyStoresNullInSilenceAfterTheAllocation)
{
    for (const Fetch &fetch : both) {
        for (int family : {0, 1, 3, 17, 0x0102, 0x0a0a, 0xffff}) {
            SCOPED_TRACE(family);
            sys::set_addresses({blank(family), inet_address("10.0.1.2", 0)});
            sys::Recording recording;

            EXPECT_EQ(fetch(), KEL_ERROR);

            EXPECT_EQ(fetched, nullptr);
            EXPECT_EQ(recording.trace(),
                      (sys::Trace{fetch.call("2"), "tc_malloc(224) = 1", released(1), fetch.handed_back()}));
            EXPECT_TRUE(recording.held().empty());
        }
    }
}

TEST(ListToRecords, CutsTheDescriptorTo32BitsAndKeepsTheAssociation)
{
    for (const Fetch &fetch : both) {
        sys::set_addresses({});
        sys::Recording recording;

        EXPECT_EQ(fetch.fetch(0x100000005, -7, &fetched), 0);
        EXPECT_EQ(fetch.fetch(-1, INT_MAX, &fetched), 0);

        EXPECT_EQ(recording.trace(),
                  (sys::Trace{fetch.library + "(5, -7, null) = 0", fetch.library + "(-1, 2147483647, null) = 0"}));
    }
}

/* Members are filled; the rest of every record stays as the allocator delivered it, with bytes of 0xa5. */
TEST(ListToRecords, FillsTheFamilysMemberAndNothingBehind)
{
    for (const Fetch &fetch : both) {
        for (const AddressSet &set : address_sets()) {
            sys::set_addresses(set.locals);
            sys::Recording recording;

            EXPECT_EQ(fetch(), 3);

            for (size_t i = 0; i < 3; i++) {
                EXPECT_EQ(bytes_of(fetched[i]), bytes_of(set.locals[i]));
            }
            EXPECT_EQ(recording.trace(), (sys::Trace{fetch.call("3"), "tc_malloc(336) = 1", fetch.handed_back()}));
            EXPECT_EQ(recording.held(), std::set<std::string>{"block 1"});
        }
    }
}

TEST(ListToRecords, TakesTheFamilyOfTheFirstEntry)
{
    const kel_sockaddr_t inet = stale_inet("10.0.1.1", 5000);
    const kel_sockaddr_t inet6 = stale_inet6("fd00:1::1", 5000);
    const struct {
        kel_sockaddr_t first, second;
        size_t length;
    } rows[] = {{inet, inet6, 16}, {inet6, inet, 28}};
    for (const Fetch &fetch : both) {
        for (const auto &row : rows) {
            sys::set_addresses({row.first, row.second});
            sys::Recording recording;

            EXPECT_EQ(fetch(), 2);

            EXPECT_EQ(bytes_of(fetched[1]),
                      bytes_of(row.second).substr(0, 2 * row.length) + bytes_of(poisoned()).substr(2 * row.length));
        }
    }
}

TEST(ListToRecords, BelievesTheLibrarysCount)
{
    for (const Fetch &fetch : both) {
        sys::set_addresses(address_sets()[0].locals);
        sys::Recording recording(sys::fail_first(fetch.library, sys::ok(1)));

        EXPECT_EQ(fetch(), 1);

        EXPECT_EQ(recording.trace(), (sys::Trace{fetch.call("1"), "tc_malloc(112) = 1", fetch.handed_back()}));
    }
}

/* ---- Releasing -------------------------------------------------------------------------------------------------- */

TEST(FetchedRecords, AreReleasedByEitherFunction)
{
    for (const Fetch &fetch : both) {
        for (auto release : {kel_sctp_freepaddrs, kel_sctp_freeladdrs}) {
            sys::set_addresses(address_sets()[0].peers);
            sys::Recording recording;
            fetch();

            EXPECT_EQ(release(fetched), KEL_OK);

            EXPECT_EQ(recording.trace().size(), 4u);
            EXPECT_EQ(recording.trace().back(), released(1));
            EXPECT_TRUE(recording.held().empty());
        }
    }
}

TEST(FetchedRecords, MayBeNone)
{
    sys::Recording recording;

    EXPECT_EQ(kel_sctp_freepaddrs(NULL), KEL_OK);
    EXPECT_EQ(kel_sctp_freeladdrs(NULL), KEL_OK);

    EXPECT_EQ(recording.trace(), (sys::Trace{"tc_free(null) = 0", "tc_free(null) = 0"}));
}

/* ---- Texts to records ------------------------------------------------------------------------------------------- */

LONG bind_texts(kel_domain_t family, const std::vector<CHAR *> &texts, LONG count)
{
    return kel_sctp_bindx_str(70, family, (SHORT)sctp_port, const_cast<CHAR **>(texts.data()), count,
                              SCTP_BINDX_ADD_ADDR);
}

TEST(TextsToRecords, WithoutMemoryFailInSilence)
{
    for (const AddressSet &set : address_sets()) {
        sys::Recording recording(sys::fail_first("tc_malloc", {0, ENOMEM}));

        EXPECT_EQ(bind_texts(set.family, set.texts, 2), KEL_ERROR);

        EXPECT_EQ(recording.trace(), sys::Trace{"tc_malloc(224) = 0 errno 12"});
    }
}

/* The conversion reports nothing: the assertion alone shows the bad text. */
TEST(TextsToRecords, StopAtTheFirstBadOne)
{
    for (const AddressSet &set : address_sets()) {
        CHAR bad[] = "here";
        const std::string refusal = "inet_pton(" + std::to_string(set.family) + ", here) = 0";
        const sys::Trace assertion = assert_report("kel_addr_fill");
        {
            sys::Recording recording;
            EXPECT_EQ(bind_texts(set.family, {bad, set.texts[0]}, 2), KEL_ERROR);
            EXPECT_EQ(recording.trace(), in_order({"tc_malloc(224) = 1", cleared, refusal, assertion, released(1)}));
        }
        {
            sys::Recording recording;
            EXPECT_EQ(bind_texts(set.family, {set.texts[0], bad, set.texts[1]}, 3), KEL_ERROR);
            EXPECT_EQ(recording.trace(),
                      in_order({"tc_malloc(336) = 1", cleared,
                                "inet_pton(" + std::to_string(set.family) + ", " + set.texts[0] + ") = 1", cleared,
                                refusal, assertion, released(1)}));
            EXPECT_TRUE(recording.held().empty());
        }
    }
}

TEST(TextsToRecords, LeaveANullTextToTheFillingOfTheRecord)
{
    for (const AddressSet &set : address_sets()) {
        sys::Recording recording;

        EXPECT_EQ(bind_texts(set.family, {nullptr, set.texts[0]}, 2), KEL_ERROR);

        EXPECT_EQ(recording.trace(),
                  in_order({"tc_malloc(224) = 1", cleared, null_report("kel_addr_fill", "addrStr"), released(1)}));
    }
}

TEST(TextsToRecords, StopAtAnyResultButOk)
{
    /* A packet record would need the name of an interface, which is never given. */
    sys::Recording recording;

    EXPECT_EQ(bind_texts(KEL_AF_PACKET, address_sets()[0].texts, 2), KEL_ERROR);

    EXPECT_EQ(recording.trace(),
              in_order({"tc_malloc(224) = 1", cleared, null_report("kel_addr_fill", "ifName"), released(1)}));
}

TEST(TextsToRecords, AllCarryThePort)
{
    for (const AddressSet &set : address_sets()) {
        for (int port : {0, 1, 32767, 32768, 65535}) {
            std::vector<kel_sockaddr_t> records = set.peers;
            for (kel_sockaddr_t &record : records) {
                record.sin.sin_port = htons((uint16_t)port);
            }
            sys::Recording recording;

            EXPECT_EQ(kel_sctp_bindx_str(70, set.family, (SHORT)port, const_cast<CHAR **>(set.texts.data()), 2, 1), 0);

            EXPECT_EQ(recording.trace(), in_order({converting(set.family, set.texts), bound(records, 2), released(1)}));
        }
    }
}

/* Without a text there is one wildcard record, whatever the count is; the count itself goes on to the bind. */
TEST(TextsToRecords, WithoutAnyAreTheWildcardOfTheFamily)
{
    const struct {
        kel_domain_t family;
        const char *text;
        kel_sockaddr_t record;
    } rows[] = {{KEL_AF_INET, "0.0.0.0", inet_address("0.0.0.0", sctp_port)},
                {KEL_AF_INET6, "::", inet6_address("::", sctp_port)}};
    for (const auto &row : rows) {
        const sys::Trace wildcard =
            in_order({std::string("KEL_StrCpy(") + row.text + ")", "tc_malloc(112) = 1", cleared,
                      "inet_pton(" + std::to_string(row.family) + ", " + row.text + ") = 1"});
        {
            sys::Recording recording;
            EXPECT_EQ(kel_sctp_bindx_str(70, row.family, (SHORT)sctp_port, NULL, 1, 1), 0);
            EXPECT_EQ(recording.trace(), in_order({wildcard, bound({row.record}, 2), released(1)}));
        }
        {
            sys::Recording recording;
            EXPECT_EQ(kel_sctp_bindx_str(70, row.family, (SHORT)sctp_port, NULL, 0, 1), 0);
            EXPECT_EQ(recording.trace(),
                      in_order({wildcard, "tc_malloc(0) = 2", "sctp_bindx(70, , 0, 1) = 0", released(2), released(1)}));
        }
        {
            sys::Recording recording;
            EXPECT_EQ(kel_sctp_bindx_str(70, row.family, (SHORT)sctp_port, NULL, -1, 1), KEL_ERROR);
            EXPECT_EQ(recording.trace(),
                      in_order({wildcard, row.family == KEL_AF_INET ? "tc_malloc(-16) = 0" : "tc_malloc(-28) = 0",
                                released(1)}));
        }
    }
}

TEST(TextsToRecords, WithoutAnyOfAnotherFamilyAreAnEmptyText)
{
    {
        sys::Recording recording;
        EXPECT_EQ(kel_sctp_bindx_str(70, KEL_AF_UNIX, 0, NULL, 1, 1), KEL_ERROR);
        EXPECT_EQ(recording.trace(), (sys::Trace{"tc_malloc(112) = 1", cleared, "KEL_StrnCpy(, 108)", released(1)}));
    }
    {
        sys::Recording recording;
        EXPECT_EQ(kel_sctp_bindx_str(70, (kel_domain_t)3, 0, NULL, 1, 1), KEL_ERROR);
        EXPECT_EQ(recording.trace(), (sys::Trace{"tc_malloc(112) = 1", cleared, released(1)}));
    }
}

/* Through the one function that converts and then looks at no record. */
TEST(TextsToRecords, OfCount0AreABlockOfSize0)
{
    CHAR **texts = const_cast<CHAR **>(address_sets()[0].texts.data());
    sys::Recording recording;

    EXPECT_EQ(kel_sctp_client_one2many_str_create(KEL_AF_INET, texts, 0, 0, &initial, &subscription), 70);

    EXPECT_EQ(recording.trace(), in_order({"tc_malloc(0) = 1", created(KEL_AF_INET, KEL_SOCK_SEQPACKET, IPPROTO_SCTP),
                                           init_option(), event_option(&subscription), released(1)}));
}

} // namespace
