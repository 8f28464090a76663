#include "options.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "channel.h"
#include "say.h"

namespace
{

const unsigned streams = Tcp | UnixStream;
const unsigned datagrams = Udp | UnixDatagram;
const unsigned every = streams | datagrams | Sctp | Packet;

const char help_head[] =
    "Usage: kelcat ENDPOINT [OPTION]...\n"
    "Joins an endpoint of the socket module to standard input and output.\n"
    "\n"
    "Endpoints (ADDR: IPv4, [IPv6] or a name; a listener without ADDR takes every IPv4 address)\n"
    "  tcp:ADDR:PORT    tcp-listen:[ADDR:]PORT     stream; a listener takes one connection\n"
    "  udp:ADDR:PORT    udp-listen:[ADDR:]PORT     datagrams; a listener belongs to its first sender\n"
    "  sctp:ADDR[,ADDR]...:PORT    sctp-listen:[ADDR[,ADDR]...:]PORT    messages of one association\n"
    "  unix:PATH        unix-listen:PATH           local stream\n"
    "  unix-dgram:PATH  unix-dgram-listen:PATH     local datagrams; answered only with --local\n"
    "  packet:INTERFACE[,PROTOCOL]                 link-layer frames, of every protocol or of one\n"
    "Options (in front of the colon: the endpoints that take it); an abbreviation will do\n";

const char help_tail[] =
    "Exit status: 0 done; 1 the endpoint could not be opened; 2 bad usage; 3 not all was delivered;\n"
    "  129, 130, 143 ended by SIGHUP, SIGINT, SIGTERM.\n"
    "Examples\n"
    "  kelcat tcp-listen:9000 > file                      kelcat tcp:localhost:9000 < file\n"
    "  kelcat udp:[::1]:9000 --send-only < file           kelcat unix:/run/app.sock\n"
    "  kelcat sctp-listen:9000 > file                     kelcat sctp:10.1.0.2,10.2.0.2:9000 < file\n"
    "  kelcat packet:eth0,0x88b5 --count 1 > frame.txt    kelcat packet:eth1 --send-only < frame.txt\n";

/* ---- Values ------------------------------------------------------------------------------------------------------ */

double seconds(const std::string &text)
{
    char *end;
    double value = strtod(text.c_str(), &end);
    if (!isdigit((unsigned char)text[0]) || *end != '\0' || !(value > 0 && value <= 1e6)) {
        bad_usage("\"%s\" is no time: give seconds, more than 0 and at most 1000000", text.c_str());
    }
    return value;
}

void rate(Options *options, const std::string &text)
{
    const size_t digits = text.find_last_not_of("km") + 1;
    const double unit = digits + 1 != text.size() ? 1 : text.back() == 'k' ? 1 << 10 : 1 << 20;
    const std::string number = unit != 1 ? text.substr(0, digits) : text;
    options->rate = unit * (double)parse_number(number, 10, 1, 1000000000, "rate");
}

void check_path(const std::string &path)
{
    if (path.empty() || path.size() >= sizeof(sockaddr_un::sun_path)) {
        bad_usage("the path \"%s\" has %zu characters: give 1 to %zu", path.c_str(), path.size(),
                  sizeof(sockaddr_un::sun_path) - 1);
    }
}

[[noreturn]]
void print_and_exit(const std::string &text)
{
    if (fputs(text.c_str(), stdout) == EOF || fflush(stdout) == EOF) {
        say("cannot write to standard output: %s", strerror(errno));
        exit(3);
    }
    exit(0);
}

void print_version(Options *, const std::string &)
{
    print_and_exit("kelcat " KELCAT_VERSION "\n");
}

void print_help(Options *, const std::string &);

/* How a value is stored: one for each kind of value. */

template <bool Options::*member> void flag(Options *options, const std::string &)
{
    options->*member = true;
}

template <double Options::*member> void time(Options *options, const std::string &text)
{
    options->*member = seconds(text);
}

/* ---- The table --------------------------------------------------------------------------------------------------- */

const struct Option {
    const char *name;
    const char *argument; /* null: it takes none */
    unsigned takers;      /* transports */
    bool listeners;       /* whether those of them that listen take it */
    char letter;          /* 0: none */
    const char *help;
    void (*store)(Options *options, const std::string &value);
} table[] = {
    {"local", "ADDRESS", Tcp | Udp | Sctp | UnixDatagram, false, 0, "own ADDR:PORT, ADDR[,ADDR]...[:PORT] or PATH",
     [](Options *options, const std::string &text) { options->local_text = text; }},
    {"send-only", nullptr, every, true, 0, "what is received is discarded", flag<&Options::send_only>},
    {"recv-only", nullptr, every, true, 0, "standard input is not read", flag<&Options::recv_only>},
    {"timeout", "SECONDS", streams | Sctp, false, 0, "to connect within, over all addresses of a name",
     time<&Options::timeout>},
    {"idle", "SECONDS", every, true, 0, "end after so much silence", time<&Options::idle>},
    {"size", "BYTES", datagrams | Sctp, true, 0, "of a datagram (1400, 8192) or message (8192)",
     [](Options *options, const std::string &text) { options->size = parse_number(text, 10, 1, 200000, "size"); }},
    {"rate", "BYTES[k|m]", datagrams | Packet, true, 0, "a second (packet 4m, udp to other machines 8m)", rate},
    {"count", "N", datagrams | Packet, true, 0, "the Nth datagram or frame is the peer's end",
     [](Options *options, const std::string &text) {
         options->count = parse_number(text, 10, 1, 1000000000, "count");
     }},
    {"raw", nullptr, Packet, true, 0, "plain bytes, not hexadecimal; all of the input is one frame",
     flag<&Options::raw>},
    {"one-to-many", nullptr, Sctp, true, 0, "a socket of the one-to-many style", flag<&Options::one_to_many>},
    {"streams", "N", Sctp, true, 0, "so many at most, used in turn; each keeps its own order alone",
     [](Options *options, const std::string &text) {
         options->streams = (uint16_t)parse_number(text, 10, 1, 65535, "number of streams");
     }},
    {"ppid", "N", Sctp, true, 0, "payload protocol identifier, as it is read on the wire (0)",
     [](Options *options, const std::string &text) {
         options->ppid = (uint32_t)parse_number(text, 0, 0, UINT32_MAX, "payload protocol identifier");
     }},
    {"verbose", nullptr, every, true, 'v',
     "addresses, totals and the module's reports, on standard error; sctp: paths and notifications, as in "
     "\"2.345 path 10.1.0.2 active, primary\"",
     flag<&Options::verbose>},
    {"quiet", nullptr, every, true, 'q', "no progress line", flag<&Options::quiet>},
    {"help", nullptr, every, true, 'h', "", print_help},
    {"version", nullptr, every, true, 0, "", print_version},
};

std::string names_of(unsigned transports, const char *last_separator)
{
    std::string list;
    for (unsigned rest = transports, bit = 1; rest != 0; bit <<= 1) {
        if ((rest & bit) != 0) {
            rest &= ~bit;
            list += list.empty() ? "" : rest != 0 ? ", " : last_separator;
            list += transport_name(bit);
        }
    }
    return list;
}

/* Words behind a first column, in lines of at most 100 characters. */
std::string wrapped(std::string line, size_t indent, const std::string &words)
{
    std::string text;
    for (size_t at = 0, end; at < words.size(); at = end + 1) {
        end = std::min(words.find(' ', at), words.size());
        if (line.size() + 1 + end - at > 100) {
            text += line + '\n';
            line.clear();
        }
        line.resize(std::max(line.size() + 1, indent), ' ');
        line += words.substr(at, end - at);
    }
    return text + line + '\n';
}

void print_help(Options *, const std::string &)
{
    std::string text = help_head;
    for (const Option &option : table) {
        std::string name = option.letter != 0 ? std::string("  -") + option.letter + ", --" : "  --";
        name += option.name;
        name += option.argument != nullptr ? std::string(" ") + option.argument : "";
        const std::string takers = option.takers != every ? names_of(option.takers, ", ") + ": " : "";
        text += wrapped(name, 24, takers + option.help);
    }
    text += frame_format;
    text += "What ends a transfer\n";
    for (const char *rule : {stream_rule, datagram_rule, packet_rule, sctp_rule}) {
        text += wrapped("", 2, rule);
    }
    print_and_exit(text + help_tail);
}

/* ---- Reading it -------------------------------------------------------------------------------------------------- */

const Option &find_option(const std::string &name)
{
    std::string candidates;
    const Option *found = nullptr;
    for (const Option &option : table) {
        if (name == option.name) {
            return option;
        }
        if (std::string(option.name).compare(0, name.size(), name) == 0) {
            candidates += (found == nullptr ? "--" : ", --") + std::string(option.name);
            found = &option;
        }
    }
    if (found == nullptr) {
        bad_usage("\"--%s\" is no option: see kelcat --help", name.c_str());
    }
    if (candidates.find(',') != std::string::npos) {
        bad_usage("\"--%s\" is ambiguous: %s", name.c_str(), candidates.c_str());
    }
    return *found;
}

const Option &find_letter(char letter)
{
    for (const Option &option : table) {
        if (option.letter == letter) {
            return option;
        }
    }
    bad_usage("\"-%c\" is no option: see kelcat --help", letter);
}

/* One argument, and the value behind it; returns how many of the arguments that makes. */
int take_option(Options *options, const std::string &text, const char *next, std::vector<const Option *> *given)
{
    if (text[1] != '-') {
        for (const char letter : text.substr(1)) {
            given->push_back(&find_letter(letter));
            given->back()->store(options, "");
        }
        return 1;
    }
    const size_t equals = text.find('=');
    const bool attached = equals != std::string::npos;
    const Option &option = find_option(text.substr(2, attached ? equals - 2 : equals));
    given->push_back(&option);
    if (option.argument == nullptr) {
        if (attached) {
            bad_usage("--%s takes no value", option.name);
        }
        option.store(options, "");
        return 1;
    }
    if (!attached && next == nullptr) {
        bad_usage("--%s needs a value: see kelcat --help", option.name);
    }
    const std::string value = attached ? text.substr(equals + 1) : next;
    if (value.empty()) {
        bad_usage("--%s is empty: give it %s", option.name, option.argument);
    }
    option.store(options, value);
    return attached ? 1 : 2;
}

/* Whether the endpoint takes the option is seen when both are known. */
void check_option(const Options &options, const Option &option)
{
    if ((option.takers & options.transport) == 0 || (options.listen && !option.listeners)) {
        bad_usage("--%s is for %s endpoints %s", option.name, names_of(option.takers, " and ").c_str(),
                  option.listeners ? "alone" : "that do not listen");
    }
}

void parse_endpoint(const std::string &text, Options *options)
{
    size_t colon = text.find(':');
    std::string name = text.substr(0, colon);
    const size_t suffix = name.rfind("-listen");
    options->endpoint = text;
    options->listen = suffix != std::string::npos && suffix + strlen("-listen") == name.size();
    name.resize(options->listen ? suffix : name.size());

    unsigned bit = Tcp;
    while (bit <= Packet && name != transport_name(bit)) {
        bit <<= 1;
    }
    if (colon == std::string::npos || bit > Packet || (bit == Packet && options->listen)) {
        bad_usage("\"%s\" is no endpoint: kelcat --help lists them", text.c_str());
    }
    options->transport = (Transport)bit;

    const std::string rest = text.substr(colon + 1);
    if ((bit & (UnixStream | UnixDatagram)) != 0) {
        check_path(rest);
        options->place.path = rest;
    } else if (bit == Packet) {
        size_t comma = rest.rfind(',');
        options->interface = rest.substr(0, comma);
        if (options->interface.empty()) {
            bad_usage("\"%s\" names no interface: give packet:INTERFACE[,PROTOCOL]", text.c_str());
        }
        if (comma != std::string::npos) {
            options->protocol = (uint16_t)parse_number(rest.substr(comma + 1), 0, 1, 65535, "protocol");
        }
    } else {
        options->place = parse_place(rest, {!options->listen, true, options->listen ? 0ul : 1ul, bit == Sctp, true});
        if (options->place.hosts.empty()) {
            options->place.hosts.emplace_back("0.0.0.0");
        }
    }
}

void parse_local(Options *options)
{
    if (options->transport == UnixDatagram) {
        check_path(options->local_text);
        return;
    }
    const bool sctp = options->transport == Sctp;
    const Place place = parse_place(options->local_text, {true, !sctp, 1, sctp, false});
    const int family = numeric_family(place.hosts.front());
    for (const std::string &host : options->place.hosts) {
        if (numeric_family(host) != AF_UNSPEC && numeric_family(host) != family) {
            bad_usage("--local %s and %s are of two families: give both as IPv4 or both as IPv6",
                      options->local_text.c_str(), options->endpoint.c_str());
        }
    }
    for (const std::string &host : place.hosts) {
        kel_sockaddr_t record = {};
        kel_addr_fill(0, &record, (kel_domain_t)family, (SHORT)place.port, host.c_str(), 0, nullptr);
        options->local.push_back(record);
    }
}

/* What one option asks of the endpoint or of another option, and the values that nobody gave. */
void complete(Options *options)
{
    if (options->send_only && options->recv_only) {
        bad_usage("--send-only and --recv-only exclude each other");
    }
    const size_t most = options->transport == Udp ? 65507 : options->transport == Sctp ? 65536 : 200000;
    if (options->size > most) {
        bad_usage("\"%zu\" is no size here: give a number from 1 to %zu", options->size, most);
    }
    if (options->size == 0) {
        options->size = options->transport == Udp ? 1400 : 8192;
    }
    if (options->transport == Packet && !options->send_only) {
        options->recv_only = true;
    }
    /* Nobody can answer a sender without a path. */
    if (options->transport == UnixDatagram && !options->listen && options->local_text.empty()) {
        if (options->recv_only) {
            bad_usage("--recv-only needs --local PATH here: without a path nothing can be received");
        }
        options->send_only = true;
    }
}

} // namespace

Options parse_options(int argc, char **argv)
{
    Options options;
    std::vector<const Option *> given;
    const char *endpoint = nullptr;
    for (int i = 1; i < argc;) {
        if (argv[i][0] == '-' && argv[i][1] != '\0') {
            i += take_option(&options, argv[i], argv[i + 1], &given);
            continue;
        }
        if (endpoint != nullptr) {
            bad_usage("\"%s\" is one argument too many: give one endpoint", argv[i]);
        }
        endpoint = argv[i++];
    }
    if (endpoint == nullptr) {
        bad_usage("an endpoint is missing, such as tcp:127.0.0.1:9000: see kelcat --help");
    }
    parse_endpoint(endpoint, &options);
    for (const Option *option : given) {
        check_option(options, *option);
    }
    if (!options.local_text.empty()) {
        parse_local(&options);
    }
    complete(&options);
    return options;
}
