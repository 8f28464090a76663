#include "arguments.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <unistd.h>

#include "progress.h"

namespace
{

const char help[] =
    "Usage: kelcat ENDPOINT [OPTION]...\n"
    "Joins an endpoint of the socket module to standard input and output.\n"
    "\n"
    "Endpoints (ADDR: numeric IPv4, or IPv6 in brackets; a listener without ADDR takes every IPv4 one)\n"
    "  tcp:ADDR:PORT    tcp-listen:[ADDR:]PORT     stream; a listener takes one connection\n"
    "  udp:ADDR:PORT    udp-listen:[ADDR:]PORT     datagrams; a listener answers the latest sender\n"
    "  sctp:ADDR[,ADDR]...:PORT    sctp-listen:[ADDR[,ADDR]...:]PORT    messages of one association\n"
    "  unix:PATH        unix-listen:PATH           local stream\n"
    "  unix-dgram:PATH  unix-dgram-listen:PATH     local datagrams; answered only with --local\n"
    "  packet:INTERFACE[,PROTOCOL]                 link-layer frames, of every protocol or of one\n"
    "Options\n"
    "  --local ADDR:PORT     own address: tcp, udp; ADDR[,ADDR]...[:PORT]: sctp; PATH: unix-dgram\n"
    "  --send-only           what is received is discarded\n"
    "  --recv-only           standard input is not read\n"
    "  --idle SECONDS        end after so much silence\n"
    "  --size BYTES          of a datagram (udp 1400, unix-dgram 8192) or message (8192): of one read\n"
    "  --rate BYTES[k|m]     datagrams and frames, bytes a second (packet 4m; udp to other machines 8m)\n"
    "  --count N             end after N datagrams or frames received\n"
    "  --raw                 packet: plain bytes, not hexadecimal; all of the input is one frame\n"
    "  --one-to-many         sctp: a socket of the one-to-many style\n"
    "  --streams N           sctp: so many streams at most, used in turn; each keeps its own order alone\n"
    "  --ppid N              sctp: payload protocol identifier, as it is read on the wire (0)\n"
    "  -v, --verbose         addresses, totals and the module's reports, all on standard error;\n"
    "                        sctp: paths and notifications, as in \"2.345 path 10.1.0.2 active, primary\"\n"
    "  -q, --quiet           no progress line\n"
    "  -h, --help    --version\n"
    "Frames are hexadecimal text both ways: '#' comments, then lines of an offset and up to 16 bytes,\n"
    "\"0010  08 00 45 ..\"; offset 0 begins the next frame. packet: receives, or sends with --send-only.\n"
    "It shows incoming frames; with -v, unless --raw, the machine's own too, marked \"out\".\n"
    "What ends a transfer\n"
    "  Streams: the end of the input closes the sending side, and receiving goes on until the peer ends.\n"
    "  After the peer's end the input is sent on, until it ends or is silent for 0.5 s; a terminal's\n"
    "  input ends at once. --send-only: the end of the input alone.\n"
    "  Datagrams: the same, with an empty datagram as the end mark, both ways (socat: null-eof,\n"
    "  shut-null). A peer that sends no mark: --send-only, --count or --idle ends it.\n"
    "  SCTP ends both ways at once and delivers what was sent. Who has sent data ends it, after the end\n"
    "  of the input and 0.5 s without an answer (--send-only: at once); who has not waits for the peer,\n"
    "  a client 0.5 s for its first data; with --recv-only there is no such limit.\n"
    "Exit status: 0 done; 1 the endpoint could not be opened; 2 bad usage; 3 the transfer broke;\n"
    "  130, 143 interrupted (SIGINT, SIGTERM).\n"
    "Examples\n"
    "  kelcat tcp-listen:9000 > file                      kelcat tcp:192.0.2.1:9000 < file\n"
    "  kelcat udp:[::1]:9000 --send-only < file           kelcat unix:/run/app.sock\n"
    "  kelcat sctp-listen:9000 > file                     kelcat sctp:10.1.0.2,10.2.0.2:9000 < file\n"
    "  kelcat packet:eth0,0x88b5 --count 1 > frame.txt    kelcat packet:eth1 --send-only < frame.txt\n";

const struct Form {
    const char *name;
    Transport transport;
    bool listen;
} forms[] = {
    {"tcp", Transport::Tcp, false},
    {"tcp-listen", Transport::Tcp, true},
    {"udp", Transport::Udp, false},
    {"udp-listen", Transport::Udp, true},
    {"sctp", Transport::Sctp, false},
    {"sctp-listen", Transport::Sctp, true},
    {"unix", Transport::UnixStream, false},
    {"unix-listen", Transport::UnixStream, true},
    {"unix-dgram", Transport::UnixDatagram, false},
    {"unix-dgram-listen", Transport::UnixDatagram, true},
    {"packet", Transport::Packet, false},
};

[[noreturn]]
__attribute__((format(printf, 1, 2))) void bad_usage(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    say_list(format, args);
    va_end(args);
    exit(2);
}

/* Digits alone in base 10, or 0x and digits in base 16 where base is 0. */
unsigned long number(const std::string &text, int base, unsigned long least, unsigned long most, const char *what)
{
    char *end;
    errno = 0;
    bool hexadecimal = base == 0 && text.size() > 2 && (text.compare(0, 2, "0x") == 0 || text.compare(0, 2, "0X") == 0);
    unsigned long value = strtoul(text.c_str(), &end, hexadecimal ? 16 : 10);
    if (text.empty() || !isdigit((unsigned char)text[0]) || *end != '\0' || errno != 0 || value < least ||
        value > most) {
        bad_usage("\"%s\" is no %s: give a number from %lu to %lu", text.c_str(), what, least, most);
    }
    return value;
}

double seconds(const char *text)
{
    char *end;
    double value = strtod(text, &end);
    if (!isdigit((unsigned char)text[0]) || *end != '\0' || !(value > 0 && value <= 1e6)) {
        bad_usage("\"%s\" is no time: give seconds, more than 0 and at most 1000000", text);
    }
    return value;
}

double rate(std::string text)
{
    double unit = 1;
    if (!text.empty() && (text.back() == 'k' || text.back() == 'm')) {
        unit = text.back() == 'k' ? 1024 : 1024 * 1024;
        text.pop_back();
    }
    return unit * (double)number(text, 10, 1, 1000000000, "rate");
}

void check_path_length(const std::string &path)
{
    if (path.empty() || path.size() >= sizeof(sockaddr_un::sun_path)) {
        bad_usage("the path \"%s\" has %zu characters: give 1 to %zu", path.c_str(), path.size(),
                  sizeof(sockaddr_un::sun_path) - 1);
    }
}

/* [ADDR[,ADDR...]:]PORT, with IPv6 addresses in brackets and all of one family. */
struct AddressPort {
    kel_domain_t family = KEL_AF_INET;
    std::vector<std::string> addresses;
    uint16_t port = 0;
};

void take_address(const std::string &text, std::string address, AddressPort *result)
{
    kel_domain_t family = KEL_AF_INET;
    if (address.size() >= 2 && address.front() == '[' && address.back() == ']') {
        family = KEL_AF_INET6;
        address = address.substr(1, address.size() - 2);
    }
    kel_sockaddr_t record;
    if (kel_inet_pton(family, address.c_str(), &record) != KEL_OK) {
        bad_usage("\"%s\" is no numeric address: give ADDR:PORT such as 127.0.0.1:9000 or [::1]:9000", text.c_str());
    }
    if (!result->addresses.empty() && family != result->family) {
        bad_usage("\"%s\" has addresses of two families: give all as IPv4 or all as IPv6", text.c_str());
    }
    result->family = family;
    result->addresses.push_back(address);
}

/* Which part must be there, and how many addresses: what the endpoints differ in. */
struct Demands {
    bool address;
    bool port;
    unsigned long least_port;
    bool many;
};

AddressPort address_port(const std::string &text, const Demands &demands)
{
    AddressPort result;
    size_t bracket = text.rfind(']');
    size_t colon = text.rfind(':');
    if (bracket != std::string::npos && colon != std::string::npos && colon < bracket) {
        colon = std::string::npos; /* one of an IPv6 address */
    }
    if (colon != std::string::npos || demands.address) {
        std::string list = text.substr(0, colon);
        for (size_t comma; demands.many && (comma = list.find(',')) != std::string::npos; list.erase(0, comma + 1)) {
            take_address(text, list.substr(0, comma), &result);
        }
        take_address(text, list, &result);
        if (colon == std::string::npos && demands.port) {
            bad_usage("\"%s\" has no port: give ADDR:PORT such as 127.0.0.1:9000 or [::1]:9000", text.c_str());
        }
    }
    if (colon != std::string::npos || !demands.address) {
        std::string port = colon == std::string::npos ? text : text.substr(colon + 1);
        result.port = (uint16_t)number(port, 10, demands.least_port, 65535, "port");
    }
    return result;
}

void parse_endpoint(const std::string &text, Arguments *arguments)
{
    size_t colon = text.find(':');
    const Form *form = nullptr;
    for (const Form &candidate : forms) {
        if (colon != std::string::npos && text.compare(0, colon, candidate.name) == 0) {
            form = &candidate;
        }
    }
    if (form == nullptr) {
        bad_usage("\"%s\" is no endpoint: kelcat --help lists them", text.c_str());
    }

    arguments->endpoint = text;
    arguments->transport = form->transport;
    arguments->listen = form->listen;
    std::string rest = text.substr(colon + 1);
    switch (form->transport) {
    case Transport::Tcp:
    case Transport::Udp:
    case Transport::Sctp: {
        AddressPort parsed =
            address_port(rest, {!form->listen, true, form->listen ? 0ul : 1ul, form->transport == Transport::Sctp});
        arguments->family = parsed.family;
        arguments->addresses = parsed.addresses;
        arguments->port = parsed.port;
        break;
    }
    case Transport::UnixStream:
    case Transport::UnixDatagram:
        arguments->family = KEL_AF_UNIX;
        check_path_length(rest);
        arguments->path = rest;
        break;
    case Transport::Packet: {
        size_t comma = rest.rfind(',');
        arguments->family = KEL_AF_PACKET;
        arguments->interface = rest.substr(0, comma);
        if (arguments->interface.empty()) {
            bad_usage("\"%s\" names no interface: give packet:INTERFACE[,PROTOCOL]", text.c_str());
        }
        if (comma != std::string::npos) {
            arguments->protocol = (uint16_t)number(rest.substr(comma + 1), 0, 1, 65535, "protocol");
        }
        break;
    }
    }
}

void parse_local(Arguments *arguments)
{
    if (arguments->listen || arguments->transport == Transport::UnixStream ||
        arguments->transport == Transport::Packet) {
        bad_usage("--local is for tcp:, udp:, sctp: and unix-dgram: endpoints alone");
    }
    if (arguments->transport == Transport::UnixDatagram) {
        check_path_length(arguments->local_text);
        return;
    }
    bool sctp = arguments->transport == Transport::Sctp;
    AddressPort parsed = address_port(arguments->local_text, {true, !sctp, 1, sctp});
    if (parsed.family != arguments->family) {
        bad_usage("--local %s and %s are of two families: give both as IPv4 or both as IPv6",
                  arguments->local_text.c_str(), arguments->endpoint.c_str());
    }
    for (const std::string &address : parsed.addresses) {
        kel_sockaddr_t record = {};
        kel_addr_fill(0, &record, parsed.family, (SHORT)parsed.port, address.c_str(), 0, nullptr);
        arguments->local.push_back(record);
    }
}

/* The size of what is sent as one, and its limits. */
void complete_size(Arguments *arguments)
{
    const struct {
        Transport transport;
        size_t usual;
        size_t most;
    } sizes[] = {
        {Transport::Udp, 1400, 65507}, {Transport::UnixDatagram, 8192, 200000}, {Transport::Sctp, 8192, 65536}};

    for (const auto &row : sizes) {
        if (row.transport == arguments->transport) {
            if (arguments->size > row.most) {
                bad_usage("\"%zu\" is no size here: give a number from 1 to %zu", arguments->size, row.most);
            }
            arguments->size = arguments->size != 0 ? arguments->size : row.usual;
            return;
        }
    }
    if (arguments->size != 0) {
        bad_usage("--size is for udp, unix-dgram and sctp endpoints alone");
    }
    arguments->size = 65536;
}

/* What one option asks of the endpoint or of another option, and the values that nobody gave. */
void complete(Arguments *arguments)
{
    if (arguments->send_only && arguments->recv_only) {
        bad_usage("--send-only and --recv-only exclude each other");
    }
    complete_size(arguments);
    if (arguments->stream() && (arguments->rate != 0 || arguments->count != 0)) {
        bad_usage("--rate and --count are for udp, unix-dgram and packet endpoints alone");
    }
    if (arguments->raw && arguments->transport != Transport::Packet) {
        bad_usage("--raw is for packet: endpoints alone");
    }
    if ((arguments->one_to_many || arguments->streams != 0 || arguments->ppid != 0) &&
        arguments->transport != Transport::Sctp) {
        bad_usage("--one-to-many, --streams and --ppid are for sctp endpoints alone");
    }
    if (arguments->transport == Transport::Packet && !arguments->send_only) {
        arguments->recv_only = true;
    }
    /* Nobody can answer a sender without a path. */
    if (arguments->transport == Transport::UnixDatagram && !arguments->listen && arguments->local_text.empty()) {
        if (arguments->recv_only) {
            bad_usage("--recv-only needs --local PATH here: without a path nothing can be received");
        }
        arguments->send_only = true;
    }
}

[[noreturn]]
void print_and_exit(const char *text)
{
    if (fputs(text, stdout) == EOF || fflush(stdout) == EOF) {
        say("cannot write to standard output: %s", strerror(errno));
        exit(3);
    }
    exit(0);
}

} // namespace

Arguments parse_arguments(int argc, char **argv)
{
    enum { Local = 256, SendOnly, RecvOnly, Idle, Size, Rate, Count, Raw, OneToMany, Streams, Ppid, Version };
    static const struct option options[] = {{"local", required_argument, nullptr, Local},
                                            {"send-only", no_argument, nullptr, SendOnly},
                                            {"recv-only", no_argument, nullptr, RecvOnly},
                                            {"idle", required_argument, nullptr, Idle},
                                            {"size", required_argument, nullptr, Size},
                                            {"rate", required_argument, nullptr, Rate},
                                            {"count", required_argument, nullptr, Count},
                                            {"raw", no_argument, nullptr, Raw},
                                            {"one-to-many", no_argument, nullptr, OneToMany},
                                            {"streams", required_argument, nullptr, Streams},
                                            {"ppid", required_argument, nullptr, Ppid},
                                            {"verbose", no_argument, nullptr, 'v'},
                                            {"quiet", no_argument, nullptr, 'q'},
                                            {"help", no_argument, nullptr, 'h'},
                                            {"version", no_argument, nullptr, Version},
                                            {}};

    Arguments arguments;
    opterr = 0;
    for (int option; (option = getopt_long(argc, argv, ":vqh", options, nullptr)) != -1;) {
        switch (option) {
        case Local:
            arguments.local_text = optarg;
            if (arguments.local_text.empty()) {
                bad_usage("--local is empty: give ADDR:PORT, or a path for unix-dgram:");
            }
            break;
        case SendOnly:
            arguments.send_only = true;
            break;
        case RecvOnly:
            arguments.recv_only = true;
            break;
        case Idle:
            arguments.idle = seconds(optarg);
            break;
        case Size:
            arguments.size = number(optarg, 10, 1, 200000, "size");
            break;
        case Rate:
            arguments.rate = rate(optarg);
            break;
        case Count:
            arguments.count = number(optarg, 10, 1, 1000000000, "count");
            break;
        case Raw:
            arguments.raw = true;
            break;
        case OneToMany:
            arguments.one_to_many = true;
            break;
        case Streams:
            arguments.streams = (uint16_t)number(optarg, 10, 1, 65535, "number of streams");
            break;
        case Ppid:
            arguments.ppid = (uint32_t)number(optarg, 0, 0, UINT32_MAX, "payload protocol identifier");
            break;
        case 'v':
            arguments.verbose = true;
            break;
        case 'q':
            arguments.quiet = true;
            break;
        case 'h':
            print_and_exit(help);
        case Version:
            print_and_exit("kelcat " KELCAT_VERSION "\n");
        case ':':
            bad_usage("%s needs a value: see kelcat --help", argv[optind - 1]);
        default:
            bad_usage("\"%s\" is no option: see kelcat --help", argv[optind - 1]);
        }
    }
    if (optind == argc) {
        bad_usage("an endpoint is missing, such as tcp:127.0.0.1:9000: see kelcat --help");
    }
    if (optind + 1 < argc) {
        bad_usage("\"%s\" is one argument too many: give one endpoint", argv[optind + 1]);
    }
    parse_endpoint(argv[optind], &arguments);
    if (!arguments.local_text.empty()) {
        parse_local(&arguments);
    }
    complete(&arguments);
    return arguments;
}
