/* SCTP endpoints, and through them the set-ups, in every variant of the module. */
#include "failure.h"
#include "sctp_expected.h"

#include <algorithm>
#include <errno.h>
#include <type_traits>

namespace
{

constexpr LONG backlog = 8;
constexpr const char *closed = "close(70) = 0";
constexpr const char *create_report = "create sctp socket ";

sctp_assoc_t id;

/* What an endpoint is made from. */
struct Given {
    kel_domain_t family;
    kel_sockaddr_t *records;
    CHAR **texts;
    LONG count;
    SHORT port;
    LONG backlog;
    struct sctp_initmsg *initmsg;
    struct sctp_event_subscribe *events;
    sctp_assoc_t *id;
    kel_sockaddr_t *locals;
    LONG local_count;
};

struct Endpoint {
    const char *name;
    const char *function;
    std::function<LONG(const Given &)> create;
    int type;
    const char *setup;    /* the set-up function behind it */
    const char *reporter; /* of a client: the function whose report comes last when it fails */
    bool texts;
};

constexpr const char *server_setup = "__sctp_server_create";
constexpr const char *one_setup = "__sctp_one2one_client_create";
constexpr const char *many_setup = "__sctp_one2many_client_create";

/* The functions of one shape; they differ in what their list is made of. */
template <typename List> constexpr bool of_texts = std::is_same<List, CHAR **>::value;

template <typename Create, typename List>
Endpoint server(const char *name, const char *function, Create create, List Given::*list, int type)
{
    auto call = [=](const Given &g) {
        return create(g.family, g.*list, g.count, g.port, g.backlog, g.initmsg, g.events);
    };
    return {name, function, call, type, server_setup, nullptr, of_texts<List>};
}

template <typename Create, typename List>
Endpoint client_to_one(const char *name, const char *function, Create create, List Given::*list)
{
    auto call = [=](const Given &g) { return create(g.family, g.*list, g.count, g.port, g.initmsg, g.events, g.id); };
    return {name, function, call, KEL_SOCK_STREAM, one_setup, "kel_sctp_client_one2one_create", of_texts<List>};
}

template <typename Create, typename List>
Endpoint client_to_many(const char *name, const char *function, Create create, List Given::*list)
{
    auto call = [=](const Given &g) { return create(g.family, g.*list, g.count, g.port, g.initmsg, g.events); };
    return {name, function, call, KEL_SOCK_SEQPACKET, many_setup, function, of_texts<List>};
}

LONG create_one_client_bind(const Given &g)
{
    return kel_sctp_client_one2one_create_bind(g.family, g.records, g.count, g.port, g.initmsg, g.events, g.id,
                                               g.locals, g.local_count);
}

LONG create_many_client_bind(const Given &g)
{
    return kel_sctp_client_one2many_create_bind(g.family, g.records, g.count, g.port, g.initmsg, g.events, g.locals,
                                                g.local_count);
}

#define FUNCTION(name) #name, name
const Endpoint one_server =
    server("OneServer", FUNCTION(kel_sctp_server_one2one_create), &Given::records, KEL_SOCK_STREAM);
const Endpoint many_server =
    server("ManyServer", FUNCTION(kel_sctp_server_one2many_create), &Given::records, KEL_SOCK_SEQPACKET);
const Endpoint one_server_str =
    server("OneServerOfTexts", FUNCTION(kel_sctp_server_one2one_str_create), &Given::texts, KEL_SOCK_STREAM);
const Endpoint many_server_str =
    server("ManyServerOfTexts", FUNCTION(kel_sctp_server_one2many_str_create), &Given::texts, KEL_SOCK_SEQPACKET);
const Endpoint one_client = client_to_one("OneClient", FUNCTION(kel_sctp_client_one2one_create), &Given::records);
const Endpoint one_client_str =
    client_to_one("OneClientOfTexts", FUNCTION(kel_sctp_client_one2one_str_create), &Given::texts);
const Endpoint many_client = client_to_many("ManyClient", FUNCTION(kel_sctp_client_one2many_create), &Given::records);
const Endpoint many_client_str =
    client_to_many("ManyClientOfTexts", FUNCTION(kel_sctp_client_one2many_str_create), &Given::texts);
#undef FUNCTION

constexpr const char *one_bind = "kel_sctp_client_one2one_create_bind";
constexpr const char *many_bind = "kel_sctp_client_one2many_create_bind";
const Endpoint one_client_bind = {"OneClientBind", one_bind, create_one_client_bind, KEL_SOCK_STREAM, one_setup,
                                  one_bind,        false};
const Endpoint many_client_bind = {"ManyClientBind", many_bind, create_many_client_bind, KEL_SOCK_SEQPACKET, many_setup,
                                   many_bind,        false};

const Endpoint endpoints[] = {one_server,      many_server,    one_server_str, many_server_str,  one_client,
                              one_client_bind, one_client_str, many_client,    many_client_bind, many_client_str};
const Endpoint servers[] = {one_server, many_server, one_server_str, many_server_str};
const Endpoint clients[] = {one_client,  one_client_bind,  one_client_str,
                            many_client, many_client_bind, many_client_str};
const Endpoint clients_with_locals[] = {one_client_bind, many_client_bind};

bool serves(const Endpoint &endpoint)
{
    return endpoint.setup == server_setup;
}

bool connects(const Endpoint &endpoint)
{
    return endpoint.setup == one_setup;
}

/* The one-to-many servers do not test what they get for a socket. */
bool takes_any_socket(const Endpoint &endpoint)
{
    return serves(endpoint) && endpoint.type == KEL_SOCK_SEQPACKET;
}

/* Both addresses of a set, and nothing that is optional. */
Given given(const AddressSet &set = address_sets()[0])
{
    sys::name_pointer(&id, "id");
    return {set.family,
            const_cast<kel_sockaddr_t *>(set.peers.data()),
            const_cast<CHAR **>(set.texts.data()),
            2,
            (SHORT)sctp_port,
            backlog,
            &initial,
            &subscription,
            &id,
            nullptr,
            0};
}

Given given_locals(const AddressSet &set = address_sets()[0])
{
    Given g = given(set);
    g.locals = const_cast<kel_sockaddr_t *>(set.locals.data());
    g.local_count = (LONG)set.locals.size();
    return g;
}

/* ---- The calls of an endpoint, step by step --------------------------------------------------------------------- */

/* A step: its calls, what makes it fail, and its calls and reports then. */
struct Step {
    std::string name;
    sys::Trace calls;
    Fault fault;
    std::vector<Part> failing;
};

sys::Trace socket_made(const Endpoint &endpoint, kel_domain_t family = KEL_AF_INET)
{
    return created(family, endpoint.type, IPPROTO_SCTP);
}

/* The texts' records are the first block there is. */
int next_block(const Endpoint &endpoint)
{
    return endpoint.texts ? 2 : 1;
}

/* A step that packs a list for the library. */
struct ListCall {
    const char *name;
    const char *function;
    const char *library;
    const char *text;
    const char *setup_text;
    std::string (*line)(const std::vector<kel_sockaddr_t> &records, const std::string &answer);
};
const ListCall bind_call = {"Bind", "kel_sctp_bindx", "sctp_bindx", "sctp bindx ", "bind sctp socket", bindx};
const ListCall connect_call = {"Connect",        "kel_sctp_connectx", "sctp_connectx",
                               "sctp connectx ", "sctp_connectx ",    connectx};

/* It fails without memory, before the library is called, and when the library refuses. */
void add_list_steps(std::vector<Step> &steps, const Endpoint &endpoint, const ListCall &call, const AddressSet &set)
{
    const int block = next_block(endpoint);
    const std::string request = "tc_malloc(" + std::to_string(packed(set.peers).size() / 2) + ")";
    steps.push_back({std::string("NoMemoryFor") + call.name,
                     {},
                     {"tc_malloc", {0, ENOMEM}, block},
                     {request + " = 0 errno 12", failed_step(endpoint.setup, call.setup_text, ENOMEM)}});
    steps.push_back({call.name,
                     in_order({packing(set.peers, block), call.line(set.peers, "0"), released(block)}),
                     {call.library, sys::fail(EADDRNOTAVAIL)},
                     {packing(set.peers, block), call.line(set.peers, "-1 errno 99"),
                      failed_step(call.function, call.text, EADDRNOTAVAIL), released(block),
                      failed_step(endpoint.setup, call.setup_text, EADDRNOTAVAIL)}});
}

/* From the socket on; both addresses of the set, the test's own subscription, no local list. */
std::vector<Step> steps_of(const Endpoint &endpoint, const AddressSet &set)
{
    const int own_options = set.family == KEL_AF_INET6 ? 2 : 1; /* of kel_socket */
    const Report options_report =
        failed_step(endpoint.setup, serves(endpoint) ? "set_sock_op_sctp" : "set_sock_op_sctp ", EINVAL);

    std::vector<Step> steps;
    if (serves(endpoint)) {
        add_list_steps(steps, endpoint, bind_call, set);
        steps.push_back(
            {"Listen",
             {"listen(70, 8) = 0"},
             {"listen", sys::fail(EADDRINUSE)},
             {"listen(70, 8) = -1 errno 98", failed_step(endpoint.setup, "listen sctp socket", EADDRINUSE)}});
    }
    steps.push_back({"InitOption",
                     {init_option()},
                     {"setsockopt", sys::fail(EINVAL), own_options + 1},
                     {init_option("-1 errno 22"), failed_step("__kel_set_sock_op_sctp", "set sctp_initmsg ", EINVAL),
                      options_report}});
    steps.push_back({"EventOption",
                     event_option(&subscription),
                     {"setsockopt", sys::fail(EINVAL), own_options + 2},
                     {event_option(&subscription, "-1 errno 22"),
                      failed_step("__kel_set_sock_op_sctp", "set sctp_event_subscribe ", EINVAL), options_report}});
    if (connects(endpoint)) {
        add_list_steps(steps, endpoint, connect_call, set);
    }
    return steps;
}

sys::Trace texts_converted(const Endpoint &endpoint, const AddressSet &set)
{
    return endpoint.texts ? converting(set.family, set.texts) : sys::Trace{};
}

sys::Trace texts_released(const Endpoint &endpoint)
{
    return endpoint.texts ? sys::Trace{released(1)} : sys::Trace{};
}

/* The calls of an endpoint that is made from a set. */
sys::Trace made(const Endpoint &endpoint, const AddressSet &set)
{
    sys::Trace trace = in_order({texts_converted(endpoint, set), socket_made(endpoint, set.family)});
    for (const Step &step : steps_of(endpoint, set)) {
        trace.insert(trace.end(), step.calls.begin(), step.calls.end());
    }
    return in_order({trace, texts_released(endpoint)});
}

/* How a failure ends: the texts' records go after the last report, but before that of a one-to-many client. */
std::vector<Part> ending(const Endpoint &endpoint, int error)
{
    if (serves(endpoint)) {
        return {texts_released(endpoint)};
    }
    const Report report = failed_step(endpoint.reporter, create_report, error);
    if (endpoint.setup == many_setup) {
        return {texts_released(endpoint), report};
    }
    return {report, texts_released(endpoint)};
}

/* ---- What is reported: null arguments, in their order ----------------------------------------------------------- */

/* Each is reported alone and with all that are checked after it; nothing is called. */
std::vector<FailureCase> null_arguments()
{
    std::vector<FailureCase> cases;
    for (const Endpoint &endpoint : endpoints) {
        struct Argument {
            const char *name;
            void (*take_away)(Given &);
        };
        std::vector<Argument> arguments;
        if (!serves(endpoint)) {
            arguments.push_back({endpoint.texts ? "s_addrStr" : "s_addrs", [](Given &g) {
                                     g.records = nullptr;
                                     g.texts = nullptr;
                                 }});
        }
        arguments.push_back({"initmsg", [](Given &g) { g.initmsg = nullptr; }});
        if (connects(endpoint)) {
            arguments.push_back({"id", [](Given &g) { g.id = nullptr; }});
        }
        for (size_t first = 0; first < arguments.size(); first++) {
            for (bool others : {false, true}) {
                auto call = [=] {
                    Given g = given();
                    for (size_t i = first; i < (others ? arguments.size() : first + 1); i++) {
                        arguments[i].take_away(g);
                    }
                    return endpoint.create(g);
                };
                cases = together({cases, reported(std::string(endpoint.name) + "_" + arguments[first].name +
                                                      (others ? "_AndTheRest" : ""),
                                                  call, {}, {null_check(endpoint.function, arguments[first].name)})});
            }
        }
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(SctpNullArguments, Failure, in_every_way(null_arguments()), filtered_name<FailureCase>);

/* ---- What is reported: every step that fails -------------------------------------------------------------------- */

/* An error is reported by the step, by the set-up and, of a client, by the endpoint. */
std::vector<FailureCase> failing_steps()
{
    std::vector<FailureCase> cases;
    const AddressSet &set = address_sets()[0];
    for (const Endpoint &endpoint : endpoints) {
        sys::Trace before = in_order({texts_converted(endpoint, set), socket_made(endpoint)});
        for (const Step &step : steps_of(endpoint, set)) {
            const auto call = [=] { return endpoint.create(given()); };
            const auto parts =
                together<Part>({{before}, step.failing, {closed}, ending(endpoint, step.fault.answer.error)});
            const auto failures = reported(endpoint.name + ("_" + step.name), call, {step.fault}, parts);
            cases.insert(cases.end(), failures.begin(), failures.end());
            before.insert(before.end(), step.calls.begin(), step.calls.end());
        }
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(SctpSteps, Failure, in_every_way(failing_steps()), filtered_name<FailureCase>);

/* The function whose report comes first when there is no socket. */
const char *creator(const Endpoint &endpoint)
{
    return serves(endpoint) ? "kel_sctp_server_one2one_create" : endpoint.setup;
}

/* The one-to-many servers do not test their socket: the bind of -1 fails and is reported, and -1 is closed. */
std::vector<Part> no_socket(const Endpoint &endpoint, const AddressSet &set, int error)
{
    if (!takes_any_socket(endpoint)) {
        return {failed_step(creator(endpoint), create_report, error)};
    }
    const int block = next_block(endpoint);
    return {packing(set.peers, block),
            "sctp_bindx(-1, " + packed(set.peers) + ", 2, 1) = -1 errno 9",
            failed_step("kel_sctp_bindx", "sctp bindx ", EBADF),
            released(block),
            failed_step(server_setup, "bind sctp socket", EBADF),
            "close(-1) = 0"};
}

std::vector<FailureCase> without_a_socket()
{
    std::vector<FailureCase> cases;
    const AddressSet &set = address_sets()[0];
    for (const Endpoint &endpoint : endpoints) {
        const auto call = [=] { return endpoint.create(given()); };
        const std::string name = endpoint.name;
        const std::string socket = "socket(2, " + std::to_string(endpoint.type) + ", 132) = ";
        const sys::Trace texts = texts_converted(endpoint, set);

        const auto refused = together<Part>({{texts, socket + "-1 errno 93"},
                                             no_socket(endpoint, set, EPROTONOSUPPORT),
                                             ending(endpoint, EPROTONOSUPPORT)});
        cases = together(
            {cases, reported(name + "_NoSocket", call,
                             {{"socket", sys::fail(EPROTONOSUPPORT)}, {"sctp_bindx", sys::fail(EBADF)}}, refused)});

        const auto no_option = together<Part>({{texts, socket + "70", "setsockopt(70, 1, 2, 01000000, 4) = -1 errno 9",
                                                failed_step("kel_socket", "setsockopt socket", EBADF), closed},
                                               no_socket(endpoint, set, EBADF),
                                               ending(endpoint, EBADF)});
        cases = together(
            {cases, reported(name + "_NoOption", call,
                             {{"setsockopt", sys::fail(EBADF)}, {"sctp_bindx", sys::fail(EBADF)}}, no_option)});
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(SctpWithoutASocket, Failure, in_every_way(without_a_socket()), filtered_name<FailureCase>);

/* A null list is the wildcard to the one-to-one server alone: here the conversion reports it first. */
std::vector<FailureCase> null_list()
{
    return reported("ManyServerNullList",
                    [] {
                        Given g = given();
                        g.records = nullptr;
                        return many_server.create(g);
                    },
                    {},
                    {socket_made(many_server), null_check("__kel_addr_transfer2_addr", "addrs", 1, "NULL_CHECK_RP"),
                     failed_step(server_setup, "bind sctp socket", 0), closed});
}

INSTANTIATE_TEST_SUITE_P(SctpEndpoints, Failure, in_every_way(null_list()), filtered_name<FailureCase>);

TEST(SctpEndpoints, LeaveTheErrnoOfACloseThatFailsAfterTheStep)
{
    for (const Endpoint &endpoint : endpoints) {
        sys::Recording recording(failing({{"setsockopt", sys::fail(EINVAL), 2}, {"close", sys::fail(EIO)}}));

        EXPECT_EQ(endpoint.create(given()), KEL_ERROR) << endpoint.name;

        EXPECT_EQ(errno, EIO) << endpoint.name;
    }
}

TEST(SctpEndpoints, ReleaseEverythingWhicheverAllocationFails)
{
    for (const Endpoint &endpoint : endpoints) {
        const int allocations = (endpoint.texts ? 1 : 0) + (serves(endpoint) || connects(endpoint) ? 1 : 0);
        for (int nth = 1; nth <= 3; nth++) {
            SCOPED_TRACE(testing::Message() << endpoint.name << " " << nth);
            sys::Recording recording(sys::fail_nth("tc_malloc", nth, {0, ENOMEM}));

            EXPECT_EQ(endpoint.create(given()), nth <= allocations ? KEL_ERROR : 70);

            EXPECT_TRUE(recording.held().empty());
            EXPECT_EQ(recording.open().size(), nth <= allocations ? 0u : 1u);
        }
    }
}

TEST(OneClients, ReleaseEverythingWhenTheSecondListCannotBeHad)
{
    sys::Recording recording(sys::fail_nth("tc_malloc", 2, {0, ENOMEM}));

    EXPECT_EQ(one_client_bind.create(given_locals()), KEL_ERROR);

    EXPECT_TRUE(recording.held().empty());
    EXPECT_TRUE(recording.open().empty());
}

/* ---- Bad texts: before there is a socket, and in silence -------------------------------------------------------- */

TEST(SctpEndpoints, OfABadTextCreateNothing)
{
    CHAR bad[] = "here";
    CHAR *texts[] = {bad};
    for (const Endpoint &endpoint : endpoints) {
        if (!endpoint.texts) {
            continue;
        }
        for (const AddressSet &set : address_sets()) {
            Given g = given(set);
            g.texts = texts;
            g.count = 1;
            sys::Recording recording;

            EXPECT_EQ(endpoint.create(g), KEL_ERROR) << endpoint.name;

            EXPECT_EQ(recording.trace(), in_order({"tc_malloc(112) = 1", cleared,
                                                   "inet_pton(" + std::to_string(set.family) + ", here) = 0",
                                                   assert_report("kel_addr_fill"), released(1)}));
        }
    }
}

TEST(SctpEndpoints, WithoutMemoryForTheirTextsFailInSilence)
{
    for (const Endpoint &endpoint : endpoints) {
        if (endpoint.texts) {
            sys::Recording recording(sys::fail_first("tc_malloc", {0, ENOMEM}));

            EXPECT_EQ(endpoint.create(given()), KEL_ERROR) << endpoint.name;

            EXPECT_EQ(recording.trace(), sys::Trace{"tc_malloc(224) = 0 errno 12"});
        }
    }
}

/* ---- Which results are failures --------------------------------------------------------------------------------- */

TEST(SctpEndpoints, TakeDescriptor0ForAFailureAndLeaveItOpenButForOneToManyServers)
{
    for (const Endpoint &endpoint : endpoints) {
        SCOPED_TRACE(endpoint.name);
        const bool takes_it = takes_any_socket(endpoint);
        sys::Recording recording(sys::fail_first("socket", sys::ok(0)));

        EXPECT_EQ(endpoint.create(given()), takes_it ? 0 : KEL_ERROR);

        EXPECT_EQ(recording.open(), std::set<int>{0});
        EXPECT_TRUE(recording.held().empty());
        if (!takes_it) {
            const sys::Trace first =
                perror_report(serves(endpoint) ? "kel_sctp_server_one2one_create" : endpoint.setup, create_report, 0);
            sys::Trace end;
            for (const Part &part : ending(endpoint, 0)) {
                end.insert(end.end(), part.lines.begin(), part.lines.end());
            }
            EXPECT_EQ(recording.trace(), in_order({texts_converted(endpoint, address_sets()[0]),
                                                   "socket(2, " + std::to_string(endpoint.type) + ", 132) = 0",
                                                   "setsockopt(0, 1, 2, 01000000, 4) = 0", first, end}));
        }
    }
}

TEST(SctpEndpoints, TakeANegativeDescriptorForAFailureButForOneToManyServers)
{
    for (const Endpoint &endpoint : endpoints) {
        const bool takes_it = takes_any_socket(endpoint);
        for (long descriptor : {-1L, -2L}) {
            sys::Recording recording(sys::fail_first("socket", sys::ok(descriptor)));

            EXPECT_EQ(endpoint.create(given()), takes_it ? descriptor : KEL_ERROR) << endpoint.name;
        }
    }
}

TEST(SctpEndpoints, TakeTheLowestDescriptorAbove0)
{
    for (const Endpoint &endpoint : endpoints) {
        sys::Recording recording(sys::fail_first("socket", sys::ok(1)));

        EXPECT_EQ(endpoint.create(given()), 1) << endpoint.name;

        EXPECT_EQ(recording.open(), std::set<int>{1});
    }
}

TEST(ManyServer, ClosesDescriptor0WhenItsSetUpFails)
{
    for (const Endpoint &endpoint : {many_server, many_server_str}) {
        sys::Recording recording(failing({{"socket", sys::ok(0)}, {"listen", sys::fail(EADDRINUSE)}}));

        EXPECT_EQ(endpoint.create(given()), KEL_ERROR);

        EXPECT_TRUE(recording.open().empty());
    }
}

TEST(SctpServers, TakeOnlyMinusOneOfTheBindForAFailure)
{
    for (const Endpoint &endpoint : servers) {
        for (long answer : {-2L, 5L}) {
            sys::Recording recording(sys::fail_first("sctp_bindx", sys::ok(answer)));

            EXPECT_EQ(endpoint.create(given()), 70) << endpoint.name;

            sys::Trace expected = made(endpoint, address_sets()[0]);
            for (std::string &line : expected) {
                if (line == bindx(address_sets()[0].peers)) {
                    line = bindx(address_sets()[0].peers, std::to_string(answer));
                }
            }
            EXPECT_EQ(recording.trace(), expected);
        }
    }
}

TEST(SctpEndpoints, TakeAnyResultOfAnOptionBut0ForAFailure)
{
    for (const Endpoint &endpoint : endpoints) {
        for (int nth : {2, 3}) {
            for (long answer : {-2L, 5L}) {
                sys::Recording recording(sys::fail_nth("setsockopt", nth, sys::ok(answer)));

                EXPECT_EQ(endpoint.create(given()), KEL_ERROR) << endpoint.name;

                EXPECT_TRUE(recording.open().empty());
                EXPECT_TRUE(recording.held().empty());
            }
        }
    }
}

/* The call itself reports -1 alone; the set-up and the endpoint report every result but 0. */
TEST(OneClients, TakeAnyResultOfTheConnectBut0ForAFailure)
{
    const AddressSet &set = address_sets()[0];
    for (const Endpoint &endpoint : clients) {
        if (!connects(endpoint)) {
            continue;
        }
        for (long answer : {-2L, 5L}) {
            int block = next_block(endpoint);
            sys::Recording recording(sys::fail_first("sctp_connectx", sys::ok(answer)));

            EXPECT_EQ(endpoint.create(given()), KEL_ERROR) << endpoint.name;

            EXPECT_EQ(recording.trace(),
                      in_order({texts_converted(endpoint, set), socket_made(endpoint), init_option(),
                                event_option(&subscription), packing(set.peers, block),
                                connectx(set.peers, std::to_string(answer)), released(block),
                                perror_report(one_setup, "sctp_connectx ", 0), closed,
                                perror_report(endpoint.reporter, create_report, 0), texts_released(endpoint)}));
            EXPECT_TRUE(recording.open().empty());
        }
    }
}

/* ---- The default subscription ----------------------------------------------------------------------------------- */

/* Cleared over all ten bytes, whatever the stack held; data-io events alone are subscribed to. */
TEST(SctpEndpoints, SubscribeToDataIoEventsAloneWhenNotTold)
{
    for (const Endpoint &endpoint : endpoints) {
        for (const AddressSet &set : address_sets()) {
            Given g = given(set);
            g.events = nullptr;
            sys::Trace expected = made(endpoint, set);
            for (size_t i = 0; i < expected.size(); i++) {
                if (expected[i] == init_option()) {
                    expected.insert(expected.begin() + (long)i, "KEL_MemSet(set, 0, 10)");
                    expected[i + 2] = event_option(nullptr)[0];
                    break;
                }
            }
            sys::Recording recording;

            poison_stack();
            EXPECT_EQ(endpoint.create(g), 70) << endpoint.name;

            EXPECT_EQ(recording.trace(), expected) << endpoint.name;
        }
    }
}

TEST(SctpEndpoints, TakeASubscriptionToNothingAsItStands)
{
    struct sctp_event_subscribe nothing = {};
    for (const Endpoint &endpoint : endpoints) {
        Given g = given();
        g.events = &nothing;
        sys::Recording recording;

        EXPECT_EQ(endpoint.create(g), 70) << endpoint.name;

        const sys::Trace &trace = recording.trace();
        EXPECT_EQ(std::count(trace.begin(), trace.end(), event_option(&nothing)[0]), 1) << endpoint.name;
        EXPECT_EQ(std::count(trace.begin(), trace.end(), "KEL_MemSet(set, 0, 10)"), 0) << endpoint.name;
    }
}

/* ---- Addresses, ports and backlogs ------------------------------------------------------------------------------ */

TEST(SctpEndpoints, AreMade)
{
    for (const Endpoint &endpoint : endpoints) {
        for (const AddressSet &set : address_sets()) {
            SCOPED_TRACE(testing::Message() << endpoint.name << " " << set.family);
            id = 0;
            sys::Recording recording;

            EXPECT_EQ(endpoint.create(given(set)), 70);

            EXPECT_EQ(recording.trace(), made(endpoint, set));
            EXPECT_EQ(recording.open(), std::set<int>{70});
            EXPECT_TRUE(recording.held().empty());
            EXPECT_EQ(id, connects(endpoint) ? sys::association : 0);
        }
    }
}

/* The port of the records counts, and not the one beside them; the records stay as they are. */
TEST(SctpEndpoints, FromRecordsLeaveTheirPortsAlone)
{
    const std::vector<kel_sockaddr_t> records = address_sets()[0].locals; /* ports of 0 */
    for (const Endpoint &endpoint : endpoints) {
        if (endpoint.texts) {
            continue;
        }
        std::vector<kel_sockaddr_t> used = records;
        Given g = given();
        g.records = used.data();
        g.count = 3;
        sys::Recording recording;

        EXPECT_EQ(endpoint.create(g), 70) << endpoint.name;

        sys::Trace expected = socket_made(endpoint, g.family);
        if (serves(endpoint)) {
            expected =
                in_order({expected, bound(records), "listen(70, 8) = 0", init_option(), event_option(&subscription)});
        } else {
            expected = in_order({expected, init_option(), event_option(&subscription),
                                 connects(endpoint) ? connected(records) : sys::Trace{}});
        }
        EXPECT_EQ(recording.trace(), expected) << endpoint.name;
        for (size_t i = 0; i < records.size(); i++) {
            EXPECT_EQ(bytes_of(used[i]), bytes_of(records[i]));
        }
    }
}

TEST(SctpServers, PassTheBacklogOnCutTo32Bits)
{
    const struct {
        LONG given;
        const char *shown;
    } rows[] = {{1000, "1000"}, {0, "0"}, {-1, "-1"}, {0x100000005, "5"}, {0x80000000, "-2147483648"}};
    for (const Endpoint &endpoint : servers) {
        for (const auto &row : rows) {
            Given g = given();
            g.backlog = row.given;
            sys::Recording recording;

            EXPECT_EQ(endpoint.create(g), 70);

            const sys::Trace &trace = recording.trace();
            EXPECT_EQ(std::count(trace.begin(), trace.end(), std::string("listen(70, ") + row.shown + ") = 0"), 1)
                << endpoint.name << " " << row.shown;
        }
    }
}

TEST(SctpServers, OfCount0BindNothingAndGoOn)
{
    Given g = given();
    g.count = 0;
    for (const Endpoint &endpoint : {one_server, many_server}) {
        sys::Recording recording;

        EXPECT_EQ(endpoint.create(g), 70);

        EXPECT_EQ(recording.trace(),
                  in_order({socket_made(endpoint, g.family), "tc_malloc(0) = 1", "sctp_bindx(70, , 0, 1) = 0",
                            released(1), "listen(70, 8) = 0", init_option(), event_option(&subscription)}));
    }
}

/* ---- The wildcard ----------------------------------------------------------------------------------------------- */

struct Wildcard {
    kel_domain_t family;
    const char *text;
    kel_sockaddr_t record;
};

const Wildcard wildcards[] = {{KEL_AF_INET, "0.0.0.0", inet_address("0.0.0.0", sctp_port)},
                              {KEL_AF_INET6, "::", inet6_address("::", sctp_port)}};

/* One record, whatever the count. */
Given given_nothing(kel_domain_t family, LONG count)
{
    Given g = given();
    g.family = family;
    g.records = nullptr;
    g.texts = nullptr;
    g.count = count;
    return g;
}

std::string conversion(const Wildcard &wildcard)
{
    return "inet_pton(" + std::to_string(wildcard.family) + ", " + wildcard.text + ") = 1";
}

TEST(OneServer, WithoutAListBindsTheWildcardAtThePort)
{
    for (const Wildcard &wildcard : wildcards) {
        for (LONG count : {1, 0, -1, 7}) {
            Given g = given_nothing(wildcard.family, count);
            sys::Recording recording;

            poison_stack();
            EXPECT_EQ(one_server.create(g), 70);

            EXPECT_EQ(recording.trace(), in_order({socket_made(one_server, g.family), cleared, cleared,
                                                   conversion(wildcard), bound({wildcard.record}), "listen(70, 8) = 0",
                                                   init_option(), event_option(&subscription)}));
        }
    }
}

TEST(SctpServers, WithoutTextsBindTheWildcardAtThePort)
{
    for (const Endpoint &endpoint : {one_server_str, many_server_str}) {
        for (const Wildcard &wildcard : wildcards) {
            for (LONG count : {1, 0, -1, 7}) {
                Given g = given_nothing(wildcard.family, count);
                sys::Recording recording;

                EXPECT_EQ(endpoint.create(g), 70);

                EXPECT_EQ(recording.trace(),
                          in_order({std::string("KEL_StrCpy(") + wildcard.text + ")", "tc_malloc(112) = 1", cleared,
                                    conversion(wildcard), socket_made(endpoint, g.family), bound({wildcard.record}, 2),
                                    "listen(70, 8) = 0", init_option(), event_option(&subscription), released(1)}));
            }
        }
    }
}

/* The filling is not tested: a record without an address goes on to the bind, and one of another family fails there. */
TEST(OneServer, GoesOnWithAWildcardThatCouldNotBeFilled)
{
    Given g = given_nothing(KEL_AF_INET, 1);
    sys::Recording recording(sys::fail_first("inet_pton", sys::ok(0)));

    EXPECT_EQ(one_server.create(g), 70);

    EXPECT_EQ(recording.trace(),
              in_order({socket_made(one_server, g.family), cleared, cleared, "inet_pton(2, 0.0.0.0) = 0",
                        assert_report("kel_addr_fill"), bound({wildcards[0].record}), "listen(70, 8) = 0",
                        init_option(), event_option(&subscription)}));
}

TEST(OneServer, OfAnotherFamilyFillsTheIpv4WildcardAndFailsInTheBind)
{
    const struct {
        int family;
        sys::Trace filling;
    } rows[] = {{1, {"KEL_StrnCpy(0.0.0.0, 108)"}}, {3, {}}, {17, null_report("kel_addr_fill", "ifName")}};
    for (const auto &row : rows) {
        Given g = given_nothing((kel_domain_t)row.family, 1);
        sys::Recording recording;

        EXPECT_EQ(one_server.create(g), KEL_ERROR);

        EXPECT_EQ(recording.trace(), in_order({socket_made(one_server, g.family), cleared, cleared, row.filling,
                                               perror_report(server_setup, "bind sctp socket", 0), closed}));
        EXPECT_TRUE(recording.open().empty());
    }
}

/* Families are the system's to refuse. */
TEST(ManyServer, OfAnyFamilyAsksForASocket)
{
    for (int family : {0, 1, 3, 17}) {
        Given g = given_nothing((kel_domain_t)family, 1);
        sys::Recording recording(sys::fail_first("socket", sys::fail(EAFNOSUPPORT)));

        EXPECT_EQ(many_server.create(g), KEL_ERROR);

        EXPECT_EQ(recording.trace().at(0), "socket(" + std::to_string(family) + ", 5, 132) = -1 errno 97");
    }
}

/* ---- Local addresses of clients --------------------------------------------------------------------------------- */

/* The calls of a client with local addresses: the bind comes right behind the socket. */
sys::Trace made_bound(const Endpoint &endpoint, const AddressSet &set, const sys::Trace &binding, int blocks)
{
    return in_order({socket_made(endpoint, set.family), binding, init_option(), event_option(&subscription),
                     connects(endpoint) ? connected(set.peers, blocks + 1) : sys::Trace{}});
}

TEST(SctpClients, BindTheirLocalListFirst)
{
    for (const Endpoint &endpoint : clients_with_locals) {
        for (const AddressSet &set : address_sets()) {
            sys::Recording recording;

            EXPECT_EQ(endpoint.create(given_locals(set)), 70) << endpoint.name;

            EXPECT_EQ(recording.trace(), made_bound(endpoint, set, bound(set.locals), 1));
            EXPECT_EQ(recording.open(), std::set<int>{70});
            EXPECT_TRUE(recording.held().empty());
        }
    }
}

TEST(SctpClients, BindNothingWithoutAListOrWithACountOf0)
{
    const AddressSet &set = address_sets()[0];
    for (const Endpoint &endpoint : clients_with_locals) {
        for (LONG count : {0, 3, -1}) {
            Given g = given_locals(set);
            g.local_count = count;
            g.locals = count == 0 ? g.locals : nullptr;
            sys::Recording recording;

            EXPECT_EQ(endpoint.create(g), 70) << endpoint.name;

            EXPECT_EQ(recording.trace(), made_bound(endpoint, set, {}, 0));
        }
    }
}

TEST(SctpClients, GoOnWhenTheLocalBindIsRefused)
{
    const AddressSet &set = address_sets()[0];
    for (const Endpoint &endpoint : clients_with_locals) {
        sys::Recording recording(sys::fail_first("sctp_bindx", sys::fail(EADDRNOTAVAIL)));

        EXPECT_EQ(endpoint.create(given_locals(set)), 70) << endpoint.name;

        EXPECT_EQ(recording.trace(),
                  made_bound(endpoint, set,
                             in_order({packing(set.locals), bindx(set.locals, "-1 errno 99"),
                                       perror_report("kel_sctp_bindx", "sctp bindx ", EADDRNOTAVAIL), released(1)}),
                             1));
        EXPECT_EQ(errno, EADDRNOTAVAIL);
    }
}

TEST(SctpClients, GoOnInSilenceWhenTheLocalListCannotBePacked)
{
    const AddressSet &set = address_sets()[0];
    kel_sockaddr_t path = blank(KEL_AF_UNIX);
    for (const Endpoint &endpoint : clients_with_locals) {
        {
            sys::Recording recording(sys::fail_first("tc_malloc", {0, ENOMEM}));
            EXPECT_EQ(endpoint.create(given_locals(set)), 70);
            EXPECT_EQ(recording.trace(), made_bound(endpoint, set, {"tc_malloc(48) = 0 errno 12"}, 0));
        }
        {
            Given g = given_locals(set);
            g.local_count = -1;
            sys::Recording recording;
            EXPECT_EQ(endpoint.create(g), 70);
            EXPECT_EQ(recording.trace(), made_bound(endpoint, set, {"tc_malloc(-16) = 0"}, 0));
        }
        {
            Given g = given_locals(set);
            g.locals = &path;
            g.local_count = 1;
            sys::Recording recording;
            EXPECT_EQ(endpoint.create(g), 70);
            EXPECT_EQ(recording.trace(), made_bound(endpoint, set, {}, 0));
        }
    }
}

TEST(SctpClients, GoOnWhateverTheLocalBindReturns)
{
    const AddressSet &set = address_sets()[0];
    for (const Endpoint &endpoint : clients_with_locals) {
        for (long answer : {-2L, 5L}) {
            sys::Recording recording(sys::fail_first("sctp_bindx", sys::ok(answer)));

            EXPECT_EQ(endpoint.create(given_locals(set)), 70);

            EXPECT_EQ(
                recording.trace(),
                made_bound(endpoint, set,
                           in_order({packing(set.locals), bindx(set.locals, std::to_string(answer)), released(1)}), 1));
        }
    }
}

/* ---- Peers of one-to-many clients ------------------------------------------------------------------------------- */

TEST(ManyClients, DoNotLookAtTheirPeers)
{
    kel_sockaddr_t *nowhere = reinterpret_cast<kel_sockaddr_t *>(8);
    for (const Endpoint &endpoint : {many_client, many_client_bind}) {
        for (LONG count : {2, 0, -1}) {
            Given g = given();
            g.records = nowhere;
            g.count = count;
            sys::Recording recording;

            EXPECT_EQ(endpoint.create(g), 70);

            EXPECT_EQ(recording.trace(), made(endpoint, address_sets()[0]));
        }
    }
}

} // namespace
