/* packet: link-layer frames of one interface, received or sent. */
#include <cerrno>
#include <cstring>
#include <net/if.h>
#include <sstream>
#include <utility>

#include "channel.h"
#include "pace.h"

const char packet_rule[] = "  Packets: --count or --idle; with --send-only the end of the input.\n";

const char frame_format[] =
    "Frames are hexadecimal text both ways: '#' comments, then lines of an offset and up to 16 bytes,\n"
    "\"0010  08 00 45 ...\"; offset 0 begins the next frame. packet: receives, or sends with --send-only.\n"
    "It shows incoming frames; with -v, unless --raw, the machine's own too, marked \"out\".\n";

namespace
{

const size_t frame_limit = 64 << 10; /* more than any interface takes */
const double packet_rate = 4 << 20;

/* A comment line, then lines of an offset and 16 bytes: of a frame of 64 KiB less than 256 KiB. */
size_t frame_text(char *text, unsigned long number, const char *frame, size_t size, bool outgoing, unsigned protocol)
{
    static const char digits[] = "0123456789abcdef";
    char *end =
        text + sprintf(text, "# %lu: %zu bytes %s, protocol 0x%04x", number, size, outgoing ? "out" : "in", protocol);
    for (size_t i = 0; i < size; i++) {
        if (i % 16 == 0) {
            end += sprintf(end, "\n%04zx ", i);
        }
        const unsigned char byte = (unsigned char)frame[i];
        *end++ = ' ';
        *end++ = digits[byte >> 4];
        *end++ = digits[byte & 15];
    }
    *end++ = '\n';
    return (size_t)(end - text);
}

/* What packet: prints when it receives, it reads when it sends: hexadecimal text; or with --raw one frame's bytes. */
class FrameReader
{
  public:
    explicit FrameReader(bool plain) : raw(plain)
    {
    }

    /* Takes input up to where it completes a frame, which it puts into the empty one, and returns how much. */
    size_t take(const char *text, size_t size, std::string *complete)
    {
        if (raw) {
            frame.append(text, size);
            if (frame.size() > frame_limit) {
                wrong = "standard input is longer than any frame: with --raw all of it is one frame";
            }
            return size;
        }
        size_t used = 0;
        while (used < size && complete->empty() && wrong.empty()) {
            const char *start = text + used;
            const char *end = static_cast<const char *>(memchr(start, '\n', size - used));
            line.append(start, end != nullptr ? (size_t)(end - start) : size - used);
            used = end != nullptr ? (size_t)(end - text) + 1 : size;
            if (end != nullptr) {
                take_line(complete);
            }
        }
        return used;
    }

    /* The input has ended: so has the frame. To be called until it completes no more. */
    void finish(std::string *complete)
    {
        if (!line.empty()) {
            take_line(complete);
        }
        if (complete->empty() && wrong.empty()) {
            complete->swap(frame);
        }
    }

    std::string wrong; /* with the number of the line; empty: nothing is */

  private:
    void take_line(std::string *complete)
    {
        const std::string text = std::exchange(line, "");
        line_number++;
        if (text.find('\0') != std::string::npos) {
            return refuse("holds a NUL");
        }
        std::istringstream words(text);
        std::string word;
        if (!(words >> word) || word[0] == '#') {
            return;
        }
        if (word.size() < 3 || word.size() > 8 || !hexadecimal(word)) {
            return refuse("does not begin with an offset such as 0000");
        }
        const size_t offset = std::stoul(word, nullptr, 16);
        if (offset == 0 && !frame.empty()) {
            complete->swap(frame);
        }
        if (offset != frame.size()) {
            return refuse("has an offset that is neither 0 nor where the frame goes on");
        }
        while (words >> word) {
            if (word.size() != 2 || !hexadecimal(word)) {
                return refuse("holds something else than bytes of two hexadecimal digits");
            }
            frame += (char)std::stoul(word, nullptr, 16);
        }
    }

    static bool hexadecimal(const std::string &word)
    {
        return word.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    }

    void refuse(const char *why)
    {
        wrong = "line " + std::to_string(line_number) + " of standard input " + why;
    }

    const bool raw;
    std::string line;
    unsigned long line_number = 0;
    std::string frame;
};

class Frames : public Channel
{
  public:
    explicit Frames(const Options &given)
        : Channel(given), pace{given.rate != 0 ? given.rate : packet_rate}, reader(given.raw)
    {
        receiving = !given.send_only;
    }

    int open() override
    {
        /* Asked first: for an interface that does not exist the module closes a descriptor twice. */
        if (if_nametoindex(options.interface.c_str()) == 0) {
            return refuse("open", "there is no such interface; `ip link` lists them");
        }
        /* Protocol 0 receives nothing. */
        sockfd = kel_raw_server_socket_create((SHORT)(receiving ? options.protocol : 0), options.interface.c_str());
        if (sockfd == KEL_ERROR) {
            return errno == EPERM ? refuse("open", "it needs the raw-socket privilege (CAP_NET_RAW)") : cannot("open");
        }
        interface = own_address()[0];
        if (receiving) {
            incoming.reset(new char[frame_limit]);
            ask_for_receive_buffer(4 << 20);
            show_listening({interface});
        }
        return 0;
    }

    size_t send(const char *bytes, size_t size) override
    {
        size_t used = 0;
        while (settle() && used < size) {
            used += reader.take(bytes + used, size - used, &frame);
        }
        return used;
    }

    void finish() override
    {
        if (settle()) {
            reader.finish(&frame);
            sending = !frame.empty() || !reader.wrong.empty();
        }
    }

    size_t receive(char *buffer, size_t room) override
    {
        size_t got = 0;
        while (receiving && room - got >= largest) {
            kel_sockaddr_t from = {};
            const LONG length = kel_recvfrom(sockfd, incoming.get(), frame_limit, MSG_DONTWAIT, &from);
            if (length == KEL_ERROR) {
                receiving = errno == EAGAIN;
                if (!receiving) {
                    broke(errno);
                }
                break;
            }
            const bool outgoing = from.raw.sll_pkttype == PACKET_OUTGOING;
            if (outgoing && (options.raw || !options.verbose)) {
                continue;
            }
            receiving = ++received != options.count;
            if (options.raw) {
                memcpy(buffer + got, incoming.get(), (size_t)length);
                got += (size_t)length;
            } else {
                got += frame_text(buffer + got, received, incoming.get(), (size_t)length, outgoing,
                                  ntohs(from.raw.sll_protocol));
            }
        }
        return got;
    }

  private:
    /* Sends the frame that is complete, and then tells what is wrong behind it. False: not now, or nothing more. */
    bool settle()
    {
        if (!frame.empty() && !send_frame()) {
            return false;
        }
        if (!reader.wrong.empty()) {
            fail("%s", reader.wrong.c_str());
            sending = false;
        }
        return sending;
    }

    /* True: it has gone, or never will. */
    bool send_frame()
    {
        const double now = now_seconds();
        not_before = pace.due(now);
        if (not_before > now) {
            return false;
        }
        if (kel_sendto(sockfd, frame.data(), frame.size(), MSG_DONTWAIT, &interface) == KEL_ERROR) {
            if (errno == EAGAIN || errno == ENOBUFS) {
                not_before = now + nap;
                return false;
            }
            fail("cannot send %zu bytes to %s: %s", frame.size(), options.endpoint.c_str(), strerror(errno));
            sending = false;
        }
        pace.sent(frame.size(), now);
        frame.clear();
        return true;
    }

    Pace pace;
    FrameReader reader;
    std::string frame;             /* the next one, once it is complete */
    kel_sockaddr_t interface = {}; /* where frames go: filled once */
    unsigned long received = 0;
    std::unique_ptr<char[]> incoming;
};

} // namespace

std::unique_ptr<Channel> make_packet(const Options &options)
{
    return std::make_unique<Frames>(options);
}
