#include "explorer.h"

#include <arpa/inet.h>
#include <errno.h>
#include <iterator>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "answers.h"
#include "calls.h"
#include "machine.h"
#include "positions.h"
#include "text.h"

Caller caller;
std::map<std::string, std::set<size_t>> taken_at;
std::map<std::string, Exploration> explorations;

namespace
{

/* ---- The caller's memory ----------------------------------------------------------------------------------------- */

struct Part {
    const void *place;
    const char *name;
};
const Part parts[] = {{&caller.inet, "inet"},
                      {&caller.inet6, "inet6"},
                      {&caller.local, "local"},
                      {&caller.packet, "packet"},
                      {&caller.no_port, "no_port"},
                      {&caller.strange, "strange"},
                      {&caller.record, "record"},
                      {caller.mac, "mac"},
                      {caller.text, "text"},
                      {caller.buffer, "buffer"},
                      {&caller.length, "length"},
                      {caller.pair, "pair"},
                      {caller.pair6, "pair6"},
                      {&caller.addresses, "addresses"},
                      {&caller.association, "association"},
                      {&caller.initmsg, "initmsg"},
                      {&caller.events, "events"},
                      {&caller.info, "info"},
                      {&caller.flags, "flags"},
                      {caller.listed, "listed"},
                      {&caller.listed_count, "listed_count"},
                      {&caller.peer_length, "peer_length"},
                      {&caller.received_flags, "received_flags"}};

Caller pristine()
{
    Caller fresh;
    memset(&fresh, 0xa5, sizeof(fresh));
    for (kel_sockaddr_t *record : {&fresh.inet, &fresh.inet6, &fresh.local, &fresh.packet, &fresh.strange}) {
        memset(record, 0, sizeof(*record));
    }
    fresh.inet.sin.sin_family = AF_INET;
    fresh.inet.sin.sin_port = htons(5000);
    fresh.inet.sin.sin_addr.s_addr = htonl(0x0a010203);
    fresh.no_port = fresh.inet;
    fresh.no_port.sin.sin_port = 0;
    fresh.inet6.sin6.sin6_family = AF_INET6;
    fresh.inet6.sin6.sin6_port = htons(40000);
    inet_pton(AF_INET6, "2001:db8::5", &fresh.inet6.sin6.sin6_addr);
    fresh.local.un.sun_family = AF_UNIX;
    strcpy(fresh.local.un.sun_path, "/run/app");
    fresh.packet.raw.sll_family = AF_PACKET;
    fresh.packet.raw.sll_protocol = htons(3);
    fresh.packet.raw.sll_ifindex = 2;
    fresh.strange.sa.sa_family = 3;
    fresh.length = 60;
    fresh.pair[0] = fresh.pair[1] = fresh.inet;
    fresh.pair[1].sin.sin_port = htons(5001);
    fresh.pair[1].sin.sin_addr.s_addr = htonl(0x0a010204);
    fresh.pair6[0] = fresh.pair6[1] = fresh.inet6;
    fresh.pair6[1].sin6.sin6_port = htons(40001);
    inet_pton(AF_INET6, "fe80::1", &fresh.pair6[1].sin6.sin6_addr);
    fresh.pair6[1].sin6.sin6_scope_id = 3;
    fresh.addresses = &caller.record;
    fresh.initmsg = {1, 2, 3, 4};
    fresh.events = {0, 1, 0, 0, 1, 1, 0, 1, 0, 1};
    fresh.listed[0] = fresh.pair[0];
    fresh.listed[1] = fresh.pair[1];
    fresh.listed[2] = fresh.no_port;
    fresh.listed_count = 2;
    fresh.peer_length = sizeof(struct sockaddr_in6);
    fresh.received_flags = -0x8000; /* the module has to keep the sign */
    return fresh;
}

/* The address that the system fills in. */
kel_sockaddr_t peer()
{
    kel_sockaddr_t filled;
    memset(&filled, 0x5a, sizeof(filled));
    filled.sin6.sin6_family = AF_INET6;
    filled.sin6.sin6_port = htons(4711);
    return filled;
}

/* What a call is made with. */
void renew(const Trial &trial)
{
    static const Caller fresh = pristine();
    caller = fresh;
    Machine().prepare(trial.prepare);
    sys::set_addresses({caller.listed, caller.listed + caller.listed_count});
    sys::set_peer(peer(), (socklen_t)caller.peer_length);
    sys::set_received_flags((int)caller.received_flags);
}

/* ---- The walk ---------------------------------------------------------------------------------------------------- */

/* Decides every call of a run: as on the current path, and past its end by the first answer. */
class Walk
{
  public:
    explicit Walk(Depth how_far) : in_pairs(how_far == Depth::Pairs), all(answers_at(how_far))
    {
    }

    void begin()
    {
        most = soon = all;
        depth = 0;
        noisy = false;
        prints = 0;
    }

    sys::Answer decide(const std::string &call, long usual)
    {
        if (call == "printf") {
            return print(usual);
        }
        if (call == "filter") {
            prints = 0;
            return choose(call, most == 1 ? 1 : 2,
                          [=](size_t taken) { return sys::Answer{(long)taken * suppression()}; });
        }
        const auto &list = answers(call);
        most = list.size() > 1 ? soon : most; /* a call with one answer does not count */
        const sys::Answer answer = choose(call, std::min(list.size(), most),
                                          [&](size_t taken) { return taken == 0 ? sys::Answer{usual} : list[taken]; });
        const size_t number = path[depth - 1].taken;
        if (in_pairs && number > 0) {
            const bool same_failure = number >= brief_answers && answer.error != 0; /* with another errno */
            soon = soon == all && !same_failure ? brief_answers : 1;
        } else if (makes_no_difference(call, usual, answer.result)) {
            soon = std::min(soon, brief_answers);
        }
        return answer;
    }

    /* To the next path, after a run that took the current one to its end; false when there is none left. */
    bool next()
    {
        path.resize(depth);
        while (!path.empty() && path.back().taken + 1 >= path.back().count) {
            path.pop_back();
        }
        if (path.empty()) {
            return false;
        }
        path.back().taken++;
        return true;
    }

    /* Which answer the last call got. */
    size_t taken() const
    {
        return path[depth - 1].taken;
    }

    /* Whether the prints of the last report changed errno. */
    bool is_noisy() const
    {
        return noisy;
    }

    Path path;

  private:
    template <typename Answering> sys::Answer choose(const std::string &call, size_t count, Answering answering)
    {
        if (depth < path.size() && path[depth].call != call) {
            path.resize(depth); /* not the calls of the last time: the comparison shows it */
        }
        if (depth == path.size()) {
            path.push_back({call, 0, count, {0, 0}});
        }
        Choice &choice = path[depth++];
        choice.answer = answering(choice.taken);
        return choice.answer;
    }

    static size_t answers_at(Depth how_far)
    {
        return how_far == Depth::Once ? 1 : how_far == Depth::Brief ? brief_answers : SIZE_MAX;
    }

    /* The answer of unlink, and a descriptor that is odd but valid, have no influence on the calls that follow: few
     * answers for each of them show that. */
    static bool makes_no_difference(const std::string &call, long usual, long result)
    {
        return result != usual && (call == "unlink" || (call == "socket" && result != -1));
    }

    /* Whatever is not zero suppresses a report: another number at each place of a path. */
    long suppression() const
    {
        constexpr long numbers[] = {1, -1, 2, 256, 65536};
        return numbers[depth % std::size(numbers)];
    }

    /* Quiet prints leave errno alone; on a noisy console every print of the report changes it. */
    sys::Answer print(long usual)
    {
        if (prints++ == 0) {
            noisy = choose("console", most > brief_answers ? 2 : 1, [](size_t taken) {
                        return sys::Answer{(long)taken};
                    }).result != 0;
        }
        return {usual, noisy ? console_error + prints : 0};
    }

    bool in_pairs;
    /* How many answers a call has at most: the first one, this one, and the next one. Reports go with this one. */
    size_t all;
    size_t most = 0;
    size_t soon = 0;
    size_t depth = 0;
    bool noisy = false;
    int prints = 0;
};

/* ---- One run: of the module, and of the text on the path that it took ------------------------------------------- */

struct Seen {
    std::string result;
    sys::Trace trace;
    std::set<int> open;
    std::set<std::string> held;
    int error;
    std::string console; /* what went past the printf that is stood in for */
    Caller memory;
};

/* Standard output while a run lasts; what a run prints there is compared, not shown. Standard error is not shown
 * either: the assertion handler reports there, and is in the trace. */
class Console
{
  public:
    Console() : output(stdout), error(stderr)
    {
        static FILE *const nowhere = fopen("/dev/null", "w");
        stderr = nowhere;
        stdout = memory();
        rewind(stdout);
    }
    ~Console()
    {
        stdout = output;
        stderr = error;
    }
    Console(const Console &) = delete;
    Console &operator=(const Console &) = delete;

    std::string printed() const
    {
        const long length = ftell(stdout);
        fflush(stdout);
        return std::string(bytes, (size_t)length);
    }

  private:
    static FILE *memory()
    {
        static FILE *stream = open_memstream(&bytes, &size);
        return stream;
    }

    static char *bytes;
    static size_t size;
    FILE *const output;
    FILE *const error;
};
char *Console::bytes;
size_t Console::size;

std::string shown(long result, bool is_text)
{
    const char *text = reinterpret_cast<const char *>(result);
    return !is_text              ? std::to_string(result)
           : text == nullptr     ? "null"
           : text == caller.text ? "the caller's text"
                                 : '"' + std::string(text) + '"';
}

/* An array that the caller was given counts by what it holds, not by where it lies. */
std::string fetched(long count)
{
    kel_sockaddr_t *const records = caller.addresses;
    caller.addresses = &caller.record;
    return records == &caller.record                   ? ""
           : records == nullptr                        ? ", no records"
           : sys::held_block(records) == std::string() ? ", records released"
                                                       : ", records " + sys::hex(records, (size_t)count * 112);
}

/* Calls a function of the module or of the text, with what a trial says. */
using Callers = std::function<long(const std::string &name, const std::vector<long> &arguments)>;

Seen run(const Function &function, const Trial &trial, Walk &walk, Machine &machine, const Callers &call)
{
    Seen seen;
    renew(trial);
    walk.begin();
    Console console;
    sys::Recording recording([&](const std::string &name, long usual) {
        const sys::Answer answer = walk.decide(name, usual);
        if (name != "printf" && name != "filter") {
            machine.answered(walk.taken());
        }
        return answer;
    });
    machine.trace = &recording.trace();
    errno = error_at_start;
    auto values = [&](const std::vector<Expression> &expressions) {
        std::vector<long> all;
        for (const Expression &expression : expressions) {
            all.push_back(machine.value(expression));
        }
        return all;
    };
    for (const Expression &before : trial.before) {
        call(before.name, values(before.of));
    }
    const long result = call(function.name, values(trial.arguments));
    seen.error = errno;
    seen.result = shown(result, module_function(function.name)->gives_text) + fetched(result);
    seen.trace = recording.trace();
    seen.open = recording.open();
    seen.held = recording.held();
    seen.console = console.printed();
    seen.memory = caller;
    return seen;
}

long call_module(const std::string &name, const std::vector<long> &arguments)
{
    return module_function(name)->call(arguments.data());
}

/* ---- Mismatches, as text ----------------------------------------------------------------------------------------- */

std::string readable(const std::string &line)
{
    std::string shown;
    for (char c : line) {
        shown += c == '\033' ? "\\033" : c == '\r' ? "\\r" : c == '\n' ? "\\n" : std::string(1, c);
    }
    return shown;
}

/* The choices of a path that are not the first ones. */
std::string shown(const Path &path)
{
    std::string text;
    for (const Choice &choice : path) {
        if (choice.taken != 0) {
            text += (text.empty() ? "" : ", ") + choice.call + " = " + std::to_string(choice.answer.result) +
                    (choice.answer.error != 0 ? " errno " + std::to_string(choice.answer.error) : "");
        }
    }
    return text.empty() ? "every call has its usual result" : text;
}

std::string shown(const std::set<int> &descriptors)
{
    std::string text;
    for (int fd : descriptors) {
        text += std::to_string(fd) + " ";
    }
    return text.empty() ? "none" : text;
}

std::string shown(const std::set<std::string> &memory)
{
    std::string text;
    for (const std::string &name : memory) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text.empty() ? "none" : text;
}

std::string differ(const std::string &what, const std::string &expected, const std::string &seen)
{
    return "  " + what + "\n    expected: " + readable(expected) + "\n    seen:     " + readable(seen) + "\n";
}

std::string place_of(const Statement *statement)
{
    return statement == nullptr ? "" : ", at " + statement->place + ": " + statement->text;
}

/* A question to the filter names a line of the source: what is reported there. */
std::string explained(const std::string &line)
{
    for (const Position &position : source().positions) {
        const std::string number = "." + std::to_string(position.line) + ")";
        if (line.rfind("filter(", 0) == 0 && line.find(number) != std::string::npos) {
            return line + "   " + position.name;
        }
    }
    return line + (line.find(".0)") == std::string::npos ? "" : "   which the source does not report");
}

std::string difference(const sys::Trace &expected, const sys::Trace &seen, const Machine &machine)
{
    size_t line = 0;
    while (line < expected.size() && line < seen.size() && expected[line] == seen[line]) {
        line++;
    }
    auto call = [=](const sys::Trace &trace) { return line < trace.size() ? explained(trace[line]) : "the end"; };
    const Statement *origin = line < machine.origins.size() ? machine.origins[line] : machine.last;
    return differ("call " + std::to_string(line + 1) + place_of(origin), call(expected), call(seen));
}

std::string difference(const Caller &expected, const Caller &seen)
{
    auto left = reinterpret_cast<const unsigned char *>(&expected);
    auto right = reinterpret_cast<const unsigned char *>(&seen);
    size_t at = 0;
    while (at < sizeof(Caller) && left[at] == right[at]) {
        at++;
    }
    const Part *part = parts;
    for (const Part &candidate : parts) {
        const bool before = candidate.place <= reinterpret_cast<const unsigned char *>(&caller) + at;
        part = before && candidate.place >= part->place ? &candidate : part;
    }
    const size_t start = (size_t)((const char *)part->place - (const char *)&caller);
    return differ("byte " + std::to_string(at - start) + " of " + part->name, sys::hex(left + at, 1),
                  sys::hex(right + at, 1));
}

std::string difference(const Seen &expected, const Seen &seen, const Machine &machine)
{
    std::string text;
    if (expected.trace != seen.trace) {
        text += difference(expected.trace, seen.trace, machine);
    }
    if (expected.result != seen.result) {
        text += differ("result" + place_of(machine.last), expected.result, seen.result);
    }
    if (expected.error != seen.error) {
        text += differ("errno", std::to_string(expected.error), std::to_string(seen.error));
    }
    if (expected.open != seen.open) {
        text += differ("left open", shown(expected.open), shown(seen.open));
    }
    if (expected.held != seen.held) {
        text += differ("not released", shown(expected.held), shown(seen.held));
    }
    if (expected.console != seen.console) {
        text += differ("console", expected.console, seen.console);
    }
    if (memcmp(&expected.memory, &seen.memory, sizeof(Caller)) != 0) {
        text += difference(expected.memory, seen.memory);
    }
    return text;
}

/* ---- A run that crashes still has to be named -------------------------------------------------------------------- */

const Trial *running;
const Walk *walking;
struct sigaction former_action;

void name_the_crash(int, siginfo_t *, void *)
{
    const std::string text = "\nCrashed at " + running->place + ": " + running->text + ": " + shown(walking->path) +
                             "\n"; /* allocates memory: if that crashes as well, the name is lost */
    (void)!write(STDERR_FILENO, text.data(), text.size());
    sigaction(SIGSEGV, &former_action, nullptr); /* the faulting instruction runs again */
}

class NameCrashes
{
  public:
    NameCrashes(const Trial &trial, const Walk &walk)
    {
        running = &trial;
        walking = &walk;
        struct sigaction action = {};
        action.sa_sigaction = name_the_crash;
        action.sa_flags = SA_SIGINFO;
        sigaction(SIGSEGV, &action, &former_action);
    }
    ~NameCrashes()
    {
        sigaction(SIGSEGV, &former_action, nullptr);
    }
    NameCrashes(const NameCrashes &) = delete;
    NameCrashes &operator=(const NameCrashes &) = delete;
};

/* A module that calls in a loop has no last path. */
constexpr size_t enough_mismatches = 1000;

void explore(const Function &function, const Trial &trial, Exploration &exploration)
{
    Walk walk(trial.depth);
    NameCrashes name_crashes(trial, walk);
    do {
        Machine idle;
        const Seen seen = run(function, trial, walk, idle, call_module);
        Walk again = walk;
        Machine machine;
        machine.is_noisy = [&] { return again.is_noisy(); };
        auto as_the_text_says = [&](const std::string &name, const std::vector<long> &arguments) {
            return machine.call(*function_named(name), arguments);
        };
        const Seen expected = run(function, trial, again, machine, as_the_text_says);
        const std::string text = difference(expected, seen, machine);
        exploration.leaves++;
        if (!text.empty() && exploration.mismatches++ == 0) {
            exploration.first = trial.place + ": " + trial.text + ": " + shown(walk.path) + "\n" + text;
        }
    } while (exploration.mismatches < enough_mismatches && walk.next());
}

} // namespace

void *memory_of_caller(const std::string &name)
{
    for (const Part &part : parts) {
        if (part.name == name) {
            return const_cast<void *>(part.place);
        }
    }
    return nullptr;
}

const Exploration &explored(const std::string &function)
{
    auto [place, first] = explorations.emplace(function, Exploration());
    if (first) {
        for (const Part &part : parts) {
            sys::name_pointer(part.place, part.name);
        }
        for (const Trial &trial : function_named(function)->trials) {
            explore(*function_named(function), trial, place->second);
        }
    }
    return place->second;
}
