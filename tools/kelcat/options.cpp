#include "options.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

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

/* ---- The table --------------------------------------------------------------------------------------------------- */

const struct Option {
    const char *name;
    const char *argument; /* null: it takes none */
    const char *help;
    unsigned takers; /* transports */
    bool listeners;  /* whether those of them that listen take it */
    char letter;     /* 0: none */
} table[] = {
    {"local", "ADDRESS",
     "own ADDR:PORT,\n"
     "                        ADDR[,ADDR]...[:PORT] or PATH",
     Tcp | Udp | Sctp | UnixDatagram, false, 0},
    {"send-only", nullptr, "what is received is discarded", every, true, 0},
    {"recv-only", nullptr, "standard input is not read", every, true, 0},
    {"timeout", "SECONDS", "to connect, over all addresses of a name", streams | Sctp, false, 0},
    {"idle", "SECONDS", "end after so much silence", every, true, 0},
    {"size", "BYTES", "of a datagram (1400, 8192) or message (8192)", datagrams | Sctp, true, 0},
    {"rate", "BYTES[k|m]", "a second (packet 4m, udp to other machines 8m)", datagrams | Packet, true, 0},
    {"count", "N", "the Nth datagram or frame is the peer's end", datagrams | Packet, true, 0},
    {"raw", nullptr, "plain bytes, not hexadecimal; all of the input is one frame", Packet, true, 0},
    {"one-to-many", nullptr, "a socket of the one-to-many style", Sctp, true, 0},
    {"streams", "N", "so many at most, used in turn; each keeps its own order alone", Sctp, true, 0},
    {"ppid", "N", "payload protocol identifier, as it is read on the wire (0)", Sctp, true, 0},
    {"verbose", nullptr,
     "addresses, totals and the module's reports, on standard error; sctp: paths\n"
     "                        and notifications, as in \"2.345 path 10.1.0.2 active, primary\"",
     every, true, 'v'},
    {"quiet", nullptr, "no progress line", every, true, 'q'},
    {"help", nullptr, "print this and end", every, true, 'h'},
    {"version", nullptr, "print the version and end", every, true, 0},
};

/* Of the options that were given; empty: the option takes none. */
using Values = std::map<std::string, std::string>;

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

std::string help()
{
    std::string text = help_head;
    for (const Option &option : table) {
        std::string line = option.letter != 0 ? std::string("  -") + option.letter + ", --" : "  --";
        line += option.name;
        line += option.argument != nullptr ? std::string(" ") + option.argument : "";
        line.resize(*option.help != '\0' ? 24 : line.size(), ' ');
        if (option.takers != every) {
            line += names_of(option.takers, ", ") + (option.listeners ? ": " : " (not -listen): ");
        }
        text += line + option.help + '\n';
    }
    text += frame_format;
    text += "What ends a transfer\n";
    for (const char *rule : {stream_rule, datagram_rule, packet_rule, sctp_rule}) {
        text += rule;
    }
    return text + help_tail;
}

/* ---- Reading the arguments --------------------------------------------------------------------------------------- */

const Option &find_option(const std::string &text)
{
    std::string candidates;
    const Option *found = nullptr;
    for (const Option &option : table) {
        const std::string name = std::string("--") + option.name;
        if (text == name || (text.size() == 2 && text[1] == option.letter)) {
            return option;
        }
        if (text.size() > 2 && name.compare(0, text.size(), text) == 0) {
            candidates += (found == nullptr ? "" : ", ") + name;
            found = &option;
        }
    }
    if (found == nullptr) {
        bad_usage("\"%s\" is no option: see kelcat --help", text.c_str());
    }
    if (candidates.find(',') != std::string::npos) {
        bad_usage("\"%s\" is ambiguous: %s", text.c_str(), candidates.c_str());
    }
    return *found;
}

/* Returns whether the next argument was its value. */
bool take_option(const std::string &text, const char *next, Values *values)
{
    const size_t equals = text.find('=');
    const bool attached = equals != std::string::npos;
    const Option &option = find_option(text.substr(0, equals));
    if (option.argument == nullptr) {
        if (attached) {
            bad_usage("--%s takes no value", option.name);
        }
        (*values)[option.name] = "";
        return false;
    }
    if (!attached && next == nullptr) {
        bad_usage("--%s needs a value: see kelcat --help", option.name);
    }
    const std::string value = attached ? text.substr(equals + 1) : next;
    if (value.empty()) {
        bad_usage("--%s is empty: give it %s", option.name, option.argument);
    }
    (*values)[option.name] = value;
    return !attached;
}

/* Whether the endpoint takes them is seen when it is known. */
void check_takers(const Options &options, const Values &values)
{
    for (const Option &option : table) {
        const bool taken = (option.takers & options.transport) != 0 && (option.listeners || !options.listen);
        if (values.count(option.name) != 0 && !taken) {
            bad_usage("--%s is for %s endpoints %s", option.name, names_of(option.takers, " and ").c_str(),
                      option.listeners ? "alone" : "that do not listen");
        }
    }
}

/* ---- What they say ----------------------------------------------------------------------------------------------- */

double seconds(const std::string &text)
{
    char *end;
    const double value = strtod(text.c_str(), &end);
    if (!isdigit((unsigned char)text[0]) || *end != '\0' || !(value > 0 && value <= 1e6)) {
        bad_usage("\"%s\" is no time: give seconds, more than 0 and at most 1000000", text.c_str());
    }
    return value;
}

double rate(std::string text)
{
    const double unit = text.back() == 'k' ? 1 << 10 : text.back() == 'm' ? 1 << 20 : 1;
    text.resize(text.size() - (unit != 1));
    return unit * (double)parse_number(text, 10, 1, 1000000000, "rate");
}

void check_path(const std::string &path)
{
    if (path.empty() || path.size() >= sizeof(sockaddr_un::sun_path)) {
        bad_usage("the path \"%s\" has %zu characters: give 1 to %zu", path.c_str(), path.size(),
                  sizeof(sockaddr_un::sun_path) - 1);
    }
}

void parse_endpoint(Options *options)
{
    const std::string &text = options->endpoint;
    size_t colon = text.find(':');
    std::string name = text.substr(0, colon);
    const size_t suffix = name.rfind("-listen");
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
    if (options->place.family != AF_UNSPEC && options->place.family != place.family) {
        bad_usage("--local %s and %s are of two families: give both as IPv4 or both as IPv6",
                  options->local_text.c_str(), options->endpoint.c_str());
    }
    for (const std::string &host : place.hosts) {
        kel_sockaddr_t record = {};
        kel_addr_fill(0, &record, (kel_domain_t)place.family, (SHORT)place.port, host.c_str(), 0, nullptr);
        options->local.push_back(record);
    }
}

void read_values(Options *options, const Values &values)
{
    const auto given = [&](const char *name) { return values.count(name) != 0; };
    const auto number = [&](const char *name, int base, unsigned long least, unsigned long most, const char *what) {
        return given(name) ? parse_number(values.at(name), base, least, most, what) : 0;
    };
    const size_t largest = options->transport == Udp ? 65507 : options->transport == Sctp ? 65536 : 200000;

    options->send_only = given("send-only");
    options->recv_only = given("recv-only");
    options->timeout = given("timeout") ? seconds(values.at("timeout")) : 0;
    options->idle = given("idle") ? seconds(values.at("idle")) : 0;
    options->size = number("size", 10, 1, largest, "size");
    options->rate = given("rate") ? rate(values.at("rate")) : 0;
    options->count = number("count", 10, 1, 1000000000, "count");
    options->raw = given("raw");
    options->one_to_many = given("one-to-many");
    options->streams = (uint16_t)number("streams", 10, 1, 65535, "number of streams");
    options->ppid = (uint32_t)number("ppid", 0, 0, UINT32_MAX, "payload protocol identifier");
    options->verbose = given("verbose");
    options->quiet = given("quiet");
    if (given("local")) {
        options->local_text = values.at("local");
        parse_local(options);
    }
}

/* What one option asks of another, and the values that nobody gave. */
void complete(Options *options)
{
    if (options->send_only && options->recv_only) {
        bad_usage("--send-only and --recv-only exclude each other");
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
    Values values;
    for (int i = 1; i < argc; i++) {
        if (argv[i][0] == '-' && argv[i][1] != '-' && argv[i][1] != '\0') {
            for (const char *letter = argv[i] + 1; *letter != '\0'; letter++) {
                take_option({'-', *letter}, nullptr, &values);
            }
        } else if (argv[i][0] == '-' && argv[i][1] != '\0') {
            i += take_option(argv[i], argv[i + 1], &values) ? 1 : 0;
        } else if (options.endpoint.empty()) {
            options.endpoint = argv[i];
        } else {
            bad_usage("\"%s\" is one argument too many: give one endpoint", argv[i]);
        }
    }
    if (values.count("help") + values.count("version") != 0) {
        const std::string text = values.count("help") != 0 ? help() : "kelcat " KELCAT_VERSION "\n";
        const bool told = fputs(text.c_str(), stdout) != EOF && fflush(stdout) != EOF;
        if (!told) {
            say("cannot write to standard output: %s", strerror(errno));
        }
        exit(told ? 0 : 3);
    }
    if (options.endpoint.empty()) {
        bad_usage("an endpoint is missing, such as tcp:127.0.0.1:9000: see kelcat --help");
    }
    parse_endpoint(&options);
    check_takers(options, values);
    read_values(&options, values);
    complete(&options);
    return options;
}
